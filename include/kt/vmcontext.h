/*
 * kt/vmcontext.h -- virtual-machine contexts and sessions
 *
 * Some state belongs to one running virtual machine rather than to the
 * process or to a thread: the current warning manager, the interrupt
 * state, the designated signal thread, the saved performance counter.
 * libkt keeps such state in a per-context store. Outside any context the
 * process-wide default store is used; inside one, the context's own.
 * Several library features exist only inside a context (for example the
 * warning-log factory and destroy functions, ktGetWarningManagerContextSafe,
 * the per-context interrupt state); "the required context is active" means
 * that the calling thread has entered a context.
 *
 * A context may also run a session. Per-session settings (such as whether
 * source annotations print hot links) live from ktStartVmSession to
 * ktEndVmSession and read as "no session" outside it.
 *
 * A host drives both:
 *
 *     kt_vm_context* vm = ktNewVmContext();
 *     ktEnterVmContext(vm);        // on every thread that works for vm
 *     ktStartVmSession(vm);        // optional
 *     ...
 *     ktEndVmSession(vm);
 *     ktLeaveVmContext();          // once per enter, on the same thread
 *     ktDeleteVmContext(vm);       // when no thread is inside any more
 *
 * Threads: entering and leaving are per thread (a thread's entries form a
 * stack; a thread that ends inside contexts leaves them as it ends).
 * Starting and ending a session, and reading a context's session, are
 * serialised by the context; the host ends a session only once no thread
 * still works in it.
 */
#ifndef KT_VMCONTEXT_H
#define KT_VMCONTEXT_H

#include "kt/export.h"

KT_EXTERN_C_BEGIN

/* A virtual-machine context; opaque. */
typedef struct kt_vm_context kt_vm_context;

/*
 * A new context with an empty store and no session, not entered by any
 * thread. Returns null when memory is exhausted. Free it with
 * ktDeleteVmContext.
 */
KT_API kt_vm_context* ktNewVmContext(void);

/*
 * Destroys the context's session (if one runs) and its store, with every
 * state kept there, newest first. Returns 0; returns -1 and changes nothing
 * while any thread is still inside the context. Null is accepted (0).
 */
KT_API int ktDeleteVmContext(kt_vm_context* context);

/*
 * Makes `context` this thread's current context until the matching
 * ktLeaveVmContext. Entries nest: the innermost one is current. Returns 0,
 * or -1 (nothing entered) for a null context.
 */
KT_API int ktEnterVmContext(kt_vm_context* context);

/*
 * Leaves this thread's innermost context, making the previous one (or
 * none) current again, and returns the context left; null when the thread
 * was in none (then nothing happens).
 */
KT_API kt_vm_context* ktLeaveVmContext(void);

/* This thread's innermost context, or null when it is in none. */
KT_API kt_vm_context* ktGetCurrentVmContext(void);

/* 1 while this thread is inside a context (the required context is
   active), else 0. */
KT_API int ktIsVmContextActive(void);

/*
 * Starts a session of `context` with empty per-session state. Returns 0,
 * or -1 when `context` is null or a session already runs.
 */
KT_API int ktStartVmSession(kt_vm_context* context);

/*
 * Ends the running session of `context`, destroying its per-session state.
 * Returns 0, or -1 when `context` is null or runs no session.
 */
KT_API int ktEndVmSession(kt_vm_context* context);

/* 1 when this thread's current context runs a session, else 0. */
KT_API int ktIsVmSessionActive(void);

KT_EXTERN_C_END

#endif /* KT_VMCONTEXT_H */
