#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace CryptStand {

/// What a token allows: one command on one key server, for one room or group and, if it names a key, with
/// that key only.
struct TokenClaim {
  std::string server;     ///< URL of the key server.
  std::string operation;  ///< Request type name.
  std::string id;         ///< Room or group.
  std::string keyId;
  std::string keySubId;
};

/// The tokens that were issued and not yet redeemed. They are in memory alone: a restart invalidates them.
class Tokens {
 public:
  using Clock = std::chrono::steady_clock;

  Tokens();
  std::string Issue(const TokenClaim& claim);
  /// Redeems a token. It cannot be used again, whatever the result. None, with the reason in `reason`, unless
  /// it was issued for this server and operation, has not expired and was not redeemed before.
  std::optional<TokenClaim> Redeem(const std::string& token, const std::string& server,
                                   const std::string& operation, std::string& reason);
  /// The room or group that a token is for; empty for an unknown token.
  std::string FindId(const std::string& token) const;
  /// How long tokens that are issued from now on can be used.
  void SetLifetime(std::chrono::milliseconds lifetime);
  std::chrono::milliseconds GetLifetime() const;
  /// Makes all tokens invalid and restores the usual lifetime.
  void Reset();

 private:
  /// A token that was issued and not yet redeemed.
  struct Entry {
    TokenClaim claim;
    Clock::time_point expires;
  };
  void DropExpired(Clock::time_point now);

  mutable std::mutex mutex_;
  static constexpr std::chrono::milliseconds kUsualLifetime{60000};
  std::chrono::milliseconds lifetime_ = kUsualLifetime;  // guarded by mutex_
  std::map<std::string, Entry> entries_;                 // guarded by mutex_
  std::size_t dropAt_;                                   // number of entries; guarded by mutex_
};

}  // namespace CryptStand
