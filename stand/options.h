#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace CryptStand {

/// How a Stand is set up.
struct Options {
  /// Where it keeps keys, rooms and certificates; created with mode 0700 if it does not exist. If empty, all
  /// stays in memory, and all such objects of a process share the key pairs of authorities, members and
  /// integrity keys, so that starting one takes almost no time. They accept each other's signatures.
  std::string folder;
  /// Keys of its own although everything stays in memory.
  bool ownKeys = false;
  int keyServers = 3;
  /// Port of the crypt service; the key servers take the ports after it. 0 takes any free ports.
  int port = 0;
  /// The IP address to listen on, of either version. Whoever reaches it can read the private keys: anything
  /// but loopback is for containers and isolated networks.
  std::string listen = "127.0.0.1";
  /// The host in all URLs; if empty, the address to listen on, or "localhost" when that stands for all.
  std::string announce{};
  std::string group = "QOB.1.100.1";
  std::string groupName = "Demo group";
  std::vector<std::string> rooms = {"demo"};
  /// Derives the serial numbers of certificates from this number, and starts the generator behind faults with
  /// a probability with it, so that the same requests get the same ones. Keys, signatures and tokens stay
  /// random. Without it these are random, too.
  std::optional<std::uint64_t> seed{};
  /// What changes through the control interface need; random if empty. Also written to the folder, into the
  /// file "control-token".
  std::string controlToken{};
  /// Names and IP addresses besides those of loopback under which the page and the control interface may be
  /// reached. With `tls` the servers' certificates are for them, too.
  std::vector<std::string> allowedHosts{};
  /// Gets a line for each exchange, with its secrets; see Recording. Empty for none.
  std::string recordFile{};
  /// Whether all servers speak TLS, with certificates that they make. The certificate of their authority is
  /// written to "server-ca.pem" in the folder.
  bool tls = false;
  /// The PEM file of the authorities whose certificates all servers ask clients for, or "make": that makes an
  /// authority and a client, and writes "client.pem" and "client.key" to the folder. Needs `tls`. If empty,
  /// clients need no certificate.
  std::string clientCa{};
  /// Headers, each as 'Name: value', that the crypt service requires of each request (status 401 without
  /// them) and that key servers refuse.
  std::vector<std::string> requiredHeaders{};
  /// Port of a forward proxy on 127.0.0.1, 0 for any; no value for no proxy.
  std::optional<int> proxyPort{};
};

/// Why a Stand did not start.
enum class StartFailure {
  None,
  FolderInUse,  ///< Another process or object uses it.
  Folder,       ///< It cannot be made, read or written.
  Port,         ///< A port is taken or not allowed.
  Other,
};

}  // namespace CryptStand
