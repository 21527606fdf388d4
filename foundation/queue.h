#pragma once

#include <cstdint>
#include <new>
#include <utility>

namespace OruGuiBase {

/// A queue that owns its elements, which are made by new: a singly linked list of nodes. It can be moved, but
/// neither copied nor shared. A range-based for visits the elements in order: `for (Certificate& certificate
/// : chain)`.
template <class T>
class PtrContainerQueue {
 public:
  struct Node {
    T* element;
    Node* next;
  };

  /// Visits the elements from the first on. Valid until Clear() or the end of the queue; Append does not
  /// matter.
  class Iterator {
   public:
    T& operator*() const noexcept { return *node_->element; }
    Iterator& operator++() noexcept {
      node_ = node_->next;
      return *this;
    }
    bool operator==(const Iterator&) const noexcept = default;

   private:
    friend class PtrContainerQueue;
    explicit Iterator(const Node* node) noexcept : node_(node) {}

    const Node* node_;
  };

  PtrContainerQueue() noexcept = default;
  PtrContainerQueue(const PtrContainerQueue&) = delete;
  PtrContainerQueue& operator=(const PtrContainerQueue&) = delete;
  PtrContainerQueue(PtrContainerQueue&& other) noexcept
      : first_(std::exchange(other.first_, nullptr)),
        last_(std::exchange(other.last_, nullptr)),
        count_(std::exchange(other.count_, 0)) {}
  PtrContainerQueue& operator=(PtrContainerQueue&&) = delete;
  ~PtrContainerQueue() { Clear(); }

  /// Takes ownership of an element, not null, and adds it at the end. False on allocation failure; the
  /// element is then deleted.
  bool Append(T* element) noexcept {
    Node* node = new (std::nothrow) Node{element, nullptr};
    if (node == nullptr) {
      delete element;
      return false;
    }
    (last_ != nullptr ? last_->next : first_) = node;
    last_ = node;
    ++count_;
    return true;
  }

  /// Detaches the list, then destroys each element, and last frees the nodes: a destructor of an element that
  /// uses the queue finds it empty.
  void Clear() noexcept {
    Node* const list = std::exchange(first_, nullptr);
    last_ = nullptr;
    count_ = 0;
    for (Node* node = list; node != nullptr; node = node->next) delete node->element;
    for (Node* node = list; node != nullptr;) delete std::exchange(node, node->next);
  }

  Iterator begin() const noexcept { return Iterator(first_); }
  Iterator end() const noexcept { return Iterator(nullptr); }
  const Node* GetFirst() const noexcept { return first_; }
  std::uint32_t GetCount() const noexcept { return count_; }
  bool IsEmpty() const noexcept { return first_ == nullptr; }
  /// The element at an index, or null past the end. Walks the list.
  T* Get(std::uint32_t index) const noexcept {
    const Node* node = first_;
    while (node != nullptr && index-- > 0) node = node->next;
    return node != nullptr ? node->element : nullptr;
  }

 private:
  Node* first_ = nullptr;
  Node* last_ = nullptr;
  std::uint32_t count_ = 0;
};

}  // namespace OruGuiBase
