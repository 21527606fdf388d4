// HTTP/1.0 and 1.1 on one accepted connection, parsed and written by Boost.Beast over our own blocking
// stream. Faults need more control than a finished server offers: replies cut at a byte, wrong lengths, no
// date.
#include "stand/http_connection.h"

#include <algorithm>
#include <array>
#include <boost/asio/write.hpp>
#include <boost/beast/core/buffers_prefix.hpp>
#include <boost/beast/core/buffers_range.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http.hpp>
#include <cerrno>

#include "stand/socket.h"

namespace CryptStand {
namespace {

namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace net = boost::asio;
using boost::system::error_code;
using Parser = http::request_parser<http::string_body>;

constexpr std::uint64_t kMaxBody = 16U << 20U;  // a request with thousands of certificates is smaller
constexpr std::uint32_t kMaxHead = 64U << 10U;  // request line and headers
// Size of the read buffer: chunk extensions and trailers have to fit as well.
constexpr std::size_t kMaxBuffered = std::size_t{2} * kMaxHead;
constexpr std::size_t kReadSize = 16U << 10U;  // about a record of TLS
// How much of a refused request is read and dropped, so that the client gets to read its response.
constexpr std::size_t kMaxDropped = 64U << 20U;

// The connection as Beast sees a stream: it reads and writes some bytes, with an error code or by throwing.
class Stream {
 public:
  Stream(int socket, int timeoutMs) : bytes_(socket, timeoutMs) {}

  ConnectionStream& Bytes() { return bytes_; }

  template <class Buffers>
  std::size_t read_some(const Buffers& buffers, error_code& error) {
    error = {};
    for (const net::mutable_buffer buffer : beast::buffers_range_ref(buffers)) {
      if (buffer.size() == 0) continue;
      const ssize_t count = bytes_.Read(buffer.data(), buffer.size());
      if (count == 0) error = net::error::eof;
      return Count(count, error);
    }
    return 0;
  }

  template <class Buffers>
  std::size_t write_some(const Buffers& buffers, error_code& error) {
    error = {};
    std::array<iovec, 16> parts = {};
    std::size_t count = 0;
    for (const net::const_buffer buffer : beast::buffers_range_ref(buffers)) {
      if (count == parts.size()) break;
      if (buffer.size() != 0) parts[count++] = {const_cast<void*>(buffer.data()), buffer.size()};
    }
    return count == 0 ? 0 : Count(bytes_.Write(parts.data(), count), error);
  }

  template <class Buffers>
  std::size_t read_some(const Buffers& buffers) {
    error_code error;
    const std::size_t count = read_some(buffers, error);
    if (error) throw boost::system::system_error(error);
    return count;
  }

  template <class Buffers>
  std::size_t write_some(const Buffers& buffers) {
    error_code error;
    const std::size_t count = write_some(buffers, error);
    if (error) throw boost::system::system_error(error);
    return count;
  }

 private:
  static std::size_t Count(ssize_t count, error_code& error) {
    if (count < 0) error = error_code(errno, boost::system::system_category());
    return count < 0 ? 0 : static_cast<std::size_t>(count);
  }

  ConnectionStream bytes_;
};

template <class View>
std::string Text(const View& view) {
  return {view.data(), view.size()};
}

HttpRequest ReadRequest(Parser::value_type from) {
  HttpRequest request = {Text(from.method_string()), Text(from.target()), std::move(from.body()), {}, {}};
  for (const auto& field : from) request.headers.emplace_back(Text(field.name_string()), Text(field.value()));
  return request;
}

// The status for a request that could not be read; 0 when the client is gone and nobody waits for one.
int StatusOf(const error_code& error, const Parser& parser) {
  const bool isParsed = error.category() == http::make_error_code(http::error::bad_method).category();
  if (error == http::error::end_of_stream) return 0;
  if (error == http::error::body_limit) return 413;
  if (error == http::error::header_limit) return parser.get().target().empty() ? 414 : 431;
  if (error == boost::system::errc::timed_out) return 408;
  return isParsed ? 400 : 0;
}

bool IsServed(http::verb method) {
  constexpr http::verb kServed[] = {http::verb::get,    http::verb::head,  http::verb::post,
                                    http::verb::put,    http::verb::patch, http::verb::delete_,
                                    http::verb::options};
  return std::find(std::begin(kServed), std::end(kServed), method) != std::end(kServed);
}

// A header with a line break would be read as two headers (response splitting), so it is left out.
bool IsOneLine(const std::string& text) {
  return text.find_first_of("\r\n") == std::string::npos;
}

// What the framing of a response depends on (RFC 9112, 6).
struct Framing {
  explicit Framing(const Parser& parser)
      : version(parser.get().version()),
        isHead(parser.get().method() == http::verb::head),
        isKept(parser.keep_alive()) {}

  unsigned version;
  bool isHead;
  bool isKept;
};

class Connection {
 public:
  Connection(int socket, const ConnectionSetup& setup, ConnectionState& state)
      : stream_(socket, setup.timeouts.transferMs), setup_(setup), state_(state) {}

  void Serve() {
    if (!Secure()) return;
    while (!setup_.stop.stop_requested() && WaitForRequest() && ServeOne()) {
    }
    if (!isCut_) stream_.Bytes().EndWriting();
  }

 private:
  bool Secure();
  bool WaitForRequest();
  bool ServeOne();
  HttpReply Handle(Parser& parser);
  void ReadHead(Parser& parser, error_code& error);
  void Fill(Parser& parser, error_code& error);
  void ReadBody(Parser& parser, error_code& error);
  bool Respond(HttpReply reply, Framing framing);
  bool SendHead(const HttpReply& reply, const Framing& framing, bool hasBody);
  bool SendChunks(const BodySource& next, std::optional<std::size_t> left, bool isChunked);
  bool SendSlowly(const net::const_buffer& body, int msPerByte);
  BodySource Trickle(const HttpReply& reply);
  void Refuse(int status);
  template <class Buffers>
  bool Send(const Buffers& buffers) {
    error_code error;
    net::write(stream_, buffers, error);
    if (error) isCut_ = true;
    return !error;
  }

  Stream stream_;
  const ConnectionSetup& setup_;
  ConnectionState& state_;
  bool isCut_ = false;                       // the client must not see an orderly end
  beast::flat_buffer buffer_{kMaxBuffered};  // what has come of the next requests
};

bool Connection::Secure() {
  if (!setup_.tls.getContext) return true;
  // A client that leaves before the first byte is no failure: programs find out in this way whether a port is
  // open.
  if (!stream_.Bytes().WaitForFirstByte()) return false;
  const TlsContext context = setup_.tls.getContext();
  std::string error;
  if (!context.IsEmpty() && stream_.Bytes().Secure(context, error)) return true;
  if (setup_.tls.onFailure && !setup_.stop.stop_requested()) setup_.tls.onFailure(error);
  return false;
}

bool Connection::WaitForRequest() {
  state_.isIdle = true;
  const bool found =
      !state_.isLast && (buffer_.size() > 0 || stream_.Bytes().WaitForData(setup_.timeouts.idleMs));
  state_.isIdle = false;
  return found;
}

// False when the connection is to be closed.
bool Connection::ServeOne() {
  Parser parser;
  parser.header_limit(kMaxHead);
  parser.body_limit(kMaxBody);
  error_code error;
  ReadHead(parser, error);
  if (!error) ReadBody(parser, error);
  if (error) {
    const int status = StatusOf(error, parser);
    if (status != 0) Refuse(status);
    return false;
  }
  // Taken before release(), which moves the request out of the parser.
  const Framing framing(parser);
  // RFC 9110, 15.6.2: a method that the server does not know.
  HttpReply reply;
  reply.status = 501;
  if (IsServed(parser.get().method())) reply = Handle(parser);
  return Respond(std::move(reply), framing);
}

HttpReply Connection::Handle(Parser& parser) {
  HttpRequest request = ReadRequest(parser.release());
  request.peer = stream_.Bytes().GetPeerSubject();
  request.pause = [this](int milliseconds) { return stream_.Bytes().PauseForClient(milliseconds); };
  return setup_.handler(request, setup_.stop);
}

// The parser limits the bytes of one call; this limits their sum, since many short headers take as much
// memory as a long one.
void Connection::ReadHead(Parser& parser, error_code& error) {
  std::size_t size = 0;
  while (!error && !parser.is_header_done()) {
    const std::size_t used = parser.put(buffer_.data(), error);
    buffer_.consume(used);
    size += used;
    const bool isMoreNeeded = error == http::error::need_more;
    if (isMoreNeeded) error = {};
    if (!error && size > kMaxHead) error = http::error::header_limit;
    if (isMoreNeeded && !error) Fill(parser, error);
  }
}

void Connection::Fill(Parser& parser, error_code& error) {
  buffer_.commit(stream_.read_some(buffer_.prepare(kReadSize), error));
  if (error != net::error::eof) return;
  error = http::error::end_of_stream;
  if (parser.got_some()) parser.put_eof(error);
}

void Connection::ReadBody(Parser& parser, error_code& error) {
  if (parser.is_done()) return;
  const auto expected = parser.get().find(http::field::expect);
  if (expected != parser.get().end() && beast::iequals(expected->value(), "100-continue")) {
    http::response<http::empty_body> interim(http::status::continue_, 11);
    http::write(stream_, interim, error);
  }
  if (!error) http::read(stream_, buffer_, parser, error);
}

bool Connection::Respond(HttpReply reply, Framing framing) {
  isCut_ = reply.cutAfter.has_value() || reply.isDropped;
  if (reply.isDropped) return false;
  const bool isInterim = reply.status < 200;  // nothing final follows, so the connection has to end
  const bool hasBody = !isInterim && reply.status != 204 && reply.status != 304;
  // HTTP/1.0 has no chunks: there the end of the connection ends a body of unknown length.
  const bool isChunked = reply.openBody && framing.version >= 11;
  if (isInterim || (reply.openBody && !isChunked)) framing.isKept = false;
  if (!SendHead(reply, framing, hasBody)) return false;
  const bool isKept = framing.isKept && !reply.cutAfter.has_value() && !reply.isLast;
  if (!hasBody || framing.isHead) return isKept;
  if (reply.openBody) {
    const BodySource source = reply.msPerByte > 0 ? Trickle(reply) : reply.openBody();
    return SendChunks(source, reply.cutAfter, isChunked) && isKept;
  }
  const std::size_t size = std::min(reply.cutAfter.value_or(reply.body.size()), reply.body.size());
  const auto body = net::buffer(reply.body.data(), size);
  return (reply.msPerByte > 0 ? SendSlowly(body, reply.msPerByte) : Send(body)) && isKept;
}

bool Connection::SendSlowly(const net::const_buffer& body, int msPerByte) {
  const char* const data = static_cast<const char*>(body.data());
  for (std::size_t i = 0; i < body.size(); ++i) {
    if (!stream_.Bytes().Pause(msPerByte) || !Send(net::buffer(data + i, 1))) return false;
  }
  return true;
}

// The streamed body in chunks of one byte. After the end of the connection it goes on without pauses, until
// the next chunk cannot be sent.
BodySource Connection::Trickle(const HttpReply& reply) {
  return [this, next = reply.openBody(), msPerByte = reply.msPerByte, chunk = std::string(),
          place = std::size_t{0}]() mutable -> std::string {
    if (place == chunk.size()) {
      chunk = next();
      place = 0;
    }
    if (chunk.empty()) return {};
    stream_.Bytes().Pause(msPerByte);
    return {chunk[place++]};
  };
}

bool Connection::SendHead(const HttpReply& reply, const Framing& framing, bool hasBody) {
  http::response<http::empty_body> head;
  head.version(framing.version);
  head.result(static_cast<unsigned>(reply.status));
  for (const auto& [name, value] : reply.headers) {
    if (IsOneLine(name) && IsOneLine(value)) head.insert(name, value);
  }
  if (hasBody) {
    if (IsOneLine(reply.contentType)) head.set(http::field::content_type, reply.contentType);
    if (!reply.openBody) head.content_length(reply.body.size());
    if (reply.openBody && framing.version >= 11) head.chunked(true);
  }
  head.keep_alive(framing.isKept);
  http::response_serializer<http::empty_body> serializer(head);
  error_code error;
  http::write_header(stream_, serializer, error);
  return !error;
}

// A cut comes inside a chunk whose full size was announced, so that the client sees an incomplete body.
bool Connection::SendChunks(const BodySource& next, std::optional<std::size_t> left, bool isChunked) {
  for (std::string chunk = next(); !chunk.empty(); chunk = next()) {
    const auto body = net::buffer(chunk);
    const std::size_t size = std::min(left.value_or(body.size()), body.size());
    const std::size_t framing = isChunked ? net::buffer_size(http::chunk_header(body.size())) : 0;
    const bool isCut = left.has_value() && *left <= body.size();
    if (isCut && isChunked) Send(beast::buffers_prefix(framing + size, http::make_chunk(body)));
    if (isCut && !isChunked) Send(net::buffer(body, size));
    if (isCut || !(isChunked ? Send(http::make_chunk(body)) : Send(body))) return false;
    if (left.has_value()) *left -= size;
  }
  return !left.has_value() && (!isChunked || Send(http::make_chunk_last()));
}

// Reads the rest of the request before the connection is closed: closing with unread bytes sends a reset, and
// the client might lose the response.
void Connection::Refuse(int status) {
  http::response<http::empty_body> response(static_cast<http::status>(status), 11);
  response.content_length(0);
  response.keep_alive(false);
  error_code error;
  http::write(stream_, response, error);
  if (error) return;
  stream_.Bytes().EndWriting();
  stream_.Bytes().Drain(kMaxDropped);
}

}  // namespace

void ServeConnection(int socket, const ConnectionSetup& setup, ConnectionState& state) noexcept {
  try {
    Connection(socket, setup, state).Serve();
  } catch (...) {
    // The client sees its connection end; the server goes on.
  }
}

}  // namespace CryptStand
