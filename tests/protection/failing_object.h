#pragma once

namespace TestSupport {

/// Makes one allocation by new (std::nothrow) fail, counted from 1 since the construction of this object. All
/// other allocations succeed, those of the test itself too. Only one may exist at a time.
class FailingObject {
 public:
  explicit FailingObject(int number);
  ~FailingObject() { End(); }
  FailingObject(const FailingObject&) = delete;
  FailingObject& operator=(const FailingObject&) = delete;

  /// Ends it: nothing fails from here on. Returns whether an allocation has failed.
  bool End();
};

}  // namespace TestSupport
