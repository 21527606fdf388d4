// What protecting and opening a file costs at least: the cryptographic arithmetic alone, and the reading and
// writing alone. file_bench compares the library with both.
#include "bench/limit.h"

#include <fcntl.h>
#include <memory>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "bench/process.h"

namespace Bench {
namespace {

// Fits into the cache of any processor, so that the arithmetic alone counts.
constexpr int kChunk = 64 * 1024;

struct Arithmetic {
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> digest{EVP_MD_CTX_new(), EVP_MD_CTX_free};
  std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> cipher{EVP_CIPHER_CTX_new(),
                                                                         EVP_CIPHER_CTX_free};
  std::vector<unsigned char> result = std::vector<unsigned char>(kChunk + EVP_MAX_BLOCK_LENGTH);

  // Which key and vector does not matter: the arithmetic takes the same time with any.
  explicit Arithmetic(int encrypt) {
    const unsigned char key[32] = {1};
    const unsigned char iv[16] = {2};
    EVP_DigestInit_ex(digest.get(), EVP_sha512(), nullptr);
    EVP_CipherInit_ex(cipher.get(), EVP_aes_256_cbc(), nullptr, key, iv, encrypt);
  }

  void Take(const std::vector<unsigned char>& chunk, int size) {
    int written = 0;
    EVP_DigestUpdate(digest.get(), chunk.data(), static_cast<std::size_t>(size));
    EVP_CipherUpdate(cipher.get(), result.data(), &written, chunk.data(), size);
  }
};

double Measure(const std::string& file, int encrypt) {
  const int handle = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (handle < 0) return -1;
  Arithmetic arithmetic(encrypt);
  std::vector<unsigned char> chunk(kChunk);
  double seconds = 0;
  // The clock runs for the arithmetic alone; ProtectTraffic measures the reading.
  for (ssize_t got; (got = ::read(handle, chunk.data(), kChunk)) > 0;) {
    const double begin = OwnCpuSeconds();
    arithmetic.Take(chunk, static_cast<int>(got));
    seconds += OwnCpuSeconds() - begin;
  }
  ::close(handle);
  return seconds;
}

bool Copy(const std::string& from, const std::string& to) {
  const int source = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  const int target = ::open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  std::vector<unsigned char> chunk(kTrafficChunk);
  struct stat status {};
  bool ok = source >= 0 && target >= 0 && ::fstat(source, &status) == 0;
  // Reserved first, as the library does.
  if (ok) ::fallocate(target, FALLOC_FL_KEEP_SIZE, 0, status.st_size);
  for (ssize_t got = 1; ok && got > 0;) {
    got = ::read(source, chunk.data(), chunk.size());
    ok = got >= 0 && ::write(target, chunk.data(), static_cast<std::size_t>(got)) == got;
  }
  if (source >= 0) ::close(source);
  if (target >= 0) ::close(target);
  return ok;
}

}  // namespace

double ProtectTraffic(const std::string& file, const std::string& between, const std::string& target) {
  const double begin = OwnCpuSeconds();
  const bool ok = Copy(file, between) && Copy(between, target) && ::unlink(between.c_str()) == 0;
  const double end = OwnCpuSeconds();
  ::unlink(target.c_str());
  return ok ? end - begin : -1;
}

double ProtectLimit(const std::string& file) {
  return Measure(file, 1);
}

double OpenLimit(const std::string& file) {
  return Measure(file, 0);
}

}  // namespace Bench
