#include "fuzz/support/der_mutator.h"

#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "fuzz/support/text.h"

// The fuzzer's own way to change bytes. A program that only replays inputs has none and never asks for it.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize)
    __attribute__((weak));

namespace Fuzz {
namespace {

constexpr std::size_t kDeepest = 24;
constexpr std::size_t kGrowth = 64;
constexpr std::uint8_t kConstructed = 0x20;
constexpr char kIndefinite = static_cast<char>(0x80);
const std::string kEnd(2, '\0');

/// One element with its children, or bytes that are none (without a tag).
struct Node {
  std::string tag;
  bool isIndefinite = false;
  std::string body;            ///< of a primitive element, and bytes that are none
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
    node.children = Parse(bytes, true, depth + 1);
    return true;
  }
  std::string_view body = bytes.substr(0, head.length);
  bytes.remove_prefix(head.length);
  if (node.IsConstructed()) {
    node.children = Parse(body, false, depth + 1);
  } else {
    node.body = body;
  }
  return true;
}

// Elements to the end of the bytes, or to the mark that ends an indefinite length.
std::vector<Node> Parse(std::string_view& bytes, bool isIndefinite, std::size_t depth) {
  std::vector<Node> nodes;
  while (!bytes.empty()) {
    if (isIndefinite && bytes.starts_with(kEnd)) {
      bytes.remove_prefix(kEnd.size());
      break;
    }
    Node node;
    const std::string_view before = bytes;
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

/// Where an element stands: the list that holds it, and its place in that.
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

// An octet string becomes segments, anything else gets the other form of its length.
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

void Change(const Place& place, const Place& other, std::size_t type, const ChangeBytes& change) {
  const auto at = static_cast<std::ptrdiff_t>(place.at);
  switch (type) {
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
  constexpr std::size_t kTypes = 12;  // Most are the last: contents are most of what there is to change.
  std::string_view rest = bytes;
  std::vector<Node> nodes = Parse(rest, false, 0);
  std::vector<Place> places;
  Collect(nodes, places);
  if (places.empty()) return change(std::string(bytes));
  const std::size_t type = below(kTypes);
  const std::size_t place = below(places.size());
  Change(places[place], places[below(places.size())], type, change);
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
  if (changed.empty() || changed.size() > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
  std::memcpy(data, changed.data(), changed.size());
  return changed.size();
}

}  // namespace Fuzz
