/*
 * kt/profiler.h -- the function profiler
 *
 * The measuring engine behind a code profiler. The host's interpreter calls
 * ktProfLogFunctionEntry and ktProfLogFunctionExit on every function entry
 * and exit and ktProfLogLineNumberEvent on every executed line while
 * profiling is on. The profiler keeps, per function, call counts, times,
 * callers and callees and per-line times, and optionally a history of the
 * entry and exit events:
 *
 *     ktProfiler* p = ktProfNewProfiler(ktGetMemoryContext(), "run", NULL,
 *                                       NULL, NULL, NULL);
 *     ktProfStartLogging(p);
 *     ktProfLogFunctionEntry(p, info, data);   // the interpreter enters
 *     ktProfLogLineNumberEvent(p, 12);         // ... runs line 12
 *     ktProfLogFunctionExit(p, info, data);    // ... and returns
 *     ktProfSuspendLogging(p);
 *     ... read p->functionTable (kt_ghash_cursor_init / kt_ghash_iterate)
 *     ktProfDeleteProfiler(p);
 *
 * Functions are identified by two opaque words the host passes (function
 * information and data); the profiler reads them only through the host's
 * callbacks. The function table hashes and compares the function
 * information word alone (kt_ghash_hash_ptr_key, kt_ghash_compare_ptr_keys),
 * so one function information entered with two data words is one record,
 * which keeps the data word of its first entry.
 *
 * Times come from the record's clock (ktCPUtime by default; a host or test
 * may store its own in `clock` after initialisation), in seconds. Every
 * measurement that starts subtracts the clock reading from its field and
 * every end adds it, so a time field holds elapsed seconds whenever no
 * measurement on it is open, and "closed sum minus the open start times"
 * while one is.
 *
 * Errors: all allocation goes through the memory context given at
 * initialisation. The three logging calls and ktProfStartLogging run under
 * kt_try_catch with the profiler's catch function: any error raised inside
 * clears the profile (memory exhaustion also prints 0x1C0002 or 0x1C0003
 * through the error context with kt_error_print) and then continues to the
 * caller's outer catch frames, as a raise always does (kt/errors.h). So a
 * failed measurement never leaves a half-updated profile: the data is
 * dropped and profiling stops. A cleared profiler (ktProfIsInitialized is
 * false) must be initialised again before it measures anything; until then
 * the logging calls, ktProfStartLogging and ktProfResetProfiler return at
 * once.
 *
 * Messages (module 28, registered through the memory context at
 * initialisation) go through the error context of the memory context: a
 * host that wants them on the console gives that error context an output
 * function that prints through the console hook (one that calls ktPutsn,
 * kt/output.h).
 *
 * Threads: none. A profiler belongs to the thread that runs the
 * interpreter; no call locks.
 */
#ifndef KT_PROFILER_H
#define KT_PROFILER_H

#include <stdbool.h>
#include <stdint.h>

#include "kt/containers.h"
#include "kt/errors.h"
#include "kt/export.h"
#include "kt/memory.h"
#include "kt/messages.h"

/* Module-28 messages. */
#define KT_PROFILE_INVALID_ARGUMENTS 0x1C0001 /* "Internal Error: Invalid arguments ..." */
#define KT_PROFILE_OUT_OF_MEMORY1 0x1C0002    /* "... cleared ...;\nProfiler is now disabled" */
#define KT_PROFILE_OUT_OF_MEMORY2 0x1C0003    /* "... cleared because a memory allocation failure" */
#define KT_PROFILE_HISTORY_FULL 0x1C0004      /* "Warning: Profiler history table is full" */
#define KT_PROFILE_HISTORY_ERROR 0x1C0005     /* "Error: Cannot enable history tracking ..." */
#define KT_PROFILE_NO_FILE_RECORD 0x1C0006    /* "Internal Warning: Function %s has no file record" */

/* Fixed sizes of a new profiler. */
#define KT_PROF_INITIAL_TABLE_SIZE 199
#define KT_PROF_HISTORY_CAPACITY 10000
#define KT_PROF_HISTORY_BLOCK_SIZE 500
#define KT_PROF_FIRST_LINE_TABLE 100 /* records of a function's first line table */
#define KT_PROF_NO_LINE 0x7FFFFFFFu  /* first line of a function without lines */

/* ---- callbacks ---------------------------------------------------------- */

/* The clock: seconds as a double. */
typedef double (*ktProfClockFunction)(void);

/* True when the event of (functionInfo, data) is not measured. `outermost`
   is true for an entry at depth 0 and an exit back to depth 0. */
typedef bool (*ktProfSkipFunction)(void* functionInfo, void* data, bool outermost);

/* True when the function owns line events (the line step charges lines to
   the topmost stack entry whose function answers true). */
typedef bool (*ktProfLineOwnerFunction)(void* functionInfo, void* data);

/* Kept for the host; the profiler never calls it. The default returns
   `functionInfo` unchanged. */
typedef void* (*ktProfFunctionInfoMap)(void* functionInfo, void* data);

/* Names a function for reports (ktProfFunctionInfoToTypename). */
typedef const char* (*ktProfTypenameFunction)(void* functionInfo, void* data);

/* ---- the profile ---------------------------------------------------------- */

/* One line of a function: 24 bytes, indexed by line minus first line. */
typedef struct _ktProfLineRecord {
    double time;       /* seconds spent on the line (see the time rule above) */
    uint32_t count;    /* times the line was entered */
    uint32_t unused1;  /* zero */
    uint64_t unused2;  /* zero */
} ktProfLineRecord;

struct _ktProfFunctionRecord;

/* A callee of a function: calls from it and time spent in them. */
typedef struct _ktProfChildLink {
    struct _ktProfChildLink* next;
    struct _ktProfFunctionRecord* child;
    uint32_t count;
    double time;
} ktProfChildLink;

/* A caller of a function and the number of calls it made. */
typedef struct _ktProfParentLink {
    struct _ktProfParentLink* next;
    struct _ktProfFunctionRecord* parent;
    uint32_t count;
} ktProfParentLink;

/*
 * One function: an element of the function table, created on its first
 * measured entry and valid until the profiler is reset, cleared or
 * deleted. Lists are newest first.
 */
typedef struct _ktProfFunctionRecord {
    void* functionInfo;       /* the key: the host's two words */
    void* data;
    uint32_t index;           /* order of creation, from 0 */
    uint32_t callCount;       /* completed and running calls */
    uint32_t activeCount;     /* calls now on the stack (recursion depth) */
    double totalTime;         /* outermost invocations only */
    double selfTime;          /* every invocation, recursive ones included */
    uint32_t firstLine;       /* KT_PROF_NO_LINE until a line is recorded */
    uint32_t lastLine;
    uint32_t lineCount;       /* records in use: lastLine + 1 - firstLine */
    uint32_t lineCapacity;    /* records allocated, the unused ones zero */
    ktProfLineRecord* lines;  /* null until a line is recorded */
    ktProfChildLink* children;
    ktProfParentLink* parents;
} ktProfFunctionRecord;

/* A measured call now running; `line` is 0 when none was recorded. */
typedef struct _ktProfStackEntry {
    struct _ktProfStackEntry* next;
    uint32_t line;
    ktProfFunctionRecord* function;
} ktProfStackEntry;

/* A history event. */
typedef struct _ktProfHistoryEvent {
    ktProfFunctionRecord* function;
    uint32_t exit;  /* 0 entry, 1 exit */
    double time;    /* the clock reading of the event */
} ktProfHistoryEvent;

/* A block of history events; the events follow in the same allocation. */
typedef struct _ktProfHistoryBlock {
    struct _ktProfHistoryBlock* next;  /* older block */
    uint32_t count;                    /* events used */
    uint32_t capacity;                 /* events allocated */
    ktProfHistoryEvent* events;
} ktProfHistoryBlock;

/* The profiler record. Read freely; change only `clock` (any time) and the
   flags through the functions below. */
typedef struct _ktProfiler {
    char* name;                         /* own copy; null once cleared */
    kt_mem_context* memoryContext;      /* all allocation */
    kt_error_context* errorContext;     /* of the memory context */
    kt_message_context* messageContext; /* of the error context */
    uint32_t functionCount;             /* records made; the next index */
    uint32_t historyCount;              /* history events recorded */
    uint32_t historyCapacity;           /* KT_PROF_HISTORY_CAPACITY */
    uint32_t initialTableSize;          /* KT_PROF_INITIAL_TABLE_SIZE */
    kt_ghash_table functionTable;       /* ktProfFunctionRecord elements */
    ktProfStackEntry* stack;            /* top first */
    uint32_t depth;                     /* entries minus exits, skipped ones too */
    uint32_t historyBlockSize;          /* KT_PROF_HISTORY_BLOCK_SIZE */
    ktProfHistoryBlock* historyBlocks;  /* newest first */
    unsigned char logging;              /* 1 while profiling runs */
    unsigned char history;              /* 1 while history is tracked */
    ktProfClockFunction clock;          /* ktCPUtime */
    double now;                         /* reading of the latest event */
    uint64_t processorFrequency;        /* maximum in Hz; 1 when unknown */
    ktProfSkipFunction skip;
    ktProfLineOwnerFunction lineOwner;
    ktProfTypenameFunction typeName;    /* as given, may be null */
    ktProfFunctionInfoMap mapFunctionInfo;
} ktProfiler;

KT_EXTERN_C_BEGIN

/* ---- lifecycle ------------------------------------------------------------- */

/*
 * Initialises `profiler` on caller storage: registers the module-28 table
 * through `memoryContext`, takes the error context of the memory context
 * and its message context, copies `name` (null is taken as ""), stores the
 * callbacks (null skip, line-owner and map callbacks get the defaults:
 * never skip, every function owns its lines, return functionInfo; the
 * type-name callback is stored as given), sets the clock to ktCPUtime and
 * makes an empty function table of 199 buckets. A raise (OUT_OF_MEMORY, or
 * a registration failure) clears what was built and goes on to the caller.
 */
KT_API void ktProfInitProfiler(ktProfiler* profiler, kt_mem_context* memoryContext,
                               const char* name, ktProfSkipFunction skip,
                               ktProfLineOwnerFunction lineOwner,
                               ktProfFunctionInfoMap mapFunctionInfo,
                               ktProfTypenameFunction typeName);

/* Allocates the record from `memoryContext` and initialises it as above; if
   initialisation raises, the record is released and the error goes on. */
KT_API ktProfiler* ktProfNewProfiler(kt_mem_context* memoryContext, const char* name,
                                     ktProfSkipFunction skip, ktProfLineOwnerFunction lineOwner,
                                     ktProfFunctionInfoMap mapFunctionInfo,
                                     ktProfTypenameFunction typeName);

/* Null does nothing; otherwise clears and releases a ktProfNewProfiler
   record through its memory context. */
KT_API void ktProfDeleteProfiler(ktProfiler* profiler);

/*
 * Releases the name, every function record, history block and stack entry
 * and the function table; zeroes the function count, history count, depth,
 * logging flag and `now`. The history flag, clock and callbacks stay.
 * Clearing twice is harmless. Afterwards ktProfIsInitialized is false.
 */
KT_API void ktProfClearProfiler(ktProfiler* profiler);

/*
 * As ktProfClearProfiler, but keeps the name and the table, emptied to 199
 * buckets (which may re-allocate its bucket array: exhaustion raises). Does
 * nothing on a profiler that is not initialised.
 */
KT_API void ktProfResetProfiler(ktProfiler* profiler);

/* False for null; otherwise whether the function table exists. */
KT_API bool ktProfIsInitialized(const ktProfiler* profiler);

/* The name given at initialisation (null once cleared). */
KT_API const char* ktProfProfilerName(const ktProfiler* profiler);

/* ---- switching ----------------------------------------------------------------- */

/* Under kt_try_catch with the profiler's catch function: resets the
   profiler, then sets the logging flag. */
KT_API void ktProfStartLogging(ktProfiler* profiler);

/*
 * If logging: logs an exit (ktProfLogFunctionExit) for the top entry until
 * the stack is empty, then clears the logging flag. Should the skip
 * callback refuse such an exit, the entries from there down stay on the
 * stack (the loop stops instead of spinning).
 */
KT_API void ktProfSuspendLogging(ktProfiler* profiler);

/* Sets the logging flag; the stack and the data are kept. */
KT_API void ktProfResumeLogging(ktProfiler* profiler);

/*
 * Off: clears the history flag. On: sets it when logging is off or history
 * is already on; while logging runs with history off, raises 0x1C0005
 * (PROFILE_HISTORY_ERROR) through the error context instead (suspend
 * first). The history flag survives reset and clear.
 */
KT_API void ktProfEnableHistoryTracking(ktProfiler* profiler, bool on);

KT_API bool ktProfIsHistoryTrackingEnabled(const ktProfiler* profiler);

/* Both read the same logging flag. */
KT_API bool ktProfIsLineNumberLoggingEnabled(const ktProfiler* profiler);
KT_API bool ktProfIsFunctionLoggingEnabled(const ktProfiler* profiler);

/* ---- events ---------------------------------------------------------------------- */

/*
 * The entry step, under kt_try_catch. Counts the depth up, then unless the
 * skip callback refuses (functionInfo, data, depth was 0): reads the clock,
 * finds or creates the function's record, counts the call on the caller's
 * child link and the callee's parent link (when a caller is on the stack),
 * pushes a stack entry, counts the call, starts the self-inclusive time and
 * -- for the outermost active call of this function only -- the total time,
 * and records a history event when history is on. The logging flag is not
 * consulted: the host decides when to call. Nothing happens on a profiler
 * that is not initialised; null is not allowed.
 */
KT_API void ktProfLogFunctionEntry(ktProfiler* profiler, void* functionInfo, void* data);

/*
 * The exit step, under kt_try_catch. Nothing happens when the stack is
 * empty (the depth stays). Otherwise counts the depth down, then unless the
 * skip callback refuses (functionInfo, data, depth was 1): reads the clock
 * and pops the top entry -- the stack, not the arguments, decides which
 * function exits -- ends its current line (when its function's line table
 * covers it), the caller's child-link time, the self-inclusive time and,
 * when this was the outermost active call, the total time; records a
 * history event when history is on.
 */
KT_API void ktProfLogFunctionExit(ktProfiler* profiler, void* functionInfo, void* data);

/*
 * The line step, under kt_try_catch. The owner is the topmost stack entry
 * whose function the line-owner callback accepts; none: nothing happens.
 * Reads the clock, ends the top entry's current line in the OWNER's line
 * table (when that table covers it), starts line |line| there (a negative
 * line counts as its absolute value; the table grows at either end) and
 * stores |line| as the top entry's current line.
 */
KT_API void ktProfLogLineNumberEvent(ktProfiler* profiler, int32_t line);

/* The record of `line` in the function's table: &lines[line - firstLine].
   No bounds check. */
KT_API ktProfLineRecord* ktProfLookupLinenumRecord(ktProfFunctionRecord* function, uint32_t line);

/* Sum of the event counts of all history blocks (0 when none). */
KT_API uint32_t ktProfNumberOfEventRecords(const ktProfiler* profiler);

/* ---- helpers ----------------------------------------------------------------------- */

/*
 * The step of ktCPUtime: reads t0, reads until the value exceeds t0 (t1),
 * reads until it exceeds t1 (t2) and returns t2 - t1, so that a partial
 * first step is not measured. Spins for up to two clock steps of CPU time.
 */
KT_API double ktProfCpuTimeGranularity(void);

/*
 * Notes whether logging was on, clears the profiler and prints with
 * kt_error_print 0x1C0002 ("...;\nProfiler is now disabled") when it was,
 * 0x1C0003 otherwise. Called by the catch function on OUT_OF_MEMORY.
 */
KT_API void ktProfHandleMemoryFailure(ktProfiler* profiler);

/* The type-name callback's answer for (functionInfo, data); null when the
   profiler has no type-name callback. */
KT_API const char* ktProfFunctionInfoToTypename(const ktProfiler* profiler, void* functionInfo,
                                                void* data);

KT_EXTERN_C_END

#endif /* KT_PROFILER_H */
