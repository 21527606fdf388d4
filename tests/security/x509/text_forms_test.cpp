#include "security/x509/text_forms.h"

#include <gtest/gtest.h>
#include <utility>

#include "tests/security/test_pki.h"

namespace {

using namespace SecurityTest;
using OruOssSec::ReadSingleObject;
using OruOssSec::TextObject;
using OruOssSec::TextObjectReader;
using Step = OruOssSec::TextObjectReader::Step;

std::string BytesOf(const TextObject& object) {
  return {reinterpret_cast<const char*>(object.bytes.GetData()), object.bytes.GetSize()};
}

// All objects of a string as "label:bytes", the last one "!" when the string cannot be read to its end.
std::vector<std::string> ReadAll(std::string_view text) {
  OruGuiBase::ClearLastError();
  TextObjectReader reader(text);
  std::vector<std::string> objects;
  TextObject object;
  Step step = reader.Next(object);
  for (; step == Step::Object; step = reader.Next(object)) {
    objects.push_back(std::string(object.label) + ":" + BytesOf(object));
  }
  if (step == Step::Failure) objects.emplace_back("!");
  return objects;
}

using Objects = std::vector<std::string>;

TEST(TextObjectReader, ReadsObjectsInTheirOrder) {
  const std::string ab = "-----BEGIN A-----\nYWI=\n-----END A-----\n";
  const std::string cd = "-----BEGIN B C-----\nY2Q=\n-----END B C-----\n";
  const std::tuple<const char*, std::string, Objects> rows[] = {
      {"nothing", "", {}},
      {"white space", " \t\r\n\v\f", {}},
      {"a block", ab, {"A:ab"}},
      {"two blocks", ab + cd, {"A:ab", "B C:cd"}},
      {"a block without line ends", "-----BEGIN A----- YWI= -----END A-----", {"A:ab"}},
      {"an indented block", "  " + ab, {"A:ab"}},
      {"plain base64", "YWI=", {":ab"}},
      {"plain base64 over lines", "YW\nI=\n", {":ab"}},
      {"a blank line between", "YWI=\n\nY2Q=", {":ab", ":cd"}},
      {"a line of blanks between", "YWI=\r\n \t\r\nY2Q=", {":ab", ":cd"}},
      {"CR alone", "YWI=\r\rY2Q=\r", {":ab", ":cd"}},
      {"a plain object before a block", "MIIC\n" + cd, {":0\x82\2", "B C:cd"}},
      {"a plain object after a block", cd + "MII\nC\n", {"B C:cd", ":0\x82\2"}},
      {"a last line that lost its line end", ab.substr(0, ab.size() - 1), {"A:ab"}},
  };
  for (const auto& [why, text, objects] : rows) {
    EXPECT_EQ(ReadAll(text), objects) << why;
    EXPECT_EQ(OruGuiBase::GetLastError(), 0U) << why;
  }
}

// RFC 7468, section 2.
TEST(TextObjectReader, PassesOverTextAroundBlocks) {
  const std::string block = "-----BEGIN A-----\nYWI=\n-----END A-----\n";
  const std::pair<const char*, std::string> rows[] = {
      {"a comment", "# Root\n" + block},
      {"a word that is base64", "Root\n" + block},
      {"words that are base64 together", "GlobalSign Root CA\n" + block},
      {"words that begin like an object", "MAIN\n\nMICROSOFT 1\n" + block + "MAIN"},
      {"base64 of no object", "YWI=\n\nAAAA\n\n" + block + "YWI="},
      {"an underlined heading", "The Root\n========\n" + block},
      {"ornaments of dashes", "-----\n----------------\n----- Root -----\n-----Best-----\n" + block},
      {"a boundary inside a line", "see -----BEGIN B-----\n" + block},
      {"an indented block below it", "# Root\n \t" + block},
      {"text after it", block + "The end.\n"},
      {"text on the last line", "-----BEGIN A-----\nYWI=\n-----END A----- # Root"},
      {"bytes of any value", std::string("\0\xFF\x80\n", 4) + block + std::string("\0", 1)},
      {"a header of its own", "Subject: CN=Root\r\nSerial: 7\r\n\r\n" + WithLineEnds(block, "\r\n")},
  };
  for (const auto& [why, text] : rows) {
    EXPECT_EQ(ReadAll(text), Objects{"A:ab"}) << why;
    EXPECT_EQ(OruGuiBase::GetLastError(), 0U) << why;
    TextObject object;
    EXPECT_TRUE(ReadSingleObject(text, object)) << why << GetReason();
  }
  EXPECT_EQ(ReadAll("one\n" + block + "two\n" + block + "three"), (Objects{"A:ab", "A:ab"}));
}

TEST(TextObjectReader, RefusesADamagedObjectBesideABlock) {
  const std::string block = "-----BEGIN A-----\nYWI=\n-----END A-----\n";
  EXPECT_EQ(ReadAll(block + "MII#"), (Objects{"A:ab", "!"}));
  EXPECT_EQ(ReadAll("MIIC and more\n" + block), Objects{"!"});
}

TEST(TextObjectReader, RefusesCutBoundaries) {
  const std::string block = "-----BEGIN A-----\nYWI=\n-----END A-----\n";
  for (const char* rest : {"-----B", "-----BEGIN", "-----E", "-----END A-----", "-----END A-----\ntext"}) {
    EXPECT_EQ(ReadAll(block + rest), (Objects{"A:ab", "!"})) << rest;
    EXPECT_EQ(GetReason(), "Invalid first line of a PEM text") << rest;
  }
}

TEST(TextObjectReader, RefusesGarbageInABlockBesideText) {
  EXPECT_EQ(ReadAll("# Root\n-----BEGIN A-----\n# Root\nYWI=\n-----END A-----\n"), Objects{"!"});
  EXPECT_EQ(GetReason(), "The text is not base64");
}

TEST(TextObjectReader, RefusesExplanationsWithoutABlock) {
  EXPECT_EQ(ReadAll("# Root\nYWI=\n"), Objects{"!"});
  EXPECT_EQ(ReadAll("# Root\n\nMIIC\n"), Objects{"!"});
}

TEST(TextObjectReader, RefusesEveryInvalidBlock) {
  const std::tuple<const char*, std::string, const char*> rows[] = {
      {"no dashes after the label", "-----BEGIN A\nYWI=\n-----END A-----",
       "Invalid first line of a PEM text"},
      {"four dashes after the label", "-----BEGIN A----\nYWI=\n-----END A-----",
       "Invalid first line of a PEM text"},
      {"an empty label", "-----BEGIN -----\nYWI=\n-----END -----", "Invalid first line of a PEM text"},
      {"data on the first line", "-----BEGIN A-----YWI=\n-----END A-----",
       "Invalid first line of a PEM text"},
      {"no last line", "-----BEGIN A-----\nYWI=\n", "The PEM text has no last line"},
      {"another label at the end", "-----BEGIN A-----\nYWI=\n-----END B-----",
       "Invalid last line of a PEM text"},
      {"a first line for a last", "-----BEGIN A-----\nYWI=\n-----BEGIN A-----",
       "Invalid last line of a PEM text"},
      {"six dashes at the end", "-----BEGIN A-----\nYWI=\n-----END A------",
       "Invalid last line of a PEM text"},
      {"data on the last line",
       "-----BEGIN A-----\nYWI=\n-----END A-----YWI=", "Invalid last line of a PEM text"},
      {"an empty block", "-----BEGIN A-----\n-----END A-----", "The text holds no data"},
      {"a last line alone", "-----END A-----", "The text holds no data"},
      {"an encrypted block",
       "-----BEGIN A-----\nProc-Type: 4,ENCRYPTED\nDEK-Info: AES-128-CBC,00\n\nYWI=\n-----END A-----",
       "The PEM text is encrypted"},
      {"a header", "-----BEGIN A-----\nNote: x\n\nYWI=\n-----END A-----", "The PEM text has headers"},
  };
  for (const auto& [why, text, reason] : rows) {
    EXPECT_EQ(ReadAll(text), Objects{"!"}) << why;
    EXPECT_EQ(GetReason(), reason) << why;
  }
}

TEST(TextObjectReader, RefusesInvalidBase64) {
  const std::pair<const char*, std::string> rows[] = {
      {"words", "this is no base-64 text"}, {"padding missing", "YWI"},
      {"padding inside", "YWI=YWI="},       {"padding alone", "===="},
      {"a NUL", std::string("YW\0I=", 5)},  {"other than ASCII", "YW\xC3\xA4="},
      {"the alphabet for URLs", "_-8="},    {"in a block", "-----BEGIN A-----\nYWI\n-----END A-----"},
  };
  for (const auto& [why, text] : rows) {
    EXPECT_EQ(ReadAll(text), Objects{"!"}) << why;
    EXPECT_NE(OruGuiBase::GetLastError(), 0U) << why;
  }
}

TEST(TextObjectReader, ReadsTheObjectsBeforeAFailure) {
  EXPECT_EQ(ReadAll("YWI=\n\nY2Q=\n\n*"), (Objects{":ab", ":cd", "!"}));
}

TEST(TextObjectReader, StaysAtItsEnd) {
  TextObjectReader reader("YWI=");
  TextObject object;
  EXPECT_FALSE(reader.IsAtEnd());
  EXPECT_EQ(reader.Next(object), Step::Object);
  EXPECT_TRUE(reader.IsAtEnd());
  EXPECT_EQ(reader.Next(object), Step::End);
  EXPECT_EQ(reader.Next(object), Step::End);
}

TEST(ReadSingleObject, PassesOverBlankLinesInPlainBase64) {
  TextObject object;
  OruGuiBase::ClearLastError();
  ASSERT_TRUE(ReadSingleObject("\nYW\n\n\r\nI=\n\n", object));
  EXPECT_EQ(object.label, "");
  EXPECT_EQ(BytesOf(object), "ab");
}

TEST(ReadSingleObject, GivesTheLabelOfABlock) {
  TextObject object;
  OruGuiBase::ClearLastError();
  ASSERT_TRUE(ReadSingleObject("-----BEGIN CMS-----\r\nYWI=\r\n-----END CMS-----\r\n", object));
  EXPECT_EQ(object.label, "CMS");
  EXPECT_EQ(BytesOf(object), "ab");
}

TEST(ReadSingleObject, RefusesAnythingButOneObject) {
  const std::string block = "-----BEGIN A-----\nYWI=\n-----END A-----\n";
  const std::tuple<const char*, std::string, const char*> rows[] = {
      {"nothing", "", "The text is empty"},
      {"white space", "\n\n", "The text is empty"},
      {"two blocks", block + block, "The text holds more than one object"},
      {"an object after a block", block + "MIIC", "The text holds more than one object"},
      {"an object before a block", "MIIC\n" + block, "The text holds more than one object"},
      {"a block without end after a block", block + block.substr(0, 25), "The PEM text has no last line"},
  };
  for (const auto& [why, text, reason] : rows) {
    TextObject object;
    OruGuiBase::ClearLastError();
    EXPECT_FALSE(ReadSingleObject(text, object)) << why;
    EXPECT_EQ(GetReason(), reason) << why;
  }
}

TEST(ReadSingleObject, SurvivesEveryByteValueAnywhere) {
  const std::string text = "-----BEGIN A-----\nYWI=\n-----END A-----\n";
  for (std::size_t i = 0; i < text.size(); ++i) {
    for (unsigned value = 0; value < 256; ++value) {
      std::string changed = text;
      changed[i] = static_cast<char>(value);
      TextObject object;
      OruGuiBase::ClearLastError();
      const bool read = ReadSingleObject(changed, object);
      ASSERT_EQ(read, OruGuiBase::GetLastError() == 0) << i << " " << value;
    }
  }
}

}  // namespace
