#include "stand/crypt_service.h"

#include <gtest/gtest.h>

#include "tests/stand/stand_peer.h"

namespace CryptStand {
namespace {

class CryptServiceTest : public StandTest {
 protected:
  Reply FetchList(const std::string& room = "demo") {
    return Post(Service("crypt/certlist/" + room), Object("keyserver", ""));
  }
  Reply FetchDigests(const std::string& path = "QOB.1.100.1/integrity/sha256") {
    return Post(Service("crypt/certlist/" + path), Object("keyserver", ""));
  }
  Reply AskFor(const std::string& issuer, const std::string& serial) {
    return Post(Service("crypt/key/demo"),
                Object("id", Object("issuer", issuer.c_str(), "serial", serial.c_str())));
  }
  KVMap TokenRequest(const char* operation = "getKeyRequest") {
    return Object("keyserver", stand_.GetKeyServerUrls().front().c_str(), "operation", operation);
  }
  Reply AskForToken(const KVMap& body, const std::string& id = "demo") {
    return Post(Service("crypt/authztoken/" + id), body);
  }
};

TEST_F(CryptServiceTest, NamesRoomGroupAndKeyServersOfARoomWithoutKey) {
  const Reply reply = Get(Service("crypt/key/demo"));
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.Text("room"), "demo");
  EXPECT_EQ(reply.Text("group"), "QOB.1.100.1");
  EXPECT_EQ(reply.Text("statustimeout"), "5");
  EXPECT_EQ(ReadTexts(reply.Object(), "keyserver"), stand_.GetKeyServerUrls());
  EXPECT_EQ(ReadBool(reply.Object(), "certauth"), false);
  for (const char* name : {"certificate", "data", "plain", "errorid", "errortext"}) {
    EXPECT_FALSE(reply.Has(name)) << name;
  }
}

TEST_F(CryptServiceTest, RefusesAnUnknownRoomInTheResponse) {
  const Reply reply = Get(Service("crypt/key/other"));
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.Text("errorid"), kUnknownErrorId);
  EXPECT_EQ(reply.Text("errortext"), "Unknown room");
}

TEST_F(CryptServiceTest, RefusesALockedRoomWithItsOwnErrorId) {
  ASSERT_TRUE(stand_.SetRoomOptions("demo", {.locked = true}));
  EXPECT_EQ(Get(Service("crypt/key/demo")).Text("errorid"), "QOB.1.1001.1.422645");
  EXPECT_EQ(AskFor("x", "y").Text("errorid"), "QOB.1.1001.1.422645");
  EXPECT_EQ(FetchList().status, 403);
  EXPECT_EQ(AskForToken(TokenRequest()).status, 403);
}

TEST_F(CryptServiceTest, ReturnsTheUploadedKey) {
  const Reply reply = MakeRoomKey();
  EXPECT_EQ(Cert::FromPEM(reply.Text("certificate")).GetSubject(), "CN=demo-tr");
  EXPECT_FALSE(reply.Text("data").empty());
  EXPECT_FALSE(reply.Has("plain"));
}

TEST_F(CryptServiceTest, FindsAKeyByIssuerAndSerialAfterItWasReplaced) {
  const Reply first = MakeRoomKey();
  const Reply second = MakeRoomKey();
  EXPECT_NE(first.Text("data"), second.Text("data"));
  const Cert certificate = Cert::FromPEM(first.Text("certificate"));
  const Reply found = AskFor(certificate.GetIssuer(), certificate.GetSerial());
  EXPECT_EQ(found.Text("data"), first.Text("data"));
  EXPECT_EQ(found.Text("certificate"), first.Text("certificate"));
}

TEST_F(CryptServiceTest, LeavesTheKeyOutWhenItKnowsNoSuchCertificate) {
  const Cert certificate = Cert::FromPEM(MakeRoomKey().Text("certificate"));
  for (const auto& [issuer, serial] : {std::pair<std::string, std::string>{"CN=x", certificate.GetSerial()},
                                       {certificate.GetIssuer(), "00"},
                                       {"", certificate.GetSerial()},
                                       {certificate.GetIssuer(), ""}}) {
    const Reply reply = AskFor(issuer, serial);
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.Text("room"), "demo");
    EXPECT_FALSE(reply.Has("certificate"));
    EXPECT_FALSE(reply.Has("data"));
  }
}

TEST_F(CryptServiceTest, HandsOutThePlainKeyOnlyWhereItIsAllowed) {
  MakeRoomKey();
  ASSERT_TRUE(stand_.SetRoomOptions("demo", {.plainKey = true}));
  const Reply reply = Get(Service("crypt/key/demo"));
  const KeyPair key = KeyPair::FromPEM(reply.Text("plain"));
  ASSERT_FALSE(key.IsEmpty());
  EXPECT_EQ(key.ToPublicPEM(), Cert::FromPEM(reply.Text("certificate")).GetPublicKey().ToPublicPEM());
}

TEST_F(CryptServiceTest, ReportsWhenKeyServersHaveToBeProbed) {
  ASSERT_TRUE(stand_.SetRoomOptions("demo", {.certAuth = true}));
  EXPECT_EQ(ReadBool(Get(Service("crypt/key/demo")).Object(), "certauth"), true);
  EXPECT_EQ(ReadBool(FetchList().Object(), "certauth"), true);
}

TEST_F(CryptServiceTest, AnnouncesConfiguredAddressesAndTimeouts) {
  stand_.GetSettings().SetAnnouncedUrls(std::vector<std::string>{"http://127.0.0.1:1"});
  stand_.GetSettings().SetStatusTimeout("soon");
  const Reply reply = Get(Service("crypt/key/demo"));
  EXPECT_EQ(ReadTexts(reply.Object(), "keyserver"), std::vector<std::string>{"http://127.0.0.1:1"});
  EXPECT_EQ(reply.Text("statustimeout"), "soon");
}

TEST_F(CryptServiceTest, AcceptsAnyUtf8RoomId) {
  const std::string escaped = "%2Froom%20%C3%A4%25%0A%2F";
  ASSERT_TRUE(stand_.AddRoom("/room \xC3\xA4%\n/"));
  EXPECT_EQ(Get(Service("crypt/key/" + escaped)).Text("room"), "/room \xC3\xA4%\n/");
  EXPECT_EQ(FetchList(escaped).Text("room"), "/room \xC3\xA4%\n/");
}

TEST_F(CryptServiceTest, ListsTheMembersCertificatesWithASequenceNumber) {
  const Reply first = FetchList();
  const Reply second = FetchList();
  EXPECT_EQ(first.status, 200);
  EXPECT_EQ(first.Text("room"), "demo");
  EXPECT_EQ(first.Text("group"), "QOB.1.100.1");
  EXPECT_EQ(ReadTexts(first.Object(), "keyserver"), stand_.GetKeyServerUrls());
  const auto certificates = ReadTexts(first.Object(), "certificates");
  ASSERT_EQ(certificates->size(), 1U);
  EXPECT_EQ(CertFromText(certificates->front()).GetSubject(), "CN=Room member");
  EXPECT_NE(first.Text("seqnr"), "");
  EXPECT_EQ(first.Text("seqnr"), second.Text("seqnr"));
  EXPECT_EQ(ReadTexts(second.Object(), "certificates"), certificates);
}

TEST_F(CryptServiceTest, TakesAKeyForTheLatestSequenceNumberOnce) {
  stand_.GetSettings().SetSequencePerRequest(true);
  const std::string stale = FetchList().Text("seqnr");
  const std::string latest = FetchList().Text("seqnr");
  const Reply made = RunCommand(GeneratePayload());
  const std::string key = ReadText(made.Payload(), "encodedWrappedKey").value_or("");
  const auto upload = [&](const std::string& sequence) {
    return Post(Service("crypt/newkey/demo"), Object("seqnr", sequence.c_str(), "key", key.c_str())).status;
  };
  EXPECT_EQ(upload(stale), 409);
  EXPECT_EQ(upload(latest), 200);
  EXPECT_EQ(upload(latest), 409);
  EXPECT_EQ(upload(""), 409);
}

TEST_F(CryptServiceTest, RefusesAKeyThatNoKeyServerWrapped) {
  const std::string sequence = FetchList().Text("seqnr");
  for (const char* key : {"", "AAAA", "no base64"}) {
    EXPECT_EQ(Post(Service("crypt/newkey/demo"), Object("seqnr", sequence.c_str(), "key", key)).status, 400);
  }
}

TEST_F(CryptServiceTest, ListsTheDigestsOfTheIntegrityCertificates) {
  const Reply key = RunCommand(GetKeyPayload());
  const Cert certificate =
      CertFromText(ReadText(*ReadMap(key.Payload(), "key"), "encodedCertificate").value_or(""));
  ASSERT_FALSE(certificate.IsEmpty());
  EXPECT_EQ(ReadTexts(FetchDigests().Object(), "integrity"),
            std::vector<std::string>{certificate.GetDigest()});
}

TEST_F(CryptServiceTest, ListsEarlierIntegrityCertificatesToo) {
  const auto before = ReadTexts(FetchDigests().Object(), "integrity");
  ASSERT_TRUE(stand_.RenewIntegrityKey());
  const auto after = ReadTexts(FetchDigests().Object(), "integrity");
  ASSERT_EQ(after->size(), 2U);
  EXPECT_EQ(after->front(), before->front());
}

TEST_F(CryptServiceTest, ChangesTheListOfDigestsAsConfigured) {
  const std::string digest = ReadTexts(FetchDigests().Object(), "integrity")->front();
  Settings& settings = stand_.GetSettings();
  settings.SetIntegrityList(IntegrityList::Empty);
  EXPECT_EQ(ReadTexts(FetchDigests().Object(), "integrity"), std::vector<std::string>());
  settings.SetIntegrityList(IntegrityList::WithoutOurs);
  EXPECT_EQ(ReadTexts(FetchDigests().Object(), "integrity"), std::vector<std::string>{std::string(64, '0')});
  settings.SetIntegrityList(IntegrityList::UpperCase);
  const std::string upper = ReadTexts(FetchDigests().Object(), "integrity")->front();
  EXPECT_NE(upper, digest);
  EXPECT_EQ(strcasecmp(upper.c_str(), digest.c_str()), 0);
  settings.SetIntegrityList(IntegrityList::OtherTypes);
  const auto mixed = ReadArray(FetchDigests().Object(), "integrity");
  ASSERT_EQ(mixed->GetCount(), 4U);
  EXPECT_NE((*mixed)[0].GetType(), OruGuiBase::ValType::String);
  EXPECT_EQ((*mixed)[3].AsString().View(), digest);
}

TEST_F(CryptServiceTest, DoesNotKnowOtherGroupsAndDigests) {
  EXPECT_EQ(FetchDigests("other/integrity/sha256").status, 404);
  EXPECT_EQ(FetchDigests("QOB.1.100.1/integrity/md5").status, 404);
  EXPECT_EQ(FetchDigests("QOB.1.100.1/integrity").status, 404);
}

TEST_F(CryptServiceTest, GivesATokenForEveryCommand) {
  for (const char* operation :
       {"configGroupRequest", "reencryptRequest", "getAuditLogRequest", "generateWrappedKeyRequest",
        "modifyWrappedKeyRequest", "exportWrappedKeyRequest", "decryptRequest", "signRequest",
        "getKeyRequest", "importKeyRequest", "deleteKeyRequest"}) {
    const Reply reply = AskForToken(TokenRequest(operation));
    EXPECT_EQ(reply.status, 200) << operation;
    EXPECT_GT(reply.Text("authztoken").size(), 20U);
  }
}

TEST_F(CryptServiceTest, GivesATokenForAGroup) {
  EXPECT_EQ(AskForToken(TokenRequest("getAuditLogRequest"), "QOB.1.100.1").status, 200);
}

TEST_F(CryptServiceTest, RefusesATokenForAnUnknownId) {
  EXPECT_EQ(AskForToken(TokenRequest(), "x").status, 404);
}

TEST_F(CryptServiceTest, RefusesMalformedTokenRequests) {
  const std::string server = stand_.GetKeyServerUrls().front();
  const auto with = [&](const char* name, const Val& value, const char* operation = "signRequest") {
    KVMap body = TokenRequest(operation);
    body.Set(name, value);
    return body;
  };
  const struct {
    KVMap body;
    const char* reason;
  } rows[] = {
      {Object("operation", "signRequest"), "no key server"},
      {Object("keyserver", server.c_str()), "no operation"},
      {with("operation", Val("otherRequest")), "an operation that does not exist"},
      {with("operation", Val(std::int64_t{7})), "an operation that is no text"},
      {with("keyserver", Val("http://127.0.0.1:1")), "a key server of somebody else"},
      {with("keyserver", TextVal(server + "/")), "the key server's address is not to the letter"},
      {with("transaction", Val("")), "a transaction is left out, not empty"},
      {with("transaction", Val(std::int64_t{1})), "a transaction that is no text"},
      {with("key", Val(KVMap())), "an empty key is left out"},
      {with("key", Val("text")), "a key that is no object"},
      {with("key", Val(Object("type", "handle", "id", "integrity"))), "a handle without subId"},
      {with("key", Val(Object("type", "other", "id", "a", "subId", "b"))), "a key that is no handle"},
      {with("key", Val(Handle("1")), "getKeyRequest"), "a command that names no key"},
      {with("more", Val("x")), "a member too many"},
  };
  for (const auto& row : rows) EXPECT_EQ(AskForToken(row.body).status, 400) << row.reason;
  EXPECT_EQ(AskForToken(with("transaction", Val("t"))).status, 200);
  EXPECT_EQ(AskForToken(with("key", Val(Handle("1")))).status, 200);
}

TEST_F(CryptServiceTest, RefusesMalformedBodies) {
  for (const char* path : {"key/demo", "certlist/demo", "newkey/demo", "authztoken/demo",
                           "certlist/QOB.1.100.1/integrity/sha256"}) {
    for (const char* body :
         {"", "{", "[]", "7", "{}", "{\"x\":1}", "{\"keyserver\":7}", "{\"keyserver\":\"x\"}", "{\"id\":{}}",
          "{\"id\":{\"issuer\":\"\",\"serial\":1}}", "{\"seqnr\":\"1\"}", "{\"seqnr\":1,\"key\":\"x\"}"}) {
      const Reply reply = Post(Service("crypt/") + path, body);
      EXPECT_EQ(reply.status, 400) << path << " " << body;
      EXPECT_EQ(reply.Text("errorid"), kMalformedErrorId);
    }
  }
}

TEST_F(CryptServiceTest, RefusesOtherContentTypes) {
  for (const char* type : {"text/plain", "text/jsonx", ""}) {
    EXPECT_EQ(Post(Service("crypt/certlist/demo"), "{\"keyserver\":\"\"}", {}, type).status, 415) << type;
  }
  EXPECT_EQ(
      Post(Service("crypt/certlist/demo"), "{\"keyserver\":\"\"}", {}, "text/json; charset=utf-8").status,
      200);
}

TEST_F(CryptServiceTest, DoesNotKnowOtherPaths) {
  for (const char* path :
       {"", "crypt", "crypt/", "crypt/key", "crypt/key/", "crypt/key/demo/", "crypt/other/demo",
        "crypt/key/demo/x", "Crypt/key/demo", "crypt//demo", "crypt/key/%G0", "crypt/certlist/g/other/sha256",
        "crypt/certlist/g/integrity/sha256/x"}) {
    EXPECT_EQ(Get(Service(path)).status, 404) << path;
    EXPECT_EQ(Post(Service(path), "{}").status, 404) << path;
  }
}

TEST_F(CryptServiceTest, RefusesOtherMethods) {
  const Reply reply = Send("DELETE", Service("crypt/key/demo"));
  EXPECT_EQ(reply.status, 405);
  EXPECT_EQ(reply.Header("Allow"), "GET, POST");
  for (const char* path : {"certlist/demo", "newkey/demo", "authztoken/demo"}) {
    EXPECT_EQ(Get(Service("crypt/") + path).status, 405) << path;
    EXPECT_EQ(Get(Service("crypt/") + path).Header("Allow"), "POST");
  }
}

}  // namespace
}  // namespace CryptStand
