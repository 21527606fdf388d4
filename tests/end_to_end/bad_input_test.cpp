#include <filesystem>

#include "tests/end_to_end/end_to_end_fixture.h"
#include "tests/support/as_nobody.h"

using OruGuiBase::File;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

namespace TestSupport {
namespace {

class BadInput : public EndToEndTest {
 protected:
  void SetUp() override {
    EndToEndTest::SetUp();
    Protect("bytes");
  }

  std::string EncryptError(const File& source, const File& target) {
    OruKalvix::CryptClient client(http.get(), Ansi(stand.GetServiceUrl()), "", kRoom);
    EXPECT_FALSE(client.Encrypt(source, target, keyErrorFlag));
    return Str(client.GetErrorMessage());
  }
  std::string DecryptError(const File& source, const File& target) {
    OruKalvix::CryptClient client(http.get(), Ansi(stand.GetServiceUrl()), "", kRoom);
    bool isSigned = false;
    bool isVerified = false;
    EXPECT_FALSE(client.Decrypt(source, target, isSigned, isVerified));
    EXPECT_FALSE(isVerified);
    return Str(client.GetErrorMessage());
  }
  // Makes the folders of the test accessible to everyone, for AsNobody.
  void OpenFolders() {
    for (const fs::path& folder : {scratch.Path("."), fs::path(::getenv("TMPDIR"))}) {
      fs::permissions(folder, fs::perms::all);
    }
  }
};

TEST_F(BadInput, MissingSourceIsReported) {
  EXPECT_EQ(EncryptError(scratch.File("none"), scratch.File("out")),
            "Could not sign file: No such file or directory");
  EXPECT_EQ(DecryptError(scratch.File("none"), scratch.File("out")),
            "Could not parse encrypted file: No such file or directory");
  EXPECT_FALSE(scratch.Exists("out"));
}

TEST_F(BadInput, DirectoryAsSourceIsReported) {
  fs::create_directory(scratch.Path("folder"));
  EXPECT_EQ(EncryptError(scratch.File("folder"), scratch.File("out")), "Could not sign file: Is a directory");
  EXPECT_EQ(DecryptError(scratch.File("folder"), scratch.File("out")),
            "Could not parse encrypted file: Is a directory");
}

TEST_F(BadInput, EmptyNameIsReported) {
  EXPECT_THAT(EncryptError(File(), scratch.File("out")), HasSubstr("Could not sign file: "));
  EXPECT_THAT(DecryptError(File(), scratch.File("out")), HasSubstr("Could not parse encrypted file: "));
  EXPECT_THAT(EncryptError(scratch.File("plain"), File()), HasSubstr("Could not encrypt file: "));
}

TEST_F(BadInput, UnreadableSourceIsReported) {
  OpenFolders();
  fs::permissions(scratch.Path("plain"), fs::perms::none);
  fs::permissions(scratch.Path("secret"), fs::perms::none);
  const AsNobody user;
  EXPECT_EQ(EncryptError(scratch.File("plain"), scratch.File("out")),
            "Could not sign file: Permission denied");
  EXPECT_EQ(DecryptError(scratch.File("secret"), scratch.File("out")),
            "Could not parse encrypted file: Permission denied");
}

TEST_F(BadInput, SourceThatFailsWhileItIsReadIsReported) {
  // The first page of a process is not mapped, so reading its memory from the start fails.
  EXPECT_EQ(EncryptError(File("/proc/self/mem"), scratch.File("out")),
            "Could not sign file: Input/output error");
  EXPECT_FALSE(scratch.Exists("out"));
}

TEST_F(BadInput, TargetInMissingFolderIsReported) {
  EXPECT_EQ(EncryptError(scratch.File("plain"), scratch.File("none/out")),
            "Could not encrypt file: No such file or directory");
  EXPECT_EQ(DecryptError(scratch.File("secret"), scratch.File("none/out")),
            "Could not read signed content: No such file or directory");
}

TEST_F(BadInput, DirectoryAsTargetIsReported) {
  fs::create_directory(scratch.Path("folder"));
  EXPECT_EQ(EncryptError(scratch.File("plain"), scratch.File("folder")),
            "Could not encrypt file: Is a directory");
  EXPECT_EQ(DecryptError(scratch.File("secret"), scratch.File("folder")),
            "Could not read signed content: Is a directory");
}

TEST_F(BadInput, UnwritableTargetIsReported) {
  OpenFolders();
  scratch.Make("locked", "old");
  fs::permissions(scratch.Path("locked"), fs::perms::owner_read | fs::perms::others_read);
  fs::permissions(scratch.Path("secret"), fs::perms::all);
  {
    const AsNobody user;
    EXPECT_EQ(EncryptError(scratch.File("plain"), scratch.File("locked")),
              "Could not encrypt file: Permission denied");
    EXPECT_EQ(DecryptError(scratch.File("secret"), scratch.File("locked")),
              "Could not read signed content: Permission denied");
  }
  EXPECT_EQ(scratch.Read("locked"), "old");
}

TEST_F(BadInput, FullDiskIsReported) {
  EXPECT_EQ(EncryptError(scratch.File("plain"), File("/dev/full")),
            "Could not encrypt file: No space left on device");
  EXPECT_EQ(DecryptError(scratch.File("secret"), File("/dev/full")),
            "Could not read signed content: No space left on device");
  EXPECT_EQ(scratch.Read("plain"), "bytes");
}

TEST_F(BadInput, MissingTemporaryDirectoryIsReported) {
  scratch.BreakTemporary();
  EXPECT_EQ(EncryptError(scratch.File("plain"), scratch.File("out")),
            "Could not create temporary file: No such file or directory");
  EXPECT_EQ(DecryptError(scratch.File("secret"), scratch.File("out")),
            "Could not create temporary file: No such file or directory");
}

TEST_F(BadInput, FailureBeforeTheTargetIsTouchedLeavesTheOldOne) {
  scratch.Make("out", "old");
  for (int server = 0; server < 3; ++server)
    ASSERT_TRUE(stand.SetFault(server, {.type = CryptStand::FaultType::Down}));
  EncryptError(scratch.File("plain"), scratch.File("out"));
  DecryptError(scratch.File("secret"), scratch.File("out"));
  EXPECT_EQ(scratch.Read("out"), "old");
}

TEST_F(BadInput, NullTransportIsReported) {
  OruKalvix::CryptClient client(nullptr, Ansi(stand.GetServiceUrl()), "", kRoom);
  EXPECT_FALSE(client.Encrypt(scratch.File("plain"), scratch.File("out"), keyErrorFlag));
  EXPECT_EQ(client.GetErrorMessage(), "Could not get room key: No HTTP service");
}

TEST_F(BadInput, EmptyServiceUrlIsReported) {
  OruKalvix::CryptClient client(http.get(), "", "", kRoom);
  EXPECT_FALSE(client.Encrypt(scratch.File("plain"), scratch.File("out"), keyErrorFlag));
  EXPECT_EQ(client.GetErrorMessage(), "Invalid URL");
}

}  // namespace
}  // namespace TestSupport
