#include <cryptstand/detail/url_file.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace StandFixture {
namespace {

using cryptstand::detail::Members;
using cryptstand::detail::UrlFileReader;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

Members Read(std::string_view text) {
  Members members;
  EXPECT_TRUE(UrlFileReader(text).Read(members)) << text;
  return members;
}

TEST(UrlFileReaderTest, ReadsStringsAndLists) {
  EXPECT_THAT(
      Read(" {\"a\" : \"x\",\n\"b\":[\"y\", \"z\"] ,\"c\":[] }\n"),
      ElementsAre(Pair("a", ElementsAre("x")), Pair("b", ElementsAre("y", "z")), Pair("c", IsEmpty())));
  EXPECT_THAT(Read("{}"), IsEmpty());
}

TEST(UrlFileReaderTest, LeavesOutOtherValues) {
  EXPECT_THAT(Read(R"({"a":null,"b":17,"c":true,"d":"x","e":-1.5e3})"),
              ElementsAre(Pair("d", ElementsAre("x"))));
}

TEST(UrlFileReaderTest, ReadsEscapes) {
  EXPECT_THAT(Read(R"({"a":"\"\\\/\b\f\n\r\t\u0041\u00e9\u20AC\ud83d\ude00"})"),
              ElementsAre(Pair("a", ElementsAre("\"\\/\b\f\n\r\tA\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"))));
}

TEST(UrlFileReaderTest, RefusesWhatIsNotWhole) {
  constexpr std::string_view kWhole = R"({"a":"x\u0041","b":["y","z"],"c":null})";
  for (std::size_t size = 0; size < kWhole.size(); ++size) {
    Members members;
    EXPECT_FALSE(UrlFileReader(kWhole.substr(0, size)).Read(members)) << kWhole.substr(0, size);
  }
}

TEST(UrlFileReaderTest, RefusesWhatIsNotSuchAnObject) {
  for (const char* text :
       {"[]", R"("a")", R"({"a"})", R"({"a":"x"}})", R"({"a":["x",1]})", R"({"a":"\q"})", R"({"a":"\u12g4"})",
        R"({"a":"\ud83d"})", R"({"a":"\ud83d\u0041"})", R"({a:"x"})"}) {
    Members members;
    EXPECT_FALSE(UrlFileReader(text).Read(members)) << text;
  }
}

}  // namespace
}  // namespace StandFixture
