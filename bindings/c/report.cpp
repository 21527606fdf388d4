// The report object: its JSON, and the getters that lend from it. files.cpp completes a report before it
// hands it out; the other operations set its JSON themselves.
#include "bindings/c/report.h"

#include "bindings/c/text.h"
#include "foundation/array.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"

namespace CryptCliC {

using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

// Getters must not fail, so everything that can is done here. The subjects of the chain come from
// certificates, whose names need not be UTF-8; the rooms and groups of a signature come from whoever signed.
void Complete(cryptcli_report& report) {
  for (std::string* text : {&report.reason, &report.signedGroup, &report.signedRoom, &report.signedRoomUrl,
                            &report.serviceGroup, &report.serviceRoom}) {
    *text = MakeUtf8(*text);
  }
  Array<Val> chain;
  for (std::string& subject : report.chain) {
    subject = MakeUtf8(subject);
    chain.Append(Val(ToAnsi(subject)));
  }
  KVMap object;
  if (report.hasOrigin) {
    SetText(object, "origin", cryptcli_origin_name(report.origin));
    SetText(object, "reason", report.reason);
    SetText(object, "signedGroup", report.signedGroup);
    SetText(object, "signedRoom", report.signedRoom);
    SetText(object, "signedRoomUrl", report.signedRoomUrl);
    object.Put("chain", Val(chain));
  }
  SetText(object, "serviceGroup", report.serviceGroup);
  SetText(object, "serviceRoom", report.serviceRoom);
  object.Put("plainKey", Val(report.isPlainKey));
  object.Put("bytes", Val(static_cast<std::int64_t>(report.bytes)));
  report.json = ToJson(object);
}

}  // namespace CryptCliC

cryptcli_report::~cryptcli_report() {
  CryptCliC::Wipe(json);
}

namespace {

// A member as a C string, valid until the report is freed. Empty for null, which an operation stores when it
// fails.
const char* Lend(const cryptcli_report* report, std::string cryptcli_report::*member) {
  return report != nullptr ? (report->*member).c_str() : "";
}

}  // namespace

const char* cryptcli_origin_name(cryptcli_origin origin) {
  switch (origin) {
    case CRYPTCLI_ORIGIN_UNSIGNED:
      return "unsigned";
    case CRYPTCLI_ORIGIN_SIGNATURE_ONLY:
      return "signature_only";
    case CRYPTCLI_ORIGIN_OTHER_ROOM:
      return "other_room";
    case CRYPTCLI_ORIGIN_PROVEN:
      return "proven";
    // Also for a number that is no origin: it must not pass for a better one.
    default:
      return "unproven";
  }
}

void cryptcli_report_free(cryptcli_report* report) {
  delete report;
}

const char* cryptcli_report_json(const cryptcli_report* report) {
  return report != nullptr ? report->json.c_str() : "{}";
}

cryptcli_origin cryptcli_report_origin(const cryptcli_report* report) {
  return report != nullptr ? report->origin : CRYPTCLI_ORIGIN_UNSIGNED;
}

const char* cryptcli_report_reason(const cryptcli_report* report) {
  return Lend(report, &cryptcli_report::reason);
}

const char* cryptcli_report_signed_group(const cryptcli_report* report) {
  return Lend(report, &cryptcli_report::signedGroup);
}

const char* cryptcli_report_signed_room(const cryptcli_report* report) {
  return Lend(report, &cryptcli_report::signedRoom);
}

const char* cryptcli_report_signed_room_url(const cryptcli_report* report) {
  return Lend(report, &cryptcli_report::signedRoomUrl);
}

const char* cryptcli_report_service_group(const cryptcli_report* report) {
  return Lend(report, &cryptcli_report::serviceGroup);
}

const char* cryptcli_report_service_room(const cryptcli_report* report) {
  return Lend(report, &cryptcli_report::serviceRoom);
}

size_t cryptcli_report_chain_count(const cryptcli_report* report) {
  return report != nullptr ? report->chain.size() : 0;
}

const char* cryptcli_report_chain_subject(const cryptcli_report* report, size_t index) {
  return report != nullptr && index < report->chain.size() ? report->chain[index].c_str() : nullptr;
}

int32_t cryptcli_report_is_plain_key(const cryptcli_report* report) {
  return report != nullptr && report->isPlainKey ? 1 : 0;
}

uint64_t cryptcli_report_bytes(const cryptcli_report* report) {
  return report != nullptr ? report->bytes : 0;
}
