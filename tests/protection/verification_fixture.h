#pragma once

#include <string>
#include <vector>

#include "tests/protection/services_fixture.h"

namespace OruKalvix {

/// Decrypt of content with signers that a test chooses, and what becomes of the proof of its origin.
class Verification : public TestSupport::ServicesTest {
 protected:
  Verification() : target(scratch.File("opened")) { Protect({Signer()}); }

  /// A signer as the client itself would be: the group's integrity key at the key server's time.
  TestSupport::SignerSpec Signer() const { return SignerOf(pki.integrity); }
  static TestSupport::SignerSpec SignerOf(const TestSupport::Identity& identity,
                                          const std::string& group = TestSupport::kGroup) {
    TestSupport::SignerSpec signer;
    signer.identity = identity;
    signer.attributes = {{TestSupport::kGroupOid, group},
                         {TestSupport::kRoomOid, "room 1"},
                         {TestSupport::kRoomUrlOid, "https://crypt.example/api/mx/room%201"}};
    signer.signingTime = TestSupport::kServicesTime;
    return signer;
  }
  void Protect(const std::vector<TestSupport::SignerSpec>& signers) {
    ProtectMessage(TestSupport::MakeSigned(kPlain, signers));
  }
  /// As many signers, all the same one.
  void ProtectBy(std::size_t count) {
    std::vector<TestSupport::SignerSpec> signers(count, Signer());
    for (std::size_t i = 1; i < count; ++i) signers[i].hasCertificate = false;
    Protect(signers);
  }
  void ProtectMessage(const std::string& inner) {
    source = scratch.Make("protected.bin", TestSupport::MakeEnveloped(inner, {pki.room.certificate}));
  }
  void ProtectGroup(const TestSupport::AttributeSpec& group) {
    TestSupport::SignerSpec signer = Signer();
    signer.attributes[0] = group;
    Protect({signer});
  }
  /// The crypt service was asked last for the integrity certificates of this group, as a segment of a URL.
  void ExpectGroupAsked(const std::string& segment) const {
    EXPECT_THAT(services.GetRequests("integrity").back().url,
                ::testing::EndsWith("/crypt/certlist/" + segment + "/integrity/sha256"));
  }
  /// The crypt service lists these certificates as the group's.
  void ListIntegrity(const std::vector<TestSupport::Cert>& certificates) {
    std::string list;
    for (const TestSupport::Cert& certificate : certificates) {
      list += (list.empty() ? "" : ",") + TestSupport::Quoted(certificate.GetDigest());
    }
    services.Set("integrity", TestSupport::Json(R"({"integrity":[)" + list + "]}"));
  }
  void HandOutPlainKey() {
    services.Set(
        "key", TestSupport::Json(TestSupport::With(TestSupport::ScriptedServices::RoomKeyResponse(), "plain",
                                                   TestSupport::Quoted(pki.room.key.ToPEM()))));
  }

  bool Decrypt() { return client.Decrypt(source, target, isSigned, isVerified); }
  void ExpectVerified() {
    EXPECT_TRUE(Decrypt()) << Error();
    EXPECT_TRUE(isSigned);
    EXPECT_TRUE(isVerified) << Error();
    EXPECT_EQ(scratch.Read("opened"), kPlain);
    EXPECT_THAT(scratch.GetTemporaryNames(), ::testing::IsEmpty());
  }
  /// The content is delivered and its origin not proven.
  void ExpectDoubted() {
    EXPECT_TRUE(Decrypt()) << Error();
    EXPECT_TRUE(isSigned);
    EXPECT_FALSE(isVerified);
    EXPECT_EQ(scratch.Read("opened"), kPlain);
    EXPECT_THAT(scratch.GetTemporaryNames(), ::testing::IsEmpty());
  }
  /// The operation stops before anything is delivered.
  void ExpectRefused() {
    scratch.Make("opened", "as before");
    EXPECT_FALSE(Decrypt());
    EXPECT_TRUE(isSigned);
    EXPECT_FALSE(isVerified);
    EXPECT_EQ(scratch.Read("opened"), "as before");
    EXPECT_THAT(scratch.GetTemporaryNames(), ::testing::IsEmpty());
  }

  OruGuiBase::File source;
  OruGuiBase::File target;
  bool isSigned = false;
  bool isVerified = true;
};

}  // namespace OruKalvix
