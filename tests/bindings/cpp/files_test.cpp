#include <string>

#include "tests/bindings/cpp/cpp_fixture.h"

namespace CppInterface {
namespace {

using ::testing::HasSubstr;

using Files = EnvironmentTest;

constexpr std::string_view kContent = "the plain bytes of a file";

TEST_F(Files, ComeBackWithAProvenOrigin) {
  Protect(kContent);
  const auto opened = client->Decrypt(kRoom, Path("secret"), Path("opened"));
  ASSERT_TRUE(opened.has_value()) << opened.error().message;
  EXPECT_EQ(scratch.Read("opened"), kContent);
  EXPECT_EQ(opened->origin, cryptcli::Origin::Proven);
  EXPECT_EQ(opened->reason, "");
  EXPECT_EQ(opened->signedRoom, "demo");
  EXPECT_EQ(opened->signedGroup, "QOB.1.100.1");
  EXPECT_EQ(opened->signedRoomUrl, stand.GetServiceUrl() + "mx/demo");
  EXPECT_EQ(opened->serviceRoom, "demo");
  EXPECT_EQ(opened->serviceGroup, "QOB.1.100.1");
  EXPECT_FALSE(opened->isPlainKey);
  EXPECT_EQ(opened->bytes, kContent.size());
  ASSERT_GE(opened->chain.size(), 2U);
  EXPECT_THAT(opened->chain[0], HasSubstr("CN="));
  EXPECT_THAT(opened->json, HasSubstr(R"("origin":"proven")"));
}

}  // namespace
}  // namespace CppInterface
