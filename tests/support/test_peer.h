#pragma once

#include <cstdint>

#include "client/cryptcli.h"

namespace OruKalvix {

/// The friend of CryptClient, for tests of what its public members neither show nor reach. Calls private
/// members and refers to private fields of a client that has to outlive it; adds no behaviour.
class CryptClientTestPeer {
 public:
  using AnsiStr = OruGuiBase::AnsiStr;
  using Blob = OruGuiBase::Blob;
  using KVMap = OruGuiBase::KVMap;
  using ValArray = OruGuiBase::Array<OruGuiBase::Val>;

  explicit CryptClientTestPeer(CryptClient& client)
      : errorMessage(client.errorMessage),
        responseHeaders(client.responseHeaders),
        keyServerCursor(client.keyServerCursor),
        statusClock(client.statusClock),
        certAuth(client.certAuth),
        serverTimes(client.serverTimes),
        statusTimeout(client.statusTimeout),
        transaction(client.transaction),
        authzToken(client.authzToken),
        group(client.group),
        integrityKey(client.integrityKey),
        client_(client) {}

  static std::uint32_t* GetKeyServerBase() { return CryptClient::GetKeyServerBase(); }
  static bool NextKeyServer(KeyServerCursor& cursor) { return CryptClient::NextKeyServer(cursor); }
  static const char* GetRequestType(KeyServerCommand c) { return CryptClient::GetRequestType(c); }
  static const char* GetResponseType(KeyServerCommand c) { return CryptClient::GetResponseType(c); }
  static KVMap GetStandardHeader() { return CryptClient::GetStandardHeader(); }
  static KVMap GetEnvelope(const KVMap& payload) { return CryptClient::GetEnvelope(payload); }

  void SetError(const AnsiStr& message) { client_.SetError("%s", message.GetText()); }
  void SetNumberedError(long number, const AnsiStr& message) {
    client_.SetError("No. %ld: %s", number, message.GetText());
  }
  /// Records a failure whose argument is the message recorded before.
  void WrapError() { client_.SetError("Could not test: %s", client_.errorMessage.GetText()); }
  void SetHttpError(const char* method, const AnsiStr& url, const AnsiStr& message) {
    client_.SetHttpError(method, url, message);
  }
  bool HttpRequest(const char* method, const AnsiStr& url, const KVMap& headers, const AnsiStr& body,
                   const HttpOptions& options, HttpResponse& response) {
    return client_.HttpRequest(method, url, headers, body, options, response);
  }
  bool HttpGet(const AnsiStr& url, const KVMap& headers, AnsiStr& body) {
    return client_.HttpGet(url, headers, body);
  }
  bool HttpGet(const AnsiStr& url, const KVMap& headers, AnsiStr& body, std::uint32_t timeout) {
    return client_.HttpGet(url, headers, body, timeout);
  }
  bool HttpPost(const AnsiStr& url, const AnsiStr& body, const KVMap& headers, AnsiStr& response) {
    return client_.HttpPost(url, body, headers, response);
  }
  bool HttpPost(const AnsiStr& url, const AnsiStr& body, const KVMap& headers,
                const OruGuiBase::File& target) {
    return client_.HttpPost(url, body, headers, target);
  }
  bool HttpGetJSON(const AnsiStr& url, const KVMap& headers, KVMap& object) {
    return client_.HttpGetJSON(url, headers, object);
  }
  bool HttpPostJSON(const AnsiStr& url, const KVMap& request, const KVMap& headers, KVMap& object) {
    return client_.HttpPostJSON(url, request, headers, object);
  }
  bool HttpPostToFile(const AnsiStr& url, const KVMap& request, const KVMap& headers, const AnsiStr& file) {
    return client_.HttpPostToFile(url, request, headers, file);
  }
  bool CreateRequestJSON(const KVMap& object, AnsiStr& text) {
    return client_.CreateRequestJSON(object, text);
  }
  bool ParseResponseJSON(const AnsiStr& text, KVMap& object) {
    return client_.ParseResponseJSON(text, object);
  }
  AnsiStr GetServerUrl(const AnsiStr& path) const { return client_.GetServerUrl(path); }
  KVMap GetSecurityHeader() { return client_.GetSecurityHeader(); }
  bool KeyServerPost(const KVMap& envelope, KeyServerCommand command, KVMap& payload) {
    return client_.KeyServerPost(envelope, command, payload);
  }
  bool KeyServerCheckResponse(const KVMap& response, KeyServerCommand command, KVMap& payload) {
    return client_.KeyServerCheckResponse(response, command, payload);
  }
  void KeyServerErrorText(std::int64_t code) { client_.KeyServerErrorText(code); }
  bool KeyServerConnect() { return client_.KeyServerConnect(); }
  void GetKeyServerTime(OruGuiBase::datetime& time) { client_.GetKeyServerTime(time); }
  bool KeyServerGetText(const AnsiStr& path, AnsiStr& text) { return client_.KeyServerGetText(path, text); }
  bool KeyServerGetCertStore(AnsiStr& text) { return client_.KeyServerGetCertStore(text); }
  bool KeyServerGetTrustStore(AnsiStr& text) { return client_.KeyServerGetTrustStore(text); }
  AnsiStr GetServiceUrl(const AnsiStr& first, const AnsiStr& second, const AnsiStr& third,
                        const AnsiStr& fourth) {
    return client_.GetServiceUrl(first, second, third, fourth);
  }
  bool FetchAuthzToken(KeyServerCommand command, const AnsiStr& id, const KVMap& key) {
    return client_.FetchAuthzToken(command, id, key);
  }
  bool KeyServerGenerateWrappedKey(const AnsiStr& room, const ValArray& certificates, RoomKey& roomKey) {
    return client_.KeyServerGenerateWrappedKey(room, certificates, roomKey);
  }
  bool FetchRoomKey(RoomKey& roomKey, bool& flag, const AnsiStr& issuer, const AnsiStr& serial) {
    return client_.FetchRoomKey(roomKey, flag, issuer, serial);
  }
  bool FetchRoomCerts(AnsiStr& room, ValArray& certificates, AnsiStr& seqnr) {
    return client_.FetchRoomCerts(room, certificates, seqnr);
  }
  bool UploadRoomKey(const AnsiStr& key, const AnsiStr& seqnr) { return client_.UploadRoomKey(key, seqnr); }
  bool ValidateRoomKey(const RoomKey& roomKey) { return client_.ValidateRoomKey(roomKey); }
  bool KeyServerGetKey(const AnsiStr& id, const AnsiStr& subId, IntegrityKey& key) {
    return client_.KeyServerGetKey(id, subId, key);
  }
  bool FetchIntegrityCerts(const AnsiStr& owner, ValArray& certificates, const AnsiStr& digest) {
    return client_.FetchIntegrityCerts(owner, certificates, digest);
  }
  bool RequireUrlRoomAndGroup(const RoomKey& roomKey) { return client_.RequireUrlRoomAndGroup(roomKey); }
  KVMap GetSignedAttributes(const RoomKey& roomKey) const { return client_.GetSignedAttributes(roomKey); }
  bool CheckSigners(const OruOssSec::CMSMsg& message, const OruOssSec::CertStore& full,
                    const OruOssSec::CertStore& issuers) {
    return client_.CheckSigners(message, full, issuers);
  }
  bool CheckSignerGroup(const OruOssSec::CMSSigner& signer) { return client_.CheckSignerGroup(signer); }
  bool KeyServerDecrypt(const AnsiStr& wrappedKey, const AnsiStr& encrypted, AnsiStr& plain) {
    return client_.KeyServerDecrypt(wrappedKey, encrypted, plain);
  }
  bool KeyServerSign(const KVMap& key, const AnsiStr& algorithm, const OruGuiBase::BlobConst& hash,
                     Blob& signature) {
    return client_.KeyServerSign(key, algorithm, hash, signature);
  }

  AnsiStr& errorMessage;
  KVMap& responseHeaders;
  KeyServerCursor& keyServerCursor;
  std::uint32_t& statusClock;
  bool& certAuth;
  KVMap& serverTimes;
  std::uint32_t& statusTimeout;
  AnsiStr& transaction;
  AnsiStr& authzToken;
  AnsiStr& group;
  IntegrityKey& integrityKey;

 private:
  CryptClient& client_;
};

}  // namespace OruKalvix
