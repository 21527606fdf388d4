#include <memory>

#include "tests/interop/command.h"
#include "tests/interop/sample.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace TestSupport {
namespace {

// The peer is a small program of ours on its library, compiled once for all tests.
class BouncyCastle : public InteropTest {
 protected:
  static void SetUpTestSuite() {
    classes_ = std::make_unique<ScratchDirectory>();
    const CommandResult result =
        RunCommand(classes_->Path("."), "javac -nowarn -cp " BOUNCY_CASTLE " -d . " STREAM_PEER);
    ASSERT_EQ(result.code, 0) << result.output;
  }
  static void TearDownTestSuite() { classes_.reset(); }

  // Less memory than the files of some tests are long.
  static std::string Peer(const std::string& arguments) {
    return "java -Xmx16m -XX:+UseSerialGC -XX:TieredStopAtLevel=1 -XX:-UsePerfData -cp " BOUNCY_CASTLE ":" +
           classes_->Path(".").string() + " StreamPeer " + arguments;
  }
  CommandResult Open(const std::string& name) {
    return RunCommand(scratch.Path("."), Peer("open room.key " + name + " content"));
  }

  void MakeSigner() {
    Run("openssl req -x509 -newkey rsa:2048 -nodes -keyout signer.key -out signer.crt -subj /CN=Signer "
        "-days 2");
  }

 private:
  static inline std::unique_ptr<ScratchDirectory> classes_;
};

TEST_F(BouncyCastle, OpensAndVerifiesOurFileInOnePass) {
  Protect(Sample());
  const CommandResult result = Open("secret");
  ASSERT_EQ(result.code, 0) << result.output;
  EXPECT_TRUE(scratch.Read("content") == Sample());
  EXPECT_THAT(result.output, HasSubstr("recipients 1\n"));
  EXPECT_THAT(result.output, HasSubstr("verified "));
  EXPECT_THAT(result.output, HasSubstr("1.3.6.1.4.1.48215.2.2 demo\n"));
  EXPECT_THAT(result.output, HasSubstr("1.3.6.1.4.1.48215.2.3 " + stand.GetServiceUrl() + "mx/demo\n"));
}

TEST_F(BouncyCastle, OpensOurFileThatIsLongerThanItsMemory) {
  std::string bytes(20 << 20, 'b');
  for (std::size_t i = 0; i < bytes.size(); i += 4093) bytes[i] = static_cast<char>(i / 4093);
  Protect(bytes);
  const CommandResult result = Open("secret");
  ASSERT_EQ(result.code, 0) << result.output;
  EXPECT_TRUE(scratch.Read("content") == bytes);
  EXPECT_THAT(result.output, HasSubstr("verified "));
}

TEST_F(BouncyCastle, OpensOurEmptyFile) {
  Protect("");
  const CommandResult result = Open("secret");
  ASSERT_EQ(result.code, 0) << result.output;
  EXPECT_EQ(scratch.Read("content"), "");
  EXPECT_THAT(result.output, HasSubstr("verified "));
}

TEST_F(BouncyCastle, RefusesOurFileWhenItIsChanged) {
  Protect(Sample());
  std::string changed = scratch.Read("secret");
  changed[changed.size() / 2] = static_cast<char>(changed[changed.size() / 2] ^ 1);
  scratch.Make("changed", changed);
  const CommandResult result = Open("changed");
  EXPECT_NE(result.code, 0);
  EXPECT_THAT(result.output, Not(HasSubstr("verified ")));
}

// Definite lengths throughout, or segments of 1,000 bytes in indefinite ones.
class BouncyCastleWrites : public BouncyCastle, public ::testing::WithParamInterface<const char*> {
 protected:
  void Seal(const std::string& inner) {
    Run(Peer("seal " + std::string(GetParam()) + " room.crt " + inner + " sealed"));
  }
};

TEST_P(BouncyCastleWrites, PlainContentThatWeOpen) {
  scratch.Make("plain", Sample());
  Seal("plain");
  const Opened opened = Decrypt("sealed", "opened");
  EXPECT_TRUE(opened.done) << opened.error;
  EXPECT_FALSE(opened.isSigned);
  EXPECT_TRUE(scratch.Read("opened") == Sample());
}

TEST_P(BouncyCastleWrites, SignedContentThatWeOpenAndVerify) {
  MakeSigner();
  scratch.Make("plain", Sample());
  Run(Peer("sign " + std::string(GetParam()) + " signer.key signer.crt plain signed"));
  Seal("signed");
  const Opened opened = Decrypt("sealed", "opened");
  EXPECT_TRUE(opened.done) << opened.error;
  EXPECT_TRUE(opened.isSigned);
  EXPECT_TRUE(opened.isVerified) << opened.error;
  EXPECT_TRUE(scratch.Read("opened") == Sample());
}

INSTANTIATE_TEST_SUITE_P(Forms, BouncyCastleWrites, ::testing::Values("definite", "stream"),
                         [](const auto& form) { return std::string(form.param); });

}  // namespace
}  // namespace TestSupport
