#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <set>
#include <sstream>

#include "stand/stand.h"
#include "tests/end_to_end/fault_model.h"
#include "tests/support/files.h"
#include "tests/support/rotation.h"
#include "tests/support/text.h"
#include "transport/curlhttp.h"

using CryptStand::FaultType;
using OruGuiBase::AnsiStr;
using OruGuiBase::Val;
using OruKalvix::CryptClient;
using OruKalvix::CryptClientCurl;
using ::testing::Combine;
using ::testing::Range;
using ::testing::StartsWith;
using ::testing::Values;

namespace TestSupport {
namespace {

constexpr const char* kNames[] = {"Sign", "Decrypt", "ConfigGroup", "AuditLog"};
constexpr const char* kCommands[] = {"signRequest", "decryptRequest", "configGroupRequest",
                                     "getAuditLogRequest"};
constexpr std::size_t kLogLines = 3;
constexpr double kLongestRun = 10.0;  // seconds, for what takes some hundredths

/// How many key servers there are, and which two of them go wrong.
struct Placement {
  const char* name;
  std::size_t servers;
  int first;
  int second;
};

constexpr Placement kFirstTwo = {"the first and second of three", 3, 0, 1};
constexpr Placement kBoth = {"both of two", 2, 0, 1};
constexpr Placement kOuter = {"the first and third of three", 3, 0, 2};
constexpr Placement kLastTwo = {"the second and third of three", 3, 1, 2};

// The servers whose records a log holds: in its second column. Each gives its made-up records whole, after
// one header line for all.
std::vector<int> ReadLogs(const std::string& path) {
  std::istringstream lines(ReadFile(path));
  std::map<int, std::size_t> made;
  std::size_t headers = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("time,")) ++headers;
    if (line.find(",room-") != std::string::npos) ++made[std::stoi(line.substr(line.find(',') + 1))];
  }
  EXPECT_EQ(headers, made.empty() ? 0U : 1U);
  std::vector<int> servers;
  for (const auto& [server, count] : made) {
    EXPECT_EQ(count, kLogLines) << server;
    servers.push_back(server);
  }
  return servers;
}

OruGuiBase::Array<Val> UrlList(const std::vector<std::string>& urls) {
  OruGuiBase::Array<Val> list;
  for (const std::string& url : urls) list.Append(Val(Ansi(url)));
  return list;
}

/// One operation under the first fault, with one other fault after another beside it. All share one Stand,
/// whose room key is costly to make.
class TwoFaults : public ::testing::TestWithParam<std::tuple<Operation, int>> {
 protected:
  static void SetUpTestSuite() {
    stand = std::make_unique<CryptStand::Stand>();
    std::string error;
    ASSERT_TRUE(stand->Start(error)) << error;
    AnsiStr reason;
    http = CryptClientCurl::Create({}, reason);
    ASSERT_NE(http, nullptr) << reason.View();
    for (int server = 0; server < 3; ++server) stand->GetSettings().SetGeneratedAudit(server, kLogLines);
    stand->GetSettings().SetStatusTimeout("60");  // No probe is given up because the machine is busy.
    const ScratchDirectory files;
    bool keyErrorFlag = false;
    CryptClient client(http.get(), Ansi(stand->GetServiceUrl()), "", "demo");
    ASSERT_TRUE(client.Encrypt(files.Make("plain", "bytes"), files.File("secret"), keyErrorFlag))
        << client.GetErrorMessage().View();
    secret = files.Read("secret");
  }
  static void TearDownTestSuite() {
    http.reset();
    stand.reset();
  }

  // Each test has a group of its own, whose audit log stays short.
  void SetUp() override {
    scratch.Make("plain", "bytes");
    scratch.Make("secret", secret);
    group = "QOB.2." + std::to_string(std::get<1>(GetParam()));
    Outcome outcome;
    if (GetOperation() == Operation::AuditLog) RunConfigGroup(stand->GetKeyServerUrls(), outcome);
    ASSERT_EQ(outcome.message, "");
  }

  static Operation GetOperation() { return std::get<0>(GetParam()); }
  static const char* GetCommand() { return kCommands[static_cast<int>(GetOperation())]; }
  static std::size_t GetRow() { return static_cast<std::size_t>(std::get<1>(GetParam())); }
  static const FaultRow& GetFirst() { return GetFaultRows()[GetRow()]; }

  Outcome Run(const Placement& placement) {
    std::vector<std::string> urls = stand->GetKeyServerUrls();
    urls.resize(placement.servers);
    stand->GetSettings().SetAnnouncedUrls(urls);
    stand->ClearEvents();
    BeginRotationAt(0);
    Outcome outcome;
    switch (GetOperation()) {
      case Operation::Sign:
        RunSign(outcome);
        break;
      case Operation::Decrypt:
        RunDecrypt(outcome);
        break;
      case Operation::ConfigGroup:
        RunConfigGroup(urls, outcome);
        break;
      case Operation::AuditLog:
        RunAuditLog(urls, outcome);
        break;
    }
    for (const CryptStand::Event& event : stand->GetEvents()) {
      if (event.operation == GetCommand()) outcome.visits.push_back(event.server);
    }
    return outcome;
  }

  void RunSign(Outcome& outcome) {
    CryptClient client(http.get(), Ansi(stand->GetServiceUrl()), "", "demo");
    bool keyErrorFlag = false;
    outcome.done = client.Encrypt(scratch.File("plain"), scratch.File("signed"), keyErrorFlag);
    outcome.message = Str(client.GetErrorMessage());
    EXPECT_FALSE(keyErrorFlag);
    EXPECT_EQ(scratch.Exists("signed"), outcome.done);
    std::filesystem::remove(scratch.Path("signed"));
  }
  void RunDecrypt(Outcome& outcome) {
    CryptClient client(http.get(), Ansi(stand->GetServiceUrl()), "", "demo");
    bool isSigned = false;
    bool isVerified = false;
    outcome.done = client.Decrypt(scratch.File("secret"), scratch.File("opened"), isSigned, isVerified);
    outcome.message = Str(client.GetErrorMessage());
    EXPECT_EQ(isVerified, outcome.done);
    EXPECT_EQ(scratch.Exists("opened"), outcome.done);
    if (outcome.done) {
      EXPECT_EQ(scratch.Read("opened"), "bytes");
    }
    std::filesystem::remove(scratch.Path("opened"));
  }
  void RunConfigGroup(const std::vector<std::string>& urls, Outcome& outcome) {
    OruGuiBase::KVMap arguments = Map(R"({"groupname":"A group","ownergroup":"","authnrootcerts":[],)"
                                      R"("authnissuingcerts":[],"authncrlurls":[]})");
    arguments.Set("group", Ansi(group));
    arguments.Set("keyserver", Val(UrlList(urls)));
    Val result;
    AnsiStr error;
    outcome.done = CryptClient::PerformOperation(http.get(), Ansi(stand->GetServiceUrl()), "", "ConfigGroup",
                                                 arguments, result, error) == 0;
    outcome.message = Str(error);
    EXPECT_EQ(result.IsNil(), !outcome.done);
  }
  void RunAuditLog(const std::vector<std::string>& urls, Outcome& outcome) {
    CryptClient client(http.get(), Ansi(stand->GetServiceUrl()), "", Ansi(group));
    client.SetKeyServer(UrlList(urls));
    AnsiStr name;
    outcome.done = client.GetAuditLog(Ansi(group), "A group", name);
    outcome.message = Str(client.GetErrorMessage());
    EXPECT_EQ(name.IsEmpty(), !outcome.done);
    if (!outcome.done) return;
    outcome.logs = ReadLogs(Str(name));
    std::filesystem::remove(Str(name));
  }

  void ExpectPredicted(const Placement& placement, const FaultRow& second) {
    std::vector<const FaultRow*> servers(placement.servers);
    servers[static_cast<std::size_t>(placement.first)] = &GetFirst();
    servers[static_cast<std::size_t>(placement.second)] = &second;
    const Outcome predicted = Predict(GetOperation(), servers);
    const auto start = std::chrono::steady_clock::now();
    const Outcome outcome = Run(placement);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(outcome.done, predicted.done) << outcome.message;
    if (predicted.isWhole) {
      EXPECT_EQ(outcome.message, predicted.message);
    } else {
      EXPECT_THAT(outcome.message, StartsWith(predicted.message));
      EXPECT_GT(outcome.message.size(), predicted.message.size());
    }
    EXPECT_EQ(outcome.visits, predicted.visits);
    EXPECT_EQ(outcome.logs, predicted.logs);
    EXPECT_THAT(scratch.GetTemporaryNames(), ::testing::IsEmpty());
    EXPECT_LT(seconds.count(), kLongestRun);
  }

  // Both faults at once, and none afterwards.
  void Try(const Placement& placement, const FaultRow& second) {
    SCOPED_TRACE(std::string(second.name) + ", on " + placement.name);
    ASSERT_TRUE(stand->SetFault(placement.first, GetFirst().For(GetCommand())));
    ASSERT_TRUE(stand->SetFault(placement.second, second.For(GetCommand())));
    ExpectPredicted(placement, second);
    ASSERT_TRUE(stand->ClearFaults(placement.first));
    ASSERT_TRUE(stand->ClearFaults(placement.second));
  }

  // A group's command is cheap enough to meet each two faults in both orders. The other operations meet them
  // in one; which one, and whether another server comes after them, changes from pair to pair.
  static bool IsTried(std::size_t second) {
    const bool ascends = (GetRow() + second) % 2 == 0;
    return GetOperation() == Operation::ConfigGroup || second == GetRow() || ascends == (GetRow() < second);
  }
  static const Placement& ChoosePlacement(std::size_t second) {
    const Placement* const placements[] = {&kFirstTwo, &kBoth, &kOuter, &kLastTwo};
    const std::size_t types =
        GetOperation() == Operation::AuditLog ? 4 : 2;  // A sweep need not get to the others.
    return *placements[(GetRow() / 2 + second) % types];
  }

  static std::unique_ptr<CryptStand::Stand> stand;
  static CryptClientCurl::Ptr http;
  static std::string secret;
  ScratchDirectory scratch;
  std::string group;
};

std::unique_ptr<CryptStand::Stand> TwoFaults::stand;
CryptClientCurl::Ptr TwoFaults::http;
std::string TwoFaults::secret;

// With faults on two key servers, success, message, visits and logs are those that the rules of the sweep
// give.
TEST_P(TwoFaults, EndWithTheResultOfTheSweep) {
  const std::vector<FaultRow>& rows = GetFaultRows();
  for (std::size_t second = 0; second < rows.size(); ++second) {
    if (IsTried(second)) Try(ChoosePlacement(second), rows[second]);
  }
  // A sweep that the first server ends meets neither; the walk of the audit log meets both.
  Try(kLastTwo, GetFirst());
}

INSTANTIATE_TEST_SUITE_P(Of, TwoFaults,
                         Combine(Values(Operation::Sign, Operation::Decrypt, Operation::ConfigGroup,
                                        Operation::AuditLog),
                                 Range(0, static_cast<int>(GetFaultRows().size()))),
                         [](const auto& test) {
                           const auto row = static_cast<std::size_t>(std::get<1>(test.param));
                           return std::string(kNames[static_cast<int>(std::get<0>(test.param))]) + "_" +
                                  GetFaultRows()[row].name;
                         });

TEST(FaultModel, KnowsEachTypeOfFaultThatTheStandHas) {
  std::set<FaultType> types;
  for (const FaultRow& row : GetFaultRows()) types.insert(row.fault.type);
  EXPECT_EQ(types.size(), static_cast<std::size_t>(FaultType::EmptyCsv) + 1);
}

}  // namespace
}  // namespace TestSupport
