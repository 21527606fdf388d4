#include "security/failure.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <openssl/err.h>

#include "tests/security/test_pki.h"

namespace {

using namespace SecurityTest;
using OruOssSec::FailWith;
using OruOssSec::FailWithOpenSSL;
using OruOssSec::OpenSSLScope;

constexpr int kTooLong = ASN1_R_HEADER_TOO_LONG;

TEST(FailWith, RecordsTheReasonAndReturnsFalse) {
  const OpenSSLScope scope;
  EXPECT_FALSE(FailWith("the reason"));
  EXPECT_EQ(GetReason(), "the reason");
}

TEST(FailWith, KeepsTheInnermostReason) {
  const OpenSSLScope scope;
  FailWith("inner");
  FailWith("outer");
  EXPECT_EQ(GetReason(), "inner");
}

TEST(FailWith, KeepsTheErrorOfTheSystem) {
  const OpenSSLScope scope;
  OruGuiBase::SetLastError(ENOSPC);
  FailWith("outer");
  EXPECT_EQ(GetReason(), std::strerror(ENOSPC));
}

TEST(FailWithOpenSSL, GivesTheFallbackWhenTheQueueIsEmpty) {
  const OpenSSLScope scope;
  EXPECT_FALSE(FailWithOpenSSL("fallback"));
  EXPECT_EQ(GetReason(), "fallback");
}

TEST(FailWithOpenSSL, KeepsTheInnermostReason) {
  const OpenSSLScope scope;
  FailWith("inner");
  ERR_raise(ERR_LIB_ASN1, kTooLong);
  FailWithOpenSSL("fallback");
  EXPECT_EQ(GetReason(), "inner");
}

TEST(FailWithOpenSSL, GivesTheReasonInWords) {
  const OpenSSLScope scope;
  ERR_raise(ERR_LIB_ASN1, kTooLong);
  FailWithOpenSSL("fallback");
  EXPECT_EQ(GetReason(), "header too long");
}

TEST(FailWithOpenSSL, SkipsEntriesThatOnlyPassAFailureOn) {
  const OpenSSLScope scope;
  ERR_raise(ERR_LIB_ASN1, ERR_R_NESTED_ASN1_ERROR);
  ERR_raise(ERR_LIB_ASN1, kTooLong);
  ERR_raise(ERR_LIB_PEM, ERR_R_ASN1_LIB);
  FailWithOpenSSL("fallback");
  EXPECT_EQ(GetReason(), "header too long");
}

TEST(FailWithOpenSSL, PrefersTheCauseToItsConsequence) {
  const OpenSSLScope scope;
  ERR_raise(ERR_LIB_ASN1, kTooLong);
  ERR_raise(ERR_LIB_X509, X509_R_CERT_ALREADY_IN_HASH_TABLE);
  FailWithOpenSSL("fallback");
  EXPECT_EQ(GetReason(), "header too long");
}

TEST(FailWithOpenSSL, PrefersAParticularReasonToASharedOne) {
  const OpenSSLScope scope;
  ERR_raise(ERR_LIB_ASN1, ERR_R_UNSUPPORTED);
  ERR_raise(ERR_LIB_ASN1, kTooLong);
  FailWithOpenSSL("fallback");
  EXPECT_EQ(GetReason(), "header too long");
}

TEST(FailWithOpenSSL, AddsTheRemarkOfASharedReason) {
  const OpenSSLScope scope;
  ERR_raise_data(ERR_LIB_EVP, ERR_R_UNSUPPORTED, "Algorithm (FOO : 0)");
  FailWithOpenSSL("fallback");
  EXPECT_EQ(GetReason(), "unsupported: Algorithm (FOO : 0)");
}

TEST(FailWithOpenSSL, GivesTheSystemsMessageForItsErrors) {
  const OpenSSLScope scope;
  ERR_raise(ERR_LIB_ASN1, kTooLong);
  ERR_raise_data(ERR_LIB_SYS, ENOENT, "fopen");
  FailWithOpenSSL("fallback");
  EXPECT_EQ(GetReason(), std::strerror(ENOENT));
}

TEST(FailWithOpenSSL, ReportsAFailedAllocation) {
  const OpenSSLScope scope;
  ERR_raise(ERR_LIB_X509, X509_R_CERT_ALREADY_IN_HASH_TABLE);
  ERR_raise(ERR_LIB_X509, ERR_R_MALLOC_FAILURE);
  FailWithOpenSSL("fallback");
  EXPECT_EQ(GetReason(), std::strerror(ENOMEM));
}

TEST(FailWithOpenSSL, GivesTheFallbackForAReasonWithoutWords) {
  const OpenSSLScope scope;
  ERR_raise(ERR_LIB_USER, 77);
  FailWithOpenSSL("fallback");
  EXPECT_EQ(GetReason(), "fallback");
}

TEST(FailWithOpenSSL, GivesTheFallbackWhenFailuresWereOnlyPassedOn) {
  const OpenSSLScope scope;
  ERR_raise(ERR_LIB_PEM, ERR_R_ASN1_LIB);
  FailWithOpenSSL("fallback");
  EXPECT_EQ(GetReason(), "fallback");
}

TEST(FailWithOpenSSL, ReportsRefusedBytesOnlyForAReasonOfTheirOwn) {
  const OpenSSLScope scope;
  bool refused = true;
  EXPECT_FALSE(FailWithOpenSSL("fallback", refused));
  EXPECT_FALSE(refused) << "nothing in the queue";
  ERR_raise(ERR_LIB_ASN1, kTooLong);
  FailWithOpenSSL("fallback", refused);
  EXPECT_TRUE(refused) << "a reason of the parser";
  ERR_raise(ERR_LIB_ASN1, kTooLong);
  ERR_raise(ERR_LIB_ASN1, ERR_R_MALLOC_FAILURE);
  FailWithOpenSSL("fallback", refused);
  EXPECT_FALSE(refused) << "no memory";
  ERR_raise(ERR_LIB_PEM, ERR_R_ASN1_LIB);
  FailWithOpenSSL("fallback", refused);
  EXPECT_FALSE(refused) << "a failure that was passed on";
}

TEST(OpenSSLScope, ClearsTheLastErrorAndTheQueueOnEntry) {
  LeaveStaleReason();
  ERR_raise(ERR_LIB_ASN1, kTooLong);
  const OpenSSLScope scope;
  EXPECT_EQ(OruGuiBase::GetLastError(), 0U);
  EXPECT_TRUE(IsQueueEmpty());
}

TEST(OpenSSLScope, LeavesAnEmptyQueueAndTheReason) {
  {
    const OpenSSLScope scope;
    FailWith("the reason");
    ERR_raise(ERR_LIB_ASN1, kTooLong);
  }
  EXPECT_TRUE(IsQueueEmpty());
  EXPECT_EQ(GetReason(), "the reason");
}

}  // namespace
