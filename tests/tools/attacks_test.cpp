// What an attacker can do to a protected file, or make without any key of the room: over the command, with
// servers and keys as they are in use.
#include <algorithm>
#include <memory>

#include "tests/support/messages.h"
#include "tests/tools/command_fixture.h"
#include "transport/curlhttp.h"

namespace TestSupport {
namespace {

using CryptStand::Cert;
using CryptStand::CertSpec;
using CryptStand::Identity;
using CryptStand::KeyPair;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kForged = "Pay 1000 to the attacker.\n";

class CommandAttacks : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    Protect();
  }
  void TearDown() override {
    stand_.SetRoomOptions("demo", {});
    CommandTest::TearDown();
  }

  // What the crypt service says about a room's key to anybody who may use the room.
  OruGuiBase::KVMap GetKey(const std::string& room) const {
    OruKalvix::CryptClientCurlOptions options;
    options.serviceUrl = Ansi(stand_.GetServiceUrl());
    OruGuiBase::AnsiStr reason;
    const OruKalvix::CryptClientCurl::Ptr http = OruKalvix::CryptClientCurl::Create(options, reason);
    OruKalvix::HttpResponse response;
    EXPECT_GE(
        http->SendRequest("GET", Ansi(stand_.GetServiceUrl() + "crypt/key/" + room), {}, {}, {}, response), 0)
        << Str(response.errorText);
    return Map(response.body.View());
  }
  Cert RoomCertificate() const { return Cert::FromPEM(Str(GetKey("demo").Get("certificate").AsString())); }
  void HandOutPlainKey(const std::string& room) const {
    CryptStand::RoomOptions options;
    options.plainKey = true;
    ASSERT_TRUE(stand_.SetRoomOptions(room, options));
  }

  void MakeForged(const std::string& inner) const {
    scratch_.Make("forged.p7m", MakeEnveloped(inner, {RoomCertificate()}));
  }
  static std::string SignByForger() {
    static const Identity forger = Identity::MakeRoot(CertSpec::EndEntity("Forger"));
    SignerSpec signer;
    signer.identity = forger;
    signer.attributes = {{kGroupOid, "QOB.1.100.1"}, {kRoomOid, "demo"}};
    return MakeSigned(kForged, {signer});
  }

  // Nothing may be delivered by decrypt, and verify says the same.
  void ExpectRefused(const char* origin) const {
    const Finished opened = Run("decrypt", {"--json", Path("forged.p7m"), Path("opened")});
    EXPECT_EQ(opened.code, 3) << opened.output;
    EXPECT_EQ(Str(Map(opened.output).Get("origin").AsString()), origin);
    EXPECT_FALSE(scratch_.Exists("opened"));
    EXPECT_THAT(Run("decrypt", {Path("forged.p7m"), "-"}).output, IsEmpty());
  }
  void ExpectDeliveredWith(const char* accept) const {
    EXPECT_EQ(Run("decrypt", {"--accept", accept, "--force", Path("forged.p7m"), Path("opened")}).code, 0);
    EXPECT_EQ(scratch_.Read("opened"), kForged);
  }
};

// Nothing authenticates the envelope's own header, so a few flips leave content and proof as they were.
TEST_F(CommandAttacks, AFlippedBitDeliversTheSameContentOrNothing) {
  const std::string good = scratch_.Read("file.p7m");
  const std::size_t step = good.size() / 60;
  std::size_t refused = 0;
  for (std::size_t at = 0; at < good.size(); at += step) {
    // Both ends are among the places.
    const std::size_t byte = good.size() - at <= step ? good.size() - 1 : at;
    std::string bytes = good;
    bytes[byte] = static_cast<char>(bytes[byte] ^ (1 << (byte % 8)));
    scratch_.Make("flipped.p7m", bytes);
    const int code = Run("decrypt", {Path("flipped.p7m"), Path("opened")}).code;
    if (code != 0) {
      ++refused;
      EXPECT_FALSE(scratch_.Exists("opened")) << byte;
      continue;
    }
    EXPECT_EQ(scratch_.Read("opened"), "The plain content.\n") << byte;
    std::filesystem::remove(scratch_.Path("opened"));
  }
  EXPECT_GT(refused, 50U);
}

TEST_F(CommandAttacks, UnsignedContentForTheRoomIsRefused) {
  MakeForged(kForged);
  ExpectRefused("unsigned");
  ExpectDeliveredWith("anything");
}

// The chain of this signer does not hold at all, and then nothing is delivered whatever is accepted.
TEST_F(CommandAttacks, ContentThatAnybodySignedForTheRoomIsRefused) {
  MakeForged(SignByForger());
  ExpectRefused("unproven");
  EXPECT_EQ(Run("decrypt", {"--accept", "anything", Path("forged.p7m"), Path("opened")}).code, 3);
  EXPECT_FALSE(scratch_.Exists("opened"));
}

TEST_F(CommandAttacks, ContentThatAnybodySignedIsRefusedWhereTheKeyIsPlain) {
  MakeForged(SignByForger());
  HandOutPlainKey("demo");
  ExpectRefused("signature_only");
  ExpectDeliveredWith("signature-only");
}

// Whoever may read one room puts what was signed there into an envelope for another room.
TEST_F(CommandAttacks, ContentSignedForAnotherRoomIsRefused) {
  ASSERT_TRUE(stand_.AddRoom("second"));
  scratch_.Make("second.txt", kForged);
  ASSERT_EQ(RunCommand({"encrypt", "--service", stand_.GetServiceUrl(), "--room", "second",
                        Path("second.txt"), Path("second.p7m")})
                .code,
            0);
  HandOutPlainKey("second");
  const OruGuiBase::KVMap key = GetKey("second");
  Identity second;
  second.certificate = Cert::FromPEM(Str(key.Get("certificate").AsString()));
  second.key = KeyPair::FromPEM(Str(key.Get("plain").AsString()));
  MakeForged(OpenEnvelope(scratch_.Read("second.p7m"), second));
  const Finished finished = Run("decrypt", {Path("forged.p7m"), Path("opened")});
  EXPECT_THAT(finished.errors, HasSubstr("Signed for room \"second\""));
  ExpectRefused("other_room");
  ExpectDeliveredWith("any-signer");
}

TEST_F(CommandAttacks, FourThatProtectTheFirstFileOfARoomAtOnceAllSucceed) {
  ASSERT_TRUE(stand_.AddRoom("fresh"));
  std::vector<std::unique_ptr<Process>> processes;
  for (int i = 0; i < 4; ++i) {
    processes.push_back(
        std::make_unique<Process>(Start{CRYPTCLI_COMMAND,
                                        {"encrypt", "--service", stand_.GetServiceUrl(), "--room", "fresh",
                                         Path("plain.txt"), Path("fresh" + std::to_string(i))}}));
  }
  for (const auto& process : processes) EXPECT_EQ(process->Wait(), 0) << process->GetErrors();
  for (int i = 0; i < 4; ++i) {
    const Finished opened = RunCommand({"decrypt", "--service", stand_.GetServiceUrl(), "--room", "fresh",
                                        "--force", Path("fresh" + std::to_string(i)), Path("opened")});
    EXPECT_EQ(opened.code, 0) << opened.errors;
  }
}

}  // namespace
}  // namespace TestSupport
