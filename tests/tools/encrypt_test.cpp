#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "tests/tools/command_fixture.h"
#include "tests/transport/raw_server.h"

namespace TestSupport {
namespace {

using CryptStand::Fault;
using CryptStand::FaultType;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

class Encrypt : public CommandTest {};

TEST_F(Encrypt, WritesAProtectedFileAndSaysSo) {
  const Finished finished = Run("encrypt", {Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(finished.code, 0);
  EXPECT_EQ(finished.output, "Encrypted " + Path("plain.txt") + " to " + Path("file.p7m") + "\n");
  EXPECT_THAT(finished.errors, IsEmpty());
  EXPECT_THAT(scratch_.Read("file.p7m"), Not(HasSubstr("plain content")));
  EXPECT_THAT(Names(), UnorderedElementsAre("plain.txt", "file.p7m"));
}

TEST_F(Encrypt, ShowsTheRoomAndTheSizeWhenVerbose) {
  const Finished finished = Run("encrypt", {"--verbose", Path("plain.txt"), Path("file.p7m")});
  EXPECT_THAT(finished.output, HasSubstr("  for room \"demo\" of group \"QOB.1.100.1\"\n  19 bytes\n"));
}

TEST_F(Encrypt, ReportsAsJSON) {
  const Finished finished = Run("encrypt", {"--json", Path("plain.txt"), Path("file.p7m")});
  const OruGuiBase::KVMap report = Map(finished.output);
  EXPECT_EQ(Str(report.Get("operation").AsString()), "encrypt");
  EXPECT_EQ(Str(report.Get("target").AsString()), Path("file.p7m"));
  EXPECT_TRUE(report.Get("success").AsBool());
  EXPECT_EQ(report.Get("exitCode").AsInteger(), 0);
  EXPECT_THAT(finished.errors, IsEmpty());
}

TEST_F(Encrypt, ReportsAFailureAsJSON) {
  const Finished finished = Run("encrypt", {"--json", Path("missing"), Path("file.p7m")});
  const OruGuiBase::KVMap report = Map(finished.output);
  EXPECT_FALSE(report.Get("success").AsBool());
  EXPECT_EQ(report.Get("exitCode").AsInteger(), 1);
  EXPECT_THAT(Str(report.Get("error").AsString()), HasSubstr("No such file or directory"));
}

TEST_F(Encrypt, ANameThatIsNotUTF8StillMakesJSON) {
  const Finished finished = Run("encrypt", {"--json", Path("plain.txt"), Path("f\xFFile")});
  EXPECT_EQ(finished.code, 0);
  EXPECT_THAT(Str(Map(finished.output).Get("target").AsString()), HasSubstr("f\xEF\xBF\xBDile"));
  EXPECT_TRUE(scratch_.Exists("f\xFFile"));
}

TEST_F(Encrypt, KeepsTheSecondFileWhenTheOutputFolderIsEmpty) {
  scratch_.Make("second.txt", "precious");
  const Finished finished =
      Run("encrypt", {Path("plain.txt"), Path("second.txt"), "--force", "--output-dir", ""});
  EXPECT_EQ(finished.code, 2);
  EXPECT_EQ(
      finished.errors,
      "cryptcli: --output-dir: the value is empty\nRun cryptcli encrypt --help for more information.\n");
  EXPECT_EQ(scratch_.Read("second.txt"), "precious");
}

TEST_F(Encrypt, RefusesAnotherRoomThanTheExpectedOne) {
  const Finished other = Run("encrypt", {"--expected-room", "other", Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(other.code, 3);
  EXPECT_FALSE(scratch_.Exists("file.p7m"));
  const Finished many =
      Run("encrypt", {"--expected-room", "other", "--output-dir", Path("out"), Path("plain.txt")});
  EXPECT_EQ(many.code, 3);
  EXPECT_FALSE(scratch_.Exists("out/plain.txt.p7m"));
  const Finished same = Run("encrypt", {"--expected-room", "demo", Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(same.code, 0) << same.errors;
}

TEST_F(Encrypt, LeavesATargetThatIsThere) {
  scratch_.Make("file.p7m", "kept");
  const Finished finished = Run("encrypt", {Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, HasSubstr("--force"));
  EXPECT_EQ(scratch_.Read("file.p7m"), "kept");
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(Encrypt, ReplacesItWhenForcedAndKeepsItsMode) {
  scratch_.Make("file.p7m", "old");
  std::filesystem::permissions(scratch_.Path("file.p7m"), std::filesystem::perms(0640));
  EXPECT_EQ(Run("encrypt", {"--force", Path("plain.txt"), Path("file.p7m")}).code, 0);
  EXPECT_NE(scratch_.Read("file.p7m"), "old");
  EXPECT_EQ(std::filesystem::status(scratch_.Path("file.p7m")).permissions(), std::filesystem::perms(0640));
}

TEST_F(Encrypt, GivesANewTargetTheModeOfNewFiles) {
  const mode_t before = umask(027);
  EXPECT_EQ(Run("encrypt", {Path("plain.txt"), Path("file.p7m")}).code, 0);
  umask(before);
  EXPECT_EQ(std::filesystem::status(scratch_.Path("file.p7m")).permissions(), std::filesystem::perms(0640));
}

TEST_F(Encrypt, AFailureLeavesAForcedTargetAsItWas) {
  scratch_.Make("file.p7m", "kept");
  const Finished finished = RunCommand({"encrypt", "--service", stand_.GetServiceUrl(), "--room",
                                        "no such room", "--force", Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(finished.code, 1);
  EXPECT_EQ(scratch_.Read("file.p7m"), "kept");
  EXPECT_THAT(Names(), UnorderedElementsAre("plain.txt", "file.p7m"));
}

TEST_F(Encrypt, ALinkStaysALink) {
  scratch_.Make("real.p7m", "old");
  std::filesystem::create_symlink("real.p7m", scratch_.Path("link.p7m"));
  EXPECT_EQ(Run("encrypt", {"--force", Path("plain.txt"), Path("link.p7m")}).code, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(scratch_.Path("link.p7m")));
  EXPECT_NE(scratch_.Read("real.p7m"), "old");
}

TEST_F(Encrypt, KeepsTheGroupOfAForcedTarget) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file to any group";
  scratch_.Make("file.p7m", "old");
  ASSERT_EQ(::chown(Path("file.p7m").c_str(), 0, 1234), 0);
  EXPECT_EQ(Run("encrypt", {"--force", Path("plain.txt"), Path("file.p7m")}).code, 0);
  struct stat info {};
  ASSERT_EQ(::stat(Path("file.p7m").c_str(), &info), 0);
  EXPECT_EQ(info.st_gid, 1234U);
  EXPECT_NE(scratch_.Read("file.p7m"), "old");
}

TEST_F(Encrypt, ADeviceIsWrittenThroughWithoutForce) {
  const Finished finished = Run("encrypt", {Path("plain.txt"), "/dev/null"});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST_F(Encrypt, AFIFOIsReadOnceAndWhole) {
  ASSERT_EQ(::mkfifo(Path("fifo").c_str(), 0600), 0);
  std::thread writer([&] { WriteFile(Path("fifo"), "out of a pipe"); });
  const Finished finished = Run("encrypt", {Path("fifo"), Path("file.p7m")});
  writer.join();
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_EQ(Run("decrypt", {Path("file.p7m"), Path("t")}).code, 0);
  EXPECT_EQ(scratch_.Read("t"), "out of a pipe");
}

TEST_F(Encrypt, AFIFOAsTargetTakesTheProtectedFile) {
  ASSERT_EQ(::mkfifo(Path("fifo").c_str(), 0600), 0);
  std::string bytes;
  std::thread reader([&] { bytes = ReadFile(Path("fifo")); });
  const Finished finished = Run("encrypt", {Path("plain.txt"), Path("fifo")});
  reader.join();
  EXPECT_EQ(finished.code, 0) << finished.errors;
  scratch_.Make("file.p7m", bytes);
  EXPECT_EQ(Run("decrypt", {Path("file.p7m"), Path("t")}).code, 0);
  EXPECT_EQ(scratch_.Read("t"), "The plain content.\n");
}

TEST_F(Encrypt, SourceMayBeTarget) {
  EXPECT_EQ(Run("encrypt", {"--force", Path("plain.txt"), Path("plain.txt")}).code, 0);
  EXPECT_THAT(scratch_.Read("plain.txt"), Not(HasSubstr("plain content")));
  EXPECT_EQ(Run("decrypt", {"--force", Path("plain.txt"), Path("plain.txt")}).code, 0);
  EXPECT_EQ(scratch_.Read("plain.txt"), "The plain content.\n");
}

struct BadPath {
  const char* reason;
  std::string source;
  std::string target;
  const char* errorText;
};

TEST_F(Encrypt, ReportsImpossibleFilesBeforeAskingAnyServer) {
  std::filesystem::create_symlink("loop", scratch_.Path("loop"));
  const std::vector<BadPath> rows = {
      {"a source that is not there", Path("missing"), Path("t"), "No such file or directory"},
      {"a directory as source", Path("temporary"), Path("t"), "Is a directory"},
      {"a source that cannot be opened", Path("loop"), Path("t"), "Too many levels of symbolic links"},
      {"a directory as target", Path("plain.txt"), Path("temporary"), "Is a directory"},
      {"a target in no directory", Path("plain.txt"), Path("no/t"), "No such file or directory"},
      {"a target below a file", Path("plain.txt"), Path("plain.txt/t"), "Not a directory"},
  };
  for (const BadPath& row : rows) {
    const Finished finished = Run("encrypt", {"--force", row.source, row.target});
    EXPECT_EQ(finished.code, 1) << row.reason;
    EXPECT_THAT(finished.errors, HasSubstr(row.errorText)) << row.reason;
  }
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(Encrypt, ReportsAnUnknownRoomInTheServicesWords) {
  const Finished finished = RunCommand({"encrypt", "--service", stand_.GetServiceUrl(), "--room", "nowhere",
                                        Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, HasSubstr("Could not get room key: Unknown room"));
  EXPECT_THAT(Names(), ElementsAre("plain.txt"));
}

TEST_F(Encrypt, AServiceThatIsDownIsNamed) {
  const std::string authority = "127.0.0.1:" + std::to_string(UnusedPort());
  const Finished finished = RunCommand(
      {"encrypt", "--service", "http://" + authority, "--room", "demo", Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(finished.code, 6);
  EXPECT_THAT(finished.errors, HasSubstr("Could not connect to " + authority + ": Connection refused"));
}

TEST_F(Encrypt, AProxyIsUsed) {
  const std::string proxy = "http://127.0.0.1:" + std::to_string(UnusedPort());
  const Finished finished = Run("encrypt", {"--proxy", proxy, Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(finished.code, 6);
  EXPECT_THAT(finished.errors, HasSubstr("through the proxy: Connection refused"));
}

TEST_F(Encrypt, TheRefusalOfAKeyHasACodeOfItsOwn) {
  Fault refusal{FaultType::ErrorCode};
  refusal.text = "QOB.1.1001.1.422645";
  ASSERT_TRUE(stand_.SetFault(CryptStand::kCryptService, refusal));
  EXPECT_EQ(Run("encrypt", {Path("plain.txt"), Path("file.p7m")}).code, 4);
  const Finished finished = Run("encrypt", {"--json", Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(finished.code, 4);
  EXPECT_TRUE(Map(finished.output).Get("keyRefused").AsBool());
  EXPECT_THAT(Names(), ElementsAre("plain.txt"));
}

TEST_F(Encrypt, ADifferentRefusalIsAFailureLikeAnyOther) {
  Fault refusal{FaultType::ErrorCode};
  refusal.text = "QOB.1.1001.1.1";
  ASSERT_TRUE(stand_.SetFault(CryptStand::kCryptService, refusal));
  EXPECT_EQ(Run("encrypt", {Path("plain.txt"), Path("file.p7m")}).code, 1);
}

TEST_F(Encrypt, HeadersGoToTheService) {
  Guarded<RecordedRequest> request;
  RawServer service(RespondToAll([&](RawConnection& connection, const RecordedRequest& got) {
    request.Set(got);
    connection.Respond(404, "");
  }));
  scratch_.Make("headers", "X-Tenant: 7\r\n\r\nAuthorization: Bearer 1\n");
  RunCommand({"encrypt", "--service", service.Url(""), "--room", "demo", "--header", "X-One:1", "--header",
              "X-Tenant: 8", "--header-file", Path("headers"), Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(HeaderOf(request.Get(), "Authorization"), "Bearer 1");
  EXPECT_EQ(HeaderOf(request.Get(), "X-One"), "1");
  EXPECT_EQ(HeaderOf(request.Get(), "X-Tenant"), "8");
}

TEST_F(Encrypt, AHeaderIsOneWordAndTheFilesMayFollow) {
  const Finished finished =
      Run("encrypt", {"--header", "X-One: 1", "--header", "X-Two: 2", Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(finished.code, 0) << finished.errors;
}

TEST_F(Encrypt, TracesRequestLinesWithoutBodies) {
  const Finished finished = Run("encrypt", {"--trace", "1", Path("plain.txt"), Path("file.p7m")});
  EXPECT_THAT(finished.errors, HasSubstr("GET " + stand_.GetServiceUrl() + "crypt/key/demo"));
  EXPECT_THAT(finished.errors, Not(HasSubstr("request[")));
  EXPECT_THAT(finished.errors, Not(HasSubstr("response[")));
}

TEST_F(Encrypt, TracesTheTimeOfEachLine) {
  const Finished finished = Run("encrypt", {"--trace", "1", Path("plain.txt"), Path("file.p7m")});
  EXPECT_THAT(finished.errors, ::testing::ContainsRegex("^[0-2][0-9]:[0-5][0-9]:[0-6][0-9]\\.[0-9]{3} "));
}

TEST_F(Encrypt, AServerThatDoesNotRespondInTimeIsCode6) {
  Fault slow{FaultType::Slow};
  slow.number = 30000;
  ASSERT_TRUE(stand_.SetFault(CryptStand::kCryptService, slow));
  const Finished finished = Run("encrypt", {"--timeout", "1", "--json", Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(finished.code, 6);
  EXPECT_EQ(Str(Map(finished.output).Get("code").AsString()), "timeout");
  EXPECT_TRUE(Map(finished.output).Get("retryable").AsBool());
}

TEST_F(Encrypt, AServerThatRefusesTheCallerIsCode8) {
  RawServer service(
      RespondToAll([](RawConnection& connection, const RecordedRequest&) { connection.Respond(401, ""); }));
  const Finished finished = RunCommand({"encrypt", "--service", service.Url(""), "--room", "demo", "--json",
                                        Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(finished.code, 8);
  EXPECT_EQ(Str(Map(finished.output).Get("code").AsString()), "unauthorised");
  EXPECT_EQ(Map(finished.output).Get("httpStatus").AsInteger(), 401);
}

TEST_F(Encrypt, TracesBodiesOnRequestAlone) {
  const Finished finished = Run("encrypt", {"--trace", "2", Path("plain.txt"), Path("file.p7m")});
  EXPECT_THAT(finished.errors, HasSubstr("CryptClient::HttpPost: request[00] = "));
  EXPECT_THAT(finished.errors, HasSubstr("CryptClient::ParseResponseJSON: response[00] = "));
}

TEST_F(Encrypt, SaysThatItSucceededWhenOnlyTheReportIsLost) {
  const std::string lost =
      "cryptcli: Could not write to standard output: No space left on device (the operation itself "
      "succeeded)\n";
  const std::vector<std::vector<std::string>> rows = {
      Arguments("encrypt", {Path("plain.txt"), Path("file.p7m")}), Arguments("rekey", {Path("file.p7m")}),
      Arguments("decrypt", {"--json", Path("file.p7m"), Path("opened")}),
      Arguments("encrypt", {"--json-lines", "--output-dir", Path("out"), Path("plain.txt")})};
  for (const auto& words : rows) {
    const Finished finished = RunProcess({CRYPTCLI_COMMAND, words, "/dev/full"});
    EXPECT_EQ(finished.code, 9) << words.front();
    EXPECT_THAT(finished.errors, HasSubstr(lost)) << words.front();
  }
  EXPECT_THAT(Names(), ::testing::UnorderedElementsAre("plain.txt", "file.p7m", "opened"));
  EXPECT_TRUE(scratch_.Exists("out/plain.txt.p7m"));
}

TEST_F(Encrypt, KeepsTheCodeOfAFailureWhoseReportIsLost) {
  const Finished finished =
      RunProcess({CRYPTCLI_COMMAND, Arguments("verify", {"--json", Path("plain.txt")}), "/dev/full"});
  EXPECT_EQ(finished.code, 7);
  EXPECT_EQ(finished.errors, "cryptcli: Could not write to standard output: No space left on device\n");
}

}  // namespace
}  // namespace TestSupport
