// Checks the options of a transport when it is made, so that a wrong one is an error with its name and not
// the failure of some later exchange. Called by CryptClientCurl::Create.
#include "transport/settings.h"

#include <algorithm>

#include "transport/header_list.h"

namespace OruKalvix {

using OruGuiBase::AnsiStr;

namespace {

constexpr std::uint32_t kMostBody = 0x7FFFFFFF;  // a string of this length can still grow by half

bool CheckFiles(const CryptClientCurlOptions& options, AnsiStr& errorText) {
  if (options.clientKey.IsEmpty() || !options.clientCertificate.IsEmpty()) return true;
  errorText = "A client key needs a client certificate";
  return false;
}

}  // namespace

bool CurlSettings::Init(const CryptClientCurlOptions& given, AnsiStr& errorText) {
  options = given;
  options.maxBody = std::min(options.maxBody, kMostBody);
  HeaderList headers;
  if (!CheckFiles(options, errorText) || !files.Read(options, errorText) ||
      !headers.Add(options.headers, errorText)) {
    return false;
  }
  if (options.serviceUrl.IsEmpty()) {
    if (!options.credentials) return true;
    errorText = "Credentials need the URL of the crypt service";
    return false;
  }
  return ParseUrl(options.serviceUrl, service, errorText);
}

}  // namespace OruKalvix
