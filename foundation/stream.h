#pragma once

#include <cstdint>
#include <string_view>

#include "foundation/ansistr.h"
#include "foundation/export.h"
#include "foundation/file.h"
#include "foundation/filehandle.h"

namespace OruGuiBase {

enum class ReadStreamMode : std::uint32_t { Text = 0 };
enum class WriteStreamMode : std::uint32_t {
  Truncate = 0,
  Append = 1,  ///< keeps what the file holds and adds at its end
};

/// A stream with a state: once in error it stays so, with the reason in the error state at the time.
class ORUGUI_EXPORT Stream {
 public:
  Stream() noexcept = default;
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  bool IsError() const noexcept { return error_ != 0; }
  /// Ends the stream; false when it is or comes into error. The reason is again in the error state.
  bool Close() noexcept;

 protected:
  ~Stream() = default;
  virtual bool CloseFile() noexcept = 0;
  /// Takes the error state over as the error of this stream.
  void Fail() noexcept;
  /// Makes the error of this stream the error state again; false, to end an operation with.
  bool Restate() const noexcept;

 private:
  std::uint32_t error_ = 0;
  AnsiStr errorText_;
};

class WriteStream;

/// Reads a file line by line. A line ends in LF or CR LF, which are not part of it; the last may lack its
/// end.
class ORUGUI_EXPORT ReadStream final : public Stream {
 public:
  ReadStream(const File& file, ReadStreamMode mode) noexcept;
  ReadStream(const ReadStream&) = delete;
  ReadStream& operator=(const ReadStream&) = delete;
  ~ReadStream();
  /// The next line; false at the end of the file and on failure, which IsError() tells apart.
  bool ReadLn(AnsiStr& text) noexcept;
  /// Passes over the next line, however long; false as ReadLn.
  bool SkipLn() noexcept;
  /// Writes the lines that are left to `target`, each ended by LF alone. Memory does not depend on their
  /// length. False when either stream is or comes into error; IsError() tells which.
  bool CopyLines(WriteStream& target) noexcept;

 private:
  bool CloseFile() noexcept override;
  bool Fill() noexcept;
  /// What the buffer still holds of the file, taken out of it; empty at the end of the file and on failure.
  std::string_view TakeChunk() noexcept;

  FileReader reader_;
  char* buffer_ = nullptr;
  std::uint32_t position_ = 0;
  std::uint32_t filled_ = 0;
};

/// Writes text to a file through a buffer.
class ORUGUI_EXPORT WriteStream final : public Stream {
 public:
  WriteStream(const File& file, WriteStreamMode mode) noexcept;
  WriteStream(const WriteStream&) = delete;
  WriteStream& operator=(const WriteStream&) = delete;
  ~WriteStream();
  bool Write(const AnsiStr& text) noexcept;
  bool Write(char character) noexcept;
  bool Write(const char* data, std::uint32_t size) noexcept;

 private:
  bool CloseFile() noexcept override;
  bool Flush() noexcept;

  FileWriter writer_;
  char* buffer_ = nullptr;
  std::uint32_t filled_ = 0;
};

/// Reads a whole file into a string.
class ORUGUI_EXPORT FastReadStream final : public Stream {
 public:
  explicit FastReadStream(const File& file) noexcept;
  FastReadStream(const FastReadStream&) = delete;
  FastReadStream& operator=(const FastReadStream&) = delete;
  ~FastReadStream();
  /// False on failure, or when the file is larger than a string may be.
  bool Read(AnsiStr& text) noexcept;

 private:
  bool CloseFile() noexcept override;
  bool ReadKnown(AnsiStr& text) noexcept;
  bool ReadRest(AnsiStr& text) noexcept;

  FileReader reader_;
};

/// Steps through a text line by line: line ends are LF or CR LF, and an empty text has no line.
class ORUGUI_EXPORT LineIterator {
 public:
  explicit LineIterator(const AnsiStr& text) noexcept : text_(text) {}
  /// Steps to the next line, from before the first; false behind the last.
  bool ToNext() noexcept;
  /// The line stepped to last.
  AnsiStr GetLine() const noexcept;
  /// Its number, from 0.
  std::uint32_t GetIndex() const noexcept { return index_; }

 private:
  AnsiStr text_;
  std::uint32_t start_ = 0;
  std::uint32_t end_ = 0;
  std::uint32_t next_ = 0;
  std::uint32_t index_ = 0xFFFFFFFFU;
};

}  // namespace OruGuiBase
