// Virtual-machine contexts and sessions as a host drives them, through the
// exported interface of libkt.so.
#include "kt/vmcontext.h"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

TEST(VmContext, EnterLeaveNestAndDeleteOnlyWhenLeft) {
  kt_vm_context* outer = ktNewVmContext();
  kt_vm_context* inner = ktNewVmContext();
  ASSERT_NE(outer, nullptr);
  EXPECT_EQ(ktIsVmContextActive(), 0);
  EXPECT_EQ(ktLeaveVmContext(), nullptr) << "leaving with nothing entered does nothing";
  EXPECT_EQ(ktEnterVmContext(nullptr), -1);
  EXPECT_EQ(ktIsVmContextActive(), 0);

  EXPECT_EQ(ktEnterVmContext(outer), 0);
  EXPECT_EQ(ktEnterVmContext(inner), 0);
  EXPECT_EQ(ktGetCurrentVmContext(), inner);
  EXPECT_EQ(ktDeleteVmContext(inner), -1) << "refused while a thread is inside";
  EXPECT_EQ(ktLeaveVmContext(), inner);
  EXPECT_EQ(ktGetCurrentVmContext(), outer);
  EXPECT_EQ(ktIsVmContextActive(), 1);
  EXPECT_EQ(ktLeaveVmContext(), outer);
  EXPECT_EQ(ktIsVmContextActive(), 0);
  EXPECT_EQ(ktDeleteVmContext(inner), 0);
  EXPECT_EQ(ktDeleteVmContext(outer), 0);
  EXPECT_EQ(ktDeleteVmContext(nullptr), 0);
}

TEST(VmContext, SessionIsSeenOnlyInsideItsContext) {
  kt_vm_context* vm = ktNewVmContext();
  EXPECT_EQ(ktEndVmSession(vm), -1) << "no session to end";
  EXPECT_EQ(ktStartVmSession(vm), 0);
  EXPECT_EQ(ktStartVmSession(vm), -1) << "one session at a time";
  EXPECT_EQ(ktIsVmSessionActive(), 0) << "not entered";
  ktEnterVmContext(vm);
  EXPECT_EQ(ktIsVmSessionActive(), 1);
  int seenByOtherThread = -1;
  std::thread([&] { seenByOtherThread = ktIsVmSessionActive(); }).join();
  EXPECT_EQ(seenByOtherThread, 0) << "entering is per thread";
  EXPECT_EQ(ktEndVmSession(vm), 0);
  EXPECT_EQ(ktIsVmSessionActive(), 0);
  EXPECT_EQ(ktStartVmSession(nullptr), -1);
  EXPECT_EQ(ktStartVmSession(vm), 0) << "a new session may start after the last ended";
  ktLeaveVmContext();
  EXPECT_EQ(ktDeleteVmContext(vm), 0) << "a running session ends with its context";
}

// A thread that ends inside a context gives its entry back; otherwise the
// context could never be deleted.
TEST(VmContext, ThreadEndingInsideLeavesItsContexts) {
  kt_vm_context* vm = ktNewVmContext();
  std::thread([vm] {
    ktEnterVmContext(vm);
    ktEnterVmContext(vm);
  }).join();
  EXPECT_EQ(ktDeleteVmContext(vm), 0);
}

TEST(VmContext, ConcurrentEntriesSessionsAndDeletion) {
  kt_vm_context* vm = ktNewVmContext();
  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0};
  std::vector<std::thread> workers;
  for (int i = 0; i < 3; ++i)
    workers.emplace_back([&] {
      while (!stop) {
        ktEnterVmContext(vm);
        if (ktGetCurrentVmContext() != vm) ++wrong;
        (void)ktIsVmSessionActive();
        if (ktLeaveVmContext() != vm) ++wrong;
      }
    });
  for (int i = 0; i < 2000; ++i) {
    ktStartVmSession(vm);
    ktEndVmSession(vm);
  }
  stop = true;
  for (auto& t : workers) t.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(ktDeleteVmContext(vm), 0);
}
