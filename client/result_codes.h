#pragma once

#include <cstdint>

namespace OruKalvix {

// Codes in the style of HRESULT.
inline constexpr std::int32_t kSuccess = 0;
inline constexpr std::int32_t kFailed = static_cast<std::int32_t>(0x80004005U);
inline constexpr std::int32_t kUnknownName = static_cast<std::int32_t>(0x80020003U);
/// A method value without a case; it never leaves the dispatcher as a number.
inline constexpr std::int32_t kNotImplemented = static_cast<std::int32_t>(0x80004001U);

}  // namespace OruKalvix
