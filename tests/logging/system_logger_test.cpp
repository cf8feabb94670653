// The system logger under concurrent first calls: one logger is built and
// every thread gets it. Kept in its own executable so that these really are
// the first calls of the process.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "kt/logging.h"
#include "kt/output.h"

using namespace Quivera::System;

namespace {

std::atomic<int> printed{0};

int count_output(const char*, void*) {
  printed.fetch_add(1);
  return 0;
}

}  // namespace

TEST(SystemLogger, ConcurrentFirstCallsBuildOneLogger) {
  ktSetVprintfCallbacks(count_output, nullptr, nullptr);
  const int threads = 8;
  std::vector<Logger*> seen(threads, nullptr);
  std::atomic<int> ready{0};
  std::vector<std::thread> pool;
  for (int i = 0; i < threads; ++i) {
    pool.emplace_back([&, i] {
      ready.fetch_add(1);
      while (ready.load() < threads) {
      }
      seen[i] = &Logger::getLogger(i % 2 ? "odd" : nullptr);
    });
  }
  for (auto& thread : pool) thread.join();
  for (int i = 1; i < threads; ++i) EXPECT_EQ(seen[i], seen[0]);

  // The one logger has exactly one terminal handler: one report, one print.
  reports("once\n", Level(Level::Severe));
  EXPECT_EQ(printed.load(), 1);
  ktSetVprintfCallbacks(nullptr, nullptr, nullptr);
}

TEST(SystemLogger, ConcurrentReportsFromThreads) {
  ktSetVprintfCallbacks(count_output, nullptr, nullptr);
  printed.store(0);
  std::vector<std::thread> pool;
  for (int i = 0; i < 4; ++i)
    pool.emplace_back([i] {
      for (int n = 0; n < 50; ++n) reportsf("thread %d line %d\n", i, n);
    });
  for (auto& thread : pool) thread.join();
  EXPECT_EQ(printed.load(), 200);
  ktSetVprintfCallbacks(nullptr, nullptr, nullptr);
}
