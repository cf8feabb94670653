/*
 * kt/interrupts.h -- pending-interrupt flags and interrupt modes
 *
 * Asynchronous requests reach running code through one byte of flags: the
 * user's Ctrl-C, an interrupt requested by another component (IQM), a
 * profiler sample, a breakpoint request, a memory event, a request to pump
 * the event queue (peek message) or to pause. A signal handler or another
 * thread sets a flag with one compare-and-swap; the computation polls at
 * safe points and, while interrupts are enabled, turns a pending interrupt
 * into an error that unwinds it:
 *
 *     ktInterruptMode enabled(INTERRUPTS_ENABLED);  // restores on scope exit
 *     for (;;) {
 *         step();
 *         ktInterruptState::ThrowIfInterruptPending();
 *     }
 *
 * or, from C, with a poll that costs no call:
 *
 *     const volatile unsigned char* flags = ktPendingFlagAddress();
 *     while (work_left()) {
 *         step();
 *         if (*flags & KT_PENDING_INTERRUPT_MASK) ktLongjmpIfInterruptPending();
 *     }
 *
 * The state (InterruptStateData) belongs to the running virtual-machine
 * context (kt/vmcontext.h): threads inside the same context share one,
 * each context has its own, and all threads outside any context share the
 * process-wide default one. It is made on first use, all zero: interrupts
 * disabled, nothing pending, nothing handled.
 *
 * Threads: the `pending` and `deferred` bytes are changed only by
 * compare-and-swap or atomic read-modify-write on the whole byte, so flags
 * set at the same time by signal handlers, other threads and the polling
 * thread are never lost; every setter returns the flag's previous value
 * and writes nothing when the flag already has the requested value. The
 * mode, the `handled` byte and the memory-event callback are plain fields
 * that belong to the thread running the computation: only that thread
 * polls, handles, defers, changes modes and sets the callback; any thread
 * may set and clear flags.
 *
 * Signal handlers may call, and only call: the flag setters and clearers
 * (ktSetInterruptPending, ktSetPauseMsgPending, ktInterruptState::Set...
 * and Clear...Pending in all forms) and ktPendingFlagAddress. They are
 * async-signal-safe (no allocation, no lock) once the state of the
 * interrupted thread's current context exists and that thread has looked
 * it up since it last entered or left a context. Make sure of that by
 * calling ktPendingFlagAddress() once on each thread that may receive the
 * signal, after it enters its context and before the handler is
 * installed (or unblocked). The explicit-state forms need no lookup at all
 * when the shared pointer was obtained beforehand.
 *
 * Raising an interrupt (ThrowIfInterruptPending, ktLongjmpIfInterruptPending,
 * ktInterruptMode::throwIfInterruptsPendingAndOriginallyEnabled) first
 * writes a record to the "ktsignal" diagnostic channel (kt/diagnostics.h;
 * flag 1, and with flag 2 the text " isCtrlCPending=true|false"), then
 * raises KT_ERR_SIGNAL_INTERRUPT (0x10002, empty text) through the current
 * error context (ktGetErrorContext()), and what the caller sees depends on
 * who takes that error:
 *   - a kt_try_catch frame whose catch function accepts 0x10002: that
 *     kt_try_catch returns 0x10002;
 *   - no such frame, a host record whose throw hook throws: the host's
 *     exception, after the (empty) error text was printed;
 *   - no frame and the error handler returns (a throw hook that returns,
 *     or no handler registered): Quivera::System::InterruptException,
 *     with ctrlC telling whether the Ctrl-C bit was among the flags;
 *   - no frame with the library's default basic-contexts record: its throw
 *     hook ends the process with status 1, as for any error nobody takes.
 */
#ifndef KT_INTERRUPTS_H
#define KT_INTERRUPTS_H

#include <stdbool.h>

#include "kt/export.h"

/* Bits of the pending and deferred flag bytes. */
#define KT_PENDING_INTERRUPT 0x01          /* Ctrl-C */
#define KT_PENDING_PEEK_MSG 0x02           /* pump the event queue */
#define KT_PENDING_IQM_INTERRUPT 0x04      /* interrupt from another component */
#define KT_PENDING_PAUSE_MSG 0x08          /* pause request */
#define KT_PENDING_PROFILER_SAMPLE 0x10    /* profiler sample due */
#define KT_PENDING_BREAKPOINT_REQUEST 0x20 /* breakpoint requested */
#define KT_PENDING_MEMORY_EVENT 0x40       /* memory event to service */
/* An interrupt is pending exactly when one of these bits is set. */
#define KT_PENDING_INTERRUPT_MASK (KT_PENDING_INTERRUPT | KT_PENDING_IQM_INTERRUPT)

KT_EXTERN_C_BEGIN

/*
 * The C interface works on the current context's state (made on first
 * use). Each call is the stateless ktInterruptState / ktInterruptMode
 * operation named beside it.
 */

/* Whether an interrupt (Ctrl-C or IQM) is pending, after servicing a
   memory event (IsInterruptPending). Not for signal handlers. */
KT_API bool ktIsInterruptPending(void);

/* Sets or clears the Ctrl-C flag; returns its previous value
   (SetInterruptPending). Async-signal-safe as described above. */
KT_API bool ktSetInterruptPending(bool on);

/* Sets or clears the pause-message flag; returns its previous value
   (SetPauseMsgPending). Async-signal-safe as described above. */
KT_API bool ktSetPauseMsgPending(bool on);

/* Takes a pending interrupt: clears the Ctrl-C and IQM flags; returns true
   and marks the interrupt handled when either was set
   (HandlePendingInterrupt). */
KT_API bool ktHandlePendingInterrupt(void);

/* Sets the handled mark, returning its old value (SetInterruptHandled). */
KT_API bool ktSetInterruptHandled(bool handled);
/* Whether the last pending interrupt was taken (WasInterruptHandled). */
KT_API bool ktWasInterruptHandled(void);

/*
 * While interrupts are enabled, takes a pending interrupt and raises it as
 * described at the top of this file; otherwise returns
 * (ThrowIfInterruptPending). The raise leaves by a C++ exception: C
 * callers must be built with unwind tables (-fexceptions) for it to pass
 * their frames.
 */
KT_API void ktLongjmpIfInterruptPending(void);

/*
 * The address of the current context's pending byte, for polling without
 * a call: test it against the KT_PENDING_ bits. Read only through the
 * pointer; change flags with the setters. The address stays valid while
 * the context lives (for the default context, for the whole process).
 * Makes the state on first use. Async-signal-safe as described above.
 */
KT_API const volatile unsigned char* ktPendingFlagAddress(void);

/*
 * Enables (true) or disables interrupts in the current state (SetMode);
 * when this enables them after they were disabled (mode exactly 0),
 * interrupts deferred meanwhile become pending again. Returns whether the
 * old mode was exactly 1 (enabled).
 */
KT_API bool ktSetInterruptEnabled(bool enabled);

/* The same, for putting back what ktSetInterruptEnabled returned; no
   result. */
KT_API void ktRestoreInterruptEnabled(bool enabled);

/* Whether interrupts are enabled (the mode is non-zero). */
KT_API bool ktIsInterruptEnabled(void);

KT_EXTERN_C_END

#ifdef __cplusplus

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "kt/errors.h"

/*
 * The interrupt mode: 0 disables interrupts, 1 enables them. Other values
 * are possible; they count as enabled for isInterruptEnabled, but the
 * transfers of deferred interrupts happen only between exactly 0 and
 * exactly 1.
 */
enum InterruptMode : int32_t {
    INTERRUPTS_DISABLED = 0,
    INTERRUPTS_ENABLED = 1
};

/* One context's interrupt state. Fields in this order; see the top of
   the file for who may touch which. */
struct InterruptStateData {
    std::atomic<uint8_t> pending{0};   /* KT_PENDING_ bits */
    bool handled = false;              /* the last pending interrupt was taken */
    InterruptMode mode = INTERRUPTS_DISABLED;
    std::atomic<uint8_t> deferred{0};  /* set aside while disabled; same bits */
    /* Called when a memory event is serviced; weak: the owner keeps it. */
    std::weak_ptr<std::function<void()>> memoryEventCallback;
};

/*
 * The current context's state (threads outside any context share the
 * process-wide default one), made on first use; the reference stays valid
 * while that context lives. Copy the pointer to keep the state; do not
 * reset or reassign it. Not async-signal-safe on the first call of a
 * thread after it entered or left a context.
 */
KT_API std::shared_ptr<InterruptStateData>& ktGetInterruptStateData();

/*
 * The operations on the state. Each exists in two forms: one takes the
 * state (a shared pointer, which must not be null), the other works on
 * ktGetInterruptStateData(). None fails; only the throwing operations
 * leave by an exception (see the top of the file).
 *
 * Servicing a memory event (done first by IsInterruptPending,
 * HandlePendingInterrupt and ThrowIfInterruptPending): when the memory
 * event flag is set and interrupts are enabled, the callback is called if
 * it still exists and is not empty. The flag stays set: clearing it is the
 * callback owner's business (SetMemoryEventPending(false)), so the callback
 * runs on every such poll until then, and may run twice within one
 * ThrowIfInterruptPending. Whatever it throws passes to the poller.
 */
class KT_API ktInterruptState {
public:
    ktInterruptState() = delete;

    /* ---- flag setters (any thread; signal handlers: see the top) ---- */

    /* Sets (on) or clears the flag; returns its previous value. Nothing is
       written when it already has that value. */
    static bool SetInterruptPending(std::shared_ptr<InterruptStateData> const& sp, bool on);
    static bool SetInterruptPending(InterruptStateData& data, bool on);
    static bool SetInterruptPending(bool on);
    static bool SetIqmInterruptPending(std::shared_ptr<InterruptStateData> const& sp, bool on);
    static bool SetIqmInterruptPending(bool on);
    static bool SetPauseMsgPending(std::shared_ptr<InterruptStateData> const& sp, bool on);
    static bool SetPauseMsgPending(bool on);
    static bool SetMemoryEventPending(std::shared_ptr<InterruptStateData> const& sp, bool on);
    static bool SetMemoryEventPending(bool on);
    static bool SetPeekMsgPending(std::shared_ptr<InterruptStateData> const& sp, bool on);
    static bool SetPeekMsgPending(bool on);

    /* Set only, or clear only; return the previous value. */
    static bool SetProfilerSamplePending(std::shared_ptr<InterruptStateData> const& sp);
    static bool SetProfilerSamplePending();
    static bool ClearProfilerSamplePending(std::shared_ptr<InterruptStateData> const& sp);
    static bool ClearProfilerSamplePending();
    static bool SetBreakpointRequestPending(std::shared_ptr<InterruptStateData> const& sp);
    static bool SetBreakpointRequestPending();
    static bool ClearBreakpointRequestPending(std::shared_ptr<InterruptStateData> const& sp);
    static bool ClearBreakpointRequestPending();

    /* ---- the computing thread ---- */

    /* Services a memory event, then tells whether Ctrl-C or IQM is
       pending. */
    static bool IsInterruptPending(std::shared_ptr<InterruptStateData> const& sp);
    static bool IsInterruptPending();

    /* Services a memory event, then clears Ctrl-C and IQM; when either was
       set, marks the interrupt handled and returns true. Otherwise returns
       false and leaves the mark alone. Other flags are untouched. */
    static bool HandlePendingInterrupt(std::shared_ptr<InterruptStateData> const& sp);
    static bool HandlePendingInterrupt();

    /* Moves pending Ctrl-C and IQM flags into `deferred`, for code that runs
       with interrupts disabled and must not lose them. */
    static void DeferPendingInterrupt(std::shared_ptr<InterruptStateData> const& sp);
    static void DeferPendingInterrupt();

    /* ORs all of `deferred` into `pending` and clears Ctrl-C and IQM from
       `deferred`; returns whether an interrupt was deferred. Other bits of
       `deferred` stay there and are applied again by every later call. */
    static bool HandleDeferredInterrupt(std::shared_ptr<InterruptStateData> const& sp);
    static bool HandleDeferredInterrupt();

    /* Services a memory event; then, when interrupts are enabled and
       HandlePendingInterrupt takes an interrupt, raises it with the flags
       as they were before it was taken (see the top of the file). */
    static void ThrowIfInterruptPending(std::shared_ptr<InterruptStateData> const& sp);
    static void ThrowIfInterruptPending();

    /* The handled mark: set returns its old value. */
    static bool SetInterruptHandled(std::shared_ptr<InterruptStateData> const& sp, bool handled);
    static bool SetInterruptHandled(bool handled);
    static bool WasInterruptHandled(std::shared_ptr<InterruptStateData> const& sp);
    static bool WasInterruptHandled();

    /* Read one flag. */
    static bool IsPauseMsgPending(std::shared_ptr<InterruptStateData> const& sp);
    static bool IsPauseMsgPending();
    static bool IsMemoryEventPending(std::shared_ptr<InterruptStateData> const& sp);
    static bool IsMemoryEventPending();

    /* Clears the peek-message flag; returns its previous value. */
    static bool HandlePeekMsgPending(std::shared_ptr<InterruptStateData> const& sp);
    static bool HandlePeekMsgPending();
    /* HandlePeekMsgPending only when the flag is set; returns whether it
       was. */
    static bool PeekMessageIfPending(std::shared_ptr<InterruptStateData> const& sp);
    static bool PeekMessageIfPending();

    /* Installs the memory-event callback (a weak reference: the caller
       owns the function and drops it to uninstall). Replaces any earlier
       one. */
    static void SetMemoryEventCallback(std::shared_ptr<InterruptStateData> const& sp,
                                       std::weak_ptr<std::function<void()>> callback);
    static void SetMemoryEventCallback(std::weak_ptr<std::function<void()>> callback);
};

/*
 * A scope guard for the interrupt mode. Construction sets the mode and
 * saves the old one; when that enables interrupts (old mode exactly 0, new
 * exactly 1), deferred interrupts become pending again. Destruction first
 * re-applies deferred interrupts when it leaves a disabled mode for a
 * saved enabled one (current exactly 0, saved exactly 1), then restores the
 * saved mode. Guards nest: each restores what it found. The guard keeps
 * its state alive by its own copy of the pointer. Guards belong to the
 * computing thread; they cannot be copied.
 */
class KT_API ktInterruptMode {
public:
    ktInterruptMode(std::shared_ptr<InterruptStateData> sp, InterruptMode mode);
    /* On the current context's state. */
    explicit ktInterruptMode(InterruptMode mode);
    ~ktInterruptMode();
    ktInterruptMode(const ktInterruptMode&) = delete;
    ktInterruptMode& operator=(const ktInterruptMode&) = delete;

    /* Sets the mode; when going from exactly 0 to exactly 1, deferred
       interrupts become pending again. Returns the old mode. */
    static InterruptMode SetMode(std::shared_ptr<InterruptStateData> const& sp, InterruptMode mode);
    static InterruptMode SetMode(InterruptMode mode);

    /* Whether the mode is non-zero. */
    static bool isInterruptEnabled(std::shared_ptr<InterruptStateData> const& sp);
    static bool isInterruptEnabled();

    /* Only when the mode this guard found was exactly 1 and an interrupt is
       pending and gets taken: raises it with the flags as they were before
       (see the top of the file). Otherwise returns. */
    void throwIfInterruptsPendingAndOriginallyEnabled();

private:
    std::shared_ptr<InterruptStateData> data_;
    InterruptMode previousMode_;
};

namespace Quivera {
namespace System {

/*
 * Thrown when a raised interrupt comes back unhandled from the error
 * context. ctrlC tells whether Ctrl-C (rather than only an IQM interrupt)
 * was pending. ToUstringImpl is "InterruptException(ctrl-c)" or
 * "InterruptException", what() the same in UTF-8. clone returns a heap copy
 * the caller deletes; rethrow throws a copy.
 */
class KT_API InterruptException
    : public bedrock::core::except::Exception<bedrock::core::except::IInternalException,
                                              std::exception> {
public:
    explicit InterruptException(bool ctrlC = false);
    InterruptException(const InterruptException& other);
    ~InterruptException() override;

    InterruptException* clone() const override;
    void rethrow() const override;
    const char* what() const noexcept override;
    cx::ustring ToUstringImpl() const override;

    bool ctrlC;
};

}  // namespace System
}  // namespace Quivera

#endif /* __cplusplus */

#endif /* KT_INTERRUPTS_H */
