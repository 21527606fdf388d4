// The library is used until the end of threads and processes, even after the destructors of all thread-local
// objects.
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

#include "tests/support/files.h"
#include "tests/tools/process.h"

namespace TestSupport {
namespace {

// The order of the library's static objects and the application's: those of a shared library are constructed
// before the application's and destroyed after them; linked statically, it is the other way round.
struct Linking {
  const char* name;
  const char* program;
};

class EndingTest : public ::testing::TestWithParam<std::tuple<Linking, const char*>> {};

// Freed memory is overwritten, each time with another byte, so that its use is noticed.
TEST_P(EndingTest, TheLibraryWorksUntilTheEndOfTheProcess) {
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
