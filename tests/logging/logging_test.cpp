// Levels, loggers, filters, handlers and object output, through the
// exported interface of libkt.so.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "kt/logging.h"
#include "support/console_capture.h"

using namespace Quivera::System;

namespace {

Level lv(int value) { return Level(static_cast<Level::Enum>(value)); }

// A message object that writes a fixed text.
struct Text : Externalizable {
  explicit Text(std::string t) : text(std::move(t)) {}
  void writeExternal(ObjectOutput& out) const override { out.write_c_str(text.c_str()); }
  std::string text;
};

// Records what reaches it, behind its tag, and counts live instances, so
// that leaks and double destruction show up as a wrong count.
class CountingHandler : public StreamHandler {
 public:
  static int live;
  explicit CountingHandler(std::vector<std::string>* sink = nullptr, std::string tag = "")
      : sink_(sink), tag_(std::move(tag)) { ++live; }
  ~CountingHandler() override { --live; }
  int published = 0;

 protected:
  void _output(const std::string& text) override {
    ++published;
    if (sink_) sink_->push_back(tag_ + text);
  }

 private:
  std::vector<std::string>* sink_;
  std::string tag_;
};
int CountingHandler::live = 0;

class FixedFilter : public Filter {
 public:
  explicit FixedFilter(bool accept) : answer(accept) {}
  bool isLoggable(const Level& level, const Externalizable& object) const override {
    ++calls;
    last_level = level.value;
    last_object = &object;
    return answer;
  }
  bool answer;
  mutable int calls = 0;
  mutable int last_level = -1;
  mutable const Externalizable* last_object = nullptr;
};

using kttest::ConsoleCapture;

template <class Write>
std::string written(Write write) {
  std::ostringstream stream;
  ObjectOutputStream out(stream);
  write(out);
  return stream.str();
}

}  // namespace

// ---- Levels -----------------------------------------------------------------

TEST(Level, NamesOfEveryValue) {
  const std::pair<int, const char*> named[] = {
      {Level::All, "All"}, {Level::Info, "Info"}, {Level::Warning, "Warning"},
      {Level::Severe, "Severe"}, {Level::Off, "Off"}};
  for (const auto& [value, name] : named) EXPECT_STREQ(lv(value).getName(), name);
  for (int value : {-1, 1, 63, 65, 100, 126, 128, 191, 193, 254, 256, INT_MIN, INT_MAX})
    EXPECT_STREQ(lv(value).getName(), "Unknown log level") << value;
  EXPECT_EQ(lv(100).value, 100);
}

TEST(Level, ComparisonsFollowSignedValuesOnly) {
  std::mt19937 random(7);
  std::vector<int> values = {0, 64, 127, 192, 255, -5, INT_MIN, INT_MAX, 100};
  for (int i = 0; i < 200; ++i) values.push_back(static_cast<int>(random()));
  for (int a : values) {
    for (int b : {0, 64, 100, 127, 192, 255, -5, INT_MIN, INT_MAX}) {
      Level x = lv(a), y = lv(b);
      EXPECT_EQ(x == y, a == b);
      EXPECT_EQ(x < y, a < b);
      EXPECT_EQ(x > y, a > b);
      EXPECT_EQ(x <= y, a <= b);
      EXPECT_EQ(x >= y, a >= b);
    }
  }
  // The name takes no part: a level whose name was overwritten still
  // equals one with the canonical name.
  Level renamed(Level::Info);
  renamed.name = "other";
  EXPECT_TRUE(renamed == Level(Level::Info));
}

// ---- Loggers and handlers: thresholds, Off and filters --------------------

// Model: a message reaches a handler when the logger's threshold and the
// handler's level are both at most the message level, neither is Off, and
// both filters (where set) agree. A filter sees the level and the object;
// the logger's is not consulted below its threshold.
TEST(Logger, ThresholdsOffAndFiltersAgreeWithModel) {
  const int levels[] = {0, 1, 64, 100, 127, 192, 254, 255, 300, -3};
  std::mt19937 random(11);
  for (int round = 0; round < 2000; ++round) {
    int logger_level = levels[random() % 10];
    int handler_level = levels[random() % 10];
    int message_level = levels[random() % 10];
    int logger_filter = random() % 3;  // none, accept, reject
    int handler_filter = random() % 3;

    FixedFilter for_logger(logger_filter == 1), for_handler(handler_filter == 1);
    Logger logger;
    logger.setLevel(lv(logger_level));
    if (logger_filter) logger.setFilter(for_logger);
    EXPECT_EQ(logger.getFilter(), logger_filter ? &for_logger : nullptr);
    auto* handler = new CountingHandler;
    handler->setLevel(lv(handler_level));
    if (handler_filter) handler->setFilter(for_handler);
    EXPECT_EQ(handler->getFilter(), handler_filter ? &for_handler : nullptr);
    logger.addHandler(handler);
    Text message("m");
    logger.log(lv(message_level), message);

    bool logger_passes = logger_level <= message_level && logger_level != 255;
    bool handler_passes = handler_level <= message_level && handler_level != 255;
    ASSERT_EQ(handler->published,
              logger_passes && logger_filter != 2 && handler_passes && handler_filter != 2 ? 1 : 0)
        << "logger " << logger_level << " handler " << handler_level << " message "
        << message_level << " filters " << logger_filter << "/" << handler_filter;
    EXPECT_EQ(logger.isLoggable(lv(message_level)), logger_passes);
    EXPECT_EQ(for_logger.calls, logger_filter && logger_passes ? 1 : 0);
    for (const FixedFilter* f : {&for_logger, &for_handler}) {
      EXPECT_LE(f->calls, 1);
      EXPECT_TRUE(f->calls == 0 || (f->last_level == message_level && f->last_object == &message));
    }
  }
  EXPECT_EQ(CountingHandler::live, 0);
}

// Model-based: random adds, removes and logs over a pool of handlers agree
// with a plain vector of entries: each log reaches every entry once, in
// list order. Guards a fault seen before: removing a handler added twice
// dropped one entry only, and the logger later destroyed it.
TEST(Logger, RandomAddRemoveAgreesWithModel) {
  const int pool_size = 5;
  std::vector<std::string> seen, expected;
  std::vector<CountingHandler*> pool;
  for (int i = 0; i < pool_size; ++i) pool.push_back(new CountingHandler(&seen, std::to_string(i)));
  std::vector<int> model;
  std::mt19937 random(17);
  {
    Logger logger;
    for (int step = 0; step < 3000; ++step) {
      int which = static_cast<int>(random() % pool_size);
      switch (random() % 3) {
        case 0:
          logger.addHandler(pool[which]);
          model.push_back(which);
          break;
        case 1:
          logger.removeHandler(pool[which]);
          model.erase(std::remove(model.begin(), model.end(), which), model.end());
          break;
        default:
          logger.log(Level(Level::Info), Text("m"));
          for (int entry : model) expected.push_back(std::to_string(entry) + "Info:\nm");
      }
    }
    ASSERT_EQ(seen, expected);
    // Hand back the ones the logger still owns; it destroys none of them.
    for (CountingHandler* handler : pool) logger.removeHandler(handler);
    // What it owns it destroys once, even if listed twice; null is ignored.
    logger.addHandler(pool[0]);
    logger.addHandler(pool[0]);
    logger.addHandler(new CountingHandler);
    logger.addHandler(nullptr);
    EXPECT_EQ(CountingHandler::live, pool_size + 1);
  }
  EXPECT_EQ(CountingHandler::live, pool_size - 1);
  for (int i = 1; i < pool_size; ++i) delete pool[i];
  EXPECT_EQ(CountingHandler::live, 0);
}

// Regression: a formatter the caller installed was deleted with the
// handler (a static one crashed the process). The handler owns only the
// one configure() made; the leak checker of the sanitizer build sees that
// one freed.
TEST(Handler, OwnsOnlyTheFormatterConfigureInstalled) {
  class Upper : public Formatter {
   public:
    ~Upper() override { destroyed = true; }
    std::string format(const Externalizable&) const override { return "UPPER"; }
    bool destroyed = false;
  };
  static Upper mine;
  std::ostringstream stream;
  {
    OutputStreamHandler handler(&stream);
    EXPECT_EQ(handler.getLevel().value, Level::All);
    EXPECT_NE(handler.getFormatter(), nullptr);
    EXPECT_EQ(handler.getFilter(), nullptr);
    handler.setFormatter(&mine);
    handler.publish(Level(Level::Warning), Text("x"));
    handler.configure();
    handler.publish(Level(Level::Info), Text("y"));
    handler.setFormatter(&mine);
  }
  EXPECT_FALSE(mine.destroyed);
  EXPECT_EQ(stream.str(), "Warning:\nUPPERInfo:\ny");
}

// Without a formatter the text is plain; the basic system handler emits
// nothing at all.
TEST(Handler, WithoutFormatterFormatsPlainlyAndBasicSystemHandlerEmitsNothing) {
  std::vector<std::string> seen;
  CountingHandler handler(&seen);
  EXPECT_EQ(handler.getFormatter(), nullptr);
  handler.publish(lv(5), Text("plain"));
  EXPECT_EQ(seen, std::vector<std::string>{"Unknown log level:\nplain"});
  ConsoleCapture console;
  BasicSystemHandler().publish(Level(Level::Severe), Text("dropped"));
  EXPECT_EQ(console.text, "");
}

TEST(Handler, DebugOutputGoesToStandardErrorAsFormat) {
  EXPECT_EXIT(
      {
        DebugOutputHandler handler;
        handler.publish(Level(Level::Severe), Text("load 50%% done"));
        DebuggerOutputString(nullptr);
        std::fflush(stderr);
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "^Severe:\nload 50% done$");
}

// The composed text is a printf format: "%%" comes out as "%".
TEST(TerminalHandler, ComposesLevelNameAndTextAsAFormat) {
  ConsoleCapture console;
  TerminalHandler handler;
  EXPECT_EQ(handler.getLevel().value, Level::All);
  handler.publish(Level(Level::Warning), Text("x"));
  handler.publish(Level(Level::Info), Text("100%% sure\n"));
  EXPECT_EQ(console.text, "Warning:\nxInfo:\n100% sure\n");
  handler.close();
  handler.setLevel(Level(Level::Severe));
  handler.publish(Level(Level::Warning), Text("hidden"));
  EXPECT_EQ(console.text, "Warning:\nxInfo:\n100% sure\n");
}

// ---- Object output -----------------------------------------------------------

// Every type as text, with no separators between values; the extremes of
// the integers (random ones are checked below).
TEST(ObjectOutputStream, EveryTypeAsText) {
  EXPECT_EQ(written([](ObjectOutput& o) {
              o.write_bool(true);
              o.write_bool(false);
              o.write_uint8_t(65);
              o.write_int8_t('z');
              o.write_int8_t(-1);
              o.write_int16_t(-32768);
              o.write_uint16_t(65535);
              o.write_float(0.5f);
              o.write_float(0.1f);
              o.write_double(1e100);
            }),
            "10Az\xff-32768655350.50.11e+100");
  EXPECT_EQ(written([](ObjectOutput& o) { o.write_int32_t(INT_MIN); }), "-2147483648");
  EXPECT_EQ(written([](ObjectOutput& o) { o.write_uint32_t(4294967295u); }), "4294967295");
  EXPECT_EQ(written([](ObjectOutput& o) { o.write_int64_t(LONG_MIN); }), "-9223372036854775808");
  EXPECT_EQ(written([](ObjectOutput& o) { o.write_uint64_t(ULONG_MAX); }), "18446744073709551615");
}

// write_bytes writes nothing at all; writeObject writes the object in
// place; a null C string marks the stream bad; the stream's own settings
// apply (the values go through its insertion operators).
TEST(ObjectOutputStream, WriteBytesObjectsNullStringAndStreamSettings) {
  std::ostringstream stream;
  stream << std::boolalpha << std::hex;
  stream.precision(3);
  ObjectOutputStream out(stream);
  unsigned char bytes[4] = {'a', 'b', 'c', 'd'};
  out.write_c_str("[");
  out.write_bytes(bytes, 0, 4);
  out.write_bytes(nullptr, 7, 100);
  out.write_bool(true);
  out.write_int32_t(255);
  out.write_double(3.14159);
  out.writeObject(Text("]"));
  EXPECT_TRUE(stream.good());
  out.write_c_str(nullptr);
  EXPECT_TRUE(stream.bad());
  EXPECT_EQ(stream.str(), "[trueff3.14]");
}

// Differential: integers and doubles come out exactly as the standard
// conversions print them.
TEST(ObjectOutputStream, NumbersMatchTheStandardConversions) {
  std::mt19937_64 random(3);
  for (int i = 0; i < 2000; ++i) {
    long l = static_cast<long>(random());
    unsigned long u = random();
    int n = static_cast<int>(random());
    EXPECT_EQ(written([&](ObjectOutput& o) { o.write_int64_t(l); }), std::to_string(l));
    EXPECT_EQ(written([&](ObjectOutput& o) { o.write_uint64_t(u); }), std::to_string(u));
    EXPECT_EQ(written([&](ObjectOutput& o) { o.write_int32_t(n); }), std::to_string(n));
    double d = std::ldexp(static_cast<double>(random() >> 11), static_cast<int>(random() % 200) - 100);
    char expected[64];
    std::snprintf(expected, sizeof expected, "%g", d);
    EXPECT_EQ(written([&](ObjectOutput& o) { o.write_double(d); }), expected);
  }
}

// ---- Reports and the system logger ----------------------------------------

TEST(Reports, OneSystemLoggerPrintsWarningAndAboveOnce) {
  Logger& a = Logger::getLogger("a");
  EXPECT_EQ(&a, &Logger::getLogger("b"));
  EXPECT_EQ(&a, &Logger::getLogger(nullptr));
  EXPECT_EQ(a.getLevel().value, Level::Warning);
  EXPECT_EQ(a.getFilter(), nullptr);
  ConsoleCapture console;
  reportsf("%s %d\n", "count", 3);
  reports("info is dropped\n", Level(Level::Info));
  reports(std::string("severe\n"), Level(Level::Severe));
  report(Text("object\n"), Level(Level::Warning));
  EXPECT_EQ(console.text, "Warning:\ncount 3\nSevere:\nsevere\nWarning:\nobject\n");
}

// Every form to a given logger; a null text is a logic error that reports
// nothing.
TEST(Reports, ToGivenLogger) {
  std::vector<std::string> seen;
  Logger logger;
  logger.addHandler(new CountingHandler(&seen));
  reportsf(logger, "a%d", 1);
  reportsf(logger, Level(Level::Info), "b%s", "2");
  reports(logger, "c", Level(Level::Severe));
  reports(logger, std::string("d"), lv(77));
  report(logger, Text("e"), Level(Level::All));
  try {
    reports(logger, static_cast<const char*>(nullptr), Level(Level::Severe));
    ADD_FAILURE() << "no exception";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "basic_string: construction from null is not valid");
  }
  std::vector<std::string> expected = {"Warning:\na1", "Info:\nb2", "Severe:\nc",
                                       "Unknown log level:\nd", "All:\ne"};
  EXPECT_EQ(seen, expected);
}

// Formatted text longer than the 1023 characters of the report buffer is
// reported as ktVSNprintf leaves it there. When the C formatter fails (a
// wide character the "C" locale cannot encode), ktVSNprintf returns -1 and
// nothing at all is reported.
TEST(Reports, FormattedTextIsCutToTheBufferOrDroppedWhenFormattingFails) {
  std::vector<std::string> seen;
  Logger logger;
  logger.addHandler(new CountingHandler(&seen));
  std::string long_text(3000, 'q');
  for (size_t i = 0; i < long_text.size(); i += 7) long_text[i] = static_cast<char>('a' + i % 26);
  reportsf(logger, Level(Level::Severe), "%s", long_text.c_str());
  std::string exact(1023, 'x');
  reportsf(logger, Level(Level::Severe), "%s", exact.c_str());
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0], "Severe:\n" + long_text.substr(0, 1023));
  EXPECT_EQ(seen[1], "Severe:\n" + exact);

  char probe[16];
  int expected = std::snprintf(probe, sizeof probe, "%ls", L"\u00e9");
  reportsf(logger, Level(Level::Severe), "%ls", L"\u00e9");
  EXPECT_EQ(seen.size(), expected == -1 ? 2u : 3u);
  reportsf(logger, Level(Level::Severe), "%s", "ok");
  EXPECT_EQ(seen.back(), "Severe:\nok");
}

TEST(ProcessInfo, IdAndExecutableNameStub) {
  EXPECT_EQ(CurrentProcessId(), static_cast<int>(getpid()));
  char name[16] = "untouched";
  EXPECT_EQ(CurrentExecutableName(name, sizeof name), 0);
  EXPECT_STREQ(name, "untouched");
  EXPECT_EQ(CurrentExecutableName(nullptr, 0), 0);
}
