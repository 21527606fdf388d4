#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/export.h"

namespace OruGuiBase {

/// The last error of this thread, shared by the foundation and the libraries above it.
///
/// An operation that can fail clears it on entry (ClearLastError) and sets it on every path that fails: to an
/// errno value, or through SetErrorMessage to a code of our own with a text. So a text read after a failure
/// is always the reason of that failure.
///
/// The code can be set and read for as long as the thread runs. A text of SetErrorMessage is kept until the
/// thread's own objects are destroyed; from then on (in destructors of older thread-local objects and of
/// static objects) it is dropped, and the reason reads "Unknown error".
ORUGUI_EXPORT std::uint32_t GetLastError() noexcept;
ORUGUI_EXPORT void SetLastError(std::uint32_t code) noexcept;
/// Forgets the last error, errno included.
ORUGUI_EXPORT void ClearLastError() noexcept;
/// Takes errno over as the last error; a failed system call is followed by it.
ORUGUI_EXPORT void SetLastErrorFromErrno() noexcept;

/// The code that stands for a text of SetErrorMessage; above every errno value.
inline constexpr std::uint32_t kTextError = 0x20000001;

/// Makes `text` the reason of the failure in progress: the last error becomes kTextError with this text.
ORUGUI_EXPORT void SetErrorMessage(const AnsiStr& text) noexcept;

/// The text of a code: the system's for an errno value, the text handed in for kTextError. `language` and
/// `flags` are 0 and 1 everywhere; no other text exists.
ORUGUI_EXPORT AnsiStr GetErrorMessage(std::uint32_t code, std::uint32_t language,
                                      std::uint32_t flags) noexcept;

/// The text of the last error, or of errno when there is none: the reason of a failed file or security
/// operation. Never "Success".
ORUGUI_EXPORT AnsiStr GetSystemErrorText() noexcept;

}  // namespace OruGuiBase
