#pragma once

#include <string>
#include <utility>

namespace CryptStand {

/// The file of --url-file, whose existence says that all servers respond. So it must not exist before, and
/// not after their end. Used by one thread.
class UrlFile {
 public:
  /// Does nothing if the path is empty.
  explicit UrlFile(std::string path) : path_(std::move(path)) {}

  /// Tries whether the file can be written, and leaves one that exists as it is. Makes `folder`, that of the
  /// environment, if the file is to be in it. False with the reason in `error`.
  bool Check(const std::string& folder, std::string& error) const;
  /// Removes the file of an earlier run. False with the reason in `error`.
  bool RemoveOld(std::string& error) const;
  /// Writes the addresses so that only the owner can read them. The file appears as a whole, so that a
  /// waiting script never reads half of it. False with the reason in `error`.
  bool Write(const std::string& addresses, std::string& error);
  /// Removes what Write() has written, unless another process has replaced it since.
  void Remove() const;

 private:
  const std::string path_;
  std::string written_;
};

}  // namespace CryptStand
