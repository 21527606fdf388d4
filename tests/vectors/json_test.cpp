#include "foundation/json.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>
#include <vector>

// The test strings of another JSON package, those of json.org's checker among them, and its results.
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::Val;

struct Vector {
  bool accepted = false;
  std::string text;
  std::string value;  // written again without blanks; empty when that cannot be compared
};

std::string Record() {
  std::string output;
  std::FILE* const pipe = ::popen(JSON_RECORDER, "r");
  if (pipe == nullptr) return output;
  char chunk[65536];
  for (std::size_t got; (got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0;) output.append(chunk, got);
  EXPECT_EQ(::pclose(pipe), 0) << JSON_RECORDER;
  return output;
}

const std::vector<Vector>& Vectors() {
  static const std::vector<Vector> vectors = [] {
    std::vector<Vector> all;
    std::istringstream stream(Record());
    std::string verdict;
    for (std::size_t size, valueSize; stream >> verdict >> size >> valueSize && stream.get() == '\n';) {
      Vector row{verdict == "yes", std::string(size, '\0'), std::string(valueSize, '\0')};
      stream.read(row.text.data(), static_cast<std::streamsize>(size));
      stream.read(row.value.data(), static_cast<std::streamsize>(valueSize));
      all.push_back(row);
    }
    return all;
  }();
  return vectors;
}

// Where we differ: what the package accepts beyond RFC 8259, or where the RFC leaves the choice to the
// reader.
struct Difference {
  const char* why;
  std::string value;    // as we write it again; empty where we refuse the string
  bool isInAll = true;  // false where newer versions of the package agree with us
};

const std::map<std::string, Difference>& Differences() {
  static const std::map<std::string, Difference> differences = {
      {"Infinity", {"no number of JSON", "", false}},
      {"-Infinity", {"no number of JSON", "", false}},
      {"NaN", {"no number of JSON", "", false}},
      {"\xEF\xBB\xBF\"\\u3053\\u3093\\u306b\\u3061\\u308f\"",
       {"a byte order mark, which a reader may pass over or refuse", ""}},
      {"18446744073709551616",
       {"an integer of more than 64 bits has no exact type", "18446744073709551616.0"}},
  };
  return differences;
}

bool Load(const Vector& row, Val& value) {
  AnsiStr error;
  const bool loaded = OruGuiBase::JSON2Val(AnsiStr(row.text), value, error);
  EXPECT_EQ(error.IsEmpty(), loaded) << row.text;
  return loaded;
}

// Over fifty thousand strings, some eighty of them no JSON.
TEST(JSONVectors, HaveManyCases) {
  std::size_t refused = 0;
  for (const Vector& row : Vectors()) refused += row.accepted ? 0 : 1;
  EXPECT_GT(Vectors().size(), 50000U);
  EXPECT_GT(refused, 80U);
}

// Python's integers have no limit; ours end where a double does.
bool IsIntegerBeyondDoubles(const std::string& text) {
  return text.size() > 309 && text.find_first_not_of("0123456789") == text.npos;
}

bool ExpectsAccepted(const Vector& row) {
  if (IsIntegerBeyondDoubles(row.text)) return false;
  const auto difference = Differences().find(row.text);
  return difference == Differences().end() ? row.accepted : !difference->second.value.empty();
}

TEST(JSONVectors, AreAcceptedAndRefusedAsExpected) {
  for (const Vector& row : Vectors()) {
    Val value;
    EXPECT_EQ(Load(row, value), ExpectsAccepted(row)) << row.text;
  }
}

TEST(JSONVectors, AreWrittenAndReadAsTheSameValue) {
  std::size_t compared = 0;
  for (const Vector& row : Vectors()) {
    Val value;
    if (row.value.empty() || !ExpectsAccepted(row) || !Load(row, value)) continue;
    AnsiStr text;
    AnsiStr error;
    EXPECT_TRUE(OruGuiBase::Val2JSON(value, text, error, false, true)) << row.text << ": " << error.View();
    const auto difference = Differences().find(row.text);
    EXPECT_EQ(text.View(), difference == Differences().end() ? row.value : difference->second.value);
    ++compared;
  }
  EXPECT_GT(compared, 50000U);
}

// With newer versions of the package some rows are no difference any more.
TEST(JSONVectors, StillDifferWhereTheListSaysSo) {
  std::map<std::string, const Vector*> rows;
  for (const Vector& row : Vectors()) rows[row.text] = &row;
  for (const auto& [text, difference] : Differences()) {
    const auto row = rows.find(text);
    ASSERT_NE(row, rows.end()) << text << ": " << difference.why;
    if (!difference.isInAll && row->second->accepted == !difference.value.empty()) continue;
    EXPECT_TRUE(row->second->accepted) << text;
    EXPECT_TRUE(difference.value.empty() || row->second->value != difference.value) << text;
  }
}

}  // namespace
