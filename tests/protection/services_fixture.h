#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "client/cryptcli.h"
#include "tests/support/files.h"
#include "tests/support/messages.h"
#include "tests/support/pki.h"
#include "tests/support/scripted_services.h"
#include "tests/support/test_peer.h"
#include "tests/support/text.h"
#include "tests/support/wire.h"

namespace TestSupport {

/// One client on a road that works, and a directory for its files.
class ServicesTest : public ::testing::Test {
 protected:
  ServicesTest() { *OruKalvix::CryptClientTestPeer::GetKeyServerBase() = 0; }

  std::string Error() const { return Str(client.GetErrorMessage()); }
  /// The message is the text and behind it a reason that says something.
  void ExpectReason(const std::string& text) const {
    EXPECT_THAT(Error(), ::testing::StartsWith(text));
    EXPECT_GT(Error().size(), text.size());
    EXPECT_EQ(Error().find("Success"), std::string::npos) << Error();
  }
  /// A response that also records the temporary files of that moment.
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
  OruKalvix::CryptClientTestPeer peer{client};
};

}  // namespace TestSupport
