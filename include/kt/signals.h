/*
 * kt/signals.h -- signal handlers, asynchronous-signal blocking, the
 * signal thread and recovery from segmentation faults
 *
 * The library's POSIX signal layer (diagnostic channel "ktsignal"):
 *
 *   - wrappers that install, query, ignore and restore handlers with one
 *     fixed policy: while any handler installed here runs, the three
 *     asynchronous signals SIGINT, SIGTSTP and SIGWINCH are blocked, so a
 *     handler never runs nested inside one of them;
 *   - blocking and unblocking of those three signals around critical code;
 *   - the designation of one signal thread, to which other code directs
 *     signals (ktKillSignalThread);
 *   - SegvCleanup (C++ only), a per-thread stack of recovery points to
 *     which a SIGSEGV handler can jump back instead of ending the process.
 *
 * Misuse of the signal thread (designating it twice, sending to it before
 * it exists) is a fatal diagnostic: the process ends with a
 * "Fatal diagnostic: <text> (ktsignal:<line> <function>)" line on standard
 * error, unless fatal diagnostics are switched off (kt/diagnostics.h), in
 * which case the call goes on as documented for that case.
 *
 * Threads: handler dispositions are process-wide; signal masks are per
 * thread (the functions here change only the calling thread's mask). The
 * signal-thread functions may be called from any thread, concurrently.
 */
#ifndef KT_SIGNALS_H
#define KT_SIGNALS_H

#include <signal.h>
#include <stdbool.h>

/* siginfo_t and sigset_t are POSIX types that <signal.h> hides in strict
   ISO C modes; the C library's own type headers give them in every mode. */
#include <bits/types/siginfo_t.h>
#include <bits/types/sigset_t.h>

#include "kt/export.h"

#ifdef __cplusplus
#include <csetjmp>
#endif

/* A handler in the sa_sigaction form: (signal, information, context). */
typedef void (*ktSignalHandler)(int sig, siginfo_t* info, void* context);

/* A disposition in the signal() form (SIG_DFL, SIG_IGN or a function). */
typedef void (*ktSignalDisposition)(int sig);

KT_EXTERN_C_BEGIN

/*
 * Installs `handler` for `sig` with flags exactly SA_SIGINFO (no
 * SA_RESTART, SA_NODEFER or SA_ONSTACK: `sig` itself is blocked while the
 * handler runs) and the mask {SIGINT, SIGTSTP, SIGWINCH}, then unblocks
 * `sig` in the calling thread. Returns the previous handler: the
 * sa_sigaction member of the previous action, which is SIG_DFL (null) or
 * SIG_IGN cast to ktSignalHandler when there was no function.
 *
 * A refused installation (a signal number that cannot be caught, such as
 * SIGKILL, or out of range) is a failed assertion "status == 0" that ends
 * the process, as is a failure to unblock.
 */
KT_API ktSignalHandler ktInstallHandler(int sig, ktSignalHandler handler);

/*
 * Installs SIG_DFL for `sig` with flags 0 and the same mask, then unblocks
 * `sig` in the calling thread. Errors as for ktInstallHandler.
 */
KT_API void ktRestoreDefaultHandler(int sig);

/*
 * The handler now installed for `sig`, as ktInstallHandler returns it.
 * Changes nothing. Null (SIG_DFL) for a signal number out of range.
 */
KT_API ktSignalHandler ktQueryHandler(int sig);

/*
 * signal(sig, SIG_IGN): ignores `sig` and returns the previous
 * disposition, or SIG_ERR for a signal that cannot be ignored.
 */
KT_API ktSignalDisposition ktIgnoreSignal(int sig);

/*
 * Blocks SIGTSTP and SIGWINCH, and SIGINT too when `includeSigint` is
 * true, in the calling thread, storing the previous mask in `*saved` (null
 * allowed: nothing is stored). Returns sigprocmask's result: 0, or -1 with
 * errno set (the mask is then unchanged).
 */
KT_API int ktMaybeBlockAsyncSignals(sigset_t* saved, bool includeSigint);

/* ktMaybeBlockAsyncSignals(saved, true). */
KT_API int ktBlockAsyncSignals(sigset_t* saved);

/*
 * The matching step after a block call: unblocks each of SIGINT, SIGTSTP
 * and SIGWINCH that is not a member of `*saved` (not null). It never
 * blocks anything: a signal that was blocked before the block call stays
 * blocked, one that was not becomes unblocked, even if code in between
 * changed the mask. Other signals are untouched. Returns sigprocmask's
 * result (0 or -1).
 */
KT_API int ktRestoreAsyncSignals(const sigset_t* saved);

/*
 * Makes the calling thread the signal thread. Call it once per process,
 * from the thread that should receive the process's directed signals.
 *
 * Inside a virtual-machine context (kt/vmcontext.h) the thread is also
 * recorded in that context, and the call may be repeated, from any thread
 * and any context, as long as every call so far was made inside a
 * context; the process-wide signal thread stays the first caller. Fatal
 * diagnostics:
 *   - a second call when the first or this one was made outside a
 *     context ("ktSetSignalThread may not be called more than once.");
 *   - calls racing each other, one inside and one outside a context,
 *     report which came first (a call "with a RSM ZVM context active after
 *     it was already called without", or "without ... after ... with").
 * With fatal diagnostics off, such calls leave the first designation in
 * place and return.
 *
 * C++ callers: throws std::system_error when the one-time setup cannot be
 * run.
 */
KT_API void ktSetSignalThread(void);

/*
 * True (nonzero) when the calling thread is inside a virtual-machine
 * context, whichever thread it is (inside a context every thread counts as
 * the signal thread, on purpose); otherwise true only on the thread that
 * ktSetSignalThread designated. Lock-free.
 */
KT_API bool ktIsSignalThread(void);

/*
 * pthread_kill(signal thread, sig): returns 0 or an error number (ESRCH
 * when the thread has ended, EINVAL for a bad signal number).
 *
 * Calling it before ktSetSignalThread (or while the first such call is
 * still running) is a fatal diagnostic ("ktKillSignalThread called without
 * calling ktSetSignalThread or concurrently calling ktSetSignalThread.");
 * with fatal diagnostics off the process still ends, by a trap
 * instruction (SIGILL).
 */
KT_API int ktKillSignalThread(int sig);

KT_EXTERN_C_END

#ifdef __cplusplus

namespace Quivera {
namespace System {
namespace Unix {

/*
 * A recovery point for a segmentation fault, in scope on one thread.
 *
 * A thread's live SegvCleanup objects form a stack; the innermost one is
 * where SegvCleanup::longjmp(), called from a SIGSEGV handler, resumes.
 * The owner fills the jump buffer with sigsetjmp (save mask nonzero, so
 * that the jump unblocks SIGSEGV again) right after constructing it:
 *
 *     static void OnSegv(int, siginfo_t*, void*) {
 *         if (!Quivera::System::Unix::SegvCleanup::longjmp())
 *             ...  // nowhere to go back to: the normal fatal path
 *     }
 *     ...
 *     ktInstallHandler(SIGSEGV, OnSegv);
 *     ...
 *     Quivera::System::Unix::SegvCleanup cleanup;
 *     if (sigsetjmp(cleanup.buffer(), 1) == 0)
 *         risky();              // may fault
 *     else
 *         recover();            // resumed here after a fault in risky()
 *
 * The jump discards the frames in between without running their
 * destructors: only code that owns no such resources belongs in risky().
 * Objects must be destroyed in reverse order of construction on their own
 * thread (plain scopes do this).
 *
 * Setting the environment variable QV_DISABLE_THROW_SEGV_LONGJMP to a text
 * starting with "1" disables all jumps; the variable is read once, when
 * the process constructs its first SegvCleanup.
 */
class KT_API SegvCleanup {
public:
    /* Becomes the thread's innermost recovery point, with a zeroed jump
       buffer that the owner must fill before anything can fault. */
    SegvCleanup();
    /* Makes the previous recovery point of the thread innermost again. */
    ~SegvCleanup();
    SegvCleanup(const SegvCleanup&) = delete;
    SegvCleanup& operator=(const SegvCleanup&) = delete;

    /* The jump buffer, for sigsetjmp at the recovery point. */
    sigjmp_buf& buffer() { return buffer_; }

    /* True when jumps are enabled and the calling thread has a live
       SegvCleanup. Async-signal-safe. */
    static bool continuable();

    /*
     * For a fault handler: when continuable(), resets the floating-point
     * control state (round to nearest, exceptions masked) and does
     * siglongjmp(innermost buffer, 1), not returning. Otherwise returns
     * false, and the handler goes on with its normal fatal path.
     * Async-signal-safe; an exception escaping from here ends the process.
     */
    static bool longjmp() noexcept;

private:
    sigjmp_buf buffer_;
    SegvCleanup* previous_;
};

}  // namespace Unix
}  // namespace System
}  // namespace Quivera

#endif /* __cplusplus */

#endif /* KT_SIGNALS_H */
