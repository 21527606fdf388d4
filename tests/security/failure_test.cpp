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

// A failure records its reason in the error state.
TEST(FailWith, RecordsTheReasonAndIsFalse) {
  const OpenSSLScope scope;
  EXPECT_FALSE(FailWith("the reason"));
  EXPECT_EQ(GetReason(), "the reason");
}

// A reason that was recorded already stands.
TEST(FailWith, LeavesTheInnermostReason) {
  const OpenSSLScope scope;
  FailWith("inner");
  FailWith("outer");
  EXPECT_EQ(GetReason(), "inner");
}

// An error of the system that was recorded already stands.
TEST(FailWith, LeavesTheErrorOfTheSystem) {
  const OpenSSLScope scope;
  OruGuiBase::SetLastError(ENOSPC);
  FailWith("outer");
  EXPECT_EQ(GetReason(), std::strerror(ENOSPC));
}

// Without an error of OpenSSL the caller's own reason is given.
TEST(FailWithOpenSSL, GivesTheFallbackWhenTheQueueIsEmpty) {
  const OpenSSLScope scope;
  EXPECT_FALSE(FailWithOpenSSL("fallback"));
  EXPECT_EQ(GetReason(), "fallback");
}

// A reason that was recorded already stands before one of OpenSSL.
TEST(FailWithOpenSSL, LeavesTheInnermostReason) {
  const OpenSSLScope scope;
  FailWith("inner");
  ERR_raise(ERR_LIB_ASN1, kTooLong);
  FailWithOpenSSL("fallback");
  EXPECT_EQ(GetReason(), "inner");
}

// The reason of a failure in OpenSSL is given in words.
TEST(FailWithOpenSSL, GivesTheReasonInWords) {
  const OpenSSLScope scope;
  ERR_raise(ERR_LIB_ASN1, kTooLong);
  FailWithOpenSSL("fallback");
  EXPECT_EQ(GetReason(), "header too long");
}

TEST(FailWithOpenSSL, PassesOverEntriesThatOnlyPassAFailureOn) {
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

TEST(FailWithOpenSSL, SaysWhatASharedReasonIsAbout) {
  const OpenSSLScope scope;
  ERR_raise_data(ERR_LIB_EVP, ERR_R_UNSUPPORTED, "Algorithm (FOO : 0)");
  FailWithOpenSSL("fallback");
  EXPECT_EQ(GetReason(), "unsupported: Algorithm (FOO : 0)");
}

TEST(FailWithOpenSSL, GivesTheTextOfTheSystemForItsErrors) {
  const OpenSSLScope scope;
  ERR_raise(ERR_LIB_ASN1, kTooLong);
  ERR_raise_data(ERR_LIB_SYS, ENOENT, "fopen");
  FailWithOpenSSL("fallback");
  EXPECT_EQ(GetReason(), std::strerror(ENOENT));
}

// A failure of OpenSSL for lack of memory says so.
TEST(FailWithOpenSSL, SaysThatMemoryIsOut) {
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

// The bytes are to blame for a failure only where OpenSSL names a reason that is not the system's.
TEST(FailWithOpenSSL, BlamesTheBytesForAReasonOfTheirOwnAlone) {
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

// An operation begins with a clear error state and an empty queue of OpenSSL.
TEST(OpenSSLScope, ClearsTheLastErrorAndTheQueueOnEntry) {
  LeaveStaleReason();
  ERR_raise(ERR_LIB_ASN1, kTooLong);
  const OpenSSLScope scope;
  EXPECT_EQ(OruGuiBase::GetLastError(), 0U);
  EXPECT_TRUE(IsQueueEmpty());
}

// An operation leaves its reason and an empty queue of OpenSSL.
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
