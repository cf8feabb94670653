// Clocks and performance counters through libkt.so: each clock against the
// C library's own reading, and the PERF count per virtual-machine context.
#include "kt/clocks.h"

#include <sys/times.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

#include <gtest/gtest.h>

#include "kt/vmcontext.h"

TEST(Clocks, ReadingsAgreeWithTheCLibrary) {
  timespec before, after;
  clock_gettime(CLOCK_REALTIME, &before);
  uint64_t micro = ktUnixGetTimeOfDay();
  uint64_t nano = ktPosixRtPerfCount();
  clock_gettime(CLOCK_REALTIME, &after);
  auto ns = [](const timespec& t) { return uint64_t(t.tv_sec) * 1000000000u + uint64_t(t.tv_nsec); };
  EXPECT_TRUE(ns(before) / 1000 <= micro && micro <= ns(after) / 1000) << micro;
  EXPECT_TRUE(ns(before) <= nano && nano <= ns(after)) << nano;
  timespec resolution;
  clock_getres(CLOCK_REALTIME, &resolution);
  EXPECT_EQ(ktPosixRtPerfSpeed(), double(resolution.tv_nsec)) << "a resolution, not a speed";

  tms used;
  times(&used);
  double cpu = double(used.tms_utime + used.tms_stime) / double(sysconf(_SC_CLK_TCK));
  EXPECT_NEAR(ktCPUtime(), cpu, 0.05);
}

TEST(Clocks, WallClockIsLocalTime) {
  setenv("TZ", "America/New_York", 1);
  tzset();
  double fields[6];
  bool isDst = true;
  time_t now = time(nullptr);
  int dst = ktWallClockDST(fields, &isDst);
  tm local;
  localtime_r(&now, &local);
  EXPECT_TRUE(fields[0] == 1900 + local.tm_year && fields[1] == local.tm_mon + 1 && fields[3] == local.tm_hour);
  EXPECT_TRUE(dst == local.tm_isdst && isDst == (local.tm_isdst > 0));
  EXPECT_GT(ktRealtime(), (2026 - 2004) * 365.0 * 86400);  // the formula is tested internally
  unsetenv("TZ");
  tzset();
}

TEST(Clocks, PerfTicTocAndResolution) {
  EXPECT_TRUE(ktPERFspeed() == 1e6 && ktGettimeofdaySpeed() == 1e6 && ktGetPERFspeed() == 1e6);
  uint64_t start = ktPERFtic(false);
  double elapsed = ktPERFtoc(true, start, 0);
  EXPECT_TRUE(elapsed >= 0 && elapsed < 1) << elapsed;
  EXPECT_NEAR(ktPERFtoc(false, start - 2000000, 2e6), 1.0, 0.1) << "the caller's speed";
  double resolution = ktPERFresolution(false, 1e6);
  EXPECT_TRUE(resolution == 0 || resolution >= 1e-6);
}

TEST(Clocks, PerfCountBelongsToTheVirtualMachineContext) {
  ktSetPERFcount(7);
  kt_vm_context* vm = ktNewVmContext();
  ktEnterVmContext(vm);
  EXPECT_FALSE(ktIsPERFticSet()) << "a fresh context";
  ktSetPERFcount(1);
  EXPECT_TRUE(ktIsPERFticSet());
  ktLeaveVmContext();
  EXPECT_EQ(ktGetPERFcount(), 7u);
  ktEnterVmContext(vm);
  EXPECT_EQ(ktGetPERFcount(), 1u);
  ktLeaveVmContext();
  ktDeleteVmContext(vm);
  ktSetPERFcount(0);
}
