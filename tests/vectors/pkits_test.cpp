#include <cctype>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <openssl/cms.h>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "security/certstore.h"
#include "security/cmsmsg.h"
#include "tests/security/test_pki.h"
#include "tests/support/files.h"

// Certification paths of NIST's suite, from the package of the system. The table of its cases is in
// pkits_cases.txt.
namespace SecurityTest {
namespace {

using OruOssSec::Certificate;
using OruOssSec::CertStore;
using OruOssSec::CMSMsg;
using TestSupport::ReadFile;

const std::string kSuite = PKITS_DIR;
const OruGuiBase::DateTime kTime = At(2020, 6, 1);

struct Case {
  std::string number;
  std::string name;
  std::vector<std::string> path;
  std::string type;    // how it is judged: as the suite expects, not applicable, too weak, or differently
  std::string reason;  // of a refusal, empty where the path is accepted
};

void PrintTo(const Case& row, std::ostream* out) {
  *out << row.number << " " << row.name;
}

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) {
    const std::size_t begin = part.find_first_not_of(' ');
    const std::size_t end = part.find_last_not_of(' ');
    parts.push_back(begin == std::string::npos ? "" : part.substr(begin, end - begin + 1));
  }
  return parts;
}

Case ReadCase(const std::string& line) {
  std::vector<std::string> columns = Split(line, '|');
  columns.resize(5);
  Case row{columns[0], columns[2], Split(columns[3], ' '), columns[1], columns[4]};
  const std::string differs = "differs: ";
  const std::string weak = "weak: ";
  if (row.reason.starts_with("not applicable: ")) {
    row.type = std::exchange(row.reason, "");
  } else if (row.reason.starts_with(differs)) {
    row.type = "differs";
    row.reason.erase(0, differs.size());
  } else if (row.reason.starts_with(weak)) {
    row.type = "weak";
    row.reason.erase(0, weak.size());
  }
  return row;
}

std::vector<Case> ReadCases() {
  std::vector<Case> cases;
  std::ifstream file(PKITS_CASES);
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line.front() != '#') cases.push_back(ReadCase(line));
  }
  return cases;
}

// The result in words.
std::string Expected(const Case& row) {
  return row.reason.empty() ? "ok" : row.reason;
}

std::string ReadPem(const std::string& name) {
  return MakePEM("CERTIFICATE", ReadFile(kSuite + "/certs/" + name + ".crt"));
}

Certificate LoadLeaf(const Case& row) {
  Certificate leaf;
  EXPECT_TRUE(leaf.Load(ToText(ReadPem(row.path.back())), OruOssSec::ASN1::Encoding::Text)) << GetReason();
  return leaf;
}

// The verdict on a path in words; "ok" for a valid chain.
std::string Judge(const CertStore& store, const Case& row) {
  OruGuiBase::PtrContainerQueue<Certificate> chain;
  const OruOssSec::CertVerifyResult result = LoadLeaf(row).VerifyChain(
      store, &chain, /*checkRevocation=*/false, /*allowPartialChain=*/false, kTime, /*ignoreTime=*/false);
  EXPECT_EQ(chain.IsEmpty(), result.code != 0);
  EXPECT_TRUE(IsQueueEmpty());
  return ToString(result.GetResultString());
}

class Pkits : public testing::TestWithParam<Case> {
 protected:
  static void Load(CertStore& store, const std::string& text, unsigned int expected) {
    unsigned int count = 0;
    ASSERT_TRUE(store.Load(ToText(text), &count)) << GetReason();
    EXPECT_EQ(count, expected);
  }
};

// Except for what is weak today, and with the reasons in the table.
TEST_P(Pkits, JudgesEachPathAloneAsExpected) {
  const Case& row = GetParam();
  std::string text = ReadPem("TrustAnchorRootCertificate");
  for (std::size_t i = 0; i + 1 < row.path.size(); ++i) text += ReadPem(row.path[i]);
  CertStore store;
  Load(store, text, static_cast<unsigned int>(row.path.size()));
  EXPECT_EQ(Judge(store, row), Expected(row));
}

// Every authority of the suite, with keys and names that resemble each other, so that the search has to
// choose.
const CertStore& AllAuthorities() {
  static CertStore store;
  std::string text;
  if (store.Get0() != nullptr) return store;
  for (const auto& entry : std::filesystem::directory_iterator(kSuite + "/certs")) {
    const std::string name = entry.path().stem().string();
    if (!name.ends_with("EE")) text += ReadPem(name);
  }
  EXPECT_TRUE(store.Load(ToText(text), nullptr)) << GetReason();
  return store;
}

TEST_P(Pkits, JudgesEachPathAmongAllAuthoritiesAsExpected) {
  EXPECT_EQ(Judge(AllAuthorities(), GetParam()) == "ok", GetParam().reason.empty());
}

TEST_P(Pkits, RefusesEveryPathWithoutItsAnchor) {
  const Case& row = GetParam();
  std::string text;
  for (const std::string& name : row.path) text += ReadPem(name);
  CertStore store;
  Load(store, text, static_cast<unsigned int>(row.path.size()));
  EXPECT_NE(Judge(store, row), "ok");
}

// The suite's signed mails have their content outside the message. Returns the message with the content in
// it, as DER.
std::string ReadMail(const std::string& name) {
  const std::string text = ReadFile(kSuite + "/smime/Signed" + name + ".eml");
  BIO* const mail = BIO_new_mem_buf(text.data(), static_cast<int>(text.size()));
  BIO* part = nullptr;
  CMS_ContentInfo* const cms = SMIME_read_CMS(mail, &part);
  std::string der;
  char* data = nullptr;
  if (cms != nullptr && part != nullptr) {
    const long size = BIO_get_mem_data(part, &data);
    ASN1_OCTET_STRING** const content = CMS_get0_content(cms);
    *content = ASN1_OCTET_STRING_new();
    ASN1_OCTET_STRING_set(*content, reinterpret_cast<unsigned char*>(data), static_cast<int>(size));
    unsigned char* bytes = nullptr;
    const int length = i2d_CMS_ContentInfo(cms, &bytes);
    if (length > 0) der.assign(reinterpret_cast<char*>(bytes), static_cast<std::size_t>(length));
    OPENSSL_free(bytes);
  }
  CMS_ContentInfo_free(cms);
  BIO_free(part);
  BIO_free(mail);
  return der;
}

// Here over the certificates that come with the message.
TEST_P(Pkits, JudgesSignedMailAsExpected) {
  const Case& row = GetParam();
  const std::string der = ReadMail(row.name);
  ASSERT_FALSE(der.empty());
  CMSMsg message;
  ASSERT_TRUE(message.Load(ToText(CryptStand::ToBase64(der)))) << GetReason();
  CertStore anchor;
  Load(anchor, ReadPem("TrustAnchorRootCertificate"), 1);
  // The one that differs has a key that cannot be read, so its signature proves nothing either.
  EXPECT_EQ(message.Verify(), row.type != "differs") << GetReason();
  const bool verified = message.Verify(anchor);
  EXPECT_EQ(verified ? "ok" : GetReason(),
            row.type == "differs" ? "A signature is not valid" : Expected(row));
  EXPECT_FALSE(message.Verify(CertStore()));
}

INSTANTIATE_TEST_SUITE_P(Cases, Pkits, testing::ValuesIn(ReadCases()), [](const auto& row) {
  std::string name = row.param.number + "_" + row.param.name;
  for (char& character : name) {
    if (std::isalnum(static_cast<unsigned char>(character)) == 0) character = '_';
  }
  return name;
});

TEST(PkitsTable, ListsEveryCaseOfTheSuiteOnce) {
  const int sizes[] = {6, 8, 11, 21, 8, 17, 5, 20, 8, 14, 11, 10, 38, 35, 10, 2};
  std::map<std::string, Case> cases;
  for (const Case& row : ReadCases()) EXPECT_TRUE(cases.emplace(row.number, row).second) << row.number;
  int section = 0;
  for (const int size : sizes) {
    ++section;
    for (int i = 1; i <= size; ++i) {
      const std::string number = "4." + std::to_string(section) + "." + std::to_string(i);
      ASSERT_TRUE(cases.contains(number)) << number;
      EXPECT_TRUE(cases[number].name.ends_with("Test" + std::to_string(i))) << number;
      cases.erase(number);
    }
  }
  EXPECT_TRUE(cases.empty());
}

TEST(PkitsTable, LeavesOutOnlyCasesOfRevocationAndPolicies) {
  std::map<std::string, int> counts;
  for (const Case& row : ReadCases()) ++counts[row.type];
  const std::map<std::string, int> expected = {
      {"valid", 101}, {"invalid", 46}, {"not applicable: policies", 29}, {"not applicable: revocation", 46},
      {"weak", 1},    {"differs", 1}};
  EXPECT_EQ(counts, expected);
}

}  // namespace
}  // namespace SecurityTest
