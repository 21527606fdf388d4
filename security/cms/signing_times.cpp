#include "security/cms/signing_times.h"

#include <cstring>
#include <string_view>

#include "foundation/dates.h"
#include "foundation/errorstate.h"
#include "security/ber/walker.h"
#include "security/failure.h"

namespace OruOssSec {
namespace {

constexpr std::uint8_t kUTCTime = 0x17;
constexpr std::uint8_t kGeneralizedTime = 0x18;
// Contents octets of 1.2.840.113549.1.9.5.
constexpr std::uint8_t kSigningTime[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x05};

int TwoDigits(std::string_view text, std::size_t place) noexcept {
  return (text[place] - '0') * 10 + (text[place + 1] - '0');
}

// Whether a time with a year of two or four digits has its digits, up to the seconds. What follows them is
// left to OpenSSL, whose versions agree about it.
bool IsTime(std::string_view text, std::size_t yearDigits) noexcept {
  constexpr std::string_view kDigits = "0123456789";
  const std::size_t end = yearDigits + 10;
  if (text.size() <= end || text.find_first_not_of(kDigits) < end) return false;
  const int begin = TwoDigits(text, 0);
  const int year = yearDigits == 4 ? begin * 100 + TwoDigits(text, 2) : begin + (begin < 50 ? 2000 : 1900);
  const std::string_view rest = text.substr(yearDigits);
  return OruGuiBase::IsValidDateTime({year, TwoDigits(rest, 0), TwoDigits(rest, 2), TwoDigits(rest, 4),
                                      TwoDigits(rest, 6), TwoDigits(rest, 8)});
}

/// Walks over the signers. What is no signer ends the walk, what is no time ends it with isUnreadable.
class SigningTimeCheck {
 public:
  explicit SigningTimeCheck(BerWalker& walker) noexcept : walker_(walker) {}

  bool IsUnreadable() const noexcept { return isUnreadable_; }

  void CheckSigners() noexcept {
    while (!walker_.IsFailed() && !walker_.Is(kSet)) walker_.SkipAny();
    walker_.Enter(kSet);
    while (GoesOn()) CheckSigner();
  }

 private:
  bool GoesOn() noexcept { return !isUnreadable_ && !walker_.IsFailed() && !walker_.IsAtEnd(); }

  void CheckSigner() noexcept {
    walker_.Enter(kSequence);
    for (int i = 0; i < 3; ++i) walker_.SkipAny();  // version, sid, digestAlgorithm
    if (walker_.Is(kContext0)) {
      count_ = 0;
      walker_.Enter(kContext0);
      while (GoesOn()) CheckAttribute();
      walker_.Leave();
    }
    while (GoesOn()) walker_.SkipAny();
    walker_.Leave();
  }

  void CheckAttribute() noexcept {
    BerBuffer oid;
    walker_.Enter(kSequence);
    if (!walker_.TakeContents(kObjectIdentifier, oid)) return;
    if (oid.GetSize() == sizeof(kSigningTime) &&
        std::memcmp(oid.GetData(), kSigningTime, sizeof(kSigningTime)) == 0) {
      CheckValues();
    } else {
      walker_.SkipAny();
    }
    walker_.Leave();
  }

  void CheckValues() noexcept {
    walker_.Enter(kSet);
    const bool isShort = walker_.Is(kUTCTime);
    BerBuffer time;
    if (!isShort && !walker_.Is(kGeneralizedTime)) {
      isUnreadable_ = !walker_.IsFailed();
    } else if (walker_.TakeContents(isShort ? kUTCTime : kGeneralizedTime, time)) {
      const std::string_view text(reinterpret_cast<const char*>(time.GetData()), time.GetSize());
      isUnreadable_ = ++count_ > 1 || !walker_.IsAtEnd() || !IsTime(text, isShort ? 2 : 4);
    }
    if (!isUnreadable_) walker_.Leave();
  }

  BerWalker& walker_;
  int count_ = 0;
  bool isUnreadable_ = false;
};

}  // namespace

bool AreSigningTimesReadable(const CmsSkeleton& skeleton) noexcept {
  ViewSource source(skeleton.after.GetData(), skeleton.after.GetSize());
  BerReader reader(source);
  BerWalker walker(reader);
  SigningTimeCheck check(walker);
  check.CheckSigners();
  const bool isShortOfMemory = !check.IsUnreadable() && walker.IsFailed() && !reader.IsRefused();
  if (isShortOfMemory) return false;
  // What the walk recorded about other things is not the reason of anything.
  OruGuiBase::ClearLastError();
  return !check.IsUnreadable() || FailWith("The signing time of a signer cannot be read");
}

}  // namespace OruOssSec
