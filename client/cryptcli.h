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

  /// Replaces the key servers: URLs, each a string value. The sweep starts again at the process's present
  /// base.
  CRYPTCLI_EXPORT void SetKeyServer(const OruGuiBase::Array<OruGuiBase::Val>& servers) noexcept;
  /// Seconds, as decimal text, that a status probe may take; the empty text means no limit. A text that is no
  /// number leaves the old value and records "Invalid timeout value [%s]".
  CRYPTCLI_EXPORT void SetStatusTimeout(const OruGuiBase::AnsiStr& seconds) noexcept;
  /// A text that goes with each request for an authorization token; empty for none.
  CRYPTCLI_EXPORT void SetTransaction(const OruGuiBase::AnsiStr& transaction) noexcept;
  /// Whether the crypt service's latest response asked for authentication by certificate.
  CRYPTCLI_EXPORT bool GetCertAuth() const noexcept;
  /// The text of the latest failure. A success does not clear it, so it is read only after a failure. The
  /// reference is valid until the next failure or the end of the object. A server's text that it quotes ends
  /// at a NUL byte; per-cent signs in it stand as they are.
  CRYPTCLI_EXPORT const OruGuiBase::AnsiStr& GetErrorMessage() const noexcept;

  // ---- Generic entry (client/dispatch.cpp, client/dispatch_cases.cpp): an operation by its name. Any thread
  // may call, several at once: each call has a client of its own.

  /// The operations that have a name. The key operations "Encrypt" and "Decrypt" make and export room keys;
  /// the file operations below have no name here.
  enum class Method : std::int32_t {
    None = 0,
    ConfigGroup = 1,
    Reencrypt = 2,
    GetAuditLog = 3,
    Update = 4,
    ImportKey = 5,
    DeleteKey = 6,
    SignByKey = 7,
    Encrypt = 8,
    Decrypt = 9,
  };

  /// Performs the operation that `operation` names, with or without the prefix "Crypt". Returns 0 and a map
  /// in `result`; or 0x80004005, the reason in `error` and a nil `result`; or 0x80020003 for an unknown name,
  /// which `error` then quotes. A missing or ill-typed argument reads as empty, and the operation decides
  /// what that means. After "GetAuditLog" a text in `error` beside a result tells that some key servers gave
  /// no log.
  CRYPTCLI_EXPORT static std::int32_t PerformOperation(
      ICryptClientHttp* http, const OruGuiBase::AnsiStr& serviceUrl, const OruGuiBase::AnsiStr& auxiliaryName,
      const OruGuiBase::AnsiStr& operation, const OruGuiBase::KVMap& arguments, OruGuiBase::Val& result,
      OruGuiBase::AnsiStr& error) noexcept;
  /// The same for a method. `result` and `error` are left alone unless the method has something to put there.
  CRYPTCLI_EXPORT static bool ExecuteMethod(ICryptClientHttp* http, const OruGuiBase::AnsiStr& serviceUrl,
                                            const OruGuiBase::AnsiStr& auxiliaryName, Method method,
                                            const OruGuiBase::KVMap& arguments, OruGuiBase::KVMap& result,
                                            OruGuiBase::AnsiStr& error) noexcept;
  /// The method of a name; None for an unknown one.
  CRYPTCLI_EXPORT static Method GetMethod(const OruGuiBase::AnsiStr& operation) noexcept;
  /// The map by which a key is named: "type" "handle", "id", "subId".
  CRYPTCLI_EXPORT static OruGuiBase::KVMap GetKeyHandle(const OruGuiBase::AnsiStr& id,
                                                        const OruGuiBase::AnsiStr& subId) noexcept;

  // ---- Group and key store (exchange/group_commands.cpp): commands that the first key server to answer well
  // carries out.

  /// Sets up a group on the key servers. The arrays hold certificates and URLs as text and go out as they
  /// are.
  CRYPTCLI_EXPORT bool ConfigGroup(const OruGuiBase::AnsiStr& group, const OruGuiBase::AnsiStr& groupName,
                                   const OruGuiBase::AnsiStr& ownerGroup,
                                   const OruGuiBase::Array<OruGuiBase::Val>& rootCertificates,
                                   const OruGuiBase::Array<OruGuiBase::Val>& issuingCertificates,
                                   const OruGuiBase::Array<OruGuiBase::Val>& crlUrls) noexcept;
  /// Names a new encryption certificate, given as text, for a group.
  CRYPTCLI_EXPORT bool Reencrypt(const OruGuiBase::AnsiStr& group,
                                 const OruGuiBase::AnsiStr& certificate) noexcept;
  /// Brings a key, given as text with its password, into the group's key store.
  CRYPTCLI_EXPORT bool ImportKey(const OruGuiBase::AnsiStr& group, const OruGuiBase::AnsiStr& id,
                                 const OruGuiBase::AnsiStr& key,
                                 const OruGuiBase::AnsiStr& password) noexcept;
  /// Removes the key that the handle `key` names from the group's key store.
  CRYPTCLI_EXPORT bool DeleteKey(const OruGuiBase::AnsiStr& group, const OruGuiBase::KVMap& key) noexcept;

  // ---- Wrapped keys (exchange/wrapped_keys.cpp)

  /// Has a room key made and wrapped for the certificates, each a text. `wrappedKey` is left alone on
  /// failure.
  CRYPTCLI_EXPORT bool CreateKey(const OruGuiBase::AnsiStr& room,
                                 const OruGuiBase::Array<OruGuiBase::Val>& certificates,
                                 OruGuiBase::AnsiStr& wrappedKey) noexcept;
  /// Has wrapped keys, maps with "id" and "data", wrapped again for the certificates, and appends maps with
  /// the same "id" and the new "data" to `result`. A failure ends the work and leaves what was done before in
  /// `result`.
  CRYPTCLI_EXPORT bool UpdateKey(const OruGuiBase::AnsiStr& room,
                                 const OruGuiBase::Array<OruGuiBase::Val>& certificates,
                                 const OruGuiBase::Array<OruGuiBase::Val>& keys,
                                 OruGuiBase::Array<OruGuiBase::Val>& result) noexcept;
  /// Has the private keys taken out of wrapped ones: as UpdateKey, with "plain" in place of "data".
  CRYPTCLI_EXPORT bool ExportKeys(const OruGuiBase::AnsiStr& room,
                                  const OruGuiBase::Array<OruGuiBase::Val>& keys,
                                  OruGuiBase::Array<OruGuiBase::Val>& result) noexcept;

  // ---- Audit log (exchange/audit_log.cpp)

  /// Merges the group's audit logs of all key servers into one CSV file in the temporary directory and gives
  /// its name. True with some servers' logs missing is possible: GetErrorMessage() then tells the last one's
  /// reason.
  CRYPTCLI_EXPORT bool GetAuditLog(const OruGuiBase::AnsiStr& group, const OruGuiBase::AnsiStr& groupName,
                                   OruGuiBase::AnsiStr& fileName) noexcept;

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
  /// Read the result and both flags together. False: the content was not delivered; `target` is as it
  /// was, unless it cannot be replaced (OruGuiBase::FileWriter::OpenDraft) and the delivery itself failed (a
  /// full disk), which leaves a part of the content there. True: the content is there; `isSigned` tells that
  /// it carried a signature, `isVerified` that its origin is proven. A true result with `isSigned` and
  /// without `isVerified` means that a check of the signer failed, and GetErrorMessage() tells which.
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
  struct Dispatcher;

  using AnsiStr = OruGuiBase::AnsiStr;
  using Blob = OruGuiBase::Blob;
  using File = OruGuiBase::File;
  using KVMap = OruGuiBase::KVMap;
  using Recipients = OruGuiBase::PtrContainerQueue<OruOssSec::CMSKeyTransRecipient>;
  using ValArray = OruGuiBase::Array<OruGuiBase::Val>;

  // ---- Failures and rotation (client/cryptclient.cpp, client/rotation.cpp)
  void SetError(const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));
  /// The same, and returns false.
  bool Fail(const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));
  /// Records the message of a failed exchange as it stands; the trace names the exchange too.
  void SetHttpError(const char* method, const AnsiStr& url, const AnsiStr& message) noexcept;
  /// Records "<what>: <the current system error text>" and returns false.
  bool FailWithSystemError(const char* what) noexcept;
  static std::uint32_t* GetKeyServerBase() noexcept;
  static bool NextKeyServer(KeyServerCursor& cursor) noexcept;
  static KeyServerCursor MakeCursor(const ValArray& servers) noexcept;

  // ---- HTTP exchange (exchange/http.cpp, exchange/http_json.cpp)
  bool HttpRequest(const char* method, const AnsiStr& url, const KVMap& headers, const AnsiStr& body,
                   const HttpOptions& options, HttpResponse& response) noexcept;
  bool HttpGet(const AnsiStr& url, const KVMap& headers, AnsiStr& body) noexcept;
  bool HttpGet(const AnsiStr& url, const KVMap& headers, AnsiStr& body, std::uint32_t timeout) noexcept;
  bool HttpPost(const AnsiStr& url, const AnsiStr& body, const KVMap& headers,
                AnsiStr& responseBody) noexcept;
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
  bool KeyServerCheckResponse(const KVMap& response, KeyServerCommand command, KVMap& payload) noexcept;
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

  // ---- Wrapped keys (exchange/wrapped_keys.cpp)
  bool KeyServerGenerateWrappedKey(const AnsiStr& room, const ValArray& certificates,
                                   RoomKey& roomKey) noexcept;
  bool KeyServerModifyWrappedKey(const AnsiStr& room, const ValArray& certificates, const AnsiStr& wrappedKey,
                                 AnsiStr& newWrappedKey) noexcept;
  bool KeyServerExportWrappedKey(const AnsiStr& room, const AnsiStr& wrappedKey,
                                 AnsiStr& privateKey) noexcept;
  static bool ForEachKey(const ValArray& keys, const char* name, ValArray& result,
                         FunctionRef<bool(const AnsiStr& data, AnsiStr& outcome)> work) noexcept;

  // ---- Group and key store (exchange/group_commands.cpp)
  bool KeyServerConfigGroup(const AnsiStr& group, const AnsiStr& groupName, const AnsiStr& ownerGroup,
                            const ValArray& rootCertificates, const ValArray& issuingCertificates,
                            const ValArray& crlUrls) noexcept;
  bool KeyServerReencrypt(const AnsiStr& group, const AnsiStr& certificate) noexcept;
  bool KeyServerImportKey(const AnsiStr& group, const AnsiStr& id, const AnsiStr& key,
                          const AnsiStr& password) noexcept;
  bool KeyServerDeleteKey(const AnsiStr& group, const KVMap& key) noexcept;
  bool RunGroupCommand(const KeyServerRequest& request) noexcept;

  // ---- Audit log (exchange/audit_log.cpp)
  bool KeyServerGetAuditLog(const AnsiStr& group, const File& target) noexcept;
  Step AddAuditLogOfServer(const KVMap& envelope, const AnsiStr& group, const File& target) noexcept;
  bool CheckAuditLogResponse(const File& response) noexcept;
  void ReadAuditLogError(const File& response) noexcept;
  bool AppendAuditLog(const File& log, const File& target) noexcept;

  // ---- Room keys (roomkeys/)
  bool FetchRoomKey(RoomKey& roomKey, bool& keyErrorFlag, const AnsiStr& issuer,
                    const AnsiStr& serial) noexcept;
  bool FetchRoomCerts(AnsiStr& room, ValArray& certificates, AnsiStr& seqnr) noexcept;
  bool UploadRoomKey(const AnsiStr& key, const AnsiStr& seqnr) noexcept;
  void TakeConfiguration(const KVMap& response) noexcept;
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
  bool RequireUrlRoomAndGroup(const RoomKey& roomKey) noexcept;
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
