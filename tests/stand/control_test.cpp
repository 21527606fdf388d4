#include "stand/control.h"

#include <gtest/gtest.h>

#include "tests/stand/control_peer.h"

namespace CryptStand {
namespace {

using testing::Contains;
using testing::HasSubstr;

TEST_F(ControlTest, ListsItsResources) {
  const KVMap index = Get(Service("stand/")).Object();
  EXPECT_EQ(ReadText(index, "program"), "cryptstand");
  EXPECT_EQ(ReadInteger(index, "interface"), 1);
  std::vector<std::string> all;
  for (const KVMap& resource : Maps(index, "resources")) {
    all.push_back(*ReadText(resource, "method") + " " + *ReadText(resource, "path"));
    EXPECT_NE(ReadText(resource, "does"), "") << all.back();
  }
  EXPECT_THAT(all, Contains("POST /stand/v1/faults"));
  EXPECT_THAT(all, Contains("GET /stand/v1/events/follow"));
  EXPECT_EQ(Get(Service("stand")).status, 200);
}

TEST_F(ControlTest, AcceptsADoubleSlashBeforeItsPath) {
  EXPECT_EQ(Get(Service("/stand/v1/state")).status, 200);
}

TEST_F(ControlTest, NamesTheListAtUnknownPaths) {
  const Reply unknown = Get(Path("other"));
  EXPECT_EQ(unknown.status, 404);
  EXPECT_EQ(ErrorPart(unknown, "code"), "not_found");
  EXPECT_THAT(ErrorPart(unknown, "message"), HasSubstr("GET /stand/"));
  EXPECT_EQ(Get(Path("rooms/a/b")).status, 404);
}

TEST_F(ControlTest, NamesTheNewAddressAtFormerPaths) {
  const Reply former = Post(Service("stand/fault"), "{}");
  EXPECT_EQ(former.status, 404);
  EXPECT_THAT(ErrorPart(former, "message"), HasSubstr("POST /stand/v1/faults"));
}

TEST_F(ControlTest, NamesTheMethodsOfAResource) {
  const Reply reply = Send("PATCH", Path("faults"));
  EXPECT_EQ(reply.status, 405);
  EXPECT_EQ(reply.Header("Allow"), "GET, POST, DELETE");
  EXPECT_EQ(ErrorPart(reply, "code"), "method_not_allowed");
}

TEST_F(ControlTest, NamesUnknownMembers) {
  const Reply reply = Change("POST", "faults", R"({"server":"0","fault":"slow","use":1})");
  EXPECT_EQ(reply.status, 400);
  EXPECT_EQ(ErrorPart(reply, "member"), "use");
  EXPECT_THAT(Allowed(reply), Contains("uses"));
  const Reply query = Get(Path("events?afer=1"));
  EXPECT_EQ(query.status, 400);
  EXPECT_EQ(ErrorPart(query, "member"), "afer");
}

TEST_F(ControlTest, NamesMembersThatAreNoUtf8) {
  const Reply reply = Get(Path("events?%FF=1"));
  EXPECT_EQ(reply.status, 400);
  EXPECT_EQ(ErrorPart(reply, "member"), "\xEF\xBF\xBD");
}

TEST_F(ControlTest, NamesMissingMembers) {
  const Reply reply = Change("PUT", "clocks", R"({"server":"0"})");
  EXPECT_EQ(reply.status, 400);
  EXPECT_EQ(ErrorPart(reply, "member"), "seconds");
}

TEST_F(ControlTest, RefusesBodiesThatAreNoObject) {
  for (const char* body : {"[]", "7", "{", "{\"server\":\"0\"}x"}) {
    EXPECT_EQ(Change("POST", "faults", body).status, 400) << body;
  }
  EXPECT_EQ(Get(Path("events?after=%G0")).status, 400);
  EXPECT_EQ(Get(Path("events?after=1&after=2")).status, 400);
}

TEST_F(ControlTest, NamesQueryMembersThatComeTwice) {
  const Reply reply = Get(Path("events?limit=1&after=1&after=2"));
  EXPECT_EQ(reply.status, 400);
  EXPECT_EQ(ErrorPart(reply, "member"), "after");
  EXPECT_THAT(ErrorPart(reply, "message"), HasSubstr("twice"));
}

TEST_F(ControlTest, RefusesMembersInTheWrongPlace) {
  ASSERT_TRUE(stand_.SetFault(0, {.type = FaultType::Status}));
  for (const char* body : {R"({"server":"1"})", "{\"server\"", "[1]"}) {
    const Reply reply = Change("DELETE", "faults", body);
    EXPECT_EQ(reply.status, 400) << body;
    EXPECT_THAT(ErrorPart(reply, "message"), HasSubstr("query")) << body;
  }
  EXPECT_EQ(ReadList("faults", "set").size(), 1U);
  const Reply reply = Change("POST", "faults?server=1", R"({"server":"0","fault":"drop"})");
  EXPECT_EQ(reply.status, 400);
  EXPECT_THAT(ErrorPart(reply, "message"), HasSubstr("body"));
  EXPECT_EQ(Change("PUT", "clocks?server=1", R"({"server":"0","seconds":1})").status, 400);
  EXPECT_EQ(Change("DELETE", "faults", "{}").status, 200);
}

TEST_F(ControlTest, RefusesLargeBodies) {
  EXPECT_EQ(Change("POST", "faults", std::string(2U << 20U, ' ')).status, 413);
}

TEST_F(ControlTest, IsNotAffectedByFaultsNorLogged) {
  ASSERT_TRUE(stand_.SetFault(kCryptService, {.type = FaultType::Status}));
  EXPECT_EQ(Get(Path("state")).status, 200);
  EXPECT_TRUE(stand_.GetEvents().empty());
}

TEST_F(ControlTest, ForbidsCachesAndOtherReadings) {
  const Reply reply = Get(Path("state"));
  EXPECT_EQ(reply.Header("Cache-Control"), "no-store");
  EXPECT_EQ(reply.Header("X-Content-Type-Options"), "nosniff");
  EXPECT_EQ(reply.Header("Access-Control-Allow-Origin"), "(none)");
}

TEST_F(ControlTest, ShowsTheState) {
  ASSERT_TRUE(stand_.SetFault(1, {.type = FaultType::Down}));
  stand_.GetSettings().SetClockOffset(2, -60);
  Get(Server("status?1"));
  const KVMap state = Read("state");
  const auto servers = Maps(state, "servers");
  ASSERT_EQ(servers.size(), 3U);
  EXPECT_EQ(ReadText(servers[0], "url"), stand_.GetKeyServerUrls().at(0));
  EXPECT_EQ(ReadInteger(servers[0], "requests"), 1);
  EXPECT_EQ(ReadBool(servers[0], "up"), true);
  EXPECT_EQ(ReadBool(servers[1], "up"), false);
  EXPECT_EQ(ReadInteger(servers[2], "clockOffset"), -60);
  EXPECT_EQ(ReadText(ReadMap(state, "service").value_or(KVMap()), "url"), stand_.GetServiceUrl());
  EXPECT_EQ(Maps(state, "rooms").size(), 1U);
  EXPECT_EQ(Maps(state, "groups").size(), 1U);
  EXPECT_EQ(Maps(state, "faults").size(), 1U);
  EXPECT_EQ(ReadInteger(state, "lastEvent"), 1);
  EXPECT_EQ(ReadBool(state, "tls"), false);
  EXPECT_EQ(ReadBool(state, "asksForCertificate"), false);
  EXPECT_EQ(ReadText(state, "caFile"), std::nullopt);
}

class ControlAccessTest : public ControlTest {
 protected:
  ControlAccessTest() : ControlTest(MakeOptions()) {}
  static Options MakeOptions() {
    Options options;
    options.controlToken = "secret";
    options.allowedHosts = {"stand.example"};
    return options;
  }
  Reply ReadAs(const char* header, const std::string& value) const {
    return Peer().Send("GET", Path("state"), {}, {{header, value}});
  }
  std::string Host() const {
    const std::string url = stand_.GetServiceUrl();
    return url.substr(7, url.size() - 8);
  }
};

TEST_F(ControlAccessTest, RefusesForeignHosts) {
  for (const char* host : {"evil.example", "evil.example:80", "127.0.0.1.evil.example", "localhost.", "["}) {
    const Reply reply = ReadAs("Host", host);
    EXPECT_EQ(reply.status, 403) << host;
    EXPECT_EQ(ErrorPart(reply, "code"), "forbidden") << host;
  }
}

TEST_F(ControlAccessTest, AcceptsLoopbackAndAllowedHosts) {
  for (const char* host : {"localhost", "LOCALHOST:7080", "127.0.0.1", "[::1]:7080", "stand.example:1"}) {
    EXPECT_EQ(ReadAs("Host", host).status, 200) << host;
  }
}

TEST_F(ControlAccessTest, RefusesForeignOrigins) {
  for (const char* origin : {"http://evil.example", "null", "http://127.0.0.1:1", "http://localhost"}) {
    EXPECT_EQ(ReadAs("Origin", origin).status, 403) << origin;
  }
  EXPECT_EQ(ReadAs("Origin", "http://" + Host()).status, 200);
}

TEST_F(ControlAccessTest, RefusesChangesWithoutTheToken) {
  const std::string body = R"({"server":"0","fault":"status"})";
  for (const char* value : {"Bearer secreT", "Bearer secret1", "Bearer ", "Basic secret", "secret"}) {
    const Reply reply = Peer().Send("POST", Path("faults"), body, {{"Authorization", value}});
    EXPECT_EQ(reply.status, 401) << value;
    EXPECT_EQ(reply.Header("WWW-Authenticate"), "Bearer") << value;
  }
  EXPECT_EQ(Post(Path("faults"), body).status, 401);
  EXPECT_EQ(Send("DELETE", Path("events")).status, 401);
  EXPECT_EQ(Get(Server("status?1")).status, 200);
  EXPECT_EQ(Peer().Send("POST", Path("faults"), body, {{"Authorization", "Bearer secret"}}).status, 200);
  EXPECT_EQ(Get(Server("status?1")).status, 503);
}

TEST(ControlTokenTest, IsRandomUnlessItIsGiven) {
  const std::string token = ControlAccess::MakeToken();
  EXPECT_THAT(token, testing::MatchesRegex("[0-9a-f]+"));
  EXPECT_EQ(token.size(), 32U);
  EXPECT_NE(ControlAccess::MakeToken(), token);
}

}  // namespace
}  // namespace CryptStand
