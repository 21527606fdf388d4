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

/// A file, kept open. Its size is that at opening.
class FileSource final : public IByteSource {
 public:
  bool Open(const OruGuiBase::File& file) noexcept;
  std::uint64_t GetSize() const noexcept override { return size_; }
  bool ReadAt(std::uint64_t offset, std::uint8_t* buffer, std::uint32_t size) noexcept override;

 private:
  OruGuiBase::FileReader reader_;
  std::uint64_t size_ = 0;
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
