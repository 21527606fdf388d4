#pragma once

#include <cstdint>

#include "foundation/blob.h"
#include "foundation/file.h"
#include "foundation/filehandle.h"

namespace OruOssSec {

/// Bytes that can be read at any place.
class IByteSource {
 public:
  virtual ~IByteSource() = default;
  virtual std::uint64_t GetSize() const noexcept = 0;
  /// Reads `size` bytes that lie within GetSize(), all of them or it fails with a reason.
  virtual bool ReadAt(std::uint64_t offset, std::uint8_t* buffer, std::uint32_t size) noexcept = 0;
};

/// A file, kept open. It must not change while it is read: that is a failure where it shows.
class FileSource final : public IByteSource {
 public:
  enum class Access {
    Anywhere,  ///< with ReadAt, which takes a regular file
    Onwards,   ///< with ReadNext alone: a pipe will do
  };

  bool Open(const OruGuiBase::File& file, Access access) noexcept;
  /// The size at opening; 0 also for what has none, such as a pipe.
  std::uint64_t GetSize() const noexcept override { return size_; }
  bool ReadAt(std::uint64_t offset, std::uint8_t* buffer, std::uint32_t size) noexcept override;

  /// Reads the next bytes from the beginning on: up to `size`, fewer only at the end of the file.
  bool ReadNext(std::uint8_t* buffer, std::uint32_t size, std::uint32_t& got) noexcept;
  /// Whether ReadNext came to the end.
  bool IsAtEnd() const noexcept { return ended_; }

 private:
  OruGuiBase::FileReader reader_;
  std::uint64_t size_ = 0;
  std::uint64_t taken_ = 0;
  bool ended_ = false;
};

/// Bytes in memory, shared with whoever else holds the blob.
class BlobSource final : public IByteSource {
 public:
  explicit BlobSource(const OruGuiBase::Blob& bytes) noexcept : bytes_(bytes) {}
  std::uint64_t GetSize() const noexcept override { return bytes_.GetSize(); }
  bool ReadAt(std::uint64_t offset, std::uint8_t* buffer, std::uint32_t size) noexcept override;

 private:
  OruGuiBase::Blob bytes_;
};

/// Bytes in memory that somebody else keeps for as long as they are read.
class ViewSource final : public IByteSource {
 public:
  ViewSource(const std::uint8_t* data, std::uint64_t size) noexcept : data_(data), size_(size) {}
  std::uint64_t GetSize() const noexcept override { return size_; }
  bool ReadAt(std::uint64_t offset, std::uint8_t* buffer, std::uint32_t size) noexcept override;

 private:
  const std::uint8_t* data_;
  std::uint64_t size_;
};

}  // namespace OruOssSec
