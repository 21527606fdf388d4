// Everything that a test may change while the servers run. One mutex guards all values, since requests read
// them on their own threads.
#include "stand/settings.h"

#include <algorithm>

namespace CryptStand {

void Settings::SetKeyServerUrls(std::vector<std::string> urls) {
  Write(keyServerUrls_, std::move(urls));
}

std::vector<std::string> Settings::GetKeyServerUrls() const {
  return Read(keyServerUrls_);
}

void Settings::SetAnnouncedUrls(std::optional<std::vector<std::string>> urls) {
  Write(announcedUrls_, std::move(urls));
}

// Both values under one lock: a change between two reads would mix them.
std::vector<std::string> Settings::GetAnnouncedUrls() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return announcedUrls_.value_or(keyServerUrls_);
}

// Only real ones: a token for an announced URL that is not real could not be redeemed anywhere.
bool Settings::IsKeyServer(const std::string& url) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::find(keyServerUrls_.begin(), keyServerUrls_.end(), url) != keyServerUrls_.end();
}

void Settings::SetStatusTimeout(std::string seconds) {
  Write(statusTimeout_, std::move(seconds));
}

std::string Settings::GetStatusTimeout() const {
  return Read(statusTimeout_);
}

void Settings::SetCertStoreText(std::optional<std::string> text) {
  Write(certStoreText_, std::move(text));
}

std::optional<std::string> Settings::GetCertStoreText() const {
  return Read(certStoreText_);
}

void Settings::SetTrustStoreText(std::optional<std::string> text) {
  Write(trustStoreText_, std::move(text));
}

std::optional<std::string> Settings::GetTrustStoreText() const {
  return Read(trustStoreText_);
}

void Settings::SetIntegrityList(IntegrityList type) {
  Write(integrityList_, type);
}

IntegrityList Settings::GetIntegrityList() const {
  return Read(integrityList_);
}

// Required headers stay: they are an option of the program and not a setting that tests change.
void Settings::Reset() {
  const std::lock_guard<std::mutex> lock(mutex_);
  announcedUrls_.reset();
  statusTimeout_ = kDefaultStatusTimeout;
  certStoreText_.reset();
  trustStoreText_.reset();
  integrityList_ = IntegrityList::Normal;
  sequencePerRequest_ = false;
  clockOffsets_.clear();
  generatedAudit_.clear();
}

void Settings::SetClockOffset(int server, std::int64_t seconds) {
  const std::lock_guard<std::mutex> lock(mutex_);
  clockOffsets_[server] = seconds;
}

std::int64_t Settings::GetClockOffset(int server) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = clockOffsets_.find(server);
  return found != clockOffsets_.end() ? found->second : 0;
}

void Settings::SetGeneratedAudit(int server, std::uint64_t count) {
  const std::lock_guard<std::mutex> lock(mutex_);
  generatedAudit_[server] = count;
}

std::uint64_t Settings::GetGeneratedAudit(int server) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = generatedAudit_.find(server);
  return found != generatedAudit_.end() ? found->second : 0;
}

}  // namespace CryptStand
