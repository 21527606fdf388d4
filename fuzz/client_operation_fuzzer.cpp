// Performs a named operation with arguments that the input changed, while the input also chooses the
// responses of all servers.
#include <array>
#include <cstdint>
#include <filesystem>
#include <string>

#include "client/cryptcli.h"
#include "client/result_codes.h"
#include "fuzz/support/hostile_http.h"
#include "fuzz/support/input.h"
#include "fuzz/support/mutation.h"
#include "fuzz/support/require.h"
#include "fuzz/support/scratch.h"
#include "fuzz/support/text.h"
#include "fuzz/support/world.h"
#include "tests/support/test_peer.h"

namespace {

using Fuzz::Require;
using Fuzz::Scratch;
using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;
using OruGuiBase::ValType;

constexpr std::array<const char*, 9> kOperations = {"ConfigGroup", "Reencrypt", "GetAuditLog",
                                                    "Update",      "ImportKey", "DeleteKey",
                                                    "SignByKey",   "Encrypt",   "Decrypt"};

// Names may have the prefix "Crypt"; with anything else after it they are mostly unknown.
std::string ChooseOperation(Fuzz::Input& input) {
  constexpr auto kCount = static_cast<std::uint32_t>(kOperations.size());
  const std::uint32_t choice = input.Below(kCount + 2);
  if (choice < kCount) return kOperations[choice];
  return "Crypt" + (choice == kCount ? kOperations[input.Below(kCount)] : input.Text());
}

// Complete for every operation: each reads the members that it knows, so one object serves all of them.
const KVMap& GetUsualArguments() {
  static const KVMap arguments = Fuzz::ParseJson(R"({
    "keyserver": ["https://one.example", "https://two.example/"], "statustimeout": "5", "transaction": "t",
    "group": "QOB.group-1", "groupname": "The group", "ownergroup": "QOB.owner", "authnrootcerts": ["root"],
    "authnissuingcerts": ["issuing"], "authncrlurls": ["https://crl.example"], "enccert": "certificate",
    "room": "room 1", "seqnr": "42", "certificates": ["member-1", "member-2"], "newkey": true,
    "keys": [{"id": "1", "data": "wrapped-1"}, {"id": "2", "data": "wrapped-2"}], "id": "integrity",
    "key": {"type": "handle", "id": "integrity", "subId": "7"}, "password": "secret", "object": "room 1",
    "subid": "7", "algorithm": "RSASSA-PKCS1-v1_5-SHA-512",
    "hash": "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4OTo7PD0+Pw=="
  })")
                                     .AsMap();
  return arguments;
}

KVMap MakeArguments(const std::string& operation, Fuzz::Input& input) {
  Val arguments(GetUsualArguments());
  // The one operation whose "key" is a string.
  if (operation.ends_with("ImportKey")) {
    KVMap map = GetUsualArguments();
    map.Set("key", "encoded key");
    arguments = Val(map);
  }
  const std::uint32_t changes = input.Below(4);
  if (changes == 3) return Fuzz::ParseJson(input.Text()).AsMap();
  for (std::uint32_t i = 0; i < changes; ++i) arguments = Fuzz::MutateJson(arguments, input);
  return arguments.AsMap();
}

// The client delivers the log to the temporary directory, where the caller has to remove it.
void RemoveAuditLog(const KVMap& result) {
  const std::string name = Fuzz::Str(result.Get("filename").AsString());
  Require(std::filesystem::is_regular_file(name), "a merged audit log is a file");
  std::filesystem::remove(name);
}

void CheckResult(std::int32_t status, const std::string& operation, const Val& result, const AnsiStr& error,
                 bool mayBeSilent) {
  const auto method = OruKalvix::CryptClient::GetMethod(Fuzz::Ansi(operation));
  if (method == OruKalvix::CryptClient::Method::None) {
    Require(status == OruKalvix::kUnknownName && !error.IsEmpty(), "an unknown name is refused");
    return;
  }
  if (status != OruKalvix::kSuccess) {
    Require(status == OruKalvix::kFailed && result.IsNil(), "a failed operation has no result");
    Require(mayBeSilent || !error.IsEmpty(), "a failed operation has a reason");
    return;
  }
  Require(result.GetType() == ValType::Map, "the result of an operation is a map");
  if (method == OruKalvix::CryptClient::Method::GetAuditLog) RemoveAuditLog(result.AsMap());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  const Scratch& scratch = Scratch::Get();
  const std::string operation = ChooseOperation(input);
  const KVMap arguments = MakeArguments(operation, input);
  // The rotation of the process would otherwise depend on the inputs before this one.
  *OruKalvix::CryptClientTestPeer::GetKeyServerBase() = 0;
  {
    Fuzz::HostileHttp http(input);
    Val result("untouched");
    AnsiStr error;
    const std::int32_t status = OruKalvix::CryptClient::PerformOperation(
        &http, Fuzz::Ansi(Fuzz::kServiceUrl), "", Fuzz::Ansi(operation), arguments, result, error);
    CheckResult(status, operation, result, error, http.WasSilent());
  }
  Require(scratch.IsTemporaryEmpty(), "no temporary file is left");
  return 0;
}
