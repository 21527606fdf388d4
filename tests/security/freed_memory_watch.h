#pragma once

#include <string>
#include <vector>

namespace SecurityTest {

/// Watches the blocks that OpenSSL frees during the life of the object: none may have one of the secrets in
/// it.
class FreedMemoryWatch {
 public:
  explicit FreedMemoryWatch(std::vector<std::string> secrets);
  ~FreedMemoryWatch();
  FreedMemoryWatch(const FreedMemoryWatch&) = delete;
  FreedMemoryWatch& operator=(const FreedMemoryWatch&) = delete;

  /// How many blocks were freed, and how many of them had a secret in them.
  unsigned GetFreed() const;
  unsigned GetLeaks() const;
};

}  // namespace SecurityTest
