#include "security/cms/decrypting.h"

#include <algorithm>

#include "security/failure.h"

namespace OruOssSec {

namespace {

// Decrypts a run straight into the sink's room, no more at a time than fills it.
bool DecryptRun(EVP_CIPHER_CTX* context, BerSpan run, IContentSink& sink) noexcept {
  while (run.size > 0) {
    const std::uint32_t size = std::min(run.size, sink.GetMissing());
    int made = 0;
    if (EVP_DecryptUpdate(context, sink.GetRoom(), &made, run.data, static_cast<int>(size)) != 1) {
      return FailWith(kCouldNotDecrypt);
    }
    if (!sink.Commit(static_cast<std::uint32_t>(made))) return false;
    run = {run.data + size, run.size - size};
  }
  return true;
}

bool DecryptLast(EVP_CIPHER_CTX* context, IContentSink& sink) noexcept {
  int made = 0;
  if (EVP_DecryptFinal_ex(context, sink.GetRoom(), &made) != 1) return FailWith(kCouldNotDecrypt);
  return sink.Commit(static_cast<std::uint32_t>(made)) && sink.Finish();
}

}  // namespace

bool DecryptContent(const LoadedMessage& message, EVP_CIPHER_CTX* context, IContentSink& sink) noexcept {
  const BerOctets& octets = message.skeleton.content;
  BerContent content(*message.source, octets);
  if (!sink.Begin(octets.length)) return false;
  BerSpan run;
  do {
    if (!content.Next(run) || !DecryptRun(context, run, sink)) return false;
  } while (run.size > 0);
  return DecryptLast(context, sink);
}

}  // namespace OruOssSec
