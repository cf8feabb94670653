// The atom table stand-in: stable pointers, find never inserts, and many
// threads interning overlapping strings agree on one pointer per string.
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "internal/atom_table.h"

namespace {

using bedrock::strings::BasicAtom;
using bedrock::strings::findAtom;
using bedrock::strings::makeAtom;

TEST(AtomTable, MakeFindAndStability) {
  std::string text = "atom-table-first";
  EXPECT_EQ(findAtom<char>(text), BasicAtom<char>::m_default);
  BasicAtom<char> a = makeAtom<char>(text);
  ASSERT_NE(a.c_str(), nullptr);
  EXPECT_NE(a.c_str(), text.c_str());
  EXPECT_EQ(a.size(), text.size());
  EXPECT_EQ(findAtom<char>(text), a);
  EXPECT_EQ(findAtom<char>("atom-table-firs"), BasicAtom<char>::m_default);
  // Thousands of further atoms, some longer than a storage block, do not
  // move the first one.
  auto name = [](int i) { return std::string(i % 50 == 0 ? 70000 : 20, 'k') + std::to_string(i); };
  std::vector<const char*> pointers;
  for (int i = 0; i < 5000; ++i) pointers.push_back(makeAtom<char>(name(i)).c_str());
  EXPECT_EQ(makeAtom<char>(text).c_str(), a.c_str());
  EXPECT_EQ(std::string(a.c_str()), text);
  for (int i = 0; i < 5000; ++i)
    ASSERT_EQ(makeAtom<char>(name(i)).c_str(), pointers[static_cast<size_t>(i)]);
  // Embedded NULs are part of the string.
  BasicAtom<char> withNul = makeAtom<char>(std::string("x\0y", 3));
  EXPECT_NE(withNul, makeAtom<char>(std::string("x")));
  EXPECT_EQ(withNul.size(), 3u);
  EXPECT_EQ(makeAtom<char>(std::string()).size(), 0u);
}

TEST(AtomTable, ConcurrentInterningAgrees) {
  constexpr int kThreads = 4;
  constexpr int kNames = 3001;  // prime: every stride below is a permutation
  std::vector<std::vector<const char*>> results(kThreads, std::vector<const char*>(kNames));
  std::vector<std::thread> threads;
  size_t before = bedrock::strings::atomCount();
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &results] {
      for (int i = 0; i < kNames; ++i) {
        // Each thread walks the names in its own order.
        int n = (i * (2 * t + 1)) % kNames;
        std::string name = "concurrent-" + std::to_string(n);
        const char* p = makeAtom<char>(name).c_str();
        results[static_cast<size_t>(t)][static_cast<size_t>(n)] = p;
        (void)findAtom<char>(name);
      }
    });
  }
  for (auto& th : threads)
    th.join();
  EXPECT_EQ(bedrock::strings::atomCount() - before, static_cast<size_t>(kNames));
  for (int i = 0; i < kNames; ++i) {
    std::string name = "concurrent-" + std::to_string(i);
    EXPECT_EQ(findAtom<char>(name).c_str(), makeAtom<char>(name).c_str());
  }
  for (int t = 1; t < kThreads; ++t)
    for (int n = 0; n < kNames; ++n)
      ASSERT_EQ(results[static_cast<size_t>(t)][static_cast<size_t>(n)],
                results[0][static_cast<size_t>(n)]);
}

}  // namespace
