#pragma once

#include <cstddef>
#include <memory>
#include <openssl/bio.h>
#include <string>
#include <string_view>

// OpenSSL reads and writes encoded values through BIOs. Here they are strings on our side.
namespace CryptStand {

using BioPtr = std::unique_ptr<BIO, decltype(&BIO_free_all)>;

/// A BIO that reads the bytes, which must outlive it.
inline BioPtr Source(std::string_view bytes) {
  return {BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())), BIO_free_all};
}

/// A BIO that collects what is written to it.
inline BioPtr Sink() {
  return {BIO_new(BIO_s_mem()), BIO_free_all};
}

/// What a Sink() has collected.
inline std::string Contents(BIO* sink) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(sink, &data);
  return size > 0 ? std::string(data, static_cast<std::size_t>(size)) : std::string();
}

/// What `write`, which returns 1 on success as OpenSSL does, puts into a BIO; empty when it fails.
template <class Writer>
std::string Written(const Writer& write) {
  const BioPtr sink = Sink();
  return sink != nullptr && write(sink.get()) == 1 ? Contents(sink.get()) : std::string();
}

/// The bytes as OpenSSL takes them.
inline const unsigned char* Bytes(std::string_view bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

}  // namespace CryptStand
