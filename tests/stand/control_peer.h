#pragma once

#include <string>
#include <vector>

#include "tests/stand/stand_peer.h"

namespace CryptStand {

/// Servers in memory, and somebody who has the token of their control interface.
class ControlTest : public StandTest {
 protected:
  explicit ControlTest(Options options = {}) : StandTest(std::move(options)) {}

  std::string Path(const std::string& resource) const { return Service("stand/v1/") + resource; }
  std::string Authorization() const { return "Bearer " + stand_.GetControlToken(); }
  /// Sends a change as curl does by default, with the token.
  Reply Change(const char* method, const std::string& resource, const std::string& body = "") const {
    return Peer().Send(
        method, Path(resource), body,
        {{"Authorization", Authorization()}, {"Content-Type", "application/x-www-form-urlencoded"}});
  }
  KVMap Read(const std::string& resource) const { return Get(Path(resource)).Object(); }
  /// An array of a resource.
  std::vector<KVMap> ReadList(const std::string& resource, const char* name) const {
    return Maps(Read(resource), name);
  }
  static std::vector<KVMap> Maps(const KVMap& object, const char* name) {
    std::vector<KVMap> maps;
    for (const Val& element : ReadArray(object, name).value_or(OruGuiBase::Array<Val>())) {
      maps.push_back(element.AsMap());
    }
    return maps;
  }
  /// The parts of an error; each empty if it is missing.
  static std::string ErrorPart(const Reply& reply, const char* name) {
    return ReadText(ReadMap(reply.Object(), "error").value_or(KVMap()), name).value_or("");
  }
  static std::vector<std::string> Allowed(const Reply& reply) {
    return ReadTexts(ReadMap(reply.Object(), "error").value_or(KVMap()), "allowed")
        .value_or(std::vector<std::string>());
  }
};

}  // namespace CryptStand
