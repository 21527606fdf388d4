#include <cstddef>
#include <vector>

#include "tests/support/client_internals_fixture.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::Val;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::Str;
using TestSupport::Strings;
using TestSupport::TraceRecorder;

class Rotation : public TestSupport::ClientInternalsTest {
 protected:
  static std::uint32_t& Base() { return *CryptClientTestPeer::GetKeyServerBase(); }

  KeyServerCursor& Cursor() { return peer.keyServerCursor; }
  bool Next() { return CryptClientTestPeer::NextKeyServer(Cursor()); }
  /// The servers of one whole sweep.
  std::vector<std::string> Sweep() {
    std::vector<std::string> urls;
    Cursor().attempts = 0;
    while (Next()) urls.push_back(Str(Cursor().keyServerUrl));
    return urls;
  }
};

static_assert(offsetof(KeyServerCursor, servers) < offsetof(KeyServerCursor, startIndex) &&
              offsetof(KeyServerCursor, startIndex) < offsetof(KeyServerCursor, attempts) &&
              offsetof(KeyServerCursor, attempts) < offsetof(KeyServerCursor, keyServerUrl));

TEST_F(Rotation, HandsOutTheAddressOfOneBase) {
  EXPECT_EQ(CryptClientTestPeer::GetKeyServerBase(), CryptClientTestPeer::GetKeyServerBase());
}

TEST_F(Rotation, StartsAClientAtThePresentBase) {
  Base() = 41;
  CryptClient other(&http, kService, "", kRoom);
  EXPECT_EQ(CryptClientTestPeer(other).keyServerCursor.startIndex, 41U);
}

// A base of 7 takes three servers in the order 1, 2, 0 and stores each index as the base.
TEST_F(Rotation, TakesEachServerOnceAndStoresIndexAsBase) {
  Base() = 7;
  client.SetKeyServer(Strings({"a", "b", "c"}));
  std::vector<std::uint32_t> bases;
  std::vector<std::string> urls;
  while (Next()) {
    bases.push_back(Base());
    urls.push_back(Str(Cursor().keyServerUrl));
  }
  EXPECT_THAT(urls, ElementsAre("b", "c", "a"));
  EXPECT_THAT(bases, ElementsAre(1U, 2U, 0U));
}

TEST_F(Rotation, LetsTheNextClientBeginAtTheServerTakenLast) {
  Base() = 7;
  client.SetKeyServer(Strings({"a", "b", "c"}));
  EXPECT_THAT(Sweep(), ElementsAre("b", "c", "a"));
  EXPECT_EQ(Base(), 0U);
  CryptClient other(&http, kService, "", kRoom);
  other.SetKeyServer(Strings({"a", "b", "c"}));
  KeyServerCursor& next = CryptClientTestPeer(other).keyServerCursor;
  EXPECT_EQ(next.startIndex, 0U);
  for (const char* url : {"a", "b", "c"}) {
    ASSERT_TRUE(CryptClientTestPeer::NextKeyServer(next));
    EXPECT_EQ(Str(next.keyServerUrl), url);
  }
}

TEST_F(Rotation, BeginsEachSweepOfOneClientAtTheSamePlace) {
  Base() = 1;
  client.SetKeyServer(Strings({"a", "b", "c"}));
  EXPECT_THAT(Sweep(), ElementsAre("b", "c", "a"));
  EXPECT_THAT(Sweep(), ElementsAre("b", "c", "a"));
}

// Start 0xFFFFFFFF and one attempt wrap to 0 before the index is taken.
TEST_F(Rotation, WrapsTheSumOfStartAndAttemptsBeforeReducingIt) {
  client.SetKeyServer(Strings({"a", "b"}));
  Cursor().startIndex = 0xFFFFFFFF;
  Cursor().attempts = 1;
  ASSERT_TRUE(Next());
  EXPECT_EQ(Str(Cursor().keyServerUrl), "a");
  EXPECT_EQ(Base(), 0U);
}

// An exhausted sweep clears the server in use and keeps the last failure.
TEST_F(Rotation, LeavesNoServerInUseAfterLastOne) {
  UseServers({"a"});
  ASSERT_TRUE(Next());
  peer.SetError("the last failure");
  const std::uint32_t base = Base();
  EXPECT_FALSE(Next());
  EXPECT_EQ(Str(Cursor().keyServerUrl), "");
  EXPECT_EQ(Cursor().attempts, 1U);
  EXPECT_EQ(Base(), base);
  EXPECT_EQ(Error(), "the last failure");
}

TEST_F(Rotation, TakesNoServerOfAnEmptyList) {
  Cursor().keyServerUrl = "old";
  EXPECT_FALSE(Next());
  EXPECT_EQ(Str(Cursor().keyServerUrl), "");
}

TEST_F(Rotation, CountsElementThatIsNotStringAsAttemptWithoutUrl) {
  const TraceRecorder traces;
  OruGuiBase::Array<Val> servers = Strings({"a"});
  servers.Append(Val(true));
  Base() = 1;
  client.SetKeyServer(servers);
  Cursor().keyServerUrl = "old";
  EXPECT_TRUE(Next());
  EXPECT_EQ(Str(Cursor().keyServerUrl), "");
  EXPECT_EQ(Cursor().attempts, 1U);
  EXPECT_EQ(Base(), 1U);
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U));
}

TEST_F(Rotation, RestartsWithANewListAtThePresentBase) {
  UseServers({"a", "b"});
  Sweep();
  Base() = 5;
  const OruGuiBase::Array<Val> servers = Strings({"x", "y", "z"});
  client.SetKeyServer(servers);
  EXPECT_EQ(Cursor().startIndex, 5U);
  EXPECT_EQ(Cursor().attempts, 0U);
  EXPECT_EQ(Str(Cursor().keyServerUrl), "");
  EXPECT_EQ(Cursor().servers.GetImp(), servers.GetImp());
  EXPECT_THAT(Sweep(), ElementsAre("z", "x", "y"));
}

TEST_F(Rotation, IgnoresBaseThatAnotherClientMoves) {
  UseServers({"a", "b", "c"});
  ASSERT_TRUE(Next());
  Base() = 2;
  ASSERT_TRUE(Next());
  EXPECT_EQ(Str(Cursor().keyServerUrl), "b");
}

TEST_F(Rotation, TakesSingleServerWhereverItStarts) {
  Base() = 0xFFFFFFFF;
  client.SetKeyServer(Strings({"only"}));
  EXPECT_THAT(Sweep(), ElementsAre("only"));
}

TEST_F(Rotation, ReportsNothingForListOfStrings) {
  const TraceRecorder traces;
  UseServers({"a", "b"});
  Sweep();
  EXPECT_THAT(traces.GetInvalidTypes(), IsEmpty());
}

}  // namespace
}  // namespace OruKalvix
