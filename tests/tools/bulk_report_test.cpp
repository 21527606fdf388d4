#include "tools/bulk_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/text.h"

namespace CryptCli {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::internal::CaptureStderr;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStderr;
using ::testing::internal::GetCapturedStdout;

BulkFormat Format(bool json, bool jsonLines) {
  BulkFormat format;
  format.operation = "encrypt";
  format.done = "Encrypted";
  format.json = json;
  format.jsonLines = jsonLines;
  return format;
}

// What one success, one failure and one skipped file give on standard output, with the summary.
std::string Show(const BulkFormat& format) {
  CaptureStdout();
  BulkReport bulk(format);
  Report second = bulk.MakeReport();
  second.Set("file", "b");
  bulk.Fail(second, "b", "no space");
  bulk.Add(1, second, FileEnd::Failed, ExitCode::Failed, 0, /*isNotable=*/false);
  Report first = bulk.MakeReport();
  first.Set("file", "a");
  first.Line("Encrypted a");
  bulk.Add(0, first, FileEnd::Succeeded, ExitCode::Success, 5, /*isNotable=*/false);
  Report third = bulk.MakeReport();
  third.Set("file", "c");
  bulk.Add(2, third, FileEnd::Skipped, ExitCode::Success, 0, /*isNotable=*/false);
  Report all(format.operation, format.json || format.jsonLines);
  bulk.Summarise(all, /*notStarted=*/2, /*ignored=*/1);
  all.Finish(ExitCode::Failed);
  return GetCapturedStdout();
}

TEST(BulkReport, ShowsPeopleFailuresAndSums) {
  CaptureStderr();
  EXPECT_EQ(Show(Format(/*json=*/false, /*jsonLines=*/false)),
            "Encrypted 1 of 5 files, 1 failed, 1 done before, 2 not started, 1 ignored\n");
  EXPECT_EQ(GetCapturedStderr(), "cryptcli: b: no space\ncryptcli: 1 of 5 files failed\n");
}

TEST(BulkReport, ShowsEachFileOnRequest) {
  BulkFormat format = Format(/*json=*/false, /*jsonLines=*/false);
  format.showsAll = true;
  CaptureStderr();
  EXPECT_THAT(Show(format), HasSubstr("Encrypted a\n"));
  GetCapturedStderr();
}

TEST(BulkReport, ShowsANotableFileInAnyCase) {
  CaptureStdout();
  BulkReport bulk(Format(/*json=*/false, /*jsonLines=*/false));
  Report report = bulk.MakeReport();
  report.Line("Decrypted a (origin unknown)");
  bulk.Add(0, report, FileEnd::Succeeded, ExitCode::Success, 0, /*isNotable=*/true);
  EXPECT_EQ(GetCapturedStdout(), "Decrypted a (origin unknown)\n");
}

TEST(BulkReport, WritesOneObjectForEachFileAsItIsDone) {
  const std::string lines = Show(Format(/*json=*/false, /*jsonLines=*/true));
  EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 4);
  EXPECT_LT(lines.find(R"("file":"b")"), lines.find(R"("file":"a")"));
  EXPECT_THAT(lines, HasSubstr(R"("error":"no space")"));
  EXPECT_THAT(lines, HasSubstr(R"({"operation":"encrypt","summary":{"files":5,"succeeded":1,"failed":1,)"
                               R"("skipped":1,"notStarted":2,"ignored":1,"bytes":5,"milliseconds":)"));
  EXPECT_THAT(lines, Not(HasSubstr(R"("files":[)")));
}

TEST(BulkReport, WritesOneObjectWithTheFilesInTheirOrder) {
  const OruGuiBase::KVMap all = TestSupport::Map(Show(Format(/*json=*/true, /*jsonLines=*/false)));
  std::string names;
  for (const OruGuiBase::Val& file : all.Get("files").AsArray()) {
    names += TestSupport::Str(file.AsMap().Get("file").AsString());
  }
  EXPECT_EQ(names, "abc");
  EXPECT_EQ(all.Get("summary").AsMap().Get("files").AsInteger(), 5);
}

TEST(Worse, PrefersAFailedProofToOtherFailures) {
  EXPECT_EQ(Worse(ExitCode::Success, ExitCode::Success), ExitCode::Success);
  EXPECT_EQ(Worse(ExitCode::Success, ExitCode::TryLater), ExitCode::TryLater);
  EXPECT_EQ(Worse(ExitCode::Failed, ExitCode::TryLater), ExitCode::Failed);
  EXPECT_EQ(Worse(ExitCode::Failed, ExitCode::OriginNotProven), ExitCode::OriginNotProven);
  EXPECT_EQ(Worse(ExitCode::OriginNotProven, ExitCode::BadSource), ExitCode::OriginNotProven);
}

TEST(Worse, RanksASignalAboveEverything) {
  const auto signal = static_cast<ExitCode>(128 + 2);
  EXPECT_EQ(Worse(ExitCode::Usage, signal), signal);
  EXPECT_EQ(Worse(signal, ExitCode::OriginNotProven), signal);
}

}  // namespace
}  // namespace CryptCli
