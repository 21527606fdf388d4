// The results of many files: a line or a JSON object for each as soon as it is done, and the sums at the end.
// Used by bulk.cpp.
#include "tools/bulk_report.h"

#include <algorithm>
#include <iterator>

#include "foundation/array.h"
#include "foundation/kvmap.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace {

// A proof that failed ranks above a failure of the system: it may be an attack, and must not be hidden by a
// full disk. Codes that a later attempt may make good rank lowest.
constexpr ExitCode kFromTheWorst[] = {
    ExitCode::Interrupted, ExitCode::Usage,       ExitCode::OriginNotProven, ExitCode::BadSource,
    ExitCode::Failed,      ExitCode::KeyRefused,  ExitCode::Unauthorised,    ExitCode::Partial,
    ExitCode::TryLater,    ExitCode::NotReported, ExitCode::Success,
};

int Rank(ExitCode code) {
  const auto* const found = std::find(std::begin(kFromTheWorst), std::end(kFromTheWorst), code);
  // 128 plus a signal's number has no row of its own: interrupted.
  return found == std::end(kFromTheWorst) ? 0 : static_cast<int>(found - std::begin(kFromTheWorst));
}

void SetNumber(KVMap& map, const char* name, std::uint64_t value) {
  map.Set(name, Val(static_cast<std::int64_t>(value)));
}

std::string DescribeMore(std::uint64_t count, const char* what) {
  return count == 0 ? std::string() : ", " + std::to_string(count) + " " + what;
}

}  // namespace

Report BulkReport::MakeReport() const {
  Report report(format_.operation, format_.json || format_.jsonLines);
  if (format_.quiet) report.BeQuiet();
  return report;
}

void BulkReport::Fail(Report& report, const std::string& file, const std::string& reason) const {
  const bool isForPeople = !format_.json && !format_.jsonLines;
  report.Fail(AnsiStr(isForPeople ? file + ": " + reason : reason));
}

void BulkReport::Add(std::size_t position, Report& report, FileEnd end, ExitCode code, std::uint64_t bytes,
                     bool isNotable) {
  bytes_ += bytes;
  ++(end == FileEnd::Failed ? failed_ : end == FileEnd::Skipped ? skipped_ : succeeded_);
  if (code != ExitCode::Success && (worst_ == ExitCode::Success || Worse(worst_, code) != worst_)) {
    const KVMap members = report.ToMap(code);
    worst_ = code;
    worstCode_ = members.Get("code").AsString();
    isWorstRetryable_ = members.Get("retryable").AsBool();
  }
  if (format_.json && !format_.jsonLines) {
    entries_.emplace(position, Val(report.ToMap(code)));
    return;
  }
  if (!format_.jsonLines) {
    if (code == ExitCode::Success && !format_.showsAll && !isNotable) return;
    if (format_.clearProgress) format_.clearProgress();
  }
  isWritten_ = report.Finish(code) == code && isWritten_;
}

std::string BulkReport::DescribeSums(std::size_t notStarted, std::uint64_t ignored) const {
  const std::uint64_t files = succeeded_ + failed_ + skipped_ + notStarted;
  return std::string(format_.done) + " " + std::to_string(succeeded_) + " of " + std::to_string(files) +
         (files == 1 ? " file" : " files") + DescribeMore(failed_, "failed") +
         DescribeMore(skipped_, "done before") + DescribeMore(notStarted, "not started") +
         DescribeMore(ignored, "ignored");
}

void BulkReport::Summarise(Report& report, std::size_t notStarted, std::uint64_t ignored) const {
  const auto elapsed = std::chrono::steady_clock::now() - begin_;
  const std::uint64_t count = succeeded_ + failed_ + skipped_ + notStarted;
  KVMap summary;
  SetNumber(summary, "files", count);
  SetNumber(summary, "succeeded", succeeded_);
  SetNumber(summary, "failed", failed_);
  SetNumber(summary, "skipped", skipped_);
  SetNumber(summary, "notStarted", notStarted);
  SetNumber(summary, "ignored", ignored);
  SetNumber(summary, "bytes", bytes_);
  summary.Set("milliseconds",
              Val(std::int64_t{std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count()}));
  report.Set("summary", summary);
  if (format_.json && !format_.jsonLines) {
    Array<Val> files;
    for (const auto& [position, entry] : entries_) files.Append(entry);
    report.Set("files", files);
  }
  report.Line(AnsiStr(DescribeSums(notStarted, ignored)));
  if (failed_ == 0) return;
  report.Fail(AnsiStr(std::to_string(failed_) + " of " + std::to_string(count) + " files failed"), worstCode_,
              isWorstRetryable_);
}

ExitCode Worse(ExitCode a, ExitCode b) {
  return Rank(a) <= Rank(b) ? a : b;
}

}  // namespace CryptCli
