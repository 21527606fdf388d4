#ifndef CRYPTCLI_FILES_HPP
#define CRYPTCLI_FILES_HPP

// Part of <cryptcli/cryptcli.hpp>: sources and targets of operations.

#include <concepts>
#include <cryptcli/detail/abi.hpp>
#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace cryptcli::inline CRYPTCLI_DETAIL_ABI {

namespace detail {
struct FileAccess;

/// A path, or what converts to one: "name", std::string, std::filesystem::path.
template <class P>
concept PathLike = std::convertible_to<const P&, std::filesystem::path>;
}  // namespace detail

/// What an operation reads: a path, an open descriptor, or bytes in memory. A std::string is a path; for
/// bytes there is FromMemory.
///
///     client.Encrypt("room-1", "report.pdf", "report.p7m");
///     client.Encrypt("room-1", cryptcli::Source::FromMemory(upload.body), "upload.p7m");
class Source {
 public:
  /// The file at `path`. A pipe or device is copied to a private temporary file first.
  template <class P>
  requires(!std::same_as<P, Source> && detail::PathLike<P>) Source(const P& path)
      : end_(std::filesystem::path(path)) {}

  /// An open descriptor, read from its current position to its end. It is not closed.
  [[nodiscard]] static Source FromDescriptor(int descriptor) { return Source(End(descriptor)); }

  /// Bytes of the caller, which have to stay unchanged until the operation has ended.
  [[nodiscard]] static Source FromMemory(std::span<const std::byte> bytes) { return Source(End(bytes)); }
  [[nodiscard]] static Source FromMemory(std::string_view bytes) {
    return FromMemory(std::as_bytes(std::span(bytes.data(), bytes.size())));
  }

 private:
  friend struct detail::FileAccess;
  using End = std::variant<std::filesystem::path, int, std::span<const std::byte>>;
  explicit Source(End end) : end_(std::move(end)) {}

  End end_;
};

/// What an operation writes: a path, an open descriptor, or a container in memory. It is
/// unchanged unless everything before the delivery has succeeded.
///
///     std::string content;
///     auto opened = client.Decrypt("room-1", "report.p7m", cryptcli::Target::ToMemory(content));
class Target {
 public:
  /// The file at `path`. It becomes the new content in one step, and keeps mode, owner and access list, where
  /// the file system allows that.
  template <class P>
  requires(!std::same_as<P, Target> && detail::PathLike<P>) Target(const P& path)
      : end_(std::filesystem::path(path)) {}

  /// An open descriptor, written at its current position. It is not closed.
  [[nodiscard]] static Target ToDescriptor(int descriptor) { return Target(End(descriptor)); }

  /// A container whose contents are replaced. It has to live until the operation has ended.
  [[nodiscard]] static Target ToMemory(std::string& bytes) { return Target(End(&bytes)); }
  [[nodiscard]] static Target ToMemory(std::vector<std::byte>& bytes) { return Target(End(&bytes)); }

 private:
  friend struct detail::FileAccess;
  using End = std::variant<std::filesystem::path, int, std::string*, std::vector<std::byte>*>;
  explicit Target(End end) : end_(std::move(end)) {}

  End end_;
};

}  // namespace cryptcli::inline CRYPTCLI_DETAIL_ABI

#endif  // CRYPTCLI_FILES_HPP
