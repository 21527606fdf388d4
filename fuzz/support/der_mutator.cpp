// Parses BER leniently into a tree, changes one element, and encodes the tree again. What cannot be parsed
// stays as plain bytes, so that any input can be mutated.
#include "fuzz/support/der_mutator.h"

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

#include "fuzz/support/text.h"

namespace Fuzz {
namespace {

constexpr std::size_t kDeepest = 24;  // of nested elements; deeper ones are treated as plain bytes
constexpr std::size_t kGrowth = 64;   // bytes that one mutation may add
constexpr std::uint8_t kConstructed = 0x20;
constexpr char kIndefinite = static_cast<char>(0x80);
const std::string kEnd(2, '\0');

/// One element with its children, or, without a tag, bytes that are not an element.
struct Node {
  std::string tag;
  bool isIndefinite = false;
  std::string body;            ///< of a primitive element, or bytes that are not one
  std::vector<Node> children;  ///< of a constructed one

  bool IsConstructed() const {
    return !tag.empty() && (static_cast<std::uint8_t>(tag[0]) & kConstructed) != 0;
  }
};

struct Head {
  std::size_t size = 0;
  std::size_t length = 0;
  std::size_t tagSize = 0;
  bool isIndefinite = false;
};

// Identifier and length octets (X.690, 8.1.2 and 8.1.3). Lengths of more than four octets are not read: no
// input is that large.
bool ReadHead(std::string_view bytes, Head& head) {
  if (bytes.size() < 2) return false;
  std::size_t at = 1;
  if ((bytes[0] & 0x1F) == 0x1F) {
    while (at < bytes.size() && (bytes[at] & 0x80) != 0) ++at;
    ++at;
  }
  head.tagSize = at;
  if (at >= bytes.size()) return false;
  head.length = static_cast<std::uint8_t>(bytes[at++]);
  head.isIndefinite = head.length == 0x80;
  if (head.length > 0x80) {
    const std::size_t count = head.length & 0x7F;
    if (count > 4 || bytes.size() - at < count) return false;
    head.length = 0;
    for (std::size_t i = 0; i < count; ++i)
      head.length = head.length << 8 | static_cast<std::uint8_t>(bytes[at++]);
  }
  head.size = at;
  return head.isIndefinite || head.length <= bytes.size() - at;
}

std::vector<Node> Parse(std::string_view& bytes, bool isIndefinite, std::size_t depth);

bool ParseOne(std::string_view& bytes, std::size_t depth, Node& node) {
  Head head;
  if (depth > kDeepest || !ReadHead(bytes, head)) return false;
  node.tag = bytes.substr(0, head.tagSize);
  if (head.isIndefinite && !node.IsConstructed()) return false;
  node.isIndefinite = head.isIndefinite;
  bytes.remove_prefix(head.size);
  if (node.isIndefinite) {
    node.children = Parse(bytes, /*isIndefinite=*/true, depth + 1);
    return true;
  }
  std::string_view body = bytes.substr(0, head.length);
  bytes.remove_prefix(head.length);
  if (node.IsConstructed()) {
    node.children = Parse(body, /*isIndefinite=*/false, depth + 1);
  } else {
    node.body = body;
  }
  return true;
}

// Elements up to the end of the bytes, or up to the end-of-contents octets (X.690, 8.1.5).
std::vector<Node> Parse(std::string_view& bytes, bool isIndefinite, std::size_t depth) {
  std::vector<Node> nodes;
  while (!bytes.empty()) {
    if (isIndefinite && bytes.starts_with(kEnd)) {
      bytes.remove_prefix(kEnd.size());
      break;
    }
    Node node;
    const std::string_view before = bytes;
    // From the first element that cannot be parsed on, all remains as plain bytes.
    if (!ParseOne(bytes, depth, node)) {
      node = Node();
      node.body = before;
      bytes = {};
    }
    nodes.push_back(std::move(node));
  }
  return nodes;
}

std::string Write(const std::vector<Node>& nodes);

std::string WriteLength(std::size_t length) {
  if (length < 0x80) return {static_cast<char>(length)};
  std::string digits;
  for (; length != 0; length >>= 8) digits.insert(digits.begin(), static_cast<char>(length));
  return static_cast<char>(0x80 | digits.size()) + digits;
}

std::string Write(const Node& node) {
  if (node.tag.empty()) return node.body;
  const std::string body = node.IsConstructed() ? Write(node.children) : node.body;
  if (node.isIndefinite) return node.tag + kIndefinite + body + kEnd;
  return node.tag + WriteLength(body.size()) + body;
}

std::string Write(const std::vector<Node>& nodes) {
  std::string bytes;
  for (const Node& node : nodes) bytes += Write(node);
  return bytes;
}

/// The position of an element: the list that contains it, and its index there.
struct Place {
  std::vector<Node>* list;
  std::size_t at;

  Node& Get() const { return (*list)[at]; }
};

void Collect(std::vector<Node>& nodes, std::vector<Place>& places) {
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    places.push_back({&nodes, i});
    Collect(nodes[i].children, places);
  }
}

std::string MutateBytes(std::string bytes) {
  const std::size_t size = bytes.size();
  bytes.resize(size + kGrowth);
  bytes.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(bytes.data()), size, bytes.size()));
  return bytes;
}

// A primitive element becomes a constructed one with one segment; a constructed one gets the other form of
// length.
void ChangeForm(Node& node) {
  if (node.IsConstructed()) {
    node.isIndefinite = !node.isIndefinite;
  } else if (!node.tag.empty()) {
    Node segment;
    segment.tag = "\x04";
    segment.body = std::exchange(node.body, {});
    node.tag[0] = static_cast<char>(static_cast<std::uint8_t>(node.tag[0]) | kConstructed);
    node.children = {segment};
  }
}

using ChangeBytes = std::function<std::string(std::string)>;

// A copy of `other` is made before anything changes, as it may lie inside `place`.
void Change(const Place& place, const Place& other, std::size_t choice, const ChangeBytes& change) {
  const auto at = static_cast<std::ptrdiff_t>(place.at);
  switch (choice) {
    case 0:
      place.list->erase(place.list->begin() + at);
      break;
    case 1:
      place.list->insert(place.list->begin() + at, Node(place.Get()));
      break;
    case 2:
      place.list->insert(place.list->begin() + at, Node(other.Get()));
      break;
    case 3:
      place.Get() = Node(other.Get());
      break;
    case 4:
      ChangeForm(place.Get());
      break;
    case 5:
      place.Get().tag = change(place.Get().tag).substr(0, 2);
      break;
    default:
      if (place.Get().IsConstructed()) {
        place.Get().tag.clear();
        place.Get().body = change(Write(place.Get().children));
        place.Get().children.clear();
      } else {
        place.Get().body = change(place.Get().body);
      }
      break;
  }
}

}  // namespace

std::string ChangeElement(std::string_view bytes, const std::function<std::size_t(std::size_t)>& below,
                          const std::function<std::string(std::string)>& change) {
  constexpr std::size_t kChoices = 12;  // those from 6 on all change the content, where most of the bytes are
  std::string_view rest = bytes;
  std::vector<Node> nodes = Parse(rest, /*isIndefinite=*/false, 0);
  std::vector<Place> places;
  Collect(nodes, places);
  if (places.empty()) return change(std::string(bytes));
  const std::size_t choice = below(kChoices);
  const std::size_t place = below(places.size());
  Change(places[place], places[below(places.size())], choice, change);
  return Write(nodes);
}

std::string MutateDer(std::string_view bytes, unsigned int seed) {
  std::minstd_rand random(seed);
  const auto below = [&random](std::size_t bound) { return static_cast<std::size_t>(random()) % bound; };
  if (below(4) == 0) return MutateBytes(std::string(bytes));
  return ChangeElement(bytes, below, MutateBytes);
}

std::size_t MutateDer(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned int seed) {
  const std::string changed = MutateDer(View(data, size), seed);
  // libFuzzer takes no result that is longer than it allows, so such a change is replaced by one of its own.
  if (changed.empty() || changed.size() > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
  std::copy(changed.begin(), changed.end(), data);
  return changed.size();
}

}  // namespace Fuzz
