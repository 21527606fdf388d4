#include "security/cms_message.h"

#include "security/cms_types.h"

namespace OruOssSec {

CMSMsg::LoadResult ReadMessage(LoadedMessage& message) noexcept {
  CmsSkeleton& skeleton = message.skeleton;
  const CMSMsg::LoadResult result = LoadSkeleton(*message.source, skeleton);
  if (result != CMSMsg::LoadResult::Loaded) return result;
  // Only a type that is not ours can lack a name.
  if (!GetContentTypeName(skeleton.oid, message.typeName)) return CMSMsg::LoadResult::NotAMessage;
  if (skeleton.type != CMSMsg::Type::SignedData && skeleton.type != CMSMsg::Type::EnvelopedData)
    return result;
  return ParseDetached(skeleton, message.cms);
}

}  // namespace OruOssSec
