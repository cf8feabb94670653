/*
 * kt/timing.h -- the start-up timing log
 *
 * Measures a host's start-up: the stages before the library was loaded,
 * then nested intervals that the start-up code brackets with tic and toc.
 * Each toc writes a row to the text file "timing_log.<pid>" in the log
 * directory (kt/files.h); in performance mode a CSV file "perf_log.<pid>"
 * gets the same rows with a CPU-time column:
 *
 *     ktOpenTimingLog(scriptStart, mainStart, initStart, now, false);
 *     ktTicImpl();
 *         ktTicImpl();  load_settings();  ktTocImpl("settings");
 *         ktTicImpl();  load_plugins();   ktTocImpl("plug-ins");
 *     ktTocImpl("start-up");
 *     ktCloseTimingLog();
 *
 * gives (times in seconds; gap = idle time since the previous row at the
 * same depth or shallower ended):
 *
 *         ZENTRA Startup Performance Metrics (In Seconds)
 *
 *     total   item     gap      description
 *     =========================================================
 *      0.35   0.35    0.00   ZENTRA script
 *      0.41   0.06    0.00   main
 *      0.52   0.11    0.00   Session Initialize
 *      0.60   0.05    0.03   settings
 *      0.71   0.11    0.00   plug-ins
 *      0.71   0.19    0.00   start-up
 *     =========================================================
 *     Items shown account for 122.5% of total startup time
 *
 * Rows. A toc writes one row at depth d = the number of the thread's tics
 * still open after it (the outermost toc writes at depth 0), with
 *   total = end - logStart, item = end - start of its tic,
 *   gap = total - item - lastEnd[d],
 * where lastEnd[d] is the total at which this thread's previous row at
 * depth d or shallower ended (0 for a new thread; not reset between logs).
 * The description is indented by min(d, 12) spaces from depth 2 on and
 * padded or cut to 40 - indentation characters (28 from depth 12 on), so
 * the description column is always 40 wide. Rows at depth 0 and 1 add
 * their item to the sum behind the closing percentage (nested rows at
 * depth 0 and 1 are both counted, so it can pass 100%). The row format:
 *   "%5.2f  %5.2f   %5.2f   %s%-*.*s\n"
 * and in performance mode, after the description, six I/O and memory
 * counters (always 0 on this platform) and the process CPU seconds used
 * since the previous row (ktCPUtime(), kt/clocks.h):
 *   "... % 9lld% 9lld % 9lld% 9lld % 7lld% 9lld  %5.3f\n"
 * A row described exactly "ZENTRA script" takes 0 as its CPU reading,
 * deliberately (that stage ran before the process could measure it): it
 * shows minus the previous reading, and the next row all CPU time so far.
 * The perf log holds the header
 *   "total,item,gap,description,readops,readbytes,othorops,otherbytes,
 *    pagefaults,vm(k),cpu"
 * ("othorops" spelled so on purpose: readers match it) and one line per
 * row: "%.3f,%.3f,%.3f,'%s%-*.*s',%lld,%lld,%lld,%lld,%lld,%lld,%.3f".
 *
 * Rows also go, whether a file is open or not, to the row callback of
 * ktOpenTimingLogTLMX and to the "tlmx_timing" diagnostic channel
 * (kt/diagnostics.h): flag 2 ("startup::stage") one record per row,
 * "startup::stage: id=<desc> total=<s> item=<s> gap=<s> tic_depth=<d>";
 * flag 1 ("startup::timing") the records of ktCloseTimingLogImpl.
 *
 * Threads: the log and its files are process-wide under one mutex; tic
 * stacks and lastEnd belong to each thread, so threads time their own
 * nested work and their rows interleave in the file. The count of open
 * tics is process-wide: a close waits for every thread's tocs. Tics and
 * tocs must nest per thread. The row callback runs under the mutex and
 * must not call any function of this file; the close callback runs after
 * the log has closed, outside the mutex.
 */
#ifndef KT_TIMING_H
#define KT_TIMING_H

#include "kt/export.h"

KT_EXTERN_C_BEGIN

/*
 * Starts an interval on the calling thread (its state is made on first
 * use) and counts it as open. Works whether a log is open or not.
 */
KT_API void ktTicImpl(void);

/*
 * Ends the calling thread's innermost interval and writes its row described
 * by `description` (null counts as ""). A toc on a thread with no open tic
 * does nothing. A row deeper than 16 (a toc with 17 or more tics still
 * open on the thread) throws std::out_of_range after the interval was
 * taken off the stack; C callers must not nest that deep.
 */
KT_API void ktTocImpl(const char* description);

/* ktCloseTimingLogImpl(nullptr). */
KT_API void ktCloseTimingLog(void);

KT_EXTERN_C_END

#ifdef __cplusplus

#include <chrono>
#include <functional>
#include <string>

using ktTimingTimePoint = std::chrono::steady_clock::time_point;

/* Called for every row: (false, total, item, gap, depth, description), the
   times in seconds. The first argument is always false here. */
using ktTimingRowCallback =
    std::function<void(bool, double, double, double, unsigned long, const char*)>;

/* Called when the log closes, with the timing log's path (empty without a
   file); the callback may take the string's contents. */
using ktTimingCloseCallback = std::function<void(std::string&)>;

/*
 * Opens the log: opens "timing_log.<pid>" in the log directory with
 * ktOpenLogFile, writes the title and column heads, and in performance
 * mode (`perf`) also opens "perf_log.<pid>" and writes its CSV header (a
 * perf log that fails to open is simply not written). The zero of the
 * total column is `scriptStart`. Then writes three rows at depth 0:
 * "ZENTRA script" from scriptStart to mainStart, "main" from mainStart to
 * initStart, "Session Initialize" from initStart to `now`, and resets the
 * count of open tics to 0.
 * Returns false, leaving the log closed and writing nothing, when the
 * timing log cannot be opened. Opening a log that is already open first
 * closes its files without the closing lines and starts its sums afresh.
 */
KT_API bool ktOpenTimingLog(ktTimingTimePoint scriptStart, ktTimingTimePoint mainStart,
                            ktTimingTimePoint initStart, ktTimingTimePoint now, bool perf);

/*
 * Installs both callbacks (empty ones are allowed), then with `toFile`
 * returns ktOpenTimingLog(t0, t1, t2, t3, perf). Without `toFile` no file
 * is opened (an open log loses its files): the zero becomes t0 and the
 * three opening rows reach only the callback and the diagnostic channel;
 * returns true.
 */
KT_API bool ktOpenTimingLogTLMX(const ktTimingRowCallback& rowCallback,
                                const ktTimingCloseCallback& closeCallback, bool toFile,
                                ktTimingTimePoint t0, ktTimingTimePoint t1,
                                ktTimingTimePoint t2, ktTimingTimePoint t3, bool perf);

/* ktTocImpl; then, when `out` is not null, stores the timing log's path
   there (empty when no file is open). */
KT_API void ktTocImpl2(const char* description, std::string* out);

/*
 * Closes the log, unless tics are still open on any thread: then nothing
 * is written and the log stays open. Otherwise writes the closing lines
 * (the total time, with the CPU seconds of the process in performance
 * mode; the rule; "Items shown account for %4.1f%% of total startup time"
 * with 100 x the sum of the depth 0 and 1 items / the total time), closes
 * both files, calls the close callback and forgets everything: callbacks,
 * paths, mode and sums. `out`, when not null, receives the timing log's
 * path: of the file just closed, or of the one left open.
 */
KT_API void ktCloseTimingLogImpl(std::string* out);

/* The path of the open timing log, or of the open perf log; empty when
   there is none. */
KT_API std::string ktGetTimingLogInfo();
KT_API std::string ktGetPerfLogInfo();

/* A time point kept for other code (the host's own start-up mark); the
   log does not use it. Atomic store and load; the epoch until set. */
KT_API void setTimingLogStartTimestamp(ktTimingTimePoint timestamp);
KT_API ktTimingTimePoint getTimingLogStartTimestamp();

#endif /* __cplusplus */

#endif /* KT_TIMING_H */
