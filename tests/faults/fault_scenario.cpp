#include "tests/faults/fault_scenario.h"

#include <filesystem>

#include "tests/faults/allocations.h"
#include "tests/faults/system_calls.h"

namespace FaultTest {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruKalvix::CryptClient;

namespace {

constexpr const char* kLog = "time,operation\n1,\"signed, twice\"\n2,decrypted\n";

// Segments have 128 KiB: one whole segment and part of another.
std::string MakeContent() {
  std::string bytes(std::size_t{140} * 1000, '\0');
  std::uint32_t state = 7;
  for (char& byte : bytes) byte = static_cast<char>((state = state * 1664525U + 1013904223U) >> 24);
  return bytes;
}

TestSupport::CannedResponse LogResponse() {
  TestSupport::CannedResponse response;
  response.headers = {{"Content-Type", "text/csv"}};
  response.body = kLog;
  return response;
}

}  // namespace

void* ShelteredHttp::QueryInterface(const char* name) {
  return inner_.QueryInterface(name);
}

std::uint32_t ShelteredHttp::AddRef() {
  return inner_.AddRef();
}

std::uint32_t ShelteredHttp::Release() {
  return inner_.Release();
}

std::int32_t ShelteredHttp::SendRequest(const AnsiStr& method, const AnsiStr& url, const KVMap& headers,
                                        const AnsiStr& body, const OruKalvix::HttpOptions& options,
                                        OruKalvix::HttpResponse& response) {
  const Unwatched unwatched;
  const Sheltered sheltered;
  return inner_.SendRequest(method, url, headers, body, options, response);
}

std::string NameOf(Operation operation) {
  constexpr const char* kNames[] = {"Encrypt", "Decrypt", "DecryptPlain", "AuditLog"};
  return kNames[static_cast<std::size_t>(operation)];
}

FaultScenario::FaultScenario() : content(MakeContent()) {
  script.Set("getAuditLogRequest", LogResponse());
  scratch.Make("plain", content);
  const Outcome made = Run(Operation::Encrypt);
  EXPECT_TRUE(made.success) << made.error;
  protectedBytes = scratch.Read("target");
  plainEnvelope = TestSupport::MakeEnveloped(content, {TestSupport::Pki::Get().room.certificate});
}

void FaultScenario::Prepare() {
  std::filesystem::remove(scratch.Path("target"));
  scratch.Make("plain", content);
  scratch.Make("protected", protectedBytes);
  scratch.Make("envelope", plainEnvelope);
  TestSupport::BeginRotationAt(0);
  RemoveTemporaryFiles();
}

void FaultScenario::RemoveTemporaryFiles() {
  for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::temp_directory_path()))
    std::filesystem::remove_all(entry.path());
}

Outcome FaultScenario::Run(Operation operation) {
  Outcome outcome;
  CryptClient client(&http, TestSupport::kServiceUrl, "", "room 1");
  bool keyError = false;
  AnsiStr log;
  if (operation == Operation::Encrypt) {
    outcome.success = client.Encrypt(plain_, target_, keyError);
  } else if (operation == Operation::AuditLog) {
    client.SetKeyServer(servers_);
    outcome.success = client.GetAuditLog("group 1", "its name", log);
  } else {
    outcome.success = client.Decrypt(operation == Operation::Decrypt ? protected_ : envelope_, target_,
                                     outcome.isSigned, outcome.isVerified);
  }
  const Unwatched unwatched;
  outcome.error = TestSupport::Str(client.GetErrorMessage());
  outcome.log = TestSupport::Str(log);
  return outcome;
}

std::string FaultScenario::ReadIfThere(const std::string& name) const {
  return scratch.Exists(name) ? scratch.Read(name) : "";
}

bool FaultScenario::IsProtectedFile(const std::string& bytes) {
  scratch.Make("check", bytes);
  bool isSigned = false;
  bool isVerified = false;
  CryptClient client(&http, TestSupport::kServiceUrl, "", "room 1");
  return client.Decrypt(scratch.File("check"), scratch.File("checked"), isSigned, isVerified) && isSigned &&
         isVerified && scratch.Read("checked") == content;
}

bool FaultScenario::Opens(const std::string& bytes) {
  scratch.Make("check", bytes);
  bool isSigned = false;
  bool isVerified = false;
  CryptClient client(&http, TestSupport::kServiceUrl, "", "room 1");
  return client.Decrypt(scratch.File("check"), scratch.File("checked"), isSigned, isVerified);
}

bool FaultScenario::HasResult(Operation operation, const Outcome& outcome) {
  const Unwatched unwatched;
  switch (operation) {
    case Operation::Encrypt:
      return IsProtectedFile(ReadIfThere("target"));
    case Operation::Decrypt:
      // If the signer cannot be checked, the content is delivered as unverified, with the reason.
      return outcome.isSigned && (outcome.isVerified || !outcome.error.empty()) &&
             ReadIfThere("target") == content;
    case Operation::DecryptPlain:
      return !outcome.isSigned && !outcome.isVerified && ReadIfThere("target") == content;
    case Operation::AuditLog:
      break;
  }
  const std::string rows = std::string(kLog).substr(std::string(kLog).find('\n') + 1);
  const std::string log = TestSupport::ReadFile(outcome.log);
  std::filesystem::remove(outcome.log);
  // A fault with one server's part leaves that of the other, with the reason.
  return log == kLog + rows || (log == kLog && !outcome.error.empty());
}

bool FaultScenario::HasSources() const {
  return scratch.Read("plain") == content && scratch.Read("protected") == protectedBytes &&
         scratch.Read("envelope") == plainEnvelope;
}

}  // namespace FaultTest
