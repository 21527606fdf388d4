#pragma once

#include "foundation/ansistr.h"
#include "foundation/file.h"
#include "foundation/filehandle.h"

namespace OruGuiBase {

/// How content reaches a target. FileWriter::OpenDraft, File::Move and TempFile::CreateFor all decide it
/// here. All failures leave errno.
enum class DeliveryWay {
  Replace,  ///< another file takes its place when it is whole
  InPlace,  ///< it is written itself
  Failed,   ///< it cannot be looked at
};

struct DeliveryTarget {
  bool exists = false;
  FileAccess access;  ///< of what exists
};

/// Looks at a target, and at links themselves. Those are written in place that would become something else by
/// being replaced: a link itself would go, other names would keep the old content, a file of somebody else
/// would change its owner, a device or FIFO is no store of content at all. An empty file has nothing to lose,
/// and its maker, who may hold it open, chose who can read it.
DeliveryWay JudgeTarget(const File& target, DeliveryTarget& judged) noexcept;

/// What a new file gets in the directory of `path`, which the process's mask, the directory's group and its
/// default access list decide.
bool AskNewFile(const AnsiStr& path, FileAccess& access) noexcept;
/// Whether what is to replace a target may do so now that it is whole: the target may have changed since it
/// was judged. Narrows `access` to what it lets now. EBUSY when its owner, group or list is another than
/// `access` has, and when it is no regular file any more EEXIST or EISDIR.
bool MeetsTarget(const AnsiStr& path, FileAccess& access) noexcept;
/// Makes a file like those, but never wider than the handle's file was: the mode comes last.
bool GiveAccess(int handle, const FileAccess& access) noexcept;
bool GiveGroup(int handle, const FileAccess& access) noexcept;

/// Opens a private file, which must be there as it was made: a regular file of this user, of one name and for
/// the owner alone. Anything else was put there by somebody: ESTALE, or the reason of open().
int OpenPrivate(const AnsiStr& path, int flags) noexcept;

/// Makes an empty file beside the target, for the owner alone, and lists it as unfinished. Gives a handle
/// that writes, or -1.
int MakeStaging(const AnsiStr& target, AnsiStr& path) noexcept;
/// Whether a directory takes no new files. Any other failure to make one, such as a full disk, must not cost
/// the old file.
bool IsRefusalOfDirectory(int code) noexcept;
/// Renames; `keepTarget` refuses a target that exists.
bool Rename(const AnsiStr& source, const AnsiStr& target, bool keepTarget) noexcept;

}  // namespace OruGuiBase
