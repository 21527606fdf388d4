#pragma once

#include <string>
#include <vector>

namespace SecurityTest {

/// Watches the blocks that OpenSSL frees while an object of this lives: none may hold one of the secrets.
class FreedMemoryWatch {
 public:
  explicit FreedMemoryWatch(std::vector<std::string> secrets);
  ~FreedMemoryWatch();
  FreedMemoryWatch(const FreedMemoryWatch&) = delete;
  FreedMemoryWatch& operator=(const FreedMemoryWatch&) = delete;

  /// How many blocks were freed, and how many of them held a secret.
  unsigned GetFreed() const;
  unsigned GetLeaks() const;
};

}  // namespace SecurityTest
