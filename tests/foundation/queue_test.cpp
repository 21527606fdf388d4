#include "foundation/queue.h"

#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace OruGuiBase {
namespace {

// Records its destruction; its queue must be empty at that time.
class Element {
 public:
  Element(int id, std::vector<int>& ended, const PtrContainerQueue<Element>* queue = nullptr)
      : id_(id), ended_(ended), queue_(queue) {}
  Element(const Element&) = delete;
  Element& operator=(const Element&) = delete;
  ~Element() {
    ended_.push_back(id_);
    EXPECT_TRUE(queue_ == nullptr || (queue_->IsEmpty() && queue_->GetCount() == 0));
  }
  int GetId() const { return id_; }

 private:
  int id_;
  std::vector<int>& ended_;
  const PtrContainerQueue<Element>* queue_;
};

TEST(PtrContainerQueueTest, KeepsElementsInOrder) {
  std::vector<int> ended;
  PtrContainerQueue<Element> queue;
  EXPECT_TRUE(queue.IsEmpty());
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(queue.Append(new Element(i, ended)));
  EXPECT_EQ(queue.GetCount(), 3U);
  EXPECT_EQ(queue.Get(0)->GetId(), 0);
  EXPECT_EQ(queue.Get(2)->GetId(), 2);
  EXPECT_EQ(queue.Get(3), nullptr);
  int expected = 0;
  for (const auto* node = queue.GetFirst(); node != nullptr; node = node->next) {
    EXPECT_EQ(node->element->GetId(), expected++);
  }
}

TEST(PtrContainerQueueTest, IterationVisitsElementsInOrder) {
  std::vector<int> ended;
  PtrContainerQueue<Element> queue;
  EXPECT_EQ(queue.begin(), queue.end());
  for (int i = 0; i < 3; ++i) queue.Append(new Element(i, ended));
  std::vector<int> visited;
  for (const Element& element : queue) visited.push_back(element.GetId());
  EXPECT_EQ(visited, (std::vector<int>{0, 1, 2}));
}

TEST(PtrContainerQueueTest, IterationVisitsElementsAppendedMeanwhile) {
  std::vector<int> ended;
  PtrContainerQueue<Element> queue;
  queue.Append(new Element(0, ended));
  std::vector<int> visited;
  for (const Element& element : queue) {
    visited.push_back(element.GetId());
    if (visited.size() < 3) queue.Append(new Element(element.GetId() + 1, ended));
  }
  EXPECT_EQ(visited, (std::vector<int>{0, 1, 2}));
}

TEST(PtrContainerQueueTest, DestroysItsElementsInOrder) {
  std::vector<int> ended;
  {
    PtrContainerQueue<Element> queue;
    for (int i = 0; i < 3; ++i) queue.Append(new Element(i, ended));
  }
  EXPECT_EQ(ended, (std::vector<int>{0, 1, 2}));
}

TEST(PtrContainerQueueTest, DestructorsOfElementsFindTheQueueEmpty) {
  std::vector<int> ended;
  PtrContainerQueue<Element> queue;
  for (int i = 0; i < 3; ++i) queue.Append(new Element(i, ended, &queue));
  queue.Clear();
  EXPECT_EQ(ended.size(), 3U);
}

TEST(PtrContainerQueueTest, CanBeFilledAgainAfterClearing) {
  std::vector<int> ended;
  PtrContainerQueue<Element> queue;
  queue.Append(new Element(1, ended));
  queue.Clear();
  queue.Append(new Element(2, ended));
  EXPECT_EQ(queue.GetCount(), 1U);
  EXPECT_EQ(queue.Get(0)->GetId(), 2);
}

TEST(PtrContainerQueueTest, MovingTransfersTheElements) {
  std::vector<int> ended;
  PtrContainerQueue<Element> queue;
  queue.Append(new Element(1, ended));
  PtrContainerQueue<Element> other(std::move(queue));
  EXPECT_TRUE(queue.IsEmpty());  // NOLINT(bugprone-use-after-move): that is what is tested
  EXPECT_EQ(queue.Get(0), nullptr);
  EXPECT_EQ(other.GetCount(), 1U);
  other.Append(new Element(2, ended));
  EXPECT_EQ(other.Get(1)->GetId(), 2);
}

}  // namespace
}  // namespace OruGuiBase
