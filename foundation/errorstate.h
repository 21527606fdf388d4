#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/export.h"

namespace OruGuiBase {

/// The last error of this thread, shared by the foundation and the libraries above it.
///
/// An operation that can fail clears it on entry (ClearLastError) and sets it on every failing path: to an
/// errno value, or by SetErrorMessage to a code of our own with a message. So the message that is read after
/// a failure is always the reason of that failure.
///
/// The code can be set and read as long as the thread runs. A message of SetErrorMessage is kept until the
/// objects of the thread are destroyed. After that (in destructors of older thread-local objects and of
/// static objects) it is dropped, and the reason reads "Unknown error".
ORUGUI_EXPORT std::uint32_t GetLastError() noexcept;
ORUGUI_EXPORT void SetLastError(std::uint32_t code) noexcept;
/// Forgets the last error, errno included.
ORUGUI_EXPORT void ClearLastError() noexcept;
/// Makes errno the last error; called after a failed system call.
ORUGUI_EXPORT void SetLastErrorFromErrno() noexcept;

/// The code that stands for a message of SetErrorMessage; larger than every errno value.
inline constexpr std::uint32_t kTextError = 0x20000001;

/// Makes `text` the reason of the current failure: the last error becomes kTextError with this message.
ORUGUI_EXPORT void SetErrorMessage(const AnsiStr& text) noexcept;

/// The message of a code: the system's for an errno value, that of SetErrorMessage for kTextError. `language`
/// and `flags` are 0 and 1 everywhere and have no effect.
ORUGUI_EXPORT AnsiStr GetErrorMessage(std::uint32_t code, std::uint32_t language,
                                      std::uint32_t flags) noexcept;

/// The message of the last error, or of errno if there is none: the reason of a failed file or security
/// operation. Never "Success".
ORUGUI_EXPORT AnsiStr GetSystemErrorText() noexcept;

}  // namespace OruGuiBase
