// An audit log that this machine cannot take.
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

#include "tests/end_to_end/operations_fixture.h"
#include "tests/foundation/file_size_limit.h"
#include "tests/support/as_nobody.h"

using CryptStand::FaultType;
using CryptStand::kCryptService;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
namespace fs = std::filesystem;

namespace TestSupport {
namespace {

class AuditLogFailures : public AuditLogTest {
 protected:
  // A record has a little less than 80 bytes.
  static constexpr std::uint64_t kRecords = 1000;
  static constexpr std::uint64_t kLogBytes = 100 * kRecords;

  void SetUp() override {
    AuditLogTest::SetUp();
    for (int server = 0; server < 3; ++server) stand.GetSettings().SetGeneratedAudit(server, kRecords);
  }
};

TEST_F(AuditLogFailures, ReportsUnwritableDirectoryBeforeServersAreAsked) {
  const fs::path temporary = scratch.Path("temporary");
  fs::permissions(scratch.Path("."), fs::perms::all);
  fs::permissions(temporary, fs::perms(0555));
  {
    const AsNobody user;
    EXPECT_FALSE(GetLog());
  }
  fs::permissions(temporary, fs::perms(0700));
  EXPECT_THAT(error, StartsWith("Could not create " + temporary.string() + "/Audit Log Demo "));
  EXPECT_THAT(error, EndsWith(": Permission denied"));
  EXPECT_THAT(stand.GetEvents(), IsEmpty());
  ExpectNoLog();
}

TEST_F(AuditLogFailures, ReportsMissingDirectoryBeforeServersAreAsked) {
  scratch.BreakTemporary();
  EXPECT_FALSE(GetLog());
  EXPECT_THAT(error, StartsWith("Could not create "));
  EXPECT_THAT(error, EndsWith(": No such file or directory"));
  EXPECT_THAT(stand.GetEvents(), IsEmpty());
  ExpectNoLog();
}

TEST_F(AuditLogFailures, WithoutKeyServersLeavesNoFile) {
  EXPECT_FALSE(PerformWith("GetAuditLog", Object({{"group", Text(kGroup)}})));
  EXPECT_EQ(error, "Invalid key server URL");
  ExpectNoLog();
}

TEST_F(AuditLogFailures, TokenThatCannotBeFetchedLeavesNoFile) {
  SetFault(kCryptService, {.type = FaultType::Status, .operation = "authztoken", .number = 403});
  EXPECT_FALSE(GetLog());
  EXPECT_EQ(error, "Could not get authorization token: HTTP 403");
  EXPECT_EQ(CountRequests("getAuditLogRequest"), 0U);
  ExpectNoLog();
}

TEST_F(AuditLogFailures, DiskThatFillsUpDuringTheMergeLeavesNoFile) {
  {
    // One log fits, two together do not.
    const OruGuiBase::FileSizeLimit limit(kLogBytes);
    EXPECT_FALSE(GetLog());
  }
  EXPECT_THAT(error, StartsWith("Could not write to " + scratch.Path("temporary/Audit Log Demo ").string()));
  EXPECT_THAT(error, EndsWith(": File too large"));
  EXPECT_EQ(CountRequests("getAuditLogRequest"), 2U) << "the third server is not asked";
  ExpectNoLog();
}

TEST_F(AuditLogFailures, DiskWithoutSpaceLeavesNoFile) {
  {
    const OruGuiBase::FileSizeLimit limit(kLogBytes / 10);
    EXPECT_FALSE(GetLog());
  }
  EXPECT_THAT(error, HasSubstr("File too large"));
  EXPECT_EQ(CountRequests("getAuditLogRequest"), 3U) << "another server's log could be shorter";
  ExpectNoLog();
}

/// A file system of its own for temporary files, as small as a test wants it. Only root may have one, and not
/// everywhere.
class SmallDisk {
 public:
  SmallDisk(const fs::path& path, std::uint64_t size) : path_(path) {
    if (const char* before = std::getenv("TMPDIR")) before_ = before;
    fs::create_directory(path_);
    const std::string options = "size=" + std::to_string(size);
    isThere_ = ::mount("tmpfs", path_.c_str(), "tmpfs", 0, options.c_str()) == 0;
    if (isThere_) ::setenv("TMPDIR", path_.c_str(), 1);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;
  ~SmallDisk() {
    if (!isThere_) return;
    if (before_.has_value()) {
      ::setenv("TMPDIR", before_->c_str(), 1);
    } else {
      ::unsetenv("TMPDIR");
    }
    ::umount(path_.c_str());
  }

  bool IsThere() const { return isThere_; }
  bool IsEmpty() const { return fs::is_empty(path_); }

 private:
  const fs::path path_;
  std::optional<std::string> before_;
  bool isThere_ = false;
};

TEST_F(AuditLogFailures, DiskThatIsReallyFullLeavesNoFile) {
  // Enough space for the logs of two servers, one of them in its temporary file, but not for a third.
  const SmallDisk disk(scratch.Path("disk"), 2 * kLogBytes);
  if (!disk.IsThere()) GTEST_SKIP() << "no file system may be mounted here";
  EXPECT_FALSE(GetLog());
  EXPECT_THAT(error, HasSubstr("No space left on device"));
  EXPECT_TRUE(disk.IsEmpty());
  ExpectNoLog();
}

}  // namespace
}  // namespace TestSupport
