#pragma once

#include <string>

namespace CryptStand {

/// Creates a folder with mode 0700, unless it exists. False with the reason in `error`, also for the folder
/// of another user in a directory like /tmp.
bool MakeFolder(const std::string& folder, std::string& error);

/// Keeps a folder for one test environment: a lock on the file "lock" in it, which holds the number of the
/// process. The lock ends with the object or with the process, however that ends; the file stays, and one
/// without a lock means nothing.
class FolderLock {
 public:
  enum class Result { Taken, InUse, Failed };

  FolderLock() = default;
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;
  ~FolderLock();

  /// Called once, for a folder that exists. Unless it is taken, the reason is in `error`.
  Result Take(const std::string& folder, std::string& error);

 private:
  int file_ = -1;
};

}  // namespace CryptStand
