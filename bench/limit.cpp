#include "bench/limit.h"

#include <fcntl.h>
#include <memory>
#include <openssl/evp.h>
#include <unistd.h>
#include <vector>

#include "bench/process.h"

namespace Bench {
namespace {

constexpr int kPiece = 64 * 1024;

struct Arithmetic {
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> digest{EVP_MD_CTX_new(), EVP_MD_CTX_free};
  std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> cipher{EVP_CIPHER_CTX_new(),
                                                                         EVP_CIPHER_CTX_free};
  std::vector<unsigned char> result = std::vector<unsigned char>(kPiece + EVP_MAX_BLOCK_LENGTH);

  explicit Arithmetic(int encrypt) {
    const unsigned char key[32] = {1};
    const unsigned char iv[16] = {2};
    EVP_DigestInit_ex(digest.get(), EVP_sha512(), nullptr);
    EVP_CipherInit_ex(cipher.get(), EVP_aes_256_cbc(), nullptr, key, iv, encrypt);
  }

  void Take(const std::vector<unsigned char>& piece, int size) {
    int written = 0;
    EVP_DigestUpdate(digest.get(), piece.data(), static_cast<std::size_t>(size));
    EVP_CipherUpdate(cipher.get(), result.data(), &written, piece.data(), size);
  }
};

double Measure(const std::string& file, int encrypt) {
  const int handle = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (handle < 0) return -1;
  Arithmetic arithmetic(encrypt);
  std::vector<unsigned char> piece(kPiece);
  double seconds = 0;
  for (ssize_t got; (got = ::read(handle, piece.data(), kPiece)) > 0;) {
    const double begin = OwnCpuSeconds();
    arithmetic.Take(piece, static_cast<int>(got));
    seconds += OwnCpuSeconds() - begin;
  }
  ::close(handle);
  return seconds;
}

}  // namespace

double ProtectLimit(const std::string& file) {
  return Measure(file, 1);
}

double OpenLimit(const std::string& file) {
  return Measure(file, 0);
}

}  // namespace Bench
