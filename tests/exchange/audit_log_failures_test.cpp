#include <cstdlib>
#include <filesystem>

#include "tests/exchange/audit_log_fixture.h"
#include "tests/foundation/file_size_limit.h"

namespace OruKalvix {
namespace {

using OruGuiBase::AnsiStr;
using ::testing::MatchesRegex;
using TestSupport::Alive;
using TestSupport::ErrorCode;
using TestSupport::RecordedRequest;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::Strings;
using TestSupport::Token;

TEST_F(AuditLog, NeedsAKeyServer) {
  client.SetKeyServer({});
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "Invalid key server URL");
  ExpectNothingGot();
}

TEST_F(AuditLog, IsRemovedWhenTokenFails) {
  Attempt(Csv("h\na\n"));
  Attempt(Csv("h\nb\n"));
  http.Then(Alive()).Then(Status(403));
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "Could not get authorization token: HTTP 403");
  ExpectNothingGot();
}

TEST_F(AuditLog, StopsWhenTokenIsEmpty) {
  http.Then(Alive()).Then(Token(""));
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "Invalid authorization token");
  EXPECT_EQ(http.GetRequestCount(), 2U);
  ExpectNothingGot();
}

TEST_F(AuditLog, SendsNothingWhenFileCannotBeCreated) {
  scratch.BreakTemporary();
  EXPECT_FALSE(Get());
  EXPECT_THAT(Error(),
              MatchesRegex("Could not create .*/Audit Log its name 20.*\\.csv: No such file or directory"));
  EXPECT_EQ(http.GetRequestCount(), 0U);
  EXPECT_EQ(Str(fileName), "untouched");
}

TEST_F(AuditLog, IsRemovedWhenATemporaryFileCannotBeMade) {
  http.Then(Alive()).Then(Token("t")).Then([this](const RecordedRequest&) {
    setenv("TMPDIR", scratch.Path("missing").c_str(), 1);
    return Csv("h\na\n");
  });
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "Could not create temporary file: No such file or directory");
  EXPECT_EQ(http.GetRequestCount(), 3U);
  ExpectNothingGot();
}

TEST_F(AuditLog, IsRemovedWhenItCannotBeWritten) {
  const std::string half(600, 'x');
  Attempt(Csv("h\n" + half + "\n"));
  Attempt(Csv("h\n" + half + "\n"));
  const OruGuiBase::FileSizeLimit limit(1000);
  EXPECT_FALSE(Get());
  EXPECT_THAT(Error(), MatchesRegex("Could not write to .*/Audit Log its name 20.*\\.csv: File too large"));
  EXPECT_EQ(http.GetRequestCount(), 6U);
  ExpectNothingGot();
}

// A target that cannot be opened again ends the audit log. A link in its place is not followed.
TEST_F(AuditLog, IsRemovedWhenItCannotBeOpenedAgain) {
  http.Then(Alive()).Then(Token("t")).Then([this](const RecordedRequest&) {
    for (const std::string& name : scratch.GetTemporaryNames()) {
      if (!name.starts_with("Audit Log")) continue;
      std::filesystem::remove(scratch.Path("temporary") / name);
      std::filesystem::create_symlink("missing/target", scratch.Path("temporary") / name);
    }
    return Csv("h\na\n");
  });
  EXPECT_FALSE(Get());
  EXPECT_THAT(Error(), MatchesRegex("Could not write to .*: Too many levels of symbolic links"));
  ExpectNothingGot();
}

/// A transport whose responses vanish from the disk before they are read.
class LosingHttp final : public ICryptClientHttp {
 public:
  explicit LosingHttp(TestSupport::ScriptedHttp& inner) : inner_(inner) {}
  ~LosingHttp() = default;

  void* QueryInterface(const char* name) override { return inner_.QueryInterface(name); }
  std::uint32_t AddRef() override { return inner_.AddRef(); }
  std::uint32_t Release() override { return inner_.Release(); }
  std::int32_t SendRequest(const AnsiStr& method, const AnsiStr& url, const OruGuiBase::KVMap& headers,
                           const AnsiStr& body, const HttpOptions& options, HttpResponse& response) override {
    const std::int32_t sent = inner_.SendRequest(method, url, headers, body, options, response);
    if (!response.targetFile.IsEmpty()) std::filesystem::remove(Str(response.targetFile));
    return sent;
  }

 private:
  TestSupport::ScriptedHttp& inner_;
};

class LostAuditLog : public AuditLog {
 protected:
  LostAuditLog() { losing.SetKeyServer(Strings({kOne, "https://two.example"})); }

  LosingHttp lossy{http};
  CryptClient losing{&lossy, kService, "", kRoom};
};

TEST_F(LostAuditLog, IsRemovedWhenAResponseCannotBeRead) {
  Attempt(Csv("h\na\n"));
  EXPECT_FALSE(losing.GetAuditLog("group 1", "its name", fileName));
  EXPECT_THAT(Str(losing.GetErrorMessage()),
              MatchesRegex("Could not read from .*/auditlog-group 1\\.tmp: No such file or directory"));
  EXPECT_EQ(http.GetRequestCount(), 3U);
  ExpectNothingGot();
}

TEST_F(LostAuditLog, ReportsContentTypeWhenResponseCannotBeRead) {
  Attempt(Typed(ErrorCode(612), "application/json"));
  Attempt(Typed(ErrorCode(612), "application/json"));
  EXPECT_FALSE(losing.GetAuditLog("group 1", "its name", fileName));
  EXPECT_EQ(Str(losing.GetErrorMessage()), "Unexpected content type application/json");
  ExpectNothingGot();
}

}  // namespace
}  // namespace OruKalvix
