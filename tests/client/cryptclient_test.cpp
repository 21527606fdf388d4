#include <type_traits>

#include "tests/support/clienttest.h"
#include "tests/support/tracerecorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::AnsiStr;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::Ansi;
using TestSupport::JsonText;
using TestSupport::ScriptedHttp;
using TestSupport::Str;
using TestSupport::Strings;
using TestSupport::TraceRecorder;

using CryptClientObject = TestSupport::ClientTest;

static_assert(!std::is_copy_constructible_v<CryptClient> && !std::is_copy_assignable_v<CryptClient>);
static_assert(!std::has_virtual_destructor_v<CryptClient>);
static_assert(std::is_base_of_v<OruOssSec::ISignHash, CryptClient>);

TEST_F(CryptClientObject, HoldsOneReferenceOfTheTransportForItsLife) {
  ScriptedHttp transport;
  {
    const CryptClient other(&transport, kService, "", kRoom);
    EXPECT_EQ(transport.GetAddRefs(), 1U);
    EXPECT_EQ(transport.GetReleases(), 0U);
  }
  EXPECT_EQ(transport.GetAddRefs(), 1U);
  EXPECT_EQ(transport.GetReleases(), 1U);
  EXPECT_EQ(transport.GetQueries(), 0U);
}

TEST_F(CryptClientObject, AcceptsNoTransportAndFailsEachExchange) {
  CryptClient other(nullptr, kService, "", kRoom);
  other.SetKeyServer(Strings({"https://one.example"}));
  AnsiStr signature;
  EXPECT_FALSE(other.Sign(CryptClient::GetKeyHandle("k", "1"), "RSA", "AAAA", signature));
  EXPECT_EQ(Str(other.GetErrorMessage()), "Could not connect to key server: No HTTP service");
}

TEST_F(CryptClientObject, MakesNoExchangeByItself) {
  UseServers({"https://one.example"});
  client.SetTransaction("t");
  client.SetStatusTimeout("5");
  EXPECT_EQ(http.GetRequestCount(), 0U);
}

TEST_F(CryptClientObject, BeginsWithEveryFieldAtItsDefault) {
  EXPECT_EQ(Error(), "");
  EXPECT_TRUE(peer.responseHeaders.IsEmpty());
  EXPECT_TRUE(peer.keyServerCursor.servers.IsEmpty());
  EXPECT_EQ(peer.keyServerCursor.attempts, 0U);
  EXPECT_EQ(Str(peer.keyServerCursor.keyServerUrl), "");
  EXPECT_EQ(peer.statusClock, 0U);
  EXPECT_FALSE(client.GetCertAuth());
  EXPECT_TRUE(peer.serverTimes.IsEmpty());
  EXPECT_EQ(peer.statusTimeout, 0U);
  EXPECT_EQ(Str(peer.transaction) + Str(peer.authzToken) + Str(peer.group), "");
  EXPECT_FALSE(peer.integrityKey.IsUsable());
}

TEST_F(CryptClientObject, SharesTheTextsItIsGiven) {
  const AnsiStr room("shared");
  const std::uint32_t before = room.GetImp()->refCount;
  {
    const CryptClient other(&http, kService, room, room);
    EXPECT_EQ(room.GetImp()->refCount, before + 2);
  }
  EXPECT_EQ(room.GetImp()->refCount, before);
}

TEST_F(CryptClientObject, TakesAndReplacesTheTransaction) {
  client.SetTransaction("one");
  client.SetTransaction("two");
  EXPECT_EQ(Str(peer.transaction), "two");
}

TEST_F(CryptClientObject, ReportsTheCertAuthFlag) {
  peer.certAuth = true;
  EXPECT_TRUE(client.GetCertAuth());
}

TEST_F(CryptClientObject, HandsOutTheErrorMessageItself) {
  EXPECT_EQ(&client.GetErrorMessage(), &peer.errorMessage);
}

TEST_F(CryptClientObject, ConvertsTheStatusTimeoutToMilliseconds) {
  client.SetStatusTimeout("5");
  EXPECT_EQ(peer.statusTimeout, 5000U);
}

TEST_F(CryptClientObject, TakesNoStatusTimeoutFromTheEmptyText) {
  client.SetStatusTimeout("5");
  client.SetStatusTimeout("");
  EXPECT_EQ(peer.statusTimeout, 0U);
  EXPECT_EQ(Error(), "");
}

TEST_F(CryptClientObject, WrapsAStatusTimeoutThatPassesThirtyTwoBits) {
  client.SetStatusTimeout("4294968");
  EXPECT_EQ(peer.statusTimeout, 704U);
}

TEST_F(CryptClientObject, KeepsTheStatusTimeoutForATextThatIsNoNumber) {
  client.SetStatusTimeout("5");
  client.SetStatusTimeout("soon");
  EXPECT_EQ(peer.statusTimeout, 5000U);
  EXPECT_EQ(Error(), "Invalid timeout value [soon]");
}

TEST_F(CryptClientObject, RefusesEachTextThatIsNoUnsignedNumber) {
  client.SetStatusTimeout("7");
  for (const char* text : {"-1", "+1", " 1", "1 ", "1.5", "0x10", "4294967296", "99999999999"}) {
    client.SetStatusTimeout(text);
    EXPECT_EQ(peer.statusTimeout, 7000U) << text;
    EXPECT_EQ(Error(), std::string("Invalid timeout value [") + text + "]");
  }
}

TEST_F(CryptClientObject, KeepsAnErrorAcrossALaterSuccess) {
  client.SetStatusTimeout("bad");
  client.SetStatusTimeout("5");
  EXPECT_EQ(Error(), "Invalid timeout value [bad]");
}

TEST_F(CryptClientObject, KeepsOnlyTheLatestFailure) {
  peer.SetError("first");
  peer.SetError("second");
  EXPECT_EQ(Error(), "second");
}

TEST_F(CryptClientObject, WrapsTheMessageRecordedBefore) {
  peer.SetError("inner");
  peer.WrapError();
  EXPECT_EQ(Error(), "Could not test: inner");
  peer.WrapError();
  EXPECT_EQ(Error(), "Could not test: Could not test: inner");
}

TEST_F(CryptClientObject, FormatsTheArgumentsOfAnError) {
  peer.SetNumberedError(-3, "100%s sure");
  EXPECT_EQ(Error(), "No. -3: 100%s sure");
}

TEST_F(CryptClientObject, TracesARecordedFailure) {
  const TraceRecorder traces;
  peer.SetError("broken");
  ASSERT_EQ(traces.GetEvents().size(), 1U);
  const TestSupport::TraceEvent event = traces.GetEvents().front();
  EXPECT_EQ(event.category, 4096U);
  EXPECT_EQ(event.level, 4U);
  EXPECT_EQ(event.source, "cryptcli");
  EXPECT_EQ(event.text, "CryptClient: Error: broken");
}

TEST_F(CryptClientObject, TracesMethodAndUrlOfAFailedExchangeBeforeItsMessage) {
  const TraceRecorder traces;
  peer.SetHttpError("GET", "https://x/", "no 100%s route");
  EXPECT_EQ(Error(), "no 100%s route");
  EXPECT_THAT(traces.GetTexts(4),
              ElementsAre("CryptClient: GET https://x/", "CryptClient: Error: no 100%s route"));
  for (const auto& event : traces.GetEvents()) EXPECT_EQ(event.category, 4096U);
}

TEST_F(CryptClientObject, SharesTheMessageOfAFailedExchange) {
  const AnsiStr message("one text");
  peer.SetHttpError("GET", "u", message);
  EXPECT_EQ(peer.errorMessage.GetImp(), message.GetImp());
}

TEST_F(CryptClientObject, NamesAKeyByAHandleOfThreeMembers) {
  EXPECT_EQ(JsonText(CryptClient::GetKeyHandle("key-1", "3")),
            R"({"type":"handle","id":"key-1","subId":"3"})");
}

TEST_F(CryptClientObject, NamesAKeyByAHandleWithEmptyMembersToo) {
  EXPECT_EQ(JsonText(CryptClient::GetKeyHandle("", "")), R"({"type":"handle","id":"","subId":""})");
}

}  // namespace
}  // namespace OruKalvix
