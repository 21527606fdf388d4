#include "tests/tools/operation_fixture.h"

namespace TestSupport {
namespace {

using CryptStand::FaultType;
using CryptStand::KeyPair;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

constexpr const char* kContent = "The plain content.\n";

class SignCommand : public OperationTest {
 protected:
  void SetUp() override {
    OperationTest::SetUp();
    ASSERT_NO_FATAL_FAILURE(ImportOnce());
    stand_.ClearEvents();
  }

  static const KeyPair& Key() {
    static const KeyPair key = KeyPair::MakeRSA();
    return key;
  }
  static bool Verifies(const std::string& signature, std::string_view content = kContent,
                       const char* digest = CryptStand::kSHA512) {
    return Key().Verify(content, signature, digest);
  }
  static std::string Decoded(const std::string& line) {
    EXPECT_TRUE(line.ends_with('\n'));
    return line.size() > 1 ? FromBase64(line.substr(0, line.size() - 1)) : "";
  }
  std::vector<std::string> Arguments(const std::vector<std::string>& further) const {
    std::vector<std::string> all = WithServers("sign", {"--object", "demo", "--key-id", "command"});
    all.insert(all.end(), further.begin(), further.end());
    return all;
  }
  Finished Sign(const std::vector<std::string>& further) const { return RunCommand(Arguments(further)); }

 private:
  void ImportOnce() const {
    static bool isImported = false;
    if (isImported) return;
    const Finished finished =
        Call("ImportKey", Texts({{"group", kGroup}, {"id", "command"}, {"key", Key().ToBase64()}}));
    ASSERT_EQ(finished.code, 0) << finished.errors;
    std::filesystem::remove(scratch_.Path("args.json"));
    isImported = true;
  }
};

TEST_F(SignCommand, SignsAFile) {
  const Finished finished = Sign({Path("plain.txt")});
  EXPECT_EQ(finished.code, 0);
  EXPECT_THAT(finished.errors, IsEmpty());
  EXPECT_TRUE(Verifies(Decoded(finished.output)));
  EXPECT_THAT(Names(), ElementsAre("plain.txt"));
}

TEST_F(SignCommand, LearnsTheKeyServersFromTheRoom) {
  const Finished finished = RunCommand(
      WithService("sign", {"--room", "demo", "--object", "demo", "--key-id", "command", Path("plain.txt")}));
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_TRUE(Verifies(Decoded(finished.output)));
}

TEST_F(SignCommand, AKeyServerIsOneWordAndTheFileMayFollow) {
  const Finished finished = RunCommand(WithService(
      "sign", {"--object", "demo", "--key-id", "command", "--key-server", stand_.GetKeyServerUrls()[0],
               "--key-server", stand_.GetKeyServerUrls()[1], Path("plain.txt")}));
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_TRUE(Verifies(Decoded(finished.output)));
}

TEST_F(SignCommand, AsksOnlyTheKeyServersThatAreNamed) {
  const std::string nobody = "http://127.0.0.1:1";
  const Finished finished =
      RunCommand(WithService("sign", {"--room", "demo", "--key-server", nobody, "--object", "demo",
                                      "--key-id", "command", Path("plain.txt")}));
  EXPECT_EQ(finished.code, 6) << finished.errors;
}

TEST_F(SignCommand, ReportsARoomWhoseKeyServersAreNotKnown) {
  const Finished finished = RunCommand(WithService(
      "sign", {"--room", "nowhere", "--object", "demo", "--key-id", "command", Path("plain.txt")}));
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, HasSubstr("Unknown room"));
}

TEST_F(SignCommand, WithoutKeyServersOrARoomIsCode2) {
  const Finished finished =
      RunCommand(WithService("sign", {"--object", "demo", "--key-id", "command", Path("plain.txt")}));
  EXPECT_EQ(finished.code, 2);
  EXPECT_THAT(finished.errors, HasSubstr("--room"));
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(SignCommand, SignsFilesOfAnySize) {
  // Sizes around that of the chunks in which a file is read.
  for (const std::size_t size : {0U, 1U, 262144U, 262145U, 600000U}) {
    const std::string bytes(size, 'x');
    scratch_.Make("sized", bytes);
    EXPECT_TRUE(Verifies(Decoded(Sign({Path("sized")}).output), bytes)) << size;
  }
}

TEST_F(SignCommand, SignsWithTheDigestThatTheAlgorithmNames) {
  const std::pair<const char*, const char*> rows[] = {
      {"RSASSA-PKCS1-v1_5-SHA-256", CryptStand::kSHA256},
      {"RSASSA-PKCS1-v1_5-SHA-384", CryptStand::kSHA384},
      {"RSASSA-PKCS1-v1_5-SHA-512", CryptStand::kSHA512},
  };
  for (const auto& [algorithm, digest] : rows) {
    const Finished finished = Sign({"--algorithm", algorithm, "--key-sub-id", "1", Path("plain.txt")});
    EXPECT_TRUE(Verifies(Decoded(finished.output), kContent, digest)) << algorithm << finished.errors;
  }
}

TEST_F(SignCommand, SignsAHashThatWasMadeElsewhere) {
  const OruGuiBase::KVMap report = Map(Sign({"--json", Path("plain.txt")}).output);
  const std::string hash = Str(report.Get("hash").AsString());
  EXPECT_EQ(FromBase64(hash).size(), 64U);
  const Finished finished = Sign({"--hash", hash});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_EQ(finished.output, Str(report.Get("signature").AsString()) + "\n");
  EXPECT_TRUE(Verifies(Decoded(finished.output)));
}

TEST_F(SignCommand, WritesTheBytesOfTheSignatureOnRequest) {
  const Finished finished = Sign({"--binary", Path("plain.txt")});
  EXPECT_EQ(finished.code, 0);
  EXPECT_TRUE(Verifies(finished.output));
}

TEST_F(SignCommand, WritesToAFileAndSaysSo) {
  const Finished finished = Sign({"--binary", "--output", Path("plain.sig"), Path("plain.txt")});
  EXPECT_EQ(finished.output, "Wrote the signature to " + Path("plain.sig") + "\n");
  EXPECT_TRUE(Verifies(scratch_.Read("plain.sig")));
  EXPECT_EQ(Sign({"--force", "--output", Path("plain.sig"), Path("plain.txt")}).code, 0);
  EXPECT_TRUE(Verifies(Decoded(scratch_.Read("plain.sig"))));
  EXPECT_THAT(Names(), UnorderedElementsAre("plain.txt", "plain.sig"));
}

TEST_F(SignCommand, ReportsAsJSON) {
  const Finished finished = Sign({"--json", Path("plain.txt")});
  const OruGuiBase::KVMap report = Map(finished.output);
  EXPECT_EQ(Str(report.Get("operation").AsString()), "sign");
  EXPECT_TRUE(Verifies(FromBase64(Str(report.Get("signature").AsString()))));
  EXPECT_TRUE(report.Get("success").AsBool());
}

TEST_F(SignCommand, SendsTheTransactionWithTheTokenRequest) {
  const Finished finished = Sign({"--transaction", "t-1", "--trace", "2", Path("plain.txt")});
  EXPECT_THAT(finished.errors, HasSubstr(R"("transaction":"t-1")"));
}

TEST_F(SignCommand, GoesOnWithTheNextKeyServer) {
  ASSERT_TRUE(stand_.SetFault(0, {FaultType::Down}));
  ASSERT_TRUE(stand_.SetFault(1, {FaultType::BadBase64, "signRequest"}));
  EXPECT_TRUE(Verifies(Decoded(Sign({Path("plain.txt")}).output)));
}

TEST_F(SignCommand, ReportsAKeyServersRefusal) {
  const std::pair<std::vector<std::string>, const char*> rows[] = {
      {{"--key-sub-id", "99", Path("plain.txt")}, "607 Key Not Found"},
      {{"--algorithm", "none", "--hash", "AAAA"}, "608 Unsupported Algorithm"},
      {{"--hash", "AAAA"}, "601 Invalid Payload"},
  };
  for (const auto& [arguments, reason] : rows) {
    const Finished finished = Sign(arguments);
    EXPECT_EQ(finished.code, 1) << reason;
    EXPECT_EQ(finished.errors, std::string("cryptcli: ") + reason + "\n");
    EXPECT_THAT(finished.output, IsEmpty()) << reason;
  }
}

TEST_F(SignCommand, ReportsAnUnknownObject) {
  const Finished finished =
      RunCommand(WithServers("sign", {"--object", "nobody's", "--key-id", "command", Path("plain.txt")}));
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, HasSubstr("Could not get authorization token: "));
}

TEST_F(SignCommand, RefusesAHashThatIsNotBase64BeforeAskingAnyServer) {
  const Finished finished = Sign({"--hash", "no base64!"});
  EXPECT_EQ(finished.code, 2);
  EXPECT_EQ(finished.errors, "cryptcli: Invalid base64 hash no base64!\n");
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(SignCommand, WantsEitherAFileOrAHash) {
  EXPECT_EQ(Sign({}).code, 2);
  EXPECT_EQ(Sign({"--hash", "AAAA", Path("plain.txt")}).code, 2);
  EXPECT_EQ(Sign({"--hash", ""}).code, 2);
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(SignCommand, AnAlgorithmWithoutAKnownDigestNeedsAHash) {
  const Finished finished = Sign({"--algorithm", "RSASSA-PSS", Path("plain.txt")});
  EXPECT_EQ(finished.code, 2);
  EXPECT_THAT(finished.errors, HasSubstr("--hash"));
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(SignCommand, BytesAndJSONDoNotShareStandardOutput) {
  EXPECT_EQ(Sign({"--json", "--binary", Path("plain.txt")}).code, 2);
  EXPECT_EQ(Sign({"--json", "--binary", "--output", Path("s"), Path("plain.txt")}).code, 0);
}

TEST_F(SignCommand, ReportsAnUnreadableFileBeforeAskingAnyServer) {
  const std::pair<std::string, const char*> rows[] = {{Path("none"), "No such file or directory"},
                                                      {Path("temporary"), "Is a directory"},
                                                      {"/proc/self/mem", "Input/output error"}};
  for (const auto& [source, reason] : rows) {
    const Finished finished = Sign({source});
    EXPECT_EQ(finished.code, 1) << source;
    EXPECT_EQ(finished.errors, "cryptcli: Could not read \"" + source + "\": " + reason + "\n");
  }
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(SignCommand, LeavesATargetThatIsThere) {
  scratch_.Make("plain.sig", "kept");
  const Finished finished = Sign({"--output", Path("plain.sig"), Path("plain.txt")});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, HasSubstr("--force"));
  EXPECT_EQ(scratch_.Read("plain.sig"), "kept");
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(SignCommand, AFailureLeavesNoTarget) {
  SetFaults({FaultType::ErrorCode, "signRequest", 0, 606});
  const Finished finished = Sign({"--output", Path("plain.sig"), Path("plain.txt")});
  EXPECT_EQ(finished.code, 1);
  EXPECT_EQ(finished.errors, "cryptcli: 606 Keystore Unavailable\n");
  EXPECT_THAT(Names(), ElementsAre("plain.txt"));
}

}  // namespace
}  // namespace TestSupport
