#include "security/certstore.h"

#include <gtest/gtest.h>
#include <utility>

#include "tests/security/test_pki.h"

namespace {

using namespace SecurityTest;
using OruOssSec::Certificate;
using OruOssSec::CertStore;
using OruOssSec::ASN1::Encoding;

const Cert& StoredCert(std::size_t index) {
  static const Cert certificates[] = {Cert::SelfSign(CertSpec::EndEntity("first"), SharedECKey()),
                                      Cert::SelfSign(CertSpec::EndEntity("second"), SharedECKey()),
                                      Cert::SelfSign(CertSpec::EndEntity("third"), SharedECKey())};
  return certificates[index];
}

int CountOf(const CertStore& store) {
  return store.Get0() == nullptr ? 0 : sk_X509_num(store.Get0());
}

bool Holds(const CertStore& store, std::size_t index) {
  return store.Contains(ToCertificate(StoredCert(index)));
}

TEST(CertStoreLoad, ReadsEveryCertificateOfAList) {
  const std::string a = StoredCert(0).ToPEM();
  const std::string b = StoredCert(1).ToPEM();
  const std::string a64 = InLines(StoredCert(0).ToBase64());
  const std::string b64 = InLines(StoredCert(1).ToBase64());
  const std::pair<const char*, std::string> rows[] = {
      {"PEM after PEM", a + b},
      {"blank lines between PEM blocks", "\n\n" + a + "\n \n\n" + b + "\n"},
      {"PEM with CRLF", WithLineEnds(a + b, "\r\n")},
      {"PEM with CR", WithLineEnds(a + b, "\r")},
      {"base64, blank line, base64", a64 + "\n" + b64},
      {"base64 in one line each", StoredCert(0).ToBase64() + "\n\n" + StoredCert(1).ToBase64()},
      {"base64 with CRLF", WithLineEnds(a64 + "\n" + b64, "\r\n")},
      {"base64 with CR", WithLineEnds(a64 + "\n" + b64, "\r")},
      {"a blank line of blanks", a64 + " \t \n" + b64},
      {"several blank lines", "\n\n" + a64 + "\n\n\n" + b64 + "\n\n"},
      {"base64, then PEM", a64 + b},
      {"PEM, then base64", a + b64},
  };
  for (const auto& [why, text] : rows) {
    CertStore store;
    unsigned int count = 99;
    LeaveStaleReason();
    EXPECT_TRUE(store.Load(ToText(text), &count)) << why << ": " << GetReason();
    EXPECT_EQ(count, 2U) << why;
    EXPECT_EQ(CountOf(store), 2) << why;
    EXPECT_TRUE(Holds(store, 0) && Holds(store, 1)) << why;
    EXPECT_FALSE(Holds(store, 2)) << why;
    EXPECT_EQ(OruGuiBase::GetLastError(), 0U) << why;
    EXPECT_TRUE(IsQueueEmpty()) << why;
  }
}

TEST(CertStoreLoad, PassesOverTextAroundBlocks) {
  CertStore store;
  unsigned int count = 0;
  LeaveStaleReason();
  ASSERT_TRUE(store.Load(ToText("# Roots of 2026\n" + StoredCert(0).ToPEM() + "and\n\n# Issuing\n" +
                                StoredCert(1).ToPEM() + std::string(1, '\0') + StoredCert(2).ToBase64()),
                         &count))
      << GetReason();
  EXPECT_EQ(count, 2U);
  EXPECT_EQ(OruGuiBase::GetLastError(), 0U);
  ASSERT_TRUE(store.Load(ToText("Root\n" + StoredCert(0).ToPEM() + "Base64:\n\n" + StoredCert(2).ToBase64()),
                         &count));
  EXPECT_EQ(count, 2U);
  EXPECT_TRUE(Holds(store, 0) && Holds(store, 1) && Holds(store, 2));
}

TEST(CertStoreLoad, ReadsABlockAfterAnyWhiteSpaceInItsLine) {
  for (const char* white : {" ", "\t", "\f", "\v", " \f\t\v"}) {
    CertStore store;
    unsigned int count = 0;
    EXPECT_TRUE(store.Load(ToText("# note\n" + std::string(white) + StoredCert(0).ToPEM()), &count))
        << GetReason();
    EXPECT_EQ(count, 1U) << CryptStand::ToHex(white);
  }
}

TEST(CertStoreLoad, AcceptsAStringWithoutCertificates) {
  for (const char* text : {"", " ", "\r\n\r\n\t"}) {
    CertStore store;
    unsigned int count = 99;
    LeaveStaleReason();
    EXPECT_TRUE(store.Load(text, &count));
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(store.Get0(), nullptr);
    EXPECT_EQ(OruGuiBase::GetLastError(), 0U);
  }
}

TEST(CertStoreLoad, AcceptsANullCount) {
  CertStore store;
  EXPECT_TRUE(store.Load(ToText(StoredCert(0).ToPEM()), nullptr));
  EXPECT_FALSE(store.Load("rubbish", nullptr));
  EXPECT_EQ(CountOf(store), 1);
}

TEST(CertStoreLoad, AddsASecondListToTheFirst) {
  CertStore store;
  unsigned int count = 0;
  ASSERT_TRUE(store.Load(ToText(StoredCert(0).ToPEM()), &count));
  ASSERT_TRUE(store.Load(ToText(StoredCert(1).ToPEM() + StoredCert(2).ToPEM()), &count));
  EXPECT_EQ(count, 2U);
  EXPECT_EQ(CountOf(store), 3);
}

TEST(CertStoreLoad, KeepsEachCertificateOnce) {
  CertStore store;
  unsigned int count = 0;
  ASSERT_TRUE(
      store.Load(ToText(StoredCert(0).ToPEM() + StoredCert(1).ToPEM() + StoredCert(0).ToPEM()), &count));
  EXPECT_EQ(count, 3U) << "the count is that of the text";
  EXPECT_EQ(CountOf(store), 2);
  ASSERT_TRUE(store.Load(ToText(StoredCert(1).ToPEM()), &count));
  EXPECT_EQ(count, 1U);
  EXPECT_EQ(CountOf(store), 2);
}

TEST(CertStoreLoad, AddsNothingWhenAnyPartCannotBeRead) {
  const std::string pem = StoredCert(1).ToPEM();
  const std::string base64 = StoredCert(1).ToBase64();
  const char* const withoutBlankLine =
      base64.back() == '=' ? "The text is not base64" : "There is data after the certificate";
  const struct {
    const char* why;
    std::string text;
    const char* reason;
  } rows[] = {
      {"a private key among them", pem + SharedKey(0).ToPEM(), "The PEM text is not a certificate"},
      {"base64 of something else", "AAAA", "The text is not an X.509 certificate"},
      {"an object that is no certificate beside a block", pem + "MIIC",
       "The text is not an X.509 certificate"},
      {"a block without end", pem + pem.substr(0, 200), "The PEM text has no last line"},
      {"base64 without a blank line between", InLines(base64) + InLines(base64), withoutBlankLine},
      {"two DER forms in one base64 text",
       CryptStand::ToBase64(StoredCert(1).ToDER() + StoredCert(2).ToDER()),
       "There is data after the certificate"},
      {"a comment in a block", std::string(pem).insert(28, "# root\n"), "The text is not base64"},
      {"a comment without a block", "# roots\n" + base64, "The text is not base64"},
      {"a lost first line", pem + "-----END CERTIFICATE-----\n", "Invalid first line of a PEM text"},
      {"blocks without a line end between", pem.substr(0, pem.size() - 1) + pem,
       "Invalid last line of a PEM text"},
      {"a markup page", "<html><body>Not found</body></html>", "The text is not base64"},
  };
  for (const auto& row : rows) {
    CertStore store;
    unsigned int count = 99;
    ASSERT_TRUE(store.Load(ToText(StoredCert(0).ToPEM()), nullptr));
    LeaveStaleReason();
    EXPECT_FALSE(store.Load(ToText(row.text), &count)) << row.why;
    EXPECT_NE(GetReason(), "stale") << row.why;
    EXPECT_EQ(GetReason(), row.reason) << row.why;
    EXPECT_EQ(count, 0U) << row.why;
    EXPECT_EQ(CountOf(store), 1) << row.why;
    EXPECT_TRUE(IsQueueEmpty()) << row.why;
  }
}

// Up to five dashes after the first block are an ornament.
TEST(CertStoreLoad, ReadsACutListUpToAWholeCertificateOrNotAtAll) {
  const std::string first = StoredCert(0).ToPEM();
  const std::string text = first + StoredCert(1).ToPEM();
  const std::size_t firstEnd = first.size() - 1;
  for (std::size_t size = 0; size < text.size() - 1; ++size) {
    CertStore store;
    LeaveStaleReason();
    const bool loaded = store.Load(ToText(text.substr(0, size)), nullptr);
    ASSERT_EQ(loaded, size == 0 || (size >= firstEnd && size <= firstEnd + 6)) << size;
    ASSERT_EQ(CountOf(store), loaded && size > 0 ? 1 : 0) << size;
    ASSERT_NE(GetReason(), "stale") << size;
  }
}

// Where the second certificate no longer begins like one, it is text beside a block.
TEST(CertStoreLoad, SurvivesEveryChangedByte) {
  const std::string first = StoredCert(0).ToPEM();
  const std::string text = first + InLines(StoredCert(1).ToBase64());
  for (std::size_t i = 0; i < text.size(); ++i) {
    for (const unsigned mask : {0x01U, 0xFFU}) {
      std::string changed = text;
      changed[i] = static_cast<char>(static_cast<unsigned char>(changed[i]) ^ mask);
      CertStore store;
      LeaveStaleReason();
      const bool loaded = store.Load(ToText(changed), nullptr);
      ASSERT_EQ(OruGuiBase::GetLastError() == 0, loaded) << i;
      const bool isTextNow = i >= first.size() && i < first.size() + 3;
      ASSERT_EQ(CountOf(store), isTextNow ? 1 : loaded ? 2 : 0) << i;
      ASSERT_TRUE(IsQueueEmpty()) << i;
    }
  }
}

// Certificates that differ in the serial number alone; their signatures do not hold, which no store asks.
std::string ManyCertificates(unsigned number) {
  CertSpec spec = CertSpec::EndEntity("many");
  spec.serial = "7F00000000000000";
  const std::string der = Cert::SelfSign(spec, SharedECKey()).ToDER();
  const auto serial = der.find(std::string("\x7F\0\0\0\0\0\0\0", 8));
  std::string text;
  for (unsigned i = 0; i < number; ++i) {
    std::string changed = der;
    changed[serial + 6] = static_cast<char>(i >> 8);
    changed[serial + 7] = static_cast<char>(i);
    text += MakePEM("CERTIFICATE", changed);
  }
  return text;
}

TEST(CertStoreLoad, ReadsThousandsOfCertificates) {
  const std::string text = ManyCertificates(2000);
  CertStore store;
  unsigned int count = 0;
  ASSERT_TRUE(store.Load(ToText(text), &count));
  EXPECT_EQ(count, 2000U);
  EXPECT_EQ(CountOf(store), 2000);
  ASSERT_TRUE(store.Load(ToText(text), &count));
  EXPECT_EQ(CountOf(store), 2000);
}

TEST(CertStoreAdd, AddsACertificateOnce) {
  CertStore store;
  LeaveStaleReason();
  EXPECT_TRUE(store.Add(ToCertificate(StoredCert(0))));
  EXPECT_TRUE(store.Add(ToCertificate(StoredCert(0))));
  EXPECT_TRUE(store.Add(ToCertificate(StoredCert(1))));
  EXPECT_EQ(CountOf(store), 2);
  EXPECT_EQ(OruGuiBase::GetLastError(), 0U);
}

TEST(CertStoreAdd, TakesAReferenceOfItsOwn) {
  CertStore store;
  {
    Certificate certificate = ToCertificate(StoredCert(0));
    ASSERT_TRUE(store.Add(certificate));
    certificate.Clear();
  }
  EXPECT_TRUE(Holds(store, 0));
}

TEST(CertStoreAdd, RefusesAnEmptyCertificate) {
  CertStore store;
  LeaveStaleReason();
  EXPECT_FALSE(store.Add(Certificate()));
  EXPECT_EQ(GetReason(), "The certificate is empty");
  EXPECT_EQ(store.Get0(), nullptr);
}

TEST(CertStoreContains, IsFalseForAnEmptyStoreAndAnEmptyCertificate) {
  CertStore store;
  EXPECT_FALSE(Holds(store, 0));
  ASSERT_TRUE(store.Add(ToCertificate(StoredCert(0))));
  EXPECT_FALSE(store.Contains(Certificate()));
}

TEST(CertStoreContains, ComparesWholeCertificates) {
  std::string der = StoredCert(0).ToDER();
  der.back() = static_cast<char>(der.back() ^ 1);
  Certificate changed;
  ASSERT_TRUE(changed.Load(ToText(CryptStand::ToBase64(der)), Encoding::Text));
  CertStore store;
  ASSERT_TRUE(store.Add(ToCertificate(StoredCert(0))));
  EXPECT_FALSE(store.Contains(changed));
  EXPECT_TRUE(store.Add(changed));
  EXPECT_EQ(CountOf(store), 2);
}

TEST(CertStoreClear, EmptiesTheStoreForFurtherUse) {
  CertStore store;
  ASSERT_TRUE(store.Add(ToCertificate(StoredCert(0))));
  store.Clear();
  EXPECT_EQ(store.Get0(), nullptr);
  EXPECT_FALSE(Holds(store, 0));
  store.Clear();
  EXPECT_TRUE(store.Add(ToCertificate(StoredCert(1))));
  EXPECT_EQ(CountOf(store), 1);
}

}  // namespace
