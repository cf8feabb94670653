/*
 * kt/sysinfo.h -- operating-system, processor and memory-tool queries
 *
 * Informational queries about the machine and the process:
 *
 *   - ktGetOS, ktGetOSCompat, ktGetWinSys describe the operating system;
 *   - ktGetNumAllCores recommends how many worker threads to use;
 *   - ktIsPurifyRunning and its relatives tell whether the process runs
 *     under a memory-diagnostic or coverage tool.
 *
 *     const char* os = ktGetOS();            // library-owned, never freed
 *     char* distro = ktGetOSCompat();        // caller's copy
 *     printf("%s (%s), %llu threads\n", os, distro ? distro : "?",
 *            (unsigned long long)ktGetNumAllCores());
 *     ktFree(distro);
 *
 * None of these queries fails towards the caller: a probe that does not
 * work gives a fallback answer, described with each function. Failed
 * probes and the values found are traced on the diagnostic channels
 * "sysinfo" and "thread_recommendation" (kt/diagnostics.h; flag 1 failed
 * probes and fallbacks, flag 2 the values found).
 *
 * Caching: ktGetOS, ktGetWinSys, ktGetOSCompat and ktGetNumAllCores work
 * out their answer on the first call and return the same answer for the
 * rest of the process, whatever changes afterwards (the environment, the
 * affinity mask, CPUs going on- or offline).
 *
 * Threads: every function may be called from any thread. Concurrent first
 * calls of a cached query wait for one of them to compute the answer and
 * all return it. The memory-tool queries keep no state.
 */
#ifndef KT_SYSINFO_H
#define KT_SYSINFO_H

#include <stdint.h>

#include "kt/export.h"

KT_EXTERN_C_BEGIN

/*
 * The operating system as "<sysname> <release> <version> <machine>", the
 * fields of uname(2) (the node name is left out), e.g.
 * "Linux 6.1.0-18-amd64 #1 SMP PREEMPT_DYNAMIC Debian 6.1.76-1 x86_64";
 * "unknown" when uname fails. The text is owned by the library and stays
 * valid until the process exits; the caller must not free or change it.
 */
KT_API const char* ktGetOS(void);

/*
 * The window system's name: "unknown" on this platform. Owned by the
 * library, valid until the process exits.
 */
KT_API const char* ktGetWinSys(void);

/*
 * The distribution's description, as `lsb_release -ds` prints it (one
 * trailing newline removed, quotes kept), e.g. "Debian GNU/Linux 12
 * (bookworm)". When lsb_release cannot be run, exits with a nonzero status
 * or prints nothing, the text of ktGetOS is used instead. The command is
 * run through /bin/sh and found through PATH, once per process.
 *
 * Returns a new copy of the text that the caller releases with ktFree
 * (kt/memory.h), or null when that memory cannot be allocated.
 */
KT_API char* ktGetOSCompat(void);

/*
 * The number of worker threads to use: the CPUs that this process may run
 * on (its affinity mask, restricted to online CPUs), with the hardware
 * threads of one physical core (SMT siblings) counted once -- unless the
 * environment variable ZENTRA_PROCESSOR_ENUM_MODE holds exactly the
 * integer 1 ("1", "+1", "001"), in which case every hardware thread counts.
 * Any other value, and text that is not wholly a decimal integer with an
 * optional sign (" 1", "1.0", "one"), counts cores. The variable is read on
 * the first call only.
 *
 * The topology is read from /sys/devices/system/cpu. When it cannot be
 * read, every CPU of the affinity mask counts as a core of its own. Always
 * at least 1.
 */
KT_API uint64_t ktGetNumAllCores(void);

/*
 * Memory-diagnostic and coverage tools define a query function in the
 * programs that they instrument: "purify_is_running",
 * "quantify_is_running" and "purecov_is_running". Each of these functions
 * looks its query up in the main program and the libraries loaded into the
 * global scope (dlopen of the program itself with RTLD_LAZY | RTLD_GLOBAL)
 * and returns what it answers, or 0 when it is not defined. When the
 * program itself cannot be opened, "dlopen failed: <reason>" is printed
 * through ktPrintf (kt/output.h) and 0 returned.
 */
KT_API int ktIsPurifyRunning(void);
KT_API int ktIsQuantifyRunning(void);
KT_API int ktIsCoverageRunning(void);

/* Always 0: Valgrind is not detected on this platform. */
KT_API int ktIsValgrindRunning(void);

/*
 * 1 when ktIsPurifyRunning or ktIsValgrindRunning answers nonzero, else 0.
 */
KT_API int ktIsMemoryDiagnosticToolRunning(void);

KT_EXTERN_C_END

#endif /* KT_SYSINFO_H */
