#include "tests/support/client_internals_fixture.h"
#include "tests/support/pki.h"
#include "tests/support/scripted_services.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::Array;
using OruGuiBase::Val;
using OruOssSec::Certificate;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using TestSupport::Alive;
using TestSupport::CannedResponse;
using TestSupport::Envelope;
using TestSupport::ErrorCode;
using TestSupport::HeaderOf;
using TestSupport::Json;
using TestSupport::JsonText;
using TestSupport::LoadCert;
using TestSupport::NoExchange;
using TestSupport::Payload;
using TestSupport::Pki;
using TestSupport::Quoted;
using TestSupport::RecordedRequest;
using TestSupport::ScriptedServices;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::Strings;
using TestSupport::Token;
using TestSupport::TraceRecorder;

std::string GoodCert() {
  return Quoted(Pki::Get().integrity.certificate.ToBase64());
}

class IntegrityKeys : public TestSupport::ClientInternalsTest {
 protected:
  IntegrityKeys() {
    UseServers({"https://one.example", "https://two.example"});
    key.id = "old id";
    key.subId = "old subId";
    key.certificate = LoadCert(Pki::Get().room.certificate);
  }

  /// The next attempt meets this "key" in the response.
  void Attempt(const std::string& keyObject) {
    Attempt(Payload(R"({"type":"getKeyResponse","key":)" + keyObject + "}"));
  }
  void Attempt(const CannedResponse& response) { http.Then(Alive()).Then(Token("t")).Then(response); }
  bool Get(const char* id = "integrity") { return peer.KeyServerGetKey(id, "", key); }

  IntegrityKey key;
};

// The integrity key is requested by its handle, as a certificate, with a token for the room and no key.
TEST_F(IntegrityKeys, AreRequestedByHandle) {
  Attempt(ScriptedServices::IntegrityKeyResponse());
  ASSERT_TRUE(Get());
  EXPECT_EQ(http.GetRequest(1).url, "https://crypt.example/api/crypt/authztoken/room%201");
  EXPECT_EQ(http.GetRequest(1).body, R"({"keyserver":"https://one.example","operation":"getKeyRequest"})");
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"getKeyRequest","key":{"type":"handle","id":"integrity","subId":""},)"
                     R"("representation":"certificate"})"));
  EXPECT_EQ(HeaderOf(http.GetRequest(2), "X-SEC-AUTHZTOKEN"), "t");
}

TEST_F(IntegrityKeys, AreRequestedWithSubIdWhenGiven) {
  Attempt(ScriptedServices::IntegrityKeyResponse());
  ASSERT_TRUE(peer.KeyServerGetKey("integrity", "3", key));
  EXPECT_NE(http.GetRequest(2).body.find(R"("key":{"type":"handle","id":"integrity","subId":"3"})"),
            std::string::npos);
}

TEST_F(IntegrityKeys, ComeWithIdSubIdAndCertificate) {
  Attempt(ScriptedServices::IntegrityKeyResponse());
  ASSERT_TRUE(Get());
  EXPECT_EQ(Str(key.id), TestSupport::kIntegrityKeyId);
  EXPECT_EQ(Str(key.subId), TestSupport::kIntegritySubId);
  EXPECT_EQ(Certificate::Compare(key.certificate, LoadCert(Pki::Get().integrity.certificate)), 0);
  EXPECT_TRUE(key.IsUsable());
  EXPECT_EQ(Error(), "");
}

// Without a sub-identifier the request holds an empty one, and the response supplies the value.
TEST_F(IntegrityKeys, TakeTheirSubIdFromTheResponseWhenNoneWasGiven) {
  Attempt(ScriptedServices::IntegrityKeyResponse());
  ASSERT_TRUE(peer.KeyServerGetKey("integrity", "", key));
  EXPECT_NE(http.GetRequest(2).body.find(R"("subId":""})"), std::string::npos);
  EXPECT_EQ(Str(key.subId), TestSupport::kIntegritySubId);
}

TEST_F(IntegrityKeys, HaveIdOfResponse) {
  Attempt(R"({"type":"x","id":"other","subId":"1","encodedCertificate":)" + GoodCert() + "}");
  ASSERT_TRUE(Get());
  EXPECT_EQ(Str(key.id), "other");
}

// An integrity key passes without a type; that it is missing is reported.
TEST_F(IntegrityKeys, NeedNoType) {
  const TraceRecorder traces;
  Attempt(R"({"id":"i","subId":"1","encodedCertificate":)" + GoodCert() + "}");
  ASSERT_TRUE(Get());
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U));
}

TEST_F(IntegrityKeys, AreUnusableWhenResponseHasNoId) {
  Attempt(R"({"type":"x","id":"","subId":"1","encodedCertificate":)" + GoodCert() + "}");
  ASSERT_TRUE(Get());
  EXPECT_EQ(Str(key.id), "");
  EXPECT_FALSE(key.IsUsable());
}

// What passed without an identifier is refused when a hash is to be signed with it.
TEST_F(IntegrityKeys, SignNothingWithoutId) {
  Attempt(R"({"type":"x","id":"","subId":"1","encodedCertificate":)" + GoodCert() + "}");
  ASSERT_TRUE(peer.KeyServerGetKey("integrity", "", peer.integrityKey));
  OruGuiBase::Blob signature;
  EXPECT_FALSE(client.SignHash({}, signature));
  EXPECT_EQ(http.GetRequestCount(), 3U);
}

TEST_F(IntegrityKeys, NeedASubId) {
  Attempt(R"({"type":"x","id":"i","encodedCertificate":)" + GoodCert() + "}");
  Attempt(R"({"type":"x","id":"i","subId":"","encodedCertificate":)" + GoodCert() + "}");
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "Could not get integrity certificate: Invalid subId");
  EXPECT_EQ(http.GetRequestCount(), 6U);
}

// A response without a key reads as a key without a sub-identifier, and each missing member is reported.
TEST_F(IntegrityKeys, NeedAKeyInTheResponse) {
  const TraceRecorder traces;
  Attempt(Payload(R"({"type":"getKeyResponse"})"));
  Attempt("[]");
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "Could not get integrity certificate: Invalid subId");
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(7U, 5U, 5U, 5U, 7U, 5U, 5U, 5U));
}

// Without an identifier in the request each server's response is refused, however good it is.
TEST_F(IntegrityKeys, FailWhenRequestHasNoId) {
  Attempt(ScriptedServices::IntegrityKeyResponse());
  Attempt(ScriptedServices::IntegrityKeyResponse());
  EXPECT_FALSE(Get(""));
  EXPECT_EQ(Error(), "Could not get integrity certificate: Invalid id");
  EXPECT_EQ(http.GetRequestCount(), 6U);
  EXPECT_EQ(Str(key.id), TestSupport::kIntegrityKeyId);
  EXPECT_EQ(Str(key.subId), "");
}

TEST_F(IntegrityKeys, NeedACertificate) {
  Attempt(R"({"type":"x","id":"i","subId":"1"})");
  Attempt(R"({"type":"x","id":"i","subId":"1","encodedCertificate":7})");
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "Could not get integrity certificate: Invalid encodedCertificate");
}

TEST_F(IntegrityKeys, NeedACertificateThatCanBeRead) {
  Attempt(R"({"type":"x","id":"i","subId":"1","encodedCertificate":"garbage"})");
  Attempt(R"({"type":"x","id":"i","subId":"1","encodedCertificate":"AAAA"})");
  EXPECT_FALSE(Get());
  EXPECT_THAT(Error(), StartsWith("Could not parse integrity certificate: "));
  EXPECT_GT(Error().size(), std::string("Could not parse integrity certificate: ").size());
  EXPECT_EQ(Error().find("Success"), std::string::npos);
  EXPECT_EQ(Str(key.subId), "1");
  EXPECT_TRUE(key.certificate.IsEmpty());
}

// A second server's good integrity key counts; the message about the first server's stays.
TEST_F(IntegrityKeys, ComeFromSecondServerWhenFirstCertificateIsBad) {
  Attempt(R"({"type":"x","id":"first","subId":"1","encodedCertificate":"garbage"})");
  Attempt(ScriptedServices::IntegrityKeyResponse());
  ASSERT_TRUE(Get());
  EXPECT_THAT(Error(), StartsWith("Could not parse integrity certificate: "));
  EXPECT_EQ(Str(key.id), TestSupport::kIntegrityKeyId);
  EXPECT_TRUE(key.IsUsable());
}

TEST_F(IntegrityKeys, StayAsTheyWereWhenNoServerResponds) {
  http.Then(NoExchange("down"));
  Attempt(ErrorCode(607));
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "607 Key Not Found");
  EXPECT_EQ(Str(key.id), "old id");
  EXPECT_TRUE(key.IsUsable());
}

// The first response drops the integrity key from before, even when it is refused then.
TEST_F(IntegrityKeys, AreClearedByFirstResponse) {
  Attempt(R"({"type":"x","id":"new","subId":""})");
  Attempt(ErrorCode(607));
  EXPECT_FALSE(Get());
  EXPECT_EQ(Str(key.id), "new");
  EXPECT_EQ(Str(key.subId), "");
  EXPECT_TRUE(key.certificate.IsEmpty());
}

// An integrity key is usable with identifier, sub-identifier and certificate, and not without any of them.
TEST_F(IntegrityKeys, AreUsableWithAllThreeParts) {
  EXPECT_TRUE(key.IsUsable());
  IntegrityKey without = key;
  without.id.Clear();
  EXPECT_FALSE(without.IsUsable());
  without = key;
  without.subId.Clear();
  EXPECT_FALSE(without.IsUsable());
  without = key;
  without.certificate.Clear();
  EXPECT_FALSE(without.IsUsable());
}

class IntegrityCerts : public TestSupport::ClientInternalsTest {
 protected:
  bool Fetch(const CannedResponse& response, const char* group = "QOB.g/1", const char* digest = "sha256") {
    http.Then(response);
    return peer.FetchIntegrityCerts(group, certificates, digest);
  }

  Array<Val> certificates = Strings({"old"});
};

TEST_F(IntegrityCerts, AreRequestedByGroupAndDigest) {
  UseKnownServer();
  ASSERT_TRUE(Fetch(Json(R"({"integrity":["aa","bb"]})")));
  const RecordedRequest request = http.GetRequest(0);
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url, "https://crypt.example/api/crypt/certlist/QOB.g%2F1/integrity/sha256");
  EXPECT_EQ(request.body, R"({"keyserver":"https://one.example"})");
  EXPECT_EQ(HeaderOf(request, "Content-Type"), "text/json");
  EXPECT_EQ(request.headers.size(), 1U);
  EXPECT_EQ(JsonText(Val(certificates)), R"(["aa","bb"])");
}

// The digests are requested with an empty "keyserver" while no key server is in use.
TEST_F(IntegrityCerts, AreRequestedWithoutServerInUse) {
  ASSERT_TRUE(Fetch(Json("{}")));
  EXPECT_EQ(http.GetRequest(0).body, R"({"keyserver":""})");
}

TEST_F(IntegrityCerts, AreEmptyWhenResponseHasNoList) {
  for (const char* body : {"", "{}", R"({"integrity":"aa"})", R"({"errorid":"x","errortext":"y"})"}) {
    const TraceRecorder traces;
    certificates = Strings({"old"});
    EXPECT_TRUE(Fetch(Json(body))) << body;
    EXPECT_TRUE(certificates.IsEmpty()) << body;
    EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(8U)) << body;
  }
}

// Without a digest name the URL ends with "integrity".
TEST_F(IntegrityCerts, AreRequestedAtShorterUrlWithoutDigest) {
  ASSERT_TRUE(Fetch(Json("{}"), "QOB.g", ""));
  EXPECT_THAT(http.GetLines(), ElementsAre("POST https://crypt.example/api/crypt/certlist/QOB.g/integrity"));
}

// Without a group the URL ends with "certlist": the later segments are dropped.
TEST_F(IntegrityCerts, AreRequestedAtShortestUrlWithoutGroup) {
  ASSERT_TRUE(Fetch(Json("{}"), "", "sha256"));
  EXPECT_THAT(http.GetLines(), ElementsAre("POST https://crypt.example/api/crypt/certlist"));
}

TEST_F(IntegrityCerts, StayAsTheyWereWhenTheExchangeFails) {
  EXPECT_FALSE(Fetch(NoExchange("no route")));
  EXPECT_EQ(Error(), "Could not get integrity certificates: no route");
  EXPECT_FALSE(Fetch(Status(404)));
  EXPECT_EQ(Error(), "Could not get integrity certificates: HTTP 404");
  EXPECT_FALSE(Fetch(Json("[")));
  EXPECT_THAT(Error(), StartsWith("Could not get integrity certificates: Could not parse response: "));
  EXPECT_EQ(JsonText(Val(certificates)), R"(["old"])");
}

TEST_F(IntegrityCerts, NeedAServiceUrl) {
  CryptClient other(&http, "", "", kRoom);
  EXPECT_FALSE(CryptClientTestPeer(other).FetchIntegrityCerts("g", certificates, "sha256"));
  EXPECT_EQ(Str(other.GetErrorMessage()), "Invalid URL");
}

TEST_F(IntegrityCerts, LeaveClientUnchanged) {
  peer.group = "group";
  ASSERT_TRUE(Fetch(Json(R"({"integrity":[],"group":"other","keyserver":["https://x"]})")));
  EXPECT_EQ(Str(peer.group), "group");
  EXPECT_TRUE(peer.keyServerCursor.servers.IsEmpty());
}

}  // namespace
}  // namespace OruKalvix
