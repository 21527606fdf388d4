#pragma once

#include <cryptcli/cryptcli.h>
#include <string>
#include <string_view>

#include "tests/support/files.h"
#include "tests/support/messages.h"
#include "tests/support/pki.h"
#include "tests/support/scripted_services.h"
#include "tests/support/text.h"
#include "tests/support/wire.h"

// Protected files as an attacker makes them, for every interface above the class: the attacks are the same.
namespace TestSupport {

/// Makes the file "secret" in the directory of a test, with any of the test keys. The services have the
/// room's key; an attack that needs another response sets it there. Refers to both, which have to outlive it.
class ForgedFiles {
 public:
  static constexpr const char* kRoom = "room 1";
  static constexpr const char* kOtherRoom = "room 2";
  static constexpr std::string_view kContent = "the plain bytes of a file";

  ForgedFiles(const ScratchDirectory& scratch, ScriptedServices& services)
      : scratch_(scratch), services_(services) {}

  /// The usual signer of the group, for a room.
  SignerSpec Signer(const std::string& room = kRoom, const std::string& group = kGroup) const {
    SignerSpec signer;
    signer.identity = pki_.integrity;
    signer.attributes = {
        {kGroupOid, group}, {kRoomOid, room}, {kRoomUrlOid, "https://crypt.example/api/mx/" + room}};
    signer.signingTime = kServicesTime;
    return signer;
  }
  /// The usual signer of the room by name, with a certificate that the attacker made.
  SignerSpec SelfSigned() const {
    SignerSpec forger = Signer();
    forger.identity = Identity::MakeRoot(EndEntity("Forger"));
    return forger;
  }
  /// Puts an envelope for the room around the bytes, as anybody can who has the room's certificate.
  void Envelope(std::string_view bytes) const {
    scratch_.Make("secret", MakeEnveloped(bytes, {pki_.room.certificate}));
  }
  void EnvelopeSigned(const std::vector<SignerSpec>& signers) const {
    Envelope(MakeSigned(kContent, signers));
  }
  /// The first signer signs for the room, the second one for another room.
  void EnvelopeWithOtherSecondSigner() const {
    SignerSpec second = Signer(kOtherRoom);
    second.hasCertificate = false;  // the message holds it once
    EnvelopeSigned({Signer(), second});
  }
  /// Signed content in which a bit was flipped before it was enveloped.
  void EnvelopeDamaged() const {
    std::string message = MakeSigned(kContent, {Signer()});
    message[message.find(kContent)] ^= 1;
    Envelope(message);
  }
  void HandOutPlainKey() {
    services_.Set("key",
                  Json(With(ScriptedServices::RoomKeyResponse(), "plain", Quoted(pki_.room.key.ToPEM()))));
  }
  /// A file whose origin is exactly this one.
  void MakeOfOrigin(cryptcli_origin origin) {
    if (origin == CRYPTCLI_ORIGIN_UNSIGNED) return Envelope(kContent);
    if (origin == CRYPTCLI_ORIGIN_UNPROVEN) services_.Set("integrity", Status(404));
    if (origin == CRYPTCLI_ORIGIN_SIGNATURE_ONLY) HandOutPlainKey();
    EnvelopeSigned({Signer(origin == CRYPTCLI_ORIGIN_OTHER_ROOM ? kOtherRoom : kRoom)});
  }

 private:
  const Pki& pki_ = Pki::Get();
  const ScratchDirectory& scratch_;
  ScriptedServices& services_;
};

/// A file that anybody with the room's certificate can make, and the origin that it has to get.
struct Attack {
  const char* name;
  cryptcli_origin origin;
  void (*make)(ForgedFiles& files);
};
inline constexpr Attack kAttacks[] = {
    {"UnsignedContent", CRYPTCLI_ORIGIN_UNSIGNED,
     [](ForgedFiles& files) { files.Envelope(ForgedFiles::kContent); }},
    {"ASelfSignedSignature", CRYPTCLI_ORIGIN_UNPROVEN,
     [](ForgedFiles& files) { files.EnvelopeSigned({files.SelfSigned()}); }},
    {"ASelfSignedSignatureUnderAPlainKey", CRYPTCLI_ORIGIN_SIGNATURE_ONLY,
     [](ForgedFiles& files) {
       files.EnvelopeSigned({files.SelfSigned()});
       files.HandOutPlainKey();
     }},
    {"ContentSignedForAnotherRoom", CRYPTCLI_ORIGIN_OTHER_ROOM,
     [](ForgedFiles& files) { files.EnvelopeSigned({files.Signer(ForgedFiles::kOtherRoom)}); }},
    {"ContentSignedForAnotherGroup", CRYPTCLI_ORIGIN_OTHER_ROOM,
     [](ForgedFiles& files) { files.EnvelopeSigned({files.Signer(ForgedFiles::kRoom, "QOB.other")}); }},
    {"ASecondSignerOfAnotherRoom", CRYPTCLI_ORIGIN_OTHER_ROOM,
     [](ForgedFiles& files) { files.EnvelopeWithOtherSecondSigner(); }},
};

/// For the names of parameterised tests.
inline std::string NameOf(const Attack& attack) {
  return attack.name;
}

}  // namespace TestSupport
