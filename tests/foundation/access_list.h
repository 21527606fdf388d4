#pragma once

#include <cstdint>
#include <string>
#include <sys/xattr.h>
#include <vector>

namespace OruGuiBase {

// Access lists as the kernel takes them (acl(5)): a version, then tag, permissions and identifier of each
// entry, little-endian.
inline constexpr const char* kAccessList = "system.posix_acl_access";
inline constexpr const char* kDefaultList = "system.posix_acl_default";
inline constexpr std::uint16_t kOwner = 0x01;
inline constexpr std::uint16_t kUser = 0x02;
inline constexpr std::uint16_t kGroup = 0x04;
inline constexpr std::uint16_t kMask = 0x10;
inline constexpr std::uint16_t kOthers = 0x20;

/// One entry of a list; only those of named users and groups have an id.
struct AccessEntry {
  std::uint16_t tag;
  std::uint16_t permissions;
  std::uint32_t id = 0xFFFFFFFF;
};
using AccessList = std::vector<AccessEntry>;

inline void AppendLittleEndian(std::string& bytes, std::uint32_t value, int count) {
  for (int i = 0; i < count; ++i) bytes += static_cast<char>(value >> (8 * i));
}

/// False, with errno, where the file system does not support lists.
inline bool SetAccessList(const std::string& path, const char* type, const AccessList& list) {
  std::string bytes;
  AppendLittleEndian(bytes, 2, 4);
  for (const AccessEntry& entry : list) {
    AppendLittleEndian(bytes, entry.tag, 2);
    AppendLittleEndian(bytes, entry.permissions, 2);
    AppendLittleEndian(bytes, entry.id, 4);
  }
  return ::setxattr(path.c_str(), type, bytes.data(), bytes.size(), 0) == 0;
}

/// The bytes of the list; empty if there is none.
inline std::string GetAccessList(const std::string& path, const char* type) {
  char bytes[1024];
  const ssize_t size = ::getxattr(path.c_str(), type, bytes, sizeof bytes);
  return size > 0 ? std::string(bytes, static_cast<std::size_t>(size)) : std::string();
}

}  // namespace OruGuiBase
