// The seeded CRC-32 hash family, the ready-made key callbacks and the
// prime search that sizes hash tables.
#include "kt/hashing.h"

#include <strings.h>

#include <cstring>

#include "internal/crc32.h"
#include "kt/memory.h"
#include "kt/messages.h"

using kt::internal::Crc32Register;
using kt::internal::kCrc32Tables;

namespace {

const uint32_t* StepTable() { return kCrc32Tables.slice[0]; }

inline uint32_t Step(uint32_t h, unsigned char b) {
  return (h >> 8) ^ StepTable()[(h ^ b) & 0xFF];
}

// ---- case folding ---------------------------------------------------------
//
// The folding table was historically laid out directly after the 1,024-byte
// CRC table and indexed by the byte taken as a signed char. ASCII bytes fold
// as expected; a byte b >= 0x80 reads b - 256 places before the folding
// table, i.e. byte (b + 768) of the CRC table's little-endian image. Stored
// hashes depend on this, so the same bytes are reproduced here.
struct FoldTable {
  unsigned char map[256];
};

FoldTable BuildFoldTable() {
  FoldTable t{};
  const uint32_t* crc = kCrc32Tables.slice[0];
  for (int b = 0; b < 256; ++b) {
    if (b < 0x80) {
      t.map[b] = static_cast<unsigned char>((b >= 'A' && b <= 'Z') ? b + ('a' - 'A') : b);
    } else {
      int offset = b + 768;  // byte offset into the little-endian CRC table
      t.map[b] = static_cast<unsigned char>(crc[offset >> 2] >> (8 * (offset & 3)));
    }
  }
  return t;
}

const FoldTable& Fold() {
  static const FoldTable table = BuildFoldTable();
  return table;
}

// Feeds the folded bytes of a string (without its NUL) through the step,
// folding into a small buffer so that the multi-byte CRC method applies.
uint32_t HashFolded(uint32_t h, const unsigned char* s, size_t n) {
  const FoldTable& fold = Fold();
  unsigned char chunk[256];
  while (n > 0) {
    size_t take = n < sizeof chunk ? n : sizeof chunk;
    for (size_t i = 0; i < take; ++i)
      chunk[i] = fold.map[s[i]];
    h = Crc32Register(h, chunk, take);
    s += take;
    n -= take;
  }
  return h;
}

uint32_t HashWord64(uint32_t h, uint64_t v) {
  do {
    h = Step(h, static_cast<unsigned char>(v & 0xFF));
    v >>= 8;
  } while (v != 0);
  return h;
}

// Internal forms of the exported string hashes, so that the callbacks below
// call them directly rather than through the exported (interposable) names.
uint32_t HashString(uint32_t seed, const char* string) {
  size_t n = std::strlen(string);
  uint32_t h = Crc32Register(seed, reinterpret_cast<const unsigned char*>(string), n);
  return Step(h, 0);
}

uint32_t HashFoldedString(uint32_t seed, const char* string) {
  size_t n = std::strlen(string);
  uint32_t h = HashFolded(seed, reinterpret_cast<const unsigned char*>(string), n);
  return Step(h, 0);
}

const char* KeyOf(const void* element) {
  const char* key;
  std::memcpy(&key, element, sizeof key);
  return key;
}

int SignOfDifference(const void* a, const void* b) {
  // Wrapped 64-bit difference: pointers more than 2^63 apart compare
  // reversed. Existing ordered output depends on it, so it is not "fixed".
  uint64_t diff = reinterpret_cast<uint64_t>(a) - reinterpret_cast<uint64_t>(b);
  int64_t signedDiff = static_cast<int64_t>(diff);
  return signedDiff < 0 ? -1 : (signedDiff > 0 ? 1 : 0);
}

}  // namespace

// ---- hash functions ---------------------------------------------------------

extern "C" uint32_t kt_hash_byte(uint32_t seed, unsigned char byte) { return Step(seed, byte); }

extern "C" uint32_t kt_hash_uint(uint32_t seed, uint32_t value) { return HashWord64(seed, value); }

extern "C" uint32_t kt_hash_int(uint32_t seed, int32_t value) {
  return HashWord64(seed, static_cast<uint32_t>(value));
}

extern "C" uint32_t kt_hash_float(uint32_t seed, float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return HashWord64(seed, bits);
}

extern "C" uint32_t kt_hash_double(uint32_t seed, double value) {
  uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  uint32_t h = HashWord64(seed, static_cast<uint32_t>(bits));
  return HashWord64(h, static_cast<uint32_t>(bits >> 32));
}

extern "C" uint32_t kt_hash_string(uint32_t seed, const char* string) {
  return HashString(seed, string);
}

extern "C" uint32_t kt_hash_reverse_string(uint32_t seed, const char* string) {
  const unsigned char* s = reinterpret_cast<const unsigned char*>(string);
  size_t n = std::strlen(string);
  uint32_t h = seed;
  while (n > 0)
    h = Step(h, s[--n]);
  return Step(h, 0);
}

extern "C" uint32_t kt_hash_lower_string(uint32_t seed, const char* string) {
  return HashFoldedString(seed, string);
}

extern "C" uint32_t kt_hash_stringi(uint32_t seed, const char* string) {
  return HashFoldedString(seed, string);
}

extern "C" uint32_t kt_hash_n_bytes(uint32_t seed, uint64_t count, const void* bytes) {
  if (count == 0)
    return seed;
  return Crc32Register(seed, static_cast<const unsigned char*>(bytes), count);
}

extern "C" uint32_t kt_hash_pointer(uint32_t seed, const void* pointer) {
  return HashWord64(seed, reinterpret_cast<uint64_t>(pointer));
}

// ---- plain key callbacks ----------------------------------------------------

extern "C" uint32_t kt_hash_string_key(void*, const char* string) {
  return HashString(0, string);
}

extern "C" int kt_compare_string_keys(void*, const char* a, const char* b) {
  return std::strcmp(a, b);
}

extern "C" char* kt_copy_string_key(void* context, const char* string) {
  return kt_mem_strdup(static_cast<kt_mem_context*>(context), string);
}

extern "C" void kt_delete_string_key(void* context, char* string) {
  kt_mem_free(static_cast<kt_mem_context*>(context), string);
}

extern "C" uint32_t kt_NULL_hash_key(void*, const void* key) {
  return HashWord64(0, reinterpret_cast<uint64_t>(key));
}

extern "C" int kt_NULL_compare_keys(void*, const void* a, const void* b) {
  return SignOfDifference(a, b);
}

extern "C" void* kt_NULL_copy_key(void*, void* key) { return key; }

extern "C" void kt_NULL_delete_key(void*, void*) {}

// ---- element key callbacks --------------------------------------------------

extern "C" uint32_t kt_ghash_string_key(void*, const void* element) {
  // Seed 0xFFFFFFFF, unlike the folded and plain variants: kept as is,
  // since bucket order of existing tables follows from it.
  return HashString(0xFFFFFFFFu, KeyOf(element));
}

extern "C" uint32_t kt_ghash_stringi_key(void*, const void* element) {
  return HashFoldedString(0, KeyOf(element));
}

extern "C" int kt_ghash_compare_string_keys(void*, const void* a, const void* b) {
  return std::strcmp(KeyOf(a), KeyOf(b));
}

extern "C" int kt_ghash_compare_stringi_keys(void*, const void* a, const void* b) {
  const char* ka = KeyOf(a);
  const char* kb = KeyOf(b);
  return strcasecmp(ka ? ka : "", kb ? kb : "");
}

extern "C" void kt_ghash_copy_string_key(void* context, void* destination, const void* source) {
  char* copy = kt_mem_strdup(static_cast<kt_mem_context*>(context), KeyOf(source));
  std::memcpy(destination, &copy, sizeof copy);
}

extern "C" void kt_ghash_delete_string_key(void* context, void* element) {
  kt_mem_free(static_cast<kt_mem_context*>(context), const_cast<char*>(KeyOf(element)));
}

extern "C" uint32_t kt_ghash_hash_ptr_key(void*, const void* element) {
  return HashWord64(0, reinterpret_cast<uint64_t>(KeyOf(element)));
}

extern "C" int kt_ghash_compare_ptr_keys(void*, const void* a, const void* b) {
  return SignOfDifference(KeyOf(a), KeyOf(b));
}

// ---- table sizing -----------------------------------------------------------

namespace {

constexpr int kSmallLimit = 1000;
constexpr int kPrimeCount = 168;

struct PrimeTables {
  int16_t primes[kPrimeCount];          // the primes below 1000, ascending
  signed char isPrime[kSmallLimit + 1];  // 1 where n is prime
};

constexpr PrimeTables BuildPrimeTables() {
  PrimeTables t{};
  for (int n = 2; n <= kSmallLimit; ++n)
    t.isPrime[n] = 1;
  for (int p = 2; p * p <= kSmallLimit; ++p)
    if (t.isPrime[p])
      for (int m = p * p; m <= kSmallLimit; m += p)
        t.isPrime[m] = 0;
  int k = 0;
  for (int n = 2; n <= kSmallLimit; ++n)
    if (t.isPrime[n])
      t.primes[k++] = static_cast<int16_t>(n);
  return t;
}

constexpr PrimeTables kPrimes = BuildPrimeTables();
static_assert(kPrimes.primes[kPrimeCount - 1] == 997, "168 primes below 1000");

}  // namespace

extern "C" int kt_hash_is_quasiprime(int32_t n) {
  if (n <= 1)
    return 0;
  if (n <= kSmallLimit)
    return kPrimes.isPrime[n];
  if (n % 2 == 0)
    return 0;
  // Trial division by 3, 5, 7, ... 997 while the divisor's square fits.
  for (int i = 1; i < kPrimeCount; ++i) {
    int32_t p = kPrimes.primes[i];
    if (p * p > n)
      break;
    if (n % p == 0)
      return 0;
  }
  return 1;
}

extern "C" int32_t kt_hash_next_quasiprime(void*, int32_t start, int32_t step) {
  int32_t candidate = start;
  // A zero step would test the same non-quasiprime forever; it ends at the
  // floor, as a downward walk would.
  if (step == 0 && !kt_hash_is_quasiprime(candidate))
    return 2;
  while (candidate > 1 && !kt_hash_is_quasiprime(candidate)) {
    // Wrapping add: running past the top of the range turns negative and
    // ends the search at the floor instead of overflowing.
    candidate = static_cast<int32_t>(static_cast<uint32_t>(candidate) + static_cast<uint32_t>(step));
  }
  return candidate > 2 ? candidate : 2;
}

// ---- hash tool messages -------------------------------------------------------

namespace {

const int kHashToolCodes[] = {0x30001, 0x30002, 0x30003, -1};
const char* const kHashToolMnemonics[] = {
    "HASH_INVALID_LOWER_LOAD_BOUND",
    "HASH_INVALID_UPPER_LOAD_BOUND",
    "HASH_INVALID_LOAD_BOUND_RANGE",
};
const char* const kHashToolTexts[] = {
    "Internal Error: Load factor lower bound must be greater than or equal to 0.",
    "Internal Error: Load factor upper bound must be greater than 0.",
    "Internal Error: Load factor upper bound must be greater than lower bound.",
};
const kt_message_table kHashToolMessages = {
    3, 3, kHashToolCodes, kHashToolMnemonics, kHashToolTexts, "",
};

}  // namespace

extern "C" void kt_initialize_hashtool_messages(void* context) {
  kt_mem_add_primary_message_table(static_cast<kt_mem_context*>(context), &kHashToolMessages);
}
