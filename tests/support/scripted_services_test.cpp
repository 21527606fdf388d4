#include "tests/support/scripted_services.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "tests/support/pki.h"
#include "tests/support/text.h"
#include "tests/support/wire.h"

namespace TestSupport {
namespace {

using OruKalvix::HttpOptions;
using OruKalvix::HttpResponse;
using ::testing::ElementsAre;

std::string Ask(ScriptedRoad& road, const std::string& url, const std::string& body = "") {
  HttpResponse response;
  road.http.SendRequest("POST", Ansi(url), {}, Ansi(body), HttpOptions(), response);
  return Str(response.body);
}

std::string Command(const std::string& payload) {
  return Envelope(payload);
}

TEST(ScriptedRoad, NamesEachStepByItsUrl) {
  ScriptedRoad road;
  const std::string service = std::string(kServiceUrl) + "/crypt/";
  Ask(road, service + "key/room%201");
  Ask(road, service + "certlist/room%201");
  Ask(road, service + "certlist/g/integrity/sha256");
  Ask(road, service + "newkey/room%201");
  Ask(road, service + "authztoken/room%201");
  Ask(road, "https://one.example/status?17");
  Ask(road, "https://one.example/certstore");
  Ask(road, "https://one.example/truststore");
  Ask(road, "https://one.example/rest/json", Command(R"({"type":"getKeyRequest"})"));
  EXPECT_THAT(road.GetSteps(), ElementsAre("key", "certlist", "integrity", "newkey", "authztoken", "status",
                                           "certstore", "truststore", "getKeyRequest"));
}

TEST(ScriptedRoad, TakesOverridesOnceAndForGood) {
  ScriptedRoad road;
  const std::string url = "https://one.example/certstore";
  road.Set("certstore", Json("always"));
  road.Once("certstore", Json("once"));
  EXPECT_EQ(Ask(road, url), "once");
  EXPECT_EQ(Ask(road, url), "always");
  EXPECT_EQ(Ask(road, url), "always");
  EXPECT_EQ(road.Count("certstore"), 3U);
}

TEST(ScriptedRoad, SignsWithTheIntegrityKey) {
  ScriptedRoad road;
  const std::string hash(64, 'h');
  const std::string answer =
      Ask(road, "https://one.example/rest/json",
          Command(R"({"type":"signRequest","hashesToBeSigned":[)" + Quoted(ToBase64(hash)) + "]}"));
  const std::string expected = Pki::Get().integrity.key.SignHash(hash);
  EXPECT_NE(answer.find(ToBase64(expected)), std::string::npos);
}

TEST(ScriptedRoad, DecryptsWithTheRoomKey) {
  ScriptedRoad road;
  const std::string encrypted = Pki::Get().room.key.Encrypt("content key");
  const std::string answer =
      Ask(road, "https://one.example/rest/json",
          Command(R"({"type":"decryptRequest","encryptedData":[)" + Quoted(ToBase64(encrypted)) + "]}"));
  EXPECT_NE(answer.find(ToBase64("content key")), std::string::npos);
}

TEST(ScriptedRoad, FailsTheTestForAStepThatItDoesNotKnow) {
  ScriptedRoad road;
  EXPECT_NONFATAL_FAILURE(Ask(road, "https://one.example/nowhere"), "no such step on the road");
}

TEST(ScriptedRoad, ChangesOneMemberOfAnAnswer) {
  EXPECT_EQ(JsonText(With(Map(R"({"a":1,"b":2})"), "a", R"([true])")), R"({"a":[true],"b":2})");
}

}  // namespace
}  // namespace TestSupport
