// The rooms of the control interface: what is known of each, new ones, their options, and the certificate
// that is shown for a room's key.
#include <algorithm>
#include <utility>

#include "stand/control_json.h"
#include "stand/control_routes.h"

namespace CryptStand {
namespace {

constexpr std::pair<const char*, RoomCertificate> kShownAs[] = {
    {"good", RoomCertificate::Good},
    {"expired", RoomCertificate::Expired},
    {"foreign", RoomCertificate::Foreign},
    {"wrong-issuer", RoomCertificate::WrongIssuer}};

std::optional<RoomCertificate> FindRoomCertificate(const std::string& name) {
  for (const auto& [known, type] : kShownAs) {
    if (name == known) return type;
  }
  return std::nullopt;
}

// The store keeps what is shown and not why, so it is found by what makes the four differ.
const char* ShownAs(Environment& environment, const Cert& shown, const Cert& good) {
  if (shown.ToDER() == good.ToDER()) return "good";
  if (shown.GetIssuer() == good.GetIssuer()) return "expired";
  const Cert issuing = environment.GetRealm().authority.Get(Role::Issuing).certificate;
  return shown.GetIssuer() == issuing.GetSubject() ? "wrong-issuer" : "foreign";
}

Val RoomVal(Environment& environment, const RoomListing& listing) {
  const Cert shown = listing.current.has_value() ? Cert::FromPEM(listing.current->certificate) : Cert();
  const auto view = listing.current.has_value() ? environment.ViewKey(listing.current->data) : std::nullopt;
  OruGuiBase::Array<Val> readers;
  for (const std::string& reader : view.value_or(Environment::KeyView()).readers) {
    readers.Append(PrintableVal(reader));
  }
  KVMap object;
  object.Set("room", TextVal(listing.room.id));
  object.Set("group", PrintableVal(listing.room.group));
  object.Set("locked", Val(listing.room.options.locked));
  object.Set("plainKey", Val(listing.room.options.plainKey));
  object.Set("certAuth", Val(listing.room.options.certAuth));
  object.Set("hasKey", Val(listing.current.has_value()));
  object.Set("keys", Val(listing.keys));
  object.Set("certificate", CertificateVal(shown));
  object.Set("shown", view.has_value() ? TextVal(ShownAs(environment, shown, view->certificate)) : Val());
  object.Set("readers", Val(readers));
  return Val(object);
}

HttpReply ServeRooms(ControlCall& call) {
  KVMap reply;
  reply.Set("rooms", RoomsVal(call.environment));
  return JsonReply(reply);
}

HttpReply ServeRoom(ControlCall& call) {
  const auto rooms = call.GetRealm().store.ListRooms(call.path.front());
  return rooms.empty() ? NotFound("There is no such room")
                       : JsonReply(RoomVal(call.environment, rooms.front()).AsMap());
}

// What can be wrong with the room itself is found before anything changes.
void CheckRoom(ControlCall& call, const std::string& room, const std::string& group) {
  const auto known = call.GetRealm().store.GetRoom(room);
  const auto groups = call.GetRealm().store.GetGroups();
  if (room.empty()) call.input.Refuse("room", "\"room\" must not be empty");
  if (!group.empty() && std::find(groups.begin(), groups.end(), group) == groups.end()) {
    call.input.Refuse("group", "There is no such group", groups);
  }
  if (!group.empty() && known.has_value() && known->group != group) {
    call.input.Refuse("group", "The room belongs to another group, which cannot be changed", {known->group});
  }
}

// A room that exists keeps what the request leaves out.
HttpReply SetRoom(ControlCall& call) {
  Realm& realm = call.GetRealm();
  const std::string room = call.input.ReadString("room");
  const std::string group = call.input.ReadString("group");
  const auto known = realm.store.GetRoom(room);
  RoomOptions options = known.has_value() ? known->options : RoomOptions();
  options.locked = call.input.ReadFlag("locked", options.locked);
  options.plainKey = call.input.ReadFlag("plainKey", options.plainKey);
  options.certAuth = call.input.ReadFlag("certAuth", options.certAuth);
  const auto shown = FindRoomCertificate(
      call.input.ReadChoice("certificate", {"good", "expired", "foreign", "wrong-issuer"}));
  CheckRoom(call, room, group);
  if (call.input.GetError().has_value()) return ErrorReply(*call.input.GetError());
  if (shown.has_value() && !realm.store.GetCurrentRoomKey(room).has_value()) {
    return Conflict("certificate", "The room has no key yet that could be shown in another way");
  }
  const bool isSet = call.environment.AddRoom(room, group) && realm.store.SetRoomOptions(room, options) &&
                     (!shown.has_value() || realm.rooms.SetRoomCertificate(room, *shown));
  if (!isSet) return CannotStore();
  const auto rooms = realm.store.ListRooms(room);
  return rooms.empty() ? CannotStore() : JsonReply(RoomVal(call.environment, rooms.front()).AsMap());
}

}  // namespace

Val RoomsVal(Environment& environment) {
  OruGuiBase::Array<Val> rooms;
  for (const RoomListing& listing : environment.GetRealm().store.ListRooms()) {
    rooms.Append(RoomVal(environment, listing));
  }
  return Val(rooms);
}

std::vector<ControlRoute> RoomRoutes() {
  return {{"GET", "/stand/v1/rooms", "all rooms with their keys", {}, ServeRooms},
          {"POST",
           "/stand/v1/rooms",
           "adds a room, or changes one; members that are left out stay as they are",
           {{"room", "id", true},
            {"group", "group of a new room; the first group if left out"},
            {"locked", "refuse the room's key"},
            {"plainKey", "return the private key unencrypted too"},
            {"certAuth", "make clients probe key servers before each command"},
            {"certificate", "how the room's key is shown: good, expired, foreign or wrong-issuer"}},
           SetRoom},
          {"GET", "/stand/v1/rooms/ROOM", "one room", {}, ServeRoom}};
}

}  // namespace CryptStand
