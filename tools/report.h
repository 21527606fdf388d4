#pragma once

#include <cstdio>
#include <string_view>

#include "foundation/ansistr.h"
#include "foundation/array.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"
#include "tools/exit_code.h"

namespace CryptCli {

/// A text that a terminal and a JSON text can take: bytes that are not UTF-8 become U+FFFD.
OruGuiBase::AnsiStr ToUTF8(const OruGuiBase::AnsiStr& text);
/// The same with control characters shown as "\xNN", so that no file or server can steer a terminal.
OruGuiBase::AnsiStr ToLine(const OruGuiBase::AnsiStr& text);

/// What one run of the command found out, handed out once at its end: as lines for a reader, or as one JSON
/// object. Errors and warnings of the first form go to standard error.
class Report {
 public:
  Report(const char* operation, bool asJSON);

  /// A member of the JSON object. Texts need not be UTF-8.
  void Set(const char* name, const OruGuiBase::AnsiStr& text);
  void Set(const char* name, const char* text) { Set(name, OruGuiBase::AnsiStr(text)); }
  void Set(const char* name, bool value);
  void Set(const char* name, std::int64_t value);
  void Set(const char* name, const OruGuiBase::Array<OruGuiBase::Val>& values);
  void Set(const char* name, const OruGuiBase::KVMap& map);
  /// A line for a reader.
  void Line(const OruGuiBase::AnsiStr& text);
  /// Bytes for a program in the place of a reader: as they are.
  void Bytes(std::string_view bytes);
  /// Something that the reader has to know although the operation succeeded: "warning" in JSON.
  void Warn(const OruGuiBase::AnsiStr& text);
  /// Why the operation failed: "error" in JSON.
  void Fail(const OruGuiBase::AnsiStr& text);

  /// Has everything go to standard error: standard output takes the content itself.
  void LeaveStandardOutput() { isOutputTaken_ = true; }

  /// Writes everything and gives the code back, or Failed when standard output cannot be written.
  ExitCode Finish(ExitCode code);

 private:
  bool WriteJSON(ExitCode code, std::FILE* output);
  void WriteLines() const;

  bool asJSON_;
  bool isOutputTaken_ = false;
  OruGuiBase::KVMap members_;
  OruGuiBase::AnsiStr lines_;
  OruGuiBase::AnsiStr warning_;
  OruGuiBase::AnsiStr error_;
};

}  // namespace CryptCli
