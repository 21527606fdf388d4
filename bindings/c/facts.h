#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "foundation/ansistr.h"
#include "foundation/kvmap.h"

namespace CryptCliC {

/// The "errorid" of the one refusal of the crypt service that has a status of its own, CRYPTCLI_KEY_REFUSED.
inline constexpr std::string_view kKeyRefused = "QOB.1.1001.1.422645";

/// The beginning of the path of a request for a room's key, after "crypt/".
inline constexpr std::string_view kKeyPath = "key/";

/// What a signature says, as the class read it while it examined the signer.
struct SignerFacts {
  std::string group;  ///< decoded where the signature carries it in hexadecimal form
  std::string room;
  std::string roomUrl;
};

/// What one operation learned from responses and traces, besides its result.
struct Facts {
  std::vector<SignerFacts> signers;
  std::vector<std::string> chain;  ///< subjects, from the first signer up
  std::string serviceGroup;
  std::string serviceRoom;
  bool isPlainKey = false;
  bool isIncomplete = false;     ///< a fact could not be stored
  bool isKeyRefused = false;     ///< at present, with kKeyRefused
  bool isRoomDenied = false;     ///< with any other error of the crypt service
  bool isNoKeyResponse = false;  ///< it names neither a key nor a room nor a group, and refuses nothing
};

/// Whether the class would use the crypt service's "plain" as a private key. It ignores one that it cannot
/// read.
bool IsPlainKey(const OruGuiBase::AnsiStr& plain);

/// Whether an object can be the crypt service's response to the request for a room's key: it says something
/// about the room or its key, or refuses them. The object of another server has none of these members.
bool IsKeyResponse(const OruGuiBase::KVMap& response);

/// A member that is a string; empty if it is missing or of another type.
std::string MemberOf(const OruGuiBase::KVMap& object, const char* name);
/// Cuts the prefix off. False, with the string as it is, if it begins with something else.
bool TakePrefix(std::string_view& text, std::string_view prefix);

/// Reads the facts of one operation from what passes by. Used by the thread of the operation, which owns it.
class FactReader {
 public:
  const Facts& Get() const { return facts_; }
  /// The certificate in the crypt service's latest response about the room's key; empty for none.
  const std::string& GetShownCertificate() const { return shownCertificate_; }
  void StartOver() { *this = FactReader(); }

  /// Takes a response of the crypt service. `path` follows "crypt/" in the URL: "key/<room>",
  /// "certlist/<group>/integrity/sha256".
  void TakeResponse(std::string_view path, const OruGuiBase::AnsiStr& body);
  /// Takes a trace of the class about a signer; others are passed over.
  void TakeTrace(std::string_view text);
  /// Notes that a fact could not be stored.
  void MarkIncomplete() noexcept { facts_.isIncomplete = true; }

 private:
  Facts facts_;
  std::string shownCertificate_;
  std::string examinedGroup_;  ///< of the latest request for integrity certificates
};

}  // namespace CryptCliC
