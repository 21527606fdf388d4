#include "security/cms_message.h"

#include "security/cms_types.h"

namespace OruOssSec {

bool ReadMessage(LoadedMessage& message) noexcept {
  CmsSkeleton& skeleton = message.skeleton;
  if (!ReadSkeleton(*message.source, skeleton)) return false;
  if (!GetContentTypeName(skeleton.oid, message.typeName)) return false;
  if (skeleton.type != CMSMsg::Type::SignedData && skeleton.type != CMSMsg::Type::EnvelopedData) return true;
  message.cms = ParseDetached(skeleton);
  return message.cms != nullptr;
}

}  // namespace OruOssSec
