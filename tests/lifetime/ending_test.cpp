// The library is used to the very end of threads and processes, behind the destructors of all that a thread
// keeps for itself.
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

#include "tests/support/files.h"
#include "tests/tools/process.h"

namespace TestSupport {
namespace {

// Where the library's static objects stand among the application's: a shared library is ready before them and
// goes behind them; what is linked in comes behind them and goes first.
struct Linking {
  const char* name;
  const char* program;
};

class EndingTest : public ::testing::TestWithParam<std::tuple<Linking, const char*>> {};

// Freed memory is overwritten, each time with another byte, so that a use of it shows.
TEST_P(EndingTest, TheLibraryServesToTheEnd) {
  constexpr int kRuns = 20;
  const ScratchDirectory scratch;
  const auto& [linking, way] = GetParam();
  for (int run = 0; run < kRuns; ++run) {
    ::setenv("MALLOC_PERTURB_", std::to_string(run * 12).c_str(), 1);
    const Finished finished = RunProcess({linking.program, {way}});
    ASSERT_EQ(finished.code, 0) << "run " << run << ": " << finished.errors;
    ASSERT_EQ(finished.errors, "");
    ASSERT_TRUE(scratch.GetTemporaryNames().empty()) << "run " << run;
  }
  ::unsetenv("MALLOC_PERTURB_");
}

INSTANTIATE_TEST_SUITE_P(
    Ways, EndingTest,
    ::testing::Combine(
        ::testing::Values(Linking{"Shared", ENDING_PROGRAM}, Linking{"Static", ENDING_PROGRAM_STATIC}),
        ::testing::Values("Return", "Exit", "ExitInAThread", "ExitInTheSink", "Statics", "ThreadLocals",
                          "Threads", "ThreadData", "OpenTraces", "TemporaryFile")),
    [](const auto& way) { return std::string(std::get<1>(way.param)) + "Of" + std::get<0>(way.param).name; });

}  // namespace
}  // namespace TestSupport
