/*
 * kt/memory.h -- heap wrappers and memory contexts
 *
 * Two layers of allocation:
 *
 *   - thin wrappers over the C heap with fixed zero-size rules (ktMalloc,
 *     ktCalloc, ktRealloc, ktFree) and throwing variants (ktMallocWithCheck
 *     ...) that throw util::detail::legacy_bad_alloc_impl (kt/errors.h,
 *     identifier "ZENTRA:nomem") instead of returning null;
 *
 *   - the memory context, kt_mem_context: allocation functions bound to an
 *     error context. Every container and context of libkt allocates
 *     through one, so exhaustion is raised as message OUT_OF_MEMORY
 *     (code 0x20001, "Error: Out of memory.") through the error context
 *     instead of being returned:
 *
 *         kt_mem_context mc;
 *         kt_initialize_memory_context(&mc, ec, ktMalloc, ktRealloc, ktFree);
 *         char* p = kt_mem_alloc(&mc, 100);  // never null for size > 0
 *         kt_mem_free(&mc, p);
 *
 * A zero-size request is never an error: it yields null (except from the
 * two deprecated zeroing allocators). A memory context holds no mutable
 * state after initialisation; it is as thread-safe as its three functions
 * and its error context. The wrappers are as thread-safe as the C heap.
 */
#ifndef KT_MEMORY_H
#define KT_MEMORY_H

#include <stddef.h>

#include "kt/export.h"

struct _error_context;
struct _message_table;
struct _language_table;

typedef void* (*kt_allocate_function)(size_t size);
typedef void* (*kt_reallocate_function)(void* pointer, size_t size);
typedef void (*kt_release_function)(void* pointer);

/* The memory context record; callers embed it. */
typedef struct _mem_context {
    struct _error_context* errorContext;     /* where exhaustion is raised */
    kt_allocate_function allocate;
    kt_reallocate_function reallocate;       /* also grows message tables */
    kt_release_function release;
    struct _error_context* errorContextCopy; /* same as errorContext */
} kt_mem_context;

/* Message code of OUT_OF_MEMORY: module 2, entry 1. */
#define KT_OUT_OF_MEMORY 0x20001

KT_EXTERN_C_BEGIN

/* ---- heap wrappers ---------------------------------------------------- */

/* malloc(size); size 0 returns null without calling the heap. */
KT_API void* ktMalloc(size_t size);

/* As ktMalloc, but exhaustion throws util::detail::legacy_bad_alloc_impl. */
KT_API void* ktMallocWithCheck(size_t size);

/* calloc(count, size); null without calling the heap if either is 0. */
KT_API void* ktCalloc(size_t count, size_t size);

/* As ktCalloc, but exhaustion throws util::detail::legacy_bad_alloc_impl. */
KT_API void* ktCallocWithCheck(size_t count, size_t size);

/*
 * realloc(pointer, size). Size 0 frees `pointer` (if not null) and returns
 * null. On failure returns null and the old block stays valid.
 */
KT_API void* ktRealloc(void* pointer, size_t size);

/* As ktRealloc, but failure throws legacy_bad_alloc_impl (block kept). */
KT_API void* ktReallocWithCheck(void* pointer, size_t size);

/* free(pointer). */
KT_API void ktFree(void* pointer);

/* ---- memory contexts -------------------------------------------------- */

/*
 * Fills the record (both error-context members get `errorContext`) and
 * registers the memory context's message table (module 2) with the error
 * context's message context. A registration failure is raised.
 */
KT_API void kt_initialize_memory_context(kt_mem_context* context,
                                         struct _error_context* errorContext,
                                         kt_allocate_function allocate,
                                         kt_reallocate_function reallocate,
                                         kt_release_function release);

/*
 * Allocates the record itself with `allocate` (failure raises
 * OUT_OF_MEMORY through `errorContext`) and initialises it as above.
 * Release it with kt_delete_memory_context.
 */
KT_API kt_mem_context* kt_new_memory_context(struct _error_context* errorContext,
                                             kt_allocate_function allocate,
                                             kt_reallocate_function reallocate,
                                             kt_release_function release);

/* Releases a record made by kt_new_memory_context with its own release. */
KT_API void kt_delete_memory_context(kt_mem_context* context);

/*
 * Allocates `size` bytes. Size 0 returns null without calling allocate;
 * a null result raises OUT_OF_MEMORY (0x20001) and does not return.
 */
KT_API void* kt_mem_alloc(kt_mem_context* context, size_t size);

/* kt_mem_alloc, then zero-fills exactly `size` bytes. */
KT_API void* kt_mem_calloc(kt_mem_context* context, size_t size);

/*
 * Size 0 calls release on `pointer` (even a null one) and returns null;
 * otherwise reallocates, and a null result raises OUT_OF_MEMORY.
 */
KT_API void* kt_mem_realloc(kt_mem_context* context, void* pointer, size_t size);

/* A copy of the NUL-terminated `text` from kt_mem_alloc (raises as it). */
KT_API char* kt_mem_strdup(kt_mem_context* context, const char* text);

/* Calls the release function on `pointer`. */
KT_API void kt_mem_free(kt_mem_context* context, void* pointer);

/*
 * Register or remove a primary message table / add a language in the
 * message context of the memory context's error context (kt/messages.h).
 * Running out of memory raises OUT_OF_MEMORY; any other failure is raised
 * as the message context's own explaining message (module 0).
 */
KT_API void kt_mem_add_primary_message_table(kt_mem_context* context,
                                             const struct _message_table* table);
KT_API void kt_mem_remove_primary_message_table(kt_mem_context* context,
                                                const struct _message_table* table);
KT_API void kt_mem_add_language(kt_mem_context* context, const char* language,
                                const struct _language_table* table);

KT_EXTERN_C_END

#ifdef __cplusplus
/*
 * `new (std::nothrow) char[size]` style allocation (scalar and array
 * forms), then zero-filled. Size 0 gives a unique non-null block; failure
 * throws util::detail::legacy_bad_alloc_impl. Release with the matching
 * delete form (operator delete / operator delete[]), never with ktFree.
 * Exported under their C++ names.
 */
KT_API void* ktNewZero_deprecated(size_t size);
KT_API void* ktNewArrayZero_deprecated(size_t size);
#endif

#endif /* KT_MEMORY_H */
