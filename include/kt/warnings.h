/*
 * kt/warnings.h -- warning manager and the procedural warning context
 *
 * A warning identifier is a colon-separated text such as "Foo:bar". The
 * warning manager records, per identifier and case-insensitively, whether
 * that warning is off, on, or on as an error; the pseudo-identifier "all"
 * switches every identifier at once, and the most recent of the two
 * settings wins without any walk over the table. The manager also keeps the
 * last warning issued and the last one printed, five mode switches, a user
 * callback fired after each logged warning, status listeners, and an
 * optional pluggable ktWarningLog that takes over logging entirely.
 *
 * A thin procedural warning context (kt_warning_context) wraps a manager;
 * it is one of the basic contexts. The manager current for the running
 * product context is kept in a per-context slot (ktSetWarningManagerContext).
 *
 * Threads: a manager is not locked; its users serialise. The current-manager
 * slot is exchanged atomically. Warning-log factory and destroy functions
 * are per thread.
 */
#ifndef KT_WARNINGS_H
#define KT_WARNINGS_H

#include <stdbool.h>
#include <stdint.h>

#include "kt/export.h"
#include "kt/memory.h"
#include "kt/output.h"

#ifdef __cplusplus
#include <cstdarg>
#include <functional>
#include <string>
#include <string_view>

#include <boost/optional.hpp>

#include "kt/errors.h" /* cx::ustring */
#endif

/* Warning statuses. */
#define KT_WARNING_OFF 0
#define KT_WARNING_ON 1
#define KT_WARNING_ERROR 2

/* The warning manager; opaque. */
typedef struct ktWarningManagerContext ktWarningManagerContext;

#ifdef __cplusplus
class ktWarningLog;
#else
typedef struct ktWarningLog ktWarningLog;
#endif

/* Factory and destroy functions of this thread's warning logs. */
typedef ktWarningLog* (*ktWarningLogFactoryFcn)(void);
typedef void (*ktWarningLogDestroyFcn)(ktWarningLog* log);

/* Called after every status change with (data, identifier, status). */
typedef void (*ktWarningStatusListener)(void* data, const char* identifier, int status);

/* Called by ktIterateOverWarningStatuses per record. */
typedef void (*ktWarningStatusVisitor)(void* data, const char* identifier, int status);

/* Called with the new value of mode 0 when it is set. */
typedef void (*ktWarningModeHook)(unsigned int value);

/* Answers whether console output is live now. */
typedef bool (*ktWarningOutputLiveFcn)(void);

/*
 * The procedural warning context. The two leading and the output words
 * are the caller's, stored unchanged (the basic contexts put their
 * message and error contexts in the first two and their warning-output
 * function and data in the last two).
 */
typedef struct _warning_context {
    void* messageContext;
    void* errorContext;
    kt_mem_context* memoryContext;     /* the context and manager come from here */
    unsigned char ownsManager;         /* 1 when clearing deletes the manager */
    ktWarningManagerContext* manager;
    kt_putsn_function outputFunction;
    void* outputData;
    ktWarningOutputLiveFcn outputLive; /* always forwards to ktPrintfIsHot */
} kt_warning_context;

KT_EXTERN_C_BEGIN

/* ---- procedural warning context ---------------------------------------- */

/* Fills `context` around an existing manager, which it does not own. */
KT_API void kt_initialize_warning_context_with_warning_manager(
    kt_warning_context* context, void* messageContext, void* errorContext,
    kt_mem_context* memoryContext, ktWarningManagerContext* manager,
    kt_putsn_function outputFunction, void* outputData);

/* Creates a manager with ktNewWarningManager(memoryContext) and fills
   `context` around it; the context owns that manager. Allocation failures
   raise through the memory context. */
KT_API void kt_initialize_warning_context(kt_warning_context* context, void* messageContext,
                                          void* errorContext, kt_mem_context* memoryContext,
                                          kt_putsn_function outputFunction, void* outputData);

/* Allocates a context from `memoryContext` (kt_mem_alloc) around an existing
   manager it does not own. If building it fails, the storage goes back to
   the memory context before the error passes on. */
KT_API kt_warning_context* kt_new_warning_context_with_warning_manager(
    void* messageContext, void* errorContext, kt_mem_context* memoryContext,
    ktWarningManagerContext* manager, kt_putsn_function outputFunction, void* outputData);

/* Deletes the manager if the context owns it (and forgets it, so that a
   second clear does nothing); otherwise does nothing. */
KT_API void kt_clear_warning_context(kt_warning_context* context);

/* Clears a context made by kt_new_... and frees its storage; a failure
   while freeing is swallowed. */
KT_API void kt_delete_warning_context(kt_warning_context* context);

/* The context's manager. */
KT_API ktWarningManagerContext* kt_wmgr_from_warning_context(kt_warning_context* context);

/* ktSetWarningStatus / ktGetWarningStatus on the context's manager, through
   the translation {0->0, 1->1, 2->2, 3->0}; other values give 0. */
KT_API void kt_set_warning_status_id(kt_warning_context* context, const char* identifier,
                                     int status);
KT_API int kt_get_warning_status_id(kt_warning_context* context, const char* identifier);

/* ---- manager lifecycle and the current-manager slot --------------------- */

/* Builds a manager whose tables allocate from `memoryContext`: every
   identifier on, modes 0-3 off and mode 4 on. If a virtual-machine context
   is active, this thread's warning-log factory supplies the log. Failures
   undo what was built and pass on. */
KT_API ktWarningManagerContext* ktNewWarningManager(kt_mem_context* memoryContext);

/* Releases the manager and everything it owns; null is ignored. A log is
   handed to this thread's destroy function when one is set and a
   virtual-machine context is active; otherwise the manager leaves it. */
KT_API void ktDeleteWarningManager(ktWarningManagerContext* manager);

/* Stores (atomically) / returns the manager of the current product context
   (null when none was set). The Safe form returns null when no
   virtual-machine context is active. */
KT_API void ktSetWarningManagerContext(ktWarningManagerContext* manager);
KT_API ktWarningManagerContext* ktGetWarningManagerContext(void);
KT_API ktWarningManagerContext* ktGetWarningManagerContextSafe(void);

/* The manager's warning log (null when none). Setting does not delete the
   log it replaces. */
KT_API ktWarningLog* ktGetWarningLog(ktWarningManagerContext* manager);
KT_API void ktSetWarningLog(ktWarningManagerContext* manager, ktWarningLog* log);

/* This thread's warning-log factory (null restores the default, which
   makes no log) and destroy function. Both take effect only while a
   virtual-machine context is active; otherwise the call is ignored. */
KT_API void ktSetWarningLogFactoryFcn(ktWarningLogFactoryFcn factory);
KT_API void ktSetWarningLogDestroyFcn(ktWarningLogDestroyFcn destroy);

/* ---- statuses ------------------------------------------------------------ */

/* Sets the status (KT_WARNING_OFF/ON/ERROR) of `identifier`, or of every
   identifier when it is "all" (any case); null is the empty identifier.
   Then calls every status listener. */
KT_API void ktSetWarningStatus(ktWarningManagerContext* manager, const char* identifier,
                               int status);

/* The status of `identifier`: its own setting if made after the last "all"
   setting, the "all" setting otherwise. Case-insensitive. */
KT_API int ktGetWarningStatus(ktWarningManagerContext* manager, const char* identifier);

/* Number of identifiers with a record of their own ("all" not counted). */
KT_API unsigned int ktCountWarningsInWarningManager(ktWarningManagerContext* manager);

/* Calls visitor(data, identifier, effective status) per record, in table
   order. The visitor must not change the manager's statuses. */
KT_API void ktIterateOverWarningStatuses(ktWarningManagerContext* manager, void* data,
                                         ktWarningStatusVisitor visitor);

/* Adds / removes a status listener keyed by (function, data). Adding a
   present pair and removing an absent one do nothing. Remove returns 1
   when the pair was present. */
KT_API void ktAddWarningStatusListener(ktWarningManagerContext* manager,
                                       ktWarningStatusListener listener, void* data);
KT_API int ktRemoveWarningStatusListener(ktWarningManagerContext* manager,
                                         ktWarningStatusListener listener, void* data);

/* ---- modes and callback ---------------------------------------------------- */

/* modes[mode] = value for mode 0..4 (others ignored); setting mode 0 calls
   the mode-0 hook when one is set. Mode 4 (on by default) gates recording
   of the last warning. */
KT_API void ktSetWarningMode(ktWarningManagerContext* manager, int mode, unsigned int value);

/* True only when modes[mode] is exactly 1; out-of-range modes are off. */
KT_API bool ktIsWarningModeOn(ktWarningManagerContext* manager, int mode);

/* Sets the hook called with the new value of mode 0 (null: none). */
KT_API void ktSetWarningModeHook(ktWarningManagerContext* manager, ktWarningModeHook hook);

/* Calls the warning callback when one is set. */
KT_API void ktCallRegisteredWarningCallback(ktWarningManagerContext* manager);

KT_EXTERN_C_END

#ifdef __cplusplus

namespace resource_core {

/* A catalogue message id: the component (catalogue) and the mnemonic (key)
   under which its text is found. */
class BaseMsgID {
public:
    BaseMsgID(std::string component, std::string mnemonic)
        : component_(std::move(component)), mnemonic_(std::move(mnemonic)) {}
    const std::string& component() const { return component_; }
    const std::string& mnemonic() const { return mnemonic_; }

private:
    std::string component_;
    std::string mnemonic_;
};

}  // namespace resource_core

/*
 * A pluggable warning log. When a manager has one, both ktLogWarning forms
 * hand it their arguments and do nothing else.
 */
class KT_API ktWarningLog {
public:
    virtual ~ktWarningLog();
    virtual void logWarning(ktWarningManagerContext* manager, const std::string& identifier,
                            const cx::ustring& format, va_list* arguments,
                            const cx::ustring& message, bool suppressCallback) = 0;
    virtual void logWarning(ktWarningManagerContext* manager,
                            const boost::optional<std::string>& identifier,
                            const resource_core::BaseMsgID& messageId,
                            bool suppressCallback) = 0;
};

/* True for two or more ":"-separated components, each an ASCII letter
   followed by ASCII letters, digits or "_". */
KT_API bool ktIsValidMessageIdentifier(std::string_view identifier);

/* Records the last warning (identifier, then message) only while mode 4 is
   on; the getter copies both out. */
KT_API void ktSetLastWarningMsg(ktWarningManagerContext* manager, const std::string& identifier,
                                const cx::ustring& message);
KT_API void ktGetLastWarningMsg(ktWarningManagerContext* manager, std::string& identifier,
                                cx::ustring& message);

/* The last printed identifier. The const char* setter throws
   std::logic_error for null; the const char** getter stores and returns a
   pointer to the manager's own text, valid until the next set. */
KT_API void ktSetLastPrintedWarningId(ktWarningManagerContext* manager,
                                      const std::string& identifier);
KT_API void ktSetLastPrintedWarningId(ktWarningManagerContext* manager, const char* identifier);
KT_API void ktGetLastPrintedWarningId(ktWarningManagerContext* manager, std::string& identifier);
KT_API const char* ktGetLastPrintedWarningId(ktWarningManagerContext* manager,
                                             const char** identifier);

/* Installs `callback` (fired after each logged warning unless suppressed)
   and returns the previous one, which may be empty. */
KT_API std::function<void()> ktSetWarningCallbackFcn(ktWarningManagerContext* manager,
                                                     std::function<void()> callback);

/*
 * Logs a formatted warning: with a warning log, forwards everything to it;
 * otherwise records (identifier, message) as the last warning (subject to
 * mode 4) and, unless suppressCallback, calls the warning callback.
 */
KT_API void ktLogWarning(ktWarningManagerContext* manager, const std::string& identifier,
                         const cx::ustring& format, va_list* arguments,
                         const cx::ustring& message, bool suppressCallback);

/*
 * Logs a catalogue message: with a warning log, forwards to it; otherwise
 * looks the text up, takes `identifier` or else "component:mnemonic" (the
 * component "ZENTRA:legacy_two_part" counts as "ZENTRA"), records it as the
 * last warning and calls the callback unless suppressed.
 */
KT_API void ktLogWarning(ktWarningManagerContext* manager,
                         const boost::optional<std::string>& identifier,
                         const resource_core::BaseMsgID& messageId, bool suppressCallback);

#endif /* __cplusplus */

#endif /* KT_WARNINGS_H */
