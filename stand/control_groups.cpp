// The groups of the control interface, with their integrity keys.
#include "stand/control_json.h"
#include "stand/control_routes.h"

namespace CryptStand {
namespace {

// From the store itself: asking Rooms would make the first key of a group.
Val IntegrityKeysVal(Realm& realm, const std::string& group) {
  OruGuiBase::Array<Val> list;
  const auto keys = realm.store.GetIntegrityKeys(group);
  for (const IntegrityKeyRecord& key : keys) {
    KVMap object;
    object.Set("subId", PrintableVal(key.subId));
    object.Set("certificate", CertificateVal(key.identity.certificate));
    object.Set("current", Val(&key == &keys.back()));
    list.Append(Val(object));
  }
  return Val(list);
}

Val GroupVal(Realm& realm, const std::string& id, const std::vector<std::string>& rooms) {
  const GroupRecord group = realm.store.GetGroup(id).value_or(GroupRecord());
  KVMap object;
  object.Set("group", PrintableVal(id));
  object.Set("name", PrintableVal(group.name));
  object.Set("rooms", TextsVal(rooms));
  object.Set("integrityKeys", IntegrityKeysVal(realm, id));
  object.Set("encryptionCertificate", CertificateVal(Cert::FromPEM(group.encryptionCertificate)));
  return Val(object);
}

HttpReply ServeGroups(ControlCall& call) {
  KVMap reply;
  reply.Set("groups", GroupsVal(call.environment));
  return JsonReply(reply);
}

// Without a configuration, which only a client's configGroupRequest sets.
HttpReply AddGroup(ControlCall& call) {
  Realm& realm = call.GetRealm();
  const std::string id = call.input.ReadString("group");
  const std::string name = call.input.ReadString("name", id);
  if (id.empty()) call.input.Refuse("group", "\"group\" must not be empty");
  if (call.input.GetError().has_value()) return ErrorReply(*call.input.GetError());
  if (realm.store.HasGroup(id)) return Conflict("group", "There is such a group already");
  return realm.store.AddGroup(id, name) ? DoneReply() : CannotStore();
}

HttpReply RenewIntegrityKey(ControlCall& call) {
  const std::string& group = call.path.front();
  if (!call.GetRealm().store.HasGroup(group)) return NotFound("There is no such group");
  return call.GetRealm().rooms.RenewIntegrityKey(group) ? DoneReply() : CannotStore();
}

}  // namespace

Val GroupsVal(Environment& environment) {
  Realm& realm = environment.GetRealm();
  const auto listings = realm.store.ListRooms();
  OruGuiBase::Array<Val> groups;
  for (const std::string& id : realm.store.GetGroups()) {
    std::vector<std::string> rooms;
    for (const RoomListing& listing : listings) {
      if (listing.room.group == id) rooms.push_back(listing.room.id);
    }
    groups.Append(GroupVal(realm, id, rooms));
  }
  return Val(groups);
}

std::vector<ControlRoute> GroupRoutes() {
  return {{"GET", "/stand/v1/groups", "all groups with their rooms and integrity keys", {}, ServeGroups},
          {"POST",
           "/stand/v1/groups",
           "adds a group",
           {{"group", "id", true}, {"name", "name; the id if left out"}},
           AddGroup},
          {"POST",
           "/stand/v1/groups/ID/integrity-key",
           "puts a new integrity key of the group into use; earlier ones stay valid",
           {},
           RenewIntegrityKey}};
}

}  // namespace CryptStand
