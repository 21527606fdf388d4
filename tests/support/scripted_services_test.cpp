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

std::string Ask(ScriptedServices& services, const std::string& url, const std::string& body = "") {
  HttpResponse response;
  services.http.SendRequest("POST", Ansi(url), {}, Ansi(body), HttpOptions(), response);
  return Str(response.body);
}

std::string Command(const std::string& payload) {
  return Envelope(payload);
}

TEST(ScriptedServices, NamesEachStepByItsUrl) {
  ScriptedServices services;
  const std::string service = std::string(kServiceUrl) + "/crypt/";
  Ask(services, service + "key/room%201");
  Ask(services, service + "certlist/room%201");
  Ask(services, service + "certlist/g/integrity/sha256");
  Ask(services, service + "newkey/room%201");
  Ask(services, service + "authztoken/room%201");
  Ask(services, "https://one.example/status?17");
  Ask(services, "https://one.example/certstore");
  Ask(services, "https://one.example/truststore");
  Ask(services, "https://one.example/rest/json", Command(R"({"type":"getKeyRequest"})"));
  EXPECT_THAT(services.GetSteps(), ElementsAre("key", "certlist", "integrity", "newkey", "authztoken",
                                               "status", "certstore", "truststore", "getKeyRequest"));
}

TEST(ScriptedServices, TakesOverridesOnceAndForGood) {
  ScriptedServices services;
  const std::string url = "https://one.example/certstore";
  services.Set("certstore", Json("always"));
  services.Once("certstore", Json("once"));
  EXPECT_EQ(Ask(services, url), "once");
  EXPECT_EQ(Ask(services, url), "always");
  EXPECT_EQ(Ask(services, url), "always");
  EXPECT_EQ(services.Count("certstore"), 3U);
}

TEST(ScriptedServices, SignsWithTheIntegrityKey) {
  ScriptedServices services;
  const std::string hash(64, 'h');
  const std::string response =
      Ask(services, "https://one.example/rest/json",
          Command(R"({"type":"signRequest","hashesToBeSigned":[)" + Quoted(ToBase64(hash)) + "]}"));
  const std::string expected = Pki::Get().integrity.key.SignHash(hash);
  EXPECT_NE(response.find(ToBase64(expected)), std::string::npos);
}

TEST(ScriptedServices, DecryptsWithTheRoomKey) {
  ScriptedServices services;
  const std::string encrypted = Pki::Get().room.key.Encrypt("content key");
  const std::string response =
      Ask(services, "https://one.example/rest/json",
          Command(R"({"type":"decryptRequest","encryptedData":[)" + Quoted(ToBase64(encrypted)) + "]}"));
  EXPECT_NE(response.find(ToBase64("content key")), std::string::npos);
}

TEST(ScriptedServices, FailsTheTestForAStepThatItDoesNotKnow) {
  ScriptedServices services;
  EXPECT_NONFATAL_FAILURE(Ask(services, "https://one.example/nowhere"), "no such step");
}

TEST(ScriptedServices, ChangesOneMemberOfAResponse) {
  EXPECT_EQ(JsonText(With(Map(R"({"a":1,"b":2})"), "a", R"([true])")), R"({"a":[true],"b":2})");
}

}  // namespace
}  // namespace TestSupport
