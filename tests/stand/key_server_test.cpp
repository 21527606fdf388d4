#include "stand/key_server.h"

#include <ctime>
#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

#include "tests/stand/stand_peer.h"

namespace CryptStand {
namespace {

class KeyServerTest : public StandTest {
 protected:
  // A correct envelope except for one member, which has another value or, if nil, is missing.
  static std::string EnvelopeWith(const char* name, const Val& value) {
    const KVMap right = Header();
    KVMap header;
    for (const auto& [key, member] : right) {
      if (key != name) header.Set(key, member);
    }
    if (!value.IsNil()) header.Set(name, value);
    return WriteObject(Object("header", header, "payload", GetKeyPayload()));
  }
  std::int64_t CodeOf(const std::string& envelope) {
    return Post(Server("rest/json"), envelope, {{"X-SEC-AUTHZTOKEN", FetchToken("getKeyRequest")}}).Code();
  }
  static KVMap With(KVMap payload, const char* name, const Val& value) {
    payload.Set(name, value);
    return payload;
  }
  static std::string TextIn(const Reply& reply, const char* name) {
    return ReadText(reply.Payload(), name).value_or("");
  }
};

std::time_t TimeOf(const std::string& date) {
  std::tm fields = {};
  return strptime(date.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &fields) != nullptr ? timegm(&fields) : 0;
}

TEST_F(KeyServerTest, ReportsItsTime) {
  const Reply reply = Get(Server("status?18446744073709551615"));
  EXPECT_EQ(reply.status, 200);
  EXPECT_LE(std::abs(TimeOf(reply.Header("Date")) - std::time(nullptr)), 2) << reply.Header("Date");
}

TEST_F(KeyServerTest, ReportsTheTimeOfItsOwnClock) {
  stand_.GetSettings().SetClockOffset(1, 86400);
  const auto ahead = [this](std::size_t server) {
    return TimeOf(Get(Server("status?1", server)).Header("Date")) - std::time(nullptr);
  };
  EXPECT_LE(std::abs(ahead(1) - 86400), 2);
  EXPECT_LE(std::abs(ahead(0)), 2);
}

TEST_F(KeyServerTest, GivesTheSameListsOnEveryServer) {
  const std::string certStore = Get(Server("certstore")).body;
  const std::string trustStore = Get(Server("truststore")).body;
  EXPECT_EQ(Cert::FromPEM(certStore).GetSubject(), "CN=Root,O=Development stand");
  EXPECT_EQ(Cert::FromPEM(trustStore).GetSubject(), "CN=Issuing,O=Development stand");
  for (std::size_t i = 1; i < 3; ++i) {
    EXPECT_EQ(Get(Server("certstore", i)).body, certStore);
    EXPECT_EQ(Get(Server("truststore", i)).body, trustStore);
  }
}

TEST_F(KeyServerTest, ReturnsConfiguredLists) {
  stand_.GetSettings().SetCertStoreText("broken");
  stand_.GetSettings().SetTrustStoreText("");
  EXPECT_EQ(Get(Server("certstore")).body, "broken");
  EXPECT_EQ(Get(Server("truststore")).status, 200);
  EXPECT_EQ(Get(Server("truststore")).body, "");
  stand_.GetSettings().SetTrustStoreText(std::nullopt);
  EXPECT_NE(Get(Server("truststore")).body, "");
}

TEST_F(KeyServerTest, DoesNotKnowOtherPathsAndMethods) {
  for (const char* path : {"", "rest", "rest/json/", "rest/json/x", "Status", "status/", "rest%2Fjson"}) {
    EXPECT_EQ(Get(Server(path)).status, 404) << path;
  }
  EXPECT_EQ(Get(Server("rest/json")).Header("Allow"), "POST");
  for (const char* path : {"status", "certstore", "truststore"}) {
    EXPECT_EQ(Post(Server(path), "{}").status, 405) << path;
    EXPECT_EQ(Post(Server(path), "{}").Header("Allow"), "GET") << path;
  }
}

TEST_F(KeyServerTest, RespondsInAnEnvelope) {
  const Reply reply = RunCommand(GetKeyPayload());
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(ReadText(*ReadMap(reply.Object(), "header"), "type"), "standardVelmoraHeader");
  EXPECT_EQ(reply.Type(), "getKeyResponse");
}

TEST_F(KeyServerTest, RefusesEnvelopesThatDifferInAnyMember) {
  const struct {
    std::string envelope;
    const char* reason;
  } rows[] = {
      {"", "nothing"},
      {"{", "no JSON"},
      {"[]", "no object"},
      {"{}", "no members"},
      {WriteObject(Object("payload", GetKeyPayload())), "no header"},
      {WriteObject(Object("header", Header())), "no payload"},
      {WriteObject(Object("header", Header(), "payload", "x")), "a payload that is no object"},
      {WriteObject(Object("header", Header(), "payload", GetKeyPayload(), "x", "x")), "a member too many"},
      {EnvelopeWith("type", Val("other")), "another header type"},
      {EnvelopeWith("type", Val()), "no header type"},
      {EnvelopeWith("commandId", Val()), "no command id"},
      {EnvelopeWith("commandId", Val(std::int64_t{1})), "a command id that is no text"},
      {EnvelopeWith("sessionId", Val()), "no session id"},
      {EnvelopeWith("path", Val("java-api-instance")), "a path that is no array"},
      {EnvelopeWith("path", TextsVal({})), "an empty path"},
      {EnvelopeWith("path", TextsVal({"java-api-instance", "x"})), "a longer path"},
      {EnvelopeWith("protocolVersion", Val("2.1")), "another version"},
      {EnvelopeWith("protocolVersion", Val(2.0)), "a version that is no text"},
      {EnvelopeWith("more", Val("x")), "a header member too many"},
  };
  for (const auto& row : rows) EXPECT_EQ(CodeOf(row.envelope), 601) << row.reason;
  EXPECT_EQ(CodeOf(WriteObject(Object("payload", GetKeyPayload(), "header", Header()))), 0)
      << "any order will do";
}

TEST_F(KeyServerTest, RefusesCommandsThatItDoesNotKnow) {
  for (const char* type : {"otherRequest", "", "getKeyResponse", "GetKeyRequest"}) {
    EXPECT_EQ(RunCommand(Object("type", type)).Code(), 601) << type;
  }
}

TEST_F(KeyServerTest, RefusesAnotherContentType) {
  const std::string envelope = WriteObject(Object("header", Header(), "payload", GetKeyPayload()));
  EXPECT_EQ(Post(Server("rest/json"), envelope, {}, "application/xml").status, 415);
}

TEST_F(KeyServerTest, RefusesACommandWithoutToken) {
  const std::string envelope = WriteObject(Object("header", Header(), "payload", GetKeyPayload()));
  EXPECT_EQ(Post(Server("rest/json"), envelope).Code(), 609);
  EXPECT_EQ(PostCommand(GetKeyPayload(), "").Code(), 609);
  EXPECT_EQ(PostCommand(GetKeyPayload(), "made up").Code(), 609);
}

TEST_F(KeyServerTest, TakesATokenOnce) {
  const std::string token = FetchToken("getKeyRequest");
  EXPECT_EQ(PostCommand(GetKeyPayload(), token).Code(), 0);
  EXPECT_EQ(PostCommand(GetKeyPayload(), token).Code(), 609);
}

TEST_F(KeyServerTest, TakesATokenOnItsOwnServerAlone) {
  EXPECT_EQ(PostCommand(GetKeyPayload(), FetchToken("getKeyRequest"), 1).Code(), 609);
}

TEST_F(KeyServerTest, AcceptsATokenOnlyForItsOwnCommand) {
  EXPECT_EQ(PostCommand(GetKeyPayload(), FetchToken("decryptRequest")).Code(), 609);
}

TEST_F(KeyServerTest, AcceptsATokenOnlyForItsOwnKey) {
  RunCommand(GetKeyPayload());
  ASSERT_TRUE(stand_.RenewIntegrityKey());
  EXPECT_EQ(RunCommand(SignPayload("1"), "demo", "2").Code(), 609);
  EXPECT_EQ(RunCommand(SignPayload("1"), "demo", "").Code(), 609);
  EXPECT_EQ(RunCommand(SignPayload("2"), "demo", "2").Code(), 0);
}

TEST_F(KeyServerTest, RefusesAnExpiredToken) {
  stand_.SetTokenLifetime(std::chrono::milliseconds(0));
  EXPECT_EQ(RunCommand(GetKeyPayload()).Code(), 609);
}

TEST_F(KeyServerTest, RefusesTwoTokens) {
  const std::string envelope = WriteObject(Object("header", Header(), "payload", GetKeyPayload()));
  const Reply reply = Post(Server("rest/json"), envelope,
                           {{"X-SEC-AUTHZTOKEN", FetchToken("getKeyRequest")}, {"X-SEC-AUTHZTOKEN", "x"}});
  EXPECT_EQ(reply.Code(), 609);
}

class GenerateTest : public KeyServerTest {};

TEST_F(GenerateTest, MakesARoomKeyThatOnlyKeyServersOpen) {
  const Reply reply = RunCommand(GeneratePayload());
  EXPECT_EQ(reply.Type(), "generateWrappedKeyResponse");
  const Cert certificate = CertFromText(TextIn(reply, "encodedX509Certificate"));
  EXPECT_EQ(certificate.GetSubject(), "CN=demo-tr");
  EXPECT_EQ(certificate.GetIssuer(), "CN=Inner signing,O=Development stand");
  EXPECT_EQ(EVP_PKEY_get_bits(certificate.GetPublicKey().Get0()), 2048);
  const auto wrapped = FromBase64(TextIn(reply, "encodedWrappedKey"));
  ASSERT_TRUE(wrapped.has_value());
  EXPECT_EQ(wrapped->find("PRIVATE KEY"), std::string::npos);
}

TEST_F(GenerateTest, MakesAnotherKeyEachTime) {
  EXPECT_NE(TextIn(RunCommand(GeneratePayload()), "encodedX509Certificate"),
            TextIn(RunCommand(GeneratePayload()), "encodedX509Certificate"));
}

TEST_F(GenerateTest, MakesKeysForRoomsWithLongNames) {
  const std::string room(200, 'r');
  ASSERT_TRUE(stand_.AddRoom(room));
  const Reply reply = RunCommand(GeneratePayload(room), room);
  EXPECT_EQ(CertFromText(TextIn(reply, "encodedX509Certificate")).GetSubject(), "CN=" + room + "-tr");
}

TEST_F(GenerateTest, RefusesMalformedPayloads) {
  const auto entry = [](const char* type, const std::string& text) {
    OruGuiBase::Array<Val> list;
    list.Append(Val(Object("type", type, "encodedCertificate", text.c_str())));
    return Val(list);
  };
  const struct {
    KVMap payload;
    int code;
    const char* reason;
  } rows[] = {
      {Object("type", "generateWrappedKeyRequest"), 601, "members are missing"},
      {With(GeneratePayload(), "more", Val("x")), 601, "a member too many"},
      {With(GeneratePayload(), "keyType", Val("rsa")), 602, "a key type"},
      {With(GeneratePayload(), "certificateSubject", Val("CN=other-tr")), 601, "another room's subject"},
      {With(GeneratePayload(), "certificateSubject", Val("O=demo-tr")), 601, "another subject"},
      {With(GeneratePayload(), "encryptionKeys", Val("x")), 601, "no array"},
      {With(GeneratePayload(), "encryptionKeys", TextsVal({"x"})), 601, "an entry that is no object"},
      {With(GeneratePayload(), "encryptionKeys", entry("handle", "")), 602, "another type of key"},
      {With(GeneratePayload(), "encryptionKeys", entry("externalCertificate", "")), 603, "no certificate"},
      {With(GeneratePayload(), "encryptionKeys", entry("externalCertificate", "AAAA")), 603,
       "not one either"},
  };
  for (const auto& row : rows) EXPECT_EQ(RunCommand(row.payload).Code(), row.code) << row.reason;
}

class GetKeyTest : public KeyServerTest {};

TEST_F(GetKeyTest, GivesTheIntegrityKeyInUse) {
  const auto key = ReadMap(RunCommand(GetKeyPayload()).Payload(), "key");
  ASSERT_TRUE(key.has_value());
  EXPECT_EQ(ReadText(*key, "id"), "integrity");
  EXPECT_EQ(ReadText(*key, "subId"), "1");
  const Cert certificate = CertFromText(ReadText(*key, "encodedCertificate").value_or(""));
  EXPECT_EQ(certificate.GetIssuer(), "CN=Issuing,O=Development stand");
}

TEST_F(GetKeyTest, GivesAnEarlierKeyByItsSubId) {
  RunCommand(GetKeyPayload());
  ASSERT_TRUE(stand_.RenewIntegrityKey());
  EXPECT_EQ(ReadText(*ReadMap(RunCommand(GetKeyPayload()).Payload(), "key"), "subId"), "2");
  EXPECT_EQ(ReadText(*ReadMap(RunCommand(GetKeyPayload("1")).Payload(), "key"), "subId"), "1");
}

TEST_F(GetKeyTest, RefusesOtherKeysAndPayloads) {
  const struct {
    KVMap payload;
    int code;
    const char* reason;
  } rows[] = {
      {GetKeyPayload("9"), 607, "no such sub-identifier"},
      {With(GetKeyPayload(), "key", Val(Handle("", "other"))), 607, "no such identifier"},
      {With(GetKeyPayload(), "key", Val(Object("type", "x", "id", "integrity", "subId", ""))), 602,
       "no handle"},
      {With(GetKeyPayload(), "key", Val(Object("type", "handle", "id", "integrity"))), 601, "no subId"},
      {With(GetKeyPayload(), "key", Val("x")), 601, "no object"},
      {With(GetKeyPayload(), "representation", Val("key")), 601, "another representation"},
      {With(GetKeyPayload(), "more", Val("x")), 601, "a member too many"},
  };
  for (const auto& row : rows) EXPECT_EQ(RunCommand(row.payload).Code(), row.code) << row.reason;
}

class SignTest : public KeyServerTest {
 protected:
  Cert IntegrityCertificate() {
    const auto key = ReadMap(RunCommand(GetKeyPayload()).Payload(), "key");
    return CertFromText(ReadText(key.value_or(KVMap()), "encodedCertificate").value_or(""));
  }
  static std::string Sha512(const std::string& text) {
    std::string hash(64, '\0');
    unsigned int size = 0;
    EVP_Digest(text.data(), text.size(), reinterpret_cast<unsigned char*>(hash.data()), &size, EVP_sha512(),
               nullptr);
    return hash;
  }
};

TEST_F(SignTest, SignsEachHash) {
  const Cert certificate = IntegrityCertificate();
  const Val hashes = TextsVal({ToBase64(Sha512("one")), ToBase64(Sha512("two"))});
  const Reply reply = RunCommand(With(SignPayload(), "hashesToBeSigned", hashes), "demo", "1");
  EXPECT_EQ(reply.Type(), "signResponse");
  const auto signatures = ReadTexts(reply.Payload(), "signedHashes");
  ASSERT_EQ(signatures.value_or(std::vector<std::string>()).size(), 2U);
  const KeyPair key = certificate.GetPublicKey();
  EXPECT_TRUE(key.Verify("one", *FromBase64(signatures->at(0)), kSHA512));
  EXPECT_TRUE(key.Verify("two", *FromBase64(signatures->at(1)), kSHA512));
  EXPECT_FALSE(key.Verify("one", *FromBase64(signatures->at(1)), kSHA512));
}

TEST_F(SignTest, RefusesOtherKeysAlgorithmsAndPayloads) {
  const struct {
    KVMap payload;
    const char* subId;
    int code;
    const char* reason;
  } rows[] = {
      {SignPayload("9"), "9", 607, "no such key"},
      {With(SignPayload(), "algorithm", Val("RSASSA-PSS")), "1", 608, "another algorithm"},
      {With(SignPayload(), "algorithm", Val("RSASSA-PKCS1-v1_5-SHA-256")), "1", 601,
       "a hash of another digest"},
      {With(SignPayload(), "algorithm", Val(std::int64_t{1})), "1", 601, "an algorithm that is no text"},
      {With(SignPayload(), "hashesToBeSigned", TextsVal({"no base64"})), "1", 604, "no base64"},
      {With(SignPayload(), "hashesToBeSigned", TextsVal({"AAAA"})), "1", 601, "a hash of another size"},
      {With(SignPayload(), "hashesToBeSigned", TextsVal({})), "1", 601, "no hash"},
      {With(SignPayload(), "hashesToBeSigned", Val("x")), "1", 601, "no array"},
      {With(SignPayload(), "signatureKey", Val(Object("type", "wrappedKey", "id", "a", "subId", "1"))), "1",
       602, "no handle"},
      {With(SignPayload(), "more", Val("x")), "1", 601, "a member too many"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(RunCommand(row.payload, "demo", row.subId).Code(), row.code) << row.reason;
}

class DecryptTest : public KeyServerTest {};

TEST_F(DecryptTest, OpensContentKeysOfARoom) {
  const Reply room = MakeRoomKey();
  const KeyPair key = Cert::FromPEM(room.Text("certificate")).GetPublicKey();
  const std::string block = ToBase64(key.Encrypt("content key"));
  const Reply reply = RunCommand(DecryptPayload(room.Text("data"), block));
  EXPECT_EQ(reply.Type(), "decryptResponse");
  EXPECT_EQ(ReadTexts(reply.Payload(), "plainData"), std::vector<std::string>{ToBase64("content key")});
}

TEST_F(DecryptTest, OpensThemOnEveryServer) {
  const Reply room = MakeRoomKey();
  const KeyPair key = Cert::FromPEM(room.Text("certificate")).GetPublicKey();
  const KVMap payload = DecryptPayload(room.Text("data"), ToBase64(key.Encrypt("content key")));
  const std::string url = stand_.GetKeyServerUrls().at(2);
  const KVMap request = Object("keyserver", url.c_str(), "operation", "decryptRequest");
  const std::string token = Post(Service("crypt/authztoken/demo"), request).Text("authztoken");
  EXPECT_EQ(PostCommand(payload, token, 2).Type(), "decryptResponse");
}

TEST_F(DecryptTest, RefusesOtherKeysAlgorithmsAndPayloads) {
  const std::string data = MakeRoomKey().Text("data");
  const KVMap good = DecryptPayload(data, "AAAA");
  const struct {
    KVMap payload;
    int code;
    const char* reason;
  } rows[] = {
      {good, 601, "a block of another size"},
      {DecryptPayload(data, ToBase64(std::string(256, '\x01'))), 601, "a block that does not open"},
      {DecryptPayload(data, "no base64"), 604, "no base64"},
      {DecryptPayload("", "AAAA"), 605, "no wrapped key"},
      {DecryptPayload("AAAA", "AAAA"), 605, "not a wrapped key"},
      {DecryptPayload(data.substr(0, data.size() - 4), "AAAA"), 605, "a cut wrapped key"},
      {With(good, "algorithm", Val("RSAES-OAEP")), 608, "another algorithm"},
      {With(good, "algorithm", Val()), 601, "an algorithm that is no text"},
      {With(good, "encryptedData", TextsVal({})), 601, "no block"},
      {With(good, "encryptedData", Val("AAAA")), 601, "no array"},
      {With(good, "decryptionKey", Val(Handle("1"))), 601, "a handle"},
      {With(good, "decryptionKey", Val(Object("type", "handle", "encodedWrappedKey", "x"))), 602,
       "another type"},
      {With(good, "more", Val("x")), 601, "a member too many"},
  };
  for (const auto& row : rows) EXPECT_EQ(RunCommand(row.payload).Code(), row.code) << row.reason;
}

}  // namespace
}  // namespace CryptStand
