#include "stand/stand.h"

#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <thread>

#include "tests/stand/folder.h"
#include "tests/stand/raw_peer.h"
#include "tests/stand/stand_peer.h"

namespace CryptStand {
namespace {

class RunningStandTest : public StandTest {};

TEST_F(RunningStandTest, HasAnAddressForEachServer) {
  EXPECT_THAT(stand_.GetServiceUrl(), testing::MatchesRegex("http://127\\.0\\.0\\.1:[0-9]+/"));
  ASSERT_EQ(stand_.GetKeyServerUrls().size(), 3U);
  for (const std::string& url : stand_.GetKeyServerUrls()) {
    EXPECT_THAT(url, testing::MatchesRegex("http://127\\.0\\.0\\.1:[0-9]+"));
  }
}

TEST_F(RunningStandTest, LogsRequestsAndTheirOutcome) {
  Get(Server("certstore", 1));
  PostCommand(GetKeyPayload(), "made up");
  Get(Service("crypt/key/none"));
  Get(Service("other"));
  const auto events = stand_.GetEvents();
  ASSERT_EQ(events.size(), 4U);
  EXPECT_EQ(events[0].server, 1);
  EXPECT_EQ(events[0].method, "GET");
  EXPECT_EQ(events[0].operation, "certstore");
  EXPECT_EQ(events[0].outcome, "ok");
  EXPECT_EQ(events[1].operation, "getKeyRequest");
  EXPECT_EQ(events[1].status, 200);
  EXPECT_EQ(events[1].outcome, "609 token unknown or used");
  EXPECT_EQ(events[2].server, kCryptService);
  EXPECT_EQ(events[2].operation, "key");
  EXPECT_EQ(events[2].outcome, "Unknown room");
  EXPECT_EQ(events[3].status, 404);
  EXPECT_EQ(events[3].number, 4U);
  stand_.ClearEvents();
  EXPECT_TRUE(stand_.GetEvents().empty());
}

TEST_F(RunningStandTest, LogsFaults) {
  Fault fault;
  fault.uses = 1;
  ASSERT_TRUE(stand_.SetFault(0, fault));
  Get(Server("status?1"));
  EXPECT_EQ(stand_.GetEvents().at(0).outcome, "not served (fault)");
  EXPECT_EQ(stand_.GetEvents().at(0).status, 503);
}

TEST_F(RunningStandTest, ServesManyClientsAtOnce) {
  std::vector<std::thread> clients;
  std::atomic<int> served = 0;
  for (int i = 0; i < 8; ++i) {
    clients.emplace_back([this, &served] {
      for (int k = 0; k < 5; ++k) served += RunCommand(GetKeyPayload()).Type() == "getKeyResponse" ? 1 : 0;
    });
  }
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(served, 40);
}

TEST_F(RunningStandTest, RefusesRoomIdsThatAreNotUtf8) {
  EXPECT_FALSE(stand_.AddRoom(""));
  EXPECT_FALSE(stand_.AddRoom("\xFF"));
}

TEST(EventLogTest, KeepsTheLatestEvents) {
  EventLog log;
  for (std::size_t i = 0; i < EventLog::kCapacity + 5; ++i) log.Add({});
  const auto events = log.Get();
  EXPECT_EQ(events.size(), EventLog::kCapacity);
  EXPECT_EQ(events.front().number, 6U);
}

TEST(StandStartTest, KeepsRoomsKeysAndListsInItsFolder) {
  const Folder folder;
  Options options;
  options.folder = folder.Path("state");
  std::string error;
  std::string certStore;
  std::string trustStore;
  {
    Stand stand(options);
    ASSERT_TRUE(stand.Start(error)) << error;
    ASSERT_TRUE(stand.AddRoom("second") && stand.SetRoomOptions("second", {.locked = true}));
    certStore = Get(stand.GetKeyServerUrls()[0] + "/certstore").body;
    trustStore = Get(stand.GetKeyServerUrls()[0] + "/truststore").body;
  }
  Stand stand(options);
  ASSERT_TRUE(stand.Start(error)) << error;
  EXPECT_THAT(stand.GetRooms(), testing::ElementsAre("demo", "second"));
  EXPECT_TRUE(stand.GetRoomOptions("second")->locked);
  EXPECT_EQ(Get(stand.GetKeyServerUrls()[0] + "/certstore").body, certStore);
  EXPECT_EQ(Get(stand.GetKeyServerUrls()[0] + "/truststore").body, trustStore);
}

TEST(StandStartTest, SharesKeysInMemoryByDefault) {
  Options own;
  own.ownKeys = true;
  Stand first;
  Stand second;
  Stand third(own);
  std::string error;
  ASSERT_TRUE(first.Start(error) && second.Start(error) && third.Start(error)) << error;
  const auto rootKey = [](const Stand& stand) {
    return Cert::FromPEM(Get(stand.GetKeyServerUrls()[0] + "/certstore").body).GetPublicKey().ToPublicPEM();
  };
  EXPECT_EQ(rootKey(first), rootKey(second));
  EXPECT_NE(rootKey(first), rootKey(third));
}

TEST(StandStartTest, SaysWhenAPortIsTaken) {
  Stand first;
  std::string error;
  ASSERT_TRUE(first.Start(error)) << error;
  Options options;
  options.port = std::stoi(first.GetServiceUrl().substr(17));
  Stand second(options);
  EXPECT_FALSE(second.Start(error));
  EXPECT_THAT(error, testing::HasSubstr("Address already in use"));
}

TEST(StandStartTest, SaysWhenPortsRunOut) {
  Options options;
  options.port = 65535;
  Stand stand(options);
  std::string error;
  EXPECT_FALSE(stand.Start(error));
  EXPECT_EQ(error, "ports end at 65535");
}

TEST(StandStartTest, RunsWithOneKeyServer) {
  Options options;
  options.keyServers = 1;
  Stand stand(options);
  std::string error;
  ASSERT_TRUE(stand.Start(error)) << error;
  EXPECT_EQ(stand.GetKeyServerUrls().size(), 1U);
}

// Asks for tokens, one after another, until the process ends. Each is made of random bytes.
void AskForever(int port, const std::string& body) {
  const std::string head =
      "POST /crypt/authztoken/demo HTTP/1.1\r\nContent-Type: text/json\r\nContent-Length: ";
  const std::string request = head + std::to_string(body.size()) + "\r\n\r\n" + body;
  RawPeer peer(port);
  while (peer.Send(request) && !peer.ReadUntil("}").empty()) {
  }
}

[[noreturn]] void EndWhileItIsAsked() {
  static Stand stand;
  std::string error;
  if (!stand.Start(error)) std::exit(1);
  const std::string url = stand.GetServiceUrl();
  const int port = std::stoi(url.substr(url.rfind(':') + 1));
  const std::string body =
      R"({"keyserver":")" + stand.GetKeyServerUrls().front() + R"(","operation":"signRequest"})";
  for (int i = 0; i < 4; ++i) std::thread(AskForever, port, body).detach();
  while (stand.GetEvents().size() < 100) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  std::exit(stand.GetEvents().front().status == 200 ? 0 : 2);
}

TEST(StandDeathTest, ExitsCleanlyWhileRequestsArrive) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (int i = 0; i < 20; ++i) EXPECT_EXIT(EndWhileItIsAsked(), testing::ExitedWithCode(0), "") << i;
}

}  // namespace
}  // namespace CryptStand
