#pragma once

#include <cstdint>

#include "foundation/blob.h"
#include "foundation/file.h"
#include "foundation/filehandle.h"

namespace OruOssSec {

/// Bytes that can be read at any place. A reader refers to its source, which has to outlive it.
class IByteSource {
 public:
  virtual ~IByteSource() = default;
  virtual std::uint64_t GetSize() const noexcept = 0;
  /// Reads `size` bytes that lie within GetSize(), all of them or it fails with a reason.
  virtual bool ReadAt(std::uint64_t offset, std::uint8_t* buffer, std::uint32_t size) noexcept = 0;
};

/// A file, kept open until destruction. It must not change while it is read: a change that shows is a
/// failure.
class FileSource final : public IByteSource {
 public:
  /// How the file will be read; Open refuses what cannot be read so.
  enum class Access {
    Anywhere,  ///< ReadAt, in any order; only a regular file can be read so
    Onwards,   ///< ReadNext alone; a pipe or device is read too
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

/// Bytes in memory; holds a reference to the blob.
class BlobSource final : public IByteSource {
 public:
  explicit BlobSource(const OruGuiBase::Blob& bytes) noexcept : bytes_(bytes) {}
  std::uint64_t GetSize() const noexcept override { return bytes_.GetSize(); }
  bool ReadAt(std::uint64_t offset, std::uint8_t* buffer, std::uint32_t size) noexcept override;

 private:
  OruGuiBase::Blob bytes_;
};

/// Bytes in memory that it does not own: they have to outlive it.
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
