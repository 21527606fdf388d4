#include <filesystem>
#include <random>
#include <thread>

#include "tests/end_to_end/end_to_end_fixture.h"

using CryptStand::RoomCertificate;
using CryptStand::RoomOptions;
using ::testing::HasSubstr;
using ::testing::Not;

namespace TestSupport {
namespace {

std::string RandomBytes(std::size_t size) {
  std::mt19937_64 random(size);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

class EndToEnd : public EndToEndTest {};

TEST_F(EndToEnd, FileOfRoomWithoutKeyComesBackWithProvenOrigin) {
  Protect("the plain bytes");
  EXPECT_EQ(CountRequests("generateWrappedKeyRequest"), 1U);
  EXPECT_EQ(CountRequests("newkey"), 1U);
  EXPECT_THAT(scratch.Read("secret"), Not(HasSubstr("the plain bytes")));
  ExpectComesBack("the plain bytes");
  EXPECT_EQ(scratch.Read("plain"), "the plain bytes");
}

TEST_F(EndToEnd, SecondFileUsesTheKeyThatTheRoomHas) {
  Protect("first");
  stand.ClearEvents();
  Protect("second");
  EXPECT_EQ(CountRequests("generateWrappedKeyRequest"), 0U);
  ExpectComesBack("second");
}

TEST_F(EndToEnd, KeyThatWasMadeForAFileStaysWhenTheFileFails) {
  SetFaults({.type = CryptStand::FaultType::ErrorCode, .operation = "signRequest", .number = 607});
  scratch.Make("plain", "bytes");
  EXPECT_FALSE(Encrypt("plain", "secret"));
  EXPECT_EQ(lastError, "Could not sign file: 607 Key Not Found");
  EXPECT_EQ(CountRequests("newkey"), 1U);
  for (int server = 0; server < 3; ++server) ASSERT_TRUE(stand.ClearFaults(server));
  stand.ClearEvents();
  Protect("bytes");
  EXPECT_EQ(CountRequests("generateWrappedKeyRequest"), 0U);
  ExpectComesBack("bytes");
}

TEST_F(EndToEnd, EmptyFileComesBack) {
  Protect("");
  ExpectComesBack("");
}

class EndToEndSizes : public EndToEndTest, public ::testing::WithParamInterface<std::size_t> {};

// A file of each size around block and buffer comes back with its origin proven.
TEST_P(EndToEndSizes, FileComesBack) {
  const std::string bytes = RandomBytes(GetParam());
  Protect(bytes);
  ExpectComesBack(bytes);
}

// Around the cipher's block, the buffer, and the buffer with a block of padding; then several buffers.
INSTANTIATE_TEST_SUITE_P(Edges, EndToEndSizes,
                         ::testing::Values(1, 15, 16, 17, 262143, 262144, 262145, 262160, 524288, 3145735));

TEST_F(EndToEnd, RoomsOfAnyNameWork) {
  for (const char* room :
       {"room with blanks", "a/b?c=d#e%41", "R\xC3\xA4ume \xE2\x82\xAC", "..", "100%s%n"}) {
    SCOPED_TRACE(room);
    ASSERT_TRUE(stand.AddRoom(room));
    Protect(room, room);
    ExpectComesBack(room, room);
  }
}

TEST_F(EndToEnd, TargetWithNameOf255BytesWorks) {
  const std::string name(255, 'n');
  scratch.Make("plain", "bytes");
  ASSERT_TRUE(Encrypt("plain", name)) << lastError;
  const Opened opened = Decrypt(name, "opened");
  EXPECT_TRUE(opened.isVerified) << opened.error;
  EXPECT_EQ(scratch.Read("opened"), "bytes");
}

TEST_F(EndToEnd, OneFileMayBeSourceAndTarget) {
  scratch.Make("file", "bytes");
  ASSERT_TRUE(Encrypt("file", "file")) << lastError;
  EXPECT_NE(scratch.Read("file"), "bytes");
  const Opened opened = Decrypt("file", "file");
  EXPECT_TRUE(opened.isVerified) << opened.error;
  EXPECT_EQ(scratch.Read("file"), "bytes");
}

TEST_F(EndToEnd, TargetThatExistsIsReplacedAsAWhole) {
  scratch.Make("secret", std::string(100000, 'x'));
  scratch.Make("opened", std::string(100000, 'x'));
  Protect("short");
  EXPECT_LT(std::filesystem::file_size(scratch.Path("secret")), 100000U);
  ExpectComesBack("short");
}

TEST_F(EndToEnd, PlainRoomKeyOpensWithoutAskingAKeyServer) {
  Protect("bytes");
  ASSERT_TRUE(stand.SetRoomOptions(kRoom, RoomOptions{.plainKey = true}));
  stand.ClearEvents();
  ExpectComesBack("bytes");
  EXPECT_THAT(GetOperations(), ::testing::ElementsAre("key"));
}

TEST_F(EndToEnd, CertificateFlagMakesEveryCommandProbe) {
  Protect("bytes");
  ASSERT_TRUE(stand.SetRoomOptions(kRoom, RoomOptions{.certAuth = true}));
  stand.ClearEvents();
  ExpectComesBack("bytes");
  // The content key and both lists: three visits to key servers, each with a probe of its own.
  EXPECT_EQ(CountRequests("status"), 3U);
}

TEST_F(EndToEnd, KnownServerIsProbedOncePerClient) {
  Protect("bytes");
  stand.ClearEvents();
  ExpectComesBack("bytes");
  EXPECT_EQ(CountRequests("status"), 1U);
}

class UnprovableKey : public EndToEndTest,
                      public ::testing::WithParamInterface<std::pair<RoomCertificate, const char*>> {};

TEST_P(UnprovableKey, IsReplacedAndTheReasonStaysRecorded) {
  Protect("first");
  ASSERT_TRUE(stand.SetRoomCertificate(kRoom, GetParam().first));
  stand.ClearEvents();
  Protect("second");
  EXPECT_THAT(lastError, HasSubstr(GetParam().second));
  EXPECT_EQ(CountRequests("newkey"), 1U);
  ExpectComesBack("second");
}

INSTANTIATE_TEST_SUITE_P(
    Certificates, UnprovableKey,
    ::testing::Values(std::pair(RoomCertificate::Expired, "Could not verify room key certificate chain: "),
                      std::pair(RoomCertificate::Foreign, "Could not verify room key certificate chain: "),
                      std::pair(RoomCertificate::WrongIssuer,
                                "Could not verify room key: Unexpected issuer")));

TEST_F(EndToEnd, RefusalSetsTheKeyErrorFlagAndNothingIsWritten) {
  ASSERT_TRUE(stand.SetRoomOptions(kRoom, RoomOptions{.locked = true}));
  scratch.Make("plain", "bytes");
  EXPECT_FALSE(Encrypt("plain", "secret"));
  EXPECT_TRUE(keyErrorFlag);
  EXPECT_FALSE(lastError.empty());
  EXPECT_FALSE(scratch.Exists("secret"));
}

TEST_F(EndToEnd, UnknownRoomIsReportedWithoutKeyErrorFlag) {
  scratch.Make("plain", "bytes");
  EXPECT_FALSE(Encrypt("plain", "secret", "nobody's"));
  EXPECT_FALSE(keyErrorFlag);
  EXPECT_THAT(lastError, HasSubstr("Could not get room key: "));
}

TEST_F(EndToEnd, FileSignedWithAnEarlierIntegrityKeyStaysProven) {
  Protect("bytes");
  ASSERT_TRUE(stand.RenewIntegrityKey());
  ExpectComesBack("bytes");
}

TEST_F(EndToEnd, FileOfAnEarlierRoomKeyStillOpens) {
  Protect("bytes");
  ASSERT_TRUE(stand.SetRoomCertificate(kRoom, RoomCertificate::Foreign));
  scratch.Make("other", "other");
  ASSERT_TRUE(Encrypt("other", "replacement")) << lastError;
  ExpectComesBack("bytes");
}

TEST_F(EndToEnd, ManyClientsShareOneTransport) {
  Protect("bytes");
  constexpr int kThreads = 4;
  constexpr int kRounds = 3;
  std::vector<std::thread> threads;
  std::atomic<int> good = 0;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([this, thread, &good] {
      const OruGuiBase::File secret = scratch.File("secret" + std::to_string(thread));
      const OruGuiBase::File opened = scratch.File("opened" + std::to_string(thread));
      for (int round = 0; round < kRounds; ++round) {
        OruKalvix::CryptClient client(http.get(), Ansi(stand.GetServiceUrl()), "", kRoom);
        bool keyError = false;
        bool isSigned = false;
        bool isVerified = false;
        if (client.Encrypt(scratch.File("plain"), secret, keyError) &&
            client.Decrypt(secret, opened, isSigned, isVerified) && isVerified) {
          ++good;
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, kThreads * kRounds);
}

}  // namespace
}  // namespace TestSupport
