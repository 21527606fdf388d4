// Checks the options of a transport when it is made, so that a wrong one is an error with its name and not
// the failure of some later exchange. Called by CryptClientCurl::Create.
#include "transport/settings.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>

#include "foundation/errorstate.h"
#include "foundation/format.h"
#include "transport/header_list.h"

namespace OruKalvix {

using OruGuiBase::AnsiStr;

namespace {

constexpr std::uint32_t kMostBody = 0x7FFFFFFF;  // a string of this length can still grow by half

// libcurl would report these files only at the first connection, as TLS errors.
bool CheckReadable(const char* what, const AnsiStr& path, AnsiStr& errorText) {
  if (path.IsEmpty() || access(path.GetText(), R_OK) == 0) return true;
  const AnsiStr reason = OruGuiBase::GetErrorMessage(static_cast<std::uint32_t>(errno), 0, 1);
  errorText = AnsiStr("Could not read ") + what + " " + OruGuiBase::SimpleQuote(path) + ": " + reason;
  return false;
}

bool CheckFiles(const CryptClientCurlOptions& options, AnsiStr& errorText) {
  if (!options.clientKey.IsEmpty() && options.clientCertificate.IsEmpty()) {
    errorText = "A client key needs a client certificate";
    return false;
  }
  return CheckReadable("CA file", options.caFile, errorText) &&
         CheckReadable("client certificate", options.clientCertificate, errorText) &&
         CheckReadable("client key", options.clientKey, errorText);
}

}  // namespace

bool CurlSettings::Init(const CryptClientCurlOptions& given, AnsiStr& errorText) {
  options = given;
  options.maxBody = std::min(options.maxBody, kMostBody);
  HeaderList headers;
  if (!CheckFiles(options, errorText) || !headers.Add(options.headers, errorText)) return false;
  if (options.serviceUrl.IsEmpty()) {
    if (!options.credentials) return true;
    errorText = "Credentials need the URL of the crypt service";
    return false;
  }
  return ParseUrl(options.serviceUrl, service, errorText);
}

}  // namespace OruKalvix
