// Inspects a file that the input chose and changed, decrypts it under a policy, and asks for its room and the
// servers, while the input also chooses the responses of all servers. Every report and error has to be whole;
// content is proven only if the group's key signed it.
#include <cryptcli/cryptcli.h>
#include <cstdint>
#include <string>

#include "fuzz/support/c_client.h"
#include "fuzz/support/hostile_http.h"
#include "fuzz/support/input.h"
#include "fuzz/support/mutation.h"
#include "fuzz/support/require.h"
#include "fuzz/support/samples.h"
#include "fuzz/support/scratch.h"
#include "fuzz/support/text.h"
#include "fuzz/support/world.h"
#include "tests/support/test_peer.h"

namespace {

using Fuzz::CResult;
using Fuzz::Require;
using Fuzz::Scratch;
using Fuzz::World;

constexpr const char* kSource = "source";
constexpr const char* kTarget = "target";

// Signed messages come alone, for inspect, and in envelopes, for decrypt.
std::string MakeSource(Fuzz::Input& input) {
  const World& world = World::Get();
  const std::uint32_t choice = input.Below(7);
  if (choice == 0) return world.Find(world.envelopes, "genuine");
  if (choice == 6) return input.Text();
  std::string bytes = Fuzz::Choose(choice == 1 ? world.envelopes : world.contents, input);
  if (choice == 3 || choice == 5) Fuzz::Mutate(bytes, input);
  return choice >= 4 ? Fuzz::Envelop(bytes) : bytes;
}

void Inspect(const cryptcli_file& source) {
  CResult result;
  const cryptcli_status status = cryptcli_inspect(source, &result.report, &result.error);
  result.Check(status);
  Require((result.report != nullptr) == (status == CRYPTCLI_OK), "a report comes with success alone");
}

void Decrypt(const Fuzz::CClient& client, const cryptcli_file& source, const std::string& target,
             cryptcli_policy policy) {
  CResult result;
  cryptcli_call* const call = cryptcli_call_new();
  Require(cryptcli_call_set_accept(call, policy, nullptr) == CRYPTCLI_OK, "a policy can be set");
  const cryptcli_status status =
      cryptcli_decrypt(client.Get(), std::string(Fuzz::kRoom).c_str(), source, cryptcli_path(target.c_str()),
                       call, &result.report, &result.error);
  cryptcli_call_free(call);
  result.Check(status);
  const Scratch& scratch = Scratch::Get();
  Require(scratch.Exists(kTarget) == (status == CRYPTCLI_OK), "a target comes with success alone");
  if (status != CRYPTCLI_OK) return;
  const cryptcli_origin origin = cryptcli_report_origin(result.report);
  Require(policy == CRYPTCLI_ACCEPT_ANYTHING || origin + policy >= CRYPTCLI_ORIGIN_PROVEN,
          "content is delivered only if the policy accepts its origin");
  if (origin < CRYPTCLI_ORIGIN_OTHER_ROOM) return;
  Require(scratch.Read(kTarget) == Fuzz::kGenuineContent && cryptcli_report_is_plain_key(result.report) == 0,
          "only what the group's key has signed is proven");
}

void Look(const Fuzz::CClient& client) {
  const std::string name(Fuzz::kRoom);
  CResult room;
  room.Check(cryptcli_room(client.Get(), name.c_str(), nullptr, &room.report, &room.error));
  CResult check;
  const cryptcli_status status =
      cryptcli_check(client.Get(), name.c_str(), nullptr, &check.report, &check.error);
  check.Check(status);
  Require(status == CRYPTCLI_OK, "a check reports what is wrong");
  for (const CResult* result : {&room, &check}) {
    const std::string json = cryptcli_report_json(result->report);
    Require(json.find("PRIVATE KEY") == std::string::npos, "no key is shown");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  const Scratch& scratch = Scratch::Get();
  const OruGuiBase::File file = scratch.Make(kSource, MakeSource(input));
  const std::string path = Fuzz::Str(file.GetPath());
  const cryptcli_file source = cryptcli_path(path.c_str());
  const auto policy = static_cast<cryptcli_policy>(input.Below(4));
  const bool isLook = input.Below(8) == 7;
  Inspect(source);
  // The rotation of the process would otherwise depend on the inputs before this one.
  *OruKalvix::CryptClientTestPeer::GetKeyServerBase() = 0;
  {
    Fuzz::HostileHttp http(input);
    const Fuzz::CClient client(http);
    if (isLook) {
      Look(client);
    } else {
      Decrypt(client, source, Fuzz::Str(scratch.File(kTarget).GetPath()), policy);
    }
  }
  scratch.Remove(kTarget);
  Require(scratch.IsTemporaryEmpty(), "no temporary file is left");
  return 0;
}
