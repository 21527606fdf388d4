// Buffered files: ReadStream and WriteStream copy the audit log's lines, FastReadStream loads a file into a
// string, and LineIterator splits the bodies that the client traces.

#include "foundation/stream.h"

#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "foundation/error_state_saver.h"
#include "foundation/errorstate.h"
#include "foundation/posix_file.h"
#include "foundation/work_buffer.h"

namespace OruGuiBase {

namespace {

constexpr std::uint32_t kMaxText = 0xFFFFFFFFU;

// The streams own their buffer by a plain pointer: WorkBuffer is private, their header is public.
char* NewBuffer() {
  auto* const buffer = static_cast<char*>(AllocParticle(kStreamBuffer));
  if (buffer == nullptr) FailWith(ENOMEM);
  return buffer;
}

void DropBuffer(char*& buffer) {
  FreeWiped(kStreamBuffer, std::exchange(buffer, nullptr));
}

bool WriteChunk(WriteStream& target, std::string_view chunk) {
  return target.Write(chunk.data(), static_cast<std::uint32_t>(chunk.size()));
}

// Writes a chunk without the CR of each CR LF. Precondition: it does not end in CR.
bool WriteWithoutReturns(WriteStream& target, std::string_view chunk) {
  std::size_t found = 0;
  while ((found = chunk.find('\r', found)) != std::string_view::npos) {
    if (chunk[found + 1] != '\n') {
      ++found;
      continue;
    }
    if (!WriteChunk(target, chunk.substr(0, found))) return false;
    chunk.remove_prefix(found + 1);
    found = 0;
  }
  return WriteChunk(target, chunk);
}

// AnsiStr would only trace an append that passes 32 bits, and drop it.
bool AppendChecked(AnsiStr& text, const char* data, std::uint32_t size) {
  if (size > kMaxText - text.GetLength()) return FailWith(EFBIG);
  text.Append(data, size);
  return true;
}

}  // namespace

bool Stream::Close() noexcept {
  if (!CloseFile() && !IsError()) Fail();
  return !IsError() || Restate();
}

// Keeps the first reason: later operations change the error state of the thread.
void Stream::Fail() noexcept {
  error_ = GetLastError() != 0 ? GetLastError() : EIO;
  if (error_ == kTextError) errorText_ = GetErrorMessage(error_, 0, 1);
}

bool Stream::Restate() const noexcept {
  if (error_ == kTextError) {
    SetErrorMessage(errorText_);
  } else {
    SetLastError(error_);
  }
  return false;
}

ReadStream::ReadStream(const File& file, [[maybe_unused]] ReadStreamMode mode) noexcept {
  if (!reader_.Open(file) || (buffer_ = NewBuffer()) == nullptr) Fail();
}

ReadStream::~ReadStream() {
  DropBuffer(buffer_);
}

// A line may begin in one buffer and end in another. Its CR is taken off at the end, since it may be the last
// byte of a buffer.
bool ReadStream::ReadLn(AnsiStr& text) noexcept {
  text.Clear();
  if (IsError()) return Restate();
  bool any = false;
  while (position_ != filled_ || Fill()) {
    any = true;
    const char* const start = buffer_ + position_;
    const auto* const found = static_cast<const char*>(std::memchr(start, '\n', filled_ - position_));
    const auto size = static_cast<std::uint32_t>((found != nullptr ? found : buffer_ + filled_) - start);
    position_ += size + (found != nullptr ? 1 : 0);
    if (!AppendChecked(text, start, size)) {
      Fail();
      break;
    }
    if (found == nullptr) continue;
    if (text.View().ends_with('\r')) text.Trunc(text.GetLength() - 1);
    return true;
  }
  return any && !IsError();
}

bool ReadStream::SkipLn() noexcept {
  if (IsError()) return Restate();
  bool any = false;
  for (std::string_view chunk; !(chunk = TakeChunk()).empty();) {
    any = true;
    const std::size_t found = chunk.find('\n');
    if (found == std::string_view::npos) continue;
    position_ -= static_cast<std::uint32_t>(chunk.size() - found - 1);
    return true;
  }
  return any && !IsError();
}

// Copies whole buffers, not lines, so that a line may be longer than memory. A CR at the end of a buffer is
// held back until the next one shows whether LF follows.
bool ReadStream::CopyLines(WriteStream& target) noexcept {
  if (IsError()) return Restate();
  bool isLineOpen = false;
  bool isReturnHeld = false;
  for (std::string_view chunk; !(chunk = TakeChunk()).empty();) {
    if (isReturnHeld && chunk.front() != '\n' && !target.Write('\r')) return false;
    isLineOpen = !chunk.ends_with('\n');
    isReturnHeld = chunk.ends_with('\r');
    if (isReturnHeld) chunk.remove_suffix(1);
    if (!WriteWithoutReturns(target, chunk)) return false;
  }
  if (IsError() || (isReturnHeld && !target.Write('\r'))) return false;
  // A last line without an end gets one, so that a later append starts on a new line.
  return !isLineOpen || target.Write('\n');
}

std::string_view ReadStream::TakeChunk() noexcept {
  if (position_ == filled_ && !Fill()) return {};
  const std::uint32_t start = std::exchange(position_, filled_);
  return {buffer_ + start, filled_ - start};
}

// False at the end of the file and on failure; IsError() shows which.
bool ReadStream::Fill() noexcept {
  const std::int64_t got = buffer_ != nullptr ? reader_.Read(buffer_, kStreamBuffer) : 0;
  if (got < 0) Fail();
  position_ = 0;
  filled_ = got > 0 ? static_cast<std::uint32_t>(got) : 0;
  return filled_ != 0;
}

bool ReadStream::CloseFile() noexcept {
  DropBuffer(buffer_);
  position_ = filled_ = 0;
  return reader_.Close();
}

WriteStream::WriteStream(const File& file, WriteStreamMode mode) noexcept {
  const bool opened = mode == WriteStreamMode::Append ? writer_.OpenAppend(file) : writer_.Open(file);
  if (!opened || (buffer_ = NewBuffer()) == nullptr) Fail();
}

// Writes the buffer of a stream that was not closed. Preserves the error state: callers report it after
// cleanup.
WriteStream::~WriteStream() {
  const ErrorStateSaver saver;
  CloseFile();
}

bool WriteStream::Write(const AnsiStr& text) noexcept {
  return Write(text.GetText(), text.GetLength());
}

bool WriteStream::Write(char character) noexcept {
  return Write(&character, 1);
}

// What does not fit the buffer at all is written directly, without a copy.
bool WriteStream::Write(const char* data, std::uint32_t size) noexcept {
  if (IsError()) return Restate();
  // A closed stream has no buffer; EBADF is what the system reports for a closed handle.
  if (buffer_ == nullptr) {
    FailWith(EBADF);
    Fail();
    return false;
  }
  if (size > kStreamBuffer - filled_ && !Flush()) return false;
  if (size > kStreamBuffer) {
    if (writer_.Write(data, size)) return true;
    Fail();
    return false;
  }
  std::memcpy(buffer_ + filled_, data, size);
  filled_ += size;
  return true;
}

bool WriteStream::Flush() noexcept {
  const std::uint32_t size = filled_;
  filled_ = 0;
  if (size == 0 || writer_.Write(buffer_, size)) return true;
  Fail();
  return false;
}

bool WriteStream::CloseFile() noexcept {
  if (buffer_ != nullptr && !IsError()) Flush();
  DropBuffer(buffer_);
  return writer_.Close();
}

FastReadStream::FastReadStream(const File& file) noexcept {
  if (!reader_.Open(file)) Fail();
}

FastReadStream::~FastReadStream() = default;

bool FastReadStream::Read(AnsiStr& text) noexcept {
  text.Clear();
  if (IsError()) return Restate();
  if (ReadKnown(text) && ReadRest(text)) return true;
  text.Clear();
  Fail();
  return false;
}

// Reads as many bytes as the file has now, straight into the string.
bool FastReadStream::ReadKnown(AnsiStr& text) noexcept {
  const std::int64_t size = reader_.GetSize();
  // A FIFO or a file of /proc has the size 0; ReadRest reads those.
  if (size <= 0) return size == 0;
  if (size > kMaxText) return FailWith(EFBIG);
  char* const target = text.Alloc(static_cast<std::uint32_t>(size));
  if (target == nullptr) return FailWith(ENOMEM);
  const std::int64_t got = reader_.Read(target, static_cast<std::uint32_t>(size));
  if (got < 0) return false;
  text.Trunc(static_cast<std::uint32_t>(got));
  return true;
}

// Reads what was added to the file since its size was read, or all of a source without a size, such as a
// FIFO.
bool FastReadStream::ReadRest(AnsiStr& text) noexcept {
  char chunk[4096];
  std::int64_t got = 0;
  bool fits = true;
  while (fits && (got = reader_.Read(chunk, sizeof chunk)) > 0) {
    fits = AppendChecked(text, chunk, static_cast<std::uint32_t>(got));
  }
  WipeMemory(chunk, sizeof chunk);
  return fits && got == 0;
}

bool FastReadStream::CloseFile() noexcept {
  return reader_.Close();
}

// Views the string by offsets: a line is copied only when GetLine() asks for it.
bool LineIterator::ToNext() noexcept {
  const std::string_view text = text_.View();
  if (next_ >= text.size()) return false;
  start_ = next_;
  const std::size_t found = text.find('\n', start_);
  const bool ends = found != std::string_view::npos;
  end_ = static_cast<std::uint32_t>(ends ? found : text.size());
  next_ = end_ + (ends ? 1 : 0);
  if (ends && end_ > start_ && text[end_ - 1] == '\r') --end_;
  ++index_;
  return true;
}

AnsiStr LineIterator::GetLine() const noexcept {
  return {text_.GetText() + start_, end_ - start_};
}

}  // namespace OruGuiBase
