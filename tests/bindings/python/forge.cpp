// Makes the messages of somebody who attacks a room, for the Python tests:
//
//   forge sign GROUP ROOM SOURCE TARGET
//     signs with a self-signed certificate, in the name of the group and the room
//   forge envelope CERTIFICATE SOURCE TARGET
//     encrypts for the certificate of a room; nobody needs a secret for that
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/messages.h"
#include "tests/support/pki.h"

namespace {

std::string SignAs(const std::string& group, const std::string& room, const std::string& content) {
  TestSupport::SignerSpec forger;
  forger.identity = TestSupport::Identity::MakeRoot(TestSupport::EndEntity("Forger"));
  forger.attributes = {{TestSupport::kGroupOid, group},
                       {TestSupport::kRoomOid, room},
                       {TestSupport::kRoomUrlOid, "http://127.0.0.1/mx/" + room}};
  return TestSupport::MakeSigned(content, {forger});
}

int Forge(const std::vector<std::string>& words) {
  std::string message;
  if (words.size() == 5 && words[0] == "sign") {
    message = SignAs(words[1], words[2], TestSupport::ReadFile(words[3]));
  } else if (words.size() == 4 && words[0] == "envelope") {
    message = TestSupport::MakeEnveloped(TestSupport::ReadFile(words[2]),
                                         {TestSupport::Cert::FromPEM(TestSupport::ReadFile(words[1]))});
  }
  if (message.empty()) return 1;
  TestSupport::WriteFile(words.back(), message);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Forge(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "forge: %s\n", error.what());
    return 1;
  }
}
