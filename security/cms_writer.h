#pragma once

#include <cstdint>
#include <memory>

#include "foundation/file.h"
#include "foundation/stream.h"
#include "security/cms_skeleton.h"

namespace OruOssSec {

/// Writes a message whose size nobody knows yet: every container of the content with an indefinite length
/// (X.690, 8.1.3.6), the content in segments of kSegment octets and a last shorter one.
///
///   30 80 OID A0 80 30 80 before 30 80 inner [content] 00 00 after 00 00 00 00 00 00
///   SignedData     content = A0 80 24 80 segments 00 00 00 00
///   EnvelopedData  content = A0 80 segments 00 00
///   segment        = 04 length octets
class CmsWriter {
 public:
  static constexpr std::uint32_t kSegment = OruGuiBase::kStreamBuffer;
  /// Octets that a segment may hold beyond kSegment: what a cipher adds to the last.
  static constexpr std::uint32_t kSlack = EVP_MAX_BLOCK_LENGTH;

  /// Makes or empties the file and writes what stands before the content of about `expected` octets.
  bool Begin(const OruGuiBase::File& target, const CmsSkeleton& head, std::uint64_t expected) noexcept;
  /// Where the next segment's octets are put: room for kSegment + kSlack.
  std::uint8_t* GetRoom() noexcept { return buffer_.get() + kMostHeader; }
  /// Writes the octets in the room, header and all at once.
  bool WriteSegment(std::uint32_t size) noexcept;
  /// Writes what stands after the content and completes the file. `tail` is the skeleton as it is by then.
  bool Finish(const CmsSkeleton& tail) noexcept;

 private:
  bool Write(const void* data, std::uint32_t size) noexcept;
  bool Write(const BerBuffer& bytes) noexcept {
    return Write(bytes.GetData(), static_cast<std::uint32_t>(bytes.GetSize()));
  }

  OruGuiBase::FileWriter writer_;
  std::unique_ptr<std::uint8_t[]> buffer_;
  std::int64_t written_ = 0;
};

}  // namespace OruOssSec
