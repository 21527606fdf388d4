#include "transport/header_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <string>
#include <vector>

#include "tests/support/text.h"

// With --wrap the linker redirects calls in the program's own objects to the second function.
extern "C" void __real_curl_slist_free_all(curl_slist* list);
extern "C" void __wrap_curl_slist_free_all(curl_slist* list);

namespace OruKalvix {
namespace {

/// Collects the bytes of all lines that this thread frees, including those after the end of each string.
thread_local std::string* freedLines = nullptr;

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using TestSupport::Ansi;
using TestSupport::Map;
using TestSupport::Str;

std::vector<std::string> Lines(const HeaderList& list) {
  const SlistPtr lines = list.MakeLines();
  std::vector<std::string> texts;
  for (const curl_slist* line = lines.get(); line != nullptr; line = line->next)
    texts.emplace_back(line->data);
  return texts;
}

TEST(HeaderList, KeepsTheOrderOfItsHeaders) {
  HeaderList list;
  OruGuiBase::AnsiStr error;
  ASSERT_TRUE(list.Add(Map(R"({"B":"1","A":"2"})"), error));
  EXPECT_THAT(Lines(list), ElementsAre("B: 1", "A: 2"));
}

// Headers carry tokens: their lines are wiped to the last byte before they are freed.
TEST(HeaderList, LinesAreWipedBeforeTheyAreFreed) {
  HeaderList list;
  OruGuiBase::AnsiStr error;
  ASSERT_TRUE(list.Add(Map(R"({"Authorization":"Bearer secret token","X":"another secret"})"), error));
  std::string freed;
  freedLines = &freed;
  list.MakeLines().reset();
  freedLines = nullptr;
  EXPECT_GE(freed.size(), std::string("Authorization: Bearer secret tokenX: another secret").size());
  for (const char* part : {"Authorization", "Bearer", "secret", "token", "cret", "X: "}) {
    EXPECT_THAT(freed, Not(HasSubstr(part)));
  }
}

TEST(HeaderList, WithoutHeadersHasNoLines) {
  EXPECT_EQ(HeaderList().MakeLines(), nullptr);
}

TEST(HeaderList, ALaterHeaderReplacesAnEarlierOneInWhateverCase) {
  HeaderList list;
  OruGuiBase::AnsiStr error;
  ASSERT_TRUE(list.Add(Map(R"({"Content-Type":"a/b","X":"1"})"), error));
  ASSERT_TRUE(list.Add(Map(R"({"content-type":"text/json"})"), error));
  EXPECT_THAT(Lines(list), ElementsAre("content-type: text/json", "X: 1"));
}

TEST(HeaderList, FindsAHeaderInWhateverCase) {
  HeaderList list;
  OruGuiBase::AnsiStr error;
  ASSERT_TRUE(list.Add(Map(R"({"EXPECT":"x"})"), error));
  EXPECT_TRUE(list.Has("Expect"));
  EXPECT_FALSE(list.Has("Expec"));
}

TEST(HeaderList, SendsAHeaderWithoutAValueRatherThanLeavingItOut) {
  HeaderList list;
  OruGuiBase::AnsiStr error;
  ASSERT_TRUE(list.Add(Map(R"({"X-Empty":"","X-Blank":"  "})"), error));
  EXPECT_THAT(Lines(list), ElementsAre("X-Empty;", "X-Blank;"));
}

struct BadHeader {
  const char* reason;
  std::string name;
  std::string value;
};

TEST(HeaderList, RefusesWhatWouldNotBeOneHeader) {
  const std::vector<BadHeader> rows = {
      {"a second line in the value", "X", "a\r\nY: b"},
      {"a line feed alone", "X", "a\nb"},
      {"a carriage return alone", "X", "a\rb"},
      {"a NUL that would cut it", "X", std::string("a\0b", 3)},
      {"another control character", "X", "a\x01"},
      {"the delete character", "X", "a\x7F"},
      {"a second line in the name", "X\r\nY", "a"},
      {"a colon in the name", "X:Y", "a"},
      {"a blank in the name", "X Y", "a"},
      {"no name", "", "a"},
      {"a NUL in the name", std::string("X\0Y", 3), "a"},
      {"a letter outside ASCII in the name", "X\xC3\xA4", "a"},
      {"a second length of the body", "content-length", "1"},
      {"another framing of the body", "Transfer-Encoding", "chunked"},
  };
  for (const BadHeader& row : rows) {
    HeaderList list;
    OruGuiBase::KVMap headers;
    OruGuiBase::AnsiStr error;
    headers.Set(Ansi(row.name), Ansi(row.value));
    EXPECT_FALSE(list.Add(headers, error)) << row.reason;
    EXPECT_FALSE(error.IsEmpty()) << row.reason;
  }
}

TEST(HeaderList, DoesNotQuoteARefusedValue) {
  HeaderList list;
  OruGuiBase::AnsiStr error;
  EXPECT_FALSE(list.Add(Map(R"({"Authorization":"secret\n"})"), error));
  EXPECT_THAT(Str(error), HasSubstr("Authorization"));
  EXPECT_THAT(Str(error), Not(HasSubstr("secret")));
}

TEST(HeaderList, TakesTabsAndBytesAboveASCIIInAValue) {
  HeaderList list;
  OruGuiBase::AnsiStr error;
  ASSERT_TRUE(list.Add(Map("{\"X\":\"a\\tb\xC3\xA4\"}"), error)) << Str(error);
  EXPECT_THAT(Lines(list), ElementsAre("X: a\tb\xC3\xA4"));
}

}  // namespace
}  // namespace OruKalvix

void __wrap_curl_slist_free_all(curl_slist* list) {
  if (std::string* const freed = OruKalvix::freedLines) {
    for (const curl_slist* line = list; line != nullptr; line = line->next)
      freed->append(line->data, malloc_usable_size(line->data));
  }
  __real_curl_slist_free_all(list);
}
