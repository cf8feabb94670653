// Name hashes: pool block sizes measured by the allocator and the edges of
// their room, the length form, the caller's pointer before the first add,
// and the fall-through to the process-wide symbol table. Random sequences
// against std::unordered_map live in fuzz/namehash_fuzz.cpp.
#include <cstring>
#include <string>

#include <unistd.h>

#include <gtest/gtest.h>

#include "support/counting_context.h"
#include "kt/containers.h"

namespace {

using kttest::Contexts;

// The live block that contains `p`, as (start, size).
std::pair<char*, size_t> BlockOf(const void* p) {
  for (auto& [block, size] : kttest::Ledger().live) {
    char* start = static_cast<char*>(block);
    if (p >= start && p < start + size)
      return {start, size};
  }
  return {nullptr, 0};
}

TEST(Namehash, PoolBlockSizesAndRoom) {
  Contexts c;
  kt_namehash names;
  kt_initialize_namehash(&names, &c.memory, 8);
  EXPECT_EQ(names.table.numBuckets, 11);
  EXPECT_EQ(names.table.lowerBound, 0.25f);
  EXPECT_EQ(names.table.upperBound, 1.0f);
  EXPECT_EQ(names.copyFlag, 0);

  const char* a = kt_namehash_add(&names, "a");
  EXPECT_EQ(names.copyFlag, 1);
  auto [first, firstSize] = BlockOf(a);
  EXPECT_EQ(firstSize, 16024u);
  // Room left: 16000 - 2. A name needing exactly that much does not fit.
  std::string exact(16000 - 2 - 1, 'e');
  const char* e = kt_namehash_add(&names, exact.c_str());
  EXPECT_NE(BlockOf(e).first, first);
  EXPECT_EQ(BlockOf(e).second, 16024u);  // 15997 + 25 is still below 16024
  // The new block's room is now 2 bytes: the empty name (1 byte) fits there,
  // a one-character name (2 bytes, an exact fill) would not.
  const char* empty = kt_namehash_add(&names, "");
  EXPECT_EQ(empty, e + exact.size() + 1);
  EXPECT_EQ(reinterpret_cast<char*>(names.currentBlock->previous), first);
  kt_clear_namehash(&names);
  EXPECT_EQ(names.currentBlock, nullptr);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

// Inserting through the embedded table before any add keeps the caller's
// pointer: the pool copy starts with the first add. Exhaustion in the
// length form frees the temporary copy (the sanitizer build checks the heap
// side of it).
TEST(Namehash, CallerPointerUntilFirstAddAndExhaustionInLengthForm) {
  Contexts c;
  kt_namehash names;
  kt_initialize_namehash(&names, &c.memory, 4);
  static const char kStatic[] = "static-name";
  const char* key = kStatic;
  void* element = nullptr;
  kt_ghash_insert_key(&names.table, &key, &element, nullptr);
  EXPECT_EQ(*static_cast<const char**>(element), kStatic);
  EXPECT_EQ(kt_namehash_add(&names, "static-name"), kStatic);
  EXPECT_EQ(names.currentBlock, nullptr);
  EXPECT_STREQ(kt_namehash_add_with_length(&names, "abcdef", 3), "abc");
  kttest::Ledger().failAfter = 0;
  EXPECT_EQ(c.Catch([&] { kt_namehash_add_with_length(&names, "needs a node", 12); }), 0x20001);
  kttest::Ledger().failAfter = -1;
  EXPECT_EQ(kt_namehash_lookup(&names, "needs a node"), nullptr);
  kt_clear_namehash(&names);
  EXPECT_EQ(c.LiveBlocks(), 0u);
  EXPECT_EQ(c.BadFrees(), 0);
}

TEST(Symtab, NullNameHashReachesProcessTable) {
  std::string name = "symtab-test-name-" + std::to_string(::getpid());
  EXPECT_EQ(kt_symtab_lookup(name.c_str()), nullptr);
  EXPECT_EQ(kt_namehash_lookup(nullptr, name.c_str()), nullptr);
  const char* interned = kt_namehash_add(nullptr, name.c_str());
  EXPECT_STREQ(interned, name.c_str());
  EXPECT_EQ(kt_symtab_lookup(name.c_str()), interned);
  EXPECT_EQ(kt_symtab_add(nullptr), nullptr);
  EXPECT_EQ(kt_symtab_lookup(nullptr), nullptr);
  EXPECT_EQ(kt_symtab_add_with_length(nullptr, 4), nullptr);
  // Exactly `length` characters, NULs included.
  const char* withNul = kt_symtab_add_with_length("ab\0cd", 5);
  EXPECT_EQ(std::memcmp(withNul, "ab\0cd", 6), 0);
  EXPECT_NE(withNul, kt_symtab_add("ab"));
}

}  // namespace
