#include <cryptcli/cryptcli.hpp>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "stand/stand.h"
#include "tests/support/files.h"
#include "tests/tools/process.h"

namespace Examples {
namespace {

using CryptStand::FaultType;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using TestSupport::Finished;

class ExamplesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string reason;
    ASSERT_TRUE(stand.Start(reason)) << reason;
    scratch.Make("plain", "The plain content.\n");
  }
  std::string Path(const std::string& name) const { return scratch.Path(name).string(); }
  Finished Run(const std::string& name, std::vector<std::string> arguments,
               const std::string& input = "/dev/null") {
    arguments.insert(arguments.begin(), stand.GetServiceUrl());
    return TestSupport::RunProcess({.program = std::string(EXAMPLES_DIR) + "/example_" + name,
                                    .arguments = std::move(arguments),
                                    .inputFile = input});
  }
  void Break(int server, const CryptStand::Fault& fault) { ASSERT_TRUE(stand.SetFault(server, fault)); }
  /// Opens a file that an example has protected.
  void ExpectProven(const std::string& name, const std::string& content) {
    const auto client = cryptcli::Client::Create({.service = stand.GetServiceUrl()});
    ASSERT_TRUE(client.has_value()) << client.error().message;
    std::string opened;
    const auto report = client->Decrypt("demo", Path(name), cryptcli::Target::ToMemory(opened));
    ASSERT_TRUE(report.has_value()) << report.error().message;
    EXPECT_EQ(report->origin, cryptcli::Origin::Proven);
    EXPECT_EQ(opened, content);
  }

  CryptStand::Stand stand;
  TestSupport::ScratchDirectory scratch;
};

// ---- Protect

TEST_F(ExamplesTest, ProtectBringsAFileBackWithItsRoomAndGroup) {
  const Finished finished = Run("protect", {"demo", Path("plain")});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_EQ(finished.output,
            Path("plain") + ".opened: 19 bytes, signed for room demo of group QOB.1.100.1\n");
  EXPECT_EQ(scratch.Read("plain.opened"), "The plain content.\n");
  ExpectProven("plain.p7m", "The plain content.\n");
}

TEST_F(ExamplesTest, ProtectSaysWhatFailed) {
  const Finished finished = Run("protect", {"nowhere", Path("plain")});
  EXPECT_EQ(finished.code, 1);
  EXPECT_EQ(finished.errors, "Could not protect: Could not get room key: Unknown room\n");
}

// ---- Uploads

TEST_F(ExamplesTest, UploadsAreProtectedByAPoolOfThreads) {
  std::filesystem::create_directory(Path("store"));
  std::vector<std::string> arguments{"demo", Path("store")};
  for (int i = 0; i < 12; ++i) {
    scratch.Make("body" + std::to_string(i), "The body " + std::to_string(i) + ".\n");
    arguments.push_back(Path("body" + std::to_string(i)));
  }
  const Finished finished = Run("uploads", arguments);
  EXPECT_EQ(finished.code, 0) << finished.errors;
  for (int i = 0; i < 12; ++i) {
    const std::string id = "upload-" + std::to_string(i);
    EXPECT_THAT(finished.output, HasSubstr("201 " + id + "\n"));
    ExpectProven("store/" + id + ".p7m", "The body " + std::to_string(i) + ".\n");
  }
}

TEST_F(ExamplesTest, UploadsThatFailLeaveNothingAndMayBeRetried) {
  std::filesystem::create_directory(Path("store"));
  Break(CryptStand::kCryptService, {.type = FaultType::Status, .number = 503});
  const Finished finished = Run("uploads", {"demo", Path("store"), Path("plain")});
  EXPECT_EQ(finished.code, 1);
  EXPECT_EQ(finished.output, "503 upload-0\n");
  EXPECT_THAT(finished.errors, StartsWith("upload-0: server_error: Could not get room key: "));
  EXPECT_TRUE(std::filesystem::is_empty(Path("store")));
}

TEST_F(ExamplesTest, UploadsWithoutABodyAreRefused) {
  EXPECT_EQ(Run("uploads", {"demo", Path("store"), Path("missing")}).code, 2);
}

// ---- Transport

TEST_F(ExamplesTest, TransportCarriesEveryRequest) {
  const Finished finished = Run("transport", {"demo", Path("plain")});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_EQ(finished.output, Path("plain") + ".p7m: signed by group QOB.1.100.1\n");
  ExpectProven("plain.p7m", "The plain content.\n");
}

TEST_F(ExamplesTest, TransportGoesOnToTheNextKeyServer) {
  Break(0, {.type = FaultType::Down});
  Break(1, {.type = FaultType::Down});
  EXPECT_EQ(Run("transport", {"demo", Path("plain")}).code, 0);
}

TEST_F(ExamplesTest, TransportReportsAServerThatIsDown) {
  Break(CryptStand::kCryptService, {.type = FaultType::Down});
  const Finished finished = Run("transport", {"demo", Path("plain")});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, StartsWith("Could not get room key: "));
}

// ---- Operation

class OperationExample : public ExamplesTest {
 protected:
  Finished Sign(const std::string& member) {
    std::string servers;
    for (const std::string& url : stand.GetKeyServerUrls())
      servers += (servers.empty() ? "\"" : ",\"") + url + "\"";
    scratch.Make("arguments", R"({"keyserver":[)" + servers + R"(],"object":"demo","id":"integrity",)" +
                                  R"("algorithm":"RSASSA-PKCS1-v1_5-SHA-512",")" + member + R"(":")" +
                                  std::string(86, 'A') + "==\"}");
    return Run("operation", {"SignByKey"}, Path("arguments"));
  }
};

TEST_F(OperationExample, PrintsTheResult) {
  const Finished finished = Sign("hash");
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_THAT(finished.output, StartsWith(R"({"signature":")"));
}

TEST_F(OperationExample, RefusesMisspeltArguments) {
  const Finished finished = Sign("hsah");
  EXPECT_EQ(finished.code, 2);
  EXPECT_EQ(finished.errors, "Unknown argument \"hsah\" of SignByKey\n");
}

TEST_F(OperationExample, ListsTheKeyServersThatFailed) {
  for (int server = 0; server < 3; ++server) Break(server, {.type = FaultType::ErrorCode, .number = 607});
  const Finished finished = Sign("hash");
  EXPECT_EQ(finished.code, 1);
  for (const std::string& url : stand.GetKeyServerUrls()) {
    const std::string server = url.substr(0, url.find('/', 8));
    EXPECT_THAT(finished.errors, HasSubstr("  " + server + ": 607 Key Not Found\n"));
  }
}

// ---- All of them

TEST_F(ExamplesTest, ShowTheirUsageWithoutArguments) {
  for (const char* name : {"protect", "uploads", "transport", "operation"}) {
    const Finished finished = Run(name, {});
    EXPECT_EQ(finished.code, 2) << name;
    EXPECT_THAT(finished.errors, StartsWith(std::string("usage: example_") + name));
  }
}

// Whoever copies an example gets the default policy: only proven content.
TEST_F(ExamplesTest, AcceptProvenContentAlone) {
  for (const auto& entry : std::filesystem::directory_iterator(EXAMPLES_SOURCE_DIR)) {
    if (entry.path().extension() != ".cpp") continue;
    const std::string source = TestSupport::ReadFile(entry.path());
    EXPECT_THAT(source, HasSubstr("#include <cryptcli/cryptcli.hpp>")) << entry.path();
    EXPECT_EQ(source.find("Policy::"), std::string::npos) << entry.path();
    EXPECT_EQ(source.find(".accept"), std::string::npos) << entry.path();
  }
}

}  // namespace
}  // namespace Examples
