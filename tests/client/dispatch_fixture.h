#pragma once

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include "client/result_codes.h"
#include "tests/support/client_fixture.h"
#include "tests/support/pki.h"

namespace OruKalvix {

// The numbers under which a trace names the types of values.
inline constexpr std::uint32_t kBool = 1;
inline constexpr std::uint32_t kText = 5;
inline constexpr std::uint32_t kMap = 7;
inline constexpr std::uint32_t kList = 8;

/// Operations by their names, against one scripted key server.
class DispatchTest : public ::testing::Test {
 protected:
  static constexpr const char* kService = "https://crypt.example/api";
  static constexpr const char* kToken = "POST https://crypt.example/api/crypt/authztoken/";
  static constexpr const char* kProbe = "GET https://one.example/status";
  static constexpr const char* kPost = "POST https://one.example/rest/json";

  DispatchTest() { TestSupport::BeginRotationAt(0); }

  /// Arguments for the one key server, and more members, written as in a JSON object.
  static std::string With(std::string_view members) {
    return R"({"keyserver":["https://one.example"],"statustimeout":"5")" + std::string(members) + "}";
  }
  std::int32_t Perform(std::string_view operation, std::string_view arguments) {
    return CryptClient::PerformOperation(&http, kService, "auxiliary", TestSupport::Ansi(operation),
                                         TestSupport::Map(arguments), result, error);
  }
  /// The server is alive, a token is given, and it responds to the next command with this.
  void Respond(const TestSupport::CannedResponse& response) {
    http.Then(TestSupport::Alive()).Then(TestSupport::Token("t")).Then(response);
  }
  /// A further command of the same operation: the server is known by then.
  void RespondNext(const TestSupport::CannedResponse& response) {
    http.Then(TestSupport::Token("t")).Then(response);
  }
  std::string Error() const { return TestSupport::Str(error); }
  std::string Result() const { return TestSupport::JsonText(result); }

  TestSupport::ScriptedHttp http;
  OruGuiBase::Val result;
  OruGuiBase::AnsiStr error{"before"};
};

/// The same with the responses that the operations need.
class DispatchedCase : public DispatchTest {
 protected:
  static TestSupport::CannedResponse Generated() {
    return TestSupport::Payload(R"({"type":"generateWrappedKeyResponse","encodedX509Certificate":)" +
                                TestSupport::Quoted(TestSupport::Pki::Get().room.certificate.ToBase64()) +
                                R"(,"encodedWrappedKey":"new"})");
  }
  static TestSupport::CannedResponse Modified(const std::string& key) {
    return TestSupport::Payload(R"({"type":"modifyWrappedKeyResponse","encodedWrappedKey":)" +
                                TestSupport::Quoted(key) + "}");
  }
  static TestSupport::CannedResponse Exported(const std::string& key) {
    return TestSupport::Payload(R"({"type":"exportWrappedKeyResponse","encodedPrivateKey":)" +
                                TestSupport::Quoted(key) + "}");
  }
  static TestSupport::CannedResponse Signed() {
    return TestSupport::Payload(R"({"type":"signResponse","signedHashes":["c2lnbmVk"]})");
  }
  static TestSupport::CannedResponse Log(const std::string& body) {
    TestSupport::CannedResponse response = TestSupport::Json(body);
    response.headers = {{"Content-Type", "text/csv"}};
    return response;
  }

  std::string TokenLine(const std::string& id) const { return kToken + id; }
};

}  // namespace OruKalvix
