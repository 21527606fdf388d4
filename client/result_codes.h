#pragma once

#include <cstdint>

namespace OruKalvix {

// Results of PerformOperation: the numbers of HRESULT, which callers compare as signed values.
inline constexpr std::int32_t kSuccess = 0;
inline constexpr std::int32_t kFailed = static_cast<std::int32_t>(0x80004005U);
inline constexpr std::int32_t kUnknownName = static_cast<std::int32_t>(0x80020003U);
/// The status of a method value that names no operation. Callers of ExecuteMethod see false, never the
/// number.
inline constexpr std::int32_t kNotImplemented = static_cast<std::int32_t>(0x80004001U);

}  // namespace OruKalvix
