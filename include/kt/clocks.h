/*
 * kt/clocks.h -- clocks and performance counters
 *
 * Small, exact clock primitives: process CPU time, a microsecond wall-clock
 * counter with tic/toc functions and a resolution probe, a nanosecond
 * real-time counter, the broken-down local time, and seconds counted from
 * a fixed local epoch. The counters of other operating systems keep their
 * names as constant stubs so that callers link on every platform.
 *
 * Threads: every function may be called from any thread. The saved PERF
 * count (ktSetPERFcount ...) belongs to the current virtual-machine context
 * (kt/vmcontext.h), or to the process outside any context.
 */
#ifndef KT_CLOCKS_H
#define KT_CLOCKS_H

#include <stdbool.h>
#include <stdint.h>

#include "kt/export.h"

KT_EXTERN_C_BEGIN

/* ---- CPU and wall time ------------------------------------------------ */

/* User plus system CPU time of the process in seconds, from times() and the
   clock tick rate (read once, on first use). */
KT_API double ktCPUtime(void);

/* gettimeofday() as microseconds since the Unix epoch. */
KT_API uint64_t ktUnixGetTimeOfDay(void);

/* The local time now: out[0..5] = full year, month 1-12, day of month, hour,
   minute, and seconds with the microseconds as a fraction. */
KT_API void ktWallClock(double out[6]);

/* ktWallClock, also storing into *isDst whether daylight saving time is in
   force (tm_isdst > 0); returns tm_isdst (negative when unknown). */
KT_API int ktWallClockDST(double out[6], bool* isDst);

/*
 * Seconds since 2004-03-01 00:00:00 local time, fractions included, by a
 * fixed formula: months since March 2004 in years that start in March,
 * divisions truncating toward zero, and only the every-fourth-year leap
 * rule (no century correction, deliberately). The value is calendar-exact
 * from the epoch to 2099; before the epoch the truncation puts some dates
 * a day off. Both are kept as callers know them.
 */
KT_API double ktRealtime(void);

/* ---- PERF counters (microseconds on this platform) --------------------- */

/* The counter now (ktUnixGetTimeOfDay()); the argument is ignored. */
KT_API uint64_t ktPERFtic(bool unused);

/* Counts per second: 1 000 000. */
KT_API double ktPERFspeed(void);
KT_API double ktGettimeofdaySpeed(void);
/* ktPERFspeed() as captured when the library was loaded. */
KT_API double ktGetPERFspeed(void);

/*
 * Seconds elapsed since `start` (a ktPERFtic value): the count (now - start)
 * as an unsigned 64-bit number, divided by ktGettimeofdaySpeed() when
 * `useDefaultSpeed`, else by `speed`.
 */
KT_API double ktPERFtoc(bool useDefaultSpeed, uint64_t start, double speed);

/*
 * The smallest positive step between two back-to-back counter readings
 * over 100 tries, in seconds at `speed` counts per second; 0 when no pair
 * of readings differed. The bool is ignored.
 */
KT_API double ktPERFresolution(bool unused, double speed);

/* A saved tic value of the current virtual-machine context (0 until set). */
KT_API void ktSetPERFcount(uint64_t count);
KT_API uint64_t ktGetPERFcount(void);
/* Whether the saved count is non-zero. */
KT_API bool ktIsPERFticSet(void);

/* ---- POSIX real-time counter ------------------------------------------- */

/* clock_gettime(CLOCK_REALTIME) in nanoseconds. */
KT_API uint64_t ktPosixRtPerfCount(void);

/* The tv_nsec of clock_getres(CLOCK_REALTIME): the clock's RESOLUTION in
   nanoseconds, deliberately not a frequency despite the name. */
KT_API double ktPosixRtPerfSpeed(void);

/* ---- stubs of other platforms: constant results, no state ------------- */

KT_API uint64_t ktWinPerfCount(void);           /* 0 */
KT_API double ktWinPerfSpeedOS(void);           /* NaN */
KT_API uint64_t ktWinTime(void);                /* 0 */
KT_API uint64_t ktWinSysTime(void);             /* 0 */
KT_API uint64_t ktSol2PerfCount(void);          /* 0 */
KT_API uint64_t ktMacPerfCountAudio(void);      /* 0 */
KT_API uint64_t ktMacPerfCountAudioNanos(void); /* 0 */
KT_API double ktMacPerfSpeedAudio(void);        /* NaN */
KT_API uint64_t ktMacPerfCountMach(void);       /* 0 */
KT_API double ktMacPerfSpeedMach(void);         /* NaN */

KT_EXTERN_C_END

#endif /* KT_CLOCKS_H */
