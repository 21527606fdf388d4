#include <sys/stat.h>
#include <thread>

#include "security/certificate.h"
#include "security/cryptomessagesyntax.h"
#include "stand/cert_maker.h"
#include "tests/tools/command_fixture.h"

namespace TestSupport {
namespace {

using CryptStand::CertSpec;
using CryptStand::Identity;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;

constexpr const char* kNothingVerified =
    "Nothing of this is verified: it is what the file says about itself.\n";

class InspectProtected : public CommandTest {};

TEST_F(InspectProtected, ShowsTypeSizeAndRecipient) {
  Protect();
  stand_.ClearEvents();
  const Finished finished = RunCommand({"inspect", Path("file.p7m")});
  EXPECT_EQ(finished.code, 0);
  EXPECT_THAT(finished.output, HasSubstr("type: envelopedData\n"));
  EXPECT_THAT(finished.output,
              HasSubstr("size: " + std::to_string(scratch_.Read("file.p7m").size()) + " bytes\n"));
  EXPECT_THAT(finished.output, HasSubstr("recipient: serial "));
  EXPECT_TRUE(finished.output.ends_with(kNothingVerified));
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(InspectProtected, ReadsFromAFIFOAndLeavesNothing) {
  Protect();
  const std::string bytes = scratch_.Read("file.p7m");
  ASSERT_EQ(::mkfifo(Path("fifo").c_str(), 0600), 0);
  std::thread writer([&] { WriteFile(Path("fifo"), bytes); });
  const Finished finished = RunCommand({"inspect", Path("fifo")});
  writer.join();
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_THAT(finished.output, HasSubstr("size: " + std::to_string(bytes.size()) + " bytes"));
  EXPECT_THAT(scratch_.GetTemporaryNames(), ::testing::IsEmpty());
}

TEST_F(InspectProtected, ReportsAsJSON) {
  Protect();
  const OruGuiBase::KVMap report = Map(RunCommand({"inspect", "--json", Path("file.p7m")}).output);
  EXPECT_EQ(Str(report.Get("type").AsString()), "envelopedData");
  EXPECT_EQ(report.Get("size").AsInteger(), static_cast<std::int64_t>(scratch_.Read("file.p7m").size()));
  EXPECT_FALSE(report.Get("verified").AsBool());
  const OruGuiBase::Array<OruGuiBase::Val> recipients = report.Get("recipients").AsArray();
  ASSERT_EQ(recipients.GetCount(), 1U);
  EXPECT_THAT(Str(recipients[0].AsMap().Get("serial").AsString()), MatchesRegex("([0-9A-F][0-9A-F])+"));
  EXPECT_THAT(Str(recipients[0].AsMap().Get("issuer").AsString()), HasSubstr("CN="));
}

/// Signs with a key of the test.
class LocalSigner final : public OruOssSec::ISignHash {
 public:
  explicit LocalSigner(const CryptStand::KeyPair& key) : key_(key) {}
  bool SignHash(const OruGuiBase::BlobConst& hash, OruGuiBase::Blob& signature) override {
    const std::string_view bytes(reinterpret_cast<const char*>(hash.data), hash.size);
    signature = Bytes(key_.SignHash(bytes));
    return true;
  }

 private:
  const CryptStand::KeyPair& key_;
};

class InspectSigned : public ::testing::Test {
 protected:
  void SetUp() override {
    const Identity signer = Identity::MakeRoot(CertSpec::EndEntity("Signer"));
    OruOssSec::Certificate certificate;
    ASSERT_TRUE(certificate.Load(Ansi(signer.certificate.ToPEM()), OruOssSec::ASN1::Encoding::Text));
    const OruGuiBase::DateTime time{2024, 5, 6, 7, 8, 9};
    OruGuiBase::KVMap attributes;
    attributes.Set("1.3.6.1.4.1.48215.2.1", "QOB.1.2");
    attributes.Set("1.3.6.1.4.1.48215.2.9", "a\033[2J");
    LocalSigner local(signer.key);
    ASSERT_TRUE(OruOssSec::CryptoMessageSyntax::Sign(scratch_.Make("plain", "content"),
                                                     scratch_.File("signed.p7m"), certificate, &local,
                                                     attributes, &time));
  }

  ScratchDirectory scratch_;
};

TEST_F(InspectSigned, ShowsSignersTimesAndAttributes) {
  const Finished finished = RunCommand({"inspect", scratch_.Path("signed.p7m").string()});
  EXPECT_EQ(finished.code, 0);
  EXPECT_THAT(finished.output, HasSubstr("type: signedData\n"));
  EXPECT_THAT(finished.output, HasSubstr("signer: CN=Signer\n"));
  EXPECT_THAT(finished.output, HasSubstr("  time: 2024-05-06T07:08:09Z\n"));
  EXPECT_THAT(finished.output, HasSubstr("  group: QOB.1.2\n"));
  EXPECT_TRUE(finished.output.ends_with(kNothingVerified));
}

TEST_F(InspectSigned, AFileCannotSteerTheTerminal) {
  const Finished finished = RunCommand({"inspect", scratch_.Path("signed.p7m").string()});
  EXPECT_THAT(finished.output, HasSubstr("a\\x1b[2J"));
  EXPECT_THAT(finished.output, Not(HasSubstr("\033")));
}

TEST_F(InspectSigned, ReportsAsJSON) {
  const OruGuiBase::KVMap report =
      Map(RunCommand({"inspect", "--json", scratch_.Path("signed.p7m").string()}).output);
  const OruGuiBase::Array<OruGuiBase::Val> signers = report.Get("signers").AsArray();
  ASSERT_EQ(signers.GetCount(), 1U);
  const OruGuiBase::KVMap signer = signers[0].AsMap();
  EXPECT_EQ(Str(signer.Get("subject").AsString()), "CN=Signer");
  EXPECT_EQ(Str(signer.Get("signingTime").AsString()), "2024-05-06T07:08:09Z");
  const OruGuiBase::KVMap attributes = signer.Get("signedAttributes").AsMap();
  EXPECT_EQ(Str(attributes.Get("1.3.6.1.4.1.48215.2.9").AsString()), "a\033[2J");
}

TEST(Inspect, AFileThatIsNoMessageIsAFailure) {
  const ScratchDirectory scratch;
  for (const std::string& bytes : {std::string("just text"), std::string(), std::string("\x30\x80", 2)}) {
    scratch.Make("garbage", bytes);
    const Finished finished = RunCommand({"inspect", scratch.Path("garbage").string()});
    EXPECT_EQ(finished.code, 7);
    EXPECT_THAT(finished.errors, HasSubstr("Could not inspect "));
    EXPECT_THAT(finished.output, IsEmpty());
  }
}

TEST(Inspect, AFileThatIsNotThereIsAFailure) {
  const Finished finished = RunCommand({"inspect", "--json", "/no/such/file"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(Str(Map(finished.output).Get("error").AsString()), HasSubstr("No such file or directory"));
}

TEST(Inspect, ADirectoryIsAFailure) {
  const Finished finished = RunCommand({"inspect", "/"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, HasSubstr("Is a directory"));
}

}  // namespace
}  // namespace TestSupport
