/*
 * kt/diagnostics.h -- diagnostic channels and the fatal-diagnostics switch
 *
 * The library's modules trace what they do to named diagnostic channels:
 *
 *     "ktsignal"               interrupts and signals (flags 1 each
 *                              interrupt raised, 2 with its ctrl-C bit)
 *     "util::dynload"          library loading (flags 2 parameters, 4 the
 *                              per-thread error, 8 entry, 16 retries,
 *                              64 exit, 128 results, 512 the loader's text)
 *     "windows::dlopen"        made, never written
 *     "util::posix"            load-failure diagnosis
 *     "tlmx_timing"            start-up timing log (1 startup::timing, 2 startup::stage)
 *     "sysinfo", "thread_recommendation"
 *                              OS and CPU queries (flags 1 failures, 2 values)
 *
 * Each record carries one severity flag (a bit); a channel writes a record
 * only when that bit is on in its mask. All masks are 0 unless the
 * environment variable KT_DIAGNOSTICS, read once when the first channel is
 * made, says otherwise: a comma-separated list of "name:mask" items, the
 * mask "all", a decimal or a 0x-prefixed hex number, the name "*" standing
 * for every channel not listed. Example:
 *
 *     KT_DIAGNOSTICS=ktsignal:all,util::dynload:0x20a  my_host
 *
 * Records go to standard error, or are appended to the file that
 * KT_DIAGNOSTICS_FILE names, one line each:
 *
 *     <channel> [<flag in hex>] <module>:<line> <function>:<text>
 *
 * Fatal diagnostics (faults of the caller's usage that the library cannot
 * recover from, such as designating the signal thread twice) end the
 * process with a "Fatal diagnostic: ..." line on standard error. They are
 * ON BY DEFAULT; KT_FATAL_DIAGNOSTICS=0 at start-up, or
 * ktSetFatalDiagnosticsEnabled(0), switches them off, and the call that
 * found the fault then goes on as documented for that case.
 *
 * Threads: every function here may be called from any thread; a mask
 * change is seen by other threads' next records.
 */
#ifndef KT_DIAGNOSTICS_H
#define KT_DIAGNOSTICS_H

#include "kt/export.h"

KT_EXTERN_C_BEGIN

/*
 * Sets the mask of the named channel (made if it does not exist yet) and
 * returns the previous mask; a null name changes nothing and returns 0.
 */
KT_API unsigned ktSetDiagnosticMask(const char* channel, unsigned mask);

/* The mask of the named channel (0 for null or a channel never made). */
KT_API unsigned ktGetDiagnosticMask(const char* channel);

/* Switches fatal diagnostics on (nonzero) or off; returns 1 when they were
   on before, else 0. */
KT_API int ktSetFatalDiagnosticsEnabled(int on);

/* 1 when fatal diagnostics end the process, else 0. */
KT_API int ktFatalDiagnosticsEnabled(void);

KT_EXTERN_C_END

#endif /* KT_DIAGNOSTICS_H */
