// A transport with real keys for file_bench: it computes what a key server would, so that the client's whole
// work on a file is measured, and nothing of a network.
#include "bench/service.h"

#include <ctime>
#include <memory>
#include <openssl/cms.h>

#include "foundation/encoding.h"
#include "foundation/json.h"
#include "stand/memory_bio.h"

using CryptStand::CertSpec;
using CryptStand::Identity;
using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace Bench {
namespace {

using CmsPtr = std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)>;

// A wrapped key with the one part that clients validate: a signed message around the inner signing
// certificate.
std::string WrapKey(const Identity& inner) {
  const std::string json = R"({"encodedInnerSigningCertificate":")" + inner.certificate.ToBase64() + "\"}";
  const CryptStand::BioPtr content = CryptStand::Source(json);
  const CmsPtr message(CMS_sign(inner.certificate.Get0(), inner.key.Get0(), nullptr, content.get(),
                                CMS_BINARY | CMS_NOSMIMECAP),
                       CMS_ContentInfo_free);
  return CryptStand::ToBase64(CryptStand::Written([&](BIO* bio) { return i2d_CMS_bio(bio, message.get()); }));
}

std::string Decode(const AnsiStr& text) {
  std::string bytes(text.GetLength(), '\0');
  std::uint32_t size = text.GetLength();
  return OruGuiBase::B64Str2Binary(text, bytes.data(), size, "\r\n") ? bytes.substr(0, size) : std::string();
}

AnsiStr FirstText(const KVMap& payload, const char* name) {
  return payload.Get(name).AsArray()[0].AsString();
}

std::string Payload(const std::string& type, const std::string& members) {
  return R"({"payload":{"type":")" + type + "\"," + members + "}}";
}

std::string HttpDate() {
  const std::time_t now = std::time(nullptr);
  std::tm fields{};
  gmtime_r(&now, &fields);
  char text[64];
  return {text, std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &fields)};
}

bool Contains(const std::string& url, const char* part) {
  return url.find(part) != std::string::npos;
}

}  // namespace

Service::Service()
    : root_(Identity::MakeRoot(CertSpec::Authority("Bench root"))),
      inner_(Identity::MakeIssued(CertSpec::Authority("Bench inner signing"), root_)),
      roomKey_(Identity::MakeIssued(CertSpec::EndEntity("room-tr"), inner_)),
      integrityKey_(Identity::MakeIssued(CertSpec::EndEntity("Bench integrity"), root_)),
      wrappedKey_(WrapKey(inner_)) {}

std::int32_t Service::SendRequest(const AnsiStr&, const AnsiStr& url, const KVMap&, const AnsiStr& body,
                                  const OruKalvix::HttpOptions&, OruKalvix::HttpResponse& response) {
  const std::string content = MakeBody(url.GetText(), body);
  response.status = 200;
  response.headers.Set("Date", HttpDate().c_str());
  response.body = AnsiStr(content.data(), static_cast<std::uint32_t>(content.size()));
  return 0;
}

std::string Service::MakeBody(const std::string& url, const AnsiStr& body) const {
  if (Contains(url, "/status?")) return "";
  if (Contains(url, "/certstore") || Contains(url, "/truststore")) return root_.certificate.ToPEM();
  if (Contains(url, "/authztoken/")) return R"({"authztoken":"token"})";
  if (Contains(url, "/crypt/key/")) return RoomKeyResponse();
  if (Contains(url, "/integrity/"))
    return R"({"integrity":[")" + integrityKey_.certificate.GetDigest() + "\"]}";
  return Command(body);
}

std::string Service::RoomKeyResponse() const {
  return R"({"room":"room","group":"QOB.1","keyserver":["https://key.example"],"statustimeout":"5","certauth":false,)"
         R"("certificate":")" +
         roomKey_.certificate.ToBase64() + R"(","data":")" + wrappedKey_ + "\"}";
}

std::string Service::Command(const AnsiStr& body) const {
  Val envelope;
  AnsiStr error;
  OruGuiBase::JSON2Val(body, envelope, error);
  const KVMap payload = envelope.AsMap().Get("payload").AsMap();
  const AnsiStr type = payload.Get("type").AsString();
  if (type == "getKeyRequest") {
    return Payload("getKeyResponse",
                   R"("key":{"type":"handle","id":"integrity","subId":"1","encodedCertificate":")" +
                       integrityKey_.certificate.ToBase64() + "\"}");
  }
  if (type == "signRequest") {
    const std::string hash = Decode(FirstText(payload, "hashesToBeSigned"));
    return Payload("signResponse",
                   R"("signedHashes":[")" + CryptStand::ToBase64(integrityKey_.key.SignHash(hash)) + "\"]");
  }
  const std::string contentKey = roomKey_.key.Decrypt(Decode(FirstText(payload, "encryptedData")));
  return Payload("decryptResponse", R"("plainData":[")" + CryptStand::ToBase64(contentKey) + "\"]");
}

}  // namespace Bench
