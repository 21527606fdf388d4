#pragma once

#include <cstdint>

#include "foundation/blob.h"
#include "foundation/file.h"
#include "foundation/filehandle.h"
#include "foundation/work_buffer.h"
#include "security/cms/skeleton.h"

namespace OruOssSec {

/// Bytes of a write, which begins at a multiple of its size in the file, so that the system never completes
/// a page in a second step.
///
/// Measured on ext4: writes that cut pages cost a quarter more. Twice this size lets the system take memory
/// in blocks that a virtual machine has often given back to its host, and getting one again costs ten times
/// the write.
inline constexpr std::uint32_t kWriteChunk = 128 * 1024;

/// Takes content: Begin, then octets put at GetBuffer() and committed, then Finish. The caller writes
/// straight into the sink's memory, so that a cipher needs no copy in between.
class IContentSink {
 public:
  /// Octets that may be put beyond what is missing: those of a cipher's blocks.
  static constexpr std::uint32_t kSlack = 2 * EVP_MAX_BLOCK_LENGTH;

  /// Comes first. About `expected` octets will follow, for which a sink reserves space.
  virtual bool Begin(std::uint64_t expected) noexcept = 0;
  /// Where the next octets are put: GetMissing() + kSlack of them fit.
  virtual std::uint8_t* GetBuffer() noexcept = 0;
  /// Octets that are best put at once; never 0.
  virtual std::uint32_t GetMissing() const noexcept = 0;
  /// Takes the octets put there.
  virtual bool Commit(std::uint32_t size) noexcept = 0;
  /// Comes last, when all went well.
  virtual bool Finish() noexcept = 0;

 protected:
  ~IContentSink() = default;
};

/// Writes content to a file, in chunks of kWriteChunk. The file takes the place of the target when Finish
/// succeeds; until then the target is as it was where that is possible (FileWriter::OpenStaged).
class FileSink final : public IContentSink {
 public:
  explicit FileSink(const OruGuiBase::File& target) noexcept : target_(target) {}
  bool Begin(std::uint64_t expected) noexcept override;
  std::uint8_t* GetBuffer() noexcept override { return buffer_.GetData() + filled_; }
  std::uint32_t GetMissing() const noexcept override { return kWriteChunk - filled_; }
  bool Commit(std::uint32_t size) noexcept override;
  bool Finish() noexcept override;

 private:
  OruGuiBase::File target_;
  OruGuiBase::FileWriter writer_;
  OruGuiBase::WorkBuffer buffer_;
  std::uint32_t filled_ = 0;
  std::int64_t written_ = 0;
};

/// Fills a blob, which it refers to, once Finish is called. At most `expected` octets may follow Begin. The
/// bytes of a failure are wiped with the sink.
class BlobSink final : public IContentSink {
 public:
  explicit BlobSink(OruGuiBase::Blob& target) noexcept : target_(target) {}
  bool Begin(std::uint64_t expected) noexcept override;
  std::uint8_t* GetBuffer() noexcept override { return data_ + filled_; }
  std::uint32_t GetMissing() const noexcept override { return bytes_.GetSize() - kSlack - filled_; }
  bool Commit(std::uint32_t size) noexcept override;
  bool Finish() noexcept override;

 private:
  OruGuiBase::Blob& target_;
  OruGuiBase::Blob bytes_;
  std::uint8_t* data_ = nullptr;
  std::uint32_t filled_ = 0;
};

/// Writes a message around its content, whose size nobody knows yet: every container of the content with an
/// indefinite length (X.690, 8.1.3.6), the content in segments.
///
///   30 80 OID A0 80 30 80 before 30 80 inner [content] 00 00 after 00 00 00 00 00 00
///   SignedData     content = A0 80 24 80 segments 00 00 00 00
///   EnvelopedData  content = A0 80 segments 00 00
///   segment        = 04 length octets
///
/// A segment fills a write, and all but the last end at a multiple of kWriteChunk in the file.
class CmsWriter final : public IContentSink {
 public:
  /// Refers to `frame`, the message without its content. Begin writes the elements before the content. Finish
  /// reads the elements after it from `frame` only then: a signature exists only after the content was read.
  CmsWriter(const OruGuiBase::File& target, const CmsSkeleton& frame) noexcept
      : target_(target), frame_(frame) {}
  /// Makes or empties the file.
  bool Begin(std::uint64_t expected) noexcept override;
  std::uint8_t* GetBuffer() noexcept override { return buffer_.GetData() + kMostHeader + filled_; }
  std::uint32_t GetMissing() const noexcept override { return segment_ - filled_; }
  bool Commit(std::uint32_t size) noexcept override;
  bool Finish() noexcept override;

 private:
  bool WriteSegment(std::uint32_t size) noexcept;
  bool Write(const void* data, std::uint32_t size) noexcept;
  bool Write(const BerBuffer& bytes) noexcept {
    return Write(bytes.GetData(), static_cast<std::uint32_t>(bytes.GetSize()));
  }

  OruGuiBase::File target_;
  const CmsSkeleton& frame_;
  OruGuiBase::FileWriter writer_;
  OruGuiBase::WorkBuffer buffer_;
  std::uint32_t segment_ = 0;
  std::uint32_t filled_ = 0;
  std::int64_t written_ = 0;
};

}  // namespace OruOssSec
