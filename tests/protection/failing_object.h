#pragma once

namespace TestSupport {

/// Refuses its memory to one of the objects that are made by a new that throws nothing, counted from 1 since
/// this was made. Everything else, the test's own objects among it, gets what it asks for. One at a time.
class FailingObject {
 public:
  explicit FailingObject(int number);
  ~FailingObject() { End(); }
  FailingObject(const FailingObject&) = delete;
  FailingObject& operator=(const FailingObject&) = delete;

  /// From here on nothing fails. Whether an object has been refused.
  bool End();
};

}  // namespace TestSupport
