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

/// Protects stored files end to end. One object works for one room, group or signed object.
///
/// Make an object, configure it, call one or a few operations, destroy it. One object serves one thread at a
/// time; any number of objects may work on threads of their own. A public operation returns false when it
/// fails and leaves the reason in GetErrorMessage(). No exception leaves it.
class CryptClient final : public OruOssSec::ISignHash {
 public:
  /// `http` carries out the HTTP exchanges. The object holds a reference to it for its whole life; with null
  /// every exchange fails. `serviceUrl` is the base URL of the crypt service, `room` the room to work for.
  /// `auxiliaryName` is stored and has no effect.
  CRYPTCLI_EXPORT CryptClient(ICryptClientHttp* http, const OruGuiBase::AnsiStr& serviceUrl,
                              const OruGuiBase::AnsiStr& auxiliaryName,
                              const OruGuiBase::AnsiStr& room) noexcept;
  CRYPTCLI_EXPORT ~CryptClient();
  CryptClient(const CryptClient&) = delete;
  CryptClient& operator=(const CryptClient&) = delete;

  // ---- Set-up and state (client/cryptclient.cpp)

  /// Replaces the key servers: an array of URLs, each a string value. The next command begins where the
  /// rotation of the whole process stands now.
  CRYPTCLI_EXPORT void SetKeyServer(const OruGuiBase::Array<OruGuiBase::Val>& servers) noexcept;
  /// How many seconds a status probe may take, as a decimal number; the empty string means no limit. A string
  /// that is not a number leaves the old value and records "Invalid timeout value [%s]".
  CRYPTCLI_EXPORT void SetStatusTimeout(const OruGuiBase::AnsiStr& seconds) noexcept;
  /// A string that is sent with each request for an authorization token; empty for none.
  CRYPTCLI_EXPORT void SetTransaction(const OruGuiBase::AnsiStr& transaction) noexcept;
  /// Whether the crypt service's latest response asked for authentication by certificate.
  CRYPTCLI_EXPORT bool GetCertAuth() const noexcept;
  /// The message of the latest failure. A success does not clear it, so read it only after a failure. The
  /// reference is valid until the next failure or the end of the object. Where the message quotes a server,
  /// the quotation ends at the first NUL byte; percent signs in it are kept.
  CRYPTCLI_EXPORT const OruGuiBase::AnsiStr& GetErrorMessage() const noexcept;

  // ---- Operations by name (client/dispatch.cpp, client/dispatch_cases.cpp). Several threads may call at
  // once: each call makes a client of its own.

  /// The operations that have a name. "Encrypt" and "Decrypt" make and export room keys here; the file
  /// operations below cannot be called by name.
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

  /// Performs the operation that `operation` names, with or without the prefix "Crypt". Returns 0 and sets
  /// `result` to a map; or 0x80004005 with the reason in `error` and a nil `result`; or 0x80020003 for an
  /// unknown name, which `error` quotes. An argument that is missing or has the wrong type reads as empty,
  /// and the operation decides what that means. "GetAuditLog" may succeed with a message in `error`: some key
  /// servers gave no log.
  CRYPTCLI_EXPORT static std::int32_t PerformOperation(
      ICryptClientHttp* http, const OruGuiBase::AnsiStr& serviceUrl, const OruGuiBase::AnsiStr& auxiliaryName,
      const OruGuiBase::AnsiStr& operation, const OruGuiBase::KVMap& arguments, OruGuiBase::Val& result,
      OruGuiBase::AnsiStr& error) noexcept;
  /// The same for a method. A method that has nothing to report leaves `result` and `error` as they are.
  CRYPTCLI_EXPORT static bool ExecuteMethod(ICryptClientHttp* http, const OruGuiBase::AnsiStr& serviceUrl,
                                            const OruGuiBase::AnsiStr& auxiliaryName, Method method,
                                            const OruGuiBase::KVMap& arguments, OruGuiBase::KVMap& result,
                                            OruGuiBase::AnsiStr& error) noexcept;
  /// The method of a name; None for an unknown one.
  CRYPTCLI_EXPORT static Method GetMethod(const OruGuiBase::AnsiStr& operation) noexcept;
  /// The map that names a key on a key server: "type" with the value "handle", "id" and "subId".
  CRYPTCLI_EXPORT static OruGuiBase::KVMap GetKeyHandle(const OruGuiBase::AnsiStr& id,
                                                        const OruGuiBase::AnsiStr& subId) noexcept;

  // ---- Group and key store (exchange/group_commands.cpp). The first key server that accepts such a command
  // carries it out; no other one is asked.

  /// Sets up a group on the key servers. The arrays hold encoded certificates and URLs; they are sent
  /// unchanged.
  CRYPTCLI_EXPORT bool ConfigGroup(const OruGuiBase::AnsiStr& group, const OruGuiBase::AnsiStr& groupName,
                                   const OruGuiBase::AnsiStr& ownerGroup,
                                   const OruGuiBase::Array<OruGuiBase::Val>& rootCertificates,
                                   const OruGuiBase::Array<OruGuiBase::Val>& issuingCertificates,
                                   const OruGuiBase::Array<OruGuiBase::Val>& crlUrls) noexcept;
  /// Sets a new encryption certificate, given in its encoded form, for a group.
  CRYPTCLI_EXPORT bool Reencrypt(const OruGuiBase::AnsiStr& group,
                                 const OruGuiBase::AnsiStr& certificate) noexcept;
  /// Adds a key, given in its encoded form and with its password, to the group's key store.
  CRYPTCLI_EXPORT bool ImportKey(const OruGuiBase::AnsiStr& group, const OruGuiBase::AnsiStr& id,
                                 const OruGuiBase::AnsiStr& key,
                                 const OruGuiBase::AnsiStr& password) noexcept;
  /// Removes the key that the handle `key` names from the group's key store.
  CRYPTCLI_EXPORT bool DeleteKey(const OruGuiBase::AnsiStr& group, const OruGuiBase::KVMap& key) noexcept;

  // ---- Wrapped keys (exchange/wrapped_keys.cpp)

  /// Lets a key server make a room key and wrap it for the certificates, each a string. `wrappedKey` keeps
  /// its value on failure.
  CRYPTCLI_EXPORT bool CreateKey(const OruGuiBase::AnsiStr& room,
                                 const OruGuiBase::Array<OruGuiBase::Val>& certificates,
                                 OruGuiBase::AnsiStr& wrappedKey) noexcept;
  /// Lets a key server wrap existing keys again for the certificates. `keys` holds maps with "id" and "data";
  /// for each, a map with the same "id" and the new "data" is appended to `result`. The first failure ends
  /// the work; the keys done before it stay in `result`.
  CRYPTCLI_EXPORT bool UpdateKey(const OruGuiBase::AnsiStr& room,
                                 const OruGuiBase::Array<OruGuiBase::Val>& certificates,
                                 const OruGuiBase::Array<OruGuiBase::Val>& keys,
                                 OruGuiBase::Array<OruGuiBase::Val>& result) noexcept;
  /// Lets a key server unwrap private keys. Like UpdateKey, with "plain" in `result` in place of "data".
  CRYPTCLI_EXPORT bool ExportKeys(const OruGuiBase::AnsiStr& room,
                                  const OruGuiBase::Array<OruGuiBase::Val>& keys,
                                  OruGuiBase::Array<OruGuiBase::Val>& result) noexcept;

  // ---- Audit log (exchange/audit_log.cpp)

  /// Merges the group's audit logs of all key servers into one CSV file in the temporary directory. The
  /// caller owns that file, whose path is put into `fileName`. One log is enough for success: when others are
  /// missing, GetErrorMessage() says why the last one is.
  CRYPTCLI_EXPORT bool GetAuditLog(const OruGuiBase::AnsiStr& group, const OruGuiBase::AnsiStr& groupName,
                                   OruGuiBase::AnsiStr& fileName) noexcept;

  // ---- Files (protection/)

  /// Protects `source` for the room and writes the result to `target`. A room that has no key gets one.
  ///
  /// Memory use does not depend on the size of the file: a temporary file takes the signed content. `source`
  /// is read to its end before `target` is touched, so both may be the same file; a disk that fills up while
  /// `target` is written then leaves neither form whole. `keyErrorFlag` is set to false first, and to true
  /// for the one refusal of the crypt service that an application can handle by itself.
  CRYPTCLI_EXPORT bool Encrypt(const OruGuiBase::File& source, const OruGuiBase::File& target,
                               bool& keyErrorFlag) noexcept;
  /// Opens the protected file `source` and delivers its content to `target`.
  ///
  /// Read the result and both flags together.
  ///
  /// False: the content was not delivered. `target` is as it was, with one exception: when it cannot be
  /// replaced and has to be overwritten in place, a delivery that fails (a full disk) leaves a part of the
  /// content there.
  ///
  /// True: the content was delivered. `isSigned` says that it carried a signature, `isVerified` that its
  /// origin is proven. `isSigned` without `isVerified` means that a check of the signer failed;
  /// GetErrorMessage() says which one.
  CRYPTCLI_EXPORT bool Decrypt(const OruGuiBase::File& source, const OruGuiBase::File& target, bool& isSigned,
                               bool& isVerified) noexcept;

  // ---- Signing (protection/sign.cpp)

  /// Lets a key server sign a hash with the key that `key` names. `hash` and `signature` are base64. Nothing
  /// checks that the hash fits the algorithm. `signature` keeps its value on failure.
  CRYPTCLI_EXPORT bool Sign(const OruGuiBase::KVMap& key, const OruGuiBase::AnsiStr& algorithm,
                            const OruGuiBase::AnsiStr& hash, OruGuiBase::AnsiStr& signature) noexcept;
  /// The security library calls this back while Encrypt signs: a key server signs the hash with the group's
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
  /// What the visit of one key server means for the sweep.
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
  bool LoadRootsAndIntermediates(const AnsiStr& list, OruOssSec::CertStore& store) noexcept;
  bool LoadTrustedIssuers(const AnsiStr& list, OruOssSec::CertStore& store, unsigned int* count) noexcept;
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
  KVMap responseHeaders;  ///< of the latest successful exchange, names in lower case
  KeyServerCursor keyServerCursor;
  std::uint32_t statusClock = 0;  ///< ticks at the latest probe with a response
  bool certAuth = false;
  KVMap serverTimes;                ///< URL of a key server to its clock at its latest probe
  std::uint32_t statusTimeout = 0;  ///< milliseconds; 0 is no limit
  AnsiStr transaction;
  AnsiStr authzToken;         ///< fetched, and not yet sent
  AnsiStr group;              ///< of the room, as the crypt service's latest response named it
  IntegrityKey integrityKey;  ///< what SignHash signs with
};

}  // namespace OruKalvix
