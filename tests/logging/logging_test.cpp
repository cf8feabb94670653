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
#include "kt/output.h"
#include "support/console_capture.h"

using namespace Quivera::System;

namespace {

Level lv(int value)
{
    return Level(static_cast<Level::Enum>(value));
}

// A message object that writes a fixed text.
class Text : public Externalizable {
public:
    explicit Text(std::string text) : text_(std::move(text)) {}
    void writeExternal(ObjectOutput& out) const override { out.write_c_str(text_.c_str()); }

private:
    std::string text_;
};

// Records what reaches it and counts live instances, so that leaks and
// double destruction show up as a wrong count.
class CountingHandler : public StreamHandler {
public:
    static int live;
    explicit CountingHandler(std::vector<std::string>* sink = nullptr, std::string tag = "")
        : sink_(sink), tag_(std::move(tag)) { ++live; }
    ~CountingHandler() override { --live; }
    int published = 0;

protected:
    void _output(const std::string& text) override
    {
        ++published;
        if (sink_)
            sink_->push_back(tag_ + text);
    }

private:
    std::vector<std::string>* sink_;
    std::string tag_;
};
int CountingHandler::live = 0;

class FixedFilter : public Filter {
public:
    explicit FixedFilter(bool accept) : answer(accept) {}
    bool isLoggable(const Level& level, const Externalizable& object) const override
    {
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
std::string written(Write write)
{
    std::ostringstream stream;
    ObjectOutputStream out(stream);
    write(out);
    return stream.str();
}

}  // namespace

// ---- Levels -----------------------------------------------------------------

TEST(Level, NamesOfEveryValue)
{
    EXPECT_STREQ(Level(Level::All).getName(), "All");
    EXPECT_STREQ(Level(Level::Info).getName(), "Info");
    EXPECT_STREQ(Level(Level::Warning).getName(), "Warning");
    EXPECT_STREQ(Level(Level::Severe).getName(), "Severe");
    EXPECT_STREQ(Level(Level::Off).getName(), "Off");
    for (int value : {-1, 1, 63, 65, 100, 126, 128, 191, 193, 254, 256, INT_MIN, INT_MAX})
        EXPECT_STREQ(lv(value).getName(), "Unknown log level") << value;
    EXPECT_EQ(lv(100).value, 100);
}

TEST(Level, ComparisonsFollowSignedValuesOnly)
{
    std::mt19937 random(7);
    std::vector<int> values = {0, 64, 127, 192, 255, -5, INT_MIN, INT_MAX, 100};
    for (int i = 0; i < 200; ++i)
        values.push_back(static_cast<int>(random()));
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
    EXPECT_TRUE(lv(100) > Level(Level::Info));
}

// ---- Loggers and handlers: thresholds, Off and filters --------------------

// Model: a message reaches a handler when the logger's threshold and the
// handler's level are both at most the message level, neither is Off, and
// both filters (where set) agree.
TEST(Logger, ThresholdsOffAndFiltersAgreeWithModel)
{
    const int levels[] = {0, 1, 64, 100, 127, 192, 254, 255, 300, -3};
    std::mt19937 random(11);
    FixedFilter accept(true), reject(false);
    for (int round = 0; round < 2000; ++round) {
        int logger_level = levels[random() % 10];
        int handler_level = levels[random() % 10];
        int message_level = levels[random() % 10];
        int logger_filter = random() % 3;   // none, accept, reject
        int handler_filter = random() % 3;

        Logger logger;
        logger.setLevel(lv(logger_level));
        if (logger_filter)
            logger.setFilter(logger_filter == 1 ? accept : reject);
        auto* handler = new CountingHandler;
        handler->setLevel(lv(handler_level));
        if (handler_filter)
            handler->setFilter(handler_filter == 1 ? accept : reject);
        logger.addHandler(handler);
        logger.log(lv(message_level), Text("m"));

        bool logger_passes = logger_level <= message_level && logger_level != 255 &&
                             logger_filter != 2;
        bool handler_passes = handler_level <= message_level && handler_level != 255 &&
                              handler_filter != 2;
        ASSERT_EQ(handler->published, logger_passes && handler_passes ? 1 : 0)
            << "logger " << logger_level << " handler " << handler_level << " message "
            << message_level << " filters " << logger_filter << "/" << handler_filter;
        EXPECT_EQ(logger.isLoggable(lv(message_level)),
                  logger_level <= message_level && logger_level != 255);
    }
    EXPECT_EQ(CountingHandler::live, 0);
}

TEST(Logger, FiltersSeeLevelAndObject)
{
    Logger logger;
    FixedFilter logger_filter(true), handler_filter(true);
    logger.setFilter(logger_filter);
    EXPECT_EQ(logger.getFilter(), &logger_filter);
    auto* handler = new CountingHandler;
    handler->setFilter(handler_filter);
    EXPECT_EQ(handler->getFilter(), &handler_filter);
    logger.addHandler(handler);
    Text message("m");
    logger.log(Level(Level::Severe), message);
    EXPECT_EQ(logger_filter.calls, 1);
    EXPECT_EQ(logger_filter.last_level, Level::Severe);
    EXPECT_EQ(logger_filter.last_object, &message);
    EXPECT_EQ(handler_filter.calls, 1);
    EXPECT_EQ(handler_filter.last_object, &message);
    // Below the threshold the filter is not consulted at all.
    logger.setLevel(Level(Level::Warning));
    logger.log(Level(Level::Info), message);
    EXPECT_EQ(logger_filter.calls, 1);
}

TEST(Logger, HandlersPublishedInOrderAdded)
{
    std::vector<std::string> seen;
    Logger logger;
    logger.addHandler(new CountingHandler(&seen, "1 "));
    logger.addHandler(new CountingHandler(&seen, "2 "));
    logger.addHandler(new CountingHandler(&seen, "3 "));
    logger.log(Level(Level::Info), Text("hello"));
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0], "1 Info:\nhello");
    EXPECT_EQ(seen[1], "2 Info:\nhello");
    EXPECT_EQ(seen[2], "3 Info:\nhello");
}

// Model-based: random adds, removes and logs over a pool of handlers agree
// with a plain vector of entries; each handler is published to once per
// entry it has in the list. Guards a fault seen before: removing a handler
// added twice dropped one entry only, and the logger later destroyed it.
TEST(Logger, RandomAddRemoveAgreesWithModel)
{
    const int pool_size = 5;
    std::vector<CountingHandler*> pool;
    for (int i = 0; i < pool_size; ++i)
        pool.push_back(new CountingHandler);
    std::vector<int> expected_published(pool_size, 0);
    std::vector<CountingHandler*> model;
    std::mt19937 random(17);
    {
        Logger logger;
        for (int step = 0; step < 3000; ++step) {
            CountingHandler* handler = pool[random() % pool_size];
            switch (random() % 3) {
            case 0:
                logger.addHandler(handler);
                model.push_back(handler);
                break;
            case 1:
                logger.removeHandler(handler);
                model.erase(std::remove(model.begin(), model.end(), handler), model.end());
                break;
            default:
                logger.log(Level(Level::Info), Text("m"));
                for (CountingHandler* entry : model)
                    ++expected_published[std::find(pool.begin(), pool.end(), entry) - pool.begin()];
                break;
            }
        }
        for (int i = 0; i < pool_size; ++i)
            ASSERT_EQ(pool[i]->published, expected_published[i]) << i;
        // Hand back the ones the logger still owns; it destroys none then.
        for (CountingHandler* handler : pool)
            logger.removeHandler(handler);
    }
    EXPECT_EQ(CountingHandler::live, pool_size);
    for (CountingHandler* handler : pool)
        delete handler;
    EXPECT_EQ(CountingHandler::live, 0);
}

TEST(Logger, DestroysOwnedHandlersOnceEvenIfListedTwice)
{
    {
        Logger logger;
        auto* handler = new CountingHandler;
        logger.addHandler(handler);
        logger.addHandler(handler);
        logger.addHandler(new CountingHandler);
        logger.addHandler(nullptr);
        EXPECT_EQ(CountingHandler::live, 2);
    }
    EXPECT_EQ(CountingHandler::live, 0);
}

// Regression: a formatter the caller installed was deleted with the
// handler (a static one crashed the process). The handler owns only the
// one configure() made; the leak checker of the sanitizer build sees that
// one freed.
TEST(Handler, OwnsOnlyTheFormatterConfigureInstalled)
{
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

TEST(Handler, WithoutFormatterFormatsPlainly)
{
    std::vector<std::string> seen;
    CountingHandler handler(&seen);
    EXPECT_EQ(handler.getFormatter(), nullptr);
    handler.publish(lv(5), Text("plain"));
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0], "Unknown log level:\nplain");
}

TEST(Handler, BasicSystemHandlerEmitsNothing)
{
    ConsoleCapture console;
    BasicSystemHandler handler;
    handler.publish(Level(Level::Severe), Text("dropped"));
    EXPECT_EQ(console.text, "");
}

TEST(Handler, DebugOutputGoesToStandardErrorAsFormat)
{
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

// ---- Terminal output -----------------------------------------------------

// The composed text is a printf format: "%%" comes out as "%".
TEST(TerminalHandler, ComposesLevelNameAndTextAsAFormat)
{
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

TEST(ObjectOutputStream, EveryTypeAsText)
{
    EXPECT_EQ(written([](ObjectOutput& o) { o.write_bool(true); }), "1");
    EXPECT_EQ(written([](ObjectOutput& o) { o.write_bool(false); }), "0");
    EXPECT_EQ(written([](ObjectOutput& o) { o.write_uint8_t(65); }), "A");
    EXPECT_EQ(written([](ObjectOutput& o) { o.write_int8_t('z'); }), "z");
    EXPECT_EQ(written([](ObjectOutput& o) { o.write_int8_t(-1); }), "\xff");
    EXPECT_EQ(written([](ObjectOutput& o) { o.write_int16_t(-32768); }), "-32768");
    EXPECT_EQ(written([](ObjectOutput& o) { o.write_uint16_t(65535); }), "65535");
    EXPECT_EQ(written([](ObjectOutput& o) { o.write_int32_t(INT_MIN); }), "-2147483648");
    EXPECT_EQ(written([](ObjectOutput& o) { o.write_uint32_t(4294967295u); }), "4294967295");
    EXPECT_EQ(written([](ObjectOutput& o) { o.write_int64_t(LONG_MIN); }),
              "-9223372036854775808");
    EXPECT_EQ(written([](ObjectOutput& o) { o.write_uint64_t(ULONG_MAX); }),
              "18446744073709551615");
    EXPECT_EQ(written([](ObjectOutput& o) { o.write_float(0.5f); }), "0.5");
    EXPECT_EQ(written([](ObjectOutput& o) { o.write_float(0.1f); }), "0.1");
    EXPECT_EQ(written([](ObjectOutput& o) { o.write_double(1e100); }), "1e+100");
    EXPECT_EQ(written([](ObjectOutput& o) { o.write_c_str("abc"); }), "abc");
    // No separators between values.
    EXPECT_EQ(written([](ObjectOutput& o) {
                  o.write_int32_t(1);
                  o.write_int32_t(2);
                  o.write_c_str("-");
                  o.write_bool(true);
              }),
              "12-1");
}

// write_bytes writes nothing at all; a null C string marks the stream bad.
TEST(ObjectOutputStream, WriteBytesAndNullString)
{
    std::ostringstream stream;
    ObjectOutputStream out(stream);
    unsigned char bytes[4] = {'a', 'b', 'c', 'd'};
    out.write_c_str("[");
    out.write_bytes(bytes, 0, 4);
    out.write_bytes(nullptr, 7, 100);
    out.write_c_str("]");
    EXPECT_TRUE(stream.good());
    out.write_c_str(nullptr);
    EXPECT_TRUE(stream.bad());
    EXPECT_EQ(stream.str(), "[]");
}

// The stream's own formatting settings apply: the values go through its
// insertion operators.
TEST(ObjectOutputStream, HonoursStreamSettings)
{
    std::ostringstream stream;
    stream << std::boolalpha << std::hex;
    stream.precision(3);
    ObjectOutputStream out(stream);
    out.write_bool(true);
    out.write_c_str(" ");
    out.write_int32_t(255);
    out.write_c_str(" ");
    out.write_double(3.14159);
    EXPECT_EQ(stream.str(), "true ff 3.14");
}

// Differential: integers and doubles come out exactly as the standard
// conversions print them, and read back to the same value.
TEST(ObjectOutputStream, NumbersRoundTrip)
{
    std::mt19937_64 random(3);
    for (int i = 0; i < 2000; ++i) {
        long l = static_cast<long>(random());
        unsigned long u = random();
        int n = static_cast<int>(random());
        EXPECT_EQ(written([&](ObjectOutput& o) { o.write_int64_t(l); }), std::to_string(l));
        EXPECT_EQ(written([&](ObjectOutput& o) { o.write_uint64_t(u); }), std::to_string(u));
        EXPECT_EQ(written([&](ObjectOutput& o) { o.write_int32_t(n); }), std::to_string(n));

        double d = std::ldexp(static_cast<double>(random() >> 11), static_cast<int>(random() % 200) - 100);
        std::string text = written([&](ObjectOutput& o) { o.write_double(d); });
        char expected[64];
        std::snprintf(expected, sizeof expected, "%g", d);
        EXPECT_EQ(text, expected);
    }
}

TEST(ObjectOutputStream, WriteObjectNests)
{
    class Pair : public Externalizable {
    public:
        void writeExternal(ObjectOutput& out) const override
        {
            out.write_c_str("(");
            out.writeObject(Text("in"));
            out.write_c_str(",");
            out.write_int32_t(7);
            out.write_c_str(")");
        }
    };
    EXPECT_EQ(written([](ObjectOutput& o) { o.writeObject(Pair()); }), "(in,7)");
    EXPECT_EQ(SimpleFormatter().format(Pair()), "(in,7)");
}

// ---- Reports and the system logger ----------------------------------------

TEST(Reports, SameSystemLoggerForEveryName)
{
    Logger& a = Logger::getLogger("a");
    EXPECT_EQ(&a, &Logger::getLogger("b"));
    EXPECT_EQ(&a, &Logger::getLogger(nullptr));
    EXPECT_EQ(a.getLevel().value, Level::Warning);
    EXPECT_EQ(a.getFilter(), nullptr);
}

TEST(Reports, SystemLoggerPrintsWarningAndAboveOnce)
{
    ConsoleCapture console;
    reportsf("%s %d\n", "count", 3);
    reports("info is dropped\n", Level(Level::Info));
    reports(std::string("severe\n"), Level(Level::Severe));
    report(Text("object\n"), Level(Level::Warning));
    EXPECT_EQ(console.text, "Warning:\ncount 3\nSevere:\nsevere\nWarning:\nobject\n");
}

TEST(Reports, ToGivenLogger)
{
    std::vector<std::string> seen;
    Logger logger;
    logger.addHandler(new CountingHandler(&seen));
    reportsf(logger, "a%d", 1);
    reportsf(logger, Level(Level::Info), "b%s", "2");
    reports(logger, "c", Level(Level::Severe));
    reports(logger, std::string("d"), lv(77));
    report(logger, Text("e"), Level(Level::All));
    std::vector<std::string> expected = {"Warning:\na1", "Info:\nb2", "Severe:\nc",
                                         "Unknown log level:\nd", "All:\ne"};
    EXPECT_EQ(seen, expected);
}

TEST(Reports, NullTextIsLogicError)
{
    Logger logger;
    auto* handler = new CountingHandler;
    logger.addHandler(handler);
    try {
        reports(logger, static_cast<const char*>(nullptr), Level(Level::Severe));
        FAIL() << "no exception";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "basic_string: construction from null is not valid");
    }
    EXPECT_EQ(handler->published, 0);
}

// Formatted text longer than the 1023 characters of the report buffer is
// reported as ktVSNprintf leaves it there.
TEST(Reports, LongFormattedTextIsCutToBuffer)
{
    std::vector<std::string> seen;
    Logger logger;
    logger.addHandler(new CountingHandler(&seen));
    std::string long_text(3000, 'q');
    for (size_t i = 0; i < long_text.size(); i += 7)
        long_text[i] = static_cast<char>('a' + i % 26);
    reportsf(logger, Level(Level::Severe), "%s", long_text.c_str());
    char expected[1024];
    std::snprintf(expected, sizeof expected, "%s", long_text.c_str());
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0], std::string("Severe:\n") + expected);
    EXPECT_EQ(seen[0].size(), 8u + 1023u);

    std::string exact(1023, 'x');
    reportsf(logger, Level(Level::Severe), "%s", exact.c_str());
    EXPECT_EQ(seen[1], "Severe:\n" + exact);
}

// When the C formatter fails (a wide character the "C" locale cannot
// encode), ktVSNprintf returns -1 and nothing at all is reported.
TEST(Reports, NothingReportedWhenFormattingFails)
{
    char probe[16];
    int expected = std::snprintf(probe, sizeof probe, "%ls", L"\u00e9");
    std::vector<std::string> seen;
    Logger logger;
    logger.addHandler(new CountingHandler(&seen));
    reportsf(logger, Level(Level::Severe), "%ls", L"\u00e9");
    if (expected == -1)
        EXPECT_TRUE(seen.empty());
    else
        EXPECT_EQ(seen.size(), 1u);
    reportsf(logger, Level(Level::Severe), "%s", "ok");
    EXPECT_EQ(seen.back(), "Severe:\nok");
}

TEST(ProcessInfo, IdAndExecutableNameStub)
{
    EXPECT_EQ(CurrentProcessId(), static_cast<int>(getpid()));
    char name[16] = "untouched";
    EXPECT_EQ(CurrentExecutableName(name, sizeof name), 0);
    EXPECT_STREQ(name, "untouched");
    EXPECT_EQ(CurrentExecutableName(nullptr, 0), 0);
}
