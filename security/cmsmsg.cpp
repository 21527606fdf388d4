// The public class of messages. Each operation opens an OpenSSLScope, checks that there is something to work
// on and hands over to cms/, where the work is done. The loading of a message is put together here.
#include "security/cmsmsg.h"

#include <memory>
#include <new>
#include <utility>

#include "security/cms/decrypting.h"
#include "security/cms/encrypting.h"
#include "security/cms/parties.h"
#include "security/cms/skeleton.h"
#include "security/cms/verifying.h"
#include "security/failure.h"
#include "security/x509/text_forms.h"

namespace OruOssSec {

namespace {

constexpr const char* kNothingLoaded = "No message was loaded";
constexpr const char* kNothingCreated = "No enveloped message was created";

// The size of the skeleton was limited while it was read (BerWalker::kMaxTaken); these numbers are known only
// once OpenSSL has parsed it.
bool IsWithinLimits(const CMS_SignerInfo* signer) noexcept {
  return CMS_signed_get_attr_count(signer) <= static_cast<int>(CMSLimits::kAttributes) ||
         FailWith("A signer of the message has too many signed attributes");
}

bool AreSignersWithinLimits(CMS_ContentInfo* message) noexcept {
  STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(message);
  const int count = sk_CMS_SignerInfo_num(signers);
  if (count > static_cast<int>(CMSLimits::kSigners)) return FailWith("The message has too many signers");
  for (int i = 0; i < count; ++i) {
    if (!IsWithinLimits(sk_CMS_SignerInfo_value(signers, i))) return false;
  }
  const CertStackPtr certificates(CMS_get1_certs(message));
  return sk_X509_num(certificates.get()) <= static_cast<int>(CMSLimits::kCertificates) ||
         FailWith("The message has too many certificates");
}

// Reads the message in `message.source`. Types that we do not work on are recognised and named, but OpenSSL
// never parses their bodies: the less of it hostile bytes reach, the better.
CMSMsg::LoadResult ReadMessage(LoadedMessage& message) noexcept {
  CmsSkeleton& skeleton = message.skeleton;
  CMSMsg::LoadResult result = LoadSkeleton(*message.source, skeleton);
  if (result != CMSMsg::LoadResult::Loaded) return result;
  // Only a type that we do not know can lack a name: its OID may be invalid.
  if (!GetContentTypeName(skeleton.oid, message.typeName)) return CMSMsg::LoadResult::NotAMessage;
  if (skeleton.type != CMSMsg::Type::SignedData && skeleton.type != CMSMsg::Type::EnvelopedData)
    return result;
  // Before OpenSSL parses it, as its versions differ here (see AreSigningTimesReadable).
  if (skeleton.type == CMSMsg::Type::SignedData && !AreSigningTimesReadable(skeleton)) {
    return CMSMsg::LoadResult::Unreadable;
  }
  result = ParseDetached(skeleton, message.cms);
  if (result != CMSMsg::LoadResult::Loaded) return result;
  const bool isWithin =
      skeleton.type != CMSMsg::Type::SignedData || AreSignersWithinLimits(message.cms.get());
  return isWithin ? CMSMsg::LoadResult::Loaded : CMSMsg::LoadResult::Unreadable;
}

}  // namespace

/// What a CMSMsg owns: a message that was loaded, or an enveloped message to be written; the other is empty.
struct CMSMsg::Imp {
  /// Reads the message in `source`, which is null after a failed allocation. Only a loaded message replaces
  /// `present`: after a failure the object still has the old one.
  static LoadResult Replace(Imp*& present, std::unique_ptr<IByteSource> source) noexcept;

  LoadedMessage loaded;
  NewEnvelope envelope;
};

CMSMsg::~CMSMsg() {
  delete imp_;
}

bool CMSMsg::Load(const OruGuiBase::File& file) noexcept {
  return TryLoad(file) == LoadResult::Loaded;
}

CMSMsg::LoadResult CMSMsg::TryLoad(const OruGuiBase::File& file) noexcept {
  const OpenSSLScope scope;
  std::unique_ptr<FileSource> source(new (std::nothrow) FileSource);
  if (source == nullptr) FailWithoutMemory();
  if (source == nullptr || !source->Open(file, FileSource::Access::Anywhere)) return LoadResult::Unreadable;
  return Imp::Replace(imp_, std::move(source));
}

CMSMsg::LoadResult CMSMsg::Imp::Replace(Imp*& present, std::unique_ptr<IByteSource> source) noexcept {
  std::unique_ptr<Imp> imp(new (std::nothrow) Imp);
  if (source == nullptr || imp == nullptr) {
    FailWithoutMemory();
    return LoadResult::Unreadable;
  }
  imp->loaded.source = std::move(source);
  const LoadResult result = ReadMessage(imp->loaded);
  if (result == LoadResult::Loaded) delete std::exchange(present, imp.release());
  return result;
}

bool CMSMsg::Load(const OruGuiBase::AnsiStr& text) noexcept {
  const OpenSSLScope scope;
  TextObject object;
  if (!ReadSingleObject(text.View(), object)) return false;
  std::unique_ptr<IByteSource> source(new (std::nothrow) BlobSource(object.bytes));
  return Imp::Replace(imp_, std::move(source)) == LoadResult::Loaded;
}

CMSMsg::Type CMSMsg::GetType() const noexcept {
  if (imp_ == nullptr) return Type::Unknown;
  return imp_->envelope.cms != nullptr ? Type::EnvelopedData : imp_->loaded.skeleton.type;
}

OruGuiBase::AnsiStr CMSMsg::GetTypeStr() const noexcept {
  if (imp_ == nullptr) return {};
  return imp_->envelope.cms != nullptr ? OruGuiBase::AnsiStr("envelopedData") : imp_->loaded.typeName;
}

bool CMSMsg::GetRecipients(OruGuiBase::PtrContainerQueue<CMSKeyTransRecipient>& recipients) const noexcept {
  const OpenSSLScope scope;
  recipients.Clear();
  if (imp_ == nullptr) return FailWith(kNothingLoaded);
  if (ReadRecipients(imp_->loaded.skeleton, recipients)) return true;
  recipients.Clear();  // a part of the recipients must not pass for all
  return false;
}

bool CMSMsg::SetRecipientKey(const Certificate& certificate, const PrivateKey& key) noexcept {
  const OpenSSLScope scope;
  if (imp_ == nullptr) return FailWith(kNothingLoaded);
  return TakeRecipientKey(imp_->loaded, certificate, key);
}

bool CMSMsg::SetContentKey(const OruGuiBase::AnsiStr& key) noexcept {
  const OpenSSLScope scope;
  if (imp_ == nullptr) return FailWith(kNothingLoaded);
  return TakeContentKey(imp_->loaded, key);
}

bool CMSMsg::GetContent(const OruGuiBase::File& target) const noexcept {
  const OpenSSLScope scope;
  if (imp_ == nullptr) return FailWith(kNothingLoaded);
  FileSink sink(target);
  return DeliverContent(imp_->loaded, sink);
}

bool CMSMsg::GetContent(OruGuiBase::Blob& target) const noexcept {
  const OpenSSLScope scope;
  if (imp_ == nullptr) return FailWith(kNothingLoaded);
  BlobSink sink(target);
  return DeliverContent(imp_->loaded, sink);
}

bool CMSMsg::GetSigners(OruGuiBase::PtrContainerQueue<CMSSigner>& signers) const noexcept {
  const OpenSSLScope scope;
  signers.Clear();
  if (imp_ == nullptr) return FailWith(kNothingLoaded);
  if (ReadSigners(imp_->loaded, signers)) return true;
  signers.Clear();
  return false;
}

bool CMSMsg::Verify() noexcept {
  const OpenSSLScope scope;
  if (imp_ == nullptr) return FailWith(kNothingLoaded);
  return VerifySigners(imp_->loaded, nullptr);
}

bool CMSMsg::Verify(const CertStore& store) noexcept {
  const OpenSSLScope scope;
  if (imp_ == nullptr) return FailWith(kNothingLoaded);
  return VerifySigners(imp_->loaded, &store);
}

bool CMSMsg::CreateEnvelopedData(CipherAlgorithm cipher) noexcept {
  const OpenSSLScope scope;
  if (cipher != CipherAlgorithm::AES256CBC)
    return FailWith("The content encryption algorithm is not supported");
  std::unique_ptr<Imp> imp(new (std::nothrow) Imp);
  if (imp == nullptr) return FailWithoutMemory();
  if (!StartEnvelope(imp->envelope)) return false;
  delete std::exchange(imp_, imp.release());
  return true;
}

bool CMSMsg::AddRecipient(const Certificate& certificate) noexcept {
  const OpenSSLScope scope;
  if (imp_ == nullptr) return FailWith(kNothingCreated);
  return AddEnvelopeRecipient(imp_->envelope, certificate);
}

bool CMSMsg::Save(Format format, const OruGuiBase::File& content, const OruGuiBase::File& target) noexcept {
  const OpenSSLScope scope;
  if (imp_ == nullptr) return FailWith(kNothingCreated);
  if (format != Format::BERStream) return FailWith("The format is not supported");
  return SaveEnvelope(imp_->envelope, content, target);
}

}  // namespace OruOssSec
