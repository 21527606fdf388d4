#include <string>

#include "tests/bindings/c/look_fixture.h"

// What cryptcli_room finds out, and that it changes nothing.
namespace CInterface {
namespace {

using CryptStand::FaultType;
using ::testing::StartsWith;

class Room : public Look {};

TEST_F(Room, DescribesItsKeyAndItsServers) {
  Protect("x");
  stand.ClearEvents();
  const Outcome outcome = AskRoom();
  ASSERT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  const KVMap room = ParseReport(outcome);
  EXPECT_EQ(StringIn(room, "room"), kRoom);
  EXPECT_EQ(StringIn(room, "group"), "QOB.1.100.1");
  EXPECT_EQ(StringIn(room, "keyType"), "wrapped");
  EXPECT_EQ(room.Get("keyServers").AsArray().GetCount(), 3U);
  EXPECT_EQ(room.Get("statusTimeout").AsInteger(), 5);
  EXPECT_FALSE(room.Get("certificateAuthentication").AsBool());
  const KVMap certificate = room.Get("certificate").AsMap();
  for (const char* name : {"subject", "issuer", "serial"}) EXPECT_NE(StringIn(certificate, name), "") << name;
  EXPECT_THAT(StringIn(certificate, "notBefore"), ::testing::MatchesRegex("[0-9-]+T[0-9:]+Z"));
  EXPECT_LT(StringIn(certificate, "notBefore"), StringIn(certificate, "notAfter"));
  ExpectOnlyReads();
}

TEST_F(Room, CertificateIsTheOneThatFilesName) {
  Protect("x");
  const Outcome inspected = Call([&](cryptcli_report** report, cryptcli_error** error) {
    return cryptcli_inspect(cryptcli_path(Path("secret").c_str()), report, error);
  });
  const KVMap recipient = ParseReport(inspected).Get("recipients").AsArray()[0].AsMap();
  const KVMap certificate = ParseReport(AskRoom()).Get("certificate").AsMap();
  EXPECT_EQ(StringIn(certificate, "issuer"), StringIn(recipient, "issuer"));
  EXPECT_EQ(StringIn(certificate, "serial"), StringIn(recipient, "serial"));
}

TEST_F(Room, MakesNoKey) {
  const KVMap room = ParseReport(AskRoom());
  EXPECT_EQ(StringIn(room, "keyType"), "none");
  EXPECT_FALSE(room.Contains("certificate"));
  EXPECT_EQ(StringIn(ParseReport(AskRoom()), "keyType"), "none");
  ExpectOnlyReads();
}

TEST_F(Room, HidesAPlainKey) {
  Protect("x");
  ASSERT_TRUE(stand.SetRoomOptions(kRoom, {.plainKey = true}));
  const Outcome outcome = AskRoom();
  EXPECT_EQ(StringIn(ParseReport(outcome), "keyType"), "plain");
  EXPECT_EQ(std::string(cryptcli_report_json(outcome.report.get())).find("PRIVATE KEY"), std::string::npos);
}

TEST_F(Room, FailsLikeEncrypt) {
  EXPECT_EQ(AskRoom("no such room").status, CRYPTCLI_UNKNOWN_ROOM);
  EXPECT_EQ(AskRoom("").status, CRYPTCLI_INVALID_ARGUMENT);
  ASSERT_TRUE(stand.SetRoomOptions(kRoom, {.locked = true}));
  const Outcome locked = AskRoom();
  EXPECT_EQ(locked.status, CRYPTCLI_KEY_REFUSED);
  EXPECT_EQ(locked.Message(), "The room is locked");
  ASSERT_TRUE(stand.SetFault(CryptStand::kCryptService, {.type = FaultType::BrokenJson}));
  const Outcome broken = AskRoom();
  EXPECT_EQ(broken.status, CRYPTCLI_SERVER_ERROR);
  EXPECT_THAT(broken.Message(), StartsWith("Could not get room key: Could not parse response: "));
  ASSERT_TRUE(stand.SetFault(CryptStand::kCryptService, {.type = FaultType::Down}));
  EXPECT_EQ(AskRoom().status, CRYPTCLI_UNREACHABLE);
}

}  // namespace
}  // namespace CInterface
