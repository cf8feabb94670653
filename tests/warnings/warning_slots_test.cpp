// The warning manager's per-context and per-thread state, as a host
// reaches it through libkt.so: the current-manager slot, and the
// warning-log factory and destroy functions that apply only inside a
// virtual-machine context.
#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kt/vmcontext.h"
#include "kt/warnings.h"
#include "support/counting_context.h"

namespace {

// Enters a new context for the guard's lifetime, on this thread.
struct EnteredContext {
  kt_vm_context* vm = ktNewVmContext();
  EnteredContext() { ktEnterVmContext(vm); }
  ~EnteredContext() { ktLeaveVmContext(); ktDeleteVmContext(vm); }
};

struct NullLog : ktWarningLog {
  void logWarning(ktWarningManagerContext*, const std::string&, const cx::ustring&, va_list*,
                  const cx::ustring&, bool) override {}
  void logWarning(ktWarningManagerContext*, const boost::optional<std::string>&,
                  const resource_core::BaseMsgID&, bool) override {}
};

int gMade = 0, gDestroyed = 0;
ktWarningLog* MakeLog() { ++gMade; return new NullLog; }
void DestroyLog(ktWarningLog* log) { ++gDestroyed; delete log; }

}  // namespace

TEST(WarningSlots, LogFactoryAndDestroyApplyOnlyInsideAContext) {
  kttest::Contexts contexts;
  gMade = gDestroyed = 0;
  ktSetWarningLogFactoryFcn(MakeLog);  // ignored: no context active
  ktWarningManagerContext* outside = ktNewWarningManager(&contexts.memory);
  EXPECT_EQ(ktGetWarningLog(outside), nullptr);
  ktDeleteWarningManager(outside);

  EnteredContext entered;
  ktSetWarningLogFactoryFcn(MakeLog);
  ktSetWarningLogDestroyFcn(DestroyLog);
  ktWarningManagerContext* inside = ktNewWarningManager(&contexts.memory);
  EXPECT_NE(ktGetWarningLog(inside), nullptr);
  EXPECT_EQ(gMade, 1);

  // Another thread has its own (default) factory.
  ktWarningLog* otherThreadLog = reinterpret_cast<ktWarningLog*>(1);
  std::thread([&] {
    ktEnterVmContext(entered.vm);
    ktWarningManagerContext* m = ktNewWarningManager(&contexts.memory);
    otherThreadLog = ktGetWarningLog(m);
    ktDeleteWarningManager(m);
    ktLeaveVmContext();
  }).join();
  EXPECT_EQ(otherThreadLog, nullptr);

  ktDeleteWarningManager(inside);
  EXPECT_EQ(gDestroyed, 1) << "the log goes to this thread's destroy function";
  ktSetWarningLogFactoryFcn(nullptr);
  ktWarningManagerContext* defaulted = ktNewWarningManager(&contexts.memory);
  EXPECT_EQ(ktGetWarningLog(defaulted), nullptr) << "null restores the default factory";
  ktDeleteWarningManager(defaulted);
}

// The current manager is per product context; readers on other threads
// see the old or the new one while it changes.
TEST(WarningSlots, CurrentManagerIsPerContextAndConcurrentReadersSeeOldOrNew) {
  kttest::Contexts contexts;
  ktWarningManagerContext* a = ktNewWarningManager(&contexts.memory);
  ktWarningManagerContext* b = ktNewWarningManager(&contexts.memory);
  ktSetWarningManagerContext(a);
  EXPECT_EQ(ktGetWarningManagerContext(), a);
  EXPECT_EQ(ktGetWarningManagerContextSafe(), nullptr) << "no virtual-machine context active";
  {
    EnteredContext entered;
    EXPECT_EQ(ktGetWarningManagerContext(), nullptr) << "a new context has no manager yet";
    ktSetWarningManagerContext(b);
    EXPECT_EQ(ktGetWarningManagerContextSafe(), b);
  }
  EXPECT_EQ(ktGetWarningManagerContext(), a);
  std::atomic<bool> stop{false};
  std::atomic<int> bad{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i)
    readers.emplace_back([&] {
      while (!stop) {
        ktWarningManagerContext* m = ktGetWarningManagerContext();
        if (m != a && m != b) ++bad;
      }
    });
  for (int i = 0; i < 20000; ++i) ktSetWarningManagerContext(i % 2 ? a : b);
  stop = true;
  for (auto& t : readers) t.join();
  EXPECT_EQ(bad, 0);
  ktSetWarningManagerContext(nullptr);
  ktDeleteWarningManager(a);
  ktDeleteWarningManager(b);
}
