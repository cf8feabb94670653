// The basic-contexts record end to end: a host's own record with a
// throwing hook, fault injection into initialisation, the default record,
// the error-text buffer rules and the process-wide current record.
#include "kt/contexts.h"

#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/console_capture.h"

namespace {

// What a host's throw hook throws.
struct HostError {
  std::string identifier;
  int code;
  std::string text;
};

int ThrowHostError(void* data, const char* identifier, int code, const char* text) {
  ++*static_cast<int*>(data);
  throw HostError{identifier, code, text};
}

// A module of our own with one message taking a string hole.
constexpr int kModule = 40;
const int kCodes[] = {(kModule << 16) + 1, -1};
const char* const kMnemonics[] = {"HOST_FAILURE"};
const char* const kTexts[] = {"Host failure: %s"};
const kt_message_table kHostTable = {1, kModule, kCodes, kMnemonics, kTexts, "host"};

// Installs `record` for the guard's lifetime, then the previous record.
struct Installed {
  explicit Installed(ktBasicContexts* record) : previous(ktInstallBasicContexts(record)) {}
  ~Installed() { ktInstallBasicContexts(previous); }
  ktBasicContexts* previous;
};

}  // namespace

TEST(BasicContexts, HostRecordTurnsAContainerErrorIntoItsException) {
  static ktBasicContexts mine;
  int throws = 0;
  ASSERT_EQ(ktInitializeBasicContexts(&mine, ThrowHostError, &throws), 0);
  {
    Installed installed(&mine);
    EXPECT_EQ(ktGetErrorContext(), &mine.errorContext);
    // Taking the error text: the whole buffer less its last byte, a
    // trailing newline dropped, and nothing on a second take.
    char* first = ktReturnKTErrorString();
    EXPECT_STREQ(first, "");
    EXPECT_EQ(mine.errorRoom, 4096u);
    EXPECT_EQ(kt_bputsn(&mine.errorCursor, std::string(4096, 'y').data(), 4096), 4096);
    EXPECT_EQ(kt_bputsn(&mine.errorCursor, "z", 1), -1) << "nothing beyond the buffer";
    EXPECT_EQ(ktReturnKTErrorString(), first);
    EXPECT_EQ(std::strlen(first), 4095u) << "the last byte written is dropped";
    kt_bputsn(&mine.errorCursor, "abc\n", 4);
    EXPECT_STREQ(ktReturnKTErrorString(), "abc");
    EXPECT_STREQ(ktReturnKTErrorString(), "");
    kt_ghash_table* table = kt_new_ghash_table(ktGetMemoryContext(), nullptr, nullptr, nullptr,
                                               nullptr, nullptr, nullptr, 8, 8, 0, 8, nullptr,
                                               7, 1.0f, 2.0f);
    try {
      kt_ghash_set_bounds(table, 7, 0.0f, 1.0f);  // raises deep inside the container
      FAIL() << "the raise returned";
    } catch (const HostError& e) {
      EXPECT_EQ(e.identifier, "ZENTRA:HASH_INVALID_LOWER_LOAD_BOUND");
      EXPECT_EQ(e.code, 0x30001);
      EXPECT_EQ(e.text,
                "Internal Error: Load factor lower bound must be greater than or equal to 0.")
          << "finished text, without the trailing newline";
    }
    kt_delete_ghash_table(table);
  }
  EXPECT_NE(ktGetBasicContexts(), &mine);
  // A text longer than the record's buffer is cut, never overrun.
  kt_mem_add_primary_message_table(&mine.memoryContext, &kHostTable);
  std::string longText(6000, 'x');
  try {
    kt_error(&mine.errorContext, kCodes[0], longText.c_str());
  } catch (const HostError& e) {
    EXPECT_EQ(e.identifier, "ZENTRA:HOST_FAILURE");
    EXPECT_LE(e.text.size(), 4095u);
    EXPECT_EQ(e.text.compare(0, 14, "Host failure: "), 0);
    EXPECT_EQ(e.text.find_first_not_of('x', 14), std::string::npos);
  }
  EXPECT_EQ(throws, 2);
  EXPECT_EQ(mine.errorCursor, mine.errorText) << "the buffer is rewound after each error";
  ktClearBasicContexts(&mine);  // leak-free: the sanitizer build checks
}

// Fault injection: the n-th allocation fails. Every outcome is success, a
// message-context failure, or OUT_OF_MEMORY, each explained in errorText;
// clearing the record afterwards releases everything. The record is not
// zero-filled (regression: clearing after a failed message- or error-context
// step freed whatever garbage the other members held).
namespace {
int gFailAt = 0;
int gCalls = 0;
void* FailingAllocate(size_t size) { return ++gCalls == gFailAt ? nullptr : std::malloc(size); }
void* FailingReallocate(void* p, size_t size) {
  return ++gCalls == gFailAt ? nullptr : std::realloc(p, size);
}
}  // namespace

TEST(BasicContexts, FullInitialisationExplainsEveryAllocationFailure) {
  bool sawOutOfMemory = false, sawSuccess = false;
  for (gFailAt = 1; gFailAt <= 60; ++gFailAt) {
    gCalls = 0;
    auto* record = static_cast<ktBasicContexts*>(std::malloc(sizeof(ktBasicContexts)));
    std::memset(static_cast<void*>(record), 0xA5, sizeof *record);
    int result = ktInitializeBasicContexts_full(
        record, ThrowHostError, nullptr, FailingAllocate, FailingReallocate, std::free,
        kt_bputsn, &record->errorCursor, kt_bputsn, &record->errorCursor);
    std::string text = record->errorText;
    if (result == 0) {
      sawSuccess = true;
    } else if (result == 0x20001) {
      sawOutOfMemory = true;
      EXPECT_EQ(text, "Error: Out of memory.\n") << "fail at " << gFailAt;
    } else {
      EXPECT_NE(text.find("Insufficient memory"), std::string::npos)
          << "fail at " << gFailAt << ": result " << result << " text " << text;
    }
    ktClearBasicContexts(record);
    std::free(record);
  }
  EXPECT_TRUE(sawOutOfMemory);
  EXPECT_TRUE(sawSuccess);
}

TEST(BasicContexts, InstallReturnsThePreviousRecordAndWarningsReachTheConsole) {
  kttest::ConsoleCapture console;
  ktBasicContexts* original = ktGetBasicContexts();
  ASSERT_NE(original, nullptr);
  static ktBasicContexts mine;
  ASSERT_EQ(ktInitializeBasicContexts(&mine, ThrowHostError, nullptr), 0);
  EXPECT_EQ(ktInstallBasicContexts(&mine), original);
  EXPECT_EQ(ktGetBasicContexts(), &mine);
  EXPECT_EQ(ktGetMemoryContext(), &mine.memoryContext);
  EXPECT_EQ(ktGetNamehashContext(), &mine.namehashContext);
  EXPECT_EQ(ktGetFpcContext(), &mine.fpcContext);
  EXPECT_EQ(ktGetWarningContext(), &mine.warningContext);
  EXPECT_EQ(ktGetMessageContext(), &mine.messageContext);
  int data = 0;
  ktInstallBasicThrow(ThrowHostError, &data);
  EXPECT_EQ(mine.throwData, &data);
  EXPECT_EQ(ktInstallBasicContexts(original), &mine);
  ktClearDefaultContexts();  // no effect
  EXPECT_EQ(ktGetBasicContexts(), original);
  kt_warning_context& w = mine.warningContext;
  EXPECT_EQ(w.outputFunction(w.outputData, "Warning: x\ntail", 11), 11);
  EXPECT_EQ(console.text, "Warning: x\n");
  ktClearBasicContexts(&mine);
}

TEST(BasicContexts, NamehashAccessorHasOnlyItsCxxName) {
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "ktGetNamehashContext"), nullptr);
  EXPECT_NE(dlsym(RTLD_DEFAULT, "_Z20ktGetNamehashContextv"), nullptr);
  EXPECT_NE(dlsym(RTLD_DEFAULT, "ktGetFpcContext"), nullptr);
}

TEST(BasicContextsDeathTest, DefaultRecordPrintsAndExitsWithStatusOne) {
  EXPECT_EXIT(kt_error(ktGetErrorContext(), 0x20001), ::testing::ExitedWithCode(1),
              "Error: Out of memory.");
}

// Threads reach the default record through all its accessors at once.
TEST(BasicContexts, ConcurrentFirstUseBuildsTheDefaultOnce) {
  std::vector<std::thread> threads;
  std::vector<const void*> seen(8);
  std::atomic<bool> go{false};
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&, i] {
      while (!go) {
      }
      const void* got[] = {ktGetErrorContext(), ktGetMemoryContext(), ktGetBasicContexts(),
                           ktGetWarningContext()};
      seen[i] = got[i % 4];
    });
  go = true;
  for (auto& t : threads) t.join();
  ktBasicContexts* r = ktGetBasicContexts();
  const void* expected[] = {&r->errorContext, &r->memoryContext, r, &r->warningContext};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(seen[i], expected[i % 4]) << i;
}
