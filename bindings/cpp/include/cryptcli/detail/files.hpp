#ifndef CRYPTCLI_DETAIL_FILES_HPP
#define CRYPTCLI_DETAIL_FILES_HPP

// Part of <cryptcli/cryptcli.hpp>, not for users: sources and targets of the C interface, those in memory
// included.

#include <cerrno>
#include <cryptcli/cryptcli.h>
#include <cryptcli/detail/abi.hpp>
#include <cryptcli/detail/objects.hpp>
#include <cryptcli/files.hpp>
#include <cryptcli/result.hpp>
#include <cryptcli/values.hpp>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <variant>
#include <vector>

namespace cryptcli::inline CRYPTCLI_DETAIL_ABI {
namespace detail {

/// The failure of a system call, with its reason.
inline Unexpected SystemFailure(std::string_view what, int number) {
  const bool isFull = number == ENOSPC || number == EDQUOT || number == EFBIG;
  return Failure(isFull ? Status::NoSpace : Status::Io,
                 std::string(what) + ": " + std::generic_category().message(number));
}

/// Owns a file descriptor and closes it on destruction. Movable; a moved-from object owns none.
class OwnedDescriptor {
 public:
  OwnedDescriptor() = default;
  explicit OwnedDescriptor(int descriptor) : descriptor_(descriptor) {}
  OwnedDescriptor(const OwnedDescriptor&) = delete;
  OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;
  OwnedDescriptor(OwnedDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  OwnedDescriptor& operator=(OwnedDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~OwnedDescriptor() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  int Get() const { return descriptor_; }

 private:
  int descriptor_ = -1;
};

/// A source or target of the C interface. `file.path` lends from the Source or Target, which has to live as
/// long. Bytes in memory have the descriptor of a file in memory without a name, which `memory` owns.
struct OpenedFile {
  cryptcli_file file = cryptcli_descriptor(-1);
  OwnedDescriptor memory{};
};

/// Opens a Source or Target for the C interface, and copies what was written back to a target in memory. A
/// friend of both classes, so that their variants are no part of the published interface. Has no state.
struct FileAccess {
  static Result<OpenedFile> Open(const Source& source) {
    if (const auto* const bytes = std::get_if<std::span<const std::byte>>(&source.end_))
      return OpenMemory(*bytes);
    return OpenNamed(source.end_);
  }

  static Result<OpenedFile> Open(const Target& target) {
    const bool isMemory = target.end_.index() > 1;
    return isMemory ? OpenMemory({}) : OpenNamed(target.end_);
  }

  /// Replaces the contents of a target in memory by what was written. Does nothing for any other target.
  static std::optional<Error> Deliver(const OpenedFile& opened, const Target& target) {
    if (auto* const* const bytes = std::get_if<std::string*>(&target.end_))
      return ReadBack(opened.memory.Get(), **bytes);
    if (auto* const* const bytes = std::get_if<std::vector<std::byte>*>(&target.end_))
      return ReadBack(opened.memory.Get(), **bytes);
    return std::nullopt;
  }

 private:
  template <class End>
  static Result<OpenedFile> OpenNamed(const End& end) {
    OpenedFile opened;
    if (const auto* const path = std::get_if<std::filesystem::path>(&end)) {
      if (HasNul(path->native())) return Failure(Status::InvalidArgument, "A path contains a NUL character");
      opened.file = cryptcli_path(path->c_str());
    } else if (const auto* const descriptor = std::get_if<int>(&end)) {
      opened.file = cryptcli_descriptor(*descriptor);
    }
    return opened;
  }

  static Result<OpenedFile> OpenMemory(std::span<const std::byte> bytes) {
    OpenedFile opened;
    opened.memory = OwnedDescriptor(::memfd_create("cryptcli", MFD_CLOEXEC));
    const int descriptor = opened.memory.Get();
    if (descriptor < 0) return SystemFailure("Could not make a file in memory", errno);
    opened.file = cryptcli_descriptor(descriptor);
    while (!bytes.empty()) {
      const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) return SystemFailure("Could not write to memory", errno);
      bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    if (::lseek(descriptor, 0, SEEK_SET) != 0) return SystemFailure("Could not write to memory", errno);
    return opened;
  }

  template <class Container>
  static std::optional<Error> ReadBack(int descriptor, Container& target) {
    const off_t size = ::lseek(descriptor, 0, SEEK_END);
    if (size < 0) return SystemFailure("Could not read from memory", errno).error();
    Container content(static_cast<std::size_t>(size), typename Container::value_type{});
    for (std::size_t done = 0; done < content.size();) {
      const ssize_t got =
          ::pread(descriptor, content.data() + done, content.size() - done, static_cast<off_t>(done));
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) return SystemFailure("Could not read from memory", got < 0 ? errno : EIO).error();
      done += static_cast<std::size_t>(got);
    }
    target = std::move(content);
    return std::nullopt;
  }
};

}  // namespace detail
}  // namespace cryptcli::inline CRYPTCLI_DETAIL_ABI

#endif  // CRYPTCLI_DETAIL_FILES_HPP
