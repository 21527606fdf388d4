// Formats what a command has to say, for a terminal or as JSON. Names, issuers and error messages come from
// files and servers, so both forms are made safe here, once for all commands.
#include "tools/report.h"

#include <cerrno>
#include <cstdio>
#include <poll.h>
#include <string>
#include <string_view>
#include <unistd.h>

#include "foundation/encoding.h"
#include "foundation/errorstate.h"
#include "foundation/json.h"
#include "foundation/text_checks.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace {

KVMap ReadMembers(std::string_view json) {
  KVMap members;
  Val value;
  AnsiStr reason;
  if (!OruGuiBase::JSON2Val(AnsiStr(json), value, reason)) return members;
  for (const auto& [name, member] : value.AsMap()) {
    // The library calls it "message", a report calls it "error".
    if (name != "message") members.Put(name, member);
  }
  return members;
}

// The Unicode controls of the writing direction: with them, a name could show in an order that it does not
// have.
bool IsDirectionControl(std::string_view character) {
  if (character.size() < 3 || character[0] != '\xE2') return false;
  const auto last = static_cast<unsigned char>(character[2]);
  if (character[1] == '\x81') return last >= 0xA6 && last <= 0xA9;  // U+2066 to U+2069
  // U+200E, U+200F and U+202A to U+202E
  return character[1] == '\x80' && (last == 0x8E || last == 0x8F || (last >= 0xAA && last <= 0xAE));
}

// Locked as a whole, so that FinishAtOnce on another thread can see by the lock whether a part may be
// written.
bool Write(std::FILE* stream, std::string_view text) {
  flockfile(stream);
  const bool isWritten =
      std::fwrite(text.data(), 1, text.size(), stream) == text.size() && std::fflush(stream) == 0;
  funlockfile(stream);
  return isWritten;
}

// False if that would block. A pipe that is ready takes PIPE_BUF bytes, more than any last report has.
bool WriteAtOnce(int descriptor, std::string_view text) {
  pollfd ready{descriptor, POLLOUT, 0};
  return poll(&ready, 1, 0) == 1 && (ready.revents & POLLOUT) != 0 &&
         write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

}  // namespace

AnsiStr ToUTF8(const AnsiStr& text) {
  if (OruGuiBase::IsUtf8(text.View())) return text;
  return AnsiStr(OruGuiBase::MakeUtf8(text.View()));
}

AnsiStr ToLine(const AnsiStr& text) {
  AnsiStr line;
  const AnsiStr clean = ToUTF8(text);
  const std::string_view view = clean.View();
  for (std::size_t i = 0; i < view.size(); ++i) {
    if (IsDirectionControl(view.substr(i))) {
      line += "\\u20";
      const auto low = static_cast<unsigned char>((view[i + 1] & 3) << 6 | (view[i + 2] & 0x3F));
      line += OruGuiBase::Binary2B16Str(&low, 1, /*upperCase=*/false);
      i += 2;
      continue;
    }
    const auto byte = static_cast<unsigned char>(view[i]);
    // U+0080 to U+009F, two bytes in UTF-8, are control characters too: terminals act on some of them.
    const bool isHighControl = byte == 0xC2 && static_cast<unsigned char>(view[i + 1]) < 0xA0;
    if (byte >= 0x20 && byte != 0x7F && !isHighControl) {
      line += view[i];
      continue;
    }
    const unsigned char shown = isHighControl ? static_cast<unsigned char>(view[++i]) : byte;
    line += "\\x";
    line += OruGuiBase::Binary2B16Str(&shown, 1, /*upperCase=*/false);
  }
  return line;
}

AnsiStr DescribeSignal(int signal) {
  return AnsiStr("Ended by signal ") + AnsiStr(std::to_string(signal));
}

Report::Report(const char* operation, bool asJSON) : operation_(operation), asJSON_(asJSON) {
  Set("operation", operation);
}

void Report::Set(const char* name, const AnsiStr& text) {
  members_.Set(name, ToUTF8(text));
}
void Report::Set(const char* name, bool value) {
  members_.Set(name, Val(value));
}
void Report::Set(const char* name, std::int64_t value) {
  members_.Set(name, Val(value));
}
void Report::Set(const char* name, const Array<Val>& values) {
  members_.Set(name, Val(values));
}

void Report::Set(const char* name, const KVMap& map) {
  members_.Set(name, Val(map));
}

void Report::SetAll(std::string_view json) {
  for (const auto& [name, member] : ReadMembers(json)) members_.Set(name, member);
}

void Report::SetMissing(std::string_view json) {
  for (const auto& [name, member] : ReadMembers(json)) {
    if (!members_.Contains(name)) members_.Set(name, member);
  }
}

void Report::Line(const AnsiStr& text) {
  if (isQuiet_) return;
  lines_ += ToLine(text);
  lines_ += '\n';
}
void Report::Explain(const AnsiStr& text) {
  explanation_ += ToLine(text);
  explanation_ += '\n';
}
void Report::Bytes(std::string_view bytes) {
  lines_.Append(bytes);
}
void Report::Warn(const AnsiStr& text) {
  warning_ = text;
}
void Report::Warn(const AnsiStr& text, const KVMap& error) {
  Warn(text);
  // The same names as in the error of a failed operation.
  for (const auto& [name, member] : error) members_.Set(name == "message" ? AnsiStr("error") : name, member);
}
void Report::Fail(const AnsiStr& text) {
  error_ = text;
}

void Report::Fail(const cryptcli::Error& error) {
  if (error.report) SetAll(error.report->json);
  SetAll(error.json);
  error_ = AnsiStr(error.message);
}

void Report::FailFile(const AnsiStr& text) {
  const std::uint32_t reason = OruGuiBase::GetLastError();
  // A quota and a size limit count as a full disk, as in the library.
  const bool isFull = reason == ENOSPC || reason == EDQUOT || reason == EFBIG;
  const cryptcli::Status status = isFull ? cryptcli::Status::NoSpace : cryptcli::Status::Io;
  Fail(text, AnsiStr(cryptcli::ToString(status)), /*retryable=*/false);
}

void Report::Fail(const AnsiStr& text, const AnsiStr& code, bool retryable) {
  error_ = text;
  if (code.IsEmpty()) return;
  Set("code", code);
  Set("retryable", retryable);
}

// A failure of the command itself gets the members that a failure of the library has, so that scripts read
// one form.
void Report::CompleteError(ExitCode code) {
  if (error_.IsEmpty()) return;
  cryptcli::Status status = cryptcli::Status::Io;
  if (code == ExitCode::Usage) status = cryptcli::Status::InvalidArgument;
  const bool isInterrupted = code > ExitCode::Interrupted;
  if (isInterrupted) status = cryptcli::Status::Cancelled;
  const std::string json = cryptcli::Failure(status, "").error().json;
  // A signal ends the run whatever failed in it before.
  if (isInterrupted) {
    SetAll(json);
  } else {
    SetMissing(json);
  }
}

// A result that cannot be written was not delivered, so a success becomes a failure.
ExitCode Report::Finish(ExitCode code) {
  // Warnings and errors first, so that they are out even if standard output blocks or fails.
  if (!asJSON_) WriteLines();
  std::FILE* const output = isOutputTaken_ ? stderr : stdout;
  const bool written = asJSON_ ? WriteJSON(code, output) : Write(output, lines_.View());
  if (written) return code;
  const AnsiStr reason = OruGuiBase::GetErrorMessage(static_cast<std::uint32_t>(errno), 0, 1);
  // Whoever repeats what has succeeded finds its target there, or changes a key a second time.
  const bool isSuccess = code == ExitCode::Success;
  Write(stderr, (AnsiStr("cryptcli: Could not write to standard output: ") + reason +
                 (isSuccess ? " (the operation itself succeeded)\n" : "\n"))
                    .View());
  return isSuccess ? ExitCode::NotReported : code;
}

// Writes past stdio: another thread may be blocked inside it.
void Report::FinishAtOnce(int signal) const {
  const AnsiStr message = DescribeSignal(signal);
  AnsiStr text = AnsiStr("cryptcli: ") + message + "\n";
  if (asJSON_) {
    Report last(operation_, /*asJSON=*/true);
    last.Fail(message);
    const auto code = static_cast<ExitCode>(static_cast<int>(ExitCode::Interrupted) + signal);
    AnsiStr reason;
    if (OruGuiBase::Val2JSON(Val(last.ToMap(code)), text, reason, /*pretty=*/false, /*strict=*/true)) {
      text += "\n";
    }
  }
  // After a part of a line no program could read the object.
  const bool isOutputFree = asJSON_ && !isOutputTaken_ && ftrylockfile(stdout) == 0;
  const bool isWritten = isOutputFree && WriteAtOnce(STDOUT_FILENO, text.View());
  if (isOutputFree) funlockfile(stdout);
  if (!isWritten) WriteAtOnce(STDERR_FILENO, text.View());
}

KVMap Report::ToMap(ExitCode code) {
  Set("success", code == ExitCode::Success);
  Set("exitCode", static_cast<std::int64_t>(code));
  CompleteError(code);
  if (!warning_.IsEmpty()) Set("warning", warning_);
  if (!error_.IsEmpty()) Set("error", error_);
  return members_;
}

bool Report::WriteJSON(ExitCode code, std::FILE* output) {
  AnsiStr text;
  AnsiStr reason;
  if (!OruGuiBase::Val2JSON(Val(ToMap(code)), text, reason, /*pretty=*/false, /*strict=*/true)) return false;
  return Write(output, (text + "\n").View());
}

void Report::WriteLines() const {
  const bool hasWarning = !warning_.IsEmpty() && !isQuiet_;
  if (hasWarning) Write(stderr, (AnsiStr("cryptcli: Warning: ") + ToLine(warning_) + "\n").View());
  if (!error_.IsEmpty()) Write(stderr, (AnsiStr("cryptcli: ") + ToLine(error_) + "\n").View());
  if (hasWarning || !error_.IsEmpty()) Write(stderr, explanation_.View());
}

}  // namespace CryptCli
