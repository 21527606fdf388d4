#include <algorithm>
#include <cstring>

#include "foundation/errorstate.h"
#include "tests/support/client_internals_fixture.h"
#include "tests/support/pki.h"
#include "tests/support/scripted_services.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::Blob;
using TestSupport::Alive;
using TestSupport::Bytes;
using TestSupport::CannedResponse;
using TestSupport::Envelope;
using TestSupport::ErrorCode;
using TestSupport::LoadCert;
using TestSupport::Map;
using TestSupport::Payload;
using TestSupport::Pki;
using TestSupport::Quoted;
using TestSupport::Str;
using TestSupport::ToBase64;
using TestSupport::Token;
using TestSupport::TraceRecorder;

CannedResponse Signed(const std::string& list) {
  return Payload(R"({"type":"signResponse","signedHashes":)" + list + "}");
}

class Signing : public TestSupport::ClientInternalsTest {
 protected:
  Signing() { UseServers({"https://one.example", "https://two.example"}); }

  void Attempt(const CannedResponse& response) { http.Then(Alive()).Then(Token("t")).Then(response); }
  bool KeyServerSign(const Blob& hash = Bytes("hash")) {
    return peer.KeyServerSign(handle, "RSASSA-PKCS1-v1_5-SHA-256", hash.View(), value);
  }
  bool Sign(const char* hash = "aGFzaA==") {
    return client.Sign(handle, "RSASSA-PKCS1-v1_5-SHA-256", hash, signature);
  }

  OruGuiBase::KVMap handle = CryptClient::GetKeyHandle("key-1", "2");
  Blob value = Bytes("old value");
  AnsiStr signature = "old signature";
};

TEST_F(Signing, SendsHandleAlgorithmAndOneHash) {
  Attempt(Signed(R"(["c2lnbmVk"])"));
  ASSERT_TRUE(KeyServerSign());
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"signRequest","signatureKey":{"type":"handle","id":"key-1","subId":"2"},)"
                     R"("algorithm":"RSASSA-PKCS1-v1_5-SHA-256","hashesToBeSigned":["aGFzaA=="]})"));
  EXPECT_EQ(Str(value), "signed");
}

TEST_F(Signing, RequestsTokenForRoomAndHandle) {
  Attempt(Signed(R"(["c2lnbmVk"])"));
  ASSERT_TRUE(KeyServerSign());
  EXPECT_EQ(http.GetRequest(1).url, "https://crypt.example/api/crypt/authztoken/room%201");
  EXPECT_EQ(http.GetRequest(1).body, R"({"keyserver":"https://one.example","operation":"signRequest",)"
                                     R"("key":{"type":"handle","id":"key-1","subId":"2"}})");
}

TEST_F(Signing, SendsAnyHandleUnchanged) {
  handle = Map(R"({"subId":"x","more":[1],"type":"wrappedKey"})");
  Attempt(Signed(R"(["c2lnbmVk"])"));
  ASSERT_TRUE(KeyServerSign());
  EXPECT_NE(http.GetRequest(2).body.find(R"("signatureKey":{"subId":"x","more":[1],"type":"wrappedKey"})"),
            std::string::npos);
}

TEST_F(Signing, SendsALongHashInOneLine) {
  Attempt(Signed(R"(["c2lnbmVk"])"));
  const std::string hash(64, '\xFF');
  ASSERT_TRUE(KeyServerSign(Bytes(hash)));
  EXPECT_NE(http.GetRequest(2).body.find("\"hashesToBeSigned\":[\"" + ToBase64(hash) + "\"]"),
            std::string::npos);
  EXPECT_EQ(ToBase64(hash).find('\n'), std::string::npos);
}

TEST_F(Signing, ReturnsSignatureOfExactLength) {
  Attempt(Signed(R"(["YQ=="])"));
  ASSERT_TRUE(KeyServerSign());
  EXPECT_EQ(value.GetSize(), 1U);
  EXPECT_EQ(Str(value), "a");
}

TEST_F(Signing, IgnoresLineEndsInSignature) {
  Attempt(Signed(R"(["c2ln\r\nbmVk\r\n"])"));
  ASSERT_TRUE(KeyServerSign());
  EXPECT_EQ(Str(value), "signed");
}

// The size of the decoded hash is computed in 64 bits: from 715,827,883 characters on, six bits of each
// no longer fit 32.
TEST_F(Signing, DecodesHashOfAnyLength) {
  Attempt(Signed(R"(["c2lnbmVk"])"));
  AnsiStr hash;
  constexpr std::uint32_t kLength = 715'827'888;
  char* const text = hash.Alloc(kLength);
  std::memset(text, '\n', kLength);
  std::copy_n("aGFzaA==", 8, text);
  ASSERT_TRUE(client.Sign(handle, "algorithm", hash, signature));
  EXPECT_NE(http.GetRequest(2).body.find("\"hashesToBeSigned\":[\"aGFzaA==\"]"), std::string::npos);
}

TEST_F(Signing, ReadsTheFirstSignatureAlone) {
  const TraceRecorder traces;
  Attempt(Signed(R"(["c2lnbmVk",7,"%%%"])"));
  ASSERT_TRUE(KeyServerSign());
  EXPECT_EQ(Str(value), "signed");
  EXPECT_TRUE(traces.GetInvalidTypes().empty());
}

TEST_F(Signing, NeedsASignatureInTheResponse) {
  const struct {
    const char* payload;
    std::vector<std::uint32_t> reported;
    const char* reason;
  } rows[] = {
      {R"({"type":"signResponse"})", {8, 5}, "missing"},
      {R"({"type":"signResponse","signedHashes":"c2ln"})", {8, 5}, "no list"},
      {R"({"type":"signResponse","signedHashes":[]})", {5}, "an empty list"},
      {R"({"type":"signResponse","signedHashes":[7]})", {5}, "no text"},
      {R"({"type":"signResponse","signedHashes":[""]})", {}, "an empty text"},
      {R"({"type":"signResponse","signedHashes":["","c2ln"]})", {}, "a signature in second place"},
  };
  UseServers({"https://one.example"});
  http.Then(Alive());
  for (const auto& row : rows) {
    const TraceRecorder traces;
    http.Then(Token("t")).Then(Payload(row.payload));
    EXPECT_FALSE(KeyServerSign()) << row.reason;
    EXPECT_EQ(Error(), "Could not sign hash: Invalid signedHashes") << row.reason;
    EXPECT_EQ(traces.GetInvalidTypes(), row.reported) << row.reason;
    EXPECT_EQ(Str(value), "old value") << row.reason;
  }
}

TEST_F(Signing, ClearsSignatureWhenNoServerSendsBase64) {
  const Blob shared = value;
  Attempt(Signed(R"(["not base64!"])"));
  Attempt(Signed(R"(["YQ"])"));
  EXPECT_FALSE(KeyServerSign());
  EXPECT_EQ(Error(), "Could not decode signedHashes");
  EXPECT_TRUE(value.IsEmpty());
  EXPECT_EQ(Str(shared), "old value");
}

TEST_F(Signing, ReturnsSignatureAsBase64) {
  Attempt(Signed(R"(["c2lnbmVk"])"));
  ASSERT_TRUE(Sign());
  EXPECT_EQ(Str(signature), "c2lnbmVk");
  EXPECT_NE(http.GetRequest(2).body.find(R"("hashesToBeSigned":["aGFzaA=="])"), std::string::npos);
}

TEST_F(Signing, SendsHashWithoutItsLineEnds) {
  Attempt(Signed(R"(["c2ln\r\nbmVk"])"));
  ASSERT_TRUE(Sign("aGFz\r\naA==\r\n"));
  EXPECT_NE(http.GetRequest(2).body.find(R"("hashesToBeSigned":["aGFzaA=="])"), std::string::npos);
  EXPECT_EQ(Str(signature), "c2lnbmVk");
}

TEST_F(Signing, ReturnsLongSignatureInOneLine) {
  const std::string bytes(512, 's');
  Attempt(Signed("[" + Quoted(ToBase64(bytes)) + "]"));
  ASSERT_TRUE(Sign());
  EXPECT_EQ(Str(signature), ToBase64(bytes));
}

TEST_F(Signing, RefusesHashThatIsNotBase64AndSendsNothing) {
  for (const char* hash : {"not base64!", "YQ", "YQ=", "100%s", "A"}) {
    EXPECT_FALSE(Sign(hash)) << hash;
    EXPECT_EQ(Error(), std::string("Invalid base64 hash ") + hash);
  }
  EXPECT_EQ(http.GetRequestCount(), 0U);
  EXPECT_EQ(Str(signature), "old signature");
}

TEST_F(Signing, SendsEmptyHash) {
  UseServers({"https://one.example"});
  Attempt(ErrorCode(601));
  EXPECT_FALSE(Sign(""));
  EXPECT_EQ(Error(), "601 Invalid Payload");
  EXPECT_NE(http.GetRequest(2).body.find(R"("hashesToBeSigned":[""])"), std::string::npos);
}

TEST_F(Signing, SendsUnknownAlgorithm) {
  UseServers({"https://one.example"});
  Attempt(ErrorCode(608));
  EXPECT_FALSE(client.Sign(handle, "ROT-13", "aGFzaA==", signature));
  EXPECT_EQ(Error(), "608 Unsupported Algorithm");
  EXPECT_NE(http.GetRequest(2).body.find(R"("algorithm":"ROT-13")"), std::string::npos);
}

class SigningCallback : public Signing {
 protected:
  SigningCallback() {
    peer.integrityKey.id = "integrity";
    peer.integrityKey.subId = "7";
    peer.integrityKey.certificate = LoadCert(Pki::Get().integrity.certificate);
    OruGuiBase::ClearLastError();
  }
  bool SignHash() {
    const Blob hash = Bytes("hash");
    return static_cast<OruOssSec::ISignHash&>(client).SignHash(hash.View(), value);
  }
  void ExpectRefused() {
    peer.SetError("before");
    EXPECT_FALSE(SignHash());
    EXPECT_EQ(Error(), "before");
    EXPECT_EQ(Str(OruGuiBase::GetSystemErrorText()), "Could not sign hash: Invalid integrity key");
    EXPECT_EQ(OruGuiBase::GetLastError(), OruGuiBase::kTextError);
    EXPECT_EQ(http.GetRequestCount(), 0U);
    EXPECT_EQ(Str(value), "old value");
  }
};

TEST_F(SigningCallback, SignsWithTheIntegrityKey) {
  Attempt(Signed(R"(["c2lnbmVk"])"));
  ASSERT_TRUE(SignHash());
  EXPECT_EQ(Str(value), "signed");
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"signRequest","signatureKey":{"type":"handle","id":"integrity","subId":"7"},)"
                     R"("algorithm":"RSASSA-PKCS1-v1_5-SHA-512","hashesToBeSigned":["aGFzaA=="]})"));
}

TEST_F(SigningCallback, RefusesWithoutAnyIntegrityKey) {
  peer.integrityKey = IntegrityKey();
  ExpectRefused();
}

TEST_F(SigningCallback, RefusesAnIntegrityKeyWithoutId) {
  peer.integrityKey.id.Clear();
  ExpectRefused();
}

TEST_F(SigningCallback, RefusesAnIntegrityKeyWithoutSubId) {
  peer.integrityKey.subId.Clear();
  ExpectRefused();
}

TEST_F(SigningCallback, RefusesAnIntegrityKeyWithoutCertificate) {
  peer.integrityKey.certificate.Clear();
  ExpectRefused();
}

TEST_F(SigningCallback, PutsFailureIntoErrorState) {
  UseServers({"https://one.example"});
  Attempt(ErrorCode(609));
  EXPECT_FALSE(SignHash());
  EXPECT_EQ(Error(), "609 Auth Failed");
  EXPECT_EQ(Str(OruGuiBase::GetSystemErrorText()), "609 Auth Failed");
  EXPECT_EQ(OruGuiBase::GetLastError(), OruGuiBase::kTextError);
}

// A later hash is signed with the integrity key that is still there.
TEST_F(SigningCallback, SignsAgainWithTheSameKey) {
  Attempt(Signed(R"(["c2lnbmVk"])"));
  ASSERT_TRUE(SignHash());
  http.Then(Token("t")).Then(Signed(R"(["YWdhaW4="])"));
  ASSERT_TRUE(SignHash());
  EXPECT_EQ(Str(value), "again");
}

}  // namespace
}  // namespace OruKalvix
