#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>

namespace CryptStand {

/// Parses each PEM string once and keeps the result, a Cert or a KeyPair: reading a private key takes as long
/// as many requests, and a key that was used before signs faster. The string itself is the key of the map, so
/// a result is never out of date. One thread at a time.
template <class T>
class ParsedTexts {
 public:
  /// Copies of a result share it. It is empty if the string cannot be parsed.
  T Get(const std::string& pem) {
    const auto found = parsed_.find(pem);
    if (found != parsed_.end()) return found->second;
    // What is in use comes back at once, so which ones are dropped does not matter.
    if (parsed_.size() >= kCapacity) parsed_.clear();
    return parsed_.emplace(pem, T::FromPEM(pem)).first->second;
  }

  /// More than the authorities, groups and rooms that a test has in use at once.
  static constexpr std::size_t kCapacity = 1024;

 private:
  std::unordered_map<std::string, T> parsed_;
};

}  // namespace CryptStand
