// Error context: frames, raising, printing, and the process-ending paths.
#include "kt/errors.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "kt/output.h"
#include "support/counting_context.h"

namespace {

// A module of our own with a two-hole message.
const int kCodes[] = {(40 << 16) | 1, (40 << 16) | 2, -1};
const char* const kMnemonics[] = {"FIRST_THING", "SECOND_THING"};
const char* const kTexts[] = {"first %s #%d", "second"};
const kt_message_table kTable = {2, 40, kCodes, kMnemonics, kTexts, "tests"};
constexpr int kFirst = (40 << 16) | 1;
constexpr int kSecond = (40 << 16) | 2;

class ErrorContext : public ::testing::Test {
 protected:
  void SetUp() override {
    int status;
    ASSERT_EQ(kt_add_primary_message_table(&status, &contexts.messages, &kTable, std::realloc), 0);
  }
  void TearDown() override { EXPECT_EQ(ec.top, nullptr) << "a frame was left on the chain"; }
  kttest::Contexts contexts;
  kt_error_context& ec = contexts.errors;
  std::string& printed = contexts.printed;
};

int Accept(kt_error_context*, void*, int, va_list) { return 1; }
int Decline(kt_error_context*, void*, int, va_list) { return 0; }

TEST_F(ErrorContext, AcceptedErrorCarriesItsArgumentsAndIdentifierToTheCatchFunction) {
  EXPECT_EQ(contexts.Catch([&] { kt_error(&ec, kFirst, "widget", 12); }), kFirst);
  EXPECT_EQ(contexts.raisedText, "first widget #12");
  std::string identifier;
  EXPECT_EQ(kt_try_catch_id(&ec, &identifier, [](kt_error_context* c, void*) { kt_error(c, kSecond); },
                            [](kt_error_context*, void* d, const char* id, int, va_list) {
                              *static_cast<std::string*>(d) = id;
                              return 1;
                            }),
            kSecond);
  EXPECT_EQ(identifier, "ZENTRA:SECOND_THING");
  EXPECT_EQ(printed, "");  // accepted errors are not printed
}

TEST_F(ErrorContext, ForeignExceptionsAreSwallowedAndNullIdentifierIsALogicError) {
  EXPECT_EQ(contexts.Catch([] { throw std::runtime_error("not ours"); }), 0);
  EXPECT_EQ(contexts.Catch([] { throw 5; }), 0);
  EXPECT_EQ(contexts.Catch([&] { kt_error_id(&ec, nullptr, kFirst, "x", 1); }), 0);
  EXPECT_EQ(contexts.raises, 0);
  EXPECT_THROW(kt_error_id(&ec, nullptr, kSecond), std::logic_error);
  EXPECT_EQ(printed, "");
}

// The inner catch function raises a second error while handling the
// first: the inner frame (whose catch is running) must not be offered it.
using Trace = std::vector<std::string>;

TEST_F(ErrorContext, ErrorRaisedInACatchFunctionGoesOnlyOutward) {
  Trace trace;
  int outer = kt_try_catch(&ec, &trace, [](kt_error_context* c, void* d) {
    int inner = kt_try_catch(c, d, [](kt_error_context* c2, void*) {
      kt_error(c2, kFirst, "a", 1);
    }, [](kt_error_context* c2, void* d2, int raised, va_list) {
      static_cast<Trace*>(d2)->push_back("inner " + std::to_string(raised & 0xFFFF));
      if (raised == kFirst) kt_error(c2, kSecond);
      return 1;
    });
    static_cast<Trace*>(d)->push_back("inner returned " + std::to_string(inner));
  }, [](kt_error_context*, void* d, int raised, va_list) {
    static_cast<Trace*>(d)->push_back("outer " + std::to_string(raised & 0xFFFF));
    return 1;
  });
  EXPECT_EQ(outer, kSecond);
  EXPECT_EQ(trace, (Trace{"inner 1", "outer 2"}));
}

// Model-based: a random chain of frames F1 (outermost) .. Fn, each
// accepting or declining, inside a frame T that always accepts. A raise in
// the body of Fn must land in the innermost accepting frame; the frames
// inside it are asked once and never return, the ones outside it are not
// asked and complete normally.
struct Chain {
  std::vector<bool> accepts;  // accepts[L-1] for frame L
  std::vector<int> asked;
  std::vector<int> results;   // what kt_try_catch of frame L returned, -1 if it never did
};
Chain* g_chain = nullptr;

int AskFrame(kt_error_context*, void* d, int, va_list) {
  size_t level = reinterpret_cast<size_t>(d);
  ++g_chain->asked[level - 1];
  return g_chain->accepts[level - 1] ? 1 : 0;
}

// Runs the body of frame `level - 1` (T for level 1): pushes frame `level`,
// or raises when all frames are pushed.
void Nest(kt_error_context* c, void* d) {
  size_t level = reinterpret_cast<size_t>(d);
  if (level > g_chain->accepts.size()) kt_error(c, kFirst, "deep", static_cast<int>(level));
  g_chain->results[level - 1] = kt_try_catch(c, reinterpret_cast<void*>(level),
                                             [](kt_error_context* c2, void* d2) {
                                               Nest(c2, reinterpret_cast<void*>(
                                                            reinterpret_cast<size_t>(d2) + 1));
                                             },
                                             AskFrame);
}

TEST_F(ErrorContext, RandomFrameChainsUnwindToTheInnermostAcceptingFrame) {
  std::mt19937 rng(99);
  for (int round = 0; round < 300; ++round) {
    Chain chain;
    size_t depth = 1 + rng() % 12;
    for (size_t i = 0; i < depth; ++i) chain.accepts.push_back(rng() % 3 == 0);
    chain.asked.assign(depth, 0);
    chain.results.assign(depth, -1);
    g_chain = &chain;
    int top = kt_try_catch(&ec, reinterpret_cast<void*>(1), Nest, Accept);
    g_chain = nullptr;
    size_t catcher = 0;  // 0: none of F1..Fn accepts, T does
    for (size_t level = 1; level <= depth; ++level)
      if (chain.accepts[level - 1]) catcher = level;
    EXPECT_EQ(top, catcher == 0 ? kFirst : 0) << round;
    for (size_t level = 1; level <= depth; ++level) {
      int expectedAsked = level >= catcher ? 1 : 0;
      int expectedResult = level < catcher ? 0 : level == catcher ? kFirst : -1;
      EXPECT_EQ(chain.asked[level - 1], expectedAsked) << round << " frame " << level;
      EXPECT_EQ(chain.results[level - 1], expectedResult) << round << " frame " << level;
    }
    EXPECT_EQ(ec.top, nullptr);
  }
}

// A handler that throws turns an uncaught raise into a C++ exception: the
// way the basic contexts' throw hook leaves the library.
struct HookError {
  std::string identifier;
  int code;
};
void ThrowingHandler(void* data, const char* identifier, int code) {
  ++*static_cast<int*>(data);
  throw HookError{identifier, code};
}

TEST_F(ErrorContext, PrintAndAnUncaughtRaiseWhichIsPrintedThenHandedToTheHandler) {
  kt_error_print(&ec, kFirst, "bolt", 3);
  EXPECT_EQ(printed, "first bolt #3\n");
  int calls = 0;
  kt_register_error_handler(&ec, ThrowingHandler, &calls);
  try {
    kt_try_catch(&ec, nullptr, [](kt_error_context*, void*) {}, Accept);
    kt_error(&ec, kFirst, "gear", 9);
  } catch (const HookError& e) {
    EXPECT_EQ(e.identifier, "ZENTRA:FIRST_THING");
    EXPECT_EQ(e.code, kFirst);
  }
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(printed, "first bolt #3\nfirst gear #9\n");
}

// ---- process-ending paths ------------------------------------------------------

// The report reaches the console through the system logger's terminal
// handler and the output hook (under a level heading such as "Severe:");
// the death tests send the hook to stderr, where the test framework reads.
void ConsoleToStderr() {
  ktSetVprintfCallbacks([](const char* text, void*) { return std::fputs(text, stderr); }, nullptr,
                        nullptr);
}

std::string ExitRegex(int code) {
  return "The program '\\[[0-9]+\\] : Native' has exited with code " + std::to_string(code) +
         " \\(0x" + std::to_string(code) + "\\)\\.";
}

// panics' own-line text and fatal are checked in the exit-report tests.
TEST(ProcessEndingDeathTest, PanicAndPanicsfExitWithTheStatusAndReport) {
  EXPECT_EXIT({ ConsoleToStderr(); Quivera::System::panic(5); }, ::testing::ExitedWithCode(5),
              ExitRegex(5));
  EXPECT_EXIT({ ConsoleToStderr(); Quivera::System::panicsf(12, "lost %d of %s. ", 7, "9"); },
              ::testing::ExitedWithCode(12),
              "lost 7 of 9\\. The program '\\[[0-9]+\\] : Native' has exited with code 12 "
              "\\(0xC\\)\\.");
}

int ErrorsToStderr(void*, const char* text, int length) {
  return std::fprintf(stderr, "%.*s", length, text);
}

void RaiseUncaught(bool withHandler) {
  ConsoleToStderr();
  static kt_message_context mc;
  static kt_error_context ec;
  int status;
  kt_initialize_message_context(&status, &mc, ktMalloc, ktRealloc);
  kt_initialize_error_context(&status, &ec, &mc, ErrorsToStderr, nullptr);
  kt_add_primary_message_table(&status, &mc, &kTable, ktRealloc);
  if (withHandler) {
    kt_register_error_handler(&ec, [](void*, const char* id, int code) {
      std::fprintf(stderr, "handler saw %s %x\n", id, code);
    }, nullptr);
  }
  kt_try_catch(&ec, nullptr, [](kt_error_context* c, void*) {
    kt_error(c, kFirst, "cog", 4);  // declined below, so it ends the process
  }, Decline);
}

TEST(ProcessEndingDeathTest, UncaughtRaiseIsFatalWithOrWithoutAReturningHandler) {
  EXPECT_EXIT(RaiseUncaught(false), ::testing::KilledBySignal(SIGABRT),
              "first cog #4\n.*" + ExitRegex(2));
  EXPECT_EXIT(RaiseUncaught(true), ::testing::KilledBySignal(SIGABRT),
              std::string("first cog #4\nhandler saw ZENTRA:FIRST_THING 280001\n.*") +
                  ExitRegex(2));
}

}  // namespace
