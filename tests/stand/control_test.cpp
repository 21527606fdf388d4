#include "stand/control.h"

#include <gtest/gtest.h>

#include "tests/stand/stand_peer.h"

namespace CryptStand {
namespace {

class ControlTest : public StandTest {
 protected:
  // As curl posts it by default.
  int Change(const char* what, const std::string& body) {
    return Post(Service("stand/") + what, body, {}, "application/x-www-form-urlencoded").status;
  }
};

TEST_F(ControlTest, SetsAndClearsFaults) {
  EXPECT_EQ(Change("fault", R"({"server":0,"fault":"status","number":500,"operation":"status","uses":9})"),
            200);
  EXPECT_EQ(Get(Server("status?1")).status, 500);
  EXPECT_EQ(Get(Server("certstore")).status, 200);
  EXPECT_EQ(Change("fault", R"({"server":0,"fault":"none"})"), 200);
  EXPECT_EQ(Get(Server("status?1")).status, 200);
}

TEST_F(ControlTest, TakesServersDownAndUp) {
  EXPECT_EQ(Change("fault", R"({"server":1,"fault":"down"})"), 200);
  EXPECT_EQ(Get(Server("status?1", 1)).status, 0);
  EXPECT_EQ(Change("fault", R"({"server":1,"fault":"none"})"), 200);
  EXPECT_EQ(Get(Server("status?1", 1)).status, 200);
}

TEST_F(ControlTest, KnowsServersByTheirUrl) {
  const std::string url = stand_.GetKeyServerUrls().at(2);
  EXPECT_EQ(Change("fault", R"({"server":")" + url + R"(","fault":"down"})"), 200);
  EXPECT_EQ(Get(Server("status?1", 2)).status, 0);
  EXPECT_EQ(Change("fault", R"({"server":")" + stand_.GetServiceUrl() + R"(","fault":"status"})"), 200);
  EXPECT_EQ(Get(Service("crypt/key/demo")).status, 503);
}

TEST_F(ControlTest, AcceptsADoubleSlashBeforeItsPath) {
  EXPECT_EQ(Post(Service("/stand/fault"), R"({"server":0,"fault":"status"})").status, 200);
  EXPECT_EQ(Get(Server("status?1")).status, 503);
}

TEST_F(ControlTest, DoesNotTakeTheCryptServiceDown) {
  EXPECT_EQ(Change("fault", R"({"server":"crypt","fault":"down"})"), 400);
}

TEST_F(ControlTest, IsNotAffectedByFaults) {
  EXPECT_EQ(Change("fault", R"({"server":"crypt","fault":"status","number":500})"), 200);
  EXPECT_EQ(Get(Service("crypt/key/demo")).status, 500);
  EXPECT_EQ(Change("fault", R"({"server":"crypt","fault":"none"})"), 200);
  EXPECT_EQ(Get(Service("crypt/key/demo")).status, 200);
}

TEST_F(ControlTest, RefusesMalformedFaults) {
  for (const char* body :
       {"", "[]", "{}", R"({"server":0})", R"({"fault":"cut"})", R"({"server":9,"fault":"cut"})",
        R"({"server":-1,"fault":"cut"})", R"({"server":"x","fault":"cut"})",
        R"({"server":0,"fault":"other"})", R"({"server":0,"fault":7})",
        R"({"server":0,"fault":"cut","uses":"x"})", R"({"server":0,"fault":"cut","uses":-1})",
        R"({"server":0,"fault":"cut","number":5000000000})", R"({"server":0,"fault":"cut","operation":1})",
        R"({"server":0,"fault":"cut","x":1})"}) {
    EXPECT_EQ(Change("fault", body), 400) << body;
  }
}

TEST_F(ControlTest, ChangesRoomOptions) {
  EXPECT_EQ(Change("room", R"({"room":"demo","locked":true,"plainkey":true})"), 200);
  EXPECT_EQ(Change("room", R"({"room":"demo","locked":false})"), 200);
  const auto options = stand_.GetRoomOptions("demo");
  EXPECT_FALSE(options->locked);
  EXPECT_TRUE(options->plainKey);
  EXPECT_FALSE(options->certAuth);
}

TEST_F(ControlTest, MakesRooms) {
  EXPECT_EQ(Change("room", R"({"room":"new","certauth":true})"), 200);
  EXPECT_EQ(ReadBool(Get(Service("crypt/key/new")).Object(), "certauth"), true);
}

TEST_F(ControlTest, ShowsRoomsWithOtherCertificates) {
  const Cert good = Cert::FromPEM(MakeRoomKey().Text("certificate"));
  const struct {
    const char* name;
    const char* issuer;
  } rows[] = {{"foreign", "CN=Foreign root,O=Development stand"},
              {"wrong-issuer", "CN=Issuing,O=Development stand"},
              {"expired", "CN=Inner signing,O=Development stand"},
              {"good", "CN=Inner signing,O=Development stand"}};
  for (const auto& row : rows) {
    EXPECT_EQ(Change("room", std::string(R"({"room":"demo","certificate":")") + row.name + "\"}"), 200);
    const Cert shown = Cert::FromPEM(Get(Service("crypt/key/demo")).Text("certificate"));
    EXPECT_EQ(shown.GetIssuer(), row.issuer);
    EXPECT_EQ(shown.GetSerial(), good.GetSerial());
    EXPECT_EQ(shown.GetPublicKey().ToPublicPEM(), good.GetPublicKey().ToPublicPEM());
    const bool isOver = X509_cmp_current_time(X509_get0_notAfter(shown.Get0())) < 0;
    EXPECT_EQ(isOver, std::string(row.name) == "expired");
  }
}

TEST_F(ControlTest, RefusesMalformedRooms) {
  for (const char* body : {"{}", R"({"room":""})", R"({"room":7})", R"({"room":"demo","locked":1})",
                           R"({"room":"demo","certificate":"good"})", R"({"room":"demo","certificate":"x"})",
                           R"({"room":"demo","x":true})"}) {
    EXPECT_EQ(Change("room", body), 400) << body;
  }
}

TEST_F(ControlTest, SpoilsAndRestoresLists) {
  EXPECT_EQ(Change("lists", R"({"certstore":"broken","truststore":"","integrity":"empty"})"), 200);
  EXPECT_EQ(Get(Server("certstore")).body, "broken");
  EXPECT_EQ(Get(Server("truststore")).body, "");
  EXPECT_EQ(stand_.GetSettings().GetIntegrityList(), IntegrityList::Empty);
  EXPECT_EQ(Change("lists", R"({"certstore":null})"), 200);
  EXPECT_THAT(Get(Server("certstore")).body, testing::StartsWith("-----BEGIN CERTIFICATE-----"));
  EXPECT_THAT(Get(Server("truststore")).body, testing::StartsWith("-----BEGIN CERTIFICATE-----"));
  EXPECT_EQ(stand_.GetSettings().GetIntegrityList(), IntegrityList::Normal);
}

TEST_F(ControlTest, RefusesMalformedLists) {
  for (const char* body : {"7", R"({"certstore":7})", R"({"integrity":"x"})", R"({"x":""})"}) {
    EXPECT_EQ(Change("lists", body), 400) << body;
  }
}

TEST_F(ControlTest, SetsClocks) {
  EXPECT_EQ(Change("clock", R"({"server":2,"seconds":-60})"), 200);
  EXPECT_EQ(stand_.GetSettings().GetClockOffset(2), -60);
  for (const char* body : {"{}", R"({"server":2})", R"({"server":2,"seconds":"x"})",
                           R"({"server":2,"seconds":99999999999999})", R"({"server":2,"seconds":1,"x":1})"}) {
    EXPECT_EQ(Change("clock", body), 400) << body;
  }
}

TEST_F(ControlTest, ShowsTheEventLog) {
  Get(Server("status?77"));
  const auto events = ReadArray(Get(Service("stand/events")).Object(), "events");
  ASSERT_EQ(events->GetCount(), 1U);
  const KVMap event = (*events)[0].AsMap();
  EXPECT_EQ(ReadText(event, "target"), "/status?77");
  EXPECT_EQ(ReadInteger(event, "server"), 0);
}

TEST_F(ControlTest, DoesNotKnowOtherPathsAndMethods) {
  EXPECT_EQ(Change("other", "{}"), 404);
  EXPECT_EQ(Get(Service("stand")).status, 404);
  EXPECT_EQ(Get(Service("stand/fault/x")).status, 404);
  EXPECT_EQ(Get(Service("stand/fault")).status, 405);
  EXPECT_EQ(Post(Service("stand/events"), "{}").status, 405);
}

}  // namespace
}  // namespace CryptStand
