#include <csignal>
#include <cstdlib>
#include <openssl/crypto.h>

#include "foundation/errorstate.h"
#include "tests/faults/allocations.h"
#include "tests/faults/child.h"
#include "tests/faults/fault_scenario.h"

namespace FaultTest {
namespace {

/// The possible results of a run with one failed allocation, as exit codes of a process.
enum Verdict : int { kFine, kNoReason, kWrongResult, kTemporaryFileLeft, kMemoryLeft, kSourceHarmed };

/// How many failures of one asker a test run tries for an operation, evenly spread, and as many again at its
/// end, where the result is completed and an unnoticed failure would be part of it. All of them if
/// CRYPTCLI_ALL_FAULTS is set.
constexpr std::uint64_t kMostTried = 150;

/// OpenSSL 3.0 loses one block itself where it looks for an algorithm and memory fails (EVP_MD_fetch and its
/// kin, below X509_verify). An object of OpenSSL's that we lost would be many.
constexpr std::uint64_t kLostByOpenSSL = 1;

/// The messages with which the foundation aborts where no failure can be returned.
bool IsDocumentedAbort(const ChildEnd& end) {
  return end.signal == SIGABRT && end.err.starts_with("Could not allocate ");
}

class AllocationFaults : public FaultScenario {
 protected:
  AllocationFaults() {
    // OpenSSL makes here what it makes once and keeps.
    Prepare();
    Run(GetParam());
    Prepare();
    WatchAllocations(Asker::Own, 0);
    const Outcome outcome = Run(GetParam());
    EndWatch();
    EXPECT_TRUE(outcome.success && HasResult(GetParam(), outcome)) << outcome.error;
    EXPECT_EQ(GetBlocksLeft(), 0U);
    counts_[0] = GetAllocations(Asker::Own);
    counts_[1] = GetAllocations(Asker::OpenSSL);
  }
  void FailEach(Asker asker) {
    const std::uint64_t count = counts_[static_cast<std::size_t>(asker)];
    ASSERT_GT(count, 20U);
    const bool all = std::getenv("CRYPTCLI_ALL_FAULTS") != nullptr;
    const std::uint64_t step = all ? 1 : count / kMostTried + 1;
    const std::uint64_t end = count > kMostTried ? count - kMostTried : 0;
    for (std::uint64_t number = 1; number <= count; number += number < end ? step : 1) {
      Prepare();
      const ChildEnd child = RunInChild(60, [&] { return RunWithout(asker, number); });
      EXPECT_TRUE(child.code == kFine || IsDocumentedAbort(child))
          << "allocation " << number << " of " << count << ": code " << child.code << " signal "
          << child.signal << " " << child.err;
    }
    Prepare();
  }

 private:
  Outcome FailOne(Asker asker, std::uint64_t number) {
    WatchAllocations(asker, number);
    Outcome outcome = Run(GetParam());
    EndWatch();
    // Frees the message of the thread's last error.
    OruGuiBase::ClearLastError();
    OPENSSL_thread_stop();
    return outcome;
  }
  Verdict RunWithout(Asker asker, std::uint64_t number) {
    // After a failure OpenSSL may keep something again, but only once; a leak appears each time.
    if (asker == Asker::OpenSSL) FailOne(asker, number);
    Prepare();
    const Outcome outcome = FailOne(asker, number);
    if (GetBlocksLeft() > (asker == Asker::OpenSSL ? kLostByOpenSSL : 0)) return kMemoryLeft;
    if (!outcome.success && outcome.error.empty()) return kNoReason;
    if (outcome.success && !HasResult(GetParam(), outcome)) return kWrongResult;
    if (!HasNoTemporaryFile()) return kTemporaryFileLeft;
    return HasSources() ? kFine : kSourceHarmed;
  }

  std::uint64_t counts_[2] = {};
};

TEST_P(AllocationFaults, OneOfOursFailsCleanlyOrAbortsWithAReason) {
  FailEach(Asker::Own);
}

// The operations on audit logs use no cryptography.
class OpenSSLAllocationFaults : public AllocationFaults {};

TEST_P(OpenSSLAllocationFaults, OneFailsCleanlyOrAbortsWithAReason) {
  FailEach(Asker::OpenSSL);
}

INSTANTIATE_TEST_SUITE_P(Operations, OpenSSLAllocationFaults,
                         ::testing::Values(Operation::Encrypt, Operation::Decrypt),
                         [](const auto& instance) { return NameOf(instance.param); });
INSTANTIATE_TEST_SUITE_P(Operations, AllocationFaults,
                         ::testing::Values(Operation::Encrypt, Operation::Decrypt, Operation::AuditLog),
                         [](const auto& instance) { return NameOf(instance.param); });

}  // namespace
}  // namespace FaultTest
