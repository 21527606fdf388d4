#include "foundation/trace.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

#include "foundation/ansistr.h"
#include "foundation/array.h"
#include "foundation/errorstate.h"
#include "tests/foundation/printing.h"
#include "tests/foundation/recording_sink.h"

namespace OruGuiBase {
namespace {

using namespace OruGuiTrace;

TEST(TraceTest, NothingIsTracedWithoutASink) {
  EXPECT_FALSE(IsTraced(0));
  EXPECT_FALSE(IsTraced(0xFFFFFFFFU));
  TraceMsg(1, 4, "source", 1, "text");
}

TEST(TraceTest, NothingIsFormattedWithoutASink) {
  EXPECT_STREQ(InitTraceContext("%d", 42), "");
  FreeTraceContext();
}

TEST(TraceTest, EventsReachTheSink) {
  RecordingSink sink(0);
  TraceMsg(4096, 4, "cryptcli", 12, InitTraceContext("%s %d", "error", 5));
  FreeTraceContext();
  TraceStr(4096, 2, "cryptcli", 13, "body");
  ASSERT_EQ(sink.events.size(), 2U);
  EXPECT_EQ(sink.events[0].category, 4096U);
  EXPECT_EQ(sink.events[0].level, 4U);
  EXPECT_EQ(sink.events[0].source, "cryptcli");
  EXPECT_EQ(sink.events[0].line, 12U);
  EXPECT_EQ(sink.events[0].text, "error 5");
  EXPECT_EQ(sink.events[1].text, "body");
}

TEST(TraceTest, EventsBelowTheLevelAreDropped) {
  RecordingSink sink(2);
  EXPECT_FALSE(IsTraced(1));
  EXPECT_TRUE(IsTraced(2));
  EXPECT_TRUE(IsTraced(4));
  TraceStr(1, 1, "source", 1, "low");
  TraceStr(1, 2, "source", 1, "high");
  ASSERT_EQ(sink.events.size(), 1U);
  EXPECT_EQ(sink.events[0].text, "high");
}

TEST(TraceTest, ARemovedSinkGetsNothing) {
  RecordingSink sink(0);
  SetTraceSink(nullptr, 0);
  TraceMsg(1, 4, "source", 1, "text");
  EXPECT_TRUE(sink.events.empty());
}

TEST(TraceTest, ANullMessageIsTracedAsEmpty) {
  RecordingSink sink(0);
  TraceMsg(1, 4, "source", 1, nullptr);
  ASSERT_EQ(sink.events.size(), 1U);
  EXPECT_EQ(sink.events[0].text, "");
}

TEST(TraceTest, ALongMessageIsTracedCompletely) {
  RecordingSink sink(0);
  const std::string body(100000, 'x');
  TraceStr(1, 2, "source", 1, InitTraceContext("<%s>", body.c_str()));
  FreeTraceContext();
  EXPECT_EQ(sink.events[0].text, "<" + body + ">");
}

TEST(TraceTest, ContextsNest) {
  RecordingSink sink(0);
  const char* const outer = InitTraceContext("%s", "outer text that is long enough to be on its own");
  for (int i = 0; i < 20; ++i) InitTraceContext("inner %d", i);
  for (int i = 0; i < 20; ++i) FreeTraceContext();
  EXPECT_STREQ(outer, "outer text that is long enough to be on its own");
  FreeTraceContext();
}

TEST(TraceTest, FreeingWithoutAContextDoesNothing) {
  RecordingSink sink(0);
  FreeTraceContext();
  EXPECT_STREQ(InitTraceContext("%s", "the next text"), "the next text");
  FreeTraceContext();
}

class HostileSink final : public ITraceSink {
 public:
  HostileSink() { SetTraceSink(this, 0); }
  ~HostileSink() { SetTraceSink(nullptr, 0); }
  HostileSink(const HostileSink&) = delete;
  HostileSink& operator=(const HostileSink&) = delete;
  void OnTrace(std::uint32_t, std::uint32_t, const char*, std::uint32_t, const char*) override {
    ++events;
    SetErrorMessage("the sink's own trouble");
    errno = ENOTTY;
    throw std::runtime_error("sink");
  }
  int events = 0;
};

TEST(TraceTest, ASinkThatThrowsLosesTheEventAndGetsTheNext) {
  HostileSink sink;
  EXPECT_NO_THROW(TraceMsg(1, 4, "source", 1, "text"));
  EXPECT_NO_THROW(TraceStr(1, 4, "source", 1, "text"));
  EXPECT_EQ(sink.events, 2);
}

TEST(TraceTest, TracingKeepsTheReasonOfAFailure) {
  HostileSink sink;
  SetErrorMessage("reason");
  errno = EBUSY;
  TraceMsg(1, 4, "source", 1, "text");
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(GetSystemErrorText(), "reason");
}

TEST(TraceTest, TheFoundationReportsItsOverflows) {
  RecordingSink sink(0);
  AnsiStr::Imp::ReportOverflow(0xFFFFFFFFU, 7);
  ReportArrayOverflow(3, 1);
  ReportArrayAllocFail(10, 3);
  ASSERT_EQ(sink.events.size(), 3U);
  EXPECT_EQ(sink.events[0].text, "AnsiStr: 4294967295 bytes and 7 more pass 32 bits");
  EXPECT_EQ(sink.events[0].level, 4U);
  EXPECT_EQ(sink.events[0].source, "orugui");
  EXPECT_EQ(sink.events[1].text, "Array: 3 elements and 1 more pass 32 bits");
  EXPECT_EQ(sink.events[2].text, "Array: no memory for 10 elements, 3 in use");
}

}  // namespace
}  // namespace OruGuiBase
