// The server's side of TLS, by OpenSSL over a BIO of our own: that of OpenSSL writes with write(), which
// raises SIGPIPE when the client has gone, and a test environment inside a test program must not end that.
// ConnectionStream uses a session once the handshake is done.
#include "stand/tls.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <sys/socket.h>

#include "stand/memory_bio.h"
#include "stand/socket.h"

namespace CryptStand {
namespace {

// The newest reason in OpenSSL's queue, which also empties it.
std::string TakeReason(const char* instead) {
  const unsigned long code = ERR_peek_last_error();
  const char* reason = code != 0 ? ERR_reason_error_string(code) : nullptr;
  ERR_clear_error();
  return reason != nullptr ? reason : instead;
}

// The names of the authorities go into the request for a certificate, from which a client with several
// certificates chooses (RFC 8446, 4.2.4).
bool AskForCertificate(SSL_CTX* context, const std::string& authorities) {
  const BioPtr source = Source(authorities);
  int count = 0;
  while (true) {
    const Cert authority(PEM_read_bio_X509(source.get(), nullptr, nullptr, nullptr));
    if (authority.IsEmpty()) break;
    if (X509_STORE_add_cert(SSL_CTX_get_cert_store(context), authority.Get0()) != 1 ||
        SSL_CTX_add_client_CA(context, authority.Get0()) != 1) {
      return false;
    }
    ++count;
  }
  ERR_clear_error();  // the end of the text is an error to the reader
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  return count > 0;
}

// A client that resumes a session does not look at the certificate again, and tests change certificates.
void ForbidResumption(SSL_CTX* context) {
  SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_options(context, SSL_OP_NO_TICKET | SSL_OP_NO_RENEGOTIATION);
  SSL_CTX_set_num_tickets(context, 0);
}

}  // namespace

TlsContext TlsContext::Make(const Identity& server, const std::string& clientAuthorities,
                            std::string& error) {
  ERR_clear_error();
  TlsContext made(SSL_CTX_new(TLS_server_method()));
  SSL_CTX* const context = made.Get0();
  if (context == nullptr || SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) != 1 ||
      SSL_CTX_use_certificate(context, server.certificate.Get0()) != 1 ||
      SSL_CTX_use_PrivateKey(context, server.key.Get0()) != 1) {
    error = "TLS: " + TakeReason("the server's certificate cannot be used");
    return {};
  }
  ForbidResumption(context);
  SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE);
  if (!clientAuthorities.empty() && !AskForCertificate(context, clientAuthorities)) {
    error = "TLS: the authorities of client certificates are not certificates in PEM";
    return {};
  }
  return made;
}

const BIO_METHOD* TlsSession::Method() {
  static const std::unique_ptr<BIO_METHOD, decltype(&BIO_meth_free)> method = [] {
    BIO_METHOD* made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "socket without signals");
    BIO_meth_set_read(made, &TlsSession::ReadSocket);
    BIO_meth_set_write(made, &TlsSession::WriteSocket);
    BIO_meth_set_ctrl(made, &TlsSession::Control);
    return std::unique_ptr<BIO_METHOD, decltype(&BIO_meth_free)>(made, BIO_meth_free);
  }();
  return method.get();
}

// Never waits: Run() does, with a limit.
int TlsSession::ReadSocket(BIO* bio, char* data, int size) {
  auto& transport = *static_cast<Transport*>(BIO_get_data(bio));
  BIO_clear_retry_flags(bio);
  const ssize_t count = recv(transport.socket, data, static_cast<std::size_t>(size), MSG_DONTWAIT);
  transport.error = count < 0 ? errno : 0;
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) BIO_set_retry_read(bio);
  return static_cast<int>(count);
}

int TlsSession::WriteSocket(BIO* bio, const char* data, int size) {
  auto& transport = *static_cast<Transport*>(BIO_get_data(bio));
  BIO_clear_retry_flags(bio);
  const ssize_t count =
      send(transport.socket, data, static_cast<std::size_t>(size), MSG_DONTWAIT | MSG_NOSIGNAL);
  transport.error = count < 0 ? errno : 0;
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) BIO_set_retry_write(bio);
  return static_cast<int>(count);
}

// Nothing is buffered, so there is nothing to flush; every other command is unknown.
long TlsSession::Control(BIO*, int command, long, void*) {
  return command == BIO_CTRL_FLUSH ? 1 : 0;
}

TlsSession::TlsSession(const TlsContext& context, int socket)
    : transport_{socket, 0}, session_(SSL_new(context.Get0()), SSL_free) {
  BIO* const bio = BIO_new(Method());
  if (session_ == nullptr || bio == nullptr) throw std::bad_alloc();
  BIO_set_data(bio, &transport_);
  BIO_set_init(bio, 1);
  SSL_set_bio(session_.get(), bio, bio);  // takes over the reference
}

// Repeats a step of OpenSSL until it is done. A step may have to read although it writes, and the reverse.
template <class Step>
ssize_t TlsSession::Run(int timeoutMs, const Step& step) {
  while (true) {
    ERR_clear_error();
    std::size_t count = 0;
    const int result = step(count);
    if (result == 1) return static_cast<ssize_t>(count);
    const int code = SSL_get_error(session_.get(), result);
    if (code == SSL_ERROR_ZERO_RETURN) return 0;
    const bool mustWait = code == SSL_ERROR_WANT_READ || code == SSL_ERROR_WANT_WRITE;
    if (mustWait && WaitForSocket(transport_.socket, code == SSL_ERROR_WANT_READ, timeoutMs)) continue;
    if (mustWait) return -1;
    if (code == SSL_ERROR_SYSCALL && transport_.error == 0) return 0;
    errno = code == SSL_ERROR_SYSCALL ? transport_.error : EPROTO;
    return -1;
  }
}

bool TlsSession::Accept(int timeoutMs, std::string& error) {
  // The limit is for the whole handshake: a client that sends a byte now and then must not keep a thread.
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (true) {
    ERR_clear_error();
    const int result = SSL_accept(session_.get());
    if (result == 1) return true;
    const int code = SSL_get_error(session_.get(), result);
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    const bool mustWait = code == SSL_ERROR_WANT_READ || code == SSL_ERROR_WANT_WRITE;
    const int wait = static_cast<int>(std::max<std::int64_t>(left.count(), 0));
    if (mustWait && WaitForSocket(transport_.socket, code == SSL_ERROR_WANT_READ, wait)) continue;
    const long verdict = SSL_get_verify_result(session_.get());
    error = TakeReason(mustWait ? "it took too long" : "the client closed the connection");
    if (verdict != X509_V_OK) error += std::string(" (") + X509_verify_cert_error_string(verdict) + ")";
    return false;
  }
}

ssize_t TlsSession::Read(void* data, std::size_t size, int timeoutMs) {
  return Run(timeoutMs, [&](std::size_t& count) { return SSL_read_ex(session_.get(), data, size, &count); });
}

ssize_t TlsSession::Write(const void* data, std::size_t size, int timeoutMs) {
  return Run(timeoutMs, [&](std::size_t& count) { return SSL_write_ex(session_.get(), data, size, &count); });
}

bool TlsSession::HasPending() const {
  return SSL_has_pending(session_.get()) == 1;
}

void TlsSession::End() {
  ERR_clear_error();
  SSL_shutdown(session_.get());
  ERR_clear_error();
}

std::string TlsSession::GetPeerSubject() const {
  return Cert(SSL_get1_peer_certificate(session_.get())).GetSubject();
}

}  // namespace CryptStand
