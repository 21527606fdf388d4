#pragma once

#include <filesystem>

#include "tests/support/client_fixture.h"
#include "tests/support/files.h"

namespace OruKalvix {

/// At the end the scratch directory finds every file that a log left behind.
class AuditLog : public TestSupport::ClientTest {
 protected:
  static constexpr const char* kOne = "https://one.example";

  AuditLog() { UseServers({"https://one.example", "https://two.example", "https://three.example"}); }

  static TestSupport::CannedResponse Csv(std::string body, TestSupport::Headers more = {}) {
    TestSupport::CannedResponse response = TestSupport::Json(std::move(body));
    response.headers = {{"Content-Type", "text/csv"}};
    response.headers.insert(response.headers.end(), more.begin(), more.end());
    return response;
  }
  static TestSupport::CannedResponse Typed(TestSupport::CannedResponse response, std::string contentType) {
    response.headers = {{"Content-Type", std::move(contentType)}};
    return response;
  }
  /// The next server meets this response.
  void Attempt(const TestSupport::CannedResponse& response) {
    http.Then(TestSupport::Alive()).Then(TestSupport::Token("t")).Then(response);
  }
  void AttemptAt(std::initializer_list<std::string_view> urls, const TestSupport::CannedResponse& response) {
    UseServers(urls);
    Attempt(response);
  }
  bool Get(const OruGuiBase::AnsiStr& name = "its name") {
    return client.GetAuditLog("group 1", name, fileName);
  }
  /// What the one log holds, which is removed.
  std::string TakeLog() {
    const std::string path = TestSupport::Str(fileName);
    const std::string text = TestSupport::ReadFile(path);
    std::filesystem::remove(path);
    return text;
  }
  void ExpectNothingGot() {
    EXPECT_EQ(TestSupport::Str(fileName), "untouched");
    EXPECT_THAT(scratch.GetTemporaryNames(), ::testing::IsEmpty());
  }

  TestSupport::ScratchDirectory scratch;
  OruGuiBase::AnsiStr fileName{"untouched"};
};

}  // namespace OruKalvix
