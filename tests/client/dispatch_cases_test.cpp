#include "tests/client/dispatch_fixture.h"
#include "tests/support/files.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using TestSupport::Alive;
using TestSupport::Envelope;
using TestSupport::ErrorCode;
using TestSupport::Payload;
using TestSupport::ScratchDirectory;
using TestSupport::Token;
using TestSupport::TraceRecorder;

class DispatchedArguments : public DispatchedCase {
 protected:
  /// The types that an operation asks of its arguments, in the order in which it asks, when it has none.
  std::vector<std::uint32_t> TypesRead(std::string_view operation) {
    const TraceRecorder traces;
    Perform(operation, "{}");
    return traces.GetInvalidTypes();
  }
};

struct OrderRow {
  const char* operation;
  std::vector<std::uint32_t> types;
};

TEST_F(DispatchedArguments, AreReportedInOrderOfReadingWhenMissing) {
  const ScratchDirectory scratch;
  const OrderRow rows[] = {
      {"ConfigGroup", {kList, kText, kText, kText, kText, kText, kList, kList, kList}},
      {"Reencrypt", {kList, kText, kText, kText, kText}},
      {"GetAuditLog", {kList, kText, kText, kText}},
      {"Update", {kList, kText, kText, kText, kList, kList, kBool}},
      {"ImportKey", {kList, kText, kText, kText, kText, kText, kText}},
      {"DeleteKey", {kList, kText, kText, kText, kMap}},
      {"SignByKey", {kList, kText, kText, kText, kMap, kText, kText, kText, kText}},
      {"Encrypt", {kList, kText, kText, kText, kList, kText}},
      {"Decrypt", {kList, kText, kText, kText, kList}},
  };
  for (const OrderRow& row : rows) {
    EXPECT_THAT(TypesRead(row.operation), ElementsAreArray(row.types)) << row.operation;
  }
}

// An argument of another type is sent as the empty value, and the key server decides.
TEST_F(DispatchedArguments, AreSentEmptyWhenTypeIsWrong) {
  Respond(Payload(R"({"type":"importKeyResponse"})"));
  EXPECT_EQ(Perform("ImportKey", With(R"(,"group":"g","id":7,"key":true,"password":["p"])")), 0);
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"importKeyRequest","groupId":"g","id":"","encodedKey":"","password":""})"));
}

// ---- Groups

// "ConfigGroup" sends group, names, certificates and URLs, with the transaction in its token request.
TEST_F(DispatchedCase, ConfigGroupPassesAllArguments) {
  Respond(Payload(R"({"type":"configGroupResponse"})"));
  EXPECT_EQ(Perform("ConfigGroup",
                    With(R"(,"transaction":"T","group":"g","groupname":"n","ownergroup":"o",)"
                         R"("authnrootcerts":["r"],"authnissuingcerts":["i"],"authncrlurls":["u"])")),
            0);
  EXPECT_THAT(http.GetLines(), ElementsAre(kProbe, TokenLine("g"), kPost));
  EXPECT_EQ(http.GetRequest(1).body,
            R"({"keyserver":"https://one.example","operation":"configGroupRequest","transaction":"T"})");
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"configGroupRequest","groupId":"g","groupName":"n","ownerGroupId":"o",)"
                     R"("authnRootCertificates":["r"],"authnIssuingCertificates":["i"],)"
                     R"("authnCrlUrls":["u"]})"));
  EXPECT_EQ(Result(), "{}");
}

// "Reencrypt" sends group and certificate, with the transaction in its token request.
TEST_F(DispatchedCase, ReencryptPassesGroupAndCertificate) {
  Respond(Payload(R"({"type":"reencryptResponse"})"));
  EXPECT_EQ(Perform("Reencrypt", With(R"(,"transaction":"T","group":"g","enccert":"c")")), 0);
  EXPECT_THAT(http.GetLines(), ElementsAre(kProbe, TokenLine("g"), kPost));
  EXPECT_THAT(http.GetRequest(1).body, HasSubstr(R"("transaction":"T")"));
  EXPECT_EQ(http.GetRequest(2).body, Envelope(R"({"type":"reencryptRequest","groupId":"g","encryptionKey":)"
                                              R"({"type":"externalCertificate","encodedCertificate":"c"}})"));
  EXPECT_EQ(Result(), "{}");
}

// "ImportKey" sends id, key and password, with the transaction in its token request.
TEST_F(DispatchedCase, ImportKeyPassesKeyAndPassword) {
  Respond(Payload(R"({"type":"importKeyResponse"})"));
  EXPECT_EQ(Perform("ImportKey", With(R"(,"transaction":"T","group":"g","id":"i","key":"k","password":"p")")),
            0);
  EXPECT_THAT(http.GetRequest(1).body, HasSubstr(R"("transaction":"T")"));
  EXPECT_EQ(
      http.GetRequest(2).body,
      Envelope(R"({"type":"importKeyRequest","groupId":"g","id":"i","encodedKey":"k","password":"p"})"));
  EXPECT_EQ(Result(), "{}");
}

// "DeleteKey" shows the key handle to the crypt service and to the key server.
TEST_F(DispatchedCase, DeleteKeyPassesHandleToTokenAndCommand) {
  Respond(Payload(R"({"type":"deleteKeyResponse"})"));
  EXPECT_EQ(Perform("DeleteKey", With(R"(,"transaction":"T","group":"g","key":{"id":"i","extra":1})")), 0);
  EXPECT_EQ(http.GetRequest(1).body,
            R"({"keyserver":"https://one.example","operation":"deleteKeyRequest","transaction":"T",)"
            R"("key":{"id":"i","extra":1}})");
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"deleteKeyRequest","groupId":"g","key":{"id":"i","extra":1}})"));
  EXPECT_EQ(Result(), "{}");
}

TEST_F(DispatchedCase, LeavesAnAbsentTransactionOutOfTheTokenRequest) {
  Respond(Payload(R"({"type":"reencryptResponse"})"));
  EXPECT_EQ(Perform("Reencrypt", With(R"(,"group":"g")")), 0);
  EXPECT_EQ(http.GetRequest(1).body, R"({"keyserver":"https://one.example","operation":"reencryptRequest"})");
}

// ---- Signing

TEST_F(DispatchedCase, SignByKeyWorksForTheObjectAndTheGivenKey) {
  Respond(Signed());
  EXPECT_EQ(Perform("SignByKey", With(R"(,"transaction":"T","object":"obj","key":{"id":"k"},"id":"i",)"
                                      R"("subid":"s","algorithm":"RSA","hash":"AAEC")")),
            0);
  EXPECT_THAT(http.GetLines(), ElementsAre(kProbe, TokenLine("obj"), kPost));
  EXPECT_EQ(http.GetRequest(1).body,
            R"({"keyserver":"https://one.example","operation":"signRequest","transaction":"T",)"
            R"("key":{"id":"k"}})");
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"signRequest","signatureKey":{"id":"k"},"algorithm":"RSA",)"
                     R"("hashesToBeSigned":["AAEC"]})"));
  EXPECT_EQ(Result(), R"({"signature":"c2lnbmVk"})");
  EXPECT_EQ(Error(), "before");
}

TEST_F(DispatchedCase, SignByKeyBuildsHandleFromIdAndSubId) {
  for (const char* key : {"", R"(,"key":{})", R"(,"key":"k")", R"(,"key":null)"}) {
    SCOPED_TRACE(key);
    Respond(Signed());
    EXPECT_EQ(
        Perform("SignByKey", With(std::string(key) + R"(,"object":"o","id":"i","subid":"s","hash":"")")), 0);
    EXPECT_THAT(http.GetRequests().back().body,
                HasSubstr(R"("signatureKey":{"type":"handle","id":"i","subId":"s"})"));
  }
}

TEST_F(DispatchedCase, SignByKeyReadsTheSubIdInLowerCaseOnly) {
  Respond(Signed());
  EXPECT_EQ(Perform("SignByKey", With(R"(,"object":"o","id":"i","subId":"s","hash":"")")), 0);
  EXPECT_THAT(http.GetRequest(2).body, HasSubstr(R"("signatureKey":{"type":"handle","id":"i","subId":""})"));
}

TEST_F(DispatchedCase, SignByKeyFailsOnAHashThatIsNoBase64WithoutAnyExchange) {
  EXPECT_EQ(Perform("SignByKey", With(R"(,"object":"o","id":"i","subid":"s","hash":"!")")), kFailed);
  EXPECT_EQ(Error(), "Invalid base64 hash !");
  EXPECT_TRUE(result.IsNil());
  EXPECT_EQ(http.GetRequestCount(), 0U);
}

// ---- Wrapped keys

// "Encrypt" makes a room key and gives room, sequence number and key back.
TEST_F(DispatchedCase, EncryptMakesANewRoomKey) {
  for (const char* name : {"Encrypt", "CryptEncrypt"}) {
    Respond(Generated());
    EXPECT_EQ(Perform(name, With(R"(,"transaction":"T","room":"r 1","seqnr":"42","certificates":["c"])")), 0);
    EXPECT_EQ(Result(), R"({"room":"r 1","seqnr":"42","newkey":"new"})");
    EXPECT_EQ(Error(), "before");
  }
  EXPECT_EQ(http.GetLines()[1], TokenLine("r%201"));
  EXPECT_EQ(http.GetRequest(1).body, R"({"keyserver":"https://one.example",)"
                                     R"("operation":"generateWrappedKeyRequest","transaction":"T"})");
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"generateWrappedKeyRequest","keyType":"","certificateSubject":"CN=r 1-tr",)"
                     R"("encryptionKeys":[{"type":"externalCertificate","encodedCertificate":"c"}]})"));
}

// "Encrypt" reads its transaction last of all arguments, and sends it all the same.
TEST_F(DispatchedCase, EncryptSetsTheTransactionBeforeItMakesTheKey) {
  Respond(Generated());
  EXPECT_EQ(Perform("Encrypt", With(R"(,"room":"r","certificates":[],"transaction":"T")")), 0);
  EXPECT_THAT(http.GetRequest(1).body, HasSubstr(R"("transaction":"T")"));
}

TEST_F(DispatchedCase, EncryptFailsWithTheReasonOfTheKeyServer) {
  Respond(ErrorCode(615));
  EXPECT_EQ(Perform("Encrypt", With(R"(,"room":"r","seqnr":"42")")), kFailed);
  EXPECT_EQ(Error(), "615 Key Generation Error");
  EXPECT_TRUE(result.IsNil());
}

TEST_F(DispatchedCase, EncryptReturnsEmptyRoomAndSequenceNumberWhenMissing) {
  http.Then(Alive()).Then(Token("t")).Then(Generated());
  EXPECT_EQ(Perform("Encrypt", With("")), 0);
  EXPECT_EQ(Result(), R"({"room":"","seqnr":"","newkey":"new"})");
}

// "Decrypt" exports each key, and sends no transaction though one is given.
TEST_F(DispatchedCase, DecryptExportsEachKeyWithoutATransaction) {
  Respond(Exported("plain one"));
  RespondNext(Exported("plain two"));
  EXPECT_EQ(Perform("Decrypt", With(R"(,"transaction":"T","room":"r","seqnr":"42",)"
                                    R"("keys":[{"id":"1","data":"d1"},{"id":"2","data":"d2"}])")),
            0);
  EXPECT_EQ(Result(), R"({"room":"r","seqnr":"42","keys":[{"id":"1","plain":"plain one"},)"
                      R"({"id":"2","plain":"plain two"}]})");
  EXPECT_EQ(http.GetRequest(1).body,
            R"({"keyserver":"https://one.example","operation":"exportWrappedKeyRequest"})");
  EXPECT_THAT(http.GetLines(), ElementsAre(kProbe, TokenLine("r"), kPost, TokenLine("r"), kPost));
}

// "Decrypt" of no keys succeeds without key servers.
TEST_F(DispatchedCase, DecryptOfEmptyListNeedsNoServer) {
  EXPECT_EQ(Perform("Decrypt", R"({"room":"r","seqnr":"42"})"), 0);
  EXPECT_EQ(Result(), R"({"room":"r","seqnr":"42","keys":[]})");
}

// "Decrypt" fails as a whole when one key cannot be exported.
TEST_F(DispatchedCase, DecryptReturnsNoKeysWhenOneFails) {
  Respond(Exported("plain one"));
  RespondNext(ErrorCode(605));
  EXPECT_EQ(Perform("Decrypt", With(R"(,"room":"r","keys":[{"id":"1","data":"d1"},{"id":"2"}])")), kFailed);
  EXPECT_EQ(Error(), "605 Invalid Wrapped Key");
  EXPECT_TRUE(result.IsNil());
}

}  // namespace
}  // namespace OruKalvix
