#pragma once

#include <cstdint>

#include "foundation/file.h"
#include "foundation/filehandle.h"
#include "foundation/work_buffer.h"
#include "security/cms/chunk.h"
#include "security/cms/skeleton.h"

namespace OruOssSec {

/// Writes a message whose size nobody knows yet: every container of the content with an indefinite length
/// (X.690, 8.1.3.6), the content in segments.
///
///   30 80 OID A0 80 30 80 before 30 80 inner [content] 00 00 after 00 00 00 00 00 00
///   SignedData     content = A0 80 24 80 segments 00 00 00 00
///   EnvelopedData  content = A0 80 segments 00 00
///   segment        = 04 length octets
///
/// A segment fills a write and all but the last end at a multiple of kWritePiece in the file, so that the
/// system never completes a page in a second step: a fifth of the cost of writing.
class CmsWriter {
 public:
  /// Octets that may be added beyond what a segment takes: those of a cipher's blocks.
  static constexpr std::uint32_t kSlack = 2 * EVP_MAX_BLOCK_LENGTH;

  /// Makes or empties the file and writes what stands before the content of about `expected` octets.
  bool Begin(const OruGuiBase::File& target, const CmsSkeleton& head, std::uint64_t expected) noexcept;
  /// Where the next octets are put: room for GetMissing() + kSlack.
  std::uint8_t* GetRoom() noexcept { return buffer_.GetData() + kMostHeader + filled_; }
  /// Octets that fill the segment in progress.
  std::uint32_t GetMissing() const noexcept { return segment_ - filled_; }
  /// Takes the octets put there; a full segment is written.
  bool Commit(std::uint32_t size) noexcept;
  /// Writes the last segment and what stands after the content and completes the file. `tail` is the skeleton
  /// as it is by then.
  bool Finish(const CmsSkeleton& tail) noexcept;

 private:
  bool WriteSegment(std::uint32_t size) noexcept;
  bool Write(const void* data, std::uint32_t size) noexcept;
  bool Write(const BerBuffer& bytes) noexcept {
    return Write(bytes.GetData(), static_cast<std::uint32_t>(bytes.GetSize()));
  }

  OruGuiBase::FileWriter writer_;
  OruGuiBase::WorkBuffer buffer_;
  std::uint32_t segment_ = 0;
  std::uint32_t filled_ = 0;
  std::int64_t written_ = 0;
};

}  // namespace OruOssSec
