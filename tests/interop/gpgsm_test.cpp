#include <filesystem>

#include "tests/interop/command.h"

namespace TestSupport {
namespace {

// A key ring of its own with the room's key, which trusts the root of the test service.
class Gpgsm : public InteropTest {
 protected:
  static constexpr const char* kGpgsm =
      "GNUPGHOME=$PWD/ring gpgsm --batch --quiet --disable-crl-checks --disable-policy-checks "
      "--disable-dirmngr "
      "--pinentry-mode loopback --passphrase-fd 3 3<empty ";

  void SetUp() override {
    InteropTest::SetUp();
    std::filesystem::create_directory(scratch.Path("ring"));
    std::filesystem::permissions(scratch.Path("ring"), std::filesystem::perms::owner_all);
    scratch.Make("empty", "\n");
    Run("openssl pkcs12 -export -inkey room.key -in room.crt -passout pass: -keypbe PBE-SHA1-3DES "
        "-certpbe PBE-SHA1-3DES -macalg sha1 -out room.p12");
    Run(std::string(kGpgsm) + "--import lists.pem");
    Run(std::string(kGpgsm) + "--import room.p12");
    // Whom to trust, by the fingerprints of all certificates that sign themselves.
    Run(std::string(kGpgsm) +
        "--with-colons --list-keys | awk -F: '$1==\"fpr\"{print $10\" S relax\"}' >ring/trustlist.txt");
    Run("GNUPGHOME=$PWD/ring gpgconf --reload gpg-agent");
  }

  void TearDown() override { RunCommand(scratch.Path("."), "GNUPGHOME=$PWD/ring gpgconf --kill all"); }
};

TEST_F(Gpgsm, OpensAndVerifiesOurFile) {
  const std::string bytes(300000, 'g');
  Protect(bytes);
  Run(std::string(kGpgsm) + "--output inner --decrypt secret");
  Run(std::string(kGpgsm) + "--output content --verify inner");
  EXPECT_EQ(scratch.Read("content"), bytes);
}

}  // namespace
}  // namespace TestSupport
