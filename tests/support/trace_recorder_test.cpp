#include "tests/support/trace_recorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/kvmap.h"
#include "foundation/val.h"

namespace TestSupport {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(TraceRecorder, RecordsAllPartsOfAnEvent) {
  const TraceRecorder traces;
  OruGuiTrace::TraceStr(4096, 2, "cryptcli", 17, "text");
  ASSERT_EQ(traces.GetEvents().size(), 1U);
  const TraceEvent event = traces.GetEvents().front();
  EXPECT_EQ(event.category, 4096U);
  EXPECT_EQ(event.level, 2U);
  EXPECT_EQ(event.source, "cryptcli");
  EXPECT_EQ(event.line, 17U);
  EXPECT_EQ(event.text, "text");
}

TEST(TraceRecorder, SelectsTheClientsMessagesByLevel) {
  TraceRecorder traces;
  OruGuiTrace::TraceStr(4096, 1, "cryptcli", 1, "one");
  OruGuiTrace::TraceStr(4096, 2, "cryptcli", 1, "two");
  OruGuiTrace::TraceStr(4096, 1, "another", 1, "three");
  EXPECT_THAT(traces.GetTexts(1), ElementsAre("one"));
  traces.Clear();
  EXPECT_THAT(traces.GetTexts(1), IsEmpty());
}

TEST(TraceRecorder, ShowsValuesReadAsAnotherType) {
  const TraceRecorder traces;
  OruGuiBase::Val(true).AsString();
  OruGuiBase::Val("text").AsMap();
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U, 7U));
}

TEST(TraceRecorder, StopsRecordingAtItsEnd) {
  { const TraceRecorder traces; }
  EXPECT_FALSE(OruGuiTrace::IsTraced(4));
}

}  // namespace
}  // namespace TestSupport
