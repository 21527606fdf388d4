// What a new room key holds after a key server made it: the part of CreateKey and Encrypt that no public
// member shows when it fails.
#include "tests/support/client_internals_fixture.h"
#include "tests/support/pki.h"

namespace OruKalvix {
namespace {

using OruOssSec::Certificate;
using TestSupport::Alive;
using TestSupport::CannedResponse;
using TestSupport::ErrorCode;
using TestSupport::KeyResponse;
using TestSupport::LoadCert;
using TestSupport::LoadKey;
using TestSupport::Pki;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::Token;

class GeneratedRoomKey : public TestSupport::ClientInternalsTest {
 protected:
  GeneratedRoomKey() { UseServers({"https://one.example", "https://two.example"}); }

  static std::string RoomCert() { return Pki::Get().room.certificate.ToBase64(); }

  bool Generate() { return peer.KeyServerGenerateWrappedKey("the room", {}, roomKey); }
  /// The next server is alive, a token is given for it, and it responds with this.
  void Attempt(const CannedResponse& response) { http.Then(Alive()).Then(Token("t")).Then(response); }

  RoomKey roomKey;
};

// A key from before, which came unwrapped, must not stay beside the new data.
TEST_F(GeneratedRoomKey, HasRoomDataAndCertificate) {
  roomKey.key = LoadKey(Pki::Get().room.key);
  Attempt(KeyResponse(RoomCert(), "wrapped"));
  ASSERT_TRUE(Generate());
  EXPECT_EQ(Str(roomKey.room), "the room");
  EXPECT_EQ(Str(roomKey.data), "wrapped");
  EXPECT_EQ(Certificate::Compare(roomKey.certificate, LoadCert(Pki::Get().room.certificate)), 0);
  EXPECT_TRUE(roomKey.key.IsEmpty());
}

TEST_F(GeneratedRoomKey, HoldsNothingOfServerThatGaveHalf) {
  Attempt(KeyResponse(Pki::Get().integrity.certificate.ToBase64(), ""));
  Attempt(KeyResponse(RoomCert(), "second"));
  ASSERT_TRUE(Generate());
  EXPECT_EQ(Str(roomKey.data), "second");
  EXPECT_EQ(Certificate::Compare(roomKey.certificate, LoadCert(Pki::Get().room.certificate)), 0);
  EXPECT_EQ(Error(), "Could not generate wrapped key: Invalid encodedWrappedKey");
}

TEST_F(GeneratedRoomKey, IsClearedByEachResponseOfItsType) {
  roomKey.data = "old";
  roomKey.certificate = LoadCert(Pki::Get().integrity.certificate);
  Attempt(KeyResponse("garbage", "first"));
  Attempt(ErrorCode(615));
  EXPECT_FALSE(Generate());
  EXPECT_EQ(Str(roomKey.room), "the room");
  EXPECT_EQ(Str(roomKey.data), "");
  EXPECT_TRUE(roomKey.certificate.IsEmpty());
  EXPECT_EQ(Error(), "615 Key Generation Error");
}

TEST_F(GeneratedRoomKey, KeepsItsContentsWhenAllServersRefuse) {
  roomKey.data = "old";
  Attempt(Status(500));
  Attempt(ErrorCode(606));
  EXPECT_FALSE(Generate());
  EXPECT_EQ(Str(roomKey.data), "old");
  EXPECT_EQ(Error(), "606 Keystore Unavailable");
}

}  // namespace
}  // namespace OruKalvix
