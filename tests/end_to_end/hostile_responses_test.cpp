#include "tests/end_to_end/end_to_end_fixture.h"

using CryptStand::Fault;
using CryptStand::FaultType;
using CryptStand::kCryptService;
using ::testing::Combine;
using ::testing::HasSubstr;
using ::testing::ValuesIn;

namespace TestSupport {
namespace {

/// A response that no good server gives.
struct ResponseCase {
  const char* name;
  Fault fault;
};

const ResponseCase kResponses[] = {
    {"Empty", {.type = FaultType::EmptyBody}},
    {"Cut", {.type = FaultType::Cut}},
    {"BrokenJson", {.type = FaultType::BrokenJson}},
    {"Array", {.type = FaultType::JsonArray}},
    {"Number", {.type = FaultType::JsonNumber}},
    {"Deep", {.type = FaultType::JsonDeep}},
    {"NotUtf8", {.type = FaultType::JsonNotUtf8}},
    {"Huge", {.type = FaultType::JsonHuge}},
    {"OtherTypes", {.type = FaultType::OtherMembers}},
    {"EmptyMembers", {.type = FaultType::EmptyMembers}},
    {"Created", {.type = FaultType::Status, .number = 201}},
    {"NoContent", {.type = FaultType::Status, .number = 204}},
    {"Redirect", {.type = FaultType::Status, .number = 307}},
    {"ServerError", {.type = FaultType::Status, .number = 500}},
};

const char* const kServiceOperations[] = {"key", "certlist", "newkey", "authztoken"};
const char* const kKeyServerOperations[] = {
    "generateWrappedKeyRequest", "getKeyRequest", "signRequest", "decryptRequest", "certstore", "truststore"};

class HostileResponse : public EndToEndTest,
                        public ::testing::WithParamInterface<std::tuple<ResponseCase, const char*>> {
 protected:
  Fault GetFault() const {
    Fault fault = std::get<0>(GetParam()).fault;
    fault.operation = std::get<1>(GetParam());
    return fault;
  }

  // Whatever the response: either the flow works in spite of it, with the right bytes, or there is a reason
  // and nothing was delivered.
  void ExpectGoodOrExplained() {
    scratch.Make("plain", "bytes");
    if (!Encrypt("plain", "secret")) {
      EXPECT_FALSE(lastError.empty());
      EXPECT_FALSE(scratch.Exists("secret"));
      return;
    }
    const Opened opened = Decrypt("secret", "opened");
    EXPECT_EQ(scratch.Exists("opened"), opened.done);
    if (opened.done) {
      EXPECT_EQ(scratch.Read("opened"), "bytes");
    }
    if (!opened.isVerified) {
      EXPECT_FALSE(opened.error.empty());
    }
  }
};

std::string NameOf(const ::testing::TestParamInfo<std::tuple<ResponseCase, const char*>>& info) {
  return std::string(std::get<0>(info.param).name) + "To_" + std::get<1>(info.param);
}

class HostileCryptService : public HostileResponse {};

// Whatever the crypt service responds, a file comes back right or there is a reason and nothing was
// delivered.
TEST_P(HostileCryptService, IsExplainedAndLosesNothing) {
  SetFault(kCryptService, GetFault());
  ExpectGoodOrExplained();
}

INSTANTIATE_TEST_SUITE_P(Responses, HostileCryptService,
                         Combine(ValuesIn(kResponses), ValuesIn(kServiceOperations)), NameOf);

class HostileKeyServers : public HostileResponse {};

// Whatever all key servers respond, a file comes back right or there is a reason and nothing was delivered.
TEST_P(HostileKeyServers, AreExplainedAndLoseNothing) {
  SetFaults(GetFault());
  ExpectGoodOrExplained();
}

INSTANTIATE_TEST_SUITE_P(Responses, HostileKeyServers,
                         Combine(ValuesIn(kResponses), ValuesIn(kKeyServerOperations)), NameOf);

class HostileLists : public EndToEndTest {};

TEST_F(HostileLists, EmptyTrustListFailsBeforeSignatureIsChecked) {
  Protect("bytes");
  stand.GetSettings().SetTrustStoreText("");
  const Opened opened = Decrypt("secret", "opened");
  EXPECT_FALSE(opened.done);
  EXPECT_TRUE(opened.isSigned);
  EXPECT_EQ(opened.error, "No trusted issuing certificates");
  EXPECT_FALSE(scratch.Exists("opened"));
}

TEST_F(HostileLists, ListThatCannotBeReadIsReported) {
  Protect("bytes");
  stand.GetSettings().SetCertStoreText("no certificate at all");
  const Opened opened = Decrypt("secret", "opened");
  EXPECT_FALSE(opened.done);
  EXPECT_THAT(opened.error, HasSubstr("Could not parse list of root and intermediate CA certificates: "));
}

/// What the crypt service lists, and what becomes of the proof of origin. The content is delivered in any
/// case.
struct ListCase {
  CryptStand::IntegrityList list;
  bool isVerified;
  const char* error;
};

class IntegrityLists : public EndToEndTest, public ::testing::WithParamInterface<ListCase> {};

// What the crypt service lists decides on the proof of origin, never on the delivery.
TEST_P(IntegrityLists, DecideOnProofOnly) {
  Protect("bytes");
  stand.GetSettings().SetIntegrityList(GetParam().list);
  const Opened opened = Decrypt("secret", "opened");
  EXPECT_TRUE(opened.done);
  EXPECT_TRUE(opened.isSigned);
  EXPECT_EQ(opened.isVerified, GetParam().isVerified);
  EXPECT_EQ(opened.error, GetParam().error);
  EXPECT_EQ(scratch.Read("opened"), "bytes");
}

INSTANTIATE_TEST_SUITE_P(Rows, IntegrityLists,
                         ::testing::Values(ListCase{CryptStand::IntegrityList::UpperCase, true, ""},
                                           ListCase{CryptStand::IntegrityList::OtherTypes, true, ""},
                                           ListCase{CryptStand::IntegrityList::Empty, false,
                                                    "Could not find a matching integrity certificate"},
                                           ListCase{CryptStand::IntegrityList::WithoutOurs, false,
                                                    "Could not find a matching integrity certificate"}));

}  // namespace
}  // namespace TestSupport
