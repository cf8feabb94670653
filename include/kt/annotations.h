/*
 * kt/annotations.h -- line and column numbers, hyperlinked source annotations
 *
 * Turns an offset in a source text (bytes, or 16-bit code units) into a
 * 1-based line and column, in one of two ways:
 *
 *   - a line map, built once per text, answers each lookup by binary
 *     search (logarithmic in the number of lines, plus the tabs between
 *     the line start and the offset):
 *
 *         kt_lineno_map map;
 *         kt_initialize_lineno_map(&map, ktGetMemoryContext(), text, length);
 *         size_t column;
 *         size_t line = kt_find_line_and_column(&column, &map, offset);
 *         kt_clear_lineno_map(&map);
 *
 *   - the direct scanners kt_line_col, kt_buf_line and kt_buf_column (C++
 *     only) walk the text up to the offset on every call.
 *
 * Lines end at LF, at CR, and at CR LF (one line end). Tab stops are every
 * 8 columns: a tab moves to the column after the next multiple of 8 (a tab
 * at the start of a line, or after three characters, puts the next
 * character at column 9). Every other byte or code unit is one column,
 * whatever character it belongs to.
 *
 * The two ways agree everywhere except at the LF of a CR LF pair: the map
 * sees the pair as one line end after the LF, so the LF is the last column
 * of its line; a scanner stops at the offset and so takes the CR just
 * before it as a line end (line + 1, column 1).
 *
 * Annotations wrap a file/line/column reference in a hyperlink that the
 * product's console opens at that place:
 *
 *     <a href="zentra: opentoline('/src/my file.m',12,5)">...</a>
 *
 * The texts come from the file/line/column message table, module 63
 * (codes KT_HREF_FILE_LINE_COLUMN ... below), and print through the
 * message mechanism of kt/messages.h. Whether the console wants links at
 * all is the hot-links setting, which belongs to the running session of
 * the current virtual-machine context (kt/vmcontext.h): it starts off in
 * every session, ends with the session, and reads as off outside one.
 *
 * Threads: a built map is only read by lookups, which may run on any
 * number of threads; building and clearing need the map to themselves.
 * The scanners are pure. The hot-links setting is one byte per session,
 * read and written atomically; the print functions go through the console
 * output hook (kt/output.h) and the installed basic contexts, which the
 * host sets up before printing from several threads.
 */
#ifndef KT_ANNOTATIONS_H
#define KT_ANNOTATIONS_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "kt/export.h"
#include "kt/memory.h"
#include "kt/messages.h"
#include "kt/output.h"

/* The file/line/column message table: module 63. */
#define KT_FILE_LINE_COLUMN_MODULE 63
/* "<a href="zentra: opentoline('%s',%ld,%ld)">": file, line, column */
#define KT_HREF_FILE_LINE_COLUMN 0x3F0001
/* "<a href="zentra: showhelp([helproot '%s'],'%s')">": documentation file, key */
#define KT_HREF_DOC_FILE_KEY 0x3F0002
/* "</a>" */
#define KT_HREF_END 0x3F0003
/* "%d": a line number */
#define KT_LINENO_NO_ANONYMOUS 0x3F0004
/* "%d@": a line number in the one anonymous function of that line */
#define KT_LINENO_ONE_ANONYMOUS 0x3F0005
/* "%d@%d": a line number and the index of an anonymous function on it */
#define KT_LINENO_MANY_ANONYMOUS 0x3F0006

/*
 * The line map of one text. Both arrays belong to the map and are released
 * through its memory context by kt_clear_lineno_map. The counts include
 * the sentinel length + 1 that ends each array, so a built map has
 * lineStarts[lineCount - 1] == tabs[tabCount - 1] == length + 1.
 */
typedef struct _lineno_map {
    kt_mem_context* memoryContext;  /* allocates both arrays */
    uint64_t lineCount;             /* entries of lineStarts */
    uint64_t* lineStarts;           /* 0, then the offset after each line end */
    uint64_t tabCount;              /* entries of tabs */
    uint64_t* tabs;                 /* offset of every tab, ascending */
    uint64_t length;                /* length of the text in bytes */
} kt_lineno_map;

KT_EXTERN_C_BEGIN

/* ---- line map ---------------------------------------------------------- */

/*
 * Builds the map of the `length` bytes of `text` (null is allowed for
 * length 0) into `map`, allocating through `memoryContext`, which must
 * outlive the map. The text is not kept. Any previous contents of `map`
 * are overwritten, not released.
 *
 * Exhaustion raises OUT_OF_MEMORY (0x20001) through the memory context's
 * error context and does not return; the map then holds the arrays
 * allocated so far, without sentinels, and kt_clear_lineno_map releases
 * them (lookups on such a map answer line 1, column 1).
 */
KT_API void kt_initialize_lineno_map(kt_lineno_map* map, kt_mem_context* memoryContext,
                                     const char* text, size_t length);

/*
 * Releases both arrays through the map's memory context, nulls them and
 * zeroes their counts. Clearing a cleared or zero-filled map does nothing.
 */
KT_API void kt_clear_lineno_map(kt_lineno_map* map);

/*
 * Returns the 1-based line of byte `offset` and stores its 1-based column
 * in `*column` (null: not stored). The end of the text (offset == length)
 * is a valid place. An offset past the end, or a map that is not built
 * (cleared, zero-filled, or cut short by a raise), gives line 1, column 1.
 */
KT_API size_t kt_find_line_and_column(size_t* column, const kt_lineno_map* map, size_t offset);

/* ---- annotations ------------------------------------------------------- */

/*
 * Writes the opening hyperlink for (fileName, line, column) with message
 * KT_HREF_FILE_LINE_COLUMN of `context` through put(stream, ...), by
 * kt_printm, and returns its result (the total written, or the first
 * negative put result). Every single quote of the file name is doubled so
 * that the name stays one quoted argument of the link; a null name counts
 * as "". The caller registers the table in `context` first
 * (ktInitializeFileLineColumnMessageContext); otherwise kt_printm prints
 * BAD_MSG_CODE. Throws bedrock::core::except::bad_alloc() when the quoted
 * copy cannot be made.
 */
KT_API int ktPutAnnotationHeader(kt_message_context* context, kt_putsn_function put, void* stream,
                                 const char* fileName, long line, long column);

/* Writes KT_HREF_END ("</a>") of `context` through put(stream, ...) by
   kt_printm and returns its result. */
KT_API int ktPutAnnotationTrailer(kt_message_context* context, kt_putsn_function put, void* stream);

/*
 * When `line` is not 0 and hot links are on (ktGetHotLinks), prints the
 * opening hyperlink to the console output hook, through the installed
 * basic contexts' message context; otherwise prints nothing. The table is
 * registered in that message context, through its memory context, the
 * first time it is missing there (so printing does not pile up
 * registrations); a registration failure is raised through that memory
 * context.
 */
KT_API void ktPrintAnnotationHeader(const char* fileName, long line, long column);

/*
 * When `flag` is not 0 and hot links are on, prints the text of
 * KT_HREF_END in the current language to the console output hook
 * (registering the table as ktPrintAnnotationHeader does); otherwise
 * prints nothing.
 */
KT_API void ktPrintAnnotationTrailer(int flag);

/*
 * Registers the file/line/column table as a primary table of `context`
 * (kt_add_primary_message_table, growing with ktRealloc). Returns its
 * result: 0, or -1 when memory ran out, or a failing code when the module
 * already holds another table (the detail status is not reported).
 */
KT_API int ktInitializeFileLineColumnMessageContext(kt_message_context* context);

/*
 * Switches hot links on or off for the running session of this thread's
 * current virtual-machine context. Outside a session there is nowhere to
 * keep the setting: the call does nothing.
 */
KT_API void ktSetHotLinks(bool on);

/* Whether hot links are on: false when this thread's current context runs
   no session (or none is entered), else the session's setting (false until
   set). */
KT_API bool ktGetHotLinks(void);

KT_EXTERN_C_END

#ifdef __cplusplus
/*
 * Direct scanners, for 8-bit text (char) and 16-bit code units (char16_t);
 * exported under their C++ names for these two element types only. Each
 * reads text[0 .. offset - 1], which must exist; offset 0 is line 1,
 * column 1. A CR just before the offset counts as a line end.
 *
 * kt_line_col returns the line and stores the column in `*column` (null:
 * not stored); kt_buf_line returns the line, kt_buf_column the column.
 * kt_line_col and kt_buf_line take time in proportion to the offset,
 * kt_buf_column in proportion to the length of the offset's line.
 */
template <class T>
KT_API size_t kt_line_col(size_t* column, const T* text, size_t offset);
template <class T>
KT_API size_t kt_buf_line(const T* text, size_t offset);
template <class T>
KT_API size_t kt_buf_column(const T* text, size_t offset);

extern template size_t kt_line_col<char>(size_t*, const char*, size_t);
extern template size_t kt_line_col<char16_t>(size_t*, const char16_t*, size_t);
extern template size_t kt_buf_line<char>(const char*, size_t);
extern template size_t kt_buf_line<char16_t>(const char16_t*, size_t);
extern template size_t kt_buf_column<char>(const char*, size_t);
extern template size_t kt_buf_column<char16_t>(const char16_t*, size_t);
#endif

#endif /* KT_ANNOTATIONS_H */
