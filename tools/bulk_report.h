#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "foundation/ansistr.h"
#include "foundation/val.h"
#include "tools/exit_code.h"
#include "tools/report.h"

namespace CryptCli {

/// How one of many files ended.
enum class FileEnd { Succeeded, Failed, Skipped };

/// How the results of many files are shown.
struct BulkFormat {
  const char* operation = "";  ///< "encrypt"
  const char* done = "";       ///< "Encrypted"
  bool json = false;           ///< one object at the end
  bool jsonLines = false;      ///< one object for each file, and one at the end
  bool quiet = false;
  bool showsAll = false;  ///< for people: also files of which there is nothing to say but success
  std::function<void()> clearProgress;  ///< called before the lines of a file; may be empty
};

/// Shows the results of many files as they come, and sums them up. For one thread at a time.
class BulkReport {
 public:
  explicit BulkReport(const BulkFormat& format) : format_(format) {}

  /// A report for one file, to be filled in and given to Add.
  Report MakeReport() const;
  /// Why a file failed, in its report; for people with its name before it.
  void Fail(Report& report, const std::string& file, const std::string& reason) const;
  /// Shows what became of one file, or keeps it for the one object: there the files are ordered by their
  /// `position`. `isNotable` shows a success in any case.
  void Add(std::size_t position, Report& report, FileEnd end, ExitCode code, std::uint64_t bytes,
           bool isNotable);
  /// Adds the sums to the report of the whole run. `notStarted` files were never tried, `ignored` entries of
  /// folders never meant.
  void Summarise(Report& report, std::size_t notStarted, std::uint64_t ignored) const;
  /// False once a result could not be written to standard output.
  bool IsWritten() const { return isWritten_; }

 private:
  std::string DescribeSums(std::size_t notStarted, std::uint64_t ignored) const;

  BulkFormat format_;
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  std::uint64_t succeeded_ = 0;
  std::uint64_t failed_ = 0;
  std::uint64_t skipped_ = 0;
  std::uint64_t bytes_ = 0;
  // What the worst failure so far gives to the report of the whole run.
  ExitCode worst_ = ExitCode::Success;
  OruGuiBase::AnsiStr worstCode_;
  bool isWorstRetryable_ = false;
  std::map<std::size_t, OruGuiBase::Val> entries_;
  bool isWritten_ = true;
};

/// The one of two codes that a script has to know about. From the worst: interrupted, usage, origin not
/// proven, bad source, failed, key refused, unauthorised, partial, try later, success.
ExitCode Worse(ExitCode a, ExitCode b);

}  // namespace CryptCli
