// Response bodies that are written to a file.
#include "tests/support/files.h"

#include <sys/stat.h>

#include "tests/transport/transport_fixture.h"

namespace TestSupport {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

unsigned ModeOf(const std::filesystem::path& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status.st_mode & 07777U;
}

class CurlFiles : public ::testing::Test {
 protected:
  Ask ToFile(const std::filesystem::path& path) {
    Ask ask = Post("{}");
    ask.targetFile = path.string();
    return ask;
  }

  Guarded<std::string> body_{std::string("a;b\n")};
  ScratchDirectory scratch_;
  RawServer server_{
      RespondToAll([this](RawConnection& c, const RecordedRequest&) { c.Respond(200, body_.Get()); })};
  OruKalvix::CryptClientCurlOptions options_;
};

TEST_F(CurlFiles, ANewFileIsForItsOwnerAlone) {
  EXPECT_GE(Send(*MakeCurl(), server_.Url("/"), ToFile(scratch_.Path("new"))).result, 0);
  EXPECT_EQ(scratch_.Read("new"), body_.Get());
  EXPECT_EQ(ModeOf(scratch_.Path("new")), 0600U);
}

TEST_F(CurlFiles, TruncatesAnExistingFileAndKeepsItsMode) {
  scratch_.Make("old", "something much longer than the answer");
  std::filesystem::permissions(scratch_.Path("old"), std::filesystem::perms(0640));
  EXPECT_GE(Send(*MakeCurl(), server_.Url("/"), ToFile(scratch_.Path("old"))).result, 0);
  EXPECT_EQ(scratch_.Read("old"), body_.Get());
  EXPECT_EQ(ModeOf(scratch_.Path("old")), 0640U);
}

TEST_F(CurlFiles, ABodyInAFileMayExceedTheMemoryLimit) {
  body_.Set(std::string(std::size_t{5} << 20U, 'x'));
  options_.maxBody = 1000;
  EXPECT_GE(Send(*MakeCurl(options_), server_.Url("/"), ToFile(scratch_.Path("big"))).result, 0);
  EXPECT_EQ(std::filesystem::file_size(scratch_.Path("big")), body_.Get().size());
}

TEST_F(CurlFiles, AnEmptyBodyLeavesAnEmptyFile) {
  body_.Set("");
  EXPECT_GE(Send(*MakeCurl(), server_.Url("/"), ToFile(scratch_.Path("empty"))).result, 0);
  EXPECT_EQ(scratch_.Read("empty"), "");
}

TEST_F(CurlFiles, ReportsTheFileWhenTheDiskIsFull) {
  const Outcome outcome = Send(*MakeCurl(), server_.Url("/"), ToFile("/dev/full"));
  EXPECT_LT(outcome.result, 0);
  EXPECT_EQ(outcome.errorText, "Could not receive the response from " + server_.Authority() +
                                   ": could not write \"/dev/full\": No space left on device");
}

TEST_F(CurlFiles, AFileThatCannotBeMadeCostsNoRequest) {
  const Outcome outcome = Send(*MakeCurl(), server_.Url("/"), ToFile(scratch_.Path("no/such/directory")));
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, HasSubstr("No such file or directory"));
  EXPECT_EQ(server_.GetConnectionCount(), 0U);
}

TEST_F(CurlFiles, ADirectoryIsNoTarget) {
  const Outcome outcome = Send(*MakeCurl(), server_.Url("/"), ToFile(scratch_.Path("")));
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, HasSubstr("Is a directory"));
}

TEST_F(CurlFiles, AFailedExchangeLeavesTheFileEmpty) {
  RawServer broken([](RawConnection& connection) {
    RecordedRequest request;
    connection.ReadRequest(request);
    connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf of it");
    connection.Close();
  });
  EXPECT_LT(Send(*MakeCurl(), broken.Url("/"), ToFile(scratch_.Path("half"))).result, 0);
  EXPECT_THAT(scratch_.Read("half"), IsEmpty());
}

}  // namespace
}  // namespace TestSupport
