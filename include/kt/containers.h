/*
 * kt/containers.h -- string buffers, hash tables, name hashes, sets,
 * growable tables and the interval set
 *
 * The procedural containers of libkt. Every container that is given a
 * kt_mem_context (kt/memory.h) allocates and frees only through it, so
 * exhaustion is raised as OUT_OF_MEMORY (0x20001) through that context's
 * error context instead of being returned; a raise never returns to the
 * caller (catch it with kt_try_catch, kt/errors.h). Sets use the C heap.
 *
 * None of the containers lock: a container belongs to one thread at a
 * time. The process-wide symbol table (kt_symtab_*) is the exception and
 * may be used from any thread.
 *
 * Sections:
 *   1. dynamic string buffers, buffer cursors, C string output, kt_qsort
 *   2. the generic hash table kt_ghash
 *   3. the name hash and the process-wide symbol table
 *   4. sets and growable tables
 *   5. the interval set kt_fsi
 */
#ifndef KT_CONTAINERS_H
#define KT_CONTAINERS_H

#include <stddef.h>
#include <stdint.h>

#include "kt/export.h"
#include "kt/hashing.h"
#include "kt/memory.h"

/* ========================================================================
 * 1. String buffers, buffer cursors, C string output and sorting
 * ===================================================================== */

/* A byte buffer that grows by doubling. It holds bytes, not a string: no
   function here writes a terminating NUL. */
typedef struct _dsbuffer {
    kt_mem_context* memoryContext;
    char* data;
    uint64_t length;    /* bytes in use */
    uint64_t capacity;  /* bytes allocated */
} kt_dsbuffer;

/* A bounded cursor over memory: reading functions consume from it,
   writing functions fill the memory it describes. */
typedef struct _buffer_cursor {
    char* position;     /* next byte */
    uint64_t remaining; /* bytes left from position */
} kt_buffer_cursor;

/* Comparison handed a caller context first: negative, zero or positive. */
typedef int (*kt_compare_function)(void* context, const void* a, const void* b);

/* String output with the shape of fputs: (text, stream), negative on
   failure. Same type as kt_puts_function of kt/output.h. */
typedef int (*kt_c_string_put_function)(const char* text, void* stream);

/* Called before and after each escape sequence by
   kt_output_c_string_with_hooks, with the put function, stream and the
   caller's argument (to wrap escapes in markup). */
typedef void (*kt_c_string_escape_hook)(kt_c_string_put_function put, void* stream,
                                        void* argument);

KT_EXTERN_C_BEGIN

/* Allocates `capacity` bytes from `context` (raises on exhaustion); length
   0. Growth only ever doubles the capacity; a buffer of capacity 0 is
   taken as capacity 1 when it first grows, so it cannot spin or overrun. */
KT_API void kt_initialize_dsbuffer(kt_dsbuffer* buffer, kt_mem_context* context, uint64_t capacity);

/* Appends the low byte of `c`, doubling the capacity first when the buffer
   is full. Returns the byte as an unsigned value. */
KT_API int kt_dsbputc(int c, kt_dsbuffer* buffer);

/* Appends `count` bytes, doubling the capacity until they fit and
   re-allocating once. Returns `count`; a negative count appends nothing and
   returns 0. */
KT_API int kt_dsbputsn(kt_dsbuffer* buffer, const char* bytes, int count);

/* Appends `string` without its NUL. Returns 1 when it was non-empty, 0 when
   empty (the buffer is then unchanged). */
KT_API int kt_dsbputs(const char* string, kt_dsbuffer* buffer);

/* Appends size * count bytes, growing as kt_dsbputsn. Returns `count`. */
KT_API size_t kt_dsbwrite(const void* bytes, size_t size, size_t count, kt_dsbuffer* buffer);

/* Sets the length to `length`; nothing is checked or re-allocated. */
KT_API void kt_dsb_shrink_buffer(kt_dsbuffer* buffer, uint64_t length);

/* Frees the data through the memory context; every field becomes 0/null. */
KT_API void kt_clear_dsbuffer(kt_dsbuffer* buffer);

/*
 * Reads a line from `cursor` into `destination` as fgets does: copies
 * bytes until a newline or until size - 1 bytes are stored, copies the
 * newline when it is next and there is room, and NUL-terminates. Returns
 * `destination`, except when the cursor ran out before a newline was
 * reached: then null, although the bytes read stay stored and terminated
 * (so a last line without a newline arrives with a null result). A size of
 * 1 stores only the NUL and returns `destination`; a size of 0 or less
 * stores nothing and returns null.
 */
KT_API char* kt_bgets(char* destination, int size, kt_buffer_cursor* cursor);

/* Copies as much of `string` (without NUL) as fits, advancing the cursor.
   Returns 1 when all of it fitted, -1 when it was cut. */
KT_API int kt_bputs(const char* string, kt_buffer_cursor* cursor);

/* Copies min(count, remaining) bytes, advancing the kt_buffer_cursor
   `cursor`; it has the kt_putsn_function shape so that a cursor can be an
   output sink. Returns the bytes copied, or -1 when count is non-zero and
   nothing fitted (a negative count copies nothing and returns 0). */
KT_API int kt_bputsn(void* cursor, const char* bytes, int count);

/* Writes the whole items that fit (remaining / size, at most count),
   advancing the cursor. Returns the number of items written (0 for size
   0). */
KT_API size_t kt_bwrite(const void* bytes, size_t size, size_t count, kt_buffer_cursor* cursor);

/* Number of leading bytes that occur in `set`; does not advance. A NUL
   byte in the cursor counts as a member (as strchr finds the set's own
   terminator). */
KT_API uint64_t kt_bufspn(const kt_buffer_cursor* cursor, const char* set);

/* Number of leading bytes that do not occur in `set`; a NUL byte stops
   the count. Does not advance. */
KT_API uint64_t kt_bufcspn(const kt_buffer_cursor* cursor, const char* set);

/* Advances past white space (isspace in the current locale). Returns 1
   when the cursor is now exhausted, 0 when a non-space byte follows. */
KT_API int kt_skip_white_space(kt_buffer_cursor* cursor);

/* Writes the NUL-terminated `string` through put(text, stream) as a double
   quoted C literal: \n \" \\ \r \t \a \b \f \v and \0 escaped by letter,
   other bytes below 32 as three octal digits, bytes 32..127 raw, bytes
   128..255 as octal. */
KT_API void kt_output_c_string(kt_c_string_put_function put, void* stream, const char* string);

/* As kt_output_c_string for `length` bytes, which may include NULs. */
KT_API void kt_output_c_string_with_length(kt_c_string_put_function put, void* stream,
                                           const char* bytes, size_t length);

/* As kt_output_c_string_with_length, calling before(put, stream, argument)
   and after(...) around each escape sequence; either hook may be null. */
KT_API void kt_output_c_string_with_hooks(kt_c_string_put_function put, void* stream,
                                          const char* bytes, size_t length,
                                          kt_c_string_escape_hook before,
                                          kt_c_string_escape_hook after, void* argument);

/* Sorts `count` elements of `size` bytes in place with compare(context, a,
   b); a quicksort, not stable. One temporary element of `size` bytes is
   taken from the default memory context (ktGetMemoryContext,
   kt/contexts.h) and freed at the end, whatever the size; exhaustion raises
   OUT_OF_MEMORY there before any element moves. count < 2 or size 0 does
   nothing and allocates nothing. A comparison that is not a consistent
   order leaves the elements unsorted but never touches memory outside the
   array and keeps exactly the same elements. An exception from compare
   passes through (the temporary is freed; the array holds the same
   elements in some order). */
KT_API void kt_qsort(void* base, int count, size_t size, void* context,
                     kt_compare_function compare);

KT_EXTERN_C_END

/* ========================================================================
 * 2. Generic hash table
 *
 * A separately chained table of fixed-size elements stored inline in the
 * nodes. An element holds a key part at its start and an optional data
 * part at the data offset; callers only ever see element addresses, which
 * stay valid until the element is removed or the table is emptied. The
 * load factor is kept between the lower and upper bound by re-sizing to a
 * prime number of buckets. Invalid bounds raise 0x30001 to 0x30003 (the
 * hash-tool messages) through the memory context's error context.
 * ===================================================================== */

struct _ghash_node;

/* hash(context, key); compare(context, key, element) returns 0 for equal;
   copy(context, destination, source); delete(user context, address). */
typedef uint32_t (*kt_ghash_hash_function)(void* context, const void* key);
typedef int (*kt_ghash_compare_function)(void* context, const void* key, const void* element);
typedef void (*kt_ghash_copy_function)(void* context, void* destination, const void* source);
typedef void (*kt_ghash_delete_function)(void* context, void* address);

typedef struct _ghash_table {
    kt_mem_context* memoryContext;
    struct _ghash_node** buckets;
    int32_t shrinkThreshold;   /* re-size when the count falls below it */
    int32_t growThreshold;     /* re-size when the count rises above it */
    float lowerBound;
    float upperBound;
    int32_t numBuckets;
    int32_t minBuckets;
    int32_t count;
    uint64_t keySize;
    uint64_t dataSize;         /* 0 when elements have no data part */
    uint32_t dataOffset;
    uint32_t nodeSize;         /* element size + 16 */
    uint64_t copySize;         /* data size when non-zero, else key size */
    kt_ghash_hash_function hashKey;
    kt_ghash_compare_function compareKeys;
    kt_ghash_copy_function copyKey;
    kt_ghash_delete_function deleteKey;
    kt_ghash_copy_function copyData;
    kt_ghash_delete_function deleteData;
    void* userContext;
    /* First argument of each callback: the user context when the caller
       gave the callback, else the address of keySize (dataSize for copy
       data) for the defaults. */
    void* hashContext;
    void* compareContext;
    void* copyKeyContext;
    void* copyDataContext;
    /* Sorted-cursor state. */
    void* snapshot;
    int32_t snapshotCount;     /* 0 after initialisation, -1 after clearing */
    uint64_t fingerprint;
} kt_ghash_table;

/* Owned by the caller; valid while the table is not changed. */
typedef struct _ghash_cursor {
    int32_t position;          /* bucket index, or snapshot index when sorted */
    struct _ghash_node* node;  /* current node */
    int32_t sorted;
    uint64_t fingerprint;
} kt_ghash_cursor;

/* Called by kt_ghash_apply; a zero result stops the walk. */
typedef int (*kt_ghash_apply_function)(kt_ghash_table* table, void* argument, void* element,
                                       void* data);

KT_EXTERN_C_BEGIN

/*
 * Initialises `table` on caller storage. Null callbacks take the defaults
 * (hash: kt_hash_n_bytes(0, keySize, key); compare: memcmp of keySize
 * bytes; copy: byte copy of the size; delete: nothing). Buckets (and the
 * minimum) = kt_hash_next_quasiprime(initialSize, 1). Registers the hash
 * tool messages. Bounds must satisfy 0 < lower < upper <= 3 and
 * upper <= 100 * lower, else raises 0x30001 (lower), 0x30002 (upper) or
 * 0x30003 (range); on a raise the record is cleared first. Exhaustion
 * raises OUT_OF_MEMORY.
 */
KT_API void kt_initialize_ghash_table(kt_ghash_table* table, kt_mem_context* context,
                                      kt_ghash_hash_function hashKey,
                                      kt_ghash_compare_function compareKeys,
                                      kt_ghash_copy_function copyKey,
                                      kt_ghash_delete_function deleteKey,
                                      kt_ghash_copy_function copyData,
                                      kt_ghash_delete_function deleteData, uint64_t keySize,
                                      uint32_t dataOffset, uint64_t dataSize,
                                      uint64_t elementSize, void* userContext,
                                      int32_t initialSize, float lowerBound, float upperBound);

/* As kt_initialize_ghash_table on a record allocated from `context`; if
   initialisation raises, the record is freed and the error passes on. */
KT_API kt_ghash_table* kt_new_ghash_table(kt_mem_context* context,
                                          kt_ghash_hash_function hashKey,
                                          kt_ghash_compare_function compareKeys,
                                          kt_ghash_copy_function copyKey,
                                          kt_ghash_delete_function deleteKey,
                                          kt_ghash_copy_function copyData,
                                          kt_ghash_delete_function deleteData, uint64_t keySize,
                                          uint32_t dataOffset, uint64_t dataSize,
                                          uint64_t elementSize, void* userContext,
                                          int32_t initialSize, float lowerBound,
                                          float upperBound);

/* Deletes every key and data part and frees every node; count 0. A
   positive `newSize` also resets the bucket count and minimum to
   kt_hash_next_quasiprime(newSize, 1). */
KT_API void kt_ghash_empty(kt_ghash_table* table, int32_t newSize);

/* Empties the table and frees its arrays; the record may be initialised
   again. */
KT_API void kt_clear_ghash_table(kt_ghash_table* table);

/* Clears a record made by kt_new_ghash_table and frees it; null ignored. */
KT_API void kt_delete_ghash_table(kt_ghash_table* table);

/* Insertion: each returns 1 when the key existed, 0 when it was added (a new
   element's key is copied in with the copy-key callback; a growth may
   re-size the table). `key` is the address of the key bytes. */

/* Finds or creates the element; *element receives its address. */
KT_API int kt_ghash_insert_element(kt_ghash_table* table, const void* key, void** element);

/* As kt_ghash_insert_element; *data (when given) receives the data
   address, or null when the table has no data part. */
KT_API int kt_ghash_insert_key(kt_ghash_table* table, const void* key, void** element,
                               void** data);

/* Copies `data` in only when the key is new. */
KT_API int kt_ghash_insert(kt_ghash_table* table, const void* key, const void* data);

/* Copies `data` in; an existing element's old data is deleted first. */
KT_API int kt_ghash_replace(kt_ghash_table* table, const void* key, const void* data);

/* Copies `data` in only when new, then copies copySize bytes of the stored
   data to `out`. */
KT_API int kt_ghash_query_insert(kt_ghash_table* table, const void* key, const void* data,
                                 void* out);

/* Existing key: old data (copySize bytes) to `out`, then `data` in. New
   key: `data` in, then to `out`. */
KT_API int kt_ghash_query_replace(kt_ghash_table* table, const void* key, const void* data,
                                  void* out);

/* Inserts the key and copies keySize bytes of the stored element to `out`:
   the table's canonical key. */
KT_API int kt_ghash_uniquify(kt_ghash_table* table, const void* key, void* out);

/* Lookups: an absent key is not an error. Wherever copySize bytes are
   copied out (here and in the query forms of insertion and removal), they
   come from the data part, or from the key when the table has no data part
   (data size 0), whatever the data offset says. */

/* The element's address, or null. */
KT_API void* kt_ghash_query_element(kt_ghash_table* table, const void* key);

/* 1 when found (copying copySize bytes of the data part -- the key when the
   table has no data -- to `out` when it is given), else 0. */
KT_API int kt_ghash_query(kt_ghash_table* table, const void* key, void* out);

/* The element's data address, or null. */
KT_API void* kt_ghash_query_data(kt_ghash_table* table, const void* key);

/* Linear scan in bucket and chain order for the first element whose data
   part equals `data` over dataSize bytes; its address, or null. */
KT_API void* kt_ghash_query_by_data(kt_ghash_table* table, const void* data);

/* Removes the element (delete data, delete key, node freed); the table may
   shrink. 1 when removed, 0 when absent. */
KT_API int kt_ghash_remove_element(kt_ghash_table* table, const void* key);

/* As kt_ghash_remove_element, but copySize bytes of the data go to `out`
   instead of the data being deleted. */
KT_API int kt_ghash_query_remove(kt_ghash_table* table, const void* key, void* out);

/* Traversal. An ordinary cursor visits buckets in index order and chains
   in order. */
KT_API void kt_ghash_cursor_init(kt_ghash_table* table, kt_ghash_cursor* cursor);

/* Moves to the next element, storing its element and data addresses (each
   out may be null) and returning 1; at the end stores nulls and returns 0,
   also on every later call. */
KT_API int kt_ghash_iterate(kt_ghash_table* table, kt_ghash_cursor* cursor, void** element,
                            void** data);

/* Makes `cursor` a sorted cursor: snapshots every key (keySize bytes) into
   an array that the table owns, sorts it with kt_qsort and compare(context,
   key a, key b), and records a fingerprint of the element addresses. The
   snapshot is replaced by the next call, so a table has at most one live
   sorted cursor. Returns `cursor`. */
KT_API kt_ghash_cursor* kt_ghash_sorted_cursor_init(kt_ghash_table* table,
                                                    kt_ghash_cursor* cursor, void* context,
                                                    kt_compare_function compare);

/* Calls function(table, argument, element, data) for every element in
   bucket and chain order; returns 0 at the first zero result, else 1. */
KT_API int kt_ghash_apply(kt_ghash_table* table, kt_ghash_apply_function function,
                          void* argument);

/* bytes = sizeof(kt_ghash_table) + 8 per bucket + nodeSize per element;
   `bytes` and `bytesToo` both receive it (two outputs, one value, as
   callers have always read them). collisions = nodes not first in their
   chain. Null outs are skipped. */
KT_API void kt_ghash_stats(kt_ghash_table* table, size_t* bytes, size_t* bytesToo,
                           int* collisions);

/* Counts the buckets whose number of nodes after the first is n + 1
   (`exact` non-zero) or at least n + 1 (`exact` zero). */
KT_API void kt_ghash_collision_stats(kt_ghash_table* table, int exact, int n, int* count);

/* Each out may be null. */
KT_API void kt_ghash_get_bounds(kt_ghash_table* table, int32_t* minBuckets, float* lowerBound,
                                float* upperBound);

/* Validates (raising as kt_initialize_ghash_table) and stores the bounds
   and the minimum bucket count, recomputes the thresholds, and re-sizes
   when the count is above the grow threshold, below the new minimum number
   of buckets, or below the shrink threshold. */
KT_API void kt_ghash_set_bounds(kt_ghash_table* table, int32_t minimumSize, float lowerBound,
                                float upperBound);

KT_EXTERN_C_END

/* ========================================================================
 * 3. Name hash and symbol table
 *
 * A name hash interns NUL-terminated names: adding a name returns one
 * canonical copy, so names can be compared by pointer. Copies live in a
 * pool of large blocks from the memory context and stay valid until the
 * name hash is cleared. A null name hash falls through to the process-wide
 * symbol table, whose pointers live as long as the process.
 * ===================================================================== */

/* Pool block header; the characters follow it. */
typedef struct _namehash_block {
    struct _namehash_block* previous;
    char* nextFree;
    char* end;
} kt_namehash_block;

typedef struct _namehash {
    kt_ghash_table table;  /* first: the record is also a kt_ghash_table */
    kt_mem_context* memoryContext;
    kt_namehash_block* currentBlock;
    int32_t copyFlag;      /* 0 after initialisation, 1 after any add */
} kt_namehash;

KT_EXTERN_C_BEGIN

/* Initialises the embedded table (string keys, load bounds 0.25 and 1.0)
   with `initialSize`, an empty pool and a clear copy flag. Raises on
   exhaustion. */
KT_API void kt_initialize_namehash(kt_namehash* namehash, kt_mem_context* context,
                                   int32_t initialSize);

/* Allocates and initialises a record in `context`; freed again if
   initialisation raises. */
KT_API kt_namehash* kt_new_namehash(kt_mem_context* context, int32_t initialSize);

/* Returns the interned copy of `name`, copying it into the pool when new.
   Null `namehash`: kt_symtab_add(name). */
KT_API const char* kt_namehash_add(kt_namehash* namehash, const char* name);

/* Interns the first `length` characters of `characters`. Null `namehash`:
   kt_symtab_add_with_length. The temporary copy is freed also when the add
   raises. */
KT_API const char* kt_namehash_add_with_length(kt_namehash* namehash, const char* characters,
                                               size_t length);

/* The interned pointer of `name`, or null; never inserts. Null `namehash`:
   kt_symtab_lookup(name). */
KT_API const char* kt_namehash_lookup(kt_namehash* namehash, const char* name);

/* Frees the pool (newest block first) and clears the table. */
KT_API void kt_clear_namehash(kt_namehash* namehash);

/* Clears a record made by kt_new_namehash and frees it; null is ignored. */
KT_API void kt_delete_namehash(kt_namehash* namehash);

/* Process-wide interning, safe from any thread. Null gives null. */
KT_API const char* kt_symtab_add(const char* name);

/* Interns exactly `length` characters (NULs included); null gives null. */
KT_API const char* kt_symtab_add_with_length(const char* characters, size_t length);

/* The interned pointer, or null when `name` (or the name) is null or was
   never interned. */
KT_API const char* kt_symtab_lookup(const char* name);

KT_EXTERN_C_END

/* ========================================================================
 * 4. Sets and growable tables
 * ===================================================================== */

/* An ordered sequence of element pointers with a remembered current
   position. Duplicates are allowed; null is not a valid element. Storage
   comes from the C heap. */
typedef struct _kt_set {
    void** begin;
    void** end;
    void** capacityEnd;
    void* current;         /* null when none */
    int64_t currentIndex;  /* -1 when none */
    int32_t walkIndex;     /* -1 when no walk is running */
} ktSet;

/* Called by the walks with (element, argument 1, argument 2). */
typedef void (*ktSetElementFunction)(void* element, void* argument1, void* argument2);

/* One column of a growable table: the caller's column pointer variable and
   the size of its elements. */
typedef struct _gtable_column {
    void** variable;
    uint64_t elementSize;
} kt_gtable_column;

typedef struct _gtable {
    kt_mem_context* memoryContext;
    uint32_t numColumns;
    uint32_t columnCapacity;
    uint32_t numRows;
    uint32_t rowCapacity;
    kt_gtable_column* columns;
} kt_gtable;

KT_EXTERN_C_BEGIN

/* A new empty set; throws std::bad_alloc when the heap is exhausted. */
KT_API ktSet* ktCreateSet(void);

/* Frees storage and record; null is ignored. */
KT_API void ktDestroySet(ktSet* set);
KT_API void ktDestroyNonEmptySet(ktSet* set);

KT_API size_t ktGetNumElementsInSet(const ktSet* set);

/* 1 when `element` is in the set (checking the current element first, then
   from the last toward the first); null gives 0. */
KT_API int ktIsElementInSet(void* element, ktSet* set);

/* Appends without a duplicate check. Returns 1. */
KT_API int ktAddElementToEndOfSet(void* element, ktSet* set);

/* Inserts at the front without a duplicate check; a running walk and the
   current index move up by one. Returns 1. */
KT_API int ktAddElementToSet(void* element, ktSet* set);

/* Removes the first occurrence (if any), then inserts at the front. */
KT_API int ktPutElementAtFrontOfSet(void* element, ktSet* set);

/* Removes the first occurrence; nothing when absent. Removing the current
   element resets the current position. */
KT_API void ktRemoveElementFromSet(void* element, ktSet* set);

/* Inserts right after `reference` (after the current position when it is
   the current element, else after its first occurrence). A null reference
   appends and resets the current element; a reference that is not in the
   set also appends. Returns 1. */
KT_API int ktInsertSetElementAfter(ktSet* set, void* reference, void* element);

/* Inserts at the position of `reference`; a null reference or one that is
   not in the set appends. Returns 1. */
KT_API int ktInsertSetElementBefore(ktSet* set, void* reference, void* element);

/* The element at `index`, or null when the index is not below the size. */
KT_API void* ktGetSetElementAt(const ktSet* set, size_t index);

/* Steps forward from `element` (null: from the start), making the result
   the current element; null at the end. An element that is not in the set
   returns the current element unchanged. */
KT_API void* ktGetNextSetElement(ktSet* set, void* element);

/* Steps backward from `element` (null: from the end), as above. */
KT_API void* ktGetPrevSetElement(ktSet* set, void* element);

/* Calls function(element, argument1, argument2) for each element, first
   to last; the callback may insert and remove elements, and the walk
   neither skips nor repeats the others. Returns the number of calls. */
KT_API int ktToEachSetElement(ktSet* set, ktSetElementFunction function, void* argument1,
                              void* argument2);

/* The same from last to first. */
KT_API int ktToEachSetElementBackward(ktSet* set, ktSetElementFunction function,
                                      void* argument1, void* argument2);

/* Growable tables: parallel columns owned by the caller's own pointer
   variables; adding rows grows every column at once (the variables may
   change). All storage comes from the memory context. */

/* No columns, no rows; allocates room for `columnCapacity` columns. */
KT_API void kt_initialize_gtable(kt_gtable* table, kt_mem_context* context,
                                 uint32_t columnCapacity, uint32_t rowCapacity);

/* Adds a column of `elementSize` bytes per row; `columnVariable` is the
   address of the caller's column pointer (e.g. double** for a column of
   doubles), which receives zeroed storage for the row capacity. */
KT_API void kt_new_gtable(kt_gtable* table, void* columnVariable, size_t elementSize);

/* Frees the column's storage, nulls the caller's variable and moves the
   last column entry into its place. An unknown variable is ignored. */
KT_API void kt_delete_gtable(kt_gtable* table, void* columnVariable);

/* When `rows` reaches the row capacity (equal too), the capacity becomes
   max(2 * capacity, rows) and every column is re-allocated with the new
   part zeroed. Then the row count is set. Returns `rows`. */
KT_API uint32_t kt_gtable_set_num_rows(kt_gtable* table, uint32_t rows);

/* Adds one row; returns the new number of rows. */
KT_API uint32_t kt_gtable_add_row(kt_gtable* table);

/* Frees every column (nulling the variables) and the column array. */
KT_API void kt_clear_gtable(kt_gtable* table);

KT_EXTERN_C_END

/* ========================================================================
 * 5. Interval set
 *
 * A set of 32-bit integers kept as disjoint half-open intervals in an AVL
 * tree: a pool of free numbers. Removed nodes go to a free list and are
 * reused before anything is allocated again.
 * ===================================================================== */

typedef struct _fsi_interval {
    int32_t lower;  /* included */
    int32_t upper;  /* excluded */
} kt_fsi_interval;

typedef struct _fsi_node {
    kt_fsi_interval interval;
    int32_t balance;  /* -1 left-heavy, 0 balanced, +1 right-heavy */
    struct _fsi_node* left;
    struct _fsi_node* right;
    struct _fsi_node* parent;
} kt_fsi_node;

typedef struct _fsi {
    kt_mem_context* memoryContext;
    kt_fsi_node* first;      /* cached lowest node, or null when not known */
    kt_fsi_node* root;
    kt_fsi_node* freeNodes;  /* recycled nodes, linked through left */
} kt_fsi;

/* kt_fsi_delete_first's answer for an empty set. */
#define KT_FSI_EMPTY INT32_MIN

KT_EXTERN_C_BEGIN

KT_API void kt_fsi_initialize(kt_fsi* set, kt_mem_context* context);
KT_API kt_fsi* kt_fsi_new(kt_mem_context* context);

/* Releases every node (tree and free list); the set is empty. */
KT_API void kt_fsi_clear(kt_fsi* set);

/* Clears a record made by kt_fsi_new and frees it. */
KT_API void kt_fsi_delete(kt_fsi* set);

/* Adds `number`, merging it with adjacent runs. Returns 1 when it was
   already a member (nothing changes), 0 when added. INT32_MAX is never a
   member: a run holding it would need the excluded upper bound 2^31, which
   the signed 32-bit bound cannot hold, so inserting it raises
   KT_ERR_VALUE_OVERFLOW_TYPE (0x10003, kt/errors.h) through the memory
   context's error context and leaves the set unchanged. */
KT_API int kt_fsi_insert(kt_fsi* set, int32_t number);

/* Links a node for [lower, upper) as it is: no merging, no overlap check;
   an interval equal to an existing node's is not linked twice. */
KT_API void kt_fsi_insert_interval(kt_fsi* set, int32_t lower, int32_t upper);

/* Removes the node whose interval equals `interval` exactly; otherwise
   nothing happens. */
KT_API void kt_delete_interval(kt_fsi* set, kt_fsi_interval interval);

/* Removes and returns the lowest member; KT_FSI_EMPTY on an empty set. */
KT_API int32_t kt_fsi_delete_first(kt_fsi* set);

/* Searches for limit - 1 and returns the lower bound of the interval where
   the search ends, minus 1: when limit - 1 is a member, the largest
   non-member below `limit`. An empty set answers limit - 1. */
KT_API int32_t kt_fsi_find_watermark(kt_fsi* set, int32_t limit);

KT_EXTERN_C_END

#endif /* KT_CONTAINERS_H */
