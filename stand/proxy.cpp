// The forward proxy. It reads no more of a request than its head: what follows, TLS or not, passes unchanged.
// A request in absolute form is the only one on its connection, which saves the proxy from finding out where
// messages end.
#include "stand/proxy.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <optional>
#include <poll.h>
#include <string_view>
#include <strings.h>
#include <sys/socket.h>

#include "stand/socket.h"

namespace CryptStand {
namespace {

constexpr std::size_t kMaxRecords = 10000;         // limits the memory of a long run
constexpr std::size_t kMaxName = 255;              // longer ones are no names of hosts (RFC 1035, 2.3.4)
constexpr std::size_t kMaxProxyHead = 64U << 10U;  // what the servers behind it accept of a head
constexpr std::size_t kRelaySize = 16U << 10U;     // about a record of TLS
constexpr int kSilenceMs = 30000;                  // as long as the servers wait inside a request
constexpr int kHttpPort = 80;

// What a client asks the proxy for.
struct ProxyRequest {
  std::string method;
  std::string host;
  int port = 0;
  std::string target;   // for the server; empty for a tunnel
  std::string headers;  // lines that are for the server, each with its end
};

// "host:port", an IPv6 address in brackets; without a port it is `port`. False when it is malformed.
bool ReadAuthority(std::string_view text, ProxyRequest& request, int port) {
  const std::size_t bracket = text.starts_with('[') ? text.find(']') : 0;
  if (bracket == std::string_view::npos) return false;
  const std::size_t colon = text.find(':', bracket);
  request.host = text.substr(0, colon);
  if (bracket > 0) request.host = request.host.substr(1, bracket - 1);
  request.port = port;
  if (colon == std::string_view::npos) return port > 0 && !request.host.empty();
  const std::string_view digits = text.substr(colon + 1);
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), request.port);
  return error == std::errc() && end == digits.data() + digits.size() && request.port > 0 &&
         request.port <= 65535 && !request.host.empty();
}

// RFC 9110, 7.6.1: headers between client and proxy are not forwarded.
bool IsForProxy(std::string_view line) {
  constexpr std::string_view kNames[] = {
      "Connection:", "Proxy-Connection:", "Proxy-Authorization:", "Keep-Alive:"};
  return std::any_of(std::begin(kNames), std::end(kNames), [&](std::string_view name) {
    return line.size() >= name.size() && strncasecmp(line.data(), name.data(), name.size()) == 0;
  });
}

std::string_view TakeLine(std::string_view& text) {
  const std::size_t end = text.find("\r\n");
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(text.size(), line.size() + 2));
  return line;
}

// None when the head is malformed or names no server.
std::optional<ProxyRequest> ReadProxyRequest(std::string_view head) {
  const std::string_view first = TakeLine(head);
  const std::size_t space = first.find(' ');
  const std::size_t last = first.rfind(" HTTP/1.");
  if (space == std::string_view::npos || last == std::string_view::npos || last <= space) return std::nullopt;
  ProxyRequest request;
  request.method = first.substr(0, space);
  std::string_view target = first.substr(space + 1, last - space - 1);
  for (std::string_view line = TakeLine(head); !line.empty(); line = TakeLine(head)) {
    if (!IsForProxy(line)) request.headers.append(line).append("\r\n");
  }
  if (request.method == "CONNECT") {
    return ReadAuthority(target, request, 0) ? std::optional(request) : std::nullopt;
  }
  constexpr std::string_view kScheme = "http://";
  if (!target.starts_with(kScheme)) return std::nullopt;
  target.remove_prefix(kScheme.size());
  const std::size_t slash = std::min(target.find('/'), target.size());
  request.target = slash < target.size() ? target.substr(slash) : "/";
  return ReadAuthority(target.substr(0, slash), request, kHttpPort) ? std::optional(request) : std::nullopt;
}

// Nothing is looked up: a name could mean any machine.
std::string LoopbackAddressOf(const std::string& host) {
  if (strcasecmp(host.c_str(), "localhost") == 0) return "127.0.0.1";
  return IsLoopbackAddress(host) ? host : "";
}

const char* PhraseOf(int status) {
  switch (status) {
    case 400:
      return "Bad Request";
    case 403:
      return "Forbidden";
    case 407:
      return "Proxy Authentication Required";
    case 502:
      return "Bad Gateway";
    default:
      return "Refused";
  }
}

std::string RefusalText(int status, const std::string& reason) {
  std::string text = "HTTP/1.1 " + std::to_string(status) + " " + PhraseOf(status) + "\r\n";
  // RFC 9110, 15.5.8: it must say how a client could authenticate.
  if (status == 407) text += "Proxy-Authenticate: Basic realm=\"test environment\"\r\n";
  return text + "Content-Type: text/plain\r\nContent-Length: " + std::to_string(reason.size() + 1) +
         "\r\nConnection: close\r\n\r\n" + reason + "\n";
}

// Sends all; false when either side has ended. Looks at the client's side as well, which Down() shuts while
// the server may take nothing.
bool SendAll(int target, int client, const char* data, std::size_t size) {
  while (size > 0) {
    pollfd entries[] = {{target, POLLOUT, 0}, {client, 0, 0}};
    if (poll(entries, 2, kSilenceMs) == 0) return false;
    if (entries[1].revents != 0 && target != client) return false;
    const ssize_t count = send(target, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && errno != EAGAIN && errno != EINTR) return false;
    if (count <= 0) continue;
    data += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

}  // namespace

// One connection of a client, on its thread.
class ForwardProxy::Exchange {
 public:
  Exchange(ForwardProxy& proxy, int client, const std::stop_token& stop)
      : proxy_(proxy), client_(client), stop_(stop), stream_(client, kSilenceMs) {}

  void Run() {
    if (!ReadHead()) return;
    const auto request = ReadProxyRequest(head_);
    record_.time = std::chrono::system_clock::now();
    if (!request.has_value()) return Refuse(400, "Neither a tunnel nor an absolute http URL");
    record_.method = request->method.substr(0, kMaxName);
    record_.host = request->host.substr(0, kMaxName);
    record_.port = request->port;
    if (!ApplyFaults()) return;
    const std::string address = LoopbackAddressOf(request->host);
    if (address.empty()) return Refuse(403, "Only loopback is forwarded");
    std::string error;
    server_ = Socket::Connect(address, request->port, error);
    if (!server_.IsOpen()) return Refuse(502, error);
    Forward(*request);
  }

 private:
  // Leaves what comes after the head in `ahead_`.
  bool ReadHead() {
    std::array<char, kRelaySize> bytes;
    std::size_t end = std::string::npos;
    while ((end = head_.find("\r\n\r\n")) == std::string::npos) {
      const ssize_t count = head_.size() < kMaxProxyHead ? stream_.Read(bytes.data(), bytes.size()) : 0;
      if (count <= 0) return false;
      head_.append(bytes.data(), static_cast<std::size_t>(count));
    }
    ahead_ = head_.substr(end + 4);
    head_.resize(end + 2);
    return true;
  }

  // False when a fault has ended the exchange.
  bool ApplyFaults() {
    for (const Fault& fault : proxy_.faults_.Take(kProxy, record_.method)) {
      if (fault.type == FaultType::Slow) {
        proxy_.faults_.Delay(kProxy, fault, [&](int step) { return stream_.Pause(step); });
      }
      if (fault.type == FaultType::Status) Refuse(fault.number > 0 ? fault.number : 502, "A fault was set");
      if (fault.type == FaultType::Drop) Note(0, "dropped (fault)");
      if (fault.type == FaultType::Status || fault.type == FaultType::Drop) return false;
    }
    return true;
  }

  void Note(int status, const std::string& outcome) {
    record_.status = status;
    record_.outcome = outcome;
    proxy_.Add(record_);
  }

  void Refuse(int status, const std::string& reason) {
    // Before it is sent: a client that has its response finds the record.
    Note(status, reason);
    const std::string text = RefusalText(status, reason);
    SendAll(client_, client_, text.data(), text.size());
    stream_.EndWriting();
    stream_.Drain(kMaxProxyHead);
  }

  void Forward(const ProxyRequest& request) {
    record_.status = 200;
    record_.outcome = "open";
    number_ = proxy_.Add(record_);
    constexpr std::string_view kOpened = "HTTP/1.1 200 Connection established\r\n\r\n";
    const bool isTunnel = request.target.empty();
    const std::string head = isTunnel ? ""
                                      : request.method + " " + request.target + " HTTP/1.1\r\n" +
                                            request.headers + "Connection: close\r\n\r\n";
    if ((!isTunnel || SendAll(client_, client_, kOpened.data(), kOpened.size())) &&
        Pass(/*toServer=*/true, head + ahead_)) {
      Relay();
    }
    proxy_.Update(number_, [&](ProxyRecord& record) {
      record.outcome = "ok";
      record.duration = std::chrono::duration_cast<std::chrono::milliseconds>(
          std::chrono::system_clock::now() - record.time);
    });
  }

  // Counts before it sends: a client that has the bytes finds them in the record.
  bool Pass(bool toServer, std::string_view bytes) {
    proxy_.Update(number_, [&](ProxyRecord& record) {
      (toServer ? record.bytesToServer : record.bytesToClient) += bytes.size();
    });
    return SendAll(toServer ? server_.Get() : client_, client_, bytes.data(), bytes.size());
  }

  // Until both sides have ended, or the proxy goes down. Either side may end alone and still listen.
  void Relay() {
    std::array<char, kRelaySize> bytes;
    bool isOpen[] = {true, true};  // the client's side, the server's
    while ((isOpen[0] || isOpen[1]) && !stop_.stop_requested()) {
      // A negative descriptor is left out.
      pollfd entries[] = {{isOpen[0] ? client_ : -1, POLLIN, 0}, {isOpen[1] ? server_.Get() : -1, POLLIN, 0}};
      if (poll(entries, 2, -1) < 0 && errno != EINTR) return;
      for (const int side : {0, 1}) {
        if (entries[side].revents == 0) continue;
        const ssize_t count = recv(entries[side].fd, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (count < 0) return;
        isOpen[side] = count > 0;
        if (count == 0) shutdown(side == 0 ? server_.Get() : client_, SHUT_WR);
        if (count > 0 && !Pass(side == 0, {bytes.data(), static_cast<std::size_t>(count)})) return;
      }
      // A server that has ended its response does not need the rest of the request.
      if (!isOpen[1]) return;
    }
  }

  ForwardProxy& proxy_;
  const int client_;
  const std::stop_token& stop_;
  ConnectionStream stream_;
  Socket server_;
  std::string head_;
  std::string ahead_;
  ProxyRecord record_;
  std::uint64_t number_ = 0;
};

ForwardProxy::ForwardProxy(Faults& faults)
    : faults_(faults), listener_([this](int socket, const std::stop_token& stop, ConnectionState&) {
        try {
          Exchange(*this, socket, stop).Run();
        } catch (const std::exception&) {
          // The client sees its connection end; the proxy goes on.
        }
      }) {}

std::uint64_t ForwardProxy::Add(ProxyRecord record) {
  const std::lock_guard<std::mutex> lock(mutex_);
  record.number = ++count_;
  if (records_.size() >= kMaxRecords) records_.pop_front();
  records_.push_back(std::move(record));
  return count_;
}

// Does nothing for a record that was cleared meanwhile. Those in use are among the last.
template <class Change>
void ForwardProxy::Update(std::uint64_t number, const Change& change) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = std::find_if(records_.rbegin(), records_.rend(),
                                  [&](const ProxyRecord& record) { return record.number == number; });
  if (found != records_.rend()) change(*found);
}

std::vector<ProxyRecord> ForwardProxy::GetRecords() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return {records_.begin(), records_.end()};
}

void ForwardProxy::ClearRecords() {
  const std::lock_guard<std::mutex> lock(mutex_);
  records_.clear();
}

}  // namespace CryptStand
