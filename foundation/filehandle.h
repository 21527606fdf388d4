#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/export.h"
#include "foundation/file.h"
#include "foundation/tempfile.h"

struct stat;

namespace OruGuiBase {

/// Bytes that the file streams move at once. Smaller chunks cost system calls, larger ones gain nothing.
inline constexpr std::uint32_t kStreamBuffer = 256 * 1024;

/// A file opened for reading, unbuffered. Operations leave the reason of a failure in the error state.
class ORUGUI_EXPORT FileReader {
 public:
  FileReader() noexcept = default;
  FileReader(const FileReader&) = delete;
  FileReader& operator=(const FileReader&) = delete;
  ~FileReader();

  /// Opens a regular file or another source of bytes; a directory is a failure.
  bool Open(const File& file) noexcept;
  bool IsOpen() const noexcept { return handle_ >= 0; }
  /// Size of the open file, or -1.
  std::int64_t GetSize() const noexcept;
  /// Reads up to `size` bytes, fewer only at the end of the file, and moves on. -1 on failure.
  std::int64_t Read(void* buffer, std::uint32_t size) noexcept;
  /// The same from a place, without moving.
  std::int64_t ReadAt(std::int64_t offset, void* buffer, std::uint32_t size) const noexcept;
  /// Whether it is a regular file: only such a one has a size and can be read from any place.
  bool IsRegular() const noexcept { return opened_.isRegular; }
  /// Whether a regular file is as it was when it was opened, as far as its size and its times of modification
  /// and change show. A file system's clock ticks every few milliseconds: a change within one tick of opening
  /// is not seen. Always true for anything else. False with a reason when it cannot be looked at.
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

/// Who may do what with a file.
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

  /// Makes the file or empties it. A private file is not made: it must be there as it was made, a regular
  /// file of this user with one name and for the owner alone (ESTALE, or the reason of opening it).
  bool Open(const File& file) noexcept;
  bool OpenAppend(const File& file) noexcept;
  /// Begins a staging file beside the file, for the owner alone, which takes the file's place, mode and group
  /// when Close succeeds. Until then, and after any failure, the file is as it was. A new file gets what any
  /// other in its directory gets. A file that cannot be replaced, or has nothing to lose, is written in place
  /// instead: an empty one, a link, one with several names, of another owner or of a group that cannot be
  /// given, one with an access list or mounted in its place, one in a directory that takes no new files, and
  /// what is no regular file. So is a private file, as Open does it: it becomes something else by File::Move.
  /// A target whose owner, group or access list changed meanwhile makes Close fail with EBUSY.
  bool OpenStaged(const File& file) noexcept;
  bool IsOpen() const noexcept { return handle_ >= 0; }
  /// Reserves room where the file system can, so that a full disk shows at once; true when it cannot. The
  /// size of the file does not change.
  bool Preallocate(std::int64_t size) noexcept;
  /// Writes all bytes or fails.
  bool Write(const void* data, std::uint32_t size) noexcept;
  /// Sets the size of the file and gives back what Preallocate reserved beyond it. Nothing is done to what
  /// has no size, such as a FIFO or a device.
  bool Truncate(std::int64_t size) noexcept;
  /// Reports what the system held back until now.
  bool Close() noexcept;

 private:
  friend class File;
  struct StagingOptions {
    bool keepTarget = false;  ///< a target that exists is a failure
    int mode = -1;            ///< of the staging file in the place of the target's
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
  FileAccess access_;  ///< what the target is to have
  bool keepTarget_ = false;
};

}  // namespace OruGuiBase
