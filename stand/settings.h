#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace CryptStand {

/// What the crypt service answers when it is asked for a group's integrity certificates.
enum class IntegrityList {
  Normal,       ///< The digests in lower case.
  Empty,        ///< No element.
  UpperCase,    ///< The digests in upper case.
  WithoutOurs,  ///< A digest of no certificate of the group.
  OtherTypes,   ///< A number, null and an object before the digests.
};

/// What can be changed while the stand runs. Safe for any number of threads.
class Settings {
 public:
  /// The URLs that the servers really have, in the order of their index.
  void SetKeyServerUrls(std::vector<std::string> urls);
  std::vector<std::string> GetKeyServerUrls() const;
  /// The list that the crypt service hands out instead; none for the real one.
  void SetAnnouncedUrls(std::optional<std::vector<std::string>> urls);
  std::vector<std::string> GetAnnouncedUrls() const;
  bool IsKeyServer(const std::string& url) const;

  /// The text of "statustimeout", in seconds.
  void SetStatusTimeout(std::string seconds);
  std::string GetStatusTimeout() const;

  /// Texts that key servers give in place of their certificate lists; none for the real ones.
  void SetCertStoreText(std::optional<std::string> text);
  std::optional<std::string> GetCertStoreText() const;
  void SetTrustStoreText(std::optional<std::string> text);
  std::optional<std::string> GetTrustStoreText() const;
  void SetIntegrityList(IntegrityList type);
  IntegrityList GetIntegrityList() const;

  /// Seconds by which a key server's clock is ahead.
  void SetClockOffset(int server, std::int64_t seconds);
  std::int64_t GetClockOffset(int server) const;

  /// Made-up records behind the real ones in a key server's audit log.
  void SetGeneratedAudit(int server, std::uint64_t count);
  std::uint64_t GetGeneratedAudit(int server) const;

 private:
  template <class T>
  T Read(const T& value) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return value;
  }
  template <class T>
  void Write(T& target, T value) {
    const std::lock_guard<std::mutex> lock(mutex_);
    target = std::move(value);
  }

  mutable std::mutex mutex_;
  // All guarded by mutex_.
  std::vector<std::string> keyServerUrls_;
  std::optional<std::vector<std::string>> announcedUrls_;
  std::string statusTimeout_ = "5";
  std::optional<std::string> certStoreText_;
  std::optional<std::string> trustStoreText_;
  IntegrityList integrityList_ = IntegrityList::Normal;
  std::map<int, std::int64_t> clockOffsets_;
  std::map<int, std::uint64_t> generatedAudit_;
};

}  // namespace CryptStand
