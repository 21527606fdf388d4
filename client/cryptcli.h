#pragma once

#include <cstdint>

#include "client/export.h"
#include "exchange/icryptclienthttp.h"
#include "exchange/keyservercursor.h"
#include "foundation/ansistr.h"
#include "foundation/array.h"
#include "foundation/blob.h"
#include "foundation/datetime.h"
#include "foundation/file.h"
#include "foundation/kvmap.h"
#include "foundation/queue.h"
#include "foundation/val.h"
#include "roomkeys/integritykey.h"
#include "roomkeys/roomkey.h"
#include "security/isignhash.h"

namespace OruOssSec {
class CertStore;
class CMSKeyTransRecipient;
class CMSMsg;
class CMSSigner;
}  // namespace OruOssSec

namespace OruKalvix {

enum class KeyServerCommand : std::uint32_t;
struct KeyServerRequest;
template <class Signature>
class FunctionRef;

/// The end-to-end protection of stored files, for one task against one room, group or signed object.
///
/// An object is made, configured, asked to do one or a few things, and destroyed. It serves one thread at a
/// time; any number may work side by side on threads of their own. Public operations report by a bool and
/// leave the reason of a failure in GetErrorMessage(); no exception leaves them.
class CryptClient final : public OruOssSec::ISignHash {
 public:
  /// `http` is the way to the network, referenced for the object's life; null is accepted, and every exchange
  /// then fails. `serviceUrl` is the base URL of the crypt service. `auxiliaryName` is held and has no
  /// effect. `room` is the room to work for.
  CRYPTCLI_EXPORT CryptClient(ICryptClientHttp* http, const OruGuiBase::AnsiStr& serviceUrl,
                              const OruGuiBase::AnsiStr& auxiliaryName,
                              const OruGuiBase::AnsiStr& room) noexcept;
  CRYPTCLI_EXPORT ~CryptClient();
  CryptClient(const CryptClient&) = delete;
  CryptClient& operator=(const CryptClient&) = delete;

  // ---- Set-up and state (client/cryptclient.cpp)

  /// Replaces the key servers: URLs, each a string value. The sweep starts anew at the process's present
  /// base.
  CRYPTCLI_EXPORT void SetKeyServer(const OruGuiBase::Array<OruGuiBase::Val>& servers) noexcept;
  /// Seconds, as decimal text, that a status probe may take; the empty text means no limit. A text that is no
  /// number leaves the old value and records "Invalid timeout value [%s]".
  CRYPTCLI_EXPORT void SetStatusTimeout(const OruGuiBase::AnsiStr& seconds) noexcept;
  /// A text that goes with each request for an authorization token; empty for none.
  CRYPTCLI_EXPORT void SetTransaction(const OruGuiBase::AnsiStr& transaction) noexcept;
  /// Whether the crypt service's latest answer asked for authentication by certificate.
  CRYPTCLI_EXPORT bool GetCertAuth() const noexcept;
  /// The text of the latest failure. A success does not clear it, so it is read only after a failure. The
  /// reference is valid until the next failure or the end of the object.
  CRYPTCLI_EXPORT const OruGuiBase::AnsiStr& GetErrorMessage() const noexcept;

  /// The map by which a key is named: "type" "handle", "id", "subId".
  CRYPTCLI_EXPORT static OruGuiBase::KVMap GetKeyHandle(const OruGuiBase::AnsiStr& id,
                                                        const OruGuiBase::AnsiStr& subId) noexcept;

  // ---- Files (protection/)

  /// Protects `source` for the room and writes `target`, making the room's key when it has none. Memory does
  /// not depend on the size; a temporary file takes the signed content. `source` is only read, to its end
  /// before `target` is touched, so both may be one file; but a disk that fills up while `target` is written
  /// then leaves neither form whole. `keyErrorFlag` is set to false first; it becomes true for one refusal of
  /// the crypt service that the application can treat on its own.
  CRYPTCLI_EXPORT bool Encrypt(const OruGuiBase::File& source, const OruGuiBase::File& target,
                               bool& keyErrorFlag) noexcept;
  /// Opens the protected file `source` and delivers its content to `target`.
  ///
  /// Read the result and both flags together. False: the content was not delivered, and if the delivery
  /// itself failed (a full disk), a part of it may lie at `target`. True: the content is there; `isSigned`
  /// tells that it carried a signature, `isVerified` that its origin is proven. A true result with `isSigned`
  /// and without `isVerified` means that a check of the signer failed, and GetErrorMessage() tells which.
  CRYPTCLI_EXPORT bool Decrypt(const OruGuiBase::File& source, const OruGuiBase::File& target, bool& isSigned,
                               bool& isVerified) noexcept;

  // ---- Signing (protection/sign.cpp)

  /// Has a key server sign a hash with the key that `key` names. `hash` and `signature` are base64; the hash
  /// is not compared with the algorithm. `signature` is left alone on failure.
  CRYPTCLI_EXPORT bool Sign(const OruGuiBase::KVMap& key, const OruGuiBase::AnsiStr& algorithm,
                            const OruGuiBase::AnsiStr& hash, OruGuiBase::AnsiStr& signature) noexcept;
  /// Called back by the security library while Encrypt signs: has a key server sign with the group's
  /// integrity key.
  CRYPTCLI_EXPORT bool SignHash(const OruGuiBase::BlobConst& hash,
                                OruGuiBase::Blob& signature) noexcept override;

 private:
  friend class CryptClientTestPeer;

  using AnsiStr = OruGuiBase::AnsiStr;
  using Blob = OruGuiBase::Blob;
  using File = OruGuiBase::File;
  using KVMap = OruGuiBase::KVMap;
  using Recipients = OruGuiBase::PtrContainerQueue<OruOssSec::CMSKeyTransRecipient>;
  using ValArray = OruGuiBase::Array<OruGuiBase::Val>;

  // ---- Failures and rotation (client/cryptclient.cpp, client/rotation.cpp)
  void SetError(const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));
  // A type of its own, so that no text of a printf-style call is taken for a URL.
  struct HttpCall {
    const char* method;
    const AnsiStr& url;
  };
  void SetError(const HttpCall& call, const AnsiStr& message) noexcept;
  /// Records "<what>: <the current system error text>" and returns false.
  bool FailWithSystemError(const char* what) noexcept;
  static std::uint32_t* GetKeyServerBase() noexcept;
  static bool NextKeyServer(KeyServerCursor& cursor) noexcept;
  static KeyServerCursor MakeCursor(const ValArray& servers) noexcept;

  // ---- HTTP exchange (exchange/http.cpp, exchange/httpjson.cpp)
  bool HttpRequest(const char* method, const AnsiStr& url, const KVMap& headers, const AnsiStr& body,
                   const HttpOptions& options, HttpResponse& response) noexcept;
  bool HttpGet(const AnsiStr& url, const KVMap& headers, AnsiStr& body) noexcept;
  bool HttpGet(const AnsiStr& url, const KVMap& headers, AnsiStr& body, std::uint32_t timeout) noexcept;
  bool HttpPost(const AnsiStr& url, const AnsiStr& body, const KVMap& headers, AnsiStr& answer) noexcept;
  bool HttpPost(const AnsiStr& url, const AnsiStr& body, const KVMap& headers, const File& target) noexcept;
  bool HttpGetJSON(const AnsiStr& url, const KVMap& headers, KVMap& object) noexcept;
  bool HttpPostJSON(const AnsiStr& url, const KVMap& request, const KVMap& headers, KVMap& object) noexcept;
  bool HttpPostToFile(const AnsiStr& url, const KVMap& request, const KVMap& headers,
                      const AnsiStr& targetFile) noexcept;
  bool CreateRequestJSON(const KVMap& object, AnsiStr& text) noexcept;
  bool ParseResponseJSON(const AnsiStr& text, KVMap& object) noexcept;

  // ---- Key-server envelope (exchange/envelope.cpp)
  static const char* GetRequestType(KeyServerCommand command) noexcept;
  static const char* GetResponseType(KeyServerCommand command) noexcept;
  static KVMap GetStandardHeader() noexcept;
  static KVMap GetEnvelope(const KVMap& payload) noexcept;
  AnsiStr GetServerUrl(const AnsiStr& path) const noexcept;
  KVMap GetSecurityHeader() noexcept;
  bool KeyServerPost(const KVMap& envelope, KeyServerCommand command, KVMap& payload) noexcept;
  bool KeyServerCheckResponse(const KVMap& answer, KeyServerCommand command, KVMap& payload) noexcept;
  void KeyServerErrorText(std::int64_t code) noexcept;

  // ---- Key-server connection (exchange/connection.cpp, exchange/sweep.cpp)
  enum class Step { Done, NextServer, GiveUp };
  bool SweepKeyServers(FunctionRef<Step()> visit) noexcept;
  bool RunCommand(const KeyServerRequest& request, FunctionRef<bool(const KVMap& payload)> read) noexcept;
  bool KeyServerConnect() noexcept;
  void GetKeyServerTime(OruGuiBase::datetime& time) noexcept;
  bool KeyServerGetText(const AnsiStr& path, AnsiStr& text) noexcept;
  bool KeyServerGetCertStore(AnsiStr& text) noexcept;
  bool KeyServerGetTrustStore(AnsiStr& text) noexcept;

  // ---- Authorization token (exchange/token.cpp)
  AnsiStr GetServiceUrl(const AnsiStr& first, const AnsiStr& second, const AnsiStr& third,
                        const AnsiStr& fourth) noexcept;
  bool FetchAuthzToken(KeyServerCommand command, const AnsiStr& id, const KVMap& key) noexcept;

  // ---- Wrapped keys (exchange/wrappedkeys.cpp)
  bool KeyServerGenerateWrappedKey(const AnsiStr& room, const ValArray& certificates,
                                   RoomKey& roomKey) noexcept;

  // ---- Room keys (roomkeys/)
  bool FetchRoomKey(RoomKey& roomKey, bool& keyErrorFlag, const AnsiStr& issuer,
                    const AnsiStr& serial) noexcept;
  bool FetchRoomCerts(AnsiStr& room, ValArray& certificates, AnsiStr& seqnr) noexcept;
  bool UploadRoomKey(const AnsiStr& key, const AnsiStr& seqnr) noexcept;
  void TakeConfiguration(const KVMap& answer) noexcept;
  bool ValidateRoomKey(const RoomKey& roomKey) noexcept;
  bool ReadInnerSigningCertificate(const AnsiStr& data, OruOssSec::Certificate& certificate) noexcept;
  bool LoadRootsAndIntermediates(const AnsiStr& text, OruOssSec::CertStore& store) noexcept;
  bool LoadTrustedIssuers(const AnsiStr& text, OruOssSec::CertStore& store, unsigned int* count) noexcept;
  bool VerifyRoomKeyChain(const RoomKey& roomKey, const OruOssSec::Certificate& inner,
                          const OruOssSec::CertStore& store, const OruGuiBase::datetime& time) noexcept;
  bool KeyServerGetKey(const AnsiStr& id, const AnsiStr& subId, IntegrityKey& key) noexcept;
  bool ReadIntegrityKey(const KVMap& payload, const AnsiStr& id, IntegrityKey& key) noexcept;
  bool FetchIntegrityCerts(const AnsiStr& group, ValArray& certificates, const AnsiStr& digest) noexcept;

  // ---- File protection (protection/encrypt.cpp, protection/decrypt.cpp)
  bool PrepareRoomKey(RoomKey& roomKey, bool& keyErrorFlag) noexcept;
  bool CreateRoomKey(RoomKey& roomKey) noexcept;
  bool CheckOrigin(const RoomKey& roomKey) noexcept;
  KVMap GetSignedAttributes(const RoomKey& roomKey) const noexcept;
  bool WriteProtectedFile(const RoomKey& roomKey, const KVMap& attributes, const File& source,
                          const File& target) noexcept;
  bool KeyServerDecrypt(const AnsiStr& wrappedKey, const AnsiStr& encryptedData, AnsiStr& plainData) noexcept;
  bool LoadEnvelope(const File& source, OruOssSec::CMSMsg& envelope, Recipients& recipients) noexcept;
  bool FindRoomKey(const OruOssSec::CMSKeyTransRecipient& recipient, RoomKey& roomKey) noexcept;
  bool UnlockEnvelope(const OruOssSec::CMSKeyTransRecipient& recipient, const RoomKey& roomKey,
                      OruOssSec::CMSMsg& envelope) noexcept;
  bool DeliverContent(OruGuiBase::TempFile& content, const RoomKey& roomKey, const File& target,
                      bool& isSigned, bool& isVerified) noexcept;

  // ---- Signatures (protection/verify.cpp, protection/sign.cpp)
  bool LoadSignerStores(OruOssSec::CertStore& full, OruOssSec::CertStore& issuers) noexcept;
  bool DeliverSigned(OruOssSec::CMSMsg& message, const RoomKey& roomKey, const File& target,
                     bool& isVerified) noexcept;
  bool CheckSigners(const OruOssSec::CMSMsg& message, const OruOssSec::CertStore& full,
                    const OruOssSec::CertStore& issuers) noexcept;
  bool CheckSignerGroup(const OruOssSec::CMSSigner& signer) noexcept;
  bool CheckSignerChain(const OruOssSec::CMSSigner& signer, const OruOssSec::CertStore& full,
                        const OruOssSec::CertStore& issuers) noexcept;
  bool KeyServerSign(const KVMap& key, const AnsiStr& algorithm, const OruGuiBase::BlobConst& hash,
                     Blob& signature) noexcept;

  ICryptClientHttp* http;
  AnsiStr serviceUrl;
  AnsiStr auxiliaryName;
  AnsiStr room;
  AnsiStr errorMessage;
  KVMap responseHeaders;
  KeyServerCursor keyServerCursor;
  std::uint32_t statusClock = 0;
  bool certAuth = false;
  KVMap serverTimes;
  std::uint32_t statusTimeout = 0;
  AnsiStr transaction;
  AnsiStr authzToken;
  AnsiStr group;
  IntegrityKey integrityKey;
};

}  // namespace OruKalvix
