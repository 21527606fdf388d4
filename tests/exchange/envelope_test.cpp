#include "tests/support/client_internals_fixture.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::KVMap;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::Envelope;
using TestSupport::HeaderOf;
using TestSupport::Json;
using TestSupport::JsonText;
using TestSupport::Map;
using TestSupport::Payload;
using TestSupport::RecordedRequest;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::TraceRecorder;

// By number, as the order of the commands is fixed.
constexpr KeyServerCommand Command(std::uint32_t value) {
  return static_cast<KeyServerCommand>(value);
}
constexpr KeyServerCommand kDecrypt = Command(6);
constexpr KeyServerCommand kDeleteKey = Command(10);

class Envelopes : public TestSupport::ClientInternalsTest {
 protected:
  bool Check(const char* response, KeyServerCommand command = kDeleteKey) {
    return peer.KeyServerCheckResponse(Map(response), command, payload);
  }

  KVMap payload = Map(R"({"old":"1"})");
};

TEST_F(Envelopes, NameEachCommandAndItsResponse) {
  const char* const names[] = {"configGroup",      "reencrypt",        "getAuditLog", "generateWrappedKey",
                               "modifyWrappedKey", "exportWrappedKey", "decrypt",     "sign",
                               "getKey",           "importKey",        "deleteKey"};
  std::uint32_t value = 0;
  for (const std::string name : names) {
    EXPECT_EQ(CryptClientTestPeer::GetRequestType(Command(value)), name + "Request");
    EXPECT_EQ(CryptClientTestPeer::GetResponseType(Command(value)), name + "Response");
    ++value;
  }
}

TEST_F(Envelopes, HaveNoNameForACommandThatDoesNotExist) {
  for (const std::uint32_t value : {11U, 255U, 0xFFFFFFFFU}) {
    EXPECT_STREQ(CryptClientTestPeer::GetRequestType(Command(value)), "");
    EXPECT_STREQ(CryptClientTestPeer::GetResponseType(Command(value)), "");
  }
}

// Each envelope carries the same header, its members in a fixed order.
TEST_F(Envelopes, CarryTheStandardHeader) {
  EXPECT_EQ(JsonText(CryptClientTestPeer::GetStandardHeader()),
            R"({"type":"standardVelmoraHeader","commandId":"","sessionId":"","path":["java-api-instance"],)"
            R"("protocolVersion":"2.0"})");
}

TEST_F(Envelopes, HoldHeaderAndPayloadInThisOrder) {
  EXPECT_EQ(JsonText(CryptClientTestPeer::GetEnvelope(Map(R"({"type":"x","b":1})"))),
            Envelope(R"({"type":"x","b":1})"));
}

// A path is joined to the server's URL by one slash and not escaped; without a server there is no URL.
TEST_F(Envelopes, JoinAPathToTheServerInUse) {
  const struct {
    const char* server;
    const char* path;
    const char* url;
    const char* reason;
  } rows[] = {
      {"https://k.example", "rest/json", "https://k.example/rest/json", "slash added"},
      {"https://k.example/", "rest/json", "https://k.example/rest/json", "slash there already"},
      {"https://k.example/base", "status", "https://k.example/base/status", "below a path"},
      {"https://k.example", "a b%/?", "https://k.example/a b%/?", "not escaped"},
      {"https://k.example", "", "https://k.example", "no path"},
      {"https://k.example/", "", "https://k.example/", "no path, slash kept"},
      {"", "rest/json", "", "no server in use"},
      {"", "", "", "nothing at all"},
  };
  for (const auto& row : rows) {
    peer.keyServerCursor.keyServerUrl = row.server;
    EXPECT_EQ(Str(peer.GetServerUrl(row.path)), row.url) << row.reason;
  }
}

TEST_F(Envelopes, GetNoSecondSlashAfterServerUrl) {
  UseServers({"https://one.example/"});
  CryptClientTestPeer::NextKeyServer(peer.keyServerCursor);
  http.Then(Payload(R"({"type":"deleteKeyResponse"})"));
  EXPECT_TRUE(peer.KeyServerPost(KVMap(), kDeleteKey, payload));
  EXPECT_EQ(http.GetRequest(0).url, "https://one.example/rest/json");
}

// Putting the token into its header empties it; without one the header is there and empty.
TEST_F(Envelopes, UseUpTokenWithItsHeader) {
  peer.authzToken = "once";
  EXPECT_EQ(JsonText(peer.GetSecurityHeader()), R"({"X-SEC-AUTHZTOKEN":"once"})");
  EXPECT_EQ(Str(peer.authzToken), "");
  EXPECT_EQ(JsonText(peer.GetSecurityHeader()), R"({"X-SEC-AUTHZTOKEN":""})");
}

// An envelope goes to "rest/json" with the token in "X-SEC-AUTHZTOKEN".
TEST_F(Envelopes, ArePostedWithTheToken) {
  UseKnownServer();
  peer.authzToken = "token-1";
  http.Then(Payload(R"({"type":"deleteKeyResponse","x":1})"));
  ASSERT_TRUE(peer.KeyServerPost(Map(R"({"header":{},"payload":{}})"), kDeleteKey, payload));
  const RecordedRequest request = http.GetRequest(0);
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url, "https://one.example/rest/json");
  EXPECT_EQ(request.body, R"({"header":{},"payload":{}})");
  EXPECT_EQ(HeaderOf(request, "X-SEC-AUTHZTOKEN"), "token-1");
  EXPECT_EQ(HeaderOf(request, "Content-Type"), "text/json");
  EXPECT_EQ(request.headers.size(), 2U);
  EXPECT_EQ(JsonText(payload), R"({"type":"deleteKeyResponse","x":1})");
}

TEST_F(Envelopes, ArePostedWithAnEmptyTokenWhenNoneWasFetched) {
  UseKnownServer();
  http.Then(Payload(R"({"type":"deleteKeyResponse"})"));
  EXPECT_TRUE(peer.KeyServerPost(KVMap(), kDeleteKey, payload));
  EXPECT_EQ(HeaderOf(http.GetRequest(0), "X-SEC-AUTHZTOKEN"), "");
}

TEST_F(Envelopes, UseUpTokenWhenExchangeFails) {
  UseKnownServer();
  peer.authzToken = "token-1";
  http.Then(Status(500));
  EXPECT_FALSE(peer.KeyServerPost(KVMap(), kDeleteKey, payload));
  EXPECT_EQ(Error(), "HTTP 500");
  EXPECT_EQ(Str(peer.authzToken), "");
}

TEST_F(Envelopes, UseUpTokenWhenEnvelopeHasNoJSONForm) {
  UseKnownServer();
  peer.authzToken = "token-1";
  KVMap envelope;
  envelope.Set("x", "\xFF");
  EXPECT_FALSE(peer.KeyServerPost(envelope, kDeleteKey, payload));
  EXPECT_EQ(Str(peer.authzToken), "");
}

// An empty response to a command is "Invalid payload".
TEST_F(Envelopes, NeedAPayloadInTheResponse) {
  UseKnownServer();
  http.Then(Json(""));
  EXPECT_FALSE(peer.KeyServerPost(KVMap(), kDeleteKey, payload));
  EXPECT_EQ(Error(), "Invalid payload");
}

// A response whose payload is missing, empty or no object is "Invalid payload".
TEST_F(Envelopes, RefuseAResponseWithoutAnObjectInPayload) {
  const struct {
    const char* response;
    bool reported;
    const char* reason;
  } rows[] = {
      {"{}", true, "missing"},
      {R"({"payload":"text"})", true, "text"},
      {R"({"payload":[]})", true, "list"},
      {R"({"payload":null})", true, "null"},
      {R"({"payload":{}})", false, "no members"},
      {R"({"Payload":{"type":"deleteKeyResponse"}})", true, "case"},
  };
  for (const auto& row : rows) {
    const TraceRecorder traces;
    EXPECT_FALSE(Check(row.response)) << row.reason;
    EXPECT_EQ(Error(), "Invalid payload") << row.reason;
    EXPECT_EQ(traces.GetInvalidTypes(),
              row.reported ? std::vector<std::uint32_t>{7U} : std::vector<std::uint32_t>{})
        << row.reason;
    EXPECT_TRUE(payload.IsEmpty()) << row.reason;
  }
}

// A response of the command's own type succeeds and hands its payload out.
TEST_F(Envelopes, AcceptTheResponseOfTheirCommand) {
  const TraceRecorder traces;
  EXPECT_TRUE(Check(R"({"payload":{"type":"deleteKeyResponse","more":[1]}})"));
  EXPECT_EQ(JsonText(payload), R"({"type":"deleteKeyResponse","more":[1]})");
  EXPECT_EQ(Error(), "");
  EXPECT_THAT(traces.GetInvalidTypes(), IsEmpty());
}

TEST_F(Envelopes, IgnoreResponseBesidePayload) {
  EXPECT_TRUE(Check(R"({"header":7,"error":"x","payload":{"type":"deleteKeyResponse"}})"));
}

// The response of another command fails with "Unexpected response type %s".
TEST_F(Envelopes, RefuseResponseOfAnotherCommandAndHandOutItsPayload) {
  EXPECT_FALSE(Check(R"({"payload":{"type":"signResponse","signedHashes":["x"]}})"));
  EXPECT_EQ(Error(), "Unexpected response type signResponse");
  EXPECT_EQ(JsonText(payload), R"({"type":"signResponse","signedHashes":["x"]})");
}

TEST_F(Envelopes, CompareResponseTypeCaseSensitively) {
  EXPECT_FALSE(Check(R"({"payload":{"type":"DeleteKeyResponse"}})"));
  EXPECT_EQ(Error(), "Unexpected response type DeleteKeyResponse");
  EXPECT_FALSE(Check(R"({"payload":{"type":"Status","code":607}})"));
  EXPECT_EQ(Error(), "Unexpected response type Status");
}

TEST_F(Envelopes, KeepPercentSignOfResponseTypeInMessage) {
  EXPECT_FALSE(Check(R"({"payload":{"type":"%s%n"}})"));
  EXPECT_EQ(Error(), "Unexpected response type %s%n");
}

TEST_F(Envelopes, QuoteResponseTypeUpToNulByte) {
  EXPECT_FALSE(Check(R"({"payload":{"type":"some\u0000thing"}})"));
  EXPECT_EQ(Error(), "Unexpected response type some");
}

// A type that is missing or not a string is reported and counts as the empty string.
TEST_F(Envelopes, ReadTypeThatIsNotStringAsEmpty) {
  for (const char* response : {R"({"payload":{"x":1}})", R"({"payload":{"type":7}})"}) {
    const TraceRecorder traces;
    EXPECT_FALSE(Check(response)) << response;
    EXPECT_EQ(Error(), "Unexpected response type ") << response;
    EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U)) << response;
  }
}

// A command value beyond the eleven takes the empty type alone for its response.
TEST_F(Envelopes, MatchOnlyTheEmptyTypeForACommandThatDoesNotExist) {
  EXPECT_TRUE(Check(R"({"payload":{"type":""}})", Command(11)));
  EXPECT_FALSE(Check(R"({"payload":{"type":"x"}})", Command(11)));
}

// Each error code of a server from 601 to 619 has a message of its own; any other is unknown.
TEST_F(Envelopes, HaveMessageForEachErrorCode) {
  const struct {
    int code;
    const char* message;
  } rows[] = {
      {601, "601 Invalid Payload"},
      {602, "602 Invalid Key Type"},
      {603, "603 Invalid Certificate"},
      {604, "604 Invalid Base64 Encoding"},
      {605, "605 Invalid Wrapped Key"},
      {606, "606 Keystore Unavailable"},
      {607, "607 Key Not Found"},
      {608, "608 Unsupported Algorithm"},
      {609, "609 Auth Failed"},
      {610, "610 Invalid License"},
      {611, "611 License Expired"},
      {612, "612 Auditlog Error"},
      {613, "613 Key Swap Error"},
      {614, "614 LDAP Error"},
      {615, "615 Key Generation Error"},
      {616, "616 CA Error"},
      {617, "617 External Tool Error"},
      {618, "618 Read-only State"},
      {619, "619 Service Temporary Unavailable"},
      {600, "600 Unknown Error"},
      {620, "620 Unknown Error"},
      {0, "0 Unknown Error"},
      {-1, "-1 Unknown Error"},
  };
  for (const auto& row : rows) {
    const std::string response = R"({"payload":{"type":"status","code":)" + std::to_string(row.code) + "}}";
    EXPECT_FALSE(Check(response.c_str())) << row.message;
    EXPECT_EQ(Error(), row.message);
  }
}

TEST_F(Envelopes, ReportCodesBesideKnownOnesAsUnknown) {
  EXPECT_FALSE(Check(R"({"payload":{"type":"status","code":600}})"));
  EXPECT_EQ(Error(), "600 Unknown Error");
  EXPECT_FALSE(Check(R"({"payload":{"type":"status","code":620}})"));
  EXPECT_EQ(Error(), "620 Unknown Error");
}

TEST_F(Envelopes, ReportErrorCodesOf64Bits) {
  peer.KeyServerErrorText(INT64_MAX);
  EXPECT_EQ(Error(), "9223372036854775807 Unknown Error");
  peer.KeyServerErrorText(INT64_MIN);
  EXPECT_EQ(Error(), "-9223372036854775808 Unknown Error");
}

// A refusal whose code is missing or no integer is "0 Unknown Error".
TEST_F(Envelopes, ReadErrorWithoutIntegerCodeAsCodeZero) {
  for (const char* response :
       {R"({"payload":{"type":"status"}})", R"({"payload":{"type":"status","code":"607"}})",
        R"({"payload":{"type":"status","code":607.5}})"}) {
    const TraceRecorder traces;
    EXPECT_FALSE(Check(response)) << response;
    EXPECT_EQ(Error(), "0 Unknown Error") << response;
    EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(2U)) << response;
  }
}

// A response of type "status" is a failure whatever its code and members.
TEST_F(Envelopes, TreatTypeStatusAsErrorWhateverElseIsThere) {
  EXPECT_FALSE(Check(R"({"payload":{"type":"status","code":200,"plainData":["x"]}})", kDecrypt));
  EXPECT_EQ(Error(), "200 Unknown Error");
}

}  // namespace
}  // namespace OruKalvix
