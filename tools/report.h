#pragma once

#include <cryptcli/cryptcli.hpp>
#include <cstdio>
#include <string_view>

#include "foundation/ansistr.h"
#include "foundation/array.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"
#include "tools/exit_code.h"

namespace CryptCli {

/// The string with each byte that is not UTF-8 replaced by U+FFFD, as JSON needs it.
OruGuiBase::AnsiStr ToUTF8(const OruGuiBase::AnsiStr& text);
/// The same with control characters shown as "\xNN", so that no file or server can control a terminal.
OruGuiBase::AnsiStr ToLine(const OruGuiBase::AnsiStr& text);

/// "Ended by signal NUMBER".
OruGuiBase::AnsiStr DescribeSignal(int signal);

/// Collects the results of one run of the command and prints them once, at its end: as lines for a person,
/// or as one JSON object. In the first form errors and warnings go to standard error.
class Report {
 public:
  Report(const char* operation, bool asJSON);

  /// Sets a member of the JSON object. Strings need not be UTF-8.
  void Set(const char* name, const OruGuiBase::AnsiStr& text);
  void Set(const char* name, const char* text) { Set(name, OruGuiBase::AnsiStr(text)); }
  void Set(const char* name, bool value);
  void Set(const char* name, std::int64_t value);
  void Set(const char* name, const OruGuiBase::Array<OruGuiBase::Val>& values);
  void Set(const char* name, const OruGuiBase::KVMap& map);
  /// Sets each member of a JSON object, as the library's reports and errors have it. Anything else is
  /// ignored.
  void SetAll(std::string_view json);
  /// The same for members that are not there yet.
  void SetMissing(std::string_view json);
  std::string_view GetOperation() const { return operation_; }
  /// Adds a line for a person. Not in JSON.
  void Line(const OruGuiBase::AnsiStr& text);
  /// Adds a line that goes with the error or warning, to standard error. Not in JSON.
  void Explain(const OruGuiBase::AnsiStr& text);
  /// Adds bytes for a program, unchanged. Not in JSON.
  void Bytes(std::string_view bytes);
  /// Something that the user must know although the operation succeeded: "warning" in JSON.
  void Warn(const OruGuiBase::AnsiStr& text);
  /// The same for what makes a result incomplete, with the members of an error that says why. In JSON it is
  /// the "error" as well.
  void Warn(const OruGuiBase::AnsiStr& text, const OruGuiBase::KVMap& error);
  /// Why the operation failed: "error" in JSON.
  void Fail(const OruGuiBase::AnsiStr& text);
  /// The same for a failure of the library, with all that it knows about it.
  void Fail(const cryptcli::Error& error);
  /// The same for a file that this program itself cannot read or write, with the code that the last error of
  /// this thread stands for. Right after the failure.
  void FailFile(const OruGuiBase::AnsiStr& text);
  /// The same for a run of several parts, with the code of the worst of them. "code" may be empty.
  void Fail(const OruGuiBase::AnsiStr& text, const OruGuiBase::AnsiStr& code, bool retryable);
  /// Shows errors alone: no warnings and no lines. What Bytes() added is shown, since it is the result. No
  /// effect on JSON.
  void BeQuiet() { isQuiet_ = true; }

  /// Sends everything to standard error: standard output is for the content itself.
  void LeaveStandardOutput() { isOutputTaken_ = true; }

  /// All members, with those about success and failure: what Finish() prints as JSON.
  OruGuiBase::KVMap ToMap(ExitCode code);
  /// Prints everything and returns the code, or NotReported instead of Success when standard output cannot be
  /// written.
  ExitCode Finish(ExitCode code);
  /// Prints that a signal has ended the run, and nothing else, without waiting for whoever reads it. For
  /// another thread, while the operation may still add to this report; LeaveStandardOutput() must not run
  /// meanwhile.
  void FinishAtOnce(int signal) const;

 private:
  void CompleteError(ExitCode code);
  bool WriteJSON(ExitCode code, std::FILE* output);
  void WriteLines() const;

  const char* operation_;  // a literal
  bool asJSON_;
  bool isQuiet_ = false;
  bool isOutputTaken_ = false;
  OruGuiBase::KVMap members_;
  OruGuiBase::AnsiStr lines_;
  OruGuiBase::AnsiStr explanation_;
  OruGuiBase::AnsiStr warning_;
  OruGuiBase::AnsiStr error_;
};

}  // namespace CryptCli
