#include "foundation/json.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <string_view>

#include "foundation/kvmap.h"
#include "tests/foundation/json_fixture.h"
#include "tests/foundation/printing.h"

namespace OruGuiBase {
namespace {

using namespace std::string_view_literals;

Val Parse(std::string_view text) {
  Val value;
  AnsiStr error;
  EXPECT_TRUE(JSON2Val(AnsiStr(text), value, error)) << text << ": " << error.View();
  EXPECT_TRUE(error.IsEmpty());
  return value;
}

// The reason of the refusal; also checks what holds for every one.
AnsiStr Refuse(std::string_view text) {
  Val value("untouched");
  AnsiStr error;
  EXPECT_FALSE(JSON2Val(AnsiStr(text), value, error)) << text;
  EXPECT_EQ(value.AsString(), "untouched") << text;
  EXPECT_TRUE(error.View().starts_with("Invalid JSON: ")) << error.View();
  EXPECT_EQ(error.Find('%'), AnsiStr::npos);
  return error;
}

std::string Nested(std::size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

// Objects, arrays, strings, integers, numbers, flags and null become values of their own types.
TEST(JSON2ValTest, EachTypeBecomesItsOwn) {
  EXPECT_EQ(Parse("{}").GetType(), ValType::Map);
  EXPECT_EQ(Parse("[]").GetType(), ValType::Array);
  EXPECT_EQ(Parse("\"text\"").AsString(), "text");
  EXPECT_EQ(Parse("42").AsInteger(), 42);
  EXPECT_TRUE(Parse("true").AsBool());
  EXPECT_EQ(Parse("false").GetType(), ValType::Bool);
  EXPECT_FALSE(Parse("false").AsBool());
  EXPECT_TRUE(Parse("null").IsNil());
  EXPECT_EQ(Parse("1.5").AsNumber(), 1.5);
}

TEST(JSON2ValTest, EmptyContainersAndStringsAllocateNothing) {
  EXPECT_EQ(Parse("{}").AsMap().GetImp(), nullptr);
  EXPECT_EQ(Parse("[]").AsArray().GetImp(), nullptr);
  EXPECT_EQ(Parse("\"\"").AsString().GetImp(), nullptr);
}

TEST(JSON2ValTest, NestedContentIsReachable) {
  const Val value = Parse(R"({"header":{"version":"2.0"},"payload":{"list":[1,[2,{"deep":true}],null]}})");
  const KVMap map = value.AsMap();
  EXPECT_EQ(map.Get("header").AsMap().Get("version").AsString(), "2.0");
  const Array<Val> list = map.Get("payload").AsMap().Get("list").AsArray();
  EXPECT_EQ(list.GetCount(), 3U);
  EXPECT_EQ(list[0].AsInteger(), 1);
  EXPECT_TRUE(list[1].AsArray()[1].AsMap().Get("deep").AsBool());
  EXPECT_TRUE(list[2].IsNil());
}

TEST(JSON2ValTest, MembersKeepTheirOrder) {
  EXPECT_EQ(Emit(Parse(R"({"z":1,"a":2,"m":{"y":3,"b":4}})")), R"({"z":1,"a":2,"m":{"y":3,"b":4}})");
}

TEST(JSON2ValTest, ContainersAllocateExactly) {
  const Val value = Parse("[1,2,3,4,5,6,7,8,9,10,11,12,13]");
  EXPECT_EQ(CapacityOf(value.AsArray()), 13U);
}

TEST(JSON2ValTest, AKeyGivenTwiceKeepsItsFirstPlaceAndItsLastValue) {
  EXPECT_EQ(Emit(Parse(R"({"a":1,"b":2,"a":3})")), R"({"a":3,"b":2})");
  EXPECT_EQ(Emit(Parse(R"({"a":1,"a":2,"a":3,"b":4,"a":5})")), R"({"a":5,"b":4})");
  EXPECT_EQ(Emit(Parse(R"({"a":{"a":1,"a":2},"a":{"a":3}})")), R"({"a":{"a":3}})");
  EXPECT_EQ(Emit(Parse(R"({"":1,"":2})")), R"({"":2})");
}

TEST(JSON2ValTest, AKeyGivenTwiceAmongManyKeepsItsFirstPlaceAndItsLastValue) {
  std::string text = "{";
  for (int i = 0; i < 100; ++i) text += "\"k" + std::to_string(i) + "\":" + std::to_string(i) + ",";
  for (int i = 0; i < 100; i += 2) text += "\"k" + std::to_string(i) + "\":" + std::to_string(1000 + i) + ",";
  text += "\"last\":0}";
  const KVMap map = Parse(text).AsMap();
  ASSERT_EQ(map.GetCount(), 101U);
  for (std::uint32_t i = 0; i < 100; ++i) {
    const AnsiStr key(std::string("k") + std::to_string(i));
    EXPECT_EQ(map.Find(key), i);
    EXPECT_EQ(map.Get(key).AsInteger(), i % 2 == 0 ? 1000 + i : i);
  }
  EXPECT_EQ(map.Find("last"), 100U);
}

TEST(JSON2ValTest, EqualKeysInDifferentFormsAreOne) {
  EXPECT_EQ(Emit(Parse(R"({"key":1,"k\u0065y":2})")), R"({"key":2})");
}

TEST(JSON2ValTest, TheMapIsReadyForFurtherMembers) {
  KVMap map = Parse(R"({"a":1,"b":2})").AsMap();
  map.Set("b", "changed");
  map.Set("c", "added");
  EXPECT_EQ(Emit(Val(map)), R"({"a":1,"b":"changed","c":"added"})");
}

TEST(JSON2ValTest, IntegersOf64BitsStayIntegers) {
  const struct {
    const char* text;
    std::int64_t value;
  } kRows[] = {{"0", 0},
               {"-0", 0},
               {"-1", -1},
               {"9007199254740993", 9007199254740993},
               {"36028797018963968", 36028797018963968},
               {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
               {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()}};
  for (const auto& row : kRows) {
    const Val value = Parse(row.text);
    EXPECT_EQ(value.GetType(), ValType::Integer) << row.text;
    EXPECT_EQ(value.AsInteger(), row.value) << row.text;
  }
}

TEST(JSON2ValTest, OtherNumbersAreDoubles) {
  const struct {
    const char* text;
    double value;
  } kRows[] = {
      {"9223372036854775808", 9223372036854775808.0},
      {"18446744073709551615", 18446744073709551615.0},
      {"18446744073709551616", 18446744073709551616.0},
      {"-9223372036854775809", -9223372036854775809.0},
      {"123456789012345678901234567890", 123456789012345678901234567890.0},
      {"1.0", 1.0},
      {"-0.0", -0.0},
      {"0.1", 0.1},
      {"1e5", 1e5},
      {"1E+2", 1e2},
      {"25e-1", 2.5},
      {"0e5", 0},
      {"2.2250738585072011e-308", 2.2250738585072011e-308},
      {"1.7976931348623157e308", 1.7976931348623157e308},
      {"4.9e-324", 4.9e-324},
      {"8.98846567431158e307", 8.98846567431158e307},
      {"7.2057594037927933e16", 7.2057594037927933e16},
      {"0.000000000000000000000000000000000000000000000000000000000000000001", 1e-66},
      {"3.14159265358979323846264338327950288419716939937510", 3.141592653589793},
  };
  for (const auto& row : kRows) {
    const Val value = Parse(row.text);
    EXPECT_EQ(value.GetType(), ValType::Number) << row.text;
    EXPECT_EQ(value.AsNumber(), row.value) << row.text;
    EXPECT_EQ(std::signbit(value.AsNumber()), std::signbit(row.value)) << row.text;
  }
}

TEST(JSON2ValTest, ANumberTooSmallForADoubleIsZero) {
  EXPECT_EQ(Parse("1e-400").AsNumber(), 0);
  EXPECT_EQ(Parse("1e-400").GetType(), ValType::Number);
  EXPECT_TRUE(std::signbit(Parse("-1e-400").AsNumber()));
}

TEST(JSON2ValTest, ANumberTooLargeForADoubleIsRefused) {
  for (const char* const text :
       {"1e999", "-1e999", "1e309", "1.7976931348623159e308", "1e99999999999999999999"}) {
    EXPECT_NE(Refuse(text).View().find("number out of range"), std::string_view::npos) << text;
  }
  Refuse("1" + std::string(400, '0'));
}

// The engine's versions treat such exponents differently, and no double needs them.
TEST(JSON2ValTest, AnExponentOfMoreThanNineDigitsIsRefused) {
  for (const char* const text : {"0e1000000000", "0e2147483648", "-0E+99999999999999999999", "1e-2147483648",
                                 "0.5e-1000000000", "7e00000000001000000000"}) {
    EXPECT_EQ(Refuse(text), "Invalid JSON: number out of range at byte 0");
  }
  EXPECT_EQ(Parse("0e999999999").AsNumber(), 0);
  EXPECT_EQ(Parse("1.5e-999999999").AsNumber(), 0);
  EXPECT_EQ(Parse("1e0000000000000000000002").AsNumber(), 100);
  EXPECT_EQ(Parse("1e-0000000000000000000002").AsNumber(), 0.01);
}

// An integer of more than 64 bits is read as a double, which has at most 309 digits before its point.
TEST(JSON2ValTest, AnIntegerIsAcceptedAsLongAsADoubleHoldsIt) {
  const std::string largest = "17976931348623157" + std::string(292, '0');
  EXPECT_EQ(Parse(largest).AsNumber(), std::numeric_limits<double>::max());
  EXPECT_EQ(Parse("-" + largest).AsNumber(), std::numeric_limits<double>::lowest());
  for (const std::string& digits : {"17976931348623159" + std::string(292, '0'), "1" + std::string(309, '0'),
                                    "1" + std::string(4300, '0'), std::string(100000, '9')}) {
    EXPECT_EQ(Refuse(digits), "Invalid JSON: number out of range at byte 0") << digits.size();
    EXPECT_EQ(Refuse("[-" + digits + "]"), "Invalid JSON: number out of range at byte 1") << digits.size();
  }
}

TEST(JSON2ValTest, ANumberOutOfRangeIsNamedByItsFirstByte) {
  EXPECT_EQ(Refuse("1e309"), "Invalid JSON: number out of range at byte 0");
  EXPECT_EQ(Refuse("[0.5, -1.5E+400]"), "Invalid JSON: number out of range at byte 6");
  EXPECT_EQ(Refuse("{\"a\":1e99999999999999999999,\"b\":2e5}"),
            "Invalid JSON: number out of range at byte 5");
}

// The engine's versions stop at different letters of the word.
TEST(JSON2ValTest, AMisspeltWordIsNamedByItsFirstByte) {
  EXPECT_EQ(Refuse("tru3"), "Invalid JSON: unexpected character at byte 0");
  EXPECT_EQ(Refuse("[true,falsch]"), "Invalid JSON: unexpected character at byte 6");
  EXPECT_EQ(Refuse("{\"a\":nil}"), "Invalid JSON: unexpected character at byte 5");
  EXPECT_EQ(Refuse("[tru"), "Invalid JSON: unexpected end at byte 4");
  EXPECT_EQ(Refuse("[nulll]"), "Invalid JSON: unexpected character at byte 5");
}

// Letters in a string are never taken for a misspelt word.
TEST(JSON2ValTest, AFaultInAStringIsNamedByItsOwnByte) {
  EXPECT_EQ(Refuse("\"n\x01\""), "Invalid JSON: unexpected character at byte 2");
  EXPECT_EQ(Refuse("[\"x \\\" tru\x01\"]"), "Invalid JSON: unexpected character at byte 10");
  EXPECT_EQ(Refuse("{\"a\\\\\":nul!}"), "Invalid JSON: unexpected character at byte 7");
}

TEST(JSON2ValTest, EscapesAreResolved) {
  EXPECT_EQ(Parse(R"("\"\\\/\b\f\n\r\t")").AsString(), "\"\\/\b\f\n\r\t");
  EXPECT_EQ(Parse(R"("\u0041\u00e4\u20AC")").AsString(), "A\xC3\xA4\xE2\x82\xAC");
  EXPECT_EQ(Parse(R"("\uD83D\uDE00")").AsString(), "\xF0\x9F\x98\x80");
  EXPECT_EQ(Parse(R"("before\nafter")").AsString(), "before\nafter");
}

TEST(JSON2ValTest, ANulCharacterIsContent) {
  EXPECT_EQ(Parse(R"("a\u0000b")").AsString().View(), "a\0b"sv);
  EXPECT_EQ(Parse(R"({"a\u0000b":1,"a":2})").AsMap().GetCount(), 2U);
}

TEST(JSON2ValTest, LongStringsWithEscapesAreComplete) {
  // The engine hands such strings out in chunks.
  std::string plain;
  std::string text = "\"";
  for (int i = 0; i < 3000; ++i) {
    const std::string line(static_cast<std::size_t>(i % 70), static_cast<char>('a' + i % 26));
    plain += line + "\n";
    text += line + (i % 2 == 0 ? "\\n" : "\\u000a");
  }
  EXPECT_EQ(Parse(text + "\"").AsString().View(), plain);
  EXPECT_EQ(Parse("{" + text + "\":1}").AsMap().Get(AnsiStr(plain)).AsInteger(), 1);
}

TEST(JSON2ValTest, UTF8IsKept) {
  EXPECT_EQ(Parse("\"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\"").AsString(),
            "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(Parse("{\"\xC3\xA4\":1}").AsMap().Get("\xC3\xA4").AsInteger(), 1);
}

TEST(JSON2ValTest, AcceptsWhatTheStandardAllows) {
  const struct {
    std::string_view text;
    const char* reason;
  } kRows[] = {
      {" \t\r\n1 \t\r\n", "white space around"},       {"[ 1 , 2 ]", "white space inside"},
      {"{ \"a\" : 1 }", "white space around a colon"}, {"\"\x7F\"", "a DEL character"},
      {"\"\xEF\xBF\xBF\"", "a noncharacter"},          {"\"\xE2\x80\xA8\"", "a line separator"},
      {"[[],{},\"\",0,null]", "empty values"},         {"{\"\":0}", "an empty key"},
      {"[1e00,0.0e+00]", "zeros in exponents"},
  };
  for (const auto& row : kRows) {
    Val value;
    AnsiStr error;
    EXPECT_TRUE(JSON2Val(AnsiStr(row.text), value, error)) << row.reason << ": " << error.View();
  }
}

// Refused with a reason; the caller's value stays as it is.
TEST(JSON2ValTest, RefusesEverythingElse) {
  const struct {
    std::string_view text;
    const char* reason;
  } kRows[] = {
      {"", "nothing"},
      {"  ", "white space alone"},
      {"\xEF\xBB\xBF{}", "a byte order mark"},
      {"{", "an open object"},
      {"[", "an open array"},
      {"\"", "an open string"},
      {"{\"a\"", "a key without its value"},
      {"{\"a\":", "a colon without a value"},
      {"{\"a\":1", "an object without its end"},
      {"[1", "an array without its end"},
      {"[1,]", "a comma before the end"},
      {"{\"a\":1,}", "a comma before the end of an object"},
      {"[,1]", "a comma at the start"},
      {"[1,,2]", "two commas"},
      {"[1 2]", "no comma"},
      {"{\"a\" 1}", "no colon"},
      {"{\"a\"::1}", "two colons"},
      {"{a:1}", "a key without quotes"},
      {"{'a':1}", "single quotes"},
      {"{1:1}", "a number for a key"},
      {"{null:1}", "null for a key"},
      {"[}", "the wrong end"},
      {"{]", "the wrong end of an object"},
      {"]", "an end alone"},
      {"1 2", "two values"},
      {"{}{}", "two objects"},
      {"{} x", "text at the end"},
      {"1\0"sv, "a NUL byte at the end"},
      {"tru", "half a word"},
      {"truE", "a word in another case"},
      {"True", "a capitalised word"},
      {"nul", "half of null"},
      {"nulll", "one letter too many"},
      {"NaN", "not a number"},
      {"Infinity", "infinity"},
      {"-Infinity", "negative infinity"},
      {"undefined", "a word of a programming language"},
      {"01", "a leading zero"},
      {"-01", "a leading zero after a sign"},
      {"+1", "a plus"},
      {"-", "a sign alone"},
      {"--1", "two signs"},
      {"1.", "a point without digits"},
      {".5", "digits without a leading zero"},
      {"1.e5", "a point before an exponent"},
      {"1e", "an exponent without digits"},
      {"1e+", "a sign without an exponent"},
      {"0x10", "hexadecimal"},
      {"1_000", "grouped digits"},
      {"1a", "a letter after a number"},
      {"\"a\nb\"", "a line end in a string"},
      {"\"a\tb\"", "a tabulator in a string"},
      {"\"a\0b\""sv, "a NUL byte in a string"},
      {"\"\x1F\"", "a control character"},
      {R"("\x41")", "an unknown escape"},
      {R"("\a")", "another unknown escape"},
      {R"("\")", "an escaped end"},
      {R"("\u12")", "a short escape"},
      {R"("\u12G4")", "no hexadecimal digit"},
      {R"("\uD83D")", "a high surrogate alone"},
      {R"("\uD83Dx")", "a high surrogate before text"},
      {R"("\uD83D\n")", "a high surrogate before another escape"},
      {R"("\uD83D\u0041")", "a high surrogate before a character"},
      {R"("\uD83D\uD83D")", "two high surrogates"},
      {R"("\uDE00")", "a low surrogate alone"},
      {"\"\x80\"", "a continuation byte"},
      {"\"\xC0\x80\"", "overlong UTF-8"},
      {"\"\xED\xA0\x80\"", "a surrogate in UTF-8"},
      {"\"\xF4\x90\x80\x80\"", "above the last character"},
      {"\"\xC3\"", "a cut character"},
      {"\"\xE2\x82", "a cut character at the end"},
      {"{\"\xFF\":1}", "a key that is not UTF-8"},
      {"\xFF", "a byte that is not UTF-8"},
      {"// x\n1", "a comment"},
      {"/* x */ 1", "a comment between marks"},
      {"[1] // x", "a comment at the end"},
      {"\x0B"
       "1",
       "a vertical tabulator"},
      {"\xC2\xA0"
       "1",
       "a no-break space"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.reason);
    Refuse(row.text);
  }
}

TEST(JSON2ValTest, TheReasonNamesThePlace) {
  EXPECT_EQ(Refuse("[1,x]"), "Invalid JSON: unexpected character at byte 3");
  EXPECT_EQ(Refuse("[1,2"), "Invalid JSON: unexpected end at byte 4");
  EXPECT_EQ(Refuse(""), "Invalid JSON: unexpected end at byte 0");
  EXPECT_EQ(Refuse("{} {}"), "Invalid JSON: more text after the value at byte 3");
  EXPECT_NE(Refuse(R"("\uDE00 and more text to follow")").View().find("surrogate"), std::string_view::npos);
  EXPECT_NE(Refuse(R"("\u12G4 and more text to follow")").View().find("hexadecimal digit"),
            std::string_view::npos);
}

TEST(JSON2ValTest, TheReasonNeverQuotesTheInput) {
  for (const char* const text :
       {"{\"%s%n\":%s}", "[\"secret\" secret]", "secret%s", "\"secret%n", "{\"secret\":1 secret"}) {
    const AnsiStr error = Refuse(text);
    EXPECT_EQ(error.View().find("secret"), std::string_view::npos);
    EXPECT_EQ(error.Find('%'), AnsiStr::npos);
  }
}

TEST(JSON2ValTest, ContainersNestUpToTheLimit) {
  const Val value = Parse(Nested(kMaxJSONDepth));
  EXPECT_EQ(Emit(value).View(), Nested(kMaxJSONDepth));
  std::string maps;
  for (std::uint32_t i = 0; i < kMaxJSONDepth; ++i) maps += "{\"a\":";
  EXPECT_EQ(Parse(maps + "1" + std::string(kMaxJSONDepth, '}')).GetType(), ValType::Map);
}

TEST(JSON2ValTest, ContainersPastTheLimitAreRefusedWithAReasonOfTheirOwn) {
  EXPECT_EQ(Refuse(Nested(kMaxJSONDepth + 1)), "Invalid JSON: containers nested too deeply at byte 200");
  Refuse(Nested(100000));
  Refuse(std::string(1000000, '['));
  Refuse("[" + Nested(100) + "," + Nested(kMaxJSONDepth) + "]");
}

TEST(JSON2ValTest, DepthCountsOpenContainersAlone) {
  EXPECT_EQ(Parse("[" + Nested(199) + "," + Nested(199) + "]").AsArray().GetCount(), 2U);
}

// A document with every form in it, for the sweeps.
constexpr std::string_view kSample =
    R"({"type":"status","code":-617,"list":[true,false,null,1.5e2,{"k\u00e9y":"v\n\ud83d\ude00"}],"type":"last",)"
    "\"\xC3\xA4\xE2\x82\xAC\":\"\xF0\x9F\x98\x80 text\"}";

TEST(JSON2ValTest, ADocumentCutAtAnyLengthIsRefused) {
  Parse(kSample);
  for (std::size_t length = 0; length < kSample.size(); ++length) Refuse(kSample.substr(0, length));
}

TEST(JSON2ValTest, ADocumentWithAnyByteChangedIsRefusedOrWritesWhatItReads) {
  int accepted = 0;
  for (std::size_t place = 0; place < kSample.size(); ++place) {
    for (const int change : {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0xFF}) {
      std::string changed(kSample);
      changed[place] = static_cast<char>(changed[place] ^ change);
      Val value;
      AnsiStr error;
      if (!JSON2Val(AnsiStr(changed), value, error)) {
        ASSERT_TRUE(value.IsNil());
        continue;
      }
      ++accepted;
      const AnsiStr once = Emit(value);
      ASSERT_EQ(Emit(Parse(once.View())), once) << changed;
    }
  }
  EXPECT_GT(accepted, 100);
}

TEST(JSON2ValTest, TheInputNeedsNoTerminator) {
  // The text ends exactly where its heap block ends, which a sanitizer watches.
  for (const std::string_view text : {"12345"sv, "1.5"sv, "true"sv, "\"abc\""sv, "[1]"sv}) {
    const AnsiStr exact(text);
    Val value;
    AnsiStr error;
    EXPECT_TRUE(JSON2Val(exact, value, error));
  }
}

}  // namespace
}  // namespace OruGuiBase
