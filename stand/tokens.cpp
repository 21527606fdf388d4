// Authorization tokens: issued by the crypt service, redeemed once by a key server. Both run in this process,
// so no signature is needed to trust one.
#include "stand/tokens.h"

#include <algorithm>
#include <openssl/rand.h>

#include "stand/cert_maker.h"

namespace CryptStand {
namespace {

// Number of tokens at which expired ones are dropped first, so that a long run needs bounded memory.
constexpr std::size_t kDropExpiredAt = 4096;

std::string RandomToken() {
  unsigned char bytes[24];  // three bytes for four characters of base64: no padding
  if (RAND_bytes(bytes, sizeof bytes) != 1) return {};
  return ToBase64({reinterpret_cast<const char*>(bytes), sizeof bytes});
}

}  // namespace

Tokens::Tokens() : dropAt_(kDropExpiredAt) {}

std::string Tokens::Issue(const TokenClaim& claim) {
  std::string token = RandomToken();
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto now = Clock::now();
  if (entries_.size() >= dropAt_) DropExpired(now);
  if (!token.empty()) entries_[token] = {claim, now + lifetime_};
  return token;
}

std::optional<TokenClaim> Tokens::Redeem(const std::string& token, const std::string& server,
                                         const std::string& operation, std::string& reason) {
  const std::lock_guard<std::mutex> lock(mutex_);
  // Removed whatever follows: a token that was tried in the wrong place is used up as well.
  const auto found = entries_.extract(token);
  if (found.empty()) {
    reason = "token unknown or used";
  } else if (found.mapped().expires <= Clock::now()) {
    reason = "token expired";
  } else if (found.mapped().claim.server != server) {
    reason = "token for another key server";
  } else if (found.mapped().claim.operation != operation) {
    reason = "token for another operation";
  } else {
    return found.mapped().claim;
  }
  return std::nullopt;
}

std::string Tokens::FindId(const std::string& token) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = entries_.find(token);
  return found != entries_.end() ? found->second.claim.id : "";
}

void Tokens::SetLifetime(std::chrono::milliseconds lifetime) {
  const std::lock_guard<std::mutex> lock(mutex_);
  lifetime_ = lifetime;
}

std::chrono::milliseconds Tokens::GetLifetime() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return lifetime_;
}

void Tokens::Reset() {
  const std::lock_guard<std::mutex> lock(mutex_);
  entries_.clear();
  lifetime_ = kUsualLifetime;
}

// The next time comes when there are twice as many as are good now. At a fixed number, each further token
// would look through all of them as soon as that many are good.
void Tokens::DropExpired(Clock::time_point now) {
  std::erase_if(entries_, [now](const auto& entry) { return entry.second.expires <= now; });
  dropAt_ = std::max(kDropExpiredAt, 2 * entries_.size());
}

}  // namespace CryptStand
