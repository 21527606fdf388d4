#pragma once

#include <gtest/gtest.h>
#include <utility>

#include "security/certstore.h"
#include "tests/security/test_pki.h"

// What the tests of chains share: a hierarchy, and one call that verifies a chain and checks all its effects.
namespace SecurityTest {

using Chain = OruGuiBase::PtrContainerQueue<OruOssSec::Certificate>;
using Names = std::vector<std::string>;

inline const Validity kLong = Validity::Between("2000-01-01", "2060-01-01");
inline const OruGuiBase::DateTime kNow = At(2026, 6, 1, 12);

inline CertSpec Spec(CertSpec spec, Validity validity = kLong) {
  spec.validity = validity;
  return spec;
}

inline Identity Root(const std::string& name, std::size_t key) {
  return Identity::MakeRoot(Spec(CertSpec::Authority(name)), SharedKey(key));
}

inline Identity Authority(const std::string& name, std::size_t key, const Identity& issuer) {
  return Identity::MakeIssued(Spec(CertSpec::Authority(name)), issuer, SharedKey(key));
}

inline Cert Leaf(const Identity& issuer, CertSpec spec = CertSpec::EndEntity("leaf"),
                 Validity validity = kLong) {
  return Cert::Issue(Spec(std::move(spec), validity), SharedKey(3), issuer);
}

// root, below it the intermediate authority, below that the leaf.
struct Hierarchy {
  Identity root = Root("root", 0);
  Identity middle = Authority("middle", 1, root);
  Cert leaf = Leaf(middle);
};

inline const Hierarchy& Sample() {
  static const Hierarchy hierarchy;
  return hierarchy;
}

inline OruOssSec::CertStore& Fill(OruOssSec::CertStore& store, const std::vector<Cert>& certificates) {
  for (const Cert& certificate : certificates) EXPECT_TRUE(store.Add(ToCertificate(certificate)));
  return store;
}

// The arguments of VerifyChain by name.
struct Options {
  bool checkRevocation = false;
  bool allowPartialChain = false;
  OruGuiBase::DateTime time = kNow;
  bool ignoreTime = false;
};

/// The result of VerifyChain, with the subjects of the chain that it filled.
struct Outcome {
  int code = 0;
  std::string text;
  std::vector<std::string> chain;
};

inline std::vector<std::string> SubjectsOf(const Chain& chain) {
  std::vector<std::string> subjects;
  for (const auto& certificate : chain) {
    OruGuiBase::AnsiStr subject;
    EXPECT_TRUE(certificate.GetSubject(subject));
    subjects.push_back(ToString(subject).substr(3));
  }
  return subjects;
}

inline Outcome Verify(const Cert& leaf, const std::vector<Cert>& trusted, const Options& options = {}) {
  OruOssSec::CertStore store;
  Fill(store, trusted);
  Chain chain;
  chain.Append(new OruOssSec::Certificate());
  LeaveStaleReason();
  const OruOssSec::CertVerifyResult result = ToCertificate(leaf).VerifyChain(
      store, &chain, options.checkRevocation, options.allowPartialChain, options.time, options.ignoreTime);
  EXPECT_TRUE(IsQueueEmpty());
  EXPECT_EQ(OruGuiBase::GetLastError() == 0, result.code == 0);
  EXPECT_EQ(chain.IsEmpty(), result.code != 0);
  EXPECT_TRUE(result.code == 0 || GetReason() == ToString(result.GetResultString())) << GetReason();
  return {result.code, ToString(result.GetResultString()), SubjectsOf(chain)};
}

// The certificate with the last byte of its signature changed.
inline Cert Spoilt(const Cert& certificate) {
  std::string der = certificate.ToDER();
  der.back() = static_cast<char>(der.back() ^ 1);
  return Cert::FromPEM(MakePEM("CERTIFICATE", der));
}

inline const Validity kYear = Validity::Between("2025-01-01", "2025-12-31T23:59:59");

}  // namespace SecurityTest
