#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace CryptStand {

/// The crypt service's list of a group's integrity certificates, as a test wants it.
enum class IntegrityList {
  Normal,       ///< The digests in lower case.
  Empty,        ///< No element.
  UpperCase,    ///< The digests in upper case.
  WithoutOurs,  ///< A digest of no certificate of the group.
  OtherTypes,   ///< A number, null and an object before the digests.
};

/// What tests can change while the servers run. Safe for any number of threads.
class Settings {
 public:
  /// The real URLs of the key servers, in the order of their index.
  void SetKeyServerUrls(std::vector<std::string> urls);
  std::vector<std::string> GetKeyServerUrls() const;
  /// The URLs that the crypt service returns instead of the real ones; no value restores the real ones.
  void SetAnnouncedUrls(std::optional<std::vector<std::string>> urls);
  std::vector<std::string> GetAnnouncedUrls() const;
  /// The same, but no value for the real ones.
  std::optional<std::vector<std::string>> GetAnnouncedInstead() const { return Read(announcedUrls_); }
  bool IsKeyServer(const std::string& url) const;

  /// The value of "statustimeout", in seconds; a string, as the protocol has it.
  void SetStatusTimeout(std::string seconds);
  std::string GetStatusTimeout() const;

  /// What key servers return instead of their certificate lists; none for the real lists.
  void SetCertStoreText(std::optional<std::string> text);
  std::optional<std::string> GetCertStoreText() const;
  void SetTrustStoreText(std::optional<std::string> text);
  std::optional<std::string> GetTrustStoreText() const;
  void SetIntegrityList(IntegrityList type);
  IntegrityList GetIntegrityList() const;

  /// Whether each request for a room's certificates makes the sequence numbers before it stale, so that of
  /// several clients that make a room's key at once hardly one succeeds. Otherwise only an upload does.
  void SetSequencePerRequest(bool perRequest) { Write(sequencePerRequest_, perRequest); }
  bool IsSequencePerRequest() const { return Read(sequencePerRequest_); }

  /// Headers, name and value, that each request to the crypt service needs; key servers refuse them.
  void SetRequiredHeaders(std::vector<std::pair<std::string, std::string>> headers) {
    Write(requiredHeaders_, std::move(headers));
  }
  std::vector<std::pair<std::string, std::string>> GetRequiredHeaders() const {
    return Read(requiredHeaders_);
  }

  /// Seconds by which a key server's clock is ahead.
  void SetClockOffset(int server, std::int64_t seconds);
  std::int64_t GetClockOffset(int server) const;

  /// Number of made-up records after the real ones in a key server's audit log.
  void SetGeneratedAudit(int server, std::uint64_t count);
  std::uint64_t GetGeneratedAudit(int server) const;

  /// Everything as after the start, but for the real URLs.
  void Reset();

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
  static constexpr const char* kDefaultStatusTimeout = "5";
  std::string statusTimeout_ = kDefaultStatusTimeout;
  std::vector<std::pair<std::string, std::string>> requiredHeaders_;
  std::optional<std::string> certStoreText_;
  std::optional<std::string> trustStoreText_;
  IntegrityList integrityList_ = IntegrityList::Normal;
  bool sequencePerRequest_ = false;
  std::map<int, std::int64_t> clockOffsets_;
  std::map<int, std::uint64_t> generatedAudit_;
};

}  // namespace CryptStand
