#pragma once

#include <string>
#include <vector>

#include "tests/protection/failing_object.h"
#include "tests/protection/services_fixture.h"

namespace OruKalvix {

/// Encrypt by a client whose servers work, from a plain file to a target that does not exist yet.
class Encryption : public TestSupport::ServicesTest {
 protected:
  Encryption() : source(scratch.Make("plain.txt", kPlain)), target(scratch.File("protected.bin")) {}

  bool Encrypt() { return client.Encrypt(source, target, keyErrorFlag); }
  /// The operation fails without a trace: no target, no temporary file, the source as it was.
  void ExpectNothingWritten() {
    EXPECT_FALSE(Encrypt());
    EXPECT_FALSE(scratch.Exists("protected.bin"));
    EXPECT_THAT(scratch.GetTemporaryNames(), ::testing::IsEmpty());
    EXPECT_EQ(scratch.Read("plain.txt"), kPlain);
    EXPECT_FALSE(keyErrorFlag);
  }
  /// Encrypts repeatedly: in the first run the first allocation of an object fails, in the next run the
  /// second one, and so on until all succeed. No failure may leave a file. Returns the message that begins
  /// with `beginning`.
  std::string ErrorOfFailedObject(const std::string& beginning) {
    std::string found;
    for (int number = 1;; ++number) {
      TestSupport::FailingObject failing(number);
      const bool done = Encrypt();
      const bool struck = failing.End();
      if (!done && Error().starts_with(beginning)) found = Error();
      EXPECT_EQ(scratch.Exists("protected.bin"), done) << number << ": " << Error();
      EXPECT_THAT(scratch.GetTemporaryNames(), ::testing::IsEmpty());
      if (done) {
        EXPECT_EQ(Open().content, kPlain) << number;
      }
      std::filesystem::remove(scratch.Path("protected.bin"));
      if (!struck) return found;
    }
  }
  /// The inner message of the target.
  TestSupport::OpenedMessage Open(const char* name = "protected.bin") {
    return TestSupport::OpenSigned(TestSupport::OpenEnvelope(scratch.Read(name), pki.room));
  }
  void SetRoomKey(const char* member, const std::string& json) {
    services.Set("key", TestSupport::Json(TestSupport::With(TestSupport::ScriptedServices::RoomKeyResponse(),
                                                            member, json)));
  }
  /// The crypt service knows no key for the room.
  void TakeRoomKeyAway() { SetRoomKey("certificate", R"("")"); }

  OruGuiBase::File source;
  OruGuiBase::File target;
  bool keyErrorFlag = true;
};

}  // namespace OruKalvix
