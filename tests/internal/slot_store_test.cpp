// Scopes, typed lookup and lifetimes of the per-context slot store.
#include "internal/slot_store.h"

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using namespace kt::internal;

namespace {

// Counts live instances and records destruction order.
std::vector<int>* gDestroyed = nullptr;
struct Counted {
  explicit Counted(int v) : value(v) { ++live; }
  ~Counted() {
    --live;
    if (gDestroyed) gDestroyed->push_back(value);
  }
  int value;
  static inline std::atomic<int> live{0};
};
struct OtherCounted : Counted {
  using Counted::Counted;
};

}  // namespace

TEST(SlotStore, FindFindOrInsertAndInsertByType) {
  SlotStore store;
  EXPECT_EQ(store.Find<Counted>(), nullptr);
  Counted& a = store.FindOrInsert<Counted>(1);
  EXPECT_EQ(&store.FindOrInsert<Counted>(2), &a) << "second call must find, not build";
  EXPECT_EQ(a.value, 1);
  EXPECT_EQ(store.Find<OtherCounted>(), nullptr) << "types are separate keys";

  std::vector<int> destroyed;
  gDestroyed = &destroyed;
  Counted& b = store.Insert<Counted>(3);
  EXPECT_EQ(b.value, 3);
  EXPECT_EQ(store.Find<Counted>(), &b);
  EXPECT_EQ(destroyed, std::vector<int>{1}) << "Insert destroys the slot it replaces";
  EXPECT_EQ(store.Size(), 1u);
  gDestroyed = nullptr;
}

TEST(SlotStore, DestroysSlotsNewestFirstWithTheStore) {
  std::vector<int> destroyed;
  gDestroyed = &destroyed;
  int before = Counted::live;
  {
    SlotStore store;
    store.FindOrInsert<Counted>(1);
    store.FindOrInsert<OtherCounted>(2);
    EXPECT_EQ(Counted::live, before + 2);
  }
  EXPECT_EQ(Counted::live, before);
  EXPECT_EQ(destroyed, (std::vector<int>{2, 1}));
  gDestroyed = nullptr;
}

TEST(SlotStore, VmContextsNestAndShadowTheDefault) {
  EXPECT_FALSE(RequiredContextActive());
  EXPECT_EQ(&CurrentContextStore(), &DefaultContextStore());
  VmContext outer, inner;
  {
    VmContextScope o(&outer);
    EXPECT_TRUE(RequiredContextActive());
    EXPECT_EQ(&CurrentContextStore(), &outer.store());
    uint64_t epoch = ThisThreadContextEpoch();
    EXPECT_EQ(CurrentSessionStore(), nullptr);
    ASSERT_TRUE(outer.StartSession());
    EXPECT_EQ(CurrentSessionStore(), outer.SessionStore());
    {
      VmContextScope i(&inner);
      EXPECT_EQ(&CurrentContextStore(), &inner.store());
      EXPECT_EQ(CurrentSessionStore(), nullptr) << "sessions belong to their context";
    }
    EXPECT_EQ(ThisThreadContextEpoch(), epoch + 2) << "every enter and leave moves it on";
    EXPECT_EQ(&CurrentContextStore(), &outer.store());
  }
  EXPECT_FALSE(RequiredContextActive());
  LeaveVmContext();  // unbalanced leave is harmless
  EXPECT_EQ(&CurrentContextStore(), &DefaultContextStore());
}

TEST(SlotStore, ThreadScopeIsPerThreadAndVmContextIsPerThread) {
  ThisThreadStore().Insert<std::string>("main");
  VmContext vm;
  VmContextScope scope(&vm);
  std::string seen;
  bool activeThere = true;
  std::thread t([&] {
    seen = ThisThreadStore().Find<std::string>() ? "found" : "none";
    activeThere = RequiredContextActive();
  });
  t.join();
  EXPECT_EQ(seen, "none");
  EXPECT_FALSE(activeThere) << "entering a context is per thread";
  EXPECT_EQ(*ThisThreadStore().Find<std::string>(), "main");
}

TEST(SlotStore, ConcurrentFindOrInsertBuildsOneSlot) {
  SlotStore store;
  int before = Counted::live;
  std::vector<std::thread> threads;
  std::vector<Counted*> got(8);
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&, i] { got[i] = &store.FindOrInsert<Counted>(i); });
  for (auto& t : threads) t.join();
  for (Counted* p : got) EXPECT_EQ(p, got[0]);
  EXPECT_EQ(Counted::live, before + 1);
}
