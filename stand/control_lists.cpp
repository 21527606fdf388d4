// The certificate lists of the control interface, and the authorities in them. Tests replace a list to see a
// client refuse what it does not trust, and renew an authority to see it accept what was signed before.
#include <utility>

#include "stand/control_json.h"
#include "stand/control_routes.h"

namespace CryptStand {
namespace {

constexpr std::pair<const char*, IntegrityList> kIntegrityLists[] = {
    {"normal", IntegrityList::Normal},
    {"empty", IntegrityList::Empty},
    {"upper-case", IntegrityList::UpperCase},
    {"without-ours", IntegrityList::WithoutOurs},
    {"other-types", IntegrityList::OtherTypes}};

constexpr std::pair<const char*, Role> kRenewable[] = {
    {"intermediate", Role::Intermediate}, {"issuing", Role::Issuing}, {"inner-signing", Role::InnerSigning}};

template <class Table>
std::vector<std::string> NamesIn(const Table& table) {
  std::vector<std::string> names;
  for (const auto& [name, value] : table) names.emplace_back(name);
  return names;
}

// The real certificates are shown also while a test has another string returned instead of them.
Val ListVal(const std::vector<Cert>& certificates, const std::optional<std::string>& instead) {
  OruGuiBase::Array<Val> list;
  for (const Cert& certificate : certificates) list.Append(CertificateVal(certificate));
  KVMap object;
  object.Set("certificates", Val(list));
  object.Set("replacedBy", instead.has_value() ? PrintableVal(*instead) : Val());
  return Val(object);
}

HttpReply ServeLists(ControlCall& call) {
  return JsonReply(ListsVal(call.environment).AsMap());
}

// Null brings a real list back, so a member that is missing has to be distinguished from it.
HttpReply SetLists(ControlCall& call) {
  Settings& settings = call.GetRealm().settings;
  const auto certStore = call.input.ReadStringOrNull("certstore");
  const auto trustStore = call.input.ReadStringOrNull("truststore");
  const std::string integrity = call.input.ReadChoice("integrity", NamesIn(kIntegrityLists));
  if (call.input.GetError().has_value()) return ErrorReply(*call.input.GetError());
  if (call.input.Has("certstore")) settings.SetCertStoreText(certStore);
  if (call.input.Has("truststore")) settings.SetTrustStoreText(trustStore);
  for (const auto& [name, list] : kIntegrityLists) {
    if (integrity == name) settings.SetIntegrityList(list);
  }
  return ServeLists(call);
}

HttpReply Renew(ControlCall& call) {
  const std::string name = call.input.ReadChoice("authority", NamesIn(kRenewable));
  if (call.input.GetError().has_value()) return ErrorReply(*call.input.GetError());
  for (const auto& [known, role] : kRenewable) {
    if (name != known) continue;
    if (!call.GetRealm().authority.Renew(role)) return CannotStore();
    KVMap reply;
    reply.Set("certificate", CertificateVal(call.GetRealm().authority.Get(role).certificate));
    return JsonReply(reply);
  }
  return CannotStore();
}

}  // namespace

// As key servers return them (KeyServer::ServeList): roots and intermediates in one list, trusted issuers in
// the other.
Val ListsVal(Environment& environment) {
  Realm& realm = environment.GetRealm();
  auto certStore = realm.authority.GetCertificates(Role::Root);
  const auto intermediate = realm.authority.GetCertificates(Role::Intermediate);
  certStore.insert(certStore.end(), intermediate.begin(), intermediate.end());
  const auto trustStore = realm.authority.GetCertificates(Role::Issuing);
  KVMap object;
  object.Set("certstore", ListVal(certStore, realm.settings.GetCertStoreText()));
  object.Set("truststore", ListVal(trustStore, realm.settings.GetTrustStoreText()));
  for (const auto& [name, list] : kIntegrityLists) {
    if (realm.settings.GetIntegrityList() == list) object.Set("integrity", TextVal(name));
  }
  return Val(object);
}

std::vector<ControlRoute> ListRoutes() {
  return {
      {"GET", "/stand/v1/lists", "the certificate lists of the key servers", {}, ServeLists},
      {"PUT",
       "/stand/v1/lists",
       "replaces lists; members that are left out stay as they are",
       {{"certstore", "what key servers return as this list; null for the real one"},
        {"truststore", "the same for the trusted authorities"},
        {"integrity", "list of integrity digests: normal, empty, upper-case, without-ours or other-types"}},
       SetLists},
      {"POST",
       "/stand/v1/authorities/renew",
       "a new certificate for the same key; the former ones stay in the lists",
       {{"authority", "intermediate, issuing or inner-signing", true}},
       Renew}};
}

}  // namespace CryptStand
