#include "tests/support/no_digests.h"

#include <gtest/gtest.h>

#include "tests/support/pki.h"

namespace TestSupport {
namespace {

TEST(NoDigests, TakesDigestsAwayAndGivesThemBack) {
  const OruOssSec::Certificate certificate = LoadCert(Pki::Get().root.certificate);
  const auto getsDigest = [&certificate] {
    OruGuiBase::AnsiStr text;
    return certificate.GetDigest(OruOssSec::SecDigest::SHA256, OruOssSec::SecEncoding::HexLower, text);
  };
  EXPECT_TRUE(getsDigest());
  {
    const NoDigests without;
    EXPECT_FALSE(getsDigest());
  }
  EXPECT_TRUE(getsDigest());
}

}  // namespace
}  // namespace TestSupport
