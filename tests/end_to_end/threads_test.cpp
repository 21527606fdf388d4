// Many clients on many threads over one transport: they share the transport, the strings, the lists and the
// base of the rotation over key servers, and nothing of it has a lock that a client would take.
#include <atomic>
#include <filesystem>
#include <functional>
#include <mutex>
#include <thread>

#include "tests/end_to_end/operations_fixture.h"

using CryptStand::FaultType;
using CryptStand::Reader;
using OruGuiBase::AnsiStr;
using OruGuiBase::File;
using OruGuiBase::KVMap;
using OruGuiBase::Val;
using OruKalvix::CryptClient;
using ::testing::IsEmpty;

namespace TestSupport {
namespace {

constexpr int kRounds = 4;

/// What came of a named operation on some thread.
struct Outcome {
  std::int32_t status = 0;
  Val result;
  AnsiStr error;

  std::string Text(const char* name) const { return Str(result.AsMap().Get(name).AsString()); }
};

class ThreadsEndToEnd : public AuditLogTest {
 protected:
  void SetUp() override {
    AuditLogTest::SetUp();
    service = Ansi(stand.GetServiceUrl());
    shared = Object({{"keyserver", KeyServerList()},
                     {"statustimeout", Text("5")},
                     {"room", Text(kRoom)},
                     {"object", Text(kRoom)},
                     {"group", Text(kGroup)},
                     {"seqnr", Text("1")},
                     {"algorithm", Text(kAlgorithm)},
                     {"hash", Text(ToBase64(CryptStand::HashOf("what is signed", EVP_sha512())))},
                     {"certificates", Texts({Reader("a reader").certificate.ToPEM()})}});
    Protect("the first makes the room's key");
    ASSERT_TRUE(Import("seal", CryptStand::KeyPair::MakeRSA().ToPEM())) << error;
  }

  Outcome Call(const char* operation, Members more) {
    KVMap arguments(shared);  // Counted, and copied with the first member that is its own.
    for (const auto& [name, value] : more) arguments.Set(name, value);
    Outcome outcome;
    outcome.status = CryptClient::PerformOperation(http.get(), service, "", operation, arguments,
                                                   outcome.result, outcome.error);
    if (outcome.status != 0) Complain(std::string(operation) + ": " + Str(outcome.error));
    return outcome;
  }

  void ProtectAndOpen(int number) {
    const std::string name = std::to_string(number);
    const std::string bytes = "the bytes of " + name;
    const File plain = scratch.Make("plain" + name, bytes);
    const File secret = scratch.File("secret" + name);
    CryptClient client(http.get(), service, "", room);
    bool keyError = false;
    bool isSigned = false;
    bool isVerified = false;
    if (!client.Encrypt(plain, secret, keyError) ||
        !client.Decrypt(secret, scratch.File("opened" + name), isSigned, isVerified) || !isVerified)
      Complain("file: " + Str(client.GetErrorMessage()));
    else if (scratch.Read("opened" + name) != bytes)
      Complain("file: other bytes");
  }
  void MakeRewrapAndExportKey() {
    const std::string wrapped = Call("Encrypt", {}).Text("newkey");
    const Outcome rewrapped = Call("Update", {{"keys", Keys({{"k", wrapped}})}});
    const Outcome plain = Call("Decrypt", {{"keys", Keys({{"k", wrapped}})}});
    if (rewrapped.result.AsMap().Get("keys").AsArray().GetCount() != 1) Complain("Update: no key");
    if (plain.result.AsMap().Get("keys").AsArray().GetCount() != 1) Complain("Decrypt: no key");
  }
  void SignWithSeal() {
    const Outcome outcome = Call("SignByKey", {{"id", Text("seal")}, {"subid", Text("1")}});
    if (outcome.Text("signature").empty()) Complain("SignByKey: no signature");
  }
  void FetchLog(int number) {
    const Outcome outcome = Call("GetAuditLog", {{"groupname", Text("of " + std::to_string(number))}});
    if (outcome.status != 0) return;
    if (outcome.error.GetLength() > 0 && !areServersLost) Complain("GetAuditLog: " + Str(outcome.error));
    const std::string path = outcome.Text("filename");
    if (!ReadFile(path).starts_with(kHeader)) Complain("GetAuditLog: a log without its header");
    std::filesystem::remove(path);
  }
  void ConfigureGroup(int number) {
    Call("ConfigGroup", {{"group", Text("group " + std::to_string(number))}, {"groupname", Text("name")}});
  }

  void Complain(const std::string& what) {
    const std::lock_guard lock(mutex);
    complaints.push_back(what);
  }

  // Two threads for each type of work, which begin together.
  void WorkOnManyThreads() {
    const std::function<void(int)> types[] = {
        [this](int number) { ProtectAndOpen(number); }, [this](int) { MakeRewrapAndExportKey(); },
        [this](int) { SignWithSeal(); }, [this](int number) { FetchLog(number); },
        [this](int number) { ConfigureGroup(number); }};
    std::vector<std::thread> threads;
    std::atomic<int> waiting = 2 * static_cast<int>(std::size(types));
    for (int number = 0; number < 2 * static_cast<int>(std::size(types)); ++number) {
      threads.emplace_back([&types, &waiting, number] {
        const auto& work = types[static_cast<std::size_t>(number) / 2];
        --waiting;
        while (waiting != 0) std::this_thread::yield();
        for (int round = 0; round < kRounds; ++round) work(number);
      });
    }
    for (std::thread& thread : threads) thread.join();
  }

  AnsiStr service;
  AnsiStr room{kRoom};
  KVMap shared;
  bool areServersLost = false;
  std::mutex mutex;
  std::vector<std::string> complaints;
};

TEST_F(ThreadsEndToEnd, FilesAndOperationsOfManyThreadsSucceedOverOneTransport) {
  WorkOnManyThreads();
  EXPECT_THAT(complaints, IsEmpty());
}

TEST_F(ThreadsEndToEnd, ManyThreadsGoOnWithTheOneKeyServerThatIsLeft) {
  areServersLost = true;
  SetFault(0, {.type = FaultType::Down});
  SetFault(2, {.type = FaultType::Status, .number = 500});
  WorkOnManyThreads();
  EXPECT_THAT(complaints, IsEmpty());
}

TEST_F(ThreadsEndToEnd, EachThreadReadsTheReasonOfItsOwnFailure) {
  const std::vector<std::string> files = {"absent 0", "absent 1", "absent 2", "absent 3"};
  std::vector<std::string> reasons(files.size());
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < files.size(); ++i) {
    threads.emplace_back([this, &files, &reasons, i] {
      for (int round = 0; round < kRounds; ++round) {
        CryptClient client(http.get(), service, "", i % 2 == 0 ? room : AnsiStr("no such room"));
        bool keyError = false;
        client.Encrypt(scratch.File(files[i]), scratch.File("none"), keyError);
        reasons[i] = Str(client.GetErrorMessage());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(reasons[0], "Could not sign file: No such file or directory");
  EXPECT_EQ(reasons[2], reasons[0]);
  EXPECT_EQ(reasons[1], "Could not get room key: Unknown room");
  EXPECT_EQ(reasons[3], reasons[1]);
}

}  // namespace
}  // namespace TestSupport
