#include "tests/support/no_digests.h"

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>

namespace TestSupport {
namespace {

bool IsDigestFound() {
  EVP_MD* const digest = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  const bool found = digest != nullptr;
  EVP_MD_free(digest);
  ERR_clear_error();
  return found;
}

}  // namespace

// Demands a property that no provider of this process has.
NoDigests::NoDigests() {
  EVP_set_default_properties(nullptr, "provider=none");
  if (IsDigestFound()) ADD_FAILURE() << "digests are still found";
}

NoDigests::~NoDigests() {
  EVP_set_default_properties(nullptr, "");
  if (!IsDigestFound()) ADD_FAILURE() << "digests stay away";
}

}  // namespace TestSupport
