#include "stand/faults.h"

#include <chrono>
#include <gtest/gtest.h>

#include "stand/fault_reply.h"
#include "tests/stand/raw_peer.h"
#include "tests/stand/stand_peer.h"

namespace CryptStand {
namespace {

class FaultsTest : public StandTest {
 protected:
  static Fault Make(FaultType type, int number = 0, const char* text = "") {
    Fault fault;
    fault.type = type;
    fault.number = number;
    fault.text = text;
    return fault;
  }
  // The first key server's response to a command, under a fault that applies to all of its requests.
  Reply CommandUnder(const Fault& fault) {
    EXPECT_TRUE(stand_.SetFault(0, fault));
    return RunCommand(GetKeyPayload());
  }
  Reply ServiceUnder(const Fault& fault) {
    EXPECT_TRUE(stand_.SetFault(kCryptService, fault));
    return Get(Service("crypt/key/demo"));
  }
};

TEST_F(FaultsTest, DownRefusesConnectionsUntilFaultsAreCleared) {
  ASSERT_TRUE(stand_.SetFault(1, Make(FaultType::Down)));
  EXPECT_EQ(Get(Server("status?1", 1)).status, 0);
  EXPECT_EQ(Get(Server("status?1", 0)).status, 200);
  const auto urls = stand_.GetKeyServerUrls();
  ASSERT_TRUE(stand_.ClearFaults(1));
  EXPECT_EQ(stand_.GetKeyServerUrls(), urls);
  EXPECT_EQ(Get(Server("status?1", 1)).status, 200);
}

TEST_F(FaultsTest, DownConcernsTheCryptServiceToo) {
  ASSERT_TRUE(stand_.SetFault(kCryptService, Make(FaultType::Down)));
  EXPECT_EQ(Get(Service("crypt/key/demo")).status, 0);
  ASSERT_TRUE(stand_.ClearFaults(kCryptService));
  EXPECT_EQ(Get(Service("crypt/key/demo")).status, 200);
}

TEST_F(FaultsTest, SlowRespondsLate) {
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::Slow, 150)));
  EXPECT_EQ(Get(Server("status?1")).status, 200);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(150));
}

TEST_F(FaultsTest, SlowWaitsForASecondWithoutANumber) {
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::Slow)));
  EXPECT_EQ(Get(Server("status?1")).status, 200);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1000));
}

TEST_F(FaultsTest, TrickleSendsTheBodyByteByByte) {
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::Trickle, 20)));
  EXPECT_EQ(Get(Server("status?1")).body, "alive\n");
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(6 * 20));
}

TEST_F(FaultsTest, TrickleDoesNotDelayGoingDown) {
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::Trickle, 60000)));
  std::thread client([this] { EXPECT_EQ(Get(Server("status?1")).status, 0); });
  while (stand_.GetEvents().empty()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::Down)));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  client.join();
}

TEST_F(FaultsTest, CloseEndsTheConnectionWithoutSayingSo) {
  const std::string url = stand_.GetKeyServerUrls().front();
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::Close)));
  RawPeer peer(PortOf(url));
  ASSERT_TRUE(peer.Send("GET /status HTTP/1.1\r\n\r\n"));
  const std::string response = peer.ReadAll();
  EXPECT_TRUE(peer.HasEnded());
  EXPECT_THAT(response, testing::AllOf(testing::EndsWith("alive\n"),
                                       testing::Not(testing::HasSubstr("Connection: close"))));
}

TEST_F(FaultsTest, DropEndsTheConnectionInsteadOfAResponse) {
  Fault fault = Make(FaultType::Drop);
  fault.uses = 1;
  ASSERT_TRUE(stand_.SetFault(0, fault));
  Peer peer;
  const Reply reply = peer.Send("GET", Server("status"));
  EXPECT_EQ(reply.status, 0);
  EXPECT_TRUE(reply.headers.empty());
  EXPECT_EQ(peer.Send("GET", Server("status")).status, 200);
  EXPECT_EQ(stand_.GetEvents().front().outcome, "not served (fault)");
}

TEST_F(FaultsTest, SlowDoesNotDelayGoingDown) {
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::Slow, 60000)));
  std::thread client([this] { EXPECT_EQ(Get(Server("status?1")).status, 0); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::Down)));
  client.join();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST_F(FaultsTest, SlowEndsWhenItIsCleared) {
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::Slow, 60000)));
  const auto begin = std::chrono::steady_clock::now();
  std::thread client([this] { EXPECT_EQ(Get(Server("status?1")).status, 200); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  ASSERT_TRUE(stand_.ClearFaults(0));
  client.join();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST_F(FaultsTest, SlowEndsWhenTheClientLeaves) {
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::Slow, 60000)));
  const std::string url = Server("status");
  {
    RawPeer peer(PortOf(url));
    ASSERT_TRUE(peer.Send("GET /status HTTP/1.1\r\nHost: x\r\n\r\n"));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  const auto begin = std::chrono::steady_clock::now();
  while (stand_.GetEvents().empty() && std::chrono::steady_clock::now() - begin < std::chrono::seconds(20)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_EQ(stand_.GetEvents().size(), 1U);
}

// An audit log of any size is streamed; measuring it must not take as long as sending it.
TEST(FaultReplyTest, CutsAStreamOfAnyLength) {
  HttpReply reply;
  reply.openBody = [] { return [] { return std::string(1000, 'x'); }; };
  SpoilReply({.type = FaultType::Cut}, reply);
  EXPECT_GE(reply.cutAfter, std::size_t{512} << 10U);
  EXPECT_LT(reply.cutAfter, std::size_t{520} << 10U);
}

TEST_F(FaultsTest, StatusAnswersInPlaceOfTheServer) {
  EXPECT_EQ(CommandUnder(Make(FaultType::Status, 500)).status, 500);
  EXPECT_EQ(CommandUnder(Make(FaultType::Status)).status, 503);
  EXPECT_EQ(ServiceUnder(Make(FaultType::Status, 204)).status, 204);
}

TEST_F(FaultsTest, WrongDateIsTheGivenString) {
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::WrongDate, 0, "yesterday")));
  EXPECT_EQ(Get(Server("status?1")).Header("Date"), "yesterday");
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::WrongDate, 0, "tomorrow")));
  EXPECT_EQ(Get(Server("status?1")).Header("Date"), "tomorrow");
}

TEST_F(FaultsTest, MissingDateIsNoHeader) {
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::MissingDate)));
  const Reply reply = Get(Server("status?1"));
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.Header("Date"), "(none)");
}

TEST_F(FaultsTest, SendsTheBodyThatTheFaultNames) {
  const struct {
    Fault fault;
    testing::Matcher<std::string> body;
  } rows[] = {
      {Make(FaultType::BrokenJson), R"({"payload":{"type":)"},
      {Make(FaultType::JsonArray), "[1,2,3]"},
      {Make(FaultType::JsonNumber), "4711"},
      {Make(FaultType::JsonDeep), testing::StartsWith("[[[[[[")},
      {Make(FaultType::JsonNotUtf8), testing::HasSubstr("\xC3\x28")},
      {Make(FaultType::JsonHuge, 1000), testing::SizeIs(testing::Gt(1000U))},
      {Make(FaultType::JsonHuge), testing::SizeIs(testing::Gt(8U << 20U))},
      {Make(FaultType::EmptyBody), ""},
      {Make(FaultType::Body, 0, "{\"payload\":7}"), "{\"payload\":7}"},
  };
  for (const auto& row : rows) {
    ASSERT_TRUE(stand_.ClearFaults(0) && stand_.ClearFaults(kCryptService));
    const Reply command = CommandUnder(row.fault);
    EXPECT_EQ(command.status, 200);
    EXPECT_THAT(command.body, row.body);
    EXPECT_THAT(ServiceUnder(row.fault).body, row.body);
  }
}

TEST_F(FaultsTest, WrongTypeReplacesTheTypeAlone) {
  const Reply reply = CommandUnder(Make(FaultType::WrongType));
  EXPECT_EQ(reply.Type(), "unexpectedResponse");
  EXPECT_TRUE(ReadMap(reply.Payload(), "key").has_value());
  EXPECT_EQ(CommandUnder(Make(FaultType::WrongType, 0, "signResponse")).Type(), "signResponse");
}

TEST_F(FaultsTest, ErrorCodeIsARefusal) {
  for (int code = 600; code <= 620; ++code) {
    const Reply reply = CommandUnder(Make(FaultType::ErrorCode, code));
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.Type(), "status");
    EXPECT_EQ(reply.Code(), code);
  }
  EXPECT_EQ(ServiceUnder(Make(FaultType::ErrorCode, 0, "QOB.1")).Text("errorid"), "QOB.1");
}

TEST_F(FaultsTest, BadSignatureIsBase64OfAWrongSignature) {
  const auto sign = [this] {
    return ReadTexts(RunCommand(SignPayload(), "demo", "1").Payload(), "signedHashes")->front();
  };
  RunCommand(GetKeyPayload());
  const std::string good = sign();
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::BadSignature)));
  const std::string bad = sign();
  EXPECT_NE(bad, good);
  EXPECT_EQ(FromBase64(bad)->size(), FromBase64(good)->size());
}

TEST_F(FaultsTest, BadBase64CannotBeDecoded) {
  RunCommand(GetKeyPayload());
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::BadBase64)));
  const auto texts = ReadTexts(RunCommand(SignPayload(), "demo", "1").Payload(), "signedHashes");
  EXPECT_FALSE(FromBase64(texts->front()).has_value());
}

TEST_F(FaultsTest, EmptyMembersKeepTheirType) {
  const Reply command = CommandUnder(Make(FaultType::EmptyMembers));
  EXPECT_EQ(command.Type(), "getKeyResponse");
  EXPECT_EQ(ReadMap(command.Payload(), "key")->GetCount(), 0U);
  const Reply service = ServiceUnder(Make(FaultType::EmptyMembers));
  EXPECT_EQ(service.Text("group"), "");
  EXPECT_EQ(ReadTexts(service.Object(), "keyserver"), std::vector<std::string>());
}

TEST_F(FaultsTest, OtherMembersAreOfAnotherType) {
  const Reply command = CommandUnder(Make(FaultType::OtherMembers));
  EXPECT_EQ(command.Type(), "getKeyResponse");
  EXPECT_TRUE(ReadInteger(command.Payload(), "key").has_value());
  EXPECT_TRUE(ReadInteger(ServiceUnder(Make(FaultType::OtherMembers)).Object(), "group").has_value());
}

TEST_F(FaultsTest, WrongContentTypeKeepsTheBody) {
  const Reply reply = CommandUnder(Make(FaultType::WrongContentType));
  EXPECT_EQ(reply.Header("Content-Type"), "text/html");
  EXPECT_EQ(reply.Type(), "getKeyResponse");
  EXPECT_EQ(CommandUnder(Make(FaultType::WrongContentType, 0, "a/b")).Header("Content-Type"), "a/b");
}

TEST_F(FaultsTest, CutEndsTheConnectionInsideTheBody) {
  EXPECT_EQ(CommandUnder(Make(FaultType::Cut)).status, 0);
  EXPECT_EQ(ServiceUnder(Make(FaultType::Cut, 10)).status, 0);
  ASSERT_TRUE(stand_.ClearFaults(0) && stand_.ClearFaults(kCryptService));
  EXPECT_EQ(RunCommand(GetKeyPayload()).status, 200);
}

TEST_F(FaultsTest, ConcernsItsOperationAlone) {
  Fault fault = Make(FaultType::Status, 500);
  fault.operation = "signRequest";
  EXPECT_EQ(CommandUnder(fault).status, 200);
  EXPECT_EQ(Get(Server("status?1")).status, 200);
  EXPECT_EQ(RunCommand(SignPayload(), "demo", "1").status, 500);
  fault.operation = "certlist";
  EXPECT_EQ(ServiceUnder(fault).status, 200);
  EXPECT_EQ(Post(Service("crypt/certlist/demo"), Object("keyserver", "")).status, 500);
  fault.operation = "truststore";
  ASSERT_TRUE(stand_.SetFault(1, fault));
  EXPECT_EQ(Get(Server("certstore", 1)).status, 200);
  EXPECT_EQ(Get(Server("truststore", 1)).status, 500);
}

TEST_F(FaultsTest, ConcernsItsServerAlone) {
  ASSERT_TRUE(stand_.SetFault(2, Make(FaultType::Status, 500)));
  EXPECT_EQ(Get(Server("status?1", 1)).status, 200);
  EXPECT_EQ(Get(Server("status?1", 2)).status, 500);
}

TEST_F(FaultsTest, IsGoneAfterItsUses) {
  Fault fault = Make(FaultType::Status, 500);
  fault.uses = 2;
  EXPECT_EQ(CommandUnder(fault).status, 500);
  EXPECT_EQ(RunCommand(GetKeyPayload()).status, 500);
  EXPECT_EQ(RunCommand(GetKeyPayload()).status, 200);
}

TEST_F(FaultsTest, AppliesTogetherWithOthers) {
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::MissingDate)));
  const Reply reply = CommandUnder(Make(FaultType::ErrorCode, 619));
  EXPECT_EQ(reply.Code(), 619);
  EXPECT_EQ(reply.Header("Date"), "(none)");
}

TEST_F(FaultsTest, DoesNotCarryOutARequestThatItReplaces) {
  ASSERT_TRUE(stand_.SetFault(0, Make(FaultType::Status, 500)));
  const std::string token = FetchToken("getKeyRequest");
  EXPECT_EQ(PostCommand(GetKeyPayload(), token).status, 500);
  ASSERT_TRUE(stand_.ClearFaults(0));
  EXPECT_EQ(PostCommand(GetKeyPayload(), token).Type(), "getKeyResponse");
}

TEST_F(FaultsTest, NeedsAServerThatIsThere) {
  for (const int server : {3, -2, 1000}) {
    EXPECT_FALSE(stand_.SetFault(server, Make(FaultType::Status)));
    EXPECT_FALSE(stand_.ClearFaults(server));
  }
}

TEST(FaultTypeTest, IsFoundByItsName) {
  EXPECT_EQ(FindFaultType("down"), FaultType::Down);
  EXPECT_EQ(FindFaultType("cut"), FaultType::Cut);
  for (const char* name : {"", "none", "Down", "cut "}) EXPECT_EQ(FindFaultType(name), std::nullopt) << name;
}

}  // namespace
}  // namespace CryptStand
