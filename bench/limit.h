#pragma once

#include <string>

namespace Bench {

/// The arithmetic of protecting a file, with nothing around it: SHA-512 of its bytes and AES-256-CBC
/// encryption of its bytes, in pieces of 64 KiB through EVP. Reads the file; writes nothing. CPU seconds of
/// the arithmetic alone, or a negative number when the file cannot be read.
double ProtectLimit(const std::string& file);
/// The arithmetic of opening one: AES-256-CBC decryption and SHA-512.
double OpenLimit(const std::string& file);

}  // namespace Bench
