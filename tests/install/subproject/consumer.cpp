// Uses both libraries without a network: nobody listens at the URL of the service, and the client reports
// that.
#include <cstdio>

#include "client/cryptcli.h"
#include "transport/curlhttp.h"

int main() {
  OruGuiBase::AnsiStr errorText;
  const auto http = OruKalvix::CryptClientCurl::Create({}, errorText);
  if (http == nullptr) return 1;
  OruKalvix::CryptClient client(http.get(), "http://127.0.0.1:1", "", "room");
  bool keyError = false;
  if (client.Encrypt(OruGuiBase::File("source"), OruGuiBase::File("target"), keyError)) return 2;
  std::puts(client.GetErrorMessage().GetText());
  return client.GetErrorMessage().IsEmpty() ? 3 : 0;
}
