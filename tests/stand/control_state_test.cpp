#include <gtest/gtest.h>

#include "tests/stand/control_peer.h"
#include "tests/stand/folder.h"

namespace CryptStand {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

class ControlStateTest : public ControlTest {};

TEST_F(ControlStateTest, ChangesRoomOptions) {
  EXPECT_EQ(Change("POST", "rooms", R"({"room":"demo","locked":true,"plainKey":true})").status, 200);
  EXPECT_EQ(Change("POST", "rooms", R"({"room":"demo","locked":false})").status, 200);
  const KVMap room = Read("rooms/demo");
  EXPECT_EQ(ReadBool(room, "locked"), false);
  EXPECT_EQ(ReadBool(room, "plainKey"), true);
  EXPECT_EQ(ReadBool(room, "certAuth"), false);
  EXPECT_EQ(ReadBool(room, "hasKey"), false);
  EXPECT_TRUE(room.Get("certificate").IsNil());
}

TEST_F(ControlStateTest, NamesTheRun) {
  Stand other;
  std::string error;
  ASSERT_TRUE(other.Start(error)) << error;
  const KVMap state = Peer().Send("GET", other.GetServiceUrl() + "stand/v1/state").Object();
  ASSERT_NE(ReadText(state, "started"), std::nullopt);
  EXPECT_NE(ReadText(state, "started"), ReadText(Read("state"), "started"));
}

TEST_F(ControlStateTest, AddsRoomsAndGroups) {
  EXPECT_EQ(Change("POST", "groups", R"({"group":"QOB.1.100.2","name":"Other"})").status, 200);
  EXPECT_EQ(Change("POST", "groups", R"({"group":"QOB.1.100.2"})").status, 409);
  EXPECT_EQ(Change("POST", "rooms", R"({"room":"a b","group":"QOB.1.100.2","certAuth":true})").status, 200);
  EXPECT_EQ(ReadText(Read("rooms/a%20b"), "group"), "QOB.1.100.2");
  EXPECT_EQ(ReadBool(Get(Service("crypt/key/a%20b")).Object(), "certauth"), true);
  const KVMap group = ReadList("groups", "groups").at(1);
  EXPECT_EQ(ReadText(group, "name"), "Other");
  EXPECT_EQ(ReadTexts(group, "rooms"), std::vector<std::string>{"a b"});
  EXPECT_EQ(Get(Path("rooms/none")).status, 404);
}

TEST_F(ControlStateTest, ShowsRoomKeysAndTheirReaders) {
  const Cert key = Cert::FromPEM(MakeRoomKey().Text("certificate"));
  const KVMap room = Read("rooms/demo");
  const KVMap certificate = ReadMap(room, "certificate").value_or(KVMap());
  EXPECT_EQ(ReadText(certificate, "subject"), key.GetSubject());
  EXPECT_EQ(ReadText(certificate, "serial"), key.GetSerial());
  EXPECT_EQ(ReadText(certificate, "digest"), key.GetDigest());
  EXPECT_THAT(*ReadText(certificate, "notAfter"), testing::MatchesRegex("20..-..-..T..:..:..Z"));
  EXPECT_EQ(ReadInteger(room, "keys"), 1);
  EXPECT_EQ(ReadText(room, "shown"), "good");
  EXPECT_TRUE(ReadTexts(room, "readers").has_value());
}

TEST_F(ControlStateTest, ShowsRoomsWithOtherCertificates) {
  const Cert good = Cert::FromPEM(MakeRoomKey().Text("certificate"));
  const struct {
    const char* name;
    const char* issuer;
  } rows[] = {{"foreign", "CN=Foreign root,O=Development stand"},
              {"wrong-issuer", "CN=Issuing,O=Development stand"},
              {"expired", "CN=Inner signing,O=Development stand"},
              {"good", "CN=Inner signing,O=Development stand"}};
  for (const auto& row : rows) {
    const std::string body = std::string(R"({"room":"demo","certificate":")") + row.name + "\"}";
    EXPECT_EQ(Change("POST", "rooms", body).status, 200);
    EXPECT_EQ(ReadText(Read("rooms/demo"), "shown"), row.name);
    const Cert shown = Cert::FromPEM(Get(Service("crypt/key/demo")).Text("certificate"));
    EXPECT_EQ(shown.GetIssuer(), row.issuer);
    EXPECT_EQ(shown.GetSerial(), good.GetSerial());
    EXPECT_EQ(shown.GetPublicKey().ToPublicPEM(), good.GetPublicKey().ToPublicPEM());
    const bool isOver = X509_cmp_current_time(X509_get0_notAfter(shown.Get0())) < 0;
    EXPECT_EQ(isOver, std::string(row.name) == "expired");
  }
}

TEST_F(ControlStateTest, NamesTheWrongMemberOfARoom) {
  const struct {
    const char* body;
    const char* member;
    int status;
  } rows[] = {{"{}", "room", 400},
              {R"({"room":""})", "room", 400},
              {R"({"room":7})", "room", 400},
              {R"({"room":"demo","locked":1})", "locked", 400},
              {R"({"room":"demo","plainkey":true})", "plainkey", 400},
              {R"({"room":"demo","certificate":"x"})", "certificate", 400},
              {R"({"room":"new","group":"none"})", "group", 400},
              {R"({"room":"new","locked":true,"certificate":"good"})", "certificate", 409}};
  for (const auto& row : rows) {
    const Reply reply = Change("POST", "rooms", row.body);
    EXPECT_EQ(reply.status, row.status) << row.body;
    EXPECT_EQ(ErrorPart(reply, "member"), row.member) << row.body;
  }
  EXPECT_THAT(stand_.GetRooms(), ElementsAre("demo"));
}

TEST_F(ControlStateTest, RenewsIntegrityKeys) {
  RunCommand(GetKeyPayload());
  EXPECT_EQ(Change("POST", "groups/QOB.1.100.1/integrity-key", "{}").status, 200);
  const auto keys = Maps(ReadList("groups", "groups").at(0), "integrityKeys");
  ASSERT_EQ(keys.size(), 2U);
  EXPECT_EQ(ReadBool(keys[0], "current"), false);
  EXPECT_EQ(ReadBool(keys[1], "current"), true);
  EXPECT_EQ(ReadText(keys[1], "subId"), "2");
  EXPECT_EQ(Change("POST", "groups/none/integrity-key").status, 404);
}

TEST_F(ControlStateTest, ReplacesAndRestoresLists) {
  EXPECT_EQ(Change("PUT", "lists", R"({"certstore":"broken","integrity":"other-types"})").status, 200);
  EXPECT_EQ(Get(Server("certstore")).body, "broken");
  EXPECT_EQ(ReadText(Read("lists"), "integrity"), "other-types");
  EXPECT_EQ(ReadText(*ReadMap(Read("lists"), "certstore"), "replacedBy"), "broken");
  EXPECT_EQ(Change("PUT", "lists", R"({"integrity":"normal"})").status, 200);
  EXPECT_EQ(Get(Server("certstore")).body, "broken");
  EXPECT_EQ(Change("PUT", "lists", R"({"certstore":null})").status, 200);
  EXPECT_THAT(Get(Server("certstore")).body, StartsWith("-----BEGIN CERTIFICATE-----"));
  EXPECT_EQ(ErrorPart(Change("PUT", "lists", R"({"integrity":"x"})"), "member"), "integrity");
  EXPECT_EQ(ErrorPart(Change("PUT", "lists", R"({"truststore":7})"), "member"), "truststore");
}

TEST_F(ControlStateTest, RenewsAuthoritiesAndKeepsTheFormerCertificates) {
  const std::string wrapped = MakeRoomKey().Text("data");
  for (const char* name : {"intermediate", "issuing", "inner-signing"}) {
    const Reply reply = Change("POST", "authorities/renew", std::string(R"({"authority":")") + name + "\"}");
    EXPECT_EQ(reply.status, 200) << reply.body;
  }
  const KVMap lists = Read("lists");
  const auto certStore = Maps(*ReadMap(lists, "certstore"), "certificates");
  ASSERT_EQ(certStore.size(), 3U);
  EXPECT_EQ(ReadText(certStore[1], "subject"), ReadText(certStore[2], "subject"));
  EXPECT_NE(ReadText(certStore[1], "serial"), ReadText(certStore[2], "serial"));
  EXPECT_EQ(Maps(*ReadMap(lists, "truststore"), "certificates").size(), 2U);
  // A key that was wrapped under the former certificate can still be opened.
  EXPECT_EQ(ReadText(Read("rooms/demo"), "shown"), "good");
  const Cert key = Cert::FromPEM(Get(Service("crypt/key/demo")).Text("certificate"));
  const std::string block = ToBase64(key.GetPublicKey().Encrypt("content key"));
  EXPECT_EQ(RunCommand(DecryptPayload(wrapped, block)).Type(), "decryptResponse");
  EXPECT_EQ(ErrorPart(Change("POST", "authorities/renew", R"({"authority":"root"})"), "member"), "authority");
}

TEST_F(ControlStateTest, SetsClocksAndAuditLogs) {
  EXPECT_EQ(Change("PUT", "clocks", R"({"server":"2","seconds":-60})").status, 200);
  EXPECT_EQ(stand_.GetSettings().GetClockOffset(2), -60);
  EXPECT_EQ(Change("PUT", "clocks", R"({"server":"crypt","seconds":5})").status, 200);
  EXPECT_EQ(ReadInteger(*ReadMap(Read("state"), "service"), "clockOffset"), 5);
  EXPECT_EQ(ErrorPart(Change("PUT", "clocks", R"({"server":2,"seconds":99999999999999})"), "member"),
            "seconds");
  EXPECT_EQ(Change("PUT", "audit", R"({"server":"1","rows":1000})").status, 200);
  EXPECT_EQ(stand_.GetSettings().GetGeneratedAudit(1), 1000U);
  const Reply crypt = Change("PUT", "audit", R"({"server":"crypt","rows":1})");
  EXPECT_EQ(ErrorPart(crypt, "member"), "server");
  EXPECT_THAT(Allowed(crypt), testing::ElementsAre("all", "0", "1", "2"));
  for (const char* rows : {"-1", "\"1\"", "null"}) {
    const Reply wrong = Change("PUT", "audit", std::string(R"({"server":0,"rows":)") + rows + "}");
    EXPECT_EQ(ErrorPart(wrong, "member"), "rows") << rows;
  }
}

TEST_F(ControlStateTest, ChangesSettings) {
  const std::string body =
      R"({"statusTimeout":"9","tokenLifetimeMs":1,"sequencePerRequest":true,"announcedUrls":["http://127.0.0.1:1"]})";
  EXPECT_EQ(Change("PUT", "settings", body).status, 200);
  EXPECT_EQ(Get(Service("crypt/key/demo")).Text("statustimeout"), "9");
  EXPECT_EQ(Change("PUT", "settings", R"({"announcedUrls":null})").status, 200);
  const KVMap settings = *ReadMap(Read("state"), "settings");
  EXPECT_EQ(ReadText(settings, "statusTimeout"), "9");
  EXPECT_EQ(ReadInteger(settings, "tokenLifetimeMs"), 1);
  EXPECT_EQ(ReadBool(settings, "sequencePerRequest"), true);
  EXPECT_TRUE(settings.Get("announcedUrls").IsNil());
  const Reply wrong = Change("PUT", "settings", R"({"statusTimeout":"1","tokenLifetimeMs":-1})");
  EXPECT_EQ(ErrorPart(wrong, "member"), "tokenLifetimeMs");
  EXPECT_EQ(stand_.GetSettings().GetStatusTimeout(), "9");
}

TEST_F(ControlStateTest, ResetRestoresTheStateAfterTheStart) {
  MakeRoomKey();
  RunCommand(GetKeyPayload());
  const std::string token = FetchToken("getKeyRequest");
  Change("POST", "rooms", R"({"room":"new"})");
  Change("POST", "rooms", R"({"room":"demo","locked":true})");
  Change("POST", "groups", R"({"group":"other"})");
  Change("POST", "faults", R"({"server":"all","fault":"down"})");
  Change("PUT", "clocks", R"({"server":"crypt","seconds":5})");
  Change("PUT", "lists", R"({"certstore":"broken"})");
  Change("PUT", "settings", R"({"statusTimeout":"9","tokenLifetimeMs":1})");
  const Reply reset = Change("POST", "reset");
  ASSERT_EQ(reset.status, 200) << reset.body;
  const KVMap state = Read("state");
  EXPECT_THAT(stand_.GetRooms(), ElementsAre("demo"));
  EXPECT_EQ(Maps(state, "groups").size(), 1U);
  EXPECT_TRUE(Maps(state, "faults").empty());
  EXPECT_EQ(ReadBool(Maps(state, "rooms").at(0), "hasKey"), false);
  EXPECT_EQ(ReadBool(Maps(state, "rooms").at(0), "locked"), false);
  EXPECT_EQ(ReadInteger(*ReadMap(state, "service"), "clockOffset"), 0);
  EXPECT_EQ(ReadText(*ReadMap(state, "settings"), "statusTimeout"), "5");
  EXPECT_TRUE(ReadList("events", "events").empty());
  EXPECT_EQ(Maps(Maps(state, "groups").at(0), "integrityKeys").size(), 1U);
  EXPECT_THAT(Get(Server("certstore")).body, StartsWith("-----BEGIN CERTIFICATE-----"));
  EXPECT_EQ(PostCommand(GetKeyPayload(), token).Code(), 609);
}

TEST_F(ControlStateTest, ResetMakesSequenceNumbersStale) {
  const std::string before = Post(Service("crypt/certlist/demo"), Object("keyserver", "")).Text("seqnr");
  Change("POST", "reset");
  EXPECT_NE(Post(Service("crypt/certlist/demo"), Object("keyserver", "")).Text("seqnr"), before);
}

TEST(ControlFolderTest, ResetKeepsWhatWasInTheFolderAtTheStart) {
  const Folder folder;
  Options options;
  options.folder = folder.Path("state");
  std::string error;
  {
    Stand stand(options);
    ASSERT_TRUE(stand.Start(error)) << error;
    ASSERT_TRUE(stand.AddRoom("kept"));
  }
  Stand stand(options);
  ASSERT_TRUE(stand.Start(error)) << error;
  ASSERT_TRUE(stand.AddRoom("later"));
  ASSERT_TRUE(stand.SetRoomOptions("kept", {.locked = true}));
  ASSERT_TRUE(stand.Reset());
  EXPECT_THAT(stand.GetRooms(), ElementsAre("demo", "kept"));
  EXPECT_FALSE(stand.GetRoomOptions("kept")->locked);
}

}  // namespace
}  // namespace CryptStand
