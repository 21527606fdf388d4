#pragma once

#include <cstddef>
#include <string>

namespace Bench {

/// The arithmetic of protecting a file and nothing else: SHA-512 and AES-256-CBC encryption of its bytes, in
/// chunks of 64 KiB through EVP. Reads the file; writes nothing. Returns CPU seconds of the arithmetic alone,
/// or a negative number if the file cannot be read.
double ProtectLimit(const std::string& file);
/// The arithmetic of opening one: AES-256-CBC decryption and SHA-512.
double OpenLimit(const std::string& file);

/// Protecting a file without any arithmetic: `file` is copied to `between` and that to `target`, as the
/// signed message and the protected file are written, in chunks of `kTrafficChunk` with the space reserved
/// first. Returns CPU seconds, or a negative number on failure. Both copies are removed.
double ProtectTraffic(const std::string& file, const std::string& between, const std::string& target);
inline constexpr std::size_t kTrafficChunk = std::size_t{256} * 1024;

}  // namespace Bench
