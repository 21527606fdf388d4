// Opens a file that the input chose and changed, while the input also chooses the responses of all servers.
// Only content that the group's key has signed may ever be verified.
#include <cstdint>
#include <string>
#include <utility>

#include "client/cryptcli.h"
#include "fuzz/support/der_mutator.h"
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

using Fuzz::Require;
using Fuzz::Scratch;
using Fuzz::World;
using OruGuiBase::File;

constexpr const char* kSource = "source";
constexpr const char* kTarget = "target";

std::string Changed(std::string bytes, Fuzz::Input& input) {
  Fuzz::Mutate(bytes, input);
  return bytes;
}

std::string ChangedElement(const std::string& bytes, Fuzz::Input& input) {
  return Fuzz::ChangeElement(
      bytes, [&](std::size_t bound) { return input.Below(static_cast<std::uint32_t>(bound)); },
      [&](std::string content) { return Changed(std::move(content), input); });
}

// A changed envelope is mostly refused by its first check. So most choices put a valid envelope around
// changed content, which only then reaches the check of signatures.
std::string MakeSource(Fuzz::Input& input) {
  const World& world = World::Get();
  switch (input.Below(9)) {
    case 1:
      return Fuzz::Choose(world.envelopes, input);
    case 2:
      return Changed(Fuzz::Choose(world.envelopes, input), input);
    case 3:
      return Fuzz::Envelop(Fuzz::Choose(world.contents, input));
    case 4:
      return Fuzz::Envelop(Changed(Fuzz::Choose(world.contents, input), input));
    case 5:
      return Fuzz::Envelop(ChangedElement(Fuzz::Choose(world.contents, input), input));
    case 6:
      return Fuzz::Envelop(input.Text());
    case 7:
      return input.Text();
    case 8:
      return ChangedElement(Fuzz::Choose(world.envelopes, input), input);
    default:
      return world.Find(world.envelopes, "genuine");
  }
}

struct Outcome {
  bool done;
  bool isSigned = false;
  bool isVerified = false;
  bool hasReason;
};

void CheckOutcome(const Outcome& outcome, const Fuzz::HostileHttp& http) {
  const Scratch& scratch = Scratch::Get();
  // A server that gave no error message leaves the client nothing to report.
  Require(outcome.done || http.WasSilent() || outcome.hasReason, "a failure has a reason");
  Require(!outcome.isVerified || (outcome.done && outcome.isSigned), "only delivered content is verified");
  if (!outcome.done) return;
  Require(scratch.Exists(kTarget), "a success delivers a file");
  const std::string content = scratch.Read(kTarget);
  const bool isGenuine = content == Fuzz::kGenuineContent;
  if (outcome.isSigned)
    Require(isGenuine || content == Fuzz::kForeignContent, "delivered signed content is what was signed");
  if (outcome.isVerified && !http.GavePlainKey())
    Require(isGenuine, "only what the group's key has signed is verified");
  if (outcome.isSigned && !outcome.isVerified)
    Require(http.WasSilent() || outcome.hasReason, "a signer that fails a check has a reason");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  const Scratch& scratch = Scratch::Get();
  const std::string bytes = MakeSource(input);
  const File source = scratch.Make(kSource, bytes);
  // The rotation of the process would otherwise depend on the inputs before this one.
  *OruKalvix::CryptClientTestPeer::GetKeyServerBase() = 0;
  {
    Fuzz::HostileHttp http(input);
    OruKalvix::CryptClient client(&http, Fuzz::Ansi(Fuzz::kServiceUrl), "", Fuzz::Ansi(Fuzz::kRoom));
    Outcome outcome{};
    // Set, so that a failure which does not reset them is noticed.
    outcome.isSigned = outcome.isVerified = true;
    outcome.done = client.Decrypt(source, scratch.File(kTarget), outcome.isSigned, outcome.isVerified);
    outcome.hasReason = !client.GetErrorMessage().IsEmpty();
    CheckOutcome(outcome, http);
  }
  Require(scratch.Read(kSource) == bytes, "the source is only read");
  scratch.Remove(kTarget);
  Require(scratch.IsTemporaryEmpty(), "no temporary file is left");
  return 0;
}
