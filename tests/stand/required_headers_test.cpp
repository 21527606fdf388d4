#include "stand/required_headers.h"

#include "tests/stand/stand_peer.h"

namespace CryptStand {
namespace {

Options HeaderOptions() {
  Options options;
  options.requiredHeaders = {"Authorization: Bearer s3cret", "X-Tenant: 7"};
  return options;
}

const Headers kAll = {{"Authorization", "Bearer s3cret"}, {"X-Tenant", "7"}};

class RequiredHeadersTest : public StandTest {
 protected:
  RequiredHeadersTest() : StandTest(HeaderOptions()) {}

  Reply GetKeyWith(const Headers& headers) const {
    return Peer().Send("GET", Service("crypt/key/demo"), std::nullopt, headers);
  }
};

TEST(ParseRequiredHeaderTest, SplitsNameAndValue) {
  EXPECT_EQ(ParseRequiredHeader("A: b"), RequiredHeader("A", "b"));
  EXPECT_EQ(ParseRequiredHeader("A:b: c "), RequiredHeader("A", "b: c"));
}

TEST(ParseRequiredHeaderTest, RefusesWhatIsNoHeader) {
  for (const char* line : {"", "A", ": b", "A:", "A: ", "A b: c", "A\n: b"}) {
    EXPECT_EQ(ParseRequiredHeader(line), std::nullopt) << line;
  }
}

TEST_F(RequiredHeadersTest, LetsRequestsWithAllOfThemPass) {
  EXPECT_EQ(GetKeyWith(kAll).Text("room"), "demo");
}

TEST_F(RequiredHeadersTest, RefusesRequestsWithoutOneAsItRefusesOtherThings) {
  const Reply reply = GetKeyWith({kAll[0]});
  EXPECT_EQ(reply.status, 401);
  EXPECT_EQ(reply.Text("errorid"), kUnauthorisedErrorId);
  EXPECT_EQ(reply.Text("errortext"), "The header \"X-Tenant\" is missing or has another value");
  EXPECT_EQ(reply.Header("WWW-Authenticate"), "X-Tenant");
}

TEST_F(RequiredHeadersTest, RefusesAnotherValueWithoutRepeatingTheRightOne) {
  const Reply reply = GetKeyWith({{"Authorization", "Bearer wrong"}, kAll[1]});
  EXPECT_EQ(reply.status, 401);
  EXPECT_EQ(reply.Header("WWW-Authenticate"), "Bearer");
  EXPECT_EQ(reply.body.find("s3cret"), std::string::npos);
  EXPECT_EQ(reply.body.find("wrong"), std::string::npos);
}

TEST_F(RequiredHeadersTest, RefusesAHeaderThatComesTwice) {
  EXPECT_EQ(GetKeyWith({kAll[0], kAll[1], kAll[1]}).status, 401);
}

TEST_F(RequiredHeadersTest, HidesWhichPathsThereAre) {
  EXPECT_EQ(Get(Service("crypt/other/demo")).status, 401);
}

TEST_F(RequiredHeadersTest, KeyServersNeedNone) {
  EXPECT_EQ(Get(Server("status")).status, 200);
}

TEST_F(RequiredHeadersTest, KeyServersRefuseCredentialsOfTheCryptService) {
  const Reply reply = Peer().Send("GET", Server("status"), std::nullopt, {kAll[0]});
  EXPECT_EQ(reply.status, 400);
  EXPECT_EQ(reply.Text("errortext"), "The header \"Authorization\" is for the crypt service alone");
}

TEST(RequiredHeadersStartTest, SaysThatAHeaderIsMalformed) {
  Options options;
  options.requiredHeaders = {"s3cret"};
  Stand stand(options);
  std::string error;
  EXPECT_FALSE(stand.Start(error));
  EXPECT_EQ(error, "A required header is not of the form 'Name: value'");
}

}  // namespace
}  // namespace CryptStand
