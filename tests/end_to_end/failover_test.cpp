#include "tests/end_to_end/end_to_end_fixture.h"
#include "tests/support/rotation.h"

using CryptStand::Fault;
using CryptStand::FaultType;
using CryptStand::kCryptService;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace TestSupport {
namespace {

class Failover : public EndToEndTest {};

TEST_F(Failover, AnyTwoServersMayBeDown) {
  for (int alive = 0; alive < 3; ++alive) {
    SCOPED_TRACE(alive);
    for (int server = 0; server < 3; ++server) {
      ASSERT_TRUE(stand.ClearFaults(server));
      if (server != alive) SetFault(server, {.type = FaultType::Down});
    }
    Protect("bytes");
    ExpectComesBack("bytes");
  }
}

TEST_F(Failover, AllServersDownReportsThatTheLastCouldNotBeReached) {
  SetFaults({.type = FaultType::Down});
  scratch.Make("plain", "bytes");
  EXPECT_FALSE(Encrypt("plain", "secret"));
  EXPECT_THAT(lastError, HasSubstr("Could not connect to key server: "));
  EXPECT_FALSE(scratch.Exists("secret"));
}

// A client that knows a server does not probe it again: that it has died shows in the exchange itself.
TEST_F(Failover, ServerThatDiesBetweenTwoFilesIsSkipped) {
  BeginRotationAt(0);
  OruKalvix::CryptClient client(http.get(), Ansi(stand.GetServiceUrl()), "", kRoom);
  const OruGuiBase::File plain = scratch.Make("plain", "bytes");
  ASSERT_TRUE(client.Encrypt(plain, scratch.File("first"), keyErrorFlag)) << client.GetErrorMessage().View();
  SetFault(0, {.type = FaultType::Down});
  stand.ClearEvents();
  ASSERT_TRUE(client.Encrypt(plain, scratch.File("secret"), keyErrorFlag)) << client.GetErrorMessage().View();
  EXPECT_THAT(Str(client.GetErrorMessage()), StartsWith("Could not connect to 127.0.0.1:"));
  EXPECT_EQ(CountRequests("status"), 1U);  // Of the second server.
  ExpectComesBack("bytes");
}

TEST_F(Failover, CommandFailsWhenEachServerCutsItsResponse) {
  Protect("bytes");
  for (int server = 0; server < 3; ++server) {
    SetFault(server, {.type = FaultType::Cut, .operation = "signRequest", .uses = 1});
  }
  // Each server cuts one response, and would give a good one to a fourth attempt, which does not exist.
  EXPECT_FALSE(Encrypt("plain", "secret2"));
  EXPECT_THAT(lastError, StartsWith("Could not sign file: Got no complete response from 127.0.0.1:"));
  EXPECT_TRUE(Encrypt("plain", "secret2")) << lastError;
}

TEST_F(Failover, TokenThatCannotBeFetchedEndsTheCommandWithServersUntried) {
  Protect("bytes");
  SetFault(kCryptService, {.type = FaultType::Status, .operation = "authztoken", .number = 503});
  stand.ClearEvents();
  EXPECT_FALSE(Encrypt("plain", "secret2"));
  EXPECT_EQ(lastError, "Could not get authorization token: HTTP 503");
  EXPECT_EQ(CountRequests("authztoken"), 1U);
}

TEST_F(Failover, SlowServerIsSkippedWhenProbeTakesTooLong) {
  stand.GetSettings().SetStatusTimeout("1");
  SetFault(0, {.type = FaultType::Slow, .operation = "status", .uses = 1, .number = 1500});
  BeginRotationAt(0);
  Protect("bytes");
  EXPECT_THAT(lastError, StartsWith("Could not connect to key server: "));
  ExpectComesBack("bytes");
}

TEST_F(Failover, MissingCryptServiceIsReported) {
  scratch.Make("plain", "bytes");
  SetFault(kCryptService, {.type = FaultType::Down});
  EXPECT_FALSE(Encrypt("plain", "secret"));
  EXPECT_THAT(lastError, HasSubstr("Could not get room key: "));
  EXPECT_THAT(lastError, HasSubstr("127.0.0.1"));
}

/// A fault of key servers, the operation that it strikes, and the message when it strikes on all of them.
struct KeyServerCase {
  const char* name;
  Fault fault;
  const char* message;
};

class KeyServerFault : public EndToEndTest, public ::testing::WithParamInterface<KeyServerCase> {};

// A fault of the server where a client begins is skipped, and leaves its message beside the success.
TEST_P(KeyServerFault, OfOneServerIsSkipped) {
  for (int server = 0; server < 3; ++server) {
    ASSERT_TRUE(stand.ClearFaults((server + 2) % 3));
    SetFault(server, GetParam().fault);
    // A key is made once for a room, and is costly to make.
    const bool isOfMaking = GetParam().fault.operation == "generateWrappedKeyRequest";
    const std::string room = isOfMaking ? "room " + std::to_string(server) : kRoom;
    ASSERT_TRUE(stand.AddRoom(room));
    BeginRotationAt(static_cast<std::uint32_t>(server));
    Protect("bytes", room);
    BeginRotationAt(static_cast<std::uint32_t>(server));
    const Opened opened = Decrypt("secret", "opened", room);
    EXPECT_TRUE(opened.isVerified) << opened.error;
    EXPECT_EQ(scratch.Read("opened"), "bytes");
    EXPECT_FALSE(lastError.empty() && opened.error.empty());
  }
}

TEST_P(KeyServerFault, OfAllServersIsReported) {
  SetFaults(GetParam().fault);
  scratch.Make("plain", "bytes");
  const bool isProtected = Encrypt("plain", "secret");
  const std::string error = isProtected ? Decrypt("secret", "opened").error : lastError;
  EXPECT_THAT(error, HasSubstr(GetParam().message));
  EXPECT_FALSE(scratch.Exists("opened"));
}

const KeyServerCase kCases[] = {
    {"ProbeStatus",
     {.type = FaultType::Status, .operation = "status", .number = 500},
     "Could not connect to key server: HTTP 500"},
    {"ProbeRedirect",
     {.type = FaultType::Status, .operation = "status", .number = 302},
     "Could not connect to key server: HTTP 302"},
    {"ProbeWithoutDate",
     {.type = FaultType::MissingDate, .operation = "status"},
     "Invalid key server time []"},
    {"ProbeWrongDate",
     {.type = FaultType::WrongDate, .operation = "status", .text = "yesterday"},
     "Invalid key server time [yesterday]"},
    {"ProbeCut",
     {.type = FaultType::Cut, .operation = "status", .number = 1},
     "Could not connect to key server: "},
    {"KeyNotFound",
     {.type = FaultType::ErrorCode, .operation = "signRequest", .number = 607},
     "Could not sign file: 607 Key Not Found"},
    {"UnknownCode",
     {.type = FaultType::ErrorCode, .operation = "getKeyRequest", .number = 620},
     "620 Unknown Error"},
    {"BadBase64",
     {.type = FaultType::BadBase64, .operation = "signRequest"},
     "Could not sign file: Could not decode signedHashes"},
    {"NoSignature",
     {.type = FaultType::EmptyMembers, .operation = "signRequest"},
     "Could not sign file: Could not sign hash: Invalid signedHashes"},
    {"NoIntegrityKey",
     {.type = FaultType::EmptyMembers, .operation = "getKeyRequest"},
     "Could not get integrity certificate: Invalid subId"},
    {"NoRoomKey",
     {.type = FaultType::EmptyMembers, .operation = "generateWrappedKeyRequest"},
     "Could not generate wrapped key: Invalid encodedX509Certificate"},
    {"NoContentKey",
     {.type = FaultType::EmptyMembers, .operation = "decryptRequest"},
     "Could not decrypt document key: Invalid plainData"},
    {"WrongType",
     {.type = FaultType::WrongType, .operation = "decryptRequest", .text = "signResponse"},
     "Unexpected response type signResponse"},
    {"BrokenJson",
     {.type = FaultType::BrokenJson, .operation = "getKeyRequest"},
     "Could not parse response: "},
    {"EmptyBody", {.type = FaultType::EmptyBody, .operation = "decryptRequest"}, "Invalid payload"},
    {"ListStatus", {.type = FaultType::Status, .operation = "certstore", .number = 404}, "HTTP 404"},
};

INSTANTIATE_TEST_SUITE_P(Rows, KeyServerFault, ::testing::ValuesIn(kCases),
                         [](const auto& row) { return row.param.name; });

// Not skipped like the faults above: the exchange was good, and that the value is wrong shows after the
// sweep.
TEST_F(Failover, WrongSignatureFailsTheSigningAndPublishesNothing) {
  SetFaults({.type = FaultType::BadSignature});
  scratch.Make("plain", "bytes");
  EXPECT_FALSE(Encrypt("plain", "secret"));
  EXPECT_THAT(lastError, HasSubstr("Could not sign file: "));
  EXPECT_FALSE(scratch.Exists("secret"));
}

}  // namespace
}  // namespace TestSupport
