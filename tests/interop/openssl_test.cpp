#include "tests/interop/command.h"
#include "tests/interop/sample.h"

namespace TestSupport {
namespace {

class OpenSSLTool : public InteropTest {};

TEST_F(OpenSSLTool, OpensAndVerifiesOurFile) {
  Protect(Sample());
  Run("openssl cms -decrypt -binary -inform DER -in secret -inkey room.key -recip room.crt -out inner");
  Run("openssl cms -verify -binary -inform DER -in inner -CAfile lists.pem -purpose any -out content");
  EXPECT_EQ(scratch.Read("content"), Sample());
}

TEST_F(OpenSSLTool, RefusesOurFileUnderAnotherRoot) {
  Protect("bytes");
  Run("openssl cms -decrypt -binary -inform DER -in secret -inkey room.key -recip room.crt -out inner");
  Run("openssl req -x509 -newkey rsa:2048 -nodes -keyout other.key -out other.crt -subj /CN=Other -days 2");
  const CommandResult result = RunCommand(scratch.Path("."),
                                          "openssl cms -verify -binary -inform DER -in inner -CAfile "
                                          "other.crt -no-CApath -purpose any -out content");
  EXPECT_NE(result.code, 0);
}

/// The options for the form that the tool writes.
struct Form {
  const char* name;
  const char* options;
};

class OpenSSLToolWrites : public InteropTest, public ::testing::WithParamInterface<Form> {
 protected:
  void Seal(const std::string& inner) {
    Run("openssl cms -encrypt -binary -aes-256-cbc -outform DER " + std::string(GetParam().options) +
        " -in " + inner + " -out sealed room.crt");
  }
};

TEST_P(OpenSSLToolWrites, PlainContentThatWeOpen) {
  scratch.Make("plain", Sample());
  Seal("plain");
  const Opened opened = Decrypt("sealed", "opened");
  EXPECT_TRUE(opened.done) << opened.error;
  EXPECT_FALSE(opened.isSigned);
  EXPECT_FALSE(opened.isVerified);
  EXPECT_EQ(scratch.Read("opened"), Sample());
}

TEST_P(OpenSSLToolWrites, SignedContentThatWeOpenAndVerify) {
  scratch.Make("plain", Sample());
  Run("openssl req -x509 -newkey rsa:2048 -nodes -keyout signer.key -out signer.crt -subj /CN=Signer -days "
      "2");
  Run("openssl cms -sign -binary -nodetach -md sha256 -outform DER " + std::string(GetParam().options) +
      " -signer signer.crt -inkey signer.key -in plain -out signed");
  Seal("signed");
  const Opened opened = Decrypt("sealed", "opened");
  EXPECT_TRUE(opened.done) << opened.error;
  EXPECT_TRUE(opened.isSigned);
  EXPECT_TRUE(opened.isVerified) << opened.error;
  EXPECT_EQ(scratch.Read("opened"), Sample());
}

TEST_P(OpenSSLToolWrites, DigestedContentThatWeDeliverUnproven) {
  scratch.Make("plain", Sample());
  Run("openssl cms -digest_create -binary -nodetach -outform DER " + std::string(GetParam().options) +
      " -in plain -out digested");
  Seal("digested");
  const Opened opened = Decrypt("sealed", "opened");
  EXPECT_TRUE(opened.done) << opened.error;
  EXPECT_FALSE(opened.isSigned);
  EXPECT_EQ(scratch.Read("opened"), Sample());
}

INSTANTIATE_TEST_SUITE_P(Forms, OpenSSLToolWrites,
                         ::testing::Values(Form{"DefiniteLength", "-nosmimecap"},
                                           Form{"Streamed", "-stream"}),
                         [](const auto& form) { return form.param.name; });

}  // namespace
}  // namespace TestSupport
