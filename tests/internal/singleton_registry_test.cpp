// The process-wide singleton registry: identifiers per type key, find,
// find-or-insert races, and teardown at process end.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <thread>
#include <typeinfo>
#include <vector>

#include "internal/singleton_registry.h"

using namespace kt::internal;

namespace {

template <int N>
struct Tag {};

struct Counted {
    static std::atomic<int> live;
    int payload;
    explicit Counted(int p) : payload(p) { live.fetch_add(1); }
    ~Counted() { live.fetch_sub(1); }
};
std::atomic<int> Counted::live{0};

void delete_counted(void* object) {
    delete static_cast<Counted*>(object);
}

template <int... N>
std::vector<const std::type_info*> tags(std::integer_sequence<int, N...>) {
    return {&typeid(Tag<N>)...};
}

}  // namespace

// Keeping the first object, and finding, are the random model's; here the
// degenerate arguments: unknown ids, null offers, id 0.
TEST(SingletonRegistry, IdentifiersAndDegenerateArguments) {
    SingletonId a = singleton_id(typeid(Tag<1000>));
    SingletonId b = singleton_id(typeid(Tag<1001>));
    EXPECT_NE(a, 0u);
    EXPECT_NE(a, b);
    EXPECT_EQ(singleton_id(typeid(Tag<1000>)), a);
    EXPECT_EQ(singleton_find(0), nullptr);
    EXPECT_EQ(singleton_find(b + 100000), nullptr);
    static int first = 1;
    EXPECT_FALSE(singleton_find_or_insert(a, nullptr, nullptr).inserted);
    EXPECT_EQ(singleton_find(a), nullptr) << "a null offer registers nothing";
    SingletonInsert zero = singleton_find_or_insert(0, &first, nullptr);
    EXPECT_FALSE(zero.inserted);
    EXPECT_EQ(zero.object, nullptr);
}

// Model-based: random allocations, lookups and inserts over a set of keys
// agree with a plain map.
TEST(SingletonRegistry, RandomOperationsAgreeWithModel) {
    std::vector<const std::type_info*> keys = tags(std::make_integer_sequence<int, 12>());
    std::map<const std::type_info*, SingletonId> ids;
    std::map<SingletonId, void*> objects;
    static int storage[64];
    std::mt19937 random(5);
    for (int step = 0; step < 3000; ++step) {
        const std::type_info* key = keys[random() % keys.size()];
        SingletonId id = singleton_id(*key);
        auto known = ids.find(key);
        if (known != ids.end()) {
            ASSERT_EQ(id, known->second);
        } else {
            for (auto& entry : ids)
                ASSERT_NE(entry.second, id);
            ids[key] = id;
        }
        void* expected = objects.count(id) ? objects[id] : nullptr;
        if (random() % 2) {
            ASSERT_EQ(singleton_find(id), expected);
            continue;
        }
        void* offer = &storage[random() % 64];
        SingletonInsert r = singleton_find_or_insert(id, offer, nullptr);
        ASSERT_EQ(r.inserted, expected == nullptr);
        ASSERT_EQ(r.object, expected ? expected : offer);
        objects[id] = r.object;
    }
}

TEST(SingletonRegistry, ConcurrentIdentifiersAgree) {
    std::vector<const std::type_info*> keys =
        tags(std::integer_sequence<int, 2000, 2001, 2002, 2003, 2004, 2005>());
    const int threads = 6;
    std::vector<std::vector<SingletonId>> seen(threads);
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
        pool.emplace_back([&, t] {
            for (size_t i = 0; i < keys.size(); ++i)
                seen[t].push_back(singleton_id(*keys[(i + t) % keys.size()]));
            std::rotate(seen[t].begin(), seen[t].end() - t % keys.size(), seen[t].end());
        });
    for (auto& thread : pool)
        thread.join();
    for (int t = 1; t < threads; ++t)
        EXPECT_EQ(seen[t], seen[0]);
}

// Many threads race to insert their own object; exactly one wins, all get
// the winner, and the losers' objects are theirs to destroy (no leak).
TEST(SingletonRegistry, ConcurrentFindOrInsertHasOneWinner) {
    const int base = Counted::live.load();
    const int threads = 8;
    SingletonId id = singleton_id(typeid(Tag<3000>));
    std::atomic<int> ready{0}, winners{0};
    std::vector<void*> seen(threads);
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
        pool.emplace_back([&, t] {
            ready.fetch_add(1);
            while (ready.load() < threads) {
            }
            void* found = singleton_find(id);
            if (!found) {
                auto* mine = new Counted(t);
                SingletonInsert r = singleton_find_or_insert(id, mine, delete_counted);
                if (r.inserted)
                    winners.fetch_add(1);
                else
                    delete mine;
                found = r.object;
            }
            seen[t] = found;
        });
    for (auto& thread : pool)
        thread.join();
    EXPECT_EQ(winners.load(), 1);
    for (int t = 0; t < threads; ++t)
        EXPECT_EQ(seen[t], seen[0]);
    EXPECT_EQ(Counted::live.load(), base + 1);
}

namespace {

struct Noisy {
    const char* label;
};

void delete_noisy(void* object) {
    Noisy* noisy = static_cast<Noisy*>(object);
    // A deleter may still use the registry while others are destroyed.
    void* other = singleton_find(singleton_id(typeid(Tag<4000>)));
    std::fprintf(stderr, "%s deleted%s\n", noisy->label, other ? " (first alive)" : "");
    delete noisy;
}

}  // namespace

// Process end runs the deleters, newest first; late calls after teardown
// neither crash nor register anything.
TEST(SingletonRegistry, DeletersRunAtExitNewestFirst) {
    EXPECT_EXIT(
        {
            singleton_find_or_insert(singleton_id(typeid(Tag<4000>)), new Noisy{"first"},
                                     delete_noisy);
            singleton_find_or_insert(singleton_id(typeid(Tag<4001>)), new Noisy{"second"},
                                     delete_noisy);
            std::atexit([] {
                // Registered after the registry was built, so runs before it
                // is torn down: everything still there.
                if (!singleton_find(singleton_id(typeid(Tag<4001>))))
                    std::fprintf(stderr, "missing\n");
            });
            std::exit(0);
        },
        ::testing::ExitedWithCode(0),
        "^second deleted \\(first alive\\)\nfirst deleted\n$");
}
