// Separates the structure of a message from its content, in both directions: loading reads a skeleton from a
// file, writing takes one from what OpenSSL built. OpenSSL never sees the content, so it may have any size,
// and never more than CMSLimits::kSkeleton of a hostile file.
#include "security/cms/skeleton.h"

#include <string_view>

#include "foundation/work_buffer.h"
#include "security/ber/walker.h"
#include "security/failure.h"

namespace OruOssSec {

namespace {

struct ContentType {
  std::string_view oid;
  CMSMsg::Type type;
  const char* name;
};

// The arcs pkcs-7 (1.2.840.113549.1.7) and smime-ct (1.2.840.113549.1.9.16.1), as contents octets.
#define PKCS7 "\x2A\x86\x48\x86\xF7\x0D\x01\x07"
#define SMIME_CT "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x10\x01"

constexpr ContentType kContentTypes[] = {
    {PKCS7 "\x01", CMSMsg::Type::Data, "data"},
    {PKCS7 "\x02", CMSMsg::Type::SignedData, "signedData"},
    {PKCS7 "\x03", CMSMsg::Type::EnvelopedData, "envelopedData"},
    {PKCS7 "\x05", CMSMsg::Type::DigestedData, "digestedData"},
    {PKCS7 "\x06", CMSMsg::Type::EncryptedData, "encryptedData"},
    {SMIME_CT "\x02", CMSMsg::Type::AuthenticatedData, "authenticatedData"},
    {SMIME_CT "\x09", CMSMsg::Type::CompressedData, "compressedData"},
    {SMIME_CT "\x17", CMSMsg::Type::AuthEnvelopedData, "authEnvelopedData"},
};

#undef PKCS7
#undef SMIME_CT

const ContentType* FindEntry(const BerBuffer& oid) noexcept {
  const std::string_view wanted(reinterpret_cast<const char*>(oid.GetData()), oid.GetSize());
  for (const ContentType& entry : kContentTypes) {
    if (entry.oid == wanted) return &entry;
  }
  return nullptr;
}

// Takes the OID of a content type, without its header.
bool TakeOid(BerWalker& walker, BerBuffer& oid) noexcept {
  if (!walker.TakeContents(kObjectIdentifier, oid)) return false;
  return (!oid.IsEmpty() && oid.GetSize() <= CmsSkeleton::kMaxOid) ||
         walker.Refuse("A content type of the message is no object identifier");
}

// EncapsulatedContentInfo (5.2).
bool ReadEncapsulated(BerWalker& walker, CmsSkeleton& skeleton) noexcept {
  walker.Enter(kSequence);
  walker.Take(kObjectIdentifier, skeleton.inner);
  skeleton.hasContent = walker.Is(kContext0);
  if (skeleton.hasContent) {
    walker.Enter(kContext0);
    walker.SkipOctets(kOctetString, skeleton.content);
    walker.Leave();
  }
  return walker.Leave();
}

// EncryptedContentInfo (6.1).
bool ReadEncrypted(BerWalker& walker, CmsSkeleton& skeleton) noexcept {
  walker.Enter(kSequence);
  walker.Take(kObjectIdentifier, skeleton.inner);
  walker.Take(kSequence, skeleton.inner);
  skeleton.hasContent = !walker.IsAtEnd();
  if (skeleton.hasContent) walker.SkipOctets(kContext0Primitive, skeleton.content);
  return walker.Leave();
}

bool ReadSigned(BerWalker& walker, CmsSkeleton& skeleton) noexcept {
  walker.Take(kInteger, skeleton.before);
  walker.Take(kSet, skeleton.before);
  ReadEncapsulated(walker, skeleton);
  if (walker.Is(kContext0)) walker.Take(kContext0, skeleton.after);
  if (walker.Is(kContext1)) walker.Take(kContext1, skeleton.after);
  return walker.Take(kSet, skeleton.after);
}

bool ReadEnveloped(BerWalker& walker, CmsSkeleton& skeleton) noexcept {
  walker.Take(kInteger, skeleton.before);
  if (walker.Is(kContext0)) walker.Take(kContext0, skeleton.before);
  walker.Take(kSet, skeleton.before);
  ReadEncrypted(walker, skeleton);
  return !walker.Is(kContext1) || walker.Take(kContext1, skeleton.after);
}

bool ReadDigested(BerWalker& walker, CmsSkeleton& skeleton) noexcept {
  walker.Take(kInteger, skeleton.before);
  walker.Take(kSequence, skeleton.before);
  ReadEncapsulated(walker, skeleton);
  return walker.Take(kOctetString, skeleton.after);
}

// Data (4): the content itself. Anything but an octet string is skipped, as for any other type.
bool ReadData(BerWalker& walker, CmsSkeleton& skeleton) noexcept {
  skeleton.hasContent = walker.Is(kOctetString) || walker.Is(kOctetString | kConstructed);
  return skeleton.hasContent ? walker.SkipOctets(kOctetString, skeleton.content) : walker.SkipAny();
}

bool ReadBody(BerWalker& walker, CmsSkeleton& skeleton) noexcept {
  walker.Enter(kSequence);
  if (skeleton.type == CMSMsg::Type::SignedData) {
    ReadSigned(walker, skeleton);
  } else if (skeleton.type == CMSMsg::Type::EnvelopedData) {
    ReadEnveloped(walker, skeleton);
  } else {
    ReadDigested(walker, skeleton);
  }
  return walker.Leave();
}

// When OpenSSL has no memory to sort a set, such as the signed attributes, it leaves the set out and goes on.
// The only sign of it is an encoding that is too short, so its size is checked.
bool Encode(const CMS_ContentInfo* message, OruGuiBase::WorkBuffer& der) noexcept {
  const int size = i2d_CMS_ContentInfo(message, nullptr);
  if (size <= 0) return FailWithOpenSSL("The message cannot be encoded");
  if (!der.Alloc(static_cast<std::uint32_t>(size))) return FailWithoutMemory();
  unsigned char* end = der.GetData();
  const int written = i2d_CMS_ContentInfo(message, &end);
  return (written == size && end == der.GetData() + size) || FailWithOpenSSL("The message cannot be encoded");
}

// Most files that are no message differ in their first byte already.
bool BeginsLikeAMessage(BerReader& reader) noexcept {
  BerSpan span;
  if (reader.GetSize() > 0 && !reader.Fetch(0, 1, span)) return false;
  return (span.size > 0 && *span.data == kSequence) || reader.Refuse("This is not a CMS message");
}

// The types whose content is read. Data, which has no body, is handled apart.
bool IsReadable(CMSMsg::Type type) noexcept {
  return type == CMSMsg::Type::SignedData || type == CMSMsg::Type::EnvelopedData ||
         type == CMSMsg::Type::DigestedData;
}

bool ReadElements(BerReader& reader, CmsSkeleton& skeleton) noexcept {
  if (!BeginsLikeAMessage(reader)) return false;
  BerWalker walker(reader);
  if (!walker.Enter(kSequence) || !TakeOid(walker, skeleton.oid)) return false;
  skeleton.type = FindContentType(skeleton.oid);
  walker.Enter(kContext0);
  if (IsReadable(skeleton.type)) {
    ReadBody(walker, skeleton);
  } else if (skeleton.type == CMSMsg::Type::Data) {
    ReadData(walker, skeleton);
  } else {
    walker.SkipAny();
  }
  walker.Leave();
  walker.Leave();
  skeleton.isTooLarge = walker.IsTooLarge();
  return walker.Finish();
}

}  // namespace

CMSMsg::Type FindContentType(const BerBuffer& oid) noexcept {
  const ContentType* entry = FindEntry(oid);
  return entry != nullptr ? entry->type : CMSMsg::Type::Unknown;
}

OruGuiBase::AnsiStr GetDottedText(const ASN1_OBJECT* object) noexcept {
  const int length = OBJ_obj2txt(nullptr, 0, object, 1);
  if (length <= 0) return {};
  OruGuiBase::AnsiStr dotted;
  // OBJ_obj2txt writes a final NUL, for which a string has space after its characters.
  char* buffer = dotted.Alloc(static_cast<std::uint32_t>(length));
  if (buffer == nullptr || OBJ_obj2txt(buffer, length + 1, object, 1) != length) return {};
  return dotted;
}

bool GetContentTypeName(const BerBuffer& oid, OruGuiBase::AnsiStr& name) noexcept {
  if (const ContentType* entry = FindEntry(oid)) {
    name = entry->name;
    return true;
  }
  BerBuffer der;
  if (!der.AppendHeader(0x06, oid.GetSize()) || !der.Append(oid)) return false;
  const std::uint8_t* position = der.GetData();
  const ObjectPtr object(d2i_ASN1_OBJECT(nullptr, &position, static_cast<long>(der.GetSize())));
  if (object == nullptr) return FailWith("The content type of the message is not an object identifier");
  name = GetDottedText(object.get());
  return !name.IsEmpty() || FailWith("The content type of the message has no text");
}

// An enveloped message that is too large is named apart: it cannot be plain content, whatever else it is.
CMSMsg::LoadResult LoadSkeleton(IByteSource& source, CmsSkeleton& skeleton) noexcept {
  BerReader reader(source);
  if (ReadElements(reader, skeleton)) return CMSMsg::LoadResult::Loaded;
  if (reader.IsRefused()) return CMSMsg::LoadResult::NotAMessage;
  return skeleton.isTooLarge && skeleton.type == CMSMsg::Type::EnvelopedData
             ? CMSMsg::LoadResult::LargeEnvelope
             : CMSMsg::LoadResult::Unreadable;
}

bool ReadSkeleton(IByteSource& source, CmsSkeleton& skeleton) noexcept {
  return LoadSkeleton(source, skeleton) == CMSMsg::LoadResult::Loaded;
}

bool ReadSkeleton(const CMS_ContentInfo* message, CmsSkeleton& skeleton) noexcept {
  OruGuiBase::WorkBuffer der;
  if (!Encode(message, der)) return false;
  ViewSource source(der.GetData(), der.GetSize());
  return ReadSkeleton(source, skeleton);
}

namespace {

// The size of an element with so many octets of contents.
std::uint64_t SizeAround(std::uint64_t contents) noexcept {
  std::uint8_t header[kMostHeader];
  return PutBerHeader(kSequence, contents, header) + contents;
}

// The lengths are computed from the inside out, then the octets written from the outside in: one allocation.
bool EncodeDetached(const CmsSkeleton& skeleton, BerBuffer& message) noexcept {
  const std::uint64_t fields =
      skeleton.before.GetSize() + SizeAround(skeleton.inner.GetSize()) + skeleton.after.GetSize();
  const std::uint64_t body = SizeAround(fields);
  const std::uint64_t parts = SizeAround(skeleton.oid.GetSize()) + SizeAround(body);
  return message.Reserve(static_cast<std::size_t>(SizeAround(parts))) &&
         message.AppendHeader(kSequence, parts) &&
         message.AppendHeader(kObjectIdentifier, skeleton.oid.GetSize()) && message.Append(skeleton.oid) &&
         message.AppendHeader(kContext0, body) && message.AppendHeader(kSequence, fields) &&
         message.Append(skeleton.before) && message.AppendHeader(kSequence, skeleton.inner.GetSize()) &&
         message.Append(skeleton.inner) && message.Append(skeleton.after);
}

}  // namespace

// `refused` stays true where OpenSSL parsed the message but left bytes over: these are to blame as well.
CMSMsg::LoadResult ParseDetached(const CmsSkeleton& skeleton, CmsPtr& parsed) noexcept {
  constexpr const char* kUnread = "The message cannot be read";
  BerBuffer message;
  if (!EncodeDetached(skeleton, message)) return CMSMsg::LoadResult::Unreadable;
  const unsigned char* position = message.GetData();
  parsed.reset(d2i_CMS_ContentInfo(nullptr, &position, static_cast<long>(message.GetSize())));
  bool refused = true;
  if (parsed == nullptr) {
    FailWithOpenSSL(kUnread, refused);
  } else if (position == message.GetData() + message.GetSize()) {
    return CMSMsg::LoadResult::Loaded;
  } else {
    FailWith(kUnread);
  }
  return refused ? CMSMsg::LoadResult::NotAMessage : CMSMsg::LoadResult::Unreadable;
}

BioPtr StartContentCipher(CMS_ContentInfo* message, EVP_CIPHER_CTX*& context) noexcept {
  BioPtr sink(BIO_new(BIO_s_null()));
  if (sink == nullptr) {
    FailWithoutMemory();
    return nullptr;
  }
  BioPtr chain(CMS_dataInit(message, sink.get()));
  if (chain == nullptr) return nullptr;
  static_cast<void>(sink.release());  // the chain's
  if (BIO_get_cipher_ctx(chain.get(), &context) != 1) return nullptr;
  return chain;
}

}  // namespace OruOssSec
