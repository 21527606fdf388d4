// The functions of the named operations, called through the table in dispatch.cpp. Each reads its arguments,
// makes a client for this call alone, and turns what the client hands out into a map. The order in which
// arguments are read is part of what callers see, since the trace reports each one that is missing.
#include "client/dispatch.h"
#include "client/result_codes.h"

using OruGuiBase::Val;

namespace OruKalvix {

std::int32_t CryptClient::Dispatcher::ConfigGroup() noexcept {
  const Common common = ReadCommon();
  const AnsiStr transaction = arguments.String("transaction");
  const AnsiStr group = arguments.String("group");
  const AnsiStr groupName = arguments.String("groupname");
  const AnsiStr ownerGroup = arguments.String("ownergroup");
  const ValArray roots = arguments.List("authnrootcerts");
  const ValArray issuers = arguments.List("authnissuingcerts");
  const ValArray crlUrls = arguments.List("authncrlurls");
  CryptClient client(http, serviceUrl, auxiliaryName, group);
  Configure(client, common);
  client.SetTransaction(transaction);
  return Finish(client, client.ConfigGroup(group, groupName, ownerGroup, roots, issuers, crlUrls), KVMap());
}

std::int32_t CryptClient::Dispatcher::Reencrypt() noexcept {
  const Common common = ReadCommon();
  const AnsiStr transaction = arguments.String("transaction");
  const AnsiStr group = arguments.String("group");
  const AnsiStr certificate = arguments.String("enccert");
  CryptClient client(http, serviceUrl, auxiliaryName, group);
  Configure(client, common);
  client.SetTransaction(transaction);
  return Finish(client, client.Reencrypt(group, certificate), KVMap());
}

// The one operation that can succeed with an error message: some key servers gave no log. Any older message
// of this client, such as that of a bad status timeout, counts as such a reason too.
std::int32_t CryptClient::Dispatcher::GetAuditLog() noexcept {
  const Common common = ReadCommon();
  const AnsiStr group = arguments.String("group");
  const AnsiStr groupName = arguments.String("groupname");
  CryptClient client(http, serviceUrl, auxiliaryName, group);
  Configure(client, common);
  AnsiStr fileName;
  const bool done = client.GetAuditLog(group, groupName, fileName);
  error = client.GetErrorMessage();
  if (!done) return kFailed;
  KVMap results;
  results.Put("filename", fileName);
  result = results;
  if (!error.IsEmpty()) {
    client.SetError("Could not get audit log from all key servers: %s", error.GetText());
    error = client.GetErrorMessage();
  }
  return kSuccess;
}

// Wraps the given keys again and, on request, makes a new one. When a key cannot be wrapped, the operation
// fails. When the new key cannot be made, the operation succeeds without it: the wrapped keys are worth
// having.
std::int32_t CryptClient::Dispatcher::Update() noexcept {
  const Common common = ReadCommon();
  const AnsiStr room = arguments.String("room");
  const AnsiStr seqnr = arguments.String("seqnr");
  const ValArray certificates = arguments.List("certificates");
  CryptClient client(http, serviceUrl, auxiliaryName, room);
  Configure(client, common);
  KVMap results;
  results.Put("room", room);
  results.Put("seqnr", seqnr);
  const ValArray keys = arguments.List("keys");
  if (!keys.IsEmpty()) {
    ValArray updated;
    if (!client.UpdateKey(room, certificates, keys, updated)) return Finish(client, /*done=*/false, results);
    results.Put("keys", Val(updated));
  }
  if (arguments.Flag("newkey")) {
    AnsiStr newKey;
    const bool isMade = client.CreateKey(room, certificates, newKey);
    if (isMade) results.Put("newkey", newKey);
  }
  return Finish(client, /*done=*/true, results);
}

std::int32_t CryptClient::Dispatcher::ImportKey() noexcept {
  const Common common = ReadCommon();
  const AnsiStr transaction = arguments.String("transaction");
  const AnsiStr group = arguments.String("group");
  const AnsiStr id = arguments.String("id");
  const AnsiStr key = arguments.String("key");
  const AnsiStr password = arguments.String("password");
  CryptClient client(http, serviceUrl, auxiliaryName, group);
  Configure(client, common);
  client.SetTransaction(transaction);
  return Finish(client, client.ImportKey(group, id, key, password), KVMap());
}

std::int32_t CryptClient::Dispatcher::DeleteKey() noexcept {
  const Common common = ReadCommon();
  const AnsiStr transaction = arguments.String("transaction");
  const AnsiStr group = arguments.String("group");
  const KVMap key = arguments.Object("key");
  CryptClient client(http, serviceUrl, auxiliaryName, group);
  Configure(client, common);
  client.SetTransaction(transaction);
  return Finish(client, client.DeleteKey(group, key), KVMap());
}

// The key may come as a map or as id and sub-id. The map wins unless it is empty.
std::int32_t CryptClient::Dispatcher::SignByKey() noexcept {
  const Common common = ReadCommon();
  const AnsiStr transaction = arguments.String("transaction");
  const AnsiStr object = arguments.String("object");
  KVMap key = arguments.Object("key");
  const AnsiStr id = arguments.String("id");
  const AnsiStr subId = arguments.String("subid");
  const AnsiStr algorithm = arguments.String("algorithm");
  const AnsiStr hash = arguments.String("hash");
  CryptClient client(http, serviceUrl, auxiliaryName, object);
  Configure(client, common);
  client.SetTransaction(transaction);
  if (key.IsEmpty()) key = GetKeyHandle(id, subId);
  AnsiStr signature;
  const bool done = client.Sign(key, algorithm, hash, signature);
  KVMap results;
  results.Put("signature", signature);
  return Finish(client, done, results);
}

// Called by the name "Encrypt". Room and sequence number are handed back as they came.
std::int32_t CryptClient::Dispatcher::CreateKey() noexcept {
  const Common common = ReadCommon();
  const AnsiStr room = arguments.String("room");
  const AnsiStr seqnr = arguments.String("seqnr");
  const ValArray certificates = arguments.List("certificates");
  const AnsiStr transaction = arguments.String("transaction");
  CryptClient client(http, serviceUrl, auxiliaryName, room);
  Configure(client, common);
  client.SetTransaction(transaction);
  AnsiStr newKey;
  const bool done = client.CreateKey(room, certificates, newKey);
  KVMap results;
  results.Put("room", room);
  results.Put("seqnr", seqnr);
  results.Put("newkey", newKey);
  return Finish(client, done, results);
}

// Called by the name "Decrypt". Takes no transaction, unlike "Encrypt".
std::int32_t CryptClient::Dispatcher::ExportKeys() noexcept {
  const Common common = ReadCommon();
  const AnsiStr room = arguments.String("room");
  const AnsiStr seqnr = arguments.String("seqnr");
  const ValArray keys = arguments.List("keys");
  CryptClient client(http, serviceUrl, auxiliaryName, room);
  Configure(client, common);
  ValArray exported;
  const bool done = client.ExportKeys(room, keys, exported);
  KVMap results;
  results.Put("room", room);
  results.Put("seqnr", seqnr);
  results.Put("keys", Val(exported));
  return Finish(client, done, results);
}

}  // namespace OruKalvix
