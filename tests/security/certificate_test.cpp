#include "security/certificate.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <utility>

#include "security/certstore.h"
#include "tests/security/test_pki.h"

namespace {

using namespace SecurityTest;
using OruGuiBase::AnsiStr;
using OruOssSec::Certificate;
using OruOssSec::CertStore;
using OruOssSec::SecDigest;
using OruOssSec::SecEncoding;
using OruOssSec::ASN1::Encoding;

Cert MakeCert(const std::string& name) {
  return Cert::SelfSign(CertSpec::EndEntity(name), SharedECKey());
}

Cert MakeCertFor(std::vector<std::pair<std::string, std::string>> subject) {
  CertSpec spec;
  spec.subject = std::move(subject);
  return Cert::SelfSign(spec, SharedECKey());
}

const Cert& SampleCert() {
  static const Cert certificate = MakeCert("Sample");
  return certificate;
}

bool LoadsAs(const std::string& text, const Cert& expected) {
  Certificate certificate;
  return certificate.Load(ToText(text), Encoding::Text) && X509_cmp(certificate.Get0(), expected.Get0()) == 0;
}

TEST(CertificateLoad, AcceptsPEMAndBase64) {
  const std::string pem = SampleCert().ToPEM();
  const std::string base64 = SampleCert().ToBase64();
  const std::pair<const char*, std::string> rows[] = {
      {"PEM", pem},
      {"the older label", MakePEM("X509 CERTIFICATE", SampleCert().ToDER())},
      {"one line of base64", base64},
      {"lines of base64", InLines(base64)},
      {"lines of base64 that end in CRLF", WithLineEnds(InLines(base64), "\r\n")},
      {"blank lines in base64", WithLineEnds(InLines(base64), "\r\n\r\n")},
      {"PEM lines that end in CRLF", WithLineEnds(pem, "\r\n")},
      {"PEM lines that end in CR", WithLineEnds(pem, "\r")},
      {"PEM in one line", WithLineEnds(pem, " ")},
      {"white space around", "\r\n \t" + pem + " \n\v\f"},
      {"text around PEM", "# Root\n" + pem + "end"},
  };
  for (const auto& [why, text] : rows) {
    LeaveStaleReason();
    EXPECT_TRUE(LoadsAs(text, SampleCert())) << why << ": " << GetReason();
    EXPECT_EQ(OruGuiBase::GetLastError(), 0U) << why;
    EXPECT_TRUE(IsQueueEmpty()) << why;
  }
}

TEST(CertificateLoad, RefusesAnythingButOneCertificate) {
  const std::string pem = SampleCert().ToPEM();
  const std::string der = SampleCert().ToDER();
  const struct {
    const char* why;
    std::string text;
    const char* reason;
  } rows[] = {
      {"nothing", "", "The text is empty"},
      {"white space alone", " \r\n", "The text is empty"},
      {"base64 of something else", "AAAA", "The text is not an X.509 certificate"},
      {"a private key", SharedKey(0).ToPEM(), "The PEM text is not a certificate"},
      {"a private key in base64", SharedKey(0).ToBase64(), "The text is not an X.509 certificate"},
      {"a certificate with trust settings", MakePEM("TRUSTED CERTIFICATE", der),
       "The PEM text is not a certificate"},
      {"a label in lower case", MakePEM("certificate", der), "The PEM text is not a certificate"},
      {"two certificates", pem + pem, "The text holds more than one object"},
      {"PEM, then base64", pem + SampleCert().ToBase64(), "The text holds more than one object"},
      {"text without PEM", "# Root\n" + SampleCert().ToBase64(), "The text is not base64"},
      {"a byte after the DER form", CryptStand::ToBase64(der + "x"), "There is data after the certificate"},
      {"two DER forms", CryptStand::ToBase64(der + der), "There is data after the certificate"},
      {"a DER form that ends early", CryptStand::ToBase64(der.substr(0, der.size() - 3)),
       "The text is not an X.509 certificate"},
      {"no last line", pem.substr(0, pem.find("-----END")), "The PEM text has no last line"},
      {"last line cut", pem.substr(0, pem.size() - 2), "Invalid last line of a PEM text"},
      {"first line cut", "-----BEGIN CERTIFICATE", "Invalid first line of a PEM text"},
      {"two first lines", "-----BEGIN CERTIFICATE-----\n" + pem, "Invalid last line of a PEM text"},
      {"no label", "-----BEGIN -----\nAAAA\n-----END -----", "Invalid first line of a PEM text"},
  };
  for (const auto& row : rows) {
    Certificate certificate;
    LeaveStaleReason();
    EXPECT_FALSE(certificate.Load(ToText(row.text), Encoding::Text)) << row.why;
    EXPECT_EQ(GetReason(), row.reason) << row.why;
    EXPECT_TRUE(IsQueueEmpty()) << row.why;
    EXPECT_TRUE(certificate.IsEmpty()) << row.why;
  }
}

TEST(CertificateLoad, RefusesANameThatIsNotUTF8) {
  std::string der = MakeCert("spoilt").ToDER();
  der[der.rfind("spoilt")] = '\xFF';
  Certificate certificate;
  EXPECT_FALSE(certificate.Load(ToText(CryptStand::ToBase64(der)), Encoding::Text));
  EXPECT_EQ(GetReason(), "The text is not an X.509 certificate");
  EXPECT_TRUE(IsQueueEmpty());
}

TEST(CertificateLoad, RefusesAnUnknownEncoding) {
  Certificate certificate;
  EXPECT_FALSE(certificate.Load(ToText(SampleCert().ToPEM()), static_cast<Encoding>(7)));
  EXPECT_EQ(GetReason(), "Unknown encoding of a certificate");
}

TEST(CertificateLoad, LeavesTheCertificateAsItWasOnFailure) {
  Certificate certificate = ToCertificate(SampleCert());
  EXPECT_FALSE(certificate.Load("rubbish", Encoding::Text));
  EXPECT_EQ(Certificate::Compare(certificate, ToCertificate(SampleCert())), 0);
}

TEST(CertificateLoad, ReplacesThePreviousCertificate) {
  Certificate certificate = ToCertificate(SampleCert());
  const Cert other = MakeCert("Other");
  ASSERT_TRUE(certificate.Load(ToText(other.ToPEM()), Encoding::Text));
  EXPECT_EQ(X509_cmp(certificate.Get0(), other.Get0()), 0);
}

TEST(CertificateLoad, FailsForEveryCutString) {
  for (const std::string& text : {SampleCert().ToPEM(), SampleCert().ToBase64()}) {
    const std::size_t needed = text.find_last_not_of('\n') + 1;
    for (std::size_t size = 0; size < needed; ++size) {
      Certificate certificate;
      LeaveStaleReason();
      ASSERT_FALSE(certificate.Load(ToText(text.substr(0, size)), Encoding::Text)) << size;
      ASSERT_NE(GetReason(), "stale") << size;
      ASSERT_TRUE(IsQueueEmpty()) << size;
    }
  }
}

// White space in the place of other white space is the one change without effect.
TEST(CertificateLoad, NeverComparesAChangedCertificateAsEqual) {
  const std::string text = SampleCert().ToPEM();
  const Certificate original = ToCertificate(SampleCert());
  for (std::size_t i = 0; i < text.size(); ++i) {
    for (const unsigned mask : {0x01U, 0x07U, 0xFFU}) {
      std::string changed = text;
      changed[i] = static_cast<char>(static_cast<unsigned char>(changed[i]) ^ mask);
      Certificate certificate;
      LeaveStaleReason();
      const bool loaded = certificate.Load(ToText(changed), Encoding::Text);
      ASSERT_EQ(OruGuiBase::GetLastError() == 0, loaded) << i;
      ASSERT_NE(GetReason(), "stale") << i;
      ASSERT_TRUE(IsQueueEmpty()) << i;
      const bool isSame = loaded && Certificate::Compare(certificate, original) == 0;
      ASSERT_TRUE(!isSame || (IsWhite(text[i]) && IsWhite(changed[i]))) << i << " " << mask;
    }
  }
}

// Whatever the parser accepts, every operation works on it or fails with a reason.
TEST(CertificateLoad, SurvivesEveryChangedByteOfTheDERForm) {
  const std::string der = SampleCert().ToDER();
  for (std::size_t i = 0; i < der.size(); ++i) {
    std::string changed = der;
    changed[i] = static_cast<char>(static_cast<unsigned char>(changed[i]) ^ 0x81U);
    Certificate certificate;
    if (!certificate.Load(ToText(CryptStand::ToBase64(changed)), Encoding::Text)) continue;
    AnsiStr text;
    CertStore store;
    certificate.GetSubject(text);
    EXPECT_TRUE(certificate.GetDigest(SecDigest::SHA256, SecEncoding::HexLower, text)) << i;
    EXPECT_TRUE(store.Add(certificate)) << i;
    certificate.VerifyChain(store, nullptr, /*checkRevocation=*/false, /*allowPartialChain=*/true,
                            At(2026, 1, 1), /*ignoreTime=*/false);
    EXPECT_TRUE(IsQueueEmpty()) << i;
  }
}

TEST(CertificateGetDigest, IsTheSHA256OfTheDERFormInLowerCaseHexadecimal) {
  AnsiStr text;
  LeaveStaleReason();
  ASSERT_TRUE(ToCertificate(SampleCert()).GetDigest(SecDigest::SHA256, SecEncoding::HexLower, text));
  EXPECT_EQ(ToString(text), SampleCert().GetDigest(CryptStand::kSHA256));
  EXPECT_EQ(text.GetLength(), 64U);
  EXPECT_EQ(OruGuiBase::GetLastError(), 0U);
}

TEST(CertificateGetDigest, RefusesAnUnknownDigest) {
  AnsiStr text("before");
  EXPECT_FALSE(ToCertificate(SampleCert()).GetDigest(static_cast<SecDigest>(1), SecEncoding::HexLower, text));
  EXPECT_EQ(GetReason(), "Unknown digest");
  EXPECT_EQ(ToString(text), "before");
}

TEST(CertificateGetDigest, RefusesAnUnknownEncoding) {
  AnsiStr text;
  EXPECT_FALSE(ToCertificate(SampleCert()).GetDigest(SecDigest::SHA256, static_cast<SecEncoding>(0), text));
  EXPECT_EQ(GetReason(), "Unknown encoding of a digest");
}

TEST(CertificateGetDigest, FailsForAnEmptyCertificate) {
  AnsiStr text;
  LeaveStaleReason();
  EXPECT_FALSE(Certificate().GetDigest(SecDigest::SHA256, SecEncoding::HexLower, text));
  EXPECT_EQ(GetReason(), "The certificate is empty");
}

TEST(CertificateGetSubject, FollowsRFC2253) {
  const struct {
    const char* why;
    std::vector<std::pair<std::string, std::string>> subject;
    const char* text;
  } rows[] = {
      {"a common name", {{"CN", "Room 1"}}, "CN=Room 1"},
      {"the last part comes first",
       {{"C", "DE"}, {"O", "Example"}, {"CN", "Room"}},
       "CN=Room,O=Example,C=DE"},
      {"other than ASCII stays UTF-8",
       {{"CN", "Schlüssel für Zürich \u20AC \U0001F511"}},
       "CN=Schlüssel für Zürich \u20AC \U0001F511"},
      {"a comma", {{"CN", "Meier, Ute"}}, "CN=Meier\\, Ute"},
      {"plus, quotation mark, backslash, angle brackets, semicolon",
       {{"CN", "a+b\"c\\d<e>f;g"}},
       "CN=a\\+b\\\"c\\\\d\\<e\\>f\\;g"},
      {"a number sign at the front", {{"CN", "#1"}}, "CN=\\#1"},
      {"blanks at both ends", {{"CN", " x "}}, "CN=\\ x\\ "},
      {"an equals sign", {{"CN", "a=b"}}, "CN=a=b"},
      {"a line end", {{"CN", "a\nb"}}, "CN=a\\0Ab"},
      {"a part without a short name", {{"1.2.3.4", "x"}}, "1.2.3.4=#0C0178"},
      {"no parts", {}, ""},
  };
  for (const auto& row : rows) {
    AnsiStr text("before");
    LeaveStaleReason();
    EXPECT_TRUE(ToCertificate(MakeCertFor(row.subject)).GetSubject(text)) << row.why << ": " << GetReason();
    EXPECT_EQ(ToString(text), row.text) << row.why;
    EXPECT_EQ(OruGuiBase::GetLastError(), 0U) << row.why;
    EXPECT_TRUE(IsQueueEmpty()) << row.why;
  }
}

TEST(CertificateGetSubject, FailsForAnEmptyCertificate) {
  AnsiStr text;
  LeaveStaleReason();
  EXPECT_FALSE(Certificate().GetSubject(text));
  EXPECT_EQ(GetReason(), "The certificate is empty");
}

TEST(CertificateGetIssuer, IsTheNameOfTheIssuer) {
  const auto root = CryptStand::Identity::MakeRoot(CertSpec::Authority("The root"), SharedECKey());
  const Cert issued = Cert::Issue(CertSpec::EndEntity("Room"), SharedECKey(), root);
  AnsiStr text;
  LeaveStaleReason();
  ASSERT_TRUE(ToCertificate(issued).GetIssuer(text)) << GetReason();
  EXPECT_EQ(ToString(text), issued.GetIssuer());
  EXPECT_EQ(ToString(text), root.certificate.GetSubject());
  EXPECT_TRUE(IsQueueEmpty());
}

TEST(CertificateGetSerial, IsUpperCaseHexadecimalWithoutASignByte) {
  for (const char* serial : {"0A3F", "8F01", "FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF", "01"}) {
    CertSpec spec = CertSpec::EndEntity("Room");
    spec.serial = serial;
    AnsiStr text;
    ASSERT_TRUE(ToCertificate(Cert::SelfSign(spec, SharedECKey())).GetSerial(text)) << GetReason();
    EXPECT_EQ(ToString(text), serial);
  }
}

TEST(CertificateGetValidity, HasTheFirstAndTheLastSecond) {
  CertSpec spec = CertSpec::EndEntity("Room");
  // From 2050 on certificates have another time type (RFC 5280, 4.1.2.5).
  spec.validity = CryptStand::Validity::Between("2024-02-29T01:02:03", "2051-12-31T23:59:59");
  OruGuiBase::DateTime notBefore;
  OruGuiBase::DateTime notAfter;
  LeaveStaleReason();
  ASSERT_TRUE(ToCertificate(Cert::SelfSign(spec, SharedECKey())).GetValidity(notBefore, notAfter))
      << GetReason();
  EXPECT_EQ(notBefore, (OruGuiBase::DateTime{2024, 2, 29, 1, 2, 3}));
  EXPECT_EQ(notAfter, (OruGuiBase::DateTime{2051, 12, 31, 23, 59, 59}));
  EXPECT_TRUE(IsQueueEmpty());
}

TEST(CertificateGetters, FailForAnEmptyCertificate) {
  AnsiStr text;
  OruGuiBase::DateTime time;
  EXPECT_FALSE(Certificate().GetIssuer(text));
  EXPECT_FALSE(Certificate().GetSerial(text));
  LeaveStaleReason();
  EXPECT_FALSE(Certificate().GetValidity(time, time));
  EXPECT_EQ(GetReason(), "The certificate is empty");
}

TEST(CertificateCompare, IsZeroForTheSameCertificateReadTwice) {
  const Certificate fromPEM = ToCertificate(SampleCert());
  Certificate fromBase64;
  ASSERT_TRUE(fromBase64.Load(ToText(SampleCert().ToBase64()), Encoding::Text));
  EXPECT_EQ(Certificate::Compare(fromPEM, fromBase64), 0);
  EXPECT_EQ(Certificate::Compare(fromPEM, fromPEM), 0);
}

TEST(CertificateCompare, DistinguishesCertificatesWithTheSameNameAndKey) {
  const Certificate a = ToCertificate(MakeCert("same"));
  const Certificate b = ToCertificate(MakeCert("same"));
  const int order = Certificate::Compare(a, b);
  EXPECT_NE(order, 0);
  EXPECT_EQ(Certificate::Compare(b, a) > 0, order < 0);
}

TEST(CertificateCompare, DistinguishesCertificatesThatDifferInTheSignatureAlone) {
  std::string der = SampleCert().ToDER();
  der.back() = static_cast<char>(der.back() ^ 1);
  Certificate changed;
  ASSERT_TRUE(changed.Load(ToText(CryptStand::ToBase64(der)), Encoding::Text));
  EXPECT_NE(Certificate::Compare(changed, ToCertificate(SampleCert())), 0);
}

TEST(CertificateCompare, PutsTheEmptyCertificateFirst) {
  const Certificate full = ToCertificate(SampleCert());
  EXPECT_LT(Certificate::Compare(Certificate(), full), 0);
  EXPECT_GT(Certificate::Compare(full, Certificate()), 0);
  EXPECT_EQ(Certificate::Compare(Certificate(), Certificate()), 0);
}

TEST(Certificate, CopiesShareTheCertificateObject) {
  Certificate certificate = ToCertificate(SampleCert());
  const Certificate copy(certificate);
  Certificate assigned = ToCertificate(MakeCert("other"));
  assigned = certificate;
  EXPECT_EQ(copy.Get0(), certificate.Get0());
  EXPECT_EQ(assigned.Get0(), certificate.Get0());
  certificate.Clear();
  EXPECT_TRUE(certificate.IsEmpty());
  EXPECT_EQ(X509_cmp(copy.Get0(), SampleCert().Get0()), 0);
}

TEST(Certificate, SurvivesAssignmentToItself) {
  Certificate certificate = ToCertificate(SampleCert());
  const Certificate& same = certificate;
  certificate = same;
  EXPECT_EQ(X509_cmp(certificate.Get0(), SampleCert().Get0()), 0);
}

TEST(Certificate, IsEmptyAfterAssignmentOfAnEmptyOne) {
  Certificate certificate = ToCertificate(SampleCert());
  certificate = Certificate();
  EXPECT_TRUE(certificate.IsEmpty());
}

// Each thread uses, copies and drops the shared certificate and verifies it against a store of its own.
void UseSharedCertificate(const Certificate& shared, std::atomic<int>& good) {
  for (int i = 0; i < 50; ++i) {
    const Certificate copy(shared);
    AnsiStr subject;
    AnsiStr digest;
    CertStore store;
    const bool works = store.Add(copy) && copy.GetSubject(subject) &&
                       copy.GetDigest(SecDigest::SHA256, SecEncoding::HexLower, digest) &&
                       Certificate::Compare(copy, shared) == 0 &&
                       copy.VerifyChain(store, nullptr, /*checkRevocation=*/false,
                                        /*allowPartialChain=*/false, At(2030, 1, 1), /*ignoreTime=*/true)
                               .code == 0;
    if (works) ++good;
  }
}

TEST(Certificate, IsSharedByThreads) {
  const Certificate shared = ToCertificate(SampleCert());
  std::atomic<int> good = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back([&] { UseSharedCertificate(shared, good); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, 200);
}

}  // namespace
