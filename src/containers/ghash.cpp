// kt_ghash: a separately chained hash table of fixed-size inline elements
// with load-factor bounds and prime bucket counts.
#include <cmath>
#include <cstring>

#include "internal/crc32.h"
#include "kt/containers.h"
#include "kt/errors.h"

// A node: chain link, the element's stored hash, then the element bytes
// (key part first, data part at the data offset). The element starts 16
// bytes in, so node size is element size + 16.
struct _ghash_node {
  struct _ghash_node* next;
  uint32_t hash;
  uint32_t unused;
};

namespace {

using Node = _ghash_node;

constexpr int kInvalidLowerBound = 0x30001;
constexpr int kInvalidUpperBound = 0x30002;
constexpr int kInvalidBoundRange = 0x30003;

inline char* ElementOf(Node* node) { return reinterpret_cast<char*>(node) + sizeof(Node); }

inline void* DataOf(const kt_ghash_table* t, Node* node) {
  return t->dataSize ? ElementOf(node) + t->dataOffset : nullptr;
}

// ---- default callbacks (their context is the address of a size) -----------

uint64_t SizeAt(void* context) { return *static_cast<const uint64_t*>(context); }

uint32_t DefaultHash(void* context, const void* key) {
  return kt_hash_n_bytes(0, SizeAt(context), key);
}

int DefaultCompare(void* context, const void* key, const void* element) {
  return std::memcmp(key, element, SizeAt(context));
}

void DefaultCopy(void* context, void* destination, const void* source) {
  uint64_t size = SizeAt(context);
  if (size == 8)
    std::memcpy(destination, source, 8);  // the common case: one 8-byte move
  else if (size != 0)
    std::memcpy(destination, source, size);
}

void DefaultDelete(void*, void*) {}

// ---- hot-path dispatch ---------------------------------------------------------
//
// The default callbacks are recognised by address and run inline: same
// results, without two indirect calls per probe.

inline uint64_t Load64(const void* p) {
  uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}

// kt_hash_n_bytes(0, 8, key): one eight-byte step of the sliced CRC tables.
inline uint32_t HashEightBytes(const void* key) {
  const auto& t = kt::internal::kCrc32Tables.slice;
  uint64_t w = Load64(key);
  return t[7][w & 0xFF] ^ t[6][(w >> 8) & 0xFF] ^ t[5][(w >> 16) & 0xFF] ^
         t[4][(w >> 24) & 0xFF] ^ t[3][(w >> 32) & 0xFF] ^ t[2][(w >> 40) & 0xFF] ^
         t[1][(w >> 48) & 0xFF] ^ t[0][w >> 56];
}

inline uint32_t HashKey(const kt_ghash_table* t, const void* key) {
  if (t->hashKey != DefaultHash)
    return t->hashKey(t->hashContext, key);
  if (t->keySize == 8)
    return HashEightBytes(key);
  return kt::internal::Crc32Register(0, static_cast<const unsigned char*>(key), t->keySize);
}

inline bool KeysEqual(const kt_ghash_table* t, const void* key, const void* element) {
  if (t->compareKeys != DefaultCompare)
    return t->compareKeys(t->compareContext, key, element) == 0;
  if (t->keySize == 8)
    return Load64(key) == Load64(element);
  return std::memcmp(key, element, t->keySize) == 0;
}

inline void Delete(kt_ghash_delete_function del, void* context, void* address) {
  if (del != DefaultDelete)
    del(context, address);
}

inline void Copy(kt_ghash_copy_function copy, void* context, void* destination,
                 const void* source) {
  if (copy == DefaultCopy && SizeAt(context) == 8)
    std::memcpy(destination, source, 8);
  else
    copy(context, destination, source);
}

// ---- bounds and sizing -------------------------------------------------------

// Returns 0 when the bounds are valid, else the message code to raise. The
// tests run in this order.
int CheckBounds(float lower, float upper) {
  // A lower bound of exactly 0 is rejected although the message text says
  // "greater than or equal to 0"; callers rely on the rejection. NaN bounds
  // fail the same tests.
  if (!(lower > 0.0f))
    return kInvalidLowerBound;
  if (!(upper > 0.0f) || upper > 3.0f)
    return kInvalidUpperBound;
  if (lower >= upper)
    return kInvalidBoundRange;
  if (std::sqrt(upper / lower) > 10.0)  // upper at most 100 times lower
    return kInvalidBoundRange;
  return 0;
}

void ValidateBounds(kt_ghash_table* t, float lower, float upper) {
  int code = CheckBounds(lower, upper);
  if (code != 0)
    kt_error(t->memoryContext->errorContext, code);
}

// Truncation toward zero, held inside the 32-bit range (tiny load bounds
// can ask for more buckets than a table can count).
int32_t Truncate(double value) {
  if (!(value < 2147483647.0))
    return value != value ? 0 : INT32_MAX;
  if (value < -2147483648.0)
    return INT32_MIN;
  return static_cast<int32_t>(value);
}

void SetThresholds(kt_ghash_table* t) {
  // The products are single precision, as they have always been computed.
  float shrink = static_cast<float>(t->numBuckets) * t->lowerBound;
  float grow = static_cast<float>(t->numBuckets) * t->upperBound;
  t->shrinkThreshold = t->numBuckets == t->minBuckets ? 0 : Truncate(shrink);
  t->growThreshold = Truncate(grow);
}

Node** AllocateBuckets(kt_ghash_table* t, int32_t n) {
  return static_cast<Node**>(kt_mem_calloc(t->memoryContext, sizeof(Node*) * static_cast<size_t>(n)));
}

void Resize(kt_ghash_table* t) {
  // Step 1: the target keeps the load near the geometric mean of the bounds.
  double mean = std::sqrt(static_cast<double>(t->lowerBound * t->upperBound));
  int32_t target = Truncate(t->count / mean + 0.5);
  if (target < t->minBuckets)
    target = t->minBuckets;
  // Step 2: search upward for a grow, downward for a shrink.
  int32_t step = t->count >= t->shrinkThreshold ? 1 : -1;
  int32_t n = kt_hash_next_quasiprime(nullptr, target, step);
  if (n == t->numBuckets)
    return;
  // Step 3: move every node to the head of its new bucket, old buckets in
  // index order; the stored hashes are reused.
  Node** fresh = AllocateBuckets(t, n);
  for (int32_t i = 0; i < t->numBuckets; ++i) {
    Node* node = t->buckets[i];
    while (node != nullptr) {
      Node* next = node->next;
      uint32_t b = node->hash % static_cast<uint32_t>(n);
      node->next = fresh[b];
      fresh[b] = node;
      node = next;
    }
  }
  kt_mem_free(t->memoryContext, t->buckets);
  t->buckets = fresh;
  t->numBuckets = n;
  SetThresholds(t);
}

// ---- lookup --------------------------------------------------------------------

struct Probe {
  uint32_t hash;
  Node** link;  // the link that points at the match, or the chain's tail link
  Node* node;   // the match, or null
};

// The common table shape -- default callbacks over 8-byte keys -- gets its
// own short loop: fewer instructions per probe lets the processor overlap
// more independent lookups.
inline bool IsPlainEightByteKey(const kt_ghash_table* t) {
  return t->hashKey == DefaultHash && t->compareKeys == DefaultCompare && t->keySize == 8;
}

__attribute__((always_inline)) inline Probe Find(kt_ghash_table* t, const void* key) {
  Probe p;
  if (IsPlainEightByteKey(t)) {
    uint64_t k = Load64(key);
    p.hash = HashEightBytes(key);
    p.link = &t->buckets[p.hash % static_cast<uint32_t>(t->numBuckets)];
    Node* node = *p.link;
    while (node != nullptr && !(node->hash == p.hash && Load64(ElementOf(node)) == k)) {
      p.link = &node->next;
      node = node->next;
    }
    p.node = node;
    return p;
  }
  p.hash = HashKey(t, key);
  p.link = &t->buckets[p.hash % static_cast<uint32_t>(t->numBuckets)];
  Node* node = *p.link;
  while (node != nullptr && !(node->hash == p.hash && KeysEqual(t, key, ElementOf(node)))) {
    p.link = &node->next;
    node = node->next;
  }
  p.node = node;
  return p;
}

// Lookup only, no link bookkeeping. The general form stays out of line so
// that the plain 8-byte path compiles to a short leaf sequence.
__attribute__((noinline)) Node* LookupGeneral(kt_ghash_table* t, const void* key) {
  uint32_t hash = HashKey(t, key);
  Node* node = t->buckets[hash % static_cast<uint32_t>(t->numBuckets)];
  while (node != nullptr && !(node->hash == hash && KeysEqual(t, key, ElementOf(node))))
    node = node->next;
  return node;
}

__attribute__((always_inline)) inline Node* Lookup(kt_ghash_table* t, const void* key) {
  if (t->numBuckets <= 0)
    return nullptr;
  if (!IsPlainEightByteKey(t))
    return LookupGeneral(t, key);
  uint64_t k = Load64(key);
  uint32_t hash = HashEightBytes(key);
  Node* node = t->buckets[hash % static_cast<uint32_t>(t->numBuckets)];
  while (node != nullptr && !(node->hash == hash && Load64(ElementOf(node)) == k))
    node = node->next;
  return node;
}

// Finds or creates the node for `key`; returns 1 when it existed.
int FindOrAdd(kt_ghash_table* t, const void* key, Node** out) {
  Probe p = Find(t, key);
  if (p.node != nullptr) {
    *out = p.node;
    return 1;
  }
  Node* node = static_cast<Node*>(kt_mem_alloc(t->memoryContext, t->nodeSize));
  node->next = nullptr;
  node->hash = p.hash;
  node->unused = 0;
  if (t->dataSize == 8)
    std::memset(ElementOf(node) + t->dataOffset, 0, 8);
  else if (t->dataSize)
    std::memset(ElementOf(node) + t->dataOffset, 0, t->dataSize);
  // The key is copied before the node is linked, so a copy callback that
  // raises leaves the table as it was.
  try {
    Copy(t->copyKey, t->copyKeyContext, ElementOf(node), key);
  } catch (...) {
    kt_mem_free(t->memoryContext, node);
    throw;
  }
  *p.link = node;
  t->count++;
  if (t->count > t->growThreshold)
    Resize(t);
  *out = node;
  return 0;
}

// Copies copySize bytes to `out`: the data part, or the key (at the
// element's start, wherever the data offset points) when there is no data.
void CopyOut(const kt_ghash_table* t, Node* node, void* out) {
  if (out == nullptr || t->copySize == 0)
    return;
  const char* from = ElementOf(node) + (t->dataSize ? t->dataOffset : 0);
  std::memcpy(out, from, t->copySize);
}

void CopyDataIn(kt_ghash_table* t, Node* node, const void* data) {
  Copy(t->copyData, t->copyDataContext, ElementOf(node) + t->dataOffset, data);
}

// Unlinks and frees the node for `key`; copies its data to `out` when
// `out` is given, else deletes the data. Returns 1 when removed.
int Remove(kt_ghash_table* t, const void* key, void* out, bool copyOut) {
  if (t->numBuckets <= 0)
    return 0;
  Probe p = Find(t, key);
  if (p.node == nullptr)
    return 0;
  Node* node = p.node;
  *p.link = node->next;
  if (copyOut)
    CopyOut(t, node, out);
  else
    Delete(t->deleteData, t->userContext, ElementOf(node) + t->dataOffset);
  Delete(t->deleteKey, t->userContext, ElementOf(node));
  kt_mem_free(t->memoryContext, node);
  t->count--;
  if (t->count < t->shrinkThreshold)
    Resize(t);
  return 1;
}

void FreeAllNodes(kt_ghash_table* t) {
  for (int32_t i = 0; i < t->numBuckets; ++i) {
    Node* node = t->buckets[i];
    while (node != nullptr) {
      Node* next = node->next;
      Delete(t->deleteKey, t->userContext, ElementOf(node));
      Delete(t->deleteData, t->userContext, ElementOf(node) + t->dataOffset);
      kt_mem_free(t->memoryContext, node);
      node = next;
    }
    t->buckets[i] = nullptr;
  }
  t->count = 0;
}

void FillCallbacks(kt_ghash_table* t, kt_ghash_hash_function hashKey,
                   kt_ghash_compare_function compareKeys, kt_ghash_copy_function copyKey,
                   kt_ghash_delete_function deleteKey, kt_ghash_copy_function copyData,
                   kt_ghash_delete_function deleteData, void* userContext) {
  t->userContext = userContext;
  t->hashKey = hashKey ? hashKey : DefaultHash;
  t->hashContext = hashKey ? userContext : &t->keySize;
  t->compareKeys = compareKeys ? compareKeys : DefaultCompare;
  t->compareContext = compareKeys ? userContext : &t->keySize;
  t->copyKey = copyKey ? copyKey : DefaultCopy;
  t->copyKeyContext = copyKey ? userContext : &t->keySize;
  t->copyData = copyData ? copyData : DefaultCopy;
  t->copyDataContext = copyData ? userContext : &t->dataSize;
  t->deleteKey = deleteKey ? deleteKey : DefaultDelete;
  t->deleteData = deleteData ? deleteData : DefaultDelete;
}

}  // namespace

// ---- construction and teardown ------------------------------------------------

extern "C" void kt_initialize_ghash_table(
    kt_ghash_table* table, kt_mem_context* context, kt_ghash_hash_function hashKey,
    kt_ghash_compare_function compareKeys, kt_ghash_copy_function copyKey,
    kt_ghash_delete_function deleteKey, kt_ghash_copy_function copyData,
    kt_ghash_delete_function deleteData, uint64_t keySize, uint32_t dataOffset,
    uint64_t dataSize, uint64_t elementSize, void* userContext, int32_t initialSize,
    float lowerBound, float upperBound) {
  kt_initialize_hashtool_messages(context);
  std::memset(table, 0, sizeof *table);
  table->memoryContext = context;
  try {
    ValidateBounds(table, lowerBound, upperBound);
    table->lowerBound = lowerBound;
    table->upperBound = upperBound;
    table->keySize = keySize;
    table->dataSize = dataSize;
    table->dataOffset = dataOffset;
    table->nodeSize = static_cast<uint32_t>(elementSize + sizeof(Node));
    table->copySize = dataSize ? dataSize : keySize;
    FillCallbacks(table, hashKey, compareKeys, copyKey, deleteKey, copyData, deleteData,
                  userContext);
    int32_t buckets = kt_hash_next_quasiprime(context, initialSize, 1);
    table->minBuckets = buckets;
    table->count = 0;
    table->shrinkThreshold = 0;
    table->growThreshold = Truncate(static_cast<float>(buckets) * upperBound);
    table->buckets = AllocateBuckets(table, buckets);
    table->numBuckets = buckets;
    table->snapshot = nullptr;
    table->snapshotCount = 0;
  } catch (...) {
    kt_clear_ghash_table(table);
    throw;
  }
}

extern "C" kt_ghash_table* kt_new_ghash_table(
    kt_mem_context* context, kt_ghash_hash_function hashKey,
    kt_ghash_compare_function compareKeys, kt_ghash_copy_function copyKey,
    kt_ghash_delete_function deleteKey, kt_ghash_copy_function copyData,
    kt_ghash_delete_function deleteData, uint64_t keySize, uint32_t dataOffset,
    uint64_t dataSize, uint64_t elementSize, void* userContext, int32_t initialSize,
    float lowerBound, float upperBound) {
  auto* table = static_cast<kt_ghash_table*>(kt_mem_alloc(context, sizeof(kt_ghash_table)));
  try {
    kt_initialize_ghash_table(table, context, hashKey, compareKeys, copyKey, deleteKey,
                              copyData, deleteData, keySize, dataOffset, dataSize, elementSize,
                              userContext, initialSize, lowerBound, upperBound);
  } catch (...) {
    kt_mem_free(context, table);
    throw;
  }
  return table;
}

extern "C" void kt_ghash_empty(kt_ghash_table* table, int32_t newSize) {
  FreeAllNodes(table);
  if (newSize > 0) {
    int32_t buckets = kt_hash_next_quasiprime(table->memoryContext, newSize, 1);
    table->minBuckets = buckets;
    table->shrinkThreshold = 0;
    table->growThreshold = Truncate(static_cast<float>(buckets) * table->upperBound);
    if (buckets != table->numBuckets) {
      size_t bytes = sizeof(Node*) * static_cast<size_t>(buckets);
      table->buckets = static_cast<Node**>(kt_mem_realloc(table->memoryContext, table->buckets, bytes));
      table->numBuckets = buckets;
    }
  }
  if (table->numBuckets > 0)
    std::memset(table->buckets, 0, sizeof(Node*) * static_cast<size_t>(table->numBuckets));
}

extern "C" void kt_clear_ghash_table(kt_ghash_table* table) {
  kt_mem_context* context = table->memoryContext;
  if (table->buckets != nullptr)
    kt_ghash_empty(table, 0);
  if (table->buckets != nullptr)
    kt_mem_free(context, table->buckets);
  if (table->snapshot != nullptr)
    kt_mem_free(context, table->snapshot);
  std::memset(table, 0, sizeof *table);
  table->lowerBound = -1.0f;
  table->upperBound = -1.0f;
  table->numBuckets = -1;
  table->minBuckets = -1;
  table->snapshotCount = -1;
  table->memoryContext = nullptr;
}

extern "C" void kt_delete_ghash_table(kt_ghash_table* table) {
  if (table == nullptr)
    return;
  kt_mem_context* context = table->memoryContext;
  kt_clear_ghash_table(table);
  kt_mem_free(context, table);
}

// ---- insertion ------------------------------------------------------------------

extern "C" int kt_ghash_insert_element(kt_ghash_table* table, const void* key, void** element) {
  Node* node;
  int existed = FindOrAdd(table, key, &node);
  if (element != nullptr)
    *element = ElementOf(node);
  return existed;
}

extern "C" int kt_ghash_insert_key(kt_ghash_table* table, const void* key, void** element,
                                   void** data) {
  Node* node;
  int existed = FindOrAdd(table, key, &node);
  if (element != nullptr)
    *element = ElementOf(node);
  if (data != nullptr)
    *data = DataOf(table, node);
  return existed;
}

extern "C" int kt_ghash_insert(kt_ghash_table* table, const void* key, const void* data) {
  Node* node;
  int existed = FindOrAdd(table, key, &node);
  if (!existed)
    CopyDataIn(table, node, data);
  return existed;
}

extern "C" int kt_ghash_replace(kt_ghash_table* table, const void* key, const void* data) {
  Node* node;
  int existed = FindOrAdd(table, key, &node);
  if (existed)
    table->deleteData(table->userContext, ElementOf(node) + table->dataOffset);
  CopyDataIn(table, node, data);
  return existed;
}

extern "C" int kt_ghash_query_insert(kt_ghash_table* table, const void* key, const void* data,
                                     void* out) {
  Node* node;
  int existed = FindOrAdd(table, key, &node);
  if (!existed)
    CopyDataIn(table, node, data);
  CopyOut(table, node, out);
  return existed;
}

extern "C" int kt_ghash_query_replace(kt_ghash_table* table, const void* key, const void* data,
                                      void* out) {
  Node* node;
  int existed = FindOrAdd(table, key, &node);
  if (existed) {
    CopyOut(table, node, out);
    CopyDataIn(table, node, data);
  } else {
    CopyDataIn(table, node, data);
    CopyOut(table, node, out);
  }
  return existed;
}

extern "C" int kt_ghash_uniquify(kt_ghash_table* table, const void* key, void* out) {
  Node* node;
  int existed = FindOrAdd(table, key, &node);
  if (out != nullptr && table->keySize)
    std::memcpy(out, ElementOf(node), table->keySize);
  return existed;
}

// ---- lookup and removal ---------------------------------------------------------

extern "C" void* kt_ghash_query_element(kt_ghash_table* table, const void* key) {
  Node* node = Lookup(table, key);
  return node ? ElementOf(node) : nullptr;
}

extern "C" int kt_ghash_query(kt_ghash_table* table, const void* key, void* out) {
  Node* node = Lookup(table, key);
  if (node == nullptr)
    return 0;
  CopyOut(table, node, out);
  return 1;
}

extern "C" void* kt_ghash_query_data(kt_ghash_table* table, const void* key) {
  Node* node = Lookup(table, key);
  return node ? ElementOf(node) + table->dataOffset : nullptr;
}

extern "C" void* kt_ghash_query_by_data(kt_ghash_table* table, const void* data) {
  if (table->numBuckets <= 0 || table->buckets == nullptr)
    return nullptr;
  for (int32_t i = 0; i < table->numBuckets; ++i)
    for (Node* node = table->buckets[i]; node != nullptr; node = node->next)
      if (std::memcmp(ElementOf(node) + table->dataOffset, data, table->dataSize) == 0)
        return ElementOf(node);
  return nullptr;
}

extern "C" int kt_ghash_remove_element(kt_ghash_table* table, const void* key) {
  return Remove(table, key, nullptr, false);
}

extern "C" int kt_ghash_query_remove(kt_ghash_table* table, const void* key, void* out) {
  return Remove(table, key, out, true);
}

// ---- traversal --------------------------------------------------------------------

extern "C" void kt_ghash_cursor_init(kt_ghash_table*, kt_ghash_cursor* cursor) {
  cursor->position = -1;
  cursor->node = nullptr;
  cursor->sorted = 0;
  cursor->fingerprint = 0;
}

namespace {

int IterateSorted(kt_ghash_table* t, kt_ghash_cursor* cursor, void** element, void** data) {
  if (cursor->position < 0 || cursor->position >= t->snapshotCount) {
    if (element)
      *element = nullptr;
    if (data)
      *data = nullptr;
    return 0;
  }
  const char* key = static_cast<const char*>(t->snapshot) +
                    static_cast<size_t>(cursor->position) * t->keySize;
  Node* node = Lookup(t, key);
  cursor->node = node;
  cursor->position++;
  if (element)
    *element = node ? ElementOf(node) : nullptr;
  if (data)
    *data = node ? ElementOf(node) + t->dataOffset : nullptr;
  return 1;
}

}  // namespace

extern "C" int kt_ghash_iterate(kt_ghash_table* table, kt_ghash_cursor* cursor, void** element,
                                void** data) {
  if (cursor->sorted)
    return IterateSorted(table, cursor, element, data);
  Node* node = cursor->node ? cursor->node->next : nullptr;
  int32_t position = cursor->position;
  while (node == nullptr) {
    if (position + 1 >= table->numBuckets) {
      position = table->numBuckets < 0 ? 0 : table->numBuckets;
      break;
    }
    node = table->buckets[++position];
  }
  cursor->position = position;
  cursor->node = node;
  if (element)
    *element = node ? ElementOf(node) : nullptr;
  if (data)
    *data = node ? ElementOf(node) + table->dataOffset : nullptr;
  return node != nullptr;
}

extern "C" kt_ghash_cursor* kt_ghash_sorted_cursor_init(kt_ghash_table* table,
                                                        kt_ghash_cursor* cursor, void* context,
                                                        kt_compare_function compare) {
  cursor->position = 0;
  cursor->node = nullptr;
  cursor->sorted = 1;
  size_t bytes = static_cast<size_t>(table->count) * table->keySize;
  table->snapshot = kt_mem_realloc(table->memoryContext, table->snapshot, bytes);
  // Snapshot every key and fold the element addresses into a fingerprint.
  kt_ghash_cursor walk;
  kt_ghash_cursor_init(table, &walk);
  void* element;
  int32_t n = 0;
  uint64_t fingerprint = 0;
  while (kt_ghash_iterate(table, &walk, &element, nullptr)) {
    std::memcpy(static_cast<char*>(table->snapshot) + static_cast<size_t>(n) * table->keySize,
                element, table->keySize);
    fingerprint = ((fingerprint << 1) | (fingerprint >> 63)) ^ reinterpret_cast<uint64_t>(element);
    ++n;
  }
  table->snapshotCount = n;
  kt_qsort(table->snapshot, n, table->keySize, context, compare);
  table->fingerprint = fingerprint;
  cursor->fingerprint = fingerprint;
  return cursor;
}

extern "C" int kt_ghash_apply(kt_ghash_table* table, kt_ghash_apply_function function,
                              void* argument) {
  for (int32_t i = 0; i < table->numBuckets; ++i) {
    for (Node* node = table->buckets[i]; node != nullptr; node = node->next) {
      if (function(table, argument, ElementOf(node), ElementOf(node) + table->dataOffset) == 0)
        return 0;
    }
  }
  return 1;
}

// ---- statistics and bounds ----------------------------------------------------------

extern "C" void kt_ghash_stats(kt_ghash_table* table, size_t* bytes, size_t* bytesToo,
                               int* collisions) {
  int32_t buckets = table->numBuckets > 0 ? table->numBuckets : 0;
  int32_t count = table->count > 0 ? table->count : 0;
  size_t total = sizeof(kt_ghash_table) + 8 * static_cast<size_t>(buckets) +
                 static_cast<size_t>(table->nodeSize) * static_cast<size_t>(count);
  int chained = 0;
  for (int32_t i = 0; i < buckets; ++i)
    for (Node* node = table->buckets[i]; node != nullptr; node = node->next)
      if (node != table->buckets[i])
        ++chained;
  // Both size outputs receive the same value; callers read either.
  if (bytes)
    *bytes = total;
  if (bytesToo)
    *bytesToo = total;
  if (collisions)
    *collisions = chained;
}

extern "C" void kt_ghash_collision_stats(kt_ghash_table* table, int exact, int n, int* count) {
  int hits = 0;
  for (int32_t i = 0; i < table->numBuckets; ++i) {
    int after = 0;
    if (table->buckets[i] != nullptr)
      for (Node* node = table->buckets[i]->next; node != nullptr; node = node->next)
        ++after;
    // Compared with n + 1, not n: the established meaning of n.
    if (exact ? after == n + 1 : after >= n + 1)
      ++hits;
  }
  if (count)
    *count = hits;
}

extern "C" void kt_ghash_get_bounds(kt_ghash_table* table, int32_t* minBuckets, float* lowerBound,
                                    float* upperBound) {
  if (minBuckets)
    *minBuckets = table->minBuckets;
  if (lowerBound)
    *lowerBound = table->lowerBound;
  if (upperBound)
    *upperBound = table->upperBound;
}

extern "C" void kt_ghash_set_bounds(kt_ghash_table* table, int32_t minimumSize, float lowerBound,
                                    float upperBound) {
  ValidateBounds(table, lowerBound, upperBound);
  table->lowerBound = lowerBound;
  table->upperBound = upperBound;
  table->minBuckets = kt_hash_next_quasiprime(table->memoryContext, minimumSize, 1);
  SetThresholds(table);
  // The count is compared with the minimum number of buckets on purpose:
  // a table smaller than its new minimum is re-sized up to it.
  if (table->count > table->growThreshold || table->count < table->minBuckets ||
      table->count < table->shrinkThreshold)
    Resize(table);
}
