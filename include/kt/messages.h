/*
 * kt/messages.h -- numbered message tables and message formatting
 *
 * Every error and warning text is a numbered message: a 32-bit code whose
 * upper 16 bits are the module number and lower 16 bits the 1-based entry
 * (0x20001 is entry 1 of module 2). A component registers its English
 * (primary) table with the message context at start-up; translations may
 * be added per language and refer to the English holes by number ("%2 ...
 * %1"). Tables are validated when registered, so a malformed format is an
 * internal error at registration, never a crash when first printed.
 *
 * English texts: "%%" prints "%"; "%s" (a string, printed uncut) and "%U"
 * (a kt_percent_u_argument*) take nothing between "%" and the letter; every
 * other hole is a C conversion: "%", flags among "-+ #0'", a width (digits
 * or "*"), a precision ("." then digits or "*"), a length modifier, and one
 * of the letters d i u o x X f e E g G c p n. The length modifier may be
 * hh h l ll q j z t for integers and n, l or L for floating conversions,
 * and none for c and p; each "*" takes an int before the value. Anything
 * else after a "%" (a stranded "%", or a specification the C formatter
 * would read as another argument, such as "%Sd", "%lc", "%m...d", "%1$d",
 * "%llf") is refused with status 6 (STRANDED_PER_CENT). A refused table
 * nevertheless stays registered (see kt_add_primary_message_table); when
 * such a text is printed, its malformed specifications are copied as they
 * stand and take no argument.
 *
 *     static const int codes[] = { (7 << 16) | 1, -1 };
 *     static const char* const mnemonics[] = { "NO_SUCH_THING" };
 *     static const char* const texts[] = { "No thing called \"%s\" (%d)." };
 *     static const kt_message_table table = { 1, 7, codes, mnemonics, texts, "things" };
 *     kt_add_primary_message_table(&status, mc, &table, ktRealloc);
 *     kt_printm(mc, putsn, data, (7 << 16) | 1, "x", 3);
 *
 * Registration results: 0 on success, -1 when memory ran out, otherwise
 * the message code of the offending entry with the reason in `*status`,
 * which is one of the module-0 codes below (the message context's own
 * table). Registration never prints.
 *
 * A message context is not locked: register tables and change the language
 * before sharing it between threads. Lookup and printing only read it.
 */
#ifndef KT_MESSAGES_H
#define KT_MESSAGES_H

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>

#include "kt/export.h"
#include "kt/memory.h"
#include "kt/output.h"

/* Module-0 messages; also the status codes of the registration calls. */
enum {
    KT_NO_MEMORY_FOR_MESSAGE_CONTEXT = 1,
    KT_MSG_MODULE_COUNT_MISMATCH = 2,
    KT_TOO_FEW_STRINGS = 3,
    KT_TOO_MANY_STRINGS = 4,
    KT_WRONG_CODE = 5,
    KT_STRANDED_PER_CENT = 6,
    KT_NON_TRIVIAL_PER_CENT = 7,
    KT_NON_TRIVIAL_S = 8,
    KT_HOLE_NOT_PRESENT = 9,
    KT_DUPLICATE_REFERENCE = 10,
    KT_ILLEGAL_PER_CENT = 11,
    KT_OMITTED_HOLE = 12,
    KT_BAD_MSG_CODE = 13,
    KT_MSG_MODULE_TABLE_MISMATCH = 14,
    KT_INVALID_PERCENT_U = 15
};

/* Primary (English) message table: static data of its component. */
typedef struct _message_table {
    int count;                      /* number of messages */
    int module;                     /* module number */
    const int* codes;               /* (module << 16) + i, then a negative value */
    const char* const* mnemonics;   /* one upper-case mnemonic per entry */
    const char* const* texts;       /* English format text per entry */
    const char* component;          /* owning component, may be "" */
} kt_message_table;

/* One module of a language table. */
typedef struct _language_module {
    const int* codes;               /* as in the primary table */
    const char* const* texts;       /* translated texts, holes as %1, %2 ... */
    int count;                      /* number of messages */
} kt_language_module;

/* Language table: modules (ended by a negative value), and per module its
   codes, texts and count, in the same order. */
typedef struct _language_table {
    const int* modules;
    const kt_language_module* tables;
} kt_language_table;

/* Per-module state of a message context. */
typedef struct _message_module {
    int count;                      /* messages; 0 when none registered */
    int registrations;              /* times the primary table was added */
    const char* const* mnemonics;
    const char* component;
    int holes;                      /* most holes in one English text */
    int longestSpec;                /* longest conversion specification */
} kt_message_module;

/*
 * The message context record (callers embed it in their basic contexts).
 * Its arrays are owned by it and released by kt_clear_message_context.
 */
typedef struct _message_context {
    int moduleCapacity;             /* slots of the per-module arrays */
    int highestModule;              /* highest module registered, -1 when none */
    kt_message_module* modules;
    int languageCount;              /* index 0 is "English" */
    int languageCapacity;
    char** languageNames;
    const char* const** * languageTexts;  /* [language][module] -> texts */
    int** languageCounts;           /* [language][module] -> texts translated */
    int currentLanguage;
    int maxHoles;                   /* most holes of any English text */
    int maxSpec;                    /* longest conversion specification */
} kt_message_context;

/* Prints a lexical file/line/column reference for a "%U" hole: writes
   through putsn(data, ...) and returns the count (negative on failure). */
typedef int (*kt_percent_u_function)(const void* argument, kt_putsn_function putsn, void* data);

/* An "%U" hole argument: the callback and what it prints. */
typedef struct _percent_u_argument {
    kt_percent_u_function print;
    const void* argument;
} kt_percent_u_argument;

/* The error function of kt_handle_message_context_error: (data, code,
   then up to two int arguments for the message's holes). */
typedef void (*kt_message_error_function)(void* data, int code, ...);

KT_EXTERN_C_BEGIN

/*
 * Initialises `context` with the primary language "English" and registers
 * the module-0 table. Returns 0, or -1 when memory ran out (*status = 1).
 * `reallocate` grows the arrays; release them with kt_clear_message_context.
 */
KT_API int kt_initialize_message_context(int* status, kt_message_context* context,
                                         kt_allocate_function allocate,
                                         kt_reallocate_function reallocate);

/* Releases the context's arrays with `release` and empties the record. */
KT_API void kt_clear_message_context(kt_message_context* context, kt_release_function release);

/*
 * Registers a primary table, which must stay valid while registered: stores
 * and counts it, then checks its codes and texts. Registering the same text
 * array again only counts (returns 0). Returns 0, -1 (memory; *status = 1),
 * or the failing entry's code with *status in 2..8, 14, 15; for 2 and 14
 * nothing is stored. A table refused by its checks stays registered and
 * counted (stored first on purpose): it is removed with
 * kt_remove_primary_message_table, and until then a differing table for its
 * module is refused with 14. A module number outside 0..32767 or a count
 * outside 0..65534 is refused with 5 (code: module, entry 0xFFFF) before
 * anything is stored.
 */
KT_API int kt_add_primary_message_table(int* status, kt_message_context* context,
                                        const kt_message_table* table,
                                        kt_reallocate_function reallocate);

/*
 * Undoes one registration; the last one makes the module's codes unknown.
 * Translations of the module stay; entries they lack show in English.
 * Returns 0, or -1 for an unknown module or one not registered.
 */
KT_API int kt_remove_primary_message_table(int* status, kt_message_context* context,
                                           const kt_message_table* table);

/*
 * Adds the translations of `table` under `language` (found ignoring case,
 * appended when new, even if the table is then refused; null counts as
 * ""). The modules are all checked before any is stored. Returns as the
 * primary registration, with *status in 2..5, 9..12, 14.
 */
KT_API int kt_add_language(int* status, kt_message_context* context, const char* language,
                           const kt_language_table* table, kt_reallocate_function reallocate);

/*
 * Selects the language: null selects English; otherwise the first
 * registered name equal ignoring case, else the first whose first 5
 * characters match, else the first 2. Returns 0, or 1 (unchanged).
 */
KT_API int kt_change_language(kt_message_context* context, const char* language);

/* The current language's text of `code`, or the English one when that
   language has none (no translation of the module, or one with fewer texts
   because the English table was re-registered longer); null for an unknown
   code. Points into the registered table. */
KT_API const char* kt_get_message(kt_message_context* context, int code);
/* The English text; null for an unknown code. */
KT_API const char* kt_get_primary_message(kt_message_context* context, int code);
/* The mnemonic; null for an unknown code. */
KT_API const char* kt_get_message_mnemonic(kt_message_context* context, int code);
/* The component name of the code's module; null for an unknown code. */
KT_API const char* kt_get_message_component(kt_message_context* context, int code);

/*
 * Formats message `code` with the arguments (in English hole order) into
 * putsn. "%s" holes are printed uncut, "%U" holes (a kt_percent_u_argument*)
 * through their callback, other holes with vsnprintf cut at 63 characters.
 * A translation's hole number beyond the English holes prints nothing.
 * An unknown code prints BAD_MSG_CODE and a newline and returns 0. Returns
 * the total written or the first negative putsn result. A piece longer
 * than 2147483647 bytes throws std::overflow_error. Reentrant.
 */
KT_API int kt_vprintm(kt_message_context* context, kt_putsn_function putsn, void* data,
                      int code, va_list args);
KT_API int kt_printm(kt_message_context* context, kt_putsn_function putsn, void* data,
                     int code, ...);

/*
 * kt_vprintm into `buffer`: the text is cut to fit and always terminated
 * (after the text, or in the last byte when full). Returns the characters
 * stored without the NUL; capacity 0 stores nothing and returns -1.
 */
KT_API int kt_vsprintm(kt_message_context* context, char* buffer, size_t capacity,
                       int code, va_list args);
KT_API int kt_sprintm(kt_message_context* context, char* buffer, size_t capacity,
                      int code, ...);

/* kt_vprintm to a stdio stream through kt_fputsn. */
KT_API int kt_vfprintm(kt_message_context* context, FILE* stream, int code, va_list args);
KT_API int kt_fprintm(kt_message_context* context, FILE* stream, int code, ...);

/*
 * Turns a failed registration (`result`, `status`) into one call of
 * function(data, code, n1, n2) with the explaining module-0 message and its
 * numbers; a negative result gives function(data, 1).
 */
KT_API void kt_handle_message_context_error(kt_message_context* context,
                                            kt_message_error_function function, void* data,
                                            int result, int status);

/* The same explanation printed with kt_printm into putsn, then "\n".
   Returns the total written or the first negative putsn result. */
KT_API int kt_print_message_context_error(kt_message_context* context,
                                          kt_putsn_function putsn, void* data,
                                          int result, int status);

/*
 * Writes "ZENTRA:" and the mnemonic of `code` into `buffer`, which must
 * hold 2048 bytes (longer identifiers are cut); an unknown code gives
 * "ZENTRA:BAD_MSG_CODE". Returns `buffer`.
 */
KT_API char* kt_make_message_identifier(char* buffer, kt_message_context* context, int code);

/* Identifiers are checked with ktIsValidMessageIdentifier (kt/warnings.h). */

KT_EXTERN_C_END

#endif /* KT_MESSAGES_H */
