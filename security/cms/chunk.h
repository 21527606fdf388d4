#pragma once

#include <cstdint>

namespace OruOssSec {

/// Bytes of a write, which begins at a multiple of its size in the file.
///
/// Measured on ext4: writes that cut pages cost a quarter more, as each page is completed in a second step.
/// Twice this size lets the system take memory in blocks that a virtual machine has often given back to its
/// host, and getting one again costs ten times the write.
inline constexpr std::uint32_t kWriteChunk = 128 * 1024;

}  // namespace OruOssSec
