#pragma once

#include <cryptcli/cryptcli.hpp>
#include <cstdint>
#include <string>
#include <sys/stat.h>

#include "tools/file_list.h"

namespace CryptCli {

/// The certificate that a protected file is for, as the file and the crypt service name it.
struct Recipient {
  std::string issuer;
  std::string serial;
};

/// Asks the crypt service for the certificate of a room. Empty members for a room without a key, for which no
/// file can have been protected.
cryptcli::Result<Recipient> FindRecipient(const cryptcli::Client& client, const std::string& room,
                                          const cryptcli::Call& call);

/// Whether "--resume" takes a file as done: the target is a regular file, not a link, and newer than the
/// source; where it has to be a protected file (`AddSuffix`), it is one for `recipient`: results for another
/// room, or for a key that the room had before, are not done. Files of the same age are not done either:
/// the source may have changed within the tick of the file system's clock in which the target was written.
///
/// A decrypted file cannot be examined: there name and age decide alone.
bool IsDone(const FileItem& item, NameRule rule, const Recipient& recipient);

/// How a source looked when the work on it began. A plain value.
class SourceState {
 public:
  explicit SourceState(const std::string& path);

  /// Bytes; 0 for a file that does not exist.
  std::uint64_t GetSize() const { return exists_ ? static_cast<std::uint64_t>(status_.st_size) : 0; }
  /// Whether the source was written to since.
  bool HasChanged(const std::string& path) const;
  /// Gives a target the time of the source, so that IsDone is false once the source has changed.
  void GiveTimeTo(const std::string& target) const;

 private:
  // In this order: finding out whether the file exists sets its status.
  struct stat status_ {};
  bool exists_ = false;
};

}  // namespace CryptCli
