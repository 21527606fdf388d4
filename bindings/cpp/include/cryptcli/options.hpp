#ifndef CRYPTCLI_OPTIONS_HPP
#define CRYPTCLI_OPTIONS_HPP

// Part of <cryptcli/cryptcli.hpp>: the settings of a client and of one operation.

#include <chrono>
#include <cryptcli/detail/abi.hpp>
#include <cryptcli/result.hpp>
#include <cryptcli/values.hpp>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
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

/// A request that a Transport has to send. Valid during the call.
struct HttpRequest {
  std::string_view method{};
  std::string_view url{};
  std::vector<Header> headers{};
  std::string_view body{};
  /// The time limits for connecting and for the whole exchange.
  std::chrono::milliseconds connectTimeout{};
  std::chrono::milliseconds timeout{};
};

/// The response of a server.
struct HttpResponse {
  std::uint32_t status = 0;  ///< 100 to 999.
  std::vector<Header> headers{};
  std::string body{};  ///< At most 64 MiB.
};

/// Carries out one exchange: sends the request, waits for the response and returns it, whatever its HTTP
/// status. A failure means that there was no response; its message becomes a part of the operation's. With
/// Status::Timeout that is a timeout, with Status::Cancelled it cancels the operation, and with any other one
/// the server is unreachable. The message of an exception becomes a part as well. It must send the URL
/// unchanged, must not follow redirects, returns the headers of the response ("Date", for one, is needed),
/// and is called on several threads at once.
///
///     .transport = [&](const cryptcli::HttpRequest& request) -> cryptcli::Result<cryptcli::HttpResponse> {
///       auto reply = tunnel.Send(request.method, request.url, request.body);
///       if (!reply) return cryptcli::Failure(cryptcli::Status::Unreachable, "the tunnel is closed");
///       return cryptcli::HttpResponse{reply->status, reply->headers, reply->body};
///     }
using Transport = std::function<Result<HttpResponse>(const HttpRequest& request)>;

/// The PEM files of the client certificate. They are read when the client is made.
struct ClientCertificate {
  std::filesystem::path certificate{};
  /// Empty if the first file holds the key as well.
  std::filesystem::path key{};
  /// Its first line is the password of the key; it has at most 64 KiB. Empty for a key without one.
  std::filesystem::path passwordFile{};
};

/// Which messages a log receives. Each level includes those before it.
enum class LogLevel : std::int32_t {
  Error = CRYPTCLI_LOG_ERROR,  ///< The reason of each failure, also of one that a later attempt makes good.
  Request = CRYPTCLI_LOG_REQUEST,  ///< A line for each request.
  Debug = CRYPTCLI_LOG_DEBUG       ///< What a signature says, and the bodies of requests and responses.
};

/// A callable that receives messages.
///
///     .log = {
///         .level = cryptcli::LogLevel::Request,
///         .write = [&](cryptcli::LogLevel, std::string_view line) { syslog.Write(line); },
///     }
struct Log {
  LogLevel level = LogLevel::Error;
  /// Called on the thread of the operation, so on several at once. Its exceptions are dropped: a log that
  /// fails does not fail an operation. Empty for no log.
  std::function<void(LogLevel level, std::string_view message)> write{};
  /// Bodies contain keys, tokens and passwords: they are left out unless this is true. Then the log is as
  /// secret as the keys themselves.
  bool revealSecrets = false;
};

/// The settings of a client. Only `service` is needed.
///
///     auto client = cryptcli::Client::Create({
///         .service = "https://crypt.example.com/api",
///         .caFile = "/etc/ssl/private-ca.pem",
///         .headers = {{"Authorization", "Bearer " + token}},
///         .timeout = std::chrono::minutes(1),
///     });
struct Options {
  /// The base URL of the crypt service.
  std::string service{};
  /// The PEM file of the certification authorities to trust instead of the system's.
  std::filesystem::path caFile{};
  ClientCertificate clientCertificate{};
  /// The URL of a proxy for every request: http or https, without a user name. Proxy variables of the
  /// environment have no effect.
  std::string proxy{};
  /// Added to every request to the crypt service and to no other server: for credentials.
  std::vector<Header> headers{};
  /// The time limit for connecting to a server; zero for the default, 30 seconds.
  std::chrono::milliseconds connectTimeout{};
  /// The time limit for one exchange with a server; zero for the default, 300 seconds.
  std::chrono::milliseconds timeout{};
  /// The directory for temporary files, some of which contain plain content. Only their owner can read them.
  /// Empty for TMPDIR, or /tmp. Choose a tmpfs if content must not be written to a disk.
  std::filesystem::path temporaryDirectory{};
  Log log{};
  /// Used instead of the built-in transport; caFile, clientCertificate and proxy then have no effect. Empty
  /// for the built-in one.
  Transport transport{};
};

/// Called after each chunk, on the thread of the operation, with the progress in bytes of the source. Returns
/// true to continue and false to cancel. An exception cancels as well.
using Progress = std::function<bool(std::uint64_t done, std::uint64_t total)>;

/// The settings of one operation.
///
///     std::stop_source stop;
///     client.Decrypt("room-1", "video.p7m", "video.mp4", {
///         .progress = [&](std::uint64_t done, std::uint64_t total) { bar.Show(done, total); return true; },
///         .stop = stop.get_token(),
///     });
struct Call {
  /// The policy of Decrypt, Verify and Rekey.
  Policy accept = Policy::Proven;
  /// The room that the file has to be for, as the crypt service spells it; without one, any room that the
  /// crypt service names. Under every policy it is OriginNotProven if the crypt service names another room or
  /// an examined signer signed for another one; without a report where it is the file to be made by Encrypt
  /// or Rekey that would be for another room. A name that is empty is refused: it is more likely a setting
  /// that is missing.
  std::optional<std::string> expectedRoom{};
  Progress progress{};
  /// A stop request, from any thread, cancels the operation. It ends with Status::Cancelled and leaves its
  /// target unchanged, unless it was complete.
  std::stop_token stop{};
};

}  // namespace cryptcli::inline CRYPTCLI_DETAIL_ABI

#endif  // CRYPTCLI_OPTIONS_HPP
