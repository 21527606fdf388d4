#include "tests/interop/command.h"
#include "tests/interop/sample.h"

using ::testing::HasSubstr;

namespace TestSupport {
namespace {

// A database of its own with the room's key and the test service's certificates, which are trusted.
class Nss : public InteropTest {
 protected:
  void SetUp() override {
    InteropTest::SetUp();
    Run("mkdir db && certutil -N -d sql:db --empty-password");
    Run("openssl pkcs12 -export -inkey room.key -in room.crt -name room -passout pass:x -out room.p12");
    Run("pk12util -i room.p12 -d sql:db -W x");
    Run("awk '/BEGIN/{n++}{print > (\"list\" n \".crt\")}' lists.pem");
    Run("for f in list*.crt; do certutil -A -d sql:db -n $f -t C,C,C -a -i $f || exit 1; done");
  }

  CommandResult Decode(const std::string& name) {
    return RunCommand(scratch.Path("."), "cmsutil -D -d sql:db -i " + name + " -o decoded");
  }
};

TEST_F(Nss, OpensAndVerifiesOurFile) {
  Protect(Sample());
  Run("cmsutil -D -d sql:db -i secret -o inner");
  Run("cmsutil -D -d sql:db -i inner -o content");
  EXPECT_TRUE(scratch.Read("content") == Sample());
  const CommandResult shown = RunCommand(scratch.Path("."), "cmsutil -D -d sql:db -n -h 1 -i inner");
  EXPECT_THAT(shown.output, HasSubstr("type=signedData; nsigners=1;"));
  EXPECT_THAT(shown.output, HasSubstr("signer0.status=GoodSignature;"));
}

TEST_F(Nss, RefusesOurFileWhenItIsChangedOrUnderAnotherRoot) {
  Protect("the bytes");
  Run("cmsutil -D -d sql:db -i secret -o inner");
  std::string changed = scratch.Read("inner");
  changed[changed.find("the bytes")] = 'T';
  scratch.Make("changed", changed);
  CommandResult result = Decode("changed");
  EXPECT_NE(result.code, 0);
  EXPECT_THAT(result.output, HasSubstr("status = DigestMismatch"));

  Run("for f in list*.crt; do certutil -D -d sql:db -n $f || exit 1; done");
  result = Decode("inner");
  EXPECT_NE(result.code, 0);
  EXPECT_THAT(result.output, HasSubstr("status = SigningCertNotTrusted"));
}

TEST_F(Nss, WritesEnvelopesThatWeOpen) {
  scratch.Make("plain", Sample());
  Run("cmsutil -E -d sql:db -r room -i plain -o sealed");
  const Opened opened = Decrypt("sealed", "opened");
  EXPECT_TRUE(opened.done) << opened.error;
  EXPECT_FALSE(opened.isSigned);
  EXPECT_TRUE(scratch.Read("opened") == Sample());
}

TEST_F(Nss, WritesSignedContentThatWeOpenAndVerify) {
  scratch.Make("plain", Sample());
  Run("openssl req -x509 -newkey rsa:2048 -nodes -keyout signer.key -out signer.crt -subj /CN=Signer -days "
      "2");
  Run("openssl pkcs12 -export -inkey signer.key -in signer.crt -name signer -passout pass:x -out signer.p12");
  Run("pk12util -i signer.p12 -d sql:db -W x && certutil -M -d sql:db -n signer -t u,Cu,u");
  for (const char* hash : {"SHA256", "SHA512"}) {
    Run(std::string("cmsutil -S -G -P -d sql:db -N signer -i plain -o signed -H ") + hash);
    Run("cmsutil -E -d sql:db -r room -i signed -o sealed");
    const Opened opened = Decrypt("sealed", "opened");
    EXPECT_TRUE(opened.done) << opened.error;
    EXPECT_TRUE(opened.isSigned);
    EXPECT_TRUE(opened.isVerified) << opened.error;
    EXPECT_TRUE(scratch.Read("opened") == Sample());
  }
}

}  // namespace
}  // namespace TestSupport
