#include <cerrno>
#include <cstring>

#include "tests/faults/fault_scenario.h"
#include "tests/faults/system_calls.h"

namespace FaultTest {
namespace {

std::size_t CountDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

/// Names the fault in the report of a failure.
std::string Describe(const Fault& fault) {
  const std::string call = NameOf(fault.call) + " " + std::to_string(fault.number);
  if (fault.type == Fault::Type::Short) return call + " comes up short";
  if (fault.type == Fault::Type::Ended) return call + " finds the end of the file";
  return call + ": " + std::strerror(fault.error);
}

class SystemCallFaults : public FaultScenario {
 protected:
  /// How often an operation makes each call.
  std::vector<std::uint64_t> CountCalls(Operation operation) {
    Prepare();
    WatchSystemCalls({});
    const Outcome outcome = Run(operation);
    std::vector<std::uint64_t> counts = EndSystemWatch();
    EXPECT_TRUE(outcome.success && HasResult(operation, outcome)) << outcome.error;
    return counts;
  }
  Outcome RunWith(const Fault& fault) {
    Prepare();
    WatchSystemCalls(fault);
    Outcome outcome = Run(GetParam());
    EndSystemWatch();
    return outcome;
  }
  /// Tries the fault at each of the calls of its type, one run for each.
  template <class Check>
  void AtEachCall(SystemCall call, Fault fault, Check check) {
    const std::uint64_t count = CountCalls(GetParam())[static_cast<std::size_t>(call)];
    fault.call = call;
    for (fault.number = 1; fault.number <= count; ++fault.number) {
      SCOPED_TRACE(Describe(fault));
      const std::size_t descriptors = CountDescriptors();
      check(RunWith(fault));
      EXPECT_EQ(CountDescriptors(), descriptors);
      EXPECT_TRUE(HasSources());
      RemoveLeftovers(call);
    }
  }
  /// A call fails in one of the ways. The operation fails with that reason, or does not need the call.
  void FailsCleanly(SystemCall call, std::initializer_list<int> errors) {
    for (const int error : errors) {
      AtEachCall(call, {Fault::Type::Fails, error}, [&](const Outcome& outcome) {
        if (outcome.success) {
          EXPECT_TRUE(HasResult(GetParam(), outcome)) << outcome.error;
        } else {
          ExpectNoResult();
          ExpectReason(outcome, error);
        }
      });
    }
  }

  // A file that Encrypt left does not open, or is complete if the failure came last. Decrypt leaves nothing.
  void ExpectNoResult() {
    if (GetParam() != Operation::Encrypt) {
      EXPECT_FALSE(scratch.Exists("target"));
    } else if (scratch.Exists("target")) {
      const std::string bytes = scratch.Read("target");
      EXPECT_TRUE(!Opens(bytes) || IsProtectedFile(bytes));
    }
  }

 private:
  // Only the message of a failed move has no reason.
  void ExpectReason(const Outcome& outcome, int error) const {
    if (GetParam() == Operation::DecryptPlain && outcome.error == "Could not move temporary file") return;
    EXPECT_THAT(outcome.error, ::testing::HasSubstr(std::strerror(error)));
  }
  // A file may remain only if its removal was the call that failed.
  void RemoveLeftovers(SystemCall call) {
    const bool mayBe = call == SystemCall::Unlink || call == SystemCall::RmDir;
    if (!mayBe) {
      EXPECT_THAT(scratch.GetTemporaryNames(), ::testing::IsEmpty());
    }
    RemoveTemporaryFiles();
  }
};

TEST_P(SystemCallFaults, AFailedOpenIsReported) {
  FailsCleanly(SystemCall::Open, {EACCES, EMFILE, ENOSPC});
}

TEST_P(SystemCallFaults, AFailedReadIsReported) {
  FailsCleanly(SystemCall::Read, {EIO});
  FailsCleanly(SystemCall::PRead, {EIO});
}

TEST_P(SystemCallFaults, AFailedWriteIsReported) {
  FailsCleanly(SystemCall::Write, {ENOSPC, EIO, EDQUOT});
}

TEST_P(SystemCallFaults, AFailedCloseIsReported) {
  FailsCleanly(SystemCall::Close, {EIO, ENOSPC});
}

TEST_P(SystemCallFaults, AFailedReservationIsReported) {
  FailsCleanly(SystemCall::Fallocate, {ENOSPC, EIO});
  FailsCleanly(SystemCall::FTruncate, {EIO});
}

TEST_P(SystemCallFaults, AFailedStatIsReported) {
  FailsCleanly(SystemCall::FStat, {EIO});
  FailsCleanly(SystemCall::Stat, {EIO});
  FailsCleanly(SystemCall::LStat, {EIO});
}

TEST_P(SystemCallFaults, AFailedRenameIsReported) {
  FailsCleanly(SystemCall::Rename, {EACCES, ENOSPC, EIO});
  FailsCleanly(SystemCall::FChMod, {EPERM});
}

TEST_P(SystemCallFaults, AFailedTemporaryDirectoryIsReported) {
  FailsCleanly(SystemCall::MkDTemp, {EACCES, ENOSPC});
}

TEST_P(SystemCallFaults, AFailedStagingFileIsReported) {
  FailsCleanly(SystemCall::MkOSTemp, {EACCES, ENOSPC});
}

TEST_P(SystemCallFaults, AFileThatCannotBeRemovedFailsNoOperation) {
  for (const SystemCall call : {SystemCall::Unlink, SystemCall::RmDir}) {
    AtEachCall(call, {Fault::Type::Fails, EIO}, [&](const Outcome& outcome) {
      EXPECT_TRUE(outcome.success && HasResult(GetParam(), outcome)) << outcome.error;
    });
  }
}

TEST_P(SystemCallFaults, AnInterruptedCallIsRepeated) {
  for (const SystemCall call : {SystemCall::Open, SystemCall::Read, SystemCall::PRead, SystemCall::Write,
                                SystemCall::Close, SystemCall::Fallocate, SystemCall::FTruncate}) {
    AtEachCall(call, {Fault::Type::Fails, EINTR}, [&](const Outcome& outcome) {
      EXPECT_TRUE(outcome.success && HasResult(GetParam(), outcome)) << outcome.error;
    });
  }
}

TEST_P(SystemCallFaults, AReadOrWriteOfOneByteIsContinued) {
  for (const SystemCall call : {SystemCall::Read, SystemCall::PRead, SystemCall::Write}) {
    AtEachCall(call, {Fault::Type::Short}, [&](const Outcome& outcome) {
      EXPECT_TRUE(outcome.success && HasResult(GetParam(), outcome)) << outcome.error;
    });
  }
}

// There is no system error: the reason says that the file could not be read.
TEST_P(SystemCallFaults, AFileThatEndsEarlyIsNotDelivered) {
  AtEachCall(SystemCall::PRead, {Fault::Type::Ended}, [&](const Outcome& outcome) {
    if (outcome.success) {
      EXPECT_TRUE(HasResult(GetParam(), outcome)) << outcome.error;
    } else {
      ExpectNoResult();
      EXPECT_THAT(outcome.error, ::testing::HasSubstr("The file changed while it was read"));
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Operations, SystemCallFaults,
                         ::testing::Values(Operation::Encrypt, Operation::Decrypt, Operation::DecryptPlain,
                                           Operation::AuditLog),
                         [](const auto& instance) { return NameOf(instance.param); });

// Otherwise the tests above would prove nothing.
TEST_F(SystemCallFaults, EveryOperationMakesTheCallsThatAreWatched) {
  for (const Operation operation :
       {Operation::Encrypt, Operation::Decrypt, Operation::DecryptPlain, Operation::AuditLog}) {
    const std::vector<std::uint64_t> counts = CountCalls(operation);
    for (const SystemCall call : {SystemCall::Open, SystemCall::Write, SystemCall::Close, SystemCall::MkDTemp,
                                  SystemCall::Unlink, SystemCall::RmDir}) {
      // DecryptPlain moves its file. It removes only the one that shows the mode of a new file.
      EXPECT_GT(counts[static_cast<std::size_t>(call)], 0U) << NameOf(operation) << NameOf(call);
    }
  }
}

}  // namespace
}  // namespace FaultTest
