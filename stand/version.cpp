#include "stand/version.h"

#include <openssl/crypto.h>
#include <sqlite3.h>

namespace CryptStand {

std::string GetVersion() {
  return CRYPTCLI_VERSION;
}

// As loaded, which may be newer than what was compiled against.
std::string DescribeVersion() {
  return "cryptstand " + GetVersion() + "\nOpenSSL " + OpenSSL_version(OPENSSL_VERSION_STRING) + "\nSQLite " +
         sqlite3_libversion();
}

}  // namespace CryptStand
