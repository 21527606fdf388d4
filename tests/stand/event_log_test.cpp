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

TEST(EventLogTest, CountsTheStringsOfEventsAsMemory) {
  EventLog log;
  const std::string text(2000, 'x');
  for (std::size_t i = 0; i < EventLog::kCapacity; ++i) {
    log.Add({.target = text, .operation = text, .outcome = text, .room = text, .peer = text});
  }
  EXPECT_LE(log.Get().size() * 5 * text.size(), EventLog::kMaxWeight);
  EXPECT_GT(log.Get(EventFilter()).dropped, 0U);
}

TEST(EventLogTest, CutsLongStringsAndMarksThem) {
  EventLog log;
  const std::string text(EventLog::kMaxText + 1, 'x');
  log.Add({.target = text, .operation = text});
  const std::string cut = text.substr(1) + " (cut)";
  EXPECT_EQ(log.Find(1)->target, cut);
  EXPECT_EQ(log.Find(1)->operation, cut);
  log.Add({.target = text.substr(1)});
  EXPECT_EQ(log.Find(2)->target, text.substr(1));
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

class RecordingTest : public StandTest {
 protected:
  Event Last() { return stand_.GetEvents().back(); }
};

TEST_F(RecordingTest, KeepsTimeDurationAndRoom) {
  const auto before = std::chrono::system_clock::now();
  Get(Service("crypt/key/demo"));
  EXPECT_GE(Last().time, before);
  EXPECT_LE(Last().time, std::chrono::system_clock::now());
  EXPECT_GT(Last().durationMs, 0.0);
  EXPECT_EQ(Last().room, "demo");
  RunCommand(GetKeyPayload());
  EXPECT_EQ(Last().room, "demo");
  Get(Service("crypt/key/other"));
  EXPECT_EQ(Last().room, "");
}

TEST_F(RecordingTest, NamesTheFaultsThatWereApplied) {
  ASSERT_TRUE(stand_.SetFault(0, {.type = FaultType::MissingDate}));
  ASSERT_TRUE(stand_.SetFault(0, {.type = FaultType::WrongContentType, .uses = 1}));
  Get(Server("status?1"));
  EXPECT_THAT(Last().faults, ElementsAre("missing-date", "wrong-content-type"));
  Get(Server("status?1"));
  EXPECT_THAT(Last().faults, ElementsAre("missing-date"));
}

TEST_F(RecordingTest, KeepsRequestAndResponse) {
  const Reply reply = Post(Service("crypt/certlist/demo"), R"({"keyserver":""})", {{"X-Test", "7"}});
  const auto exchange = Last().exchange;
  ASSERT_NE(exchange, nullptr);
  EXPECT_EQ(exchange->request.body, R"({"keyserver":""})");
  EXPECT_EQ(exchange->request.size, 16U);
  EXPECT_THAT(exchange->request.headers, testing::Contains(testing::Pair("X-Test", "7")));
  EXPECT_EQ(exchange->response.body, reply.body);
  EXPECT_FALSE(exchange->response.isTruncated);
  EXPECT_THAT(exchange->response.headers,
              testing::Contains(testing::Pair("Content-Type", "application/json")));
}

TEST_F(RecordingTest, TruncatesLongBodies) {
  ASSERT_TRUE(stand_.SetFault(0, {.type = FaultType::JsonHuge}));
  Get(Server("status?1"));
  const RecordedMessage response = Last().exchange->response;
  EXPECT_EQ(response.body.size(), kMaxRecordedBody);
  EXPECT_GT(response.size, kMaxRecordedBody);
  EXPECT_TRUE(response.isTruncated);
}

TEST(RecordExchangeTest, ReadsStreamsUpToTheLimit) {
  for (const std::size_t count : {1U, 4U, 5U, 1000U}) {
    HttpReply reply;
    reply.openBody = [count] {
      return [left = count]() mutable {
        return left == 0 ? std::string() : (--left, std::string(kMaxRecordedBody / 4, 'x'));
      };
    };
    const RecordedMessage response = RecordExchange(HttpRequest(), reply).response;
    EXPECT_EQ(response.body.size(), std::min<std::size_t>(count, 4) * (kMaxRecordedBody / 4));
    EXPECT_EQ(response.isTruncated, count > 4) << count;
  }
}

}  // namespace
}  // namespace CryptStand
