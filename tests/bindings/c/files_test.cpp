#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <thread>
#include <unistd.h>
#include <vector>

#include "tests/bindings/c/environment_fixture.h"

namespace CInterface {
namespace {

using ::testing::HasSubstr;

using Files = EnvironmentTest;

constexpr const char* kContent = "the plain bytes of a file";

TEST_F(Files, ComeBackWithAProvenOrigin) {
  Protect(kContent);
  const Outcome outcome = Decrypt("secret", "opened");
  ASSERT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_EQ(scratch.Read("opened"), kContent);
  const cryptcli_report* report = outcome.report.get();
  EXPECT_EQ(cryptcli_report_origin(report), CRYPTCLI_ORIGIN_PROVEN);
  EXPECT_STREQ(cryptcli_report_reason(report), "");
  EXPECT_STREQ(cryptcli_report_signed_room(report), "demo");
  EXPECT_STREQ(cryptcli_report_signed_group(report), "QOB.1.100.1");
  EXPECT_EQ(cryptcli_report_signed_room_url(report), stand.GetServiceUrl() + "mx/demo");
  EXPECT_STREQ(cryptcli_report_service_room(report), "demo");
  EXPECT_STREQ(cryptcli_report_service_group(report), "QOB.1.100.1");
  EXPECT_EQ(cryptcli_report_is_plain_key(report), 0);
  EXPECT_EQ(cryptcli_report_bytes(report), std::string(kContent).size());
  ASSERT_GE(cryptcli_report_chain_count(report), 2U);
  EXPECT_THAT(cryptcli_report_chain_subject(report, 0), HasSubstr("CN="));
  EXPECT_EQ(cryptcli_report_chain_subject(report, cryptcli_report_chain_count(report)), nullptr);
  EXPECT_THAT(cryptcli_report_json(report), HasSubstr(R"("origin":"proven")"));
}

TEST_F(Files, EncryptReportsRoomGroupAndBytes) {
  scratch.Make("plain", kContent);
  const Outcome outcome = Encrypt("plain", "secret");
  ASSERT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_STREQ(cryptcli_report_service_group(outcome.report.get()), "QOB.1.100.1");
  EXPECT_EQ(cryptcli_report_bytes(outcome.report.get()), std::string(kContent).size());
}

TEST_F(Files, ReportAndErrorAreOptional) {
  scratch.Make("plain", kContent);
  EXPECT_EQ(cryptcli_encrypt(client.get(), kRoom, cryptcli_path(Path("plain").c_str()),
                             cryptcli_path(Path("secret").c_str()), nullptr, nullptr, nullptr),
            CRYPTCLI_OK);
  EXPECT_EQ(cryptcli_decrypt(client.get(), kRoom, cryptcli_path(Path("missing").c_str()),
                             cryptcli_path(Path("opened").c_str()), nullptr, nullptr, nullptr),
            CRYPTCLI_IO);
}

TEST_F(Files, VerifyProvesWithoutATarget) {
  Protect(kContent);
  const Outcome outcome = Verify("secret");
  ASSERT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_EQ(cryptcli_report_origin(outcome.report.get()), CRYPTCLI_ORIGIN_PROVEN);
  EXPECT_EQ(cryptcli_report_bytes(outcome.report.get()), std::string(kContent).size());
}

TEST_F(Files, RekeyKeepsContentAndAccess) {
  Protect(kContent);
  const std::string before = scratch.Read("secret");
  std::filesystem::permissions(Path("secret"), std::filesystem::perms(0640));
  const Outcome outcome = Call([&](cryptcli_report** report, cryptcli_error** error) {
    return cryptcli_rekey(client.get(), kRoom, Path("secret").c_str(), nullptr, report, error);
  });
  ASSERT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_NE(scratch.Read("secret"), before);
  EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(Path("secret")).permissions()), 0640U);
  ASSERT_EQ(Decrypt("secret", "opened").status, CRYPTCLI_OK);
  EXPECT_EQ(scratch.Read("opened"), kContent);
}

// Written in place, it would be lost when the disk fills up or the process is killed.
TEST_F(Files, RekeyRefusesAFileThatCannotBeReplacedInOneStep) {
  Protect(kContent);
  const std::string before = scratch.Read("secret");
  std::filesystem::create_hard_link(Path("secret"), Path("other name"));
  const Outcome outcome = Call([&](cryptcli_report** report, cryptcli_error** error) {
    return cryptcli_rekey(client.get(), kRoom, Path("secret").c_str(), nullptr, report, error);
  });
  EXPECT_EQ(outcome.status, CRYPTCLI_IO);
  EXPECT_THAT(outcome.Message(), ::testing::HasSubstr("in one step"));
  EXPECT_EQ(scratch.Read("secret"), before);
}

TEST_F(Files, RekeyLeavesAFileThatDoesNotOpen) {
  scratch.Make("secret", "no message");
  const Outcome outcome = Call([&](cryptcli_report** report, cryptcli_error** error) {
    return cryptcli_rekey(client.get(), kRoom, Path("secret").c_str(), nullptr, report, error);
  });
  EXPECT_EQ(outcome.status, CRYPTCLI_NOT_PROTECTED) << outcome.Message();
  EXPECT_EQ(scratch.Read("secret"), "no message");
}

TEST_F(Files, DescriptorsAreReadAndWrittenAtTheirPosition) {
  scratch.Make("plain", std::string("head") + kContent);
  scratch.Make("opened", "before ");
  const int source = ::open(Path("plain").c_str(), O_RDONLY);
  ASSERT_EQ(::lseek(source, 4, SEEK_SET), 4);
  const int target = ::open(Path("opened").c_str(), O_WRONLY | O_APPEND);
  EXPECT_EQ(cryptcli_encrypt(client.get(), kRoom, cryptcli_descriptor(source),
                             cryptcli_path(Path("secret").c_str()), nullptr, nullptr, nullptr),
            CRYPTCLI_OK);
  EXPECT_EQ(cryptcli_decrypt(client.get(), kRoom, cryptcli_path(Path("secret").c_str()),
                             cryptcli_descriptor(target), nullptr, nullptr, nullptr),
            CRYPTCLI_OK);
  ::close(source);
  ::close(target);
  EXPECT_EQ(scratch.Read("opened"), std::string("before ") + kContent);
}

TEST_F(Files, PipesAreCopiedFirst) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  std::thread writer([&] {
    const std::string bytes(300'000, 'x');
    for (std::size_t sent = 0; sent < bytes.size();) {
      const ssize_t count = ::write(ends[1], bytes.data() + sent, bytes.size() - sent);
      if (count <= 0) break;
      sent += static_cast<std::size_t>(count);
    }
    ::close(ends[1]);
  });
  EXPECT_EQ(cryptcli_encrypt(client.get(), kRoom, cryptcli_descriptor(ends[0]),
                             cryptcli_path(Path("secret").c_str()), nullptr, nullptr, nullptr),
            CRYPTCLI_OK);
  writer.join();
  ::close(ends[0]);
  ASSERT_EQ(Decrypt("secret", "opened").status, CRYPTCLI_OK);
  EXPECT_EQ(scratch.Read("opened"), std::string(300'000, 'x'));
}

TEST_F(Files, ALinkStaysALink) {
  Protect(kContent);
  scratch.Make("file", "old");
  std::filesystem::create_symlink("file", Path("link"));
  ASSERT_EQ(Decrypt("secret", "link").status, CRYPTCLI_OK);
  EXPECT_TRUE(std::filesystem::is_symlink(Path("link")));
  EXPECT_EQ(scratch.Read("file"), kContent);
}

TEST_F(Files, InspectAsksNoServer) {
  Protect(kContent);
  stand.ClearEvents();
  const Outcome outcome = Call([&](cryptcli_report** report, cryptcli_error** error) {
    return cryptcli_inspect(cryptcli_path(Path("secret").c_str()), report, error);
  });
  ASSERT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_THAT(cryptcli_report_json(outcome.report.get()), HasSubstr(R"("recipients":[{"issuer":)"));
  EXPECT_TRUE(stand.GetEvents().empty());
}

TEST_F(Files, ProgressGrowsToTheSizeOfTheSource) {
  const std::string bytes(3'000'000, 'p');
  scratch.Make("plain", bytes);
  std::vector<std::uint64_t> steps;
  cryptcli_call_set_progress(
      call.get(),
      [](void* context, uint64_t done, uint64_t total) -> int32_t {
        EXPECT_LE(done, total);
        static_cast<std::vector<std::uint64_t>*>(context)->push_back(done);
        return 1;
      },
      &steps);
  ASSERT_EQ(Encrypt("plain", "secret").status, CRYPTCLI_OK);
  EXPECT_GT(steps.size(), 10U);
  EXPECT_TRUE(std::is_sorted(steps.begin(), steps.end()));
  EXPECT_EQ(steps.back(), bytes.size());
}

TEST_F(Files, ProgressCanCancel) {
  scratch.Make("plain", std::string(3'000'000, 'p'));
  scratch.Make("secret", "as before");
  cryptcli_call_set_progress(
      call.get(), [](void*, uint64_t done, uint64_t) -> int32_t { return done < 1'000'000 ? 1 : 0; },
      nullptr);
  const Outcome outcome = Encrypt("plain", "secret");
  EXPECT_EQ(outcome.status, CRYPTCLI_CANCELLED) << outcome.Message();
  EXPECT_EQ(scratch.Read("secret"), "as before");
}

TEST_F(Files, CancellingEndsAnExchangeThatWaits) {
  Protect(kContent);
  SetFaults({.type = CryptStand::FaultType::Slow, .number = 60'000});
  std::thread canceller([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    cryptcli_call_cancel(call.get());
  });
  const auto start = std::chrono::steady_clock::now();
  const Outcome outcome = Decrypt("secret", "opened");
  canceller.join();
  EXPECT_EQ(outcome.status, CRYPTCLI_CANCELLED) << outcome.Message();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
  EXPECT_FALSE(scratch.Exists("opened"));
}

TEST_F(Files, CancellingWhileTheSignerIsExaminedDeliversNothingWhateverIsAccepted) {
  Protect(kContent);
  ASSERT_TRUE(
      stand.SetFault(CryptStand::kCryptService,
                     {.type = CryptStand::FaultType::Slow, .operation = "integrity", .number = 60'000}));
  ASSERT_EQ(cryptcli_call_set_accept(call.get(), CRYPTCLI_ACCEPT_ANYTHING, nullptr), CRYPTCLI_OK);
  std::thread canceller([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    cryptcli_call_cancel(call.get());
  });
  const Outcome outcome = Decrypt("secret", "opened");
  canceller.join();
  EXPECT_EQ(outcome.status, CRYPTCLI_CANCELLED) << outcome.Message();
  EXPECT_EQ(outcome.report, nullptr);
  EXPECT_FALSE(scratch.Exists("opened"));
}

TEST_F(Files, ACancelledCallCanBeUsedAgain) {
  Protect(kContent);
  cryptcli_call_cancel(call.get());
  EXPECT_EQ(Decrypt("secret", "opened").status, CRYPTCLI_CANCELLED);
  EXPECT_EQ(Decrypt("secret", "opened").status, CRYPTCLI_OK);
}

TEST_F(Files, TemporaryFilesLieWhereTheOptionsSay) {
  std::filesystem::create_directory(Path("own"));
  ASSERT_EQ(cryptcli_options_set_temporary_directory(options.get(), Path("own").c_str(), nullptr),
            CRYPTCLI_OK);
  MakeClient();
  scratch.BreakTemporary();
  scratch.Make("plain", kContent);
  const Outcome outcome = Encrypt("plain", "secret");
  EXPECT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_TRUE(std::filesystem::is_empty(Path("own")));
}

TEST_F(Files, OneClientServesManyThreads) {
  Protect(kContent);
  std::vector<std::thread> threads;
  for (int i = 0; i < 16; ++i) {
    threads.emplace_back([&, i] {
      const std::string name = "opened" + std::to_string(i);
      EXPECT_EQ(cryptcli_decrypt(client.get(), kRoom, cryptcli_path(Path("secret").c_str()),
                                 cryptcli_path(Path(name).c_str()), nullptr, nullptr, nullptr),
                CRYPTCLI_OK);
      EXPECT_EQ(scratch.Read(name), kContent);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace CInterface
