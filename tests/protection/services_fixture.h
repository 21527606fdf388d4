#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "client/cryptcli.h"
#include "tests/support/files.h"
#include "tests/support/messages.h"
#include "tests/support/pki.h"
#include "tests/support/rotation.h"
#include "tests/support/scripted_services.h"
#include "tests/support/text.h"
#include "tests/support/wire.h"

namespace OruKalvix {

/// What the files of these tests hold before they are protected.
inline constexpr const char* kPlain = "the plain bytes of a file";

}  // namespace OruKalvix

namespace TestSupport {

/// One client whose crypt service and key server work, with the responses of ScriptedServices, and a
/// directory for its files.
class ServicesTest : public ::testing::Test {
 protected:
  ServicesTest() { BeginRotationAt(0); }

  std::string Error() const { return Str(client.GetErrorMessage()); }
  /// The message begins like this and ends in a reason that says something.
  void ExpectReason(const std::string& beginning) const {
    EXPECT_THAT(Error(), ::testing::StartsWith(beginning));
    EXPECT_GT(Error().size(), beginning.size());
    EXPECT_EQ(Error().find("Success"), std::string::npos) << Error();
  }
  /// The same responder; it also records which temporary files exist when it is called.
  Responder WatchingTemporary(Responder responder) {
    return [this, responder](const RecordedRequest& request) {
      temporaryNames = scratch.GetTemporaryNames();
      return responder(request);
    };
  }

  const Pki& pki = Pki::Get();
  ScratchDirectory scratch;
  ScriptedServices services;
  std::vector<std::string> temporaryNames;
  OruKalvix::CryptClient client{&services.http, kServiceUrl, "", "room 1"};
};

}  // namespace TestSupport
