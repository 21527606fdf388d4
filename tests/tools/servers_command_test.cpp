// "room" and "doctor".
#include "tests/tools/command_fixture.h"

namespace TestSupport {
namespace {

using CryptStand::Fault;
using CryptStand::FaultType;
using ::testing::HasSubstr;
using ::testing::Not;

class Servers : public CommandTest {
 protected:
  Finished Ask(const std::string& command, const std::vector<std::string>& further) const {
    std::vector<std::string> all{command, "--service", stand_.GetServiceUrl()};
    all.insert(all.end(), further.begin(), further.end());
    return RunCommand(all);
  }
};

using Room = Servers;
using Doctor = Servers;

TEST_F(Room, ShowsGroupKeyAndKeyServers) {
  Protect();
  const Finished finished = Ask("room", {"demo"});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  for (const char* part : {"room         demo\n", "group        QOB.", "key          wrapped",
                           "certificate  ", "valid from ", "key server   http://"}) {
    EXPECT_THAT(finished.output, HasSubstr(part));
  }
}

TEST_F(Room, ReportsAsJSONAndTakesTheOption) {
  Protect();
  const OruGuiBase::KVMap report = Map(Ask("room", {"--room", "demo", "--json"}).output);
  EXPECT_EQ(Str(report.Get("room").AsString()), "demo");
  EXPECT_EQ(Str(report.Get("keyType").AsString()), "wrapped");
  EXPECT_TRUE(report.Get("success").AsBool());
}

TEST_F(Room, FailsForARoomThatIsNotKnown) {
  const Finished finished = Ask("room", {"no-such-room"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.output, Not(HasSubstr("group")));
}

TEST_F(Room, AnEmptyNameIsCode2) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"", "--room", "demo"}, {"--room", ""}, {""}}) {
    const Finished finished = Ask("room", words);
    EXPECT_EQ(finished.code, 2);
    EXPECT_THAT(finished.errors, HasSubstr(": the name of the room is empty\n"));
  }
  EXPECT_EQ(Ask("doctor", {"--room", ""}).code, 2) << "and not a check without a room";
  EXPECT_THAT(stand_.GetEvents(), ::testing::IsEmpty());
}

TEST_F(Room, TwoDifferentNamesAreCode2) {
  const Finished finished = Ask("room", {"demo", "--room", "other"});
  EXPECT_EQ(finished.code, 2);
  EXPECT_THAT(finished.errors, HasSubstr("Two rooms are named: \"demo\" and, with --room, \"other\"\n"));
  EXPECT_EQ(Ask("room", {"demo", "--room", "demo"}).code, 0);
}

TEST_F(Room, WithoutAnyRoomIsCode2) {
  EXPECT_EQ(Ask("room", {}).code, 2);
}

TEST_F(Doctor, FindsNothingWrongWithServersThatWork) {
  Protect();
  const Finished finished = Ask("doctor", {"--room", "demo"});
  EXPECT_EQ(finished.code, 0) << finished.errors << finished.output;
  EXPECT_THAT(finished.output, HasSubstr("ok     crypt service " + stand_.GetServiceUrl()));
  EXPECT_THAT(finished.output, HasSubstr("ok     room demo\n"));
  EXPECT_THAT(finished.output, HasSubstr("ok     key server http://"));
  EXPECT_THAT(finished.output, Not(HasSubstr("WRONG")));
}

TEST_F(Doctor, NeedsNoRoom) {
  const Finished finished = Ask("doctor", {});
  EXPECT_EQ(finished.code, 0) << finished.errors << finished.output;
  EXPECT_THAT(finished.output, Not(HasSubstr("key server")));
}

TEST_F(Doctor, NamesTheServerThatIsDownAndWhatToDo) {
  Protect();
  ASSERT_TRUE(stand_.SetFault(1, Fault{FaultType::Down, ""}));
  const Finished finished = Ask("doctor", {"--room", "demo"});
  EXPECT_EQ(finished.code, 6);
  EXPECT_THAT(finished.output, HasSubstr("WRONG  key server http://"));
  EXPECT_THAT(finished.output, HasSubstr("ok     crypt service"));
  EXPECT_THAT(finished.errors, HasSubstr("1 of "));
  const OruGuiBase::KVMap report = Map(Ask("doctor", {"--room", "demo", "--json"}).output);
  EXPECT_FALSE(report.Get("ok").AsBool());
  EXPECT_EQ(report.Get("exitCode").AsInteger(), 6);
}

TEST_F(Doctor, SaysThatTheServiceCannotBeReached) {
  const Finished finished = RunCommand({"doctor", "--service", "http://127.0.0.1:1", "--room", "demo"});
  EXPECT_EQ(finished.code, 6);
  EXPECT_THAT(finished.output, HasSubstr("WRONG  crypt service http://127.0.0.1:1"));
}

TEST_F(Doctor, TakesTheCodeOfTheWorstFinding) {
  const OruGuiBase::KVMap report =
      Map(RunCommand({"doctor", "--service", "http://127.0.0.1:1", "--json"}).output);
  EXPECT_EQ(Str(report.Get("code").AsString()), "unreachable");
  EXPECT_TRUE(report.Get("retryable").AsBool());
}

TEST_F(Doctor, SaysThatAServerWithStatus503IsToBeTriedLater) {
  Protect();
  for (const int server : {CryptStand::kCryptService, 1}) {
    ASSERT_TRUE(stand_.SetFault(server, Fault{FaultType::Status, ""}));
    const OruGuiBase::KVMap report = Map(Ask("doctor", {"--room", "demo", "--json"}).output);
    EXPECT_EQ(report.Get("exitCode").AsInteger(), 6) << server;
    EXPECT_TRUE(report.Get("retryable").AsBool()) << server;
    ASSERT_TRUE(stand_.ClearFaults(server));
  }
}

TEST_F(Doctor, ReportsARoomThatIsNotKnown) {
  const Finished finished = Ask("doctor", {"--room", "no-such-room"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.output, HasSubstr("WRONG  room no-such-room: "));
}

}  // namespace
}  // namespace TestSupport
