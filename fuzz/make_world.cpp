#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

#include "fuzz/support/world.h"
#include "tests/support/messages.h"
#include "tests/support/pki.h"
#include "tests/support/text.h"

// Makes the keys, certificates and messages that the fuzz targets share, into the directory that is named.
// All messages are OpenSSL's.
namespace {

using namespace TestSupport;

constexpr std::time_t kSigningTime = 1715774400;  // the key servers' clock
constexpr std::time_t kMuchLater = 2556144000;    // 2051, when no certificate is valid any more

class WorldMaker {
 public:
  explicit WorldMaker(std::filesystem::path directory) : directory_(std::move(directory)) {}

  void Make();

 private:
  void WriteText(const std::string& name, const std::string& text) const;
  void WriteIdentity(const std::string& name, const Identity& identity) const;
  void WriteMessage(const std::string& name, const std::string& bytes) const;
  void WriteContents();
  void WriteEnvelopes();
  SignerSpec GroupSigner() const;
  SignerSpec ForeignSigner() const;

  std::filesystem::path directory_;
  const Pki& pki_ = Pki::Get();
  Identity outsider_;
};

void WorldMaker::WriteText(const std::string& name, const std::string& text) const {
  std::ofstream out(directory_ / name, std::ios::trunc);
  out << text;
  EXPECT_TRUE(out.flush().good()) << name;
}

void WorldMaker::WriteIdentity(const std::string& name, const Identity& identity) const {
  WriteText(name, identity.certificate.ToPEM() + identity.key.ToPEM());
}

void WorldMaker::WriteMessage(const std::string& name, const std::string& bytes) const {
  const std::string text = CryptStand::ToBase64(bytes);
  std::string lines;
  for (std::size_t at = 0; at < text.size(); at += 100) lines += text.substr(at, 100) + "\n";
  WriteText(name + ".b64", lines);
}

SignerSpec WorldMaker::GroupSigner() const {
  SignerSpec signer;
  signer.identity = pki_.integrity;
  signer.attributes = {{kGroupOid, std::string(Fuzz::kGroup)},
                       {kRoomOid, std::string(Fuzz::kRoom)},
                       {kRoomUrlOid, std::string(Fuzz::kServiceUrl) + "/mx/room%201"}};
  signer.signingTime = kSigningTime;
  return signer;
}

SignerSpec WorldMaker::ForeignSigner() const {
  SignerSpec signer = GroupSigner();
  signer.identity = outsider_;
  return signer;
}

void WorldMaker::WriteContents() {
  const std::string_view genuine = Fuzz::kGenuineContent;
  const SignerSpec signer = GroupSigner();
  WriteMessage("content-genuine", MakeSigned(genuine, {signer}));
  WriteMessage("content-foreign", MakeSigned(Fuzz::kForeignContent, {ForeignSigner()}));
  WriteMessage("content-two", MakeSigned(genuine, {signer, ForeignSigner()}));
  WriteMessage("content-nosigner", MakeUnsigned(genuine, signer));
  SignerSpec changed = signer;
  changed.attributes.clear();
  WriteMessage("content-nogroup", MakeSigned(genuine, {changed}));
  changed = signer;
  changed.attributes[0].isText = false;
  WriteMessage("content-hexgroup", MakeSigned(genuine, {changed}));
  changed = signer;
  changed.signingTime = kMuchLater;
  WriteMessage("content-later", MakeSigned(genuine, {changed}));
  changed.signingTime.reset();
  WriteMessage("content-notime", MakeSigned(genuine, {changed}));
  changed = signer;
  changed.hasCertificate = false;
  WriteMessage("content-nocertificate", MakeSigned(genuine, {changed}));
  changed.hasCertificate = true;
  changed.more = {pki_.issuing.certificate, pki_.intermediate.certificate};
  WriteMessage("content-chain", MakeSigned(genuine, {changed}));
  WriteMessage("content-digested", MakeDigested(Fuzz::kForeignContent));
  WriteMessage("content-data", MakeData(Fuzz::kForeignContent));
}

void WorldMaker::WriteEnvelopes() {
  const std::string genuine = MakeSigned(Fuzz::kGenuineContent, {GroupSigner()});
  const Cert& room = pki_.room.certificate;
  WriteMessage("envelope-genuine", MakeEnveloped(genuine, {room}));
  WriteMessage("envelope-foreign",
               MakeEnveloped(MakeSigned(Fuzz::kForeignContent, {ForeignSigner()}), {room}));
  WriteMessage("envelope-plain", MakeEnveloped(Fuzz::kForeignContent, {room}));
  WriteMessage("envelope-empty", MakeEnveloped("", {room}));
  WriteMessage("envelope-two", MakeEnveloped(genuine, {room, outsider_.certificate}));
  WriteMessage("envelope-keyid", MakeEnvelopedByKeyId(genuine, room));
}

void WorldMaker::Make() {
  std::filesystem::create_directories(directory_);
  const Identity foreignRoot = Identity::MakeRoot(Authority("Outside"), KeyPair::MakeEC());
  const Identity foreignIssuing = Identity::MakeIssued(Authority("Issuing"), foreignRoot, KeyPair::MakeEC());
  outsider_ = Identity::MakeIssued(EndEntity("integrity"), foreignIssuing, MakeShortRSA());
  WriteIdentity("root.pem", pki_.root);
  WriteIdentity("intermediate.pem", pki_.intermediate);
  WriteIdentity("issuing.pem", pki_.issuing);
  WriteIdentity("innersigning.pem", pki_.innerSigning);
  WriteIdentity("room.pem", pki_.room);
  WriteIdentity("integrity.pem", pki_.integrity);
  WriteIdentity("outsider.pem", outsider_);
  WriteMessage("wrappedkey", FromBase64(WrappedKey(pki_.innerSigning.certificate)));
  WriteContents();
  WriteEnvelopes();
}

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
    return 2;
  }
  WorldMaker(argv[1]).Make();
  return ::testing::UnitTest::GetInstance()->Failed() ? 1 : 0;
}
