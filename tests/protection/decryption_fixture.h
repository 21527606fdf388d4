#pragma once

#include <string>
#include <vector>

#include "tests/protection/services_fixture.h"

namespace OruKalvix {

/// Decrypt by a client whose servers work. The source is a protected file around kPlain, without a signature.
class Decryption : public TestSupport::ServicesTest {
 protected:
  Decryption() : target(scratch.File("opened")) { Protect(kPlain); }

  /// Puts an envelope around the content into the source.
  void Protect(const std::string& content) {
    source = scratch.Make("protected.bin", TestSupport::MakeEnveloped(content, {pki.room.certificate}));
  }
  bool Decrypt() { return client.Decrypt(source, target, isSigned, isVerified); }
  /// The operation fails and delivers nothing.
  void ExpectNothingDelivered() {
    scratch.Make("opened", "as before");
    const std::string before = scratch.Read("protected.bin");
    EXPECT_FALSE(Decrypt());
    EXPECT_FALSE(isSigned);
    EXPECT_FALSE(isVerified);
    EXPECT_EQ(scratch.Read("opened"), "as before");
    EXPECT_EQ(scratch.Read("protected.bin"), before);
    EXPECT_THAT(scratch.GetTemporaryNames(), ::testing::IsEmpty());
  }
  /// The operation delivers content that carried no signature.
  void ExpectDelivered(const std::string& content) {
    ASSERT_TRUE(Decrypt()) << Error();
    EXPECT_FALSE(isSigned);
    EXPECT_FALSE(isVerified);
    EXPECT_EQ(scratch.Read("opened"), content);
  }
  void SetRoomKey(const char* member, const std::string& json) {
    services.Set("key", TestSupport::Json(TestSupport::With(TestSupport::ScriptedServices::RoomKeyResponse(),
                                                            member, json)));
  }
  void HandOutPlainKey() { SetRoomKey("plain", TestSupport::Quoted(pki.room.key.ToPEM())); }

  OruGuiBase::File source;
  OruGuiBase::File target;
  bool isSigned = true;
  bool isVerified = true;
};

}  // namespace OruKalvix
