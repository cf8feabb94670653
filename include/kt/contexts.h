/*
 * kt/contexts.h -- the basic contexts
 *
 * Nearly every service of libkt works against six contexts: message
 * tables, error raising, memory, the shared name hash, decimal conversion
 * state and warnings. ktBasicContexts bundles them with a 4096-byte
 * error-text buffer and a throw hook, through which an error raised in any
 * of the six leaves the library.
 *
 * The library keeps one process-wide current record. A default record is
 * built on the first call of any accessor (or install function); an error
 * raised through it with no catch frame prints its text on standard error
 * and ends the process with status 1. A host uses its own record like this:
 *
 *     static ktBasicContexts mine;
 *     if (ktInitializeBasicContexts(&mine, MyThrow, myData) != 0)
 *         report(mine.errorText);                 // why it failed
 *     ktBasicContexts* previous = ktInstallBasicContexts(&mine);
 *     ...                                         // errors reach MyThrow
 *     ktInstallBasicContexts(previous);
 *     ktClearBasicContexts(&mine);
 *
 * MyThrow(data, identifier, code, text) receives "ZENTRA:" plus the
 * message mnemonic, the message code and the finished text (without its
 * trailing newline); it should throw or end the process. If it returns,
 * the error context ends the process.
 *
 * Threads: there is one current record for the process, not one per
 * thread. Building the default, installing a record and installing a throw
 * hook are serialised by a recursive mutex; the accessors read without a
 * lock. The error-text buffer of a record is shared by every thread raising
 * through it: threads that raise concurrently need records of their own.
 */
#ifndef KT_CONTEXTS_H
#define KT_CONTEXTS_H

#include <stdint.h>

#include "kt/containers.h"
#include "kt/errors.h"
#include "kt/export.h"
#include "kt/memory.h"
#include "kt/messages.h"
#include "kt/numbers.h"
#include "kt/output.h"
#include "kt/warnings.h"

#define KT_ERROR_TEXT_SIZE 4096

/* The throw hook: (throw data, identifier, message code, finished text).
   Its result is ignored; it is expected not to return. */
typedef int (*ktBasicThrowFunction)(void* data, const char* identifier, int code,
                                    const char* text);

/*
 * The basic-contexts record. Callers may embed it anywhere. errorCursor
 * and errorRoom form a kt_buffer_cursor over errorText (kt_bputsn writes
 * there); text beyond the buffer is dropped, never written past it.
 */
typedef struct _basic_contexts {
    kt_message_context messageContext;
    kt_error_context errorContext;
    kt_mem_context memoryContext;
    kt_namehash namehashContext;
    kt_fpc_context fpcContext;
    kt_warning_context warningContext;
    char* errorCursor;                  /* next free byte of errorText */
    uint64_t errorRoom;                 /* bytes still free in errorText */
    char errorText[KT_ERROR_TEXT_SIZE]; /* the text of the last error */
    ktBasicThrowFunction throwFunction;
    void* throwData;
} ktBasicContexts;

KT_EXTERN_C_BEGIN

/*
 * ktInitializeBasicContexts_full with ktMalloc, ktRealloc, ktFree, kt_bputsn
 * into the record's own errorText, and a warning output that prints
 * through ktPuts (the console output hook). Returns 0, or nonzero with the
 * explanation in record->errorText (see _full).
 */
KT_API int ktInitializeBasicContexts(ktBasicContexts* record, ktBasicThrowFunction throwFunction,
                                     void* throwData);

/*
 * Builds the six contexts in the order message, error, memory, fpc, name
 * hash, warning, each with the ones before it. Returns 0 on success. A
 * failing message or error context returns its result (-1 for memory, or
 * the offending message code) and a raise while building the others
 * returns that error's code (0x20001 when memory ran out); either way the
 * explanation is in record->errorText, written there whatever errorOutput
 * is. After a failure the record holds only its message context: release
 * it with ktClearBasicContexts.
 */
KT_API int ktInitializeBasicContexts_full(
    ktBasicContexts* record, ktBasicThrowFunction throwFunction, void* throwData,
    kt_allocate_function allocate, kt_reallocate_function reallocate,
    kt_release_function release, kt_putsn_function errorOutput, void* errorOutputData,
    kt_putsn_function warningOutput, void* warningOutputData);

/*
 * Releases what the contexts own: warning, name hash, fpc, then the message
 * context -- always with ktFree, whatever release function _full was given
 * (a deliberate asymmetry: callers of _full with a foreign allocator must
 * allocate message tables compatibly). Never clear the installed record.
 */
KT_API void ktClearBasicContexts(ktBasicContexts* record);

/* Does nothing; kept as an entry point for callers that link against it. */
KT_API void ktClearDefaultContexts(void);

/* The current record (building the default on first use). No lock. */
KT_API ktBasicContexts* ktGetBasicContexts(void);

/* Makes `record` current (null allowed: then the accessors must not be
   used) and returns the previous current record; the caller puts it back
   before clearing its own. Never initialises or clears anything. */
KT_API ktBasicContexts* ktInstallBasicContexts(ktBasicContexts* record);

/* Sets the throw hook and its data of the current record. */
KT_API void ktInstallBasicThrow(ktBasicThrowFunction throwFunction, void* throwData);

/* Members of the current record (building the default on first use). */
KT_API kt_message_context* ktGetMessageContext(void);
KT_API kt_error_context* ktGetErrorContext(void);
KT_API kt_mem_context* ktGetMemoryContext(void);
KT_API kt_fpc_context* ktGetFpcContext(void);
KT_API kt_warning_context* ktGetWarningContext(void);

/*
 * Takes the current record's error text: drops the last byte written (the
 * newline of a printed error, or a terminator), terminates, rewinds the
 * buffer and returns its start. The text stays readable until the next
 * error overwrites it.
 */
KT_API char* ktReturnKTErrorString(void);

KT_EXTERN_C_END

#ifdef __cplusplus
/* The name-hash member of the current record. Exported under its C++
   name only (unlike its five siblings), as existing callers link it so. */
KT_API kt_namehash* ktGetNamehashContext();
#endif

#endif /* KT_CONTEXTS_H */
