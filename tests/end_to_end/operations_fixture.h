#pragma once

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "tests/end_to_end/end_to_end_fixture.h"
#include "tests/stand/readers.h"

namespace TestSupport {

/// Operations by their names, as an application that knows no class of ours performs them.
class OperationsTest : public EndToEndTest {
 protected:
  using Members = std::initializer_list<std::pair<const char*, OruGuiBase::Val>>;
  static constexpr const char* kGroup = "QOB.1.100.1";
  static constexpr const char* kAlgorithm = "RSASSA-PKCS1-v1_5-SHA-512";

  static OruGuiBase::Val Text(std::string_view text) { return OruGuiBase::Val(Ansi(text)); }
  static OruGuiBase::Val Texts(const std::vector<std::string>& texts);
  static OruGuiBase::KVMap Object(Members members);
  static OruGuiBase::Val Handle(std::string_view id, std::string_view subId);
  /// One key of a list: a map with "id" and "data".
  static OruGuiBase::Val Keys(std::initializer_list<std::pair<const char*, std::string>> keys);

  /// Performs with the key servers followed by these arguments. The outcome goes to status, result and error.
  bool Perform(const char* operation, Members arguments);
  bool PerformWith(const char* operation, const OruGuiBase::KVMap& arguments);
  /// A string of the result; empty when it has none.
  std::string Result(const char* name) const { return Str(result.AsMap().Get(name).AsString()); }
  /// The names of the result's members in their order.
  std::vector<std::string> ResultNames() const;
  /// A member of an element of the result's "keys".
  std::string ResultKey(std::uint32_t index, const char* name) const;
  OruGuiBase::Val KeyServerList() const;

  /// A member of the crypt service's response about the room's current key: "data" or "certificate".
  std::string KeptKey(const char* member, std::string_view room = kRoom) const;
  bool Import(const std::string& id, const std::string& key, const std::string& password = "");
  bool Sign(const std::string& id, const std::string& subId);
  /// Whether the last result is the key's signature of what Sign() has signed.
  bool IsSignedBy(const CryptStand::KeyPair& key) const;

  /// The key servers that operations ask, in this order; all of them unless a test changes it.
  std::vector<std::string> keyServers;
  std::int32_t status = 0;
  OruGuiBase::Val result;
  std::string error;
};

/// Audit logs, fetched by their operation and taken from where it left them.
class AuditLogTest : public OperationsTest {
 protected:
  static constexpr const char* kHeader = "time,server,group,operation,room,key,outcome";

  bool GetLog(std::string_view group = kGroup, std::string_view name = "Demo");
  /// The lines of the log of the last result, without the times of the records. The file is removed.
  std::vector<std::string> TakeLines();
  /// Demands that the last operation failed and left no file.
  void ExpectNoLog();
};

}  // namespace TestSupport
