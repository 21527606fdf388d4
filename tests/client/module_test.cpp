#include "client/module.h"

#include <chrono>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <list>
#include <string>
#include <vector>

#include "foundation/format.h"
#include "foundation/module.h"
#include "foundation/trace.h"
#include "tests/support/text.h"

namespace OruKalvix {
namespace {

using OruGuiBase::BaseInitializer;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::Str;

/// A thread of its own that enters the init section and leaves it again.
class SectionVisit {
 public:
  SectionVisit()
      : done_(std::async(std::launch::async, [] {
          OruGuiBase::EnterInitSection();
          OruGuiBase::LeaveInitSection();
        })) {}
  bool IsOverWithin(std::chrono::milliseconds time) const {
    return done_.wait_for(time) == std::future_status::ready;
  }

 private:
  std::future<void> done_;
};

/// Records what the library's frame reports, and whether the init section was held at that time.
class FrameRecorder final : public OruGuiTrace::ITraceSink {
 public:
  FrameRecorder() { OruGuiTrace::SetTraceSink(this, 1); }
  ~FrameRecorder() { OruGuiTrace::SetTraceSink(nullptr, 0); }
  FrameRecorder(const FrameRecorder&) = delete;
  FrameRecorder& operator=(const FrameRecorder&) = delete;

  void OnTrace(std::uint32_t, std::uint32_t level, const char*, std::uint32_t, const char* text) override {
    if (level != 1) return;
    texts.emplace_back(text);
    visits_.emplace_back();
    allInside = allInside && !visits_.back().IsOverWithin(std::chrono::milliseconds(20));
  }

  std::vector<std::string> texts;
  bool allInside = true;

 private:
  std::list<SectionVisit> visits_;  // each ends when the section is left
};

/// Calls the entry point for a module of its own, and puts the frame back to where the load left it.
class ModuleFrame : public ::testing::Test {
 protected:
  ModuleFrame() : loaded_(GetModuleHandle()) {}
  ModuleFrame(const ModuleFrame&) = delete;
  ModuleFrame& operator=(const ModuleFrame&) = delete;
  ~ModuleFrame() override { ModuleEntry(loaded_, ModuleReason::ProcessAttach, nullptr); }

  void* Module() { return &place_; }
  std::string TraceOf(const char* what) { return Str(OruGuiBase::FmtArgs("Module %p: %s", Module(), what)); }

 private:
  void* loaded_;
  int place_ = 0;
};

TEST_F(ModuleFrame, IsAttachedByTheLoadItself) {
  EXPECT_EQ(GetAttachState(), 1);
  EXPECT_NE(GetModuleHandle(), nullptr);
}

TEST_F(ModuleFrame, KeepsFoundationUpByTwoInitializers) {
  EXPECT_GE(BaseInitializer::GetCount(), 2U);
  const unsigned int before = BaseInitializer::GetCount();
  {
    const BaseInitializer another;
    EXPECT_EQ(BaseInitializer::GetCount(), before + 1);
  }
  EXPECT_EQ(BaseInitializer::GetCount(), before);
}

TEST_F(ModuleFrame, ReportsAProcessAttachInsideTheInitSection) {
  FrameRecorder recorder;
  EXPECT_TRUE(ModuleEntry(Module(), ModuleReason::ProcessAttach, nullptr));
  EXPECT_THAT(recorder.texts, ElementsAre("Trace startup", TraceOf("process attach")));
  EXPECT_TRUE(recorder.allInside);
  EXPECT_EQ(GetAttachState(), 1);
  EXPECT_EQ(GetModuleHandle(), Module());
}

TEST_F(ModuleFrame, MakesItsContextOnceAndNotAgainAtALaterAttach) {
  FrameRecorder recorder;
  ModuleEntry(Module(), ModuleReason::ProcessAttach, nullptr);
  ModuleEntry(Module(), ModuleReason::ProcessAttach, nullptr);
  EXPECT_THAT(recorder.texts, ElementsAre("Trace startup", TraceOf("process attach"), "Trace startup",
                                          TraceOf("process attach")));
}

// A process detach is reported inside the init section; the module handle is kept.
TEST_F(ModuleFrame, ReportsAProcessDetachAndKeepsItsHandle) {
  ModuleEntry(Module(), ModuleReason::ProcessAttach, nullptr);
  FrameRecorder recorder;
  EXPECT_TRUE(ModuleEntry(Module(), ModuleReason::ProcessDetach, nullptr));
  EXPECT_THAT(recorder.texts, ElementsAre(TraceOf("process detach")));
  EXPECT_TRUE(recorder.allInside);
  EXPECT_EQ(GetAttachState(), 2);
  EXPECT_EQ(GetModuleHandle(), Module());
}

// Threads that come and go are reported; the attach state is kept.
TEST_F(ModuleFrame, ReportsThreadsAndKeepsItsState) {
  void* const before = GetModuleHandle();
  FrameRecorder recorder;
  EXPECT_TRUE(ModuleEntry(Module(), ModuleReason::ThreadAttach, nullptr));
  EXPECT_TRUE(ModuleEntry(Module(), ModuleReason::ThreadDetach, nullptr));
  EXPECT_THAT(recorder.texts,
              ElementsAre("Trace startup", TraceOf("thread attach"), TraceOf("thread detach")));
  EXPECT_TRUE(recorder.allInside);
  EXPECT_EQ(GetAttachState(), 1);
  EXPECT_EQ(GetModuleHandle(), before);
}

TEST_F(ModuleFrame, DoesNothingForAnyOtherReason) {
  FrameRecorder recorder;
  EXPECT_TRUE(ModuleEntry(Module(), static_cast<ModuleReason>(4), nullptr));
  EXPECT_TRUE(ModuleEntry(Module(), static_cast<ModuleReason>(0xFFFFFFFFU), nullptr));
  EXPECT_THAT(recorder.texts, IsEmpty());
  EXPECT_EQ(GetAttachState(), 1);
}

// The entry point succeeds for each reason whenever there is a module.
TEST_F(ModuleFrame, RefusesNothingButAMissingModule) {
  for (std::uint32_t reason = 0; reason <= 4; ++reason) {
    EXPECT_TRUE(ModuleEntry(Module(), static_cast<ModuleReason>(reason), nullptr)) << reason;
    EXPECT_TRUE(ModuleEntry(Module(), static_cast<ModuleReason>(reason), Module())) << reason;
    EXPECT_FALSE(ModuleEntry(nullptr, static_cast<ModuleReason>(reason), nullptr)) << reason;
  }
}

// The init section is left again whatever the reason of the call.
TEST_F(ModuleFrame, LeavesTheInitSectionForEachReason) {
  for (std::uint32_t reason = 0; reason <= 4; ++reason) {
    ModuleEntry(Module(), static_cast<ModuleReason>(reason), nullptr);
    EXPECT_TRUE(SectionVisit().IsOverWithin(std::chrono::seconds(10))) << reason;
  }
}

TEST_F(ModuleFrame, MayBeEnteredByTheThreadThatIsInTheInitSection) {
  OruGuiBase::EnterInitSection();
  EXPECT_TRUE(ModuleEntry(Module(), ModuleReason::ThreadAttach, nullptr));
  const SectionVisit visit;
  EXPECT_FALSE(visit.IsOverWithin(std::chrono::milliseconds(20)));
  OruGuiBase::LeaveInitSection();
  EXPECT_TRUE(visit.IsOverWithin(std::chrono::seconds(10)));
}

TEST_F(ModuleFrame, WaitsWhileAnotherThreadIsInTheInitSection) {
  OruGuiBase::EnterInitSection();
  std::future<bool> entry = std::async(
      std::launch::async, [this] { return ModuleEntry(Module(), ModuleReason::ThreadAttach, nullptr); });
  EXPECT_EQ(entry.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  OruGuiBase::LeaveInitSection();
  EXPECT_TRUE(entry.get());
}

TEST(ApplicationHooks, DoNothingInALibrary) {
  int place = 0;
  FrameRecorder recorder;
  {
    const OruGuiGui::DllContext context(&OruGuiGui::GuiApp::Start, &OruGuiGui::GuiApp::Idle,
                                        &OruGuiGui::GuiApp::Open, &place);
    context.Start();
    context.Idle();
    EXPECT_FALSE(context.Open("a document"));
  }
  const std::string module = Str(OruGuiBase::FmtArgs("Module %p: ", static_cast<void*>(&place)));
  EXPECT_THAT(recorder.texts, ElementsAre(module + "context made", module + "context ended"));
}

}  // namespace
}  // namespace OruKalvix
