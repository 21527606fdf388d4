#include <csignal>
#include <numeric>
#include <sys/stat.h>

#include "tests/faults/child.h"
#include "tests/faults/fault_scenario.h"
#include "tests/faults/system_calls.h"

namespace FaultTest {
namespace {

namespace fs = std::filesystem;

constexpr const char* kOld = "what was there before";

/// Whether only its owner can read a file, because of its own mode or that of its directory.
bool IsPrivate(const fs::path& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) == 0 && (info.st_mode & 0077) == 0) return true;
  return ::stat(path.parent_path().c_str(), &info) == 0 && (info.st_mode & 0077) == 0;
}

std::string AsText(const std::string& bytes) {
  return std::to_string(bytes.size()) + " bytes";
}

/// Kills the operation before each of its system calls, one run for each.
class Kills : public FaultScenario {
 protected:
  template <class Check>
  void BeforeEachCall(Operation operation, Check check) {
    Start();
    WatchSystemCalls({});
    EXPECT_TRUE(Run(operation).success);
    const std::vector<std::uint64_t> counts = EndSystemWatch();
    const std::uint64_t count = std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
    ASSERT_GT(count, 10U);
    for (std::uint64_t number = 1; number <= count; ++number) {
      SCOPED_TRACE("killed before call " + std::to_string(number) + " of " + std::to_string(count));
      Start();
      KillBefore(operation, number);
      EXPECT_TRUE(HasSources());
      check();
      ExpectLeftoversPrivate();
    }
  }
  void Start() {
    Prepare();
    if (hasOldTarget) scratch.Make("target", kOld);
  }
  bool IsUntouched() const {
    return hasOldTarget ? scratch.Read("target") == kOld : !scratch.Exists("target");
  }

  bool hasOldTarget = false;

 private:
  void KillBefore(Operation operation, std::uint64_t number) {
    const ChildEnd end = RunInChild(60, [&] {
      Fault fault;
      fault.type = Fault::Type::Killed;
      fault.number = number;
      WatchSystemCalls(fault);
      Run(operation);
      return 0;
    });
    EXPECT_EQ(end.signal, SIGKILL) << end.err;
  }
  // Files that a killed process left have plain or signed content.
  void ExpectLeftoversPrivate() {
    for (const auto& entry : fs::recursive_directory_iterator(scratch.Path("."))) {
      const std::string name = entry.path().filename();
      const bool isLeftover = name.find(".tmp") != std::string::npos || name.starts_with(".orugui-");
      if (!entry.is_regular_file() || !isLeftover) continue;
      EXPECT_TRUE(IsPrivate(entry.path()) || entry.file_size() == 0) << entry.path();
      fs::remove(entry.path());
    }
    RemoveTemporaryFiles();
  }
};

TEST_F(Kills, LeaveNoTargetOfEncryptOrAWholeOneOrOneThatDoesNotOpen) {
  BeforeEachCall(Operation::Encrypt, [&] {
    EXPECT_TRUE(IsUntouched() || IsProtectedFile(scratch.Read("target")) || !Opens(scratch.Read("target")));
  });
}

TEST_F(Kills, LeaveTheOldTargetOfEncryptOrAWholeNewOneOrOneThatDoesNotOpen) {
  hasOldTarget = true;
  BeforeEachCall(Operation::Encrypt, [&] {
    EXPECT_TRUE(IsUntouched() || IsProtectedFile(scratch.Read("target")) || !Opens(scratch.Read("target")));
  });
}

TEST_F(Kills, LeaveNoTargetOrAWholeOneOfDecrypt) {
  BeforeEachCall(Operation::Decrypt,
                 [&] { EXPECT_TRUE(IsUntouched() || scratch.Read("target") == content); });
}

TEST_F(Kills, LeaveTheOldTargetOfDecryptOrAWholeNewOne) {
  hasOldTarget = true;
  BeforeEachCall(Operation::Decrypt, [&] {
    EXPECT_TRUE(IsUntouched() || scratch.Read("target") == content) << AsText(scratch.Read("target"));
  });
}

TEST_F(Kills, LeaveTheOldTargetOfPlainContentOrAWholeNewOne) {
  hasOldTarget = true;
  BeforeEachCall(Operation::DecryptPlain, [&] {
    EXPECT_TRUE(IsUntouched() || scratch.Read("target") == content) << AsText(scratch.Read("target"));
  });
}

}  // namespace
}  // namespace FaultTest
