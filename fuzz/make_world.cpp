// Makes the keys, certificates and messages that the fuzz targets share, in the named directory. OpenSSL
// makes all messages, so that the library is not tested with its own output.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <string>

#include "fuzz/support/world.h"
#include "tests/support/messages.h"
#include "tests/support/pki.h"
#include "tests/support/text.h"

namespace {

using namespace TestSupport;

constexpr std::time_t kSigningTime = 1715774400;  // the key servers' clock
constexpr std::time_t kMuchLater = 2556144000;    // 2051, when no certificate is valid any more

class WorldMaker {
 public:
  explicit WorldMaker(std::filesystem::path directory) : directory_(std::move(directory)) {}

  void Make();

 private:
  bool IsThere(const std::string& name) const { return std::filesystem::exists(directory_ / name); }
  void WriteText(const std::string& name, const std::string& text) const;
  void TakeIdentity(const std::string& name, Identity& identity) const;
  void WriteMessage(const std::string& name, const std::string& bytes) const;
  void WriteContents();
  void WriteEnvelopes();
  void WriteForms() const;
  SignerSpec GroupSigner() const;
  SignerSpec ForeignSigner() const;

  std::filesystem::path directory_;
  Pki pki_ = Pki::Get();
  Identity outsider_;
};

void WorldMaker::WriteText(const std::string& name, const std::string& text) const {
  std::ofstream out(directory_ / name, std::ios::trunc);
  out << text;
  EXPECT_TRUE(out.flush().good()) << name;
}

// Uses an identity from the directory, if there is one, instead of a new one: the corpus contains messages
// for the old keys, which would be useless with others.
void WorldMaker::TakeIdentity(const std::string& name, Identity& identity) const {
  if (!IsThere(name)) {
    WriteText(name, identity.certificate.ToPEM() + identity.key.ToPEM());
    return;
  }
  std::ifstream in(directory_ / name);
  const std::string pem(std::istreambuf_iterator<char>(in), {});
  identity = {Cert::FromPEM(pem), KeyPair::FromPEM(pem)};
  EXPECT_FALSE(identity.certificate.IsEmpty() || identity.key.IsEmpty()) << name;
}

// An existing message stays as it is: content keys are random, so a new one would change what the inputs of
// the corpus mean.
void WorldMaker::WriteMessage(const std::string& name, const std::string& bytes) const {
  if (IsThere(name + ".b64")) return;
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

// Claims the group and the room like a genuine signer: only the chain of its certificate gives it away.
SignerSpec WorldMaker::ForeignSigner() const {
  SignerSpec signer = GroupSigner();
  signer.identity = outsider_;
  return signer;
}

using BioPtr = std::unique_ptr<BIO, decltype(&BIO_free_all)>;
using CmsPtr = std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)>;

BioPtr Reading(std::string_view bytes) {
  return {BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())), BIO_free_all};
}

CmsPtr Own(CMS_ContentInfo* message) {
  return {message, CMS_ContentInfo_free};
}

// A message as OpenSSL writes it when streaming: with indefinite lengths (X.690, 8.1.3.6).
std::string Stream(const CmsPtr& message, std::string_view content) {
  const BioPtr in = Reading(content);
  const BioPtr out(BIO_new(BIO_s_mem()), BIO_free_all);
  EXPECT_TRUE(message != nullptr &&
              i2d_CMS_bio_stream(out.get(), message.get(), in.get(), CMS_STREAM | CMS_BINARY) == 1);
  char* data = nullptr;
  const long size = BIO_get_mem_data(out.get(), &data);
  return {data, static_cast<std::size_t>(size)};
}

constexpr unsigned kStreamed = CMS_STREAM | CMS_PARTIAL | CMS_BINARY;

std::string StreamSigned(const Identity& signer, const EVP_MD* digest, unsigned flags) {
  const CmsPtr message = Own(CMS_sign(nullptr, nullptr, nullptr, nullptr, kStreamed));
  CMS_SignerInfo* const info = CMS_add1_signer(message.get(), signer.certificate.Get0(), signer.key.Get0(),
                                               digest, flags | CMS_BINARY | CMS_PARTIAL);
  EXPECT_NE(info, nullptr);
  return Stream(message, Fuzz::kGenuineContent);
}

std::string StreamEnveloped(const Cert& recipient, const EVP_CIPHER* cipher) {
  const CmsPtr message = Own(CMS_encrypt(nullptr, nullptr, cipher, kStreamed));
  EXPECT_NE(CMS_add1_recipient_cert(message.get(), recipient.Get0(), 0), nullptr);
  return Stream(message, Fuzz::kForeignContent);
}

std::string StreamAuthEnveloped(const Cert& recipient) {
  const CmsPtr message = Own(CMS_AuthEnvelopedData_create(EVP_aes_256_gcm()));
  EXPECT_NE(CMS_add1_recipient_cert(message.get(), recipient.Get0(), 0), nullptr);
  return Stream(message, Fuzz::kForeignContent);
}

std::string StreamEncrypted() {
  constexpr unsigned char kKey[32] = {1, 2, 3};
  const CmsPtr message =
      Own(CMS_EncryptedData_encrypt(nullptr, EVP_aes_256_cbc(), kKey, sizeof kKey, kStreamed));
  return Stream(message, Fuzz::kForeignContent);
}

// Forms and types of messages that this system's protected files never have.
void WorldMaker::WriteForms() const {
  WriteMessage("form-signed", StreamSigned(pki_.integrity, EVP_sha512(), 0));
  WriteMessage("form-signed-sha256", StreamSigned(pki_.integrity, EVP_sha256(), 0));
  WriteMessage("form-signed-curve", StreamSigned(pki_.innerSigning, EVP_sha256(), 0));
  WriteMessage("form-signed-keyid", StreamSigned(pki_.integrity, EVP_sha512(), CMS_USE_KEYID));
  WriteMessage("form-signed-noattributes", StreamSigned(pki_.integrity, EVP_sha512(), CMS_NOATTR));
  WriteMessage("form-enveloped", StreamEnveloped(pki_.room.certificate, EVP_aes_256_cbc()));
  WriteMessage("form-enveloped-aes128", StreamEnveloped(pki_.room.certificate, EVP_aes_128_cbc()));
  WriteMessage("form-enveloped-des3", StreamEnveloped(pki_.room.certificate, EVP_des_ede3_cbc()));
  WriteMessage("form-authenveloped", StreamAuthEnveloped(pki_.room.certificate));
  WriteMessage("form-enveloped-agreement", StreamEnveloped(pki_.issuing.certificate, EVP_aes_256_cbc()));
  WriteMessage("form-encrypted", StreamEncrypted());
}

// Each has one property that the check of signers looks at: a missing or changed attribute, time or
// certificate.
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
  outsider_ = Identity::MakeIssued(EndEntity("integrity"), foreignIssuing, KeyPair::MakeRSA());
  TakeIdentity("root.pem", pki_.root);
  TakeIdentity("intermediate.pem", pki_.intermediate);
  TakeIdentity("issuing.pem", pki_.issuing);
  TakeIdentity("innersigning.pem", pki_.innerSigning);
  TakeIdentity("room.pem", pki_.room);
  TakeIdentity("integrity.pem", pki_.integrity);
  TakeIdentity("outsider.pem", outsider_);
  WriteMessage("wrappedkey", FromBase64(WrappedKey(pki_.innerSigning.certificate)));
  WriteContents();
  WriteEnvelopes();
  WriteForms();
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
