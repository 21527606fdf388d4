#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <string_view>

#include "foundation/json.h"
#include "foundation/kvmap.h"
#include "tests/foundation/json_fixture.h"
#include "tests/foundation/printing.h"

namespace OruGuiBase {
namespace {

using namespace std::string_view_literals;

AnsiStr Refuse(const Val& value) {
  AnsiStr text("untouched");
  AnsiStr error;
  EXPECT_FALSE(Val2JSON(value, text, error, /*pretty=*/false, /*strict=*/true));
  EXPECT_EQ(text, "untouched");
  EXPECT_EQ(error.Find('%'), AnsiStr::npos);
  return error;
}

Val Text(std::string_view text) {
  return Val(AnsiStr(text));
}

TEST(Val2JSONTest, EachTypeHasItsForm) {
  EXPECT_EQ(Emit(Val()), "null");
  EXPECT_EQ(Emit(Val(true)), "true");
  EXPECT_EQ(Emit(Val(false)), "false");
  EXPECT_EQ(Emit(Val(std::int64_t{-42})), "-42");
  EXPECT_EQ(Emit(Val(1.5)), "1.5");
  EXPECT_EQ(Emit(Val("text")), "\"text\"");
  EXPECT_EQ(Emit(Val("")), "\"\"");
  EXPECT_EQ(Emit(Val(KVMap())), "{}");
  EXPECT_EQ(Emit(Val(Array<Val>())), "[]");
}

TEST(Val2JSONTest, ExtremeIntegersAreExact) {
  EXPECT_EQ(Emit(Val(std::numeric_limits<std::int64_t>::min())), "-9223372036854775808");
  EXPECT_EQ(Emit(Val(std::numeric_limits<std::int64_t>::max())), "9223372036854775807");
}

TEST(Val2JSONTest, MembersComeInOrderOfInsertionWithoutBlanks) {
  KVMap inner;
  inner.Set("b", Val(std::int64_t{2}));
  Array<Val> list;
  list.Append(Val("x"));
  list.Append(Val());
  KVMap map;
  map.Set("zebra", Val(inner));
  map.Set("apple", Val(list));
  map.Set("zebra", Val(true));
  map.Set("mango", Val(inner));
  EXPECT_EQ(Emit(Val(map)), R"({"zebra":true,"apple":["x",null],"mango":{"b":2}})");
}

TEST(Val2JSONTest, WhatMustBeEscapedIsEscaped) {
  const struct {
    std::string_view text;
    std::string_view json;
    const char* reason;
  } kRows[] = {
      {"a\"b", R"("a\"b")", "a quote"},
      {"a\\b", R"("a\\b")", "a backslash"},
      {"a/b", R"("a/b")", "a slash stays"},
      {"\b\f\n\r\t", R"("\b\f\n\r\t")", "the short forms"},
      {"\0"sv, R"("\u0000")", "a NUL byte"},
      {"\x01\x1F", R"("\u0001\u001f")", "other control characters"},
      {"\x7F", "\"\x7F\"", "DEL stays"},
      {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", "\"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\"", "UTF-8 stays"},
      {"\nx\n", R"("\nx\n")", "at both ends"},
      {"\"\"", R"("\"\"")", "nothing between two escapes"},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(Emit(Text(row.text)).View(), row.json) << row.reason;
    KVMap map;
    map.Set(AnsiStr(row.text), Val(true));
    EXPECT_EQ(Emit(Val(map)).View(), "{" + std::string(row.json) + ":true}") << row.reason;
  }
}

TEST(Val2JSONTest, EscapesAreFoundAtEveryOffset) {
  const struct {
    char character;
    std::size_t written;
  } kRows[] = {{'"', 2}, {'\\', 2}, {'\n', 2}, {'\x1F', 6}, {'\0', 6},
               {' ', 1}, {'!', 1},  {'#', 1},  {'[', 1},    {'\x7F', 1}};
  for (const auto& row : kRows) {
    for (std::size_t place = 0; place < 20; ++place) {
      std::string plain(20, 'a');
      plain[place] = row.character;
      const AnsiStr text = Emit(Text(plain));
      EXPECT_EQ(text.GetLength(), 2 + 19 + row.written) << place;
      Val value;
      AnsiStr error;
      ASSERT_TRUE(JSON2Val(text, value, error)) << error.View();
      EXPECT_EQ(value.AsString().View(), plain);
    }
  }
}

TEST(Val2JSONTest, EveryControlCharacterReadsBack) {
  std::string all;
  for (int i = 0; i < 128; ++i) all += static_cast<char>(i);
  Val value;
  AnsiStr error;
  ASSERT_TRUE(JSON2Val(Emit(Text(all)), value, error)) << error.View();
  EXPECT_EQ(value.AsString().View(), all);
}

TEST(Val2JSONTest, AStringThatIsNotUTF8IsRefused) {
  for (const std::string_view text : {"\xFF"sv, "\xC0\x80"sv, "\xED\xA0\x80"sv, "abc\xC3"sv}) {
    EXPECT_EQ(Refuse(Text(text)), "A string is not valid UTF-8");
    KVMap map;
    map.Set(AnsiStr(text), Val(true));
    EXPECT_EQ(Refuse(Val(map)), "A string is not valid UTF-8");
  }
}

TEST(Val2JSONTest, ANestedStringThatIsNotUTF8IsRefused) {
  Array<Val> list;
  list.Append(Val("good"));
  list.Append(Text("\xFF"));
  KVMap map;
  map.Set("list", Val(list));
  EXPECT_EQ(Refuse(Val(map)), "A string is not valid UTF-8");
}

TEST(Val2JSONTest, DoublesAreShortAndReadBackAsTheyWere) {
  const struct {
    double value;
    const char* text;
  } kRows[] = {
      {0.1, "0.1"},
      {1.0 / 3, "0.3333333333333333"},
      {5.0, "5.0"},
      {-0.0, "-0.0"},
      {1e300, "1e+300"},
      {5e-324, "5e-324"},
      {100.0, "100.0"},
      {1.7976931348623157e308, "1.7976931348623157e+308"},
      {9223372036854775808.0, "9223372036854775808.0"},
  };
  for (const auto& row : kRows) {
    const AnsiStr text = Emit(Val(row.value));
    EXPECT_EQ(text, row.text);
    Val value;
    AnsiStr error;
    ASSERT_TRUE(JSON2Val(text, value, error)) << error.View();
    EXPECT_EQ(value.GetType(), ValType::Number);
    EXPECT_EQ(value.AsNumber(), row.value);
    EXPECT_EQ(std::signbit(value.AsNumber()), std::signbit(row.value));
  }
}

TEST(Val2JSONTest, NumbersThatAreNotFiniteAreRefused) {
  for (const double value :
       {std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
        std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(Refuse(Val(value)), "A number is not finite");
  }
}

class Object final : public IObject {
 public:
  void* QueryInterface(const char*) override { return nullptr; }
  std::uint32_t AddRef() override { return 1; }
  std::uint32_t Release() override { return 1; }
};

TEST(Val2JSONTest, TypesThatJSONDoesNotHaveAreRefused) {
  PackedDateTime date;
  ASSERT_TRUE(date.Pack(2024, 1, 1, 0, 0, 0, 0, 0));
  Object object;
  Val carried9;
  carried9.SetReference(ValType::Carried9, nullptr);
  Val carried10;
  carried10.SetReference(ValType::Carried10, nullptr);
  EXPECT_EQ(Refuse(Val(date)), "A value of type 4 has no form in JSON");
  EXPECT_EQ(Refuse(Val(&object)), "A value of type 6 has no form in JSON");
  EXPECT_EQ(Refuse(carried9), "A value of type 9 has no form in JSON");
  EXPECT_EQ(Refuse(carried10), "A value of type 10 has no form in JSON");
  EXPECT_EQ(Refuse(Val(Blob())), "A value of type 11 has no form in JSON");
}

TEST(Val2JSONTest, NestingIsLimitedAsInReading) {
  Val value(std::int64_t{1});
  for (std::uint32_t i = 0; i < kMaxJSONDepth; ++i) {
    Array<Val> list;
    list.Append(value);
    value = Val(list);
  }
  Val back;
  AnsiStr error;
  EXPECT_TRUE(JSON2Val(Emit(value), back, error)) << error.View();
  KVMap map;
  map.Set("one more", value);
  EXPECT_EQ(Refuse(Val(map)), "Containers are nested too deeply for JSON");
}

TEST(Val2JSONTest, ManySmallMembersAreWrittenCompletely) {
  Array<Val> list;
  std::string expected = "[";
  for (int i = 0; i < 10000; ++i) {
    list.Append(Val(std::int64_t{i}));
    expected += (i != 0 ? "," : "") + std::to_string(i);
  }
  EXPECT_EQ(Emit(Val(list)).View(), expected + "]");
}

}  // namespace
}  // namespace OruGuiBase
