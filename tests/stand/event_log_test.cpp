#include "stand/event_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

#include "tests/stand/stand_peer.h"

namespace CryptStand {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Event Heavy(std::size_t size) {
  Event event;
  RecordedExchange exchange;
  exchange.response.body.assign(size, 'x');
  event.exchange = std::make_shared<const RecordedExchange>(std::move(exchange));
  return event;
}

std::vector<std::uint64_t> NumbersOf(const EventPage& page) {
  std::vector<std::uint64_t> numbers;
  for (const Event& event : page.events) numbers.push_back(event.number);
  return numbers;
}

TEST(EventLogTest, DropsTheOldestAboveItsMemory) {
  EventLog log;
  for (int i = 0; i < 9; ++i) log.Add(Heavy(EventLog::kMaxWeight / 8));
  const EventPage page = log.Get(EventFilter());
  EXPECT_EQ(page.dropped, 2U);
  EXPECT_EQ(page.last, 9U);
  EXPECT_EQ(page.events.front().number, 3U);
  log.Add(Heavy(EventLog::kMaxWeight + 1));
  EXPECT_THAT(NumbersOf(log.Get(EventFilter())), ElementsAre(10U));
}

TEST(EventLogTest, FiltersEvents) {
  EventLog log;
  log.Add({.server = 0, .operation = "status", .outcome = "ok"});
  log.Add({.server = 1, .operation = "status", .outcome = "ok (fault)"});
  log.Add({.server = 1, .operation = "signRequest", .outcome = "609 token expired"});
  EXPECT_THAT(NumbersOf(log.Get({.server = 1})), ElementsAre(2U, 3U));
  EXPECT_THAT(NumbersOf(log.Get({.after = 1, .operation = "status"})), ElementsAre(2U));
  EXPECT_THAT(NumbersOf(log.Get({.isGood = false})), ElementsAre(3U));
  EXPECT_THAT(NumbersOf(log.Get({.limit = 1, .isGood = true})), ElementsAre(2U));
  EXPECT_THAT(NumbersOf(log.Get({.after = 3})), IsEmpty());
}

TEST(EventLogTest, FindsEventsUntilItIsCleared) {
  EventLog log;
  log.Add({.operation = "a"});
  log.Add({.operation = "b"});
  EXPECT_EQ(log.Find(2)->operation, "b");
  EXPECT_FALSE(log.Find(3).has_value());
  log.Clear();
  EXPECT_FALSE(log.Find(2).has_value());
  log.Add({.operation = "c"});
  EXPECT_EQ(log.Find(3)->operation, "c");
}

TEST(EventLogTest, CountsRequestsUntilItIsReset) {
  EventLog log;
  log.Add({.server = 1});
  log.Add({.server = 1});
  log.Clear();
  EXPECT_EQ(log.CountRequests(1), 2U);
  EXPECT_EQ(log.CountRequests(kCryptService), 0U);
  log.Reset();
  EXPECT_EQ(log.CountRequests(1), 0U);
}

TEST(EventLogTest, WakesFollowersForEventsAndChanges) {
  constexpr std::chrono::minutes kLong(10);
  EventLog log;
  std::thread first([&log] { log.Add({}); });
  log.Wait(0, 0, kLong, std::stop_token());
  first.join();
  EXPECT_EQ(log.Get(EventFilter()).last, 1U);
  std::thread second([&log] { log.NoteChange(); });
  log.Wait(1, 0, kLong, std::stop_token());
  second.join();
  EXPECT_EQ(log.GetChanges(), 1U);
  std::stop_source stop;
  std::thread third([&stop] { stop.request_stop(); });
  log.Wait(1, 1, kLong, stop.get_token());
  third.join();
}

}  // namespace
}  // namespace CryptStand
