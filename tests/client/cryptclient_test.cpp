#include <type_traits>

#include "tests/support/client_internals_fixture.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::AnsiStr;
using ::testing::ElementsAre;
using TestSupport::JsonText;
using TestSupport::ScriptedHttp;
using TestSupport::Str;
using TestSupport::Strings;
using TestSupport::TraceRecorder;

using CryptClientObject = TestSupport::ClientInternalsTest;

static_assert(!std::is_copy_constructible_v<CryptClient> && !std::is_copy_assignable_v<CryptClient>);
static_assert(!std::has_virtual_destructor_v<CryptClient>);
static_assert(std::is_base_of_v<OruOssSec::ISignHash, CryptClient>);

TEST_F(CryptClientObject, HoldsOneReferenceToTransport) {
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

// A client without a transport can be made; each exchange fails with "No HTTP service".
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

// A new client has no failure, server, clock, flag, timeout, transaction, token, group or key.
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

TEST_F(CryptClientObject, SharesItsStringArguments) {
  const AnsiStr text("shared");
  {
    const CryptClient other(&http, text, text, text);
    EXPECT_EQ(text.GetImp()->refCount, 4U);
  }
  EXPECT_EQ(text.GetImp()->refCount, 1U);
}

/// A transport that records how many owners a string has when the transport is referenced and released.
class WatchingHttp final : public ICryptClientHttp {
 public:
  explicit WatchingHttp(const AnsiStr& watched) : text_(watched) {}

  void* QueryInterface(const char*) override { return nullptr; }
  std::uint32_t AddRef() override { return atReference = text_.GetImp()->refCount; }
  std::uint32_t Release() override { return atRelease = text_.GetImp()->refCount; }
  std::int32_t SendRequest(const AnsiStr&, const AnsiStr&, const OruGuiBase::KVMap&, const AnsiStr&,
                           const HttpOptions&, HttpResponse&) override {
    return -1;
  }

  std::uint32_t atReference = 0;
  std::uint32_t atRelease = 0;

 private:
  const AnsiStr& text_;
};

TEST_F(CryptClientObject, ReferencesTransportLastAndReleasesItFirst) {
  const AnsiStr text("watched");
  WatchingHttp watching(text);
  {
    CryptClient other(&watching, text, text, text);
    EXPECT_EQ(watching.atReference, 4U);
    other.SetTransaction(text);
    CryptClientTestPeer(other).group = text;
    CryptClientTestPeer(other).integrityKey.id = text;
  }
  EXPECT_EQ(watching.atRelease, 7U);
  EXPECT_EQ(text.GetImp()->refCount, 1U);
}

TEST_F(CryptClientObject, ReplacesTransaction) {
  client.SetTransaction("one");
  client.SetTransaction("two");
  EXPECT_EQ(Str(peer.transaction), "two");
}

TEST_F(CryptClientObject, ReportsTheCertAuthFlag) {
  peer.certAuth = true;
  EXPECT_TRUE(client.GetCertAuth());
}

// GetErrorMessage returns a reference to the recorded message, not a copy.
TEST_F(CryptClientObject, ReturnsReferenceToErrorMessage) {
  EXPECT_EQ(&client.GetErrorMessage(), &peer.errorMessage);
}

// The status timeout is given in seconds and kept in milliseconds.
TEST_F(CryptClientObject, ConvertsTheStatusTimeoutToMilliseconds) {
  client.SetStatusTimeout("5");
  EXPECT_EQ(peer.statusTimeout, 5000U);
}

TEST_F(CryptClientObject, RemovesStatusTimeoutForEmptyString) {
  client.SetStatusTimeout("5");
  client.SetStatusTimeout("");
  EXPECT_EQ(peer.statusTimeout, 0U);
  EXPECT_EQ(Error(), "");
}

// 4294968 seconds wrap to 704 milliseconds.
TEST_F(CryptClientObject, WrapsStatusTimeoutBeyond32Bits) {
  client.SetStatusTimeout("4294968");
  EXPECT_EQ(peer.statusTimeout, 704U);
}

// A string that is not a number leaves the old timeout and records "Invalid timeout value [%s]".
TEST_F(CryptClientObject, KeepsStatusTimeoutWhenStringIsNotNumber) {
  client.SetStatusTimeout("5");
  client.SetStatusTimeout("soon");
  EXPECT_EQ(peer.statusTimeout, 5000U);
  EXPECT_EQ(Error(), "Invalid timeout value [soon]");
}

TEST_F(CryptClientObject, RefusesStatusTimeoutThatIsNotUnsignedNumber) {
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

// The present message may be an argument of the next one.
TEST_F(CryptClientObject, WrapsTheMessageRecordedBefore) {
  peer.SetError("inner");
  peer.WrapError();
  EXPECT_EQ(Error(), "Could not test: inner");
  peer.WrapError();
  EXPECT_EQ(Error(), "Could not test: Could not test: inner");
}

// Percent signs in an argument of the message are kept.
TEST_F(CryptClientObject, FormatsTheArgumentsOfAnError) {
  peer.SetNumberedError(-3, "100%s sure");
  EXPECT_EQ(Error(), "No. -3: 100%s sure");
}

// A failure is traced as "CryptClient: Error: %s" at level 4.
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

TEST_F(CryptClientObject, KeepsNoExportedKey) {
  UseServers({"https://one.example"});
  http.Then(TestSupport::Alive()).Then(TestSupport::Token("t"));
  http.Then(
      TestSupport::Payload(R"({"type":"exportWrappedKeyResponse","encodedPrivateKey":"the plain key"})"));
  OruGuiBase::Array<OruGuiBase::Val> keys;
  keys.Append(OruGuiBase::Val(TestSupport::Map(R"({"id":"1","data":"a"})")));
  OruGuiBase::Array<OruGuiBase::Val> result;
  ASSERT_TRUE(client.ExportKeys("the room", keys, result));
  EXPECT_EQ(Str(peer.errorMessage) + Str(peer.authzToken) + Str(peer.transaction) + Str(peer.group), "");
  EXPECT_EQ(JsonText(peer.responseHeaders), "{}");
  EXPECT_TRUE(peer.integrityKey.id.IsEmpty() && peer.integrityKey.subId.IsEmpty());
}

TEST_F(CryptClientObject, GetKeyHandleHasThreeMembers) {
  EXPECT_EQ(JsonText(CryptClient::GetKeyHandle("key-1", "3")),
            R"({"type":"handle","id":"key-1","subId":"3"})");
}

TEST_F(CryptClientObject, GetKeyHandleKeepsEmptyMembers) {
  EXPECT_EQ(JsonText(CryptClient::GetKeyHandle("", "")), R"({"type":"handle","id":"","subId":""})");
}

}  // namespace
}  // namespace OruKalvix
