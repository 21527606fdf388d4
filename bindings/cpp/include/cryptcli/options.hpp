#ifndef CRYPTCLI_OPTIONS_HPP
#define CRYPTCLI_OPTIONS_HPP

// Part of <cryptcli/cryptcli.hpp>: what a client, and what one operation may be given.

#include <chrono>
#include <cryptcli/detail/abi.hpp>
#include <cryptcli/result.hpp>
#include <cryptcli/values.hpp>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace cryptcli::inline CRYPTCLI_DETAIL_ABI {

/// A header of an HTTP message.
struct Header {
  std::string name{};
  std::string value{};
};

/// One HTTP exchange that a Transport has to carry out. Valid during the call alone.
struct HttpRequest {
  std::string_view method{};
  std::string_view url{};
  std::vector<Header> headers{};
  std::string_view body{};
  /// What connecting and the whole exchange may take; more is a timeout.
  std::chrono::milliseconds connectTimeout{};
  std::chrono::milliseconds timeout{};
};

/// What the server responded.
struct HttpResponse {
  std::uint32_t status = 0;  ///< 100 to 999.
  std::vector<Header> headers{};
  std::string body{};  ///< At most 64 MiB.
};

/// Carries out an exchange, blocking until it has ended. Any HTTP status is a response; a failure means that
/// there was none, and its message becomes part of the operation's. It must not follow redirects. Many
/// threads call it at once. An exception of it is a failure.
///
///     .transport = [&](const cryptcli::HttpRequest& request) -> cryptcli::Result<cryptcli::HttpResponse> {
///       auto reply = tunnel.Send(request.method, request.url, request.body);
///       if (!reply) return cryptcli::Failure(cryptcli::Status::Unreachable, "the tunnel is closed");
///       return cryptcli::HttpResponse{.status = reply->status, .body = std::move(reply->body)};
///     }
using Transport = std::function<Result<HttpResponse>(const HttpRequest& request)>;

/// PEM files with which the client proves who it is to every server.
struct ClientCertificate {
  std::filesystem::path certificate{};
  /// Empty when the certificate's file holds the key, too.
  std::filesystem::path key{};
  /// Its first line is the key's password. Empty for a key without one.
  std::filesystem::path passwordFile{};
};

/// What a log gets: each level includes those before it.
enum class LogLevel : std::int32_t {
  Error = CRYPTCLI_LOG_ERROR,      ///< Reasons of failures, also of those that a later attempt makes good.
  Request = CRYPTCLI_LOG_REQUEST,  ///< A line for each request.
  Debug = CRYPTCLI_LOG_DEBUG       ///< What an operation finds, and bodies of requests and responses.
};

/// Where messages go.
struct Log {
  LogLevel level = LogLevel::Error;
  /// Called on the thread of the operation, by many threads at once. An exception of it is dropped: a log
  /// that fails does not fail the work. Empty for no log.
  std::function<void(LogLevel level, std::string_view message)> write{};
  /// Bodies carry keys, tokens and passwords and are left out unless this is set. With it the log is as
  /// secret as the keys themselves.
  bool revealSecrets = false;
};

/// What a client is made from. Only `service` has to be given.
///
///     auto client = cryptcli::Client::Create({
///         .service = "https://crypt.example.com/api",
///         .caFile = "/etc/ssl/private-ca.pem",
///         .headers = {{"Authorization", "Bearer " + token}},
///         .timeout = std::chrono::minutes(1),
///     });
struct Options {
  /// Base URL of the crypt service.
  std::string service{};
  /// PEM file of the certification authorities to trust in place of the system's.
  std::filesystem::path caFile{};
  ClientCertificate clientCertificate{};
  /// URL of a proxy for every request. Proxy variables of the environment have no effect.
  std::string proxy{};
  /// For every request to the crypt service and for no other server: the place for credentials.
  std::vector<Header> headers{};
  /// What connecting to a server may take; zero for the default of 30 s.
  std::chrono::milliseconds connectTimeout{};
  /// What one exchange with a server may take in all; zero for the default of 300 s.
  std::chrono::milliseconds timeout{};
  /// The directory below which temporary files with plain content lie, each in a directory for the owner
  /// alone. Empty for $TMPDIR or /tmp. Name a tmpfs where content must not reach a disk.
  std::filesystem::path temporaryDirectory{};
  Log log{};
  /// Takes the place of the built-in transport, whose options (caFile, clientCertificate, proxy) then have
  /// no effect. Empty for the built-in one.
  Transport transport{};
};

/// `done` of `total` bytes of the source; returns false to cancel. Called after each chunk, on the thread of
/// the operation. An exception of it cancels.
using Progress = std::function<bool(std::uint64_t done, std::uint64_t total)>;

/// What one operation may be given.
///
///     std::stop_source stop;
///     client.Decrypt("room-1", "video.p7m", "video.mp4", {
///         .progress = [&](std::uint64_t done, std::uint64_t total) { bar.Show(done, total); return true; },
///         .stop = stop.get_token(),
///     });
struct Call {
  /// What Decrypt and Rekey deliver, and Verify approves.
  Policy accept = Policy::Proven;
  Progress progress{};
  /// Cancels the operation, from any thread. It then ends with Status::Cancelled and leaves its target as it
  /// was, unless that had been delivered.
  std::stop_token stop{};
};

}  // namespace cryptcli::inline CRYPTCLI_DETAIL_ABI

#endif  // CRYPTCLI_OPTIONS_HPP
