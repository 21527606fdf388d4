#include "tools/task_runner.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <latch>
#include <mutex>
#include <new>
#include <set>
#include <sys/resource.h>
#include <thread>

namespace CryptCli {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Codes = std::vector<std::optional<ExitCode>>;

const TaskDone kIgnore = [](std::size_t, ExitCode) {};

ExitCode CodeOf(std::size_t index) {
  return index % 3 == 1 ? ExitCode::Partial : ExitCode::Success;
}

// Restores the soft limit of open files.
class LimitJobs : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before_), 0); }
  void TearDown() override { EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &before_), 0); }

  rlimit before_{};
};

TEST_F(LimitJobs, RaisesTheSoftLimitAsFarAsNeeded) {
  rlimit low = before_;
  low.rlim_cur = 40;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
  EXPECT_EQ(CryptCli::LimitJobs(10), 10U);
  rlimit now{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &now), 0);
  EXPECT_EQ(now.rlim_cur, 32U + 10U * 16U);
}

TEST_F(LimitJobs, LeavesALimitThatIsEnough) {
  EXPECT_EQ(CryptCli::LimitJobs(1), 1U);
  rlimit now{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &now), 0);
  EXPECT_EQ(now.rlim_cur, before_.rlim_cur);
}

TEST(RunTasks, PutsEachCodeInThePlaceOfItsTask) {
  for (const unsigned jobs : {0U, 1U, 3U, 100U}) {
    const Codes codes = RunTasks(
        50, {jobs, false, {}}, [](std::size_t index, const auto&) { return CodeOf(index); }, kIgnore);
    ASSERT_EQ(codes.size(), 50U);
    for (std::size_t i = 0; i < codes.size(); ++i) EXPECT_EQ(codes[i], CodeOf(i)) << jobs << " jobs, " << i;
  }
}

TEST(RunTasks, RunsNothingWhenThereIsNothing) {
  EXPECT_THAT(RunTasks(0, {4, false, {}}, nullptr, kIgnore), IsEmpty());
}

TEST(RunTasks, RunsAsManyAtOnceAsThereAreJobs) {
  // Each task waits until three are there: with fewer threads this would not end.
  std::latch all(3);
  std::set<std::thread::id> threads;
  std::mutex mutex;
  RunTasks(
      3, {3, false, {}},
      [&](std::size_t, const auto&) {
        all.arrive_and_wait();
        const std::lock_guard lock(mutex);
        threads.insert(std::this_thread::get_id());
        return ExitCode::Success;
      },
      kIgnore);
  EXPECT_EQ(threads.size(), 3U);
}

TEST(RunTasks, RunsOneAfterAnotherWithOneJob) {
  std::vector<std::size_t> order;
  RunTasks(
      4, {1, false, {}},
      [&](std::size_t index, const auto&) {
        order.push_back(index);
        return ExitCode::Success;
      },
      kIgnore);
  EXPECT_THAT(order, ElementsAre(0, 1, 2, 3));
}

TEST(RunTasks, ReportsEachTaskOnceAndOneAtATime) {
  std::vector<int> reports(200);
  std::atomic<int> inside{0};
  RunTasks(
      reports.size(), {8, false, {}}, [](std::size_t index, const auto&) { return CodeOf(index); },
      [&](std::size_t index, ExitCode code) {
        EXPECT_EQ(++inside, 1);
        EXPECT_EQ(code, CodeOf(index));
        ++reports[index];
        --inside;
      });
  EXPECT_THAT(reports, Each(1));
}

TEST(RunTasks, GoesOnAfterAFailure) {
  const Codes codes = RunTasks(
      3, {1, false, {}},
      [](std::size_t index, const auto&) { return index == 0 ? ExitCode::Failed : ExitCode::Success; },
      kIgnore);
  EXPECT_THAT(codes, ElementsAre(ExitCode::Failed, ExitCode::Success, ExitCode::Success));
}

TEST(RunTasks, StartsNoFurtherTaskAfterAFailureWhenFailFast) {
  const Codes codes = RunTasks(
      4, {1, true, {}},
      [](std::size_t index, const auto&) { return index == 1 ? ExitCode::Failed : ExitCode::Success; },
      kIgnore);
  EXPECT_THAT(codes, ElementsAre(ExitCode::Success, ExitCode::Failed, std::nullopt, std::nullopt));
}

TEST(RunTasks, LetsRunningTasksEndWhenFailFast) {
  std::latch started(2);
  const Codes codes = RunTasks(
      2, {2, true, {}},
      [&](std::size_t index, const std::stop_token& stop) {
        started.arrive_and_wait();
        EXPECT_FALSE(stop.stop_requested());
        return index == 0 ? ExitCode::Failed : ExitCode::Success;
      },
      kIgnore);
  EXPECT_THAT(codes, ElementsAre(ExitCode::Failed, ExitCode::Success));
}

TEST(RunTasks, StopsRunningTasksAndStartsNoOthersWhenStopped) {
  std::stop_source source;
  const Codes codes = RunTasks(
      10, {2, false, source.get_token()},
      [&](std::size_t index, const std::stop_token& stop) {
        if (index == 1) source.request_stop();
        while (!stop.stop_requested()) std::this_thread::yield();
        return ExitCode::Interrupted;
      },
      kIgnore);
  EXPECT_EQ(codes[0], ExitCode::Interrupted);
  EXPECT_EQ(codes[1], ExitCode::Interrupted);
  for (std::size_t i = 2; i < codes.size(); ++i) EXPECT_EQ(codes[i], std::nullopt);
}

TEST(RunTasks, StartsNothingWhenStoppedBefore) {
  std::stop_source source;
  source.request_stop();
  EXPECT_THAT(RunTasks(
                  2, {2, false, source.get_token()},
                  [](std::size_t, const auto&) { return ExitCode::Success; }, kIgnore),
              ElementsAre(std::nullopt, std::nullopt));
}

TEST(RunTasks, TakesAnExceptionForAFailureOfItsTask) {
  const Codes codes = RunTasks(
      2, {2, false, {}},
      [](std::size_t index, const auto&) -> ExitCode {
        if (index == 0) throw std::bad_alloc();
        return ExitCode::Success;
      },
      kIgnore);
  EXPECT_THAT(codes, ElementsAre(ExitCode::Failed, ExitCode::Success));
}

}  // namespace
}  // namespace CryptCli
