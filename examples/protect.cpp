// Protects a file for a room and opens it again: example_protect SERVICE-URL ROOM FILE
#include <cstdio>

#include "client/cryptcli.h"
#include "transport/curlhttp.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::File;
using OruKalvix::CryptClient;
using OruKalvix::CryptClientCurl;

namespace {

int Fail(const char* what, const AnsiStr& reason) {
  std::fprintf(stderr, "Could not %s: %s\n", what, reason.GetText());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return Fail("start", "give the URL of the crypt service, a room and a file");
  const AnsiStr service = argv[1];
  const File plain{AnsiStr(argv[3])};
  const File protectedFile{AnsiStr(argv[3]) + ".p7m"};
  const File opened{AnsiStr(argv[3]) + ".opened"};

  AnsiStr reason;
  const CryptClientCurl::Ptr http = CryptClientCurl::Create({}, reason);
  if (http == nullptr) return Fail("make the transport", reason);

  CryptClient client(http.get(), service, "", argv[2]);
  bool keyError = false;
  if (!client.Encrypt(plain, protectedFile, keyError)) return Fail("encrypt", client.GetErrorMessage());

  bool isSigned = false;
  bool isVerified = false;
  if (!client.Decrypt(protectedFile, opened, isSigned, isVerified)) {
    return Fail("decrypt", client.GetErrorMessage());
  }
  // The content was written. The application decides what to do if its origin is not proven.
  if (isSigned && !isVerified) return Fail("prove the origin", client.GetErrorMessage());
  std::printf("%s: %s\n", opened.GetPath().GetText(), isVerified ? "origin verified" : "not signed");
  return 0;
}
