// Makes the seeds of all targets from the world, in the named directory; called by fuzz/make-seeds.sh. A
// fuzzer starts from them: without a valid message it would never find one by itself.
#include "fuzz/make_seeds.h"

#include <cstdio>
#include <fstream>
#include <utility>
#include <vector>

#include "fuzz/support/require.h"
#include "fuzz/support/world.h"

namespace Fuzz {
namespace {

using CryptStand::ToBase64;

std::string Lines(const std::string& text) {
  constexpr std::size_t kLine = 64;  // as PEM has it (RFC 7468, section 2)
  std::string lines;
  for (std::size_t at = 0; at < text.size(); at += kLine) lines += text.substr(at, kLine) + "\n";
  return lines;
}

std::string CmsPem(const std::string& bytes) {
  return "-----BEGIN CMS-----\n" + Lines(ToBase64(bytes)) + "-----END CMS-----\n";
}

// The same messages for both targets: as bytes in a file, and as the base64 of them.
void MakeMessageSeeds(const std::filesystem::path& root) {
  const SeedFolder files(root, "cms_file");
  const SeedFolder texts(root, "cms_text");
  const World& world = World::Get();
  const auto add = [&](const std::string& name, const std::string& bytes) {
    files.Add(name, bytes);
    texts.Add(name, ToBase64(bytes));
  };
  for (const auto& [type, samples] :
       {std::pair("envelope-", world.envelopes), {"content-", world.contents}, {"form-", world.forms}}) {
    for (const Sample& sample : samples) add(type + sample.name, sample.bytes);
  }
  // Streaming writers cut their content into segments; our own messages are written so, few of the world's
  // are.
  for (const char* name : {"genuine", "two", "digested"}) {
    const std::string& bytes = world.Find(world.contents, name);
    add(std::string("segments-") + name, ToSegments(bytes));
  }
  add("segments-envelope", ToSegments(world.Find(world.envelopes, "genuine")));
  texts.Add("pem", CmsPem(world.Find(world.contents, "genuine")));
  texts.Add("wrapped-key", world.wrappedKey);
}

void MakeCertificateSeeds(const std::filesystem::path& root) {
  const SeedFolder folder(root, "certificates");
  const World& world = World::Get();
  folder.Add("room-pem", world.room.certificate.ToPEM());
  folder.Add("room-base64", world.room.certificate.ToBase64());
  folder.Add("curve-pem", world.issuing.certificate.ToPEM());
  folder.Add("list", world.CertStoreText() + world.TrustStoreText());
  folder.Add("list-base64", Lines(world.root.certificate.ToBase64()) + "\n" +
                                Lines(world.issuing.certificate.ToBase64()) + "\n");
  folder.Add("list-with-text", "Some words.\n" + world.room.certificate.ToPEM() + "\nMore words.\n");
  folder.Add("outsider", world.outsider.certificate.ToPEM());
  folder.Add("empty", "");
}

// Each form in which somebody may have a key, those included that must be refused.
void MakeKeySeeds(const std::filesystem::path& root) {
  const SeedFolder folder(root, "private_key");
  const World& world = World::Get();
  folder.Add("pkcs8", world.room.key.ToPEM());
  folder.Add("pkcs8-base64", world.room.key.ToBase64());
  folder.Add("traditional", world.room.key.ToTraditionalPEM());
  folder.Add("encrypted", world.room.key.ToEncryptedPEM("secret"));
  folder.Add("encrypted-traditional", world.room.key.ToEncryptedTraditionalPEM("secret"));
  folder.Add("curve", world.root.key.ToPEM());
  folder.Add("curve-traditional", world.root.key.ToTraditionalPEM());
  folder.Add("public", world.room.key.ToPublicPEM());
}

}  // namespace

SeedFolder::SeedFolder(const std::filesystem::path& root, std::string_view target) : folder_(root / target) {
  std::filesystem::create_directories(folder_);
}

void SeedFolder::Add(std::string_view name, std::string_view bytes) const {
  std::ofstream out(folder_ / name, std::ios::binary | std::ios::trunc);
  out << bytes;
  Require(out.flush().good(), "a seed can be written");
}

void MakeSecuritySeeds(const std::filesystem::path& root) {
  MakeMessageSeeds(root);
  MakeCertificateSeeds(root);
  MakeKeySeeds(root);
}

}  // namespace Fuzz

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
    return 2;
  }
  Fuzz::MakeTextSeeds(argv[1]);
  Fuzz::MakeSecuritySeeds(argv[1]);
  Fuzz::MakeClientSeeds(argv[1]);
  Fuzz::MakeCSeeds(argv[1]);
  Fuzz::MakeStandSeeds(argv[1]);
  return 0;
}
