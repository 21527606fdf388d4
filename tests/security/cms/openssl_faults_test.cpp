// A failure of OpenSSL that says nothing still fails the operation, with a reason of ours.
#include "tests/security/openssl_faults.h"

#include <gtest/gtest.h>

#include "tests/security/cms/fixture.h"

namespace SecurityTest {
namespace {

struct FaultRow {
  const char* function;
  int number;
  const char* reason;
};

class CmsOpenSSLFaults : public testing::Test {
 protected:
  template <class Work>
  void ExpectReason(const FaultRow& row, Work work) {
    const OpenSSLFault fault(row.function, row.number);
    EXPECT_FALSE(work()) << row.function;
    EXPECT_TRUE(fault.WasMet()) << row.function;
    EXPECT_EQ(GetReason(), row.reason) << row.function << row.number;
  }

  ScratchDirectory scratch_;
  const File plain_ = scratch_.Make("plain", "some content");
  const File target_ = scratch_.File("target");
};

TEST_F(CmsOpenSSLFaults, EncryptingReportsWhatFailed) {
  const FaultRow rows[] = {
      {"CMS_encrypt", 1, "The enveloped message cannot be made"},
      {"X509_get0_pubkey", 1, "The recipient's key cannot be read"},
      {"CMS_add1_recipient_cert", 1, "The recipient cannot be added"},
      {"CMS_dataInit", 1, "The content cannot be encrypted"},
      {"BIO_get_cipher_ctx", 1, "The content cannot be encrypted"},
      {"EVP_EncryptUpdate", 1, "The content cannot be encrypted"},
      {"EVP_EncryptFinal_ex", 1, "The content cannot be encrypted"},
  };
  for (const FaultRow& row : rows) ExpectReason(row, [this] { return EnvelopeFile(plain_, target_); });
}

// Content type, signing time and digest are added in this order, the caller's strings between the last two.
TEST_F(CmsOpenSSLFaults, SigningReportsThatAnAttributeCannotBeAdded) {
  const FaultRow rows[] = {
      {"CMS_signed_add1_attr_by_NID", 1, "A signed attribute cannot be added"},
      {"CMS_signed_add1_attr_by_NID", 2, "A signed attribute cannot be added"},
      {"CMS_signed_add1_attr_by_NID", 3, "A signed attribute cannot be added"},
      {"CMS_signed_add1_attr_by_OBJ", 1, "A signed attribute cannot be added"},
      {"i2d_X509_ATTRIBUTE", 1, "A signed attribute cannot be encoded"},
      {"i2d_X509_ATTRIBUTE", 4, "A signed attribute cannot be encoded"},
  };
  const OruGuiBase::DateTime time = At(2026, 11, 22);
  KVMap attributes;
  attributes.Put("1.2.3.4", "text");
  for (const FaultRow& row : rows)
    ExpectReason(row, [&] { return SignFile(plain_, target_, attributes, &time); });
}

}  // namespace
}  // namespace SecurityTest
