#pragma once

#include "foundation/ansistr.h"
#include "foundation/file.h"
#include "foundation/filehandle.h"

namespace OruGuiBase {

/// How content reaches a target: decided here for FileWriter::OpenStaged, File::Move and TempFile::CreateFor.
/// All failures leave errno.
enum class DeliveryWay {
  Replace,  ///< a complete file is renamed over it
  InPlace,  ///< the content is written into it
  Failed,   ///< its attributes cannot be read
};

/// What JudgeTarget found out about a target. A plain value; nothing on disk is held.
struct DeliveryTarget {
  bool exists = false;
  FileAccess access;  ///< set only if it exists
};

/// Decides how a target is written. Links are not followed. A target is written in place if replacing it
/// would change more than its content: a link would be lost, other names would keep the old content, a file
/// of another user would change its owner, a device or FIFO would become a file. So is an empty file: it has
/// nothing to lose, and whoever made it may hold it open and chose its access.
DeliveryWay JudgeTarget(const File& target, DeliveryTarget& judged) noexcept;

/// The access that a new file gets in the directory of `path`. The process's mask, the directory's group and
/// its default access list decide it.
bool AskNewFile(const AnsiStr& path, FileAccess& access) noexcept;
/// Whether a complete staging file may still replace the target, which may have changed since JudgeTarget.
/// Takes from `access` the permissions that the target no longer has. EBUSY if the target has another owner,
/// group or access list than `access`; EEXIST or EISDIR if it is no regular file any more.
bool MeetsTarget(const AnsiStr& path, FileAccess& access) noexcept;
/// Gives the open file group, access list and mode, in this order: until the last step it is no wider than it
/// was.
bool GiveAccess(int handle, const FileAccess& access) noexcept;
/// Gives the open file only the group. On failure the file must not replace the target: users could read it
/// who could not read the target.
bool GiveGroup(int handle, const FileAccess& access) noexcept;

/// Opens a private file, which must exist as it was made: a regular file of this user, with one name and for
/// the owner alone. Anything else was put there by somebody else: ESTALE, or the reason of open(). Returns a
/// handle, or -1.
int OpenPrivate(const AnsiStr& path, int flags) noexcept;

/// Makes an empty file beside the target, for the owner alone, and lists it as unfinished. Returns a handle
/// for writing, or -1; `path` is its name.
int MakeStaging(const AnsiStr& target, AnsiStr& path) noexcept;
/// Whether errno `code` means that a directory takes no new files. After any other failure to make one, such
/// as a full disk, the target must not be written in place: its old content would be lost.
bool IsRefusalOfDirectory(int code) noexcept;
/// Renames a file. With `keepTarget` true a target that exists is a failure (EEXIST).
bool Rename(const AnsiStr& source, const AnsiStr& target, bool keepTarget) noexcept;

}  // namespace OruGuiBase
