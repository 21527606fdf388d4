#pragma once

#include "foundation/blob.h"
#include "foundation/filehandle.h"
#include "foundation/work_buffer.h"
#include "security/cms/chunk.h"
#include "security/cms/message.h"

namespace OruOssSec {

/// Takes content, which is put straight into its room.
class IContentSink {
 public:
  /// Octets that may be put beyond what is missing: those of a cipher's blocks.
  static constexpr std::uint32_t kSlack = 2 * EVP_MAX_BLOCK_LENGTH;

  /// Comes first: at most `most` octets will follow.
  virtual bool Begin(std::uint64_t most) noexcept = 0;
  /// Where the next octets are put: room for GetMissing() + kSlack.
  virtual std::uint8_t* GetRoom() noexcept = 0;
  /// Octets that are best put at once; never 0.
  virtual std::uint32_t GetMissing() const noexcept = 0;
  /// Takes the octets put there.
  virtual bool Commit(std::uint32_t size) noexcept = 0;
  /// Comes last, when all went well.
  virtual bool Finish() noexcept = 0;

 protected:
  ~IContentSink() = default;
};

/// Writes to a file, in chunks that begin and end at multiples of kWritePiece: so the system never
/// completes a page in a second step.
class FileSink final : public IContentSink {
 public:
  explicit FileSink(const OruGuiBase::File& target) noexcept : target_(target) {}
  bool Begin(std::uint64_t most) noexcept override;
  std::uint8_t* GetRoom() noexcept override { return buffer_.GetData() + filled_; }
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

/// Fills a blob; what is there after a failure is wiped with it.
class BlobSink final : public IContentSink {
 public:
  explicit BlobSink(OruGuiBase::Blob& target) noexcept : target_(target) {}
  bool Begin(std::uint64_t most) noexcept override;
  std::uint8_t* GetRoom() noexcept override { return data_ + filled_; }
  std::uint32_t GetMissing() const noexcept override { return bytes_.GetSize() - kSlack - filled_; }
  bool Commit(std::uint32_t size) noexcept override;
  bool Finish() noexcept override;

 private:
  OruGuiBase::Blob& target_;
  OruGuiBase::Blob bytes_;
  std::uint8_t* data_ = nullptr;
  std::uint32_t filled_ = 0;
};

/// Delivers the content of a message, decrypted where it is enveloped.
bool DeliverContent(const LoadedMessage& message, IContentSink& sink) noexcept;

}  // namespace OruOssSec
