#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <openssl/crypto.h>
#include <string>

#include "foundation/errorstate.h"
#include "tests/bindings/c/scripted_fixture.h"
#include "tests/faults/allocations.h"
#include "tests/faults/child.h"

// Makes each allocation and each exchange of an operation fail, one run for each. Whatever fails, no memory,
// file descriptor or temporary file may remain, and the target must be complete or unchanged.
namespace CInterface {
namespace {

constexpr const char* kBytes = "the plain bytes of a file";
constexpr const char* kArguments =
    R"({"keyserver":["https://one.example"],"group":"QOB.group-1","key":{"type":"handle","id":"i"}})";

enum class Work { Encrypt, Decrypt, Verify, Rekey, Inspect, Perform, Room, Check, MakeClient };
constexpr std::array kWorks = {Work::Encrypt, Work::Decrypt, Work::Verify, Work::Rekey,     Work::Inspect,
                               Work::Perform, Work::Room,    Work::Check,  Work::MakeClient};
constexpr std::array kNames = {"Encrypt", "Decrypt", "Verify", "Rekey",     "Inspect",
                               "Perform", "Room",    "Check",  "MakeClient"};

/// The mistakes of one run, as exit codes of its process.
enum Verdict : int { kFine, kMemoryLeft, kDescriptorLeft, kFileLeft, kTargetHarmed };

class Leaks : public ScriptedTest, public ::testing::WithParamInterface<Work> {
 protected:
  void SetUp() override {
    ScriptedTest::SetUp();
    cryptcli_options_set_transport(options.get(), &Leaks::SendUnwatched, this);
    MakeClient();
    services.Set("deleteKeyRequest", TestSupport::Json(R"({"payload":{"type":"deleteKeyResponse"}})"));
    secret_ = TestSupport::MakeEnveloped(TestSupport::MakeSigned(kBytes, {forged.Signer()}),
                                         {TestSupport::Pki::Get().room.certificate});
    // Lets OpenSSL make what it keeps for the whole process, so that it does not look like a leak.
    Prepare();
    EXPECT_EQ(RunOnce(), CRYPTCLI_OK);
    exchanges_ = 0;
    Prepare();
  }
  void Prepare() {
    const FaultTest::Unwatched own;
    // Files of an aborted child are no leak. Those of any other run were found before this.
    for (const std::string& directory : {scratch.Path("").string(), std::string(std::getenv("TMPDIR"))}) {
      for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        if (IsStaging(entry.path())) std::filesystem::remove_all(entry.path());
      }
    }
    scratch.Make("plain", kBytes);
    scratch.Make("secret", secret_);
    scratch.Make("target", "as before");
    exchanges_ = 0;
  }
  cryptcli_status RunOnce() {
    cryptcli_report* report = nullptr;
    cryptcli_error* error = nullptr;
    const cryptcli_status status = Perform(&report, &error);
    cryptcli_report_free(report);
    cryptcli_error_free(error);
    // The message of the thread's last error.
    OruGuiBase::ClearLastError();
    OPENSSL_thread_stop();
    return status;
  }
  Verdict Judge() {
    const FaultTest::Unwatched own;
    if (FaultTest::GetBlocksLeft() > 0) return kMemoryLeft;
    if (CountDescriptors() != descriptors_) return kDescriptorLeft;
    if (!scratch.GetTemporaryNames().empty() || HasStagingFile()) return kFileLeft;
    const std::string target = scratch.Read("target");
    const bool isOpened = GetParam() == Work::Decrypt && target == kBytes;
    const bool isProtected = GetParam() == Work::Encrypt && target.size() > 1000;
    return target == "as before" || isOpened || isProtected ? kFine : kTargetHarmed;
  }
  // Runs the operation with one failed allocation of ours.
  Verdict RunWithout(std::uint64_t number) {
    descriptors_ = CountDescriptors();
    FaultTest::WatchAllocations(FaultTest::Asker::Own, number);
    RunOnce();
    FaultTest::EndWatch();
    return Judge();
  }

  unsigned failing_ = 0;  ///< the exchange that fails, counted from 1
  unsigned exchanges_ = 0;
  std::ptrdiff_t descriptors_ = CountDescriptors();

  static std::ptrdiff_t CountDescriptors() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return std::distance(begin(open), end(open));
  }

 private:
  static std::int32_t SendUnwatched(void* context, const cryptcli_request* request,
                                    cryptcli_response* response) {
    auto& self = *static_cast<Leaks*>(context);
    if (++self.exchanges_ == self.failing_)
      return cryptcli_response_set_error(response, "cut") == 0 ? -1 : -2;
    ScriptedExchange given;
    {
      const FaultTest::Unwatched own;
      given = self.Ask(request);
    }
    return Fill(given, response);
  }
  static bool IsStaging(const std::filesystem::path& path) {
    const std::string name = path.filename().string();
    return name.starts_with(".orugui-") || name.starts_with("orugui-");
  }
  bool HasStagingFile() const {
    for (const auto& entry : std::filesystem::directory_iterator(scratch.Path(""))) {
      if (IsStaging(entry.path())) return true;
    }
    return false;
  }
  cryptcli_status Perform(cryptcli_report** report, cryptcli_error** error) {
    const cryptcli_file plain = cryptcli_path(plain_.c_str());
    const cryptcli_file secret = cryptcli_path(source_.c_str());
    const cryptcli_file target = cryptcli_path(target_.c_str());
    const cryptcli_client* const ours = client.get();
    switch (GetParam()) {
      case Work::Encrypt:
        return cryptcli_encrypt(ours, kScriptedRoom, plain, target, call.get(), report, error);
      case Work::Decrypt:
        return cryptcli_decrypt(ours, kScriptedRoom, secret, target, call.get(), report, error);
      case Work::Verify:
        return cryptcli_verify(ours, kScriptedRoom, secret, call.get(), report, error);
      case Work::Rekey:
        return cryptcli_rekey(ours, kScriptedRoom, source_.c_str(), call.get(), report, error);
      case Work::Inspect:
        return cryptcli_inspect(secret, report, error);
      case Work::Perform:
        return cryptcli_perform(ours, "DeleteKey", kArguments, call.get(), report, error);
      case Work::Room:
        return cryptcli_room(ours, kScriptedRoom, call.get(), report, error);
      case Work::Check:
        return cryptcli_check(ours, kScriptedRoom, call.get(), report, error);
      default: {
        cryptcli_client* made = nullptr;
        const cryptcli_status status = cryptcli_client_new(options.get(), &made, error);
        cryptcli_client_free(made);
        return status;
      }
    }
  }

  std::string secret_;
  const std::string plain_ = Path("plain");
  const std::string source_ = Path("secret");
  const std::string target_ = Path("target");
};

TEST_P(Leaks, NothingIsLeftWhenAnAllocationFails) {
  constexpr std::uint64_t kMostTried = 120;
  FaultTest::WatchAllocations(FaultTest::Asker::Own, 0);
  EXPECT_EQ(RunOnce(), CRYPTCLI_OK);
  FaultTest::EndWatch();
  EXPECT_EQ(FaultTest::GetBlocksLeft(), 0U);
  const std::uint64_t count = FaultTest::GetAllocations(FaultTest::Asker::Own);
  const std::uint64_t step = count / kMostTried + 1;
  const std::uint64_t end = count > kMostTried ? count - kMostTried : 0;
  // Among the last allocations each one counts: there the report is completed and the target delivered.
  for (std::uint64_t number = 1; number <= count; number += number < end ? step : 1) {
    Prepare();
    const FaultTest::ChildEnd child = FaultTest::RunInChild(60, [&] { return RunWithout(number); });
    // An abort is allowed: the foundation aborts where no failure can be returned.
    const bool isAbort = child.signal == SIGABRT && child.err.starts_with("Could not allocate ");
    EXPECT_TRUE(child.code == kFine || isAbort) << "allocation " << number << " of " << count << ": code "
                                                << child.code << " signal " << child.signal << child.err;
  }
  Prepare();
}

TEST_P(Leaks, NothingIsLeftWhenAnExchangeFails) {
  EXPECT_EQ(RunOnce(), CRYPTCLI_OK);
  const unsigned count = exchanges_;
  for (failing_ = 1; failing_ <= count; ++failing_) {
    Prepare();
    descriptors_ = CountDescriptors();
    FaultTest::WatchAllocations(FaultTest::Asker::Own, 0);
    RunOnce();
    FaultTest::EndWatch();
    EXPECT_EQ(Judge(), kFine) << "exchange " << failing_ << " of " << count;
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, Leaks, ::testing::ValuesIn(kWorks), [](const auto& instance) {
  return kNames[static_cast<std::size_t>(instance.param)];
});

}  // namespace
}  // namespace CInterface
