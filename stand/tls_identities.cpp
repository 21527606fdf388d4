// The certificates that servers show and that a client may show in TLS handshakes. Stand prepares them at its
// start and asks for a context at each connection. Keys are on a curve: making one takes almost no time, and
// a handshake, of which a test run has thousands, takes less than with RSA.
#include "stand/tls_identities.h"

#include "stand/socket.h"

namespace CryptStand {
namespace {

constexpr std::time_t kDay = 86400;
constexpr std::time_t kAuthorityDays = 3650;  // ten years: longer than any folder is in use
// An authority is in the configuration of clients, so it changes as seldom as possible, and then at a start.
constexpr std::time_t kAuthorityMarginDays = 400;
// Some clients refuse servers whose certificate is valid for more than 398 days.
constexpr std::time_t kServerDays = 397;
// A certificate is replaced this long before its end: environments run for days, not for months.
constexpr std::time_t kMarginDays = 30;

constexpr const char* kServerAuthority = "TLS server authority";
constexpr const char* kClientAuthority = "TLS client authority";
constexpr const char* kClient = "TLS client";

// In OpenSSL's configuration syntax.
std::string AlternativeNames(const std::vector<std::string>& hosts) {
  std::string names = "IP:127.0.0.1,IP:::1,DNS:localhost";
  for (const std::string& host : hosts) names += (IsIpAddress(host) ? ",IP:" : ",DNS:") + host;
  return names;
}

CertSpec NamedSpec(CertSpec spec, const char* name, Validity validity) {
  spec.subject = {{"O", "Development stand"}, {"CN", name}};
  spec.validity = validity;
  return spec;
}

}  // namespace

std::optional<ServerCertificate> FindServerCertificate(std::string_view name) {
  if (name == "expired") return ServerCertificate::Expired;
  if (name == "wrong-host") return ServerCertificate::WrongHost;
  return name == "self-signed" ? std::optional(ServerCertificate::SelfSigned) : std::nullopt;
}

bool TlsIdentities::IsOver(const Cert& certificate, std::time_t margin) const {
  std::time_t end = clock_() + margin;
  return certificate.IsEmpty() || X509_cmp_time(X509_get0_notAfter(certificate.Get0()), &end) < 0;
}

// Empty when it cannot be stored: clients would have to be configured again after the next start.
Identity TlsIdentities::GetAuthority(const std::string& name) {
  auto kept = store_.GetIdentity(name);
  if (kept.has_value() && !IsOver(kept->certificate, kAuthorityMarginDays * kDay)) return *std::move(kept);
  const Validity validity = {clock_() - kDay, clock_() + kAuthorityDays * kDay};
  const Identity made = Identity::MakeRoot(
      NamedSpec(CertSpec::Authority("", /*pathLength=*/0), name.c_str(), validity), KeyPair::MakeEC());
  return store_.ReplaceIdentity(name, made) ? made : Identity();
}

bool TlsIdentities::Prepare(std::vector<std::string> hosts, std::string& error) {
  const std::lock_guard<std::mutex> lock(mutex_);
  hosts_ = std::move(hosts);
  authority_ = GetAuthority(kServerAuthority);
  if (authority_.certificate.IsEmpty()) error = "The authority of the servers' certificates cannot be stored";
  return !authority_.certificate.IsEmpty();
}

bool TlsIdentities::PrepareClient(std::string& error) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const Identity authority = GetAuthority(kClientAuthority);
  auto kept = store_.GetIdentity(kClient);
  // A new authority needs a new client, too.
  const bool isUsable =
      kept.has_value() && !IsOver(kept->certificate, kMarginDays * kDay) &&
      X509_verify(kept->certificate.Get0(), authority.certificate.GetPublicKey().Get0()) == 1;
  if (!isUsable && !authority.certificate.IsEmpty()) {
    const Validity validity = {clock_() - kDay, clock_() + kServerDays * kDay};
    CertSpec spec = NamedSpec(CertSpec::EndEntity(""), "Client", validity);
    spec.keyUsage = "critical,digitalSignature";
    spec.extendedKeyUsage = "clientAuth";
    kept = Identity::MakeIssued(spec, authority, KeyPair::MakeEC());
    if (!store_.ReplaceIdentity(kClient, *kept)) kept = std::nullopt;
  }
  if (authority.certificate.IsEmpty() || !kept.has_value()) {
    error = "The client's certificate cannot be stored";
    return false;
  }
  client_ = *std::move(kept);
  clientAuthorities_ = authority.certificate.ToPEM();
  return true;
}

void TlsIdentities::SetClientAuthorities(std::string authorities) {
  const std::lock_guard<std::mutex> lock(mutex_);
  clientAuthorities_ = std::move(authorities);
  contexts_.clear();
}

std::string TlsIdentities::GetServerAuthority() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return authority_.certificate.ToPEM();
}

Identity TlsIdentities::GetClient() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return client_;
}

Identity TlsIdentities::MakeServer(ServerCertificate type) {
  CertSpec spec =
      NamedSpec(CertSpec::EndEntity(""), "Server", {clock_() - kDay, clock_() + kServerDays * kDay});
  if (type == ServerCertificate::Expired) spec.validity = {clock_() - 30 * kDay, clock_() - kDay};
  spec.keyUsage = "critical,digitalSignature";
  spec.extendedKeyUsage = "serverAuth";
  spec.extensions.emplace_back("subjectAltName", type == ServerCertificate::WrongHost
                                                     ? "DNS:another-host.invalid"
                                                     : AlternativeNames(hosts_));
  return type == ServerCertificate::SelfSigned ? Identity::MakeRoot(spec, KeyPair::MakeEC())
                                               : Identity::MakeIssued(spec, authority_, KeyPair::MakeEC());
}

TlsContext TlsIdentities::GetContext(int server) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto shown = shown_.find(server);
  const ServerCertificate type = shown != shown_.end() ? shown->second : ServerCertificate::Good;
  Shown& known = contexts_[type];
  // An expired one is over from the start.
  const bool isOver = type != ServerCertificate::Expired && IsOver(known.certificate, kMarginDays * kDay);
  if (known.context.IsEmpty() || isOver) {
    const Identity identity = MakeServer(type);
    std::string ignored;  // the connection ends, and the log says so
    known = {TlsContext::Make(identity, clientAuthorities_, ignored), identity.certificate};
  }
  return known.context;
}

bool TlsIdentities::Show(int server, ServerCertificate type) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(shown_[server], type) != type;
}

}  // namespace CryptStand
