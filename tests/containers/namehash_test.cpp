// Name hashes: interning against std::unordered_set, pool block sizes and
// reuse of their room, stable pointers, and the fall-through to the
// process-wide symbol table.
#include <cstring>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "support/counting_context.h"
#include "kt/containers.h"

namespace {

using kttest::Contexts;

constexpr size_t kHeader = 3 * sizeof(void*);

// The live block that contains `p`, as (start, size).
std::pair<char*, size_t> BlockOf(const void* p) {
  for (auto& [block, size] : kttest::Ledger().live) {
    char* start = static_cast<char*>(block);
    if (p >= start && p < start + size)
      return {start, size};
  }
  return {nullptr, 0};
}

TEST(Namehash, InternsLikeAnUnorderedSet) {
  Contexts c;
  kt_namehash* names = kt_new_namehash(&c.memory, 16);
  std::unordered_map<std::string, const char*> model;
  std::mt19937 rng(91);
  for (int i = 0; i < 50000; ++i) {
    std::string name = "n" + std::to_string(rng() % 20000);
    if (rng() % 7 == 0)
      name += std::string(rng() % 300, 'z');
    auto it = model.find(name);
    size_t allocations = kttest::Ledger().allocations;
    const char* interned = kt_namehash_add(names, name.c_str());
    ASSERT_STREQ(interned, name.c_str());
    ASSERT_NE(interned, name.c_str());
    if (it != model.end()) {
      ASSERT_EQ(interned, it->second);
      ASSERT_EQ(kttest::Ledger().allocations, allocations);  // nothing allocated
    } else {
      model.emplace(name, interned);
    }
    if (i % 5 == 0) {
      std::string other = "n" + std::to_string(rng() % 40000);
      auto found = model.find(other);
      ASSERT_EQ(kt_namehash_lookup(names, other.c_str()),
                found == model.end() ? nullptr : found->second);
    }
  }
  ASSERT_EQ(names->table.count, static_cast<int32_t>(model.size()));
  // Every pointer handed out is still valid and unchanged.
  for (auto& [name, pointer] : model) {
    ASSERT_STREQ(pointer, name.c_str());
    ASSERT_EQ(kt_namehash_lookup(names, name.c_str()), pointer);
  }
  kt_delete_namehash(names);
  EXPECT_EQ(c.LiveBlocks(), 0u);
  EXPECT_EQ(c.BadFrees(), 0);
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
  EXPECT_EQ(a, first + kHeader);
  // Room left: 16000 - 2. A name needing exactly that much does not fit.
  std::string exact(16000 - 2 - 1, 'e');
  const char* e = kt_namehash_add(&names, exact.c_str());
  EXPECT_NE(BlockOf(e).first, first);
  EXPECT_EQ(BlockOf(e).second, 16024u);  // 15997 + 25 is still below 16024
  // The new block's room is now 2 bytes: the empty name (1 byte) fits there,
  // a one-character name (2 bytes, an exact fill) would not.
  const char* empty = kt_namehash_add(&names, "");
  EXPECT_EQ(empty, e + exact.size() + 1);

  // A long name gets its own length plus 16,025 bytes, and the next short
  // name goes into that block's remaining room.
  std::string longName(15999, 'L');
  const char* l = kt_namehash_add(&names, longName.c_str());
  auto [longBlock, longSize] = BlockOf(l);
  EXPECT_EQ(longSize, 15999u + 16025u);
  EXPECT_EQ(l, longBlock + kHeader);
  size_t allocations = kttest::Ledger().allocations;
  const char* shortName = kt_namehash_add(&names, "short");
  EXPECT_EQ(BlockOf(shortName).first, longBlock);
  EXPECT_EQ(shortName, l + longName.size() + 1);
  // Only the table's node was allocated for it, no block.
  EXPECT_EQ(kttest::Ledger().allocations, allocations + 1);
  // The newest block heads the list back to the oldest.
  EXPECT_EQ(reinterpret_cast<char*>(names.currentBlock), longBlock);
  EXPECT_EQ(reinterpret_cast<char*>(names.currentBlock->previous->previous), first);

  kt_clear_namehash(&names);
  EXPECT_EQ(names.currentBlock, nullptr);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

TEST(Namehash, LookupNeverInsertsAndLengthForm) {
  Contexts c;
  kt_namehash names;
  kt_initialize_namehash(&names, &c.memory, 0);
  EXPECT_EQ(kt_namehash_lookup(&names, "absent"), nullptr);
  EXPECT_EQ(names.table.count, 0);
  const char* abc = kt_namehash_add_with_length(&names, "abcdef", 3);
  EXPECT_STREQ(abc, "abc");
  EXPECT_EQ(kt_namehash_lookup(&names, "abc"), abc);
  EXPECT_EQ(kt_namehash_add(&names, "abc"), abc);
  EXPECT_STREQ(kt_namehash_add_with_length(&names, "xyz", 0), "");
  // Exhaustion while adding raises and frees the temporary copy (the
  // sanitizer build checks the heap side).
  kttest::Ledger().failAfter = 0;
  EXPECT_EQ(c.Catch([&] { kt_namehash_add_with_length(&names, "needs a node", 12); }), 0x20001);
  kttest::Ledger().failAfter = -1;
  EXPECT_EQ(kt_namehash_lookup(&names, "needs a node"), nullptr);
  kt_clear_namehash(&names);
  EXPECT_EQ(c.LiveBlocks(), 0u);
  EXPECT_EQ(c.BadFrees(), 0);
}

TEST(Namehash, StoresCallerPointerUntilFirstAdd) {
  // Inserting through the embedded table before any add keeps the caller's
  // pointer: the pool copy starts with the first kt_namehash_add.
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
  kt_clear_namehash(&names);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

TEST(Symtab, NullNameHashReachesProcessTable) {
  std::string name = "symtab-test-name-" + std::to_string(::getpid());
  EXPECT_EQ(kt_symtab_lookup(name.c_str()), nullptr);
  EXPECT_EQ(kt_namehash_lookup(nullptr, name.c_str()), nullptr);
  const char* interned = kt_namehash_add(nullptr, name.c_str());
  ASSERT_NE(interned, nullptr);
  EXPECT_NE(interned, name.c_str());
  EXPECT_STREQ(interned, name.c_str());
  EXPECT_EQ(kt_symtab_add(name.c_str()), interned);
  EXPECT_EQ(kt_symtab_lookup(name.c_str()), interned);
  EXPECT_EQ(kt_namehash_lookup(nullptr, name.c_str()), interned);
  EXPECT_EQ(kt_namehash_add_with_length(nullptr, name.c_str(), name.size()), interned);
  EXPECT_EQ(kt_symtab_add(nullptr), nullptr);
  EXPECT_EQ(kt_symtab_lookup(nullptr), nullptr);
  EXPECT_EQ(kt_symtab_add_with_length(nullptr, 4), nullptr);
  // Exactly `length` characters, NULs included.
  const char* withNul = kt_symtab_add_with_length("ab\0cd", 5);
  EXPECT_EQ(std::memcmp(withNul, "ab\0cd", 6), 0);
  EXPECT_NE(withNul, kt_symtab_add("ab"));
}

}  // namespace
