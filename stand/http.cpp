// Requests as handlers see them, and the server that puts listener and connections together.
#include "stand/http.h"

#include <algorithm>
#include <strings.h>

#include "stand/http_connection.h"
#include "stand/listener.h"

namespace CryptStand {
namespace {

int HexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

// Percent-encoding (RFC 3986, 2.1). No value when an escape is malformed.
std::optional<std::string> Unescape(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      plain += text[i];
      continue;
    }
    const int high = i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
    const int low = i + 2 < text.size() ? HexDigit(text[i + 2]) : -1;
    if (high < 0 || low < 0) return std::nullopt;
    plain += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return plain;
}

}  // namespace

// Names of headers have no case (RFC 9110, 5.1).
std::vector<std::string> HttpRequest::HeaderValues(std::string_view name) const {
  std::vector<std::string> values;
  for (const auto& [key, value] : headers) {
    if (key.size() == name.size() && strncasecmp(key.data(), name.data(), name.size()) == 0) {
      values.push_back(value);
    }
  }
  return values;
}

// Two headers of the type count as none: which of them to believe would be a guess.
std::string HttpRequest::ContentType() const {
  const auto types = HeaderValues("Content-Type");
  return types.size() == 1 ? types.front().substr(0, types.front().find(';')) : "";
}

// Split before unescaping: ids of rooms may contain slashes, which clients escape.
std::optional<std::vector<std::string>> HttpRequest::PathSegments() const {
  std::vector<std::string> segments;
  std::string_view path = std::string_view(target).substr(0, target.find('?'));
  if (path.starts_with('/')) path.remove_prefix(1);
  while (true) {
    const std::size_t slash = path.find('/');
    auto segment = Unescape(path.substr(0, slash));
    if (!segment.has_value()) return std::nullopt;
    segments.push_back(*std::move(segment));
    if (slash == std::string_view::npos) return segments;
    path.remove_prefix(slash + 1);
  }
}

// As forms are encoded (application/x-www-form-urlencoded). Of two members with one name neither can be
// meant.
std::optional<OruGuiBase::KVMap> HttpRequest::QueryMembers() const {
  OruGuiBase::KVMap members;
  const std::size_t mark = target.find('?');
  std::string_view query = mark == std::string::npos ? "" : std::string_view(target).substr(mark + 1);
  while (!query.empty()) {
    const std::string_view member = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(member.size() + 1, query.size()));
    const std::size_t equals = std::min(member.find('='), member.size());
    std::string text(member.substr(std::min(equals + 1, member.size())));
    std::replace(text.begin(), text.end(), '+', ' ');
    const auto name = Unescape(member.substr(0, equals));
    const auto value = Unescape(text);
    if (!name.has_value() || !value.has_value() || members.Contains(*name)) return std::nullopt;
    members.Set(OruGuiBase::AnsiStr(*name), OruGuiBase::Val(OruGuiBase::AnsiStr(*value)));
  }
  return members;
}

// Keeps the listener and its threads out of the header.
class HttpServer::Impl {
 public:
  Impl(HttpHandler handler, HttpTimeouts timeouts)
      : handler_(std::move(handler)),
        timeouts_(timeouts),
        listener_([this](int socket, const std::stop_token& stop, ConnectionState& state) {
          ServeConnection(socket, {handler_, timeouts_, tls_, stop}, state);
        }) {}

  Listener& GetListener() { return listener_; }
  void Secure(TlsSource source) { tls_ = std::move(source); }

 private:
  HttpHandler handler_;
  HttpTimeouts timeouts_;
  TlsSource tls_;
  Listener listener_;  // last, so that its threads end before what they use
};

HttpServer::HttpServer(HttpHandler handler, HttpTimeouts timeouts)
    : impl_(std::make_unique<Impl>(std::move(handler), timeouts)) {}
HttpServer::~HttpServer() = default;
void HttpServer::Secure(TlsSource source) {
  impl_->Secure(std::move(source));
}
void HttpServer::EndConnections() {
  impl_->GetListener().EndConnections();
}
bool HttpServer::Bind(const std::string& address, int port, std::string& error) {
  return impl_->GetListener().Bind(address, port, error);
}
int HttpServer::GetPort() const {
  return impl_->GetListener().GetPort();
}
bool HttpServer::Up(std::string& error) {
  return impl_->GetListener().Up(error);
}
void HttpServer::Down() {
  impl_->GetListener().Down();
}
bool HttpServer::IsUp() const {
  return impl_->GetListener().IsUp();
}

}  // namespace CryptStand
