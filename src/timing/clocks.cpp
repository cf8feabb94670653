// Clocks and performance counters: CPU time, the microsecond wall clock
// and its tic/toc, the POSIX real-time counter, local time, the 2004 epoch,
// and the constant stubs of other platforms.
#include "kt/clocks.h"

#include <sys/time.h>
#include <sys/times.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cmath>

#include "internal/slot_store.h"
#include "timing/clocks.h"

namespace {

constexpr double kMicrosecondsPerSecond = 1000000.0;

// The saved tic of a virtual-machine context.
struct PerfCountSlot {
  std::atomic<uint64_t> count{0};
};

std::atomic<uint64_t>& PerfCount() {
  return kt::internal::CurrentContextStore().FindOrInsert<PerfCountSlot>().count;
}

// Local time now, with the microseconds of the same reading.
tm LocalNow(long* microseconds) {
  timeval now;
  gettimeofday(&now, nullptr);
  tm local;
  time_t seconds = now.tv_sec;
  localtime_r(&seconds, &local);
  *microseconds = now.tv_usec;
  return local;
}

}  // namespace

double kt::internal::RealtimeFromLocal(const double t[6]) {
  // Months since March 2004, in years that start in March, and only the
  // every-fourth-year leap rule: deliberate, exact for 1901-2099. The
  // divisions truncate toward zero, before 2004 too.
  long n = 12 * (static_cast<long>(t[0]) - 2004) + (static_cast<long>(t[1]) - 3);
  long q = n / 12, r = n - 12 * q, l = n / 48;
  long days = (153 * r + 2) / 5 + 365 * q + l;
  return (((static_cast<double>(days) + t[2] - 1) * 24 + t[3]) * 60 + t[4]) * 60 + t[5];
}

extern "C" {

double ktCPUtime(void) {
  static const double ticksPerSecond = static_cast<double>(sysconf(_SC_CLK_TCK));
  tms used;
  times(&used);
  return static_cast<double>(used.tms_utime + used.tms_stime) / ticksPerSecond;
}

uint64_t ktUnixGetTimeOfDay(void) {
  timeval now;
  gettimeofday(&now, nullptr);
  return static_cast<uint64_t>(now.tv_sec) * 1000000u + static_cast<uint64_t>(now.tv_usec);
}

int ktWallClockDST(double out[6], bool* isDst) {
  long microseconds = 0;
  tm local = LocalNow(&microseconds);
  out[0] = 1900.0 + local.tm_year;
  out[1] = local.tm_mon + 1.0;
  out[2] = local.tm_mday;
  out[3] = local.tm_hour;
  out[4] = local.tm_min;
  out[5] = local.tm_sec + static_cast<double>(microseconds) * 1e-6;
  *isDst = local.tm_isdst > 0;
  return local.tm_isdst;
}

void ktWallClock(double out[6]) {
  bool isDst = false;
  ktWallClockDST(out, &isDst);
}

double ktRealtime(void) {
  double t[6];
  ktWallClock(t);
  return kt::internal::RealtimeFromLocal(t);
}

uint64_t ktPERFtic(bool /*unused*/) { return ktUnixGetTimeOfDay(); }

double ktPERFspeed(void) { return kMicrosecondsPerSecond; }

double ktGettimeofdaySpeed(void) { return kMicrosecondsPerSecond; }

// The value captured at load time is the constant ktPERFspeed returns.
double ktGetPERFspeed(void) { return kMicrosecondsPerSecond; }

double ktPERFtoc(bool useDefaultSpeed, uint64_t start, double speed) {
  double elapsed = static_cast<double>(ktUnixGetTimeOfDay() - start);
  return elapsed / (useDefaultSpeed ? ktGettimeofdaySpeed() : speed);
}

double ktPERFresolution(bool /*unused*/, double speed) {
  double best = 0;
  for (int i = 0; i < 100; ++i) {
    uint64_t first = ktUnixGetTimeOfDay();
    uint64_t second = ktUnixGetTimeOfDay();
    double step = static_cast<double>(second - first) / speed;
    if (step > 0 && (best == 0 || step < best)) best = step;
  }
  return best;
}

void ktSetPERFcount(uint64_t count) { PerfCount().store(count, std::memory_order_relaxed); }

uint64_t ktGetPERFcount(void) { return PerfCount().load(std::memory_order_relaxed); }

bool ktIsPERFticSet(void) { return ktGetPERFcount() != 0; }

uint64_t ktPosixRtPerfCount(void) {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

double ktPosixRtPerfSpeed(void) {
  timespec resolution;
  clock_getres(CLOCK_REALTIME, &resolution);
  return static_cast<double>(resolution.tv_nsec);  // nanoseconds, on purpose
}

uint64_t ktWinPerfCount(void) { return 0; }
double ktWinPerfSpeedOS(void) { return NAN; }
uint64_t ktWinTime(void) { return 0; }
uint64_t ktWinSysTime(void) { return 0; }
uint64_t ktSol2PerfCount(void) { return 0; }
uint64_t ktMacPerfCountAudio(void) { return 0; }
uint64_t ktMacPerfCountAudioNanos(void) { return 0; }
double ktMacPerfSpeedAudio(void) { return NAN; }
uint64_t ktMacPerfCountMach(void) { return 0; }
double ktMacPerfSpeedMach(void) { return NAN; }

}  // extern "C"
