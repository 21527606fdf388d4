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
  Append = 1,  ///< keeps the content of the file and adds at its end
};

/// Base of the streams. After the first failure a stream stays in error and repeats the reason of that
/// failure.
class ORUGUI_EXPORT Stream {
 public:
  Stream() noexcept = default;
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  bool IsError() const noexcept { return error_ != 0; }
  /// Closes the file. False if the stream was in error or this fails; the reason is in the error state.
  bool Close() noexcept;

 protected:
  ~Stream() = default;
  virtual bool CloseFile() noexcept = 0;
  /// Makes the error state the error of this stream.
  void Fail() noexcept;
  /// Makes the error of this stream the error state again. Returns false, so that a failed operation can
  /// return it.
  bool Restate() const noexcept;

 private:
  std::uint32_t error_ = 0;
  AnsiStr errorText_;
};

class WriteStream;

/// Reads a file line by line. A line ends in LF or CR LF, which is not part of it; the last line may have no
/// end.
class ORUGUI_EXPORT ReadStream final : public Stream {
 public:
  ReadStream(const File& file, ReadStreamMode mode) noexcept;
  ReadStream(const ReadStream&) = delete;
  ReadStream& operator=(const ReadStream&) = delete;
  ~ReadStream();
  /// The next line. False at the end of the file and on failure; IsError() shows which. Part of the published
  /// interface; the library itself uses SkipLn and CopyLines, which need no memory for a whole line.
  bool ReadLn(AnsiStr& text) noexcept;
  /// Skips the next line, however long. False as with ReadLn.
  bool SkipLn() noexcept;
  /// Writes the remaining lines to `target`, each ended by LF alone. Memory use does not depend on their
  /// length. False if either stream was in error or fails; IsError() shows which.
  bool CopyLines(WriteStream& target) noexcept;

 private:
  bool CloseFile() noexcept override;
  bool Fill() noexcept;
  /// Consumes the rest of the buffer, which is filled first if it is empty. Empty at the end of the file and
  /// on failure.
  std::string_view TakeChunk() noexcept;

  FileReader reader_;
  char* buffer_ = nullptr;  ///< kStreamBuffer bytes, owned
  std::uint32_t position_ = 0;
  std::uint32_t filled_ = 0;
};

/// Writes to a file through a buffer. The destructor writes what is in the buffer; only Close reports its
/// failure.
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
  /// False on failure. A file of more than 4 GiB less one byte, the longest string, is a failure (EFBIG).
  bool Read(AnsiStr& text) noexcept;

 private:
  bool CloseFile() noexcept override;
  bool ReadKnown(AnsiStr& text) noexcept;
  bool ReadRest(AnsiStr& text) noexcept;

  FileReader reader_;
};

/// Steps through a string line by line. A line ends in LF or CR LF; an empty string has no line.
class ORUGUI_EXPORT LineIterator {
 public:
  explicit LineIterator(const AnsiStr& text) noexcept : text_(text) {}
  /// Steps to the next line, at first to the first one. False after the last.
  bool ToNext() noexcept;
  /// The current line, without its end.
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
