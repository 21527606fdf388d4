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

// Segments are 128 KiB: a whole one and a rest.
std::string MakeContent() {
  std::string bytes(140 * 1000, '\0');
  std::uint32_t state = 7;
  for (char& byte : bytes) byte = static_cast<char>((state = state * 1664525U + 1013904223U) >> 24);
  return bytes;
}

TestSupport::HttpAnswer LogAnswer() {
  TestSupport::HttpAnswer answer;
  answer.headers = {{"Content-Type", "text/csv"}};
  answer.body = kLog;
  return answer;
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

std::string NameOf(Road road) {
  constexpr const char* kNames[] = {"Encrypt", "Decrypt", "DecryptPlain", "AuditLog"};
  return kNames[static_cast<std::size_t>(road)];
}

FaultRoad::FaultRoad() : content(MakeContent()) {
  script.Set("getAuditLogRequest", LogAnswer());
  scratch.Make("plain", content);
  const Outcome made = Run(Road::Encrypt);
  EXPECT_TRUE(made.success) << made.error;
  protectedBytes = scratch.Read("target");
  plainEnvelope = TestSupport::MakeEnveloped(content, {TestSupport::Pki::Get().room.certificate});
}

void FaultRoad::Prepare() {
  std::filesystem::remove(scratch.Path("target"));
  scratch.Make("plain", content);
  scratch.Make("protected", protectedBytes);
  scratch.Make("envelope", plainEnvelope);
  *OruKalvix::CryptClientTestPeer::GetKeyServerBase() = 0;
  RemoveTemporaryFiles();
}

void FaultRoad::RemoveTemporaryFiles() {
  for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::temp_directory_path()))
    std::filesystem::remove_all(entry.path());
}

Outcome FaultRoad::Run(Road road) {
  Outcome outcome;
  CryptClient client(&http, TestSupport::kServiceUrl, "", "room 1");
  bool keyError = false;
  AnsiStr log;
  if (road == Road::Encrypt) {
    outcome.success = client.Encrypt(plain_, target_, keyError);
  } else if (road == Road::AuditLog) {
    client.SetKeyServer(servers_);
    outcome.success = client.GetAuditLog("group 1", "its name", log);
  } else {
    outcome.success = client.Decrypt(road == Road::Decrypt ? protected_ : envelope_, target_,
                                     outcome.isSigned, outcome.isVerified);
  }
  const Unwatched unwatched;
  outcome.error = TestSupport::Str(client.GetErrorMessage());
  outcome.log = TestSupport::Str(log);
  return outcome;
}

std::string FaultRoad::ReadIfThere(const std::string& name) const {
  return scratch.Exists(name) ? scratch.Read(name) : "";
}

bool FaultRoad::IsProtectedFile(const std::string& bytes) {
  scratch.Make("check", bytes);
  bool isSigned = false;
  bool isVerified = false;
  CryptClient client(&http, TestSupport::kServiceUrl, "", "room 1");
  return client.Decrypt(scratch.File("check"), scratch.File("checked"), isSigned, isVerified) && isSigned &&
         isVerified && scratch.Read("checked") == content;
}

bool FaultRoad::Opens(const std::string& bytes) {
  scratch.Make("check", bytes);
  bool isSigned = false;
  bool isVerified = false;
  CryptClient client(&http, TestSupport::kServiceUrl, "", "room 1");
  return client.Decrypt(scratch.File("check"), scratch.File("checked"), isSigned, isVerified);
}

bool FaultRoad::HasResult(Road road, const Outcome& outcome) {
  const Unwatched unwatched;
  switch (road) {
    case Road::Encrypt:
      return IsProtectedFile(ReadIfThere("target"));
    case Road::Decrypt:
      // A check of the signer that could not be made leaves the content unverified, with the reason told.
      return outcome.isSigned && (outcome.isVerified || !outcome.error.empty()) &&
             ReadIfThere("target") == content;
    case Road::DecryptPlain:
      return !outcome.isSigned && !outcome.isVerified && ReadIfThere("target") == content;
    case Road::AuditLog:
      break;
  }
  const std::string rows = std::string(kLog).substr(std::string(kLog).find('\n') + 1);
  const std::string log = TestSupport::ReadFile(outcome.log);
  std::filesystem::remove(outcome.log);
  // A fault at one server's part leaves the other's, with the reason told.
  return log == kLog + rows || (log == kLog && !outcome.error.empty());
}

bool FaultRoad::HasSources() const {
  return scratch.Read("plain") == content && scratch.Read("protected") == protectedBytes &&
         scratch.Read("envelope") == plainEnvelope;
}

}  // namespace FaultTest
