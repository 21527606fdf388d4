#include "security/cms/message.h"

#include "security/cms/signing_times.h"
#include "security/cms/types.h"
#include "security/failure.h"

namespace OruOssSec {

namespace {

using LoadResult = CMSMsg::LoadResult;

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

}  // namespace

CMSMsg::LoadResult ReadMessage(LoadedMessage& message) noexcept {
  CmsSkeleton& skeleton = message.skeleton;
  LoadResult result = LoadSkeleton(*message.source, skeleton);
  if (result != LoadResult::Loaded) return result;
  // Only a type that is not ours can lack a name.
  if (!GetContentTypeName(skeleton.oid, message.typeName)) return LoadResult::NotAMessage;
  if (skeleton.type != CMSMsg::Type::SignedData && skeleton.type != CMSMsg::Type::EnvelopedData)
    return result;
  if (skeleton.type == CMSMsg::Type::SignedData && !AreSigningTimesReadable(skeleton)) {
    return LoadResult::Unreadable;
  }
  result = ParseDetached(skeleton, message.cms);
  if (result != LoadResult::Loaded) return result;
  const bool isWithin =
      skeleton.type != CMSMsg::Type::SignedData || AreSignersWithinLimits(message.cms.get());
  return isWithin ? LoadResult::Loaded : LoadResult::Unreadable;
}

}  // namespace OruOssSec
