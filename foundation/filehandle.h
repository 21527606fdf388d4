#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/export.h"
#include "foundation/file.h"
#include "foundation/tempfile.h"

struct stat;

namespace OruGuiBase {

/// Bytes that streams and copies move at once. Smaller chunks cost more system calls; larger ones are not
/// faster.
inline constexpr std::uint32_t kStreamBuffer = 256 * 1024;

/// A file opened for reading, unbuffered. Operations leave the reason of a failure in the error state.
class ORUGUI_EXPORT FileReader {
 public:
  FileReader() noexcept = default;
  FileReader(const FileReader&) = delete;
  FileReader& operator=(const FileReader&) = delete;
  ~FileReader();

  /// Opens a regular file or another source of bytes. Fails for a directory.
  bool Open(const File& file) noexcept;
  bool IsOpen() const noexcept { return handle_ >= 0; }
  /// Size of the open file, or -1.
  std::int64_t GetSize() const noexcept;
  /// Reads `size` bytes from the current position, fewer only at the end of the file. -1 on failure.
  std::int64_t Read(void* buffer, std::uint32_t size) noexcept;
  /// The same from `offset`. The current position stays.
  std::int64_t ReadAt(std::int64_t offset, void* buffer, std::uint32_t size) const noexcept;
  /// Whether it is a regular file. Only a regular file has a size and can be read at any offset.
  bool IsRegular() const noexcept { return opened_.isRegular; }
  /// Whether a regular file is as it was when it was opened, judged by its size and its times of modification
  /// and change. A file system's clock ticks every few milliseconds, so a change within one tick after
  /// opening is missed. Always true for anything else. False, with a reason in the error state, if its
  /// attributes cannot be read.
  bool IsUnchanged() const noexcept;
  bool Close() noexcept;

 private:
  struct Look {
    bool isRegular = false;
    std::int64_t size = 0;
    std::int64_t times[4] = {};  ///< seconds and nanoseconds of modification and change
    bool operator==(const Look&) const = default;
  };
  static Look Describe(const struct stat& info) noexcept;

  int handle_ = -1;
  Look opened_;
};

/// Who may access a file: what a delivered file takes over from the file that it replaces.
struct FileAccess {
  std::uint32_t mode = 0;   ///< permission bits
  std::uint32_t group = 0;  ///< the system's number of its group
  AnsiStr list;             ///< the access list as the system keeps it; empty without one
};

enum class DeliveryWay;
struct DeliveryTarget;

/// A file opened for writing, unbuffered. Operations leave the reason of a failure in the error state.
class ORUGUI_EXPORT FileWriter {
 public:
  FileWriter() noexcept = default;
  FileWriter(const FileWriter&) = delete;
  FileWriter& operator=(const FileWriter&) = delete;
  ~FileWriter();

  /// Makes the file, or empties it if it exists. A private file is never made here: it must exist as it was
  /// made, a regular file of this user with one name and for the owner alone (else ESTALE, or the reason of
  /// open()).
  bool Open(const File& file) noexcept;
  /// The same, but keeps the content and writes after it.
  bool OpenAppend(const File& file) noexcept;
  /// Opens a staging file: a file beside the target, for the owner alone, that replaces the target when Close
  /// succeeds and gets its mode and group. Until then, and after any failure, the target is as it was. A
  /// target that does not exist yet gets the mode and group of any new file in its directory. If owner, group
  /// or access list of the target changed meanwhile, Close fails with EBUSY.
  ///
  /// A target that cannot be replaced, or has nothing to lose, is written in place instead, as by Open: an
  /// empty file, a link, a file with several names, of another owner or of a group that cannot be given, one
  /// with an access list or with a file mounted over it, one in a directory that takes no new files, anything
  /// but a regular file, and a private file, which File::Move delivers.
  bool OpenStaged(const File& file) noexcept;
  bool IsOpen() const noexcept { return handle_ >= 0; }
  /// Reserves disk space, so that a full disk is reported before anything is written. True also where the
  /// file system cannot reserve. The size of the file does not change.
  bool Preallocate(std::int64_t size) noexcept;
  /// Writes all bytes or fails.
  bool Write(const void* data, std::uint32_t size) noexcept;
  /// Sets the size of the file and gives back the space that Preallocate reserved beyond it. Does nothing,
  /// with success, for a FIFO or a device, which have no size.
  bool Truncate(std::int64_t size) noexcept;
  /// Closes the file and delivers a staging file. False also for a write that failed only now, as on a
  /// network drive.
  bool Close() noexcept;

 private:
  friend class File;
  struct StagingOptions {
    bool keepTarget = false;  ///< a target that exists is a failure (EEXIST)
    int mode = -1;            ///< mode of the delivered file; -1 takes that of the target
  };
  bool OpenStaged(const File& file, const StagingOptions& options) noexcept;
  DeliveryWay BeginStaging(const AnsiStr& path, const DeliveryTarget& target,
                           const StagingOptions& options) noexcept;
  bool FinishStaging() noexcept;
  bool DeliverStaging() noexcept;
  void DropFile() noexcept;

  int handle_ = -1;
  TempFile staging_;  ///< empty when the file is written in place
  AnsiStr target_;
  FileAccess access_;  ///< of the file that replaces the target
  bool keepTarget_ = false;
};

}  // namespace OruGuiBase
