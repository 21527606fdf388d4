#pragma once

#include <memory>

#include "foundation/blob.h"
#include "foundation/stream.h"
#include "security/cms_message.h"

namespace OruOssSec {

/// Takes content in pieces.
class IContentSink {
 public:
  /// Comes first: at most `most` bytes will follow.
  virtual bool Begin(std::uint64_t most) noexcept = 0;
  virtual bool Write(const std::uint8_t* data, std::uint32_t size) noexcept = 0;
  /// Comes last, when all went well.
  virtual bool Finish() noexcept = 0;

 protected:
  ~IContentSink() = default;
};

/// Writes to a file. Small pieces are gathered, large ones pass through.
class FileSink final : public IContentSink {
 public:
  explicit FileSink(const OruGuiBase::File& target) noexcept : target_(target) {}
  bool Begin(std::uint64_t most) noexcept override;
  bool Write(const std::uint8_t* data, std::uint32_t size) noexcept override;
  bool Finish() noexcept override;

 private:
  bool Flush() noexcept;

  OruGuiBase::File target_;
  OruGuiBase::FileWriter writer_;
  std::unique_ptr<std::uint8_t[]> gathered_;
  std::uint32_t filled_ = 0;
  std::int64_t written_ = 0;
};

/// Fills a blob; what is there after a failure is wiped with it.
class BlobSink final : public IContentSink {
 public:
  explicit BlobSink(OruGuiBase::Blob& target) noexcept : target_(target) {}
  bool Begin(std::uint64_t most) noexcept override;
  bool Write(const std::uint8_t* data, std::uint32_t size) noexcept override;
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
