#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "foundation/ansistr.h"
#include "foundation/blob.h"
#include "foundation/json.h"
#include "foundation/kvmap.h"
#include "foundation/trace.h"
#include "foundation/val.h"
#include "tests/foundation/printing.h"

namespace OruGuiBase {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 5000;

// Runs the work on several threads that begin at the same time.
template <class Work>
void OnThreads(Work work) {
  std::atomic<int> waiting{kThreads};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&waiting, &work, i] {
      --waiting;
      while (waiting != 0) std::this_thread::yield();
      work(i);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(SharingTest, CountsStayCorrectWhenManyThreadsCopyAndDrop) {
  const AnsiStr text("shared");
  KVMap map;
  map.Set("key", text);
  Array<Val> array;
  array.Append(Val(map));
  const Val value(array);
  OnThreads([&](int) {
    for (int i = 0; i < kRounds; ++i) {
      const AnsiStr ownText(text);
      const Val ownValue(value);
      const KVMap ownMap(ownValue.AsArray()[0].AsMap());
      ASSERT_EQ(ownMap.Get("key").AsString(), "shared");
    }
  });
  EXPECT_EQ(text.GetImp()->refCount, 2U);
  EXPECT_EQ(map.GetImp()->refCount, 2U);
  EXPECT_EQ(array.GetImp()->refCount, 2U);
}

class CountedObject final : public IObject {
 public:
  void* QueryInterface(const char*) override { return nullptr; }
  std::uint32_t AddRef() override { return ++links; }
  std::uint32_t Release() override { return --links; }
  std::atomic<std::uint32_t> links{0};
};

TEST(SharingTest, TheLastOfManyThreadsFreesTheObject) {
  for (int round = 0; round < 50; ++round) {
    CountedObject content;
    Array<Val> array;
    array.Append(Val(&content));
    std::vector<Val> copies(kThreads, Val(array));
    array.Clear();
    ASSERT_EQ(content.links, 1U);
    OnThreads([&copies](int i) { copies[static_cast<std::size_t>(i)] = Val(); });
    ASSERT_EQ(content.links, 0U);
  }
}

TEST(SharingTest, ThreadsChangeTheirOwnCopiesOfOneValue) {
  KVMap map;
  map.Set("key", "original");
  AnsiStr text("original");
  Array<Val> array;
  array.Append(Val("original"));
  OnThreads([&](int i) {
    for (int round = 0; round < kRounds / 10; ++round) {
      KVMap ownMap(map);
      ownMap.Set("key", Val(std::int64_t{i}));
      ASSERT_EQ(ownMap.Get("key").AsInteger(), i);
      AnsiStr ownText(text);
      ownText += "!";
      ASSERT_EQ(ownText, "original!");
      Array<Val> ownArray(array);
      ownArray.At(0) = Val(std::int64_t{i});
      ASSERT_EQ(ownArray[0].AsInteger(), i);
    }
  });
  EXPECT_EQ(map.Get("key").AsString(), "original");
  EXPECT_EQ(text, "original");
  EXPECT_EQ(array[0].AsString(), "original");
}

TEST(SharingTest, AnUnknownLengthIsCountedByManyThreadsAtOnce) {
  for (int round = 0; round < 50; ++round) {
    char* buffer = nullptr;
    const AnsiStr text(64, buffer);
    std::memcpy(buffer, "counted on demand", sizeof "counted on demand");
    OnThreads([copy = text](int) { ASSERT_EQ(copy.GetLength(), 17U); });
    EXPECT_EQ(text.GetImp()->length, 17U);
  }
}

TEST(SharingTest, EmptyArraysOfNullMapsAreMadeOnce) {
  std::vector<const void*> seen(kThreads);
  OnThreads([&seen](int i) { seen[static_cast<std::size_t>(i)] = &KVMap::GetValues(nullptr); });
  for (const void* address : seen) EXPECT_EQ(address, seen[0]);
}

TEST(SharingTest, ManyThreadsParseAtOnce) {
  OnThreads([](int) {
    for (int i = 0; i < 50; ++i) {
      Val value;
      AnsiStr error;
      ASSERT_TRUE(JSON2Val(R"({"a":1,"b":2,"c":3,"d":4,"e":5,"f":6,"g":7,"h":8,"i":9,"j":10,"k":11,)"
                           R"("l":12,"m":13,"n":14,"o":15,"p":16,"q":17,"a":18})",
                           value, error));
      ASSERT_EQ(value.AsMap().GetCount(), 17U);
    }
  });
}

class CountingSink final : public OruGuiTrace::ITraceSink {
 public:
  void OnTrace(std::uint32_t, std::uint32_t, const char*, std::uint32_t, const char* text) override {
    if (std::strcmp(text, "event") == 0) ++count;
  }
  std::atomic<int> count{0};
};

TEST(SharingTest, ManyThreadsTraceIntoOneSink) {
  CountingSink sink;
  OruGuiTrace::SetTraceSink(&sink, 1);
  OnThreads([](int) {
    for (int i = 0; i < kRounds / 10; ++i) {
      OruGuiTrace::TraceMsg(4096, 1, "test", 1, OruGuiTrace::InitTraceContext("%s", "event"));
      OruGuiTrace::FreeTraceContext();
    }
  });
  OruGuiTrace::SetTraceSink(nullptr, 0);
  EXPECT_EQ(sink.count, kThreads * (kRounds / 10));
}

}  // namespace
}  // namespace OruGuiBase
