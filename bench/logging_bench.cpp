// Logging: the cost of Logger::log through one discarding handler against a
// plain virtual call, and of reportsf against snprintf plus the same call.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "kt/logging.h"

using namespace Quivera::System;

namespace {

class Message : public Externalizable {
public:
    void writeExternal(ObjectOutput& out) const override { out.write_c_str("m"); }
};

// Checks its level and filter like every handler, then drops the message.
class DiscardingHandler : public Handler {
protected:
    void _publish(const Level& level, const Externalizable& object) override
    {
        benchmark::DoNotOptimize(isLoggable(level, object));
    }
};

// Receives the composed text and drops it.
class DiscardingStream : public StreamHandler {
protected:
    void _output(const std::string& text) override { benchmark::DoNotOptimize(text.data()); }
};

// The peer: one virtual call on an interface, the least a dispatch costs.
class Sink {
public:
    virtual ~Sink() = default;
    virtual void take(int level, const void* object) = 0;
};

class DiscardingSink : public Sink {
public:
    void take(int level, const void* object) override
    {
        benchmark::DoNotOptimize(level);
        benchmark::DoNotOptimize(object);
    }
};

class CountingSink : public Sink {
public:
    void take(int, const void*) override { ++count; }
    long count = 0;
};

// Chosen at run time so that the compiler cannot resolve the call.
Sink* make_sink()
{
    static DiscardingSink discarding;
    static CountingSink counting;
    static volatile bool count = false;
    if (count)
        return &counting;
    return &discarding;
}

}  // namespace

static void BM_Logging_LoggerLog(benchmark::State& state)
{
    Logger logger;
    logger.addHandler(new DiscardingHandler);
    Message message;
    Level level(Level::Warning);
    for (auto _ : state)
        logger.log(level, message);
}
BENCHMARK(BM_Logging_LoggerLog);

static void BM_Logging_Peer_VirtualCall(benchmark::State& state)
{
    Sink* sink = make_sink();
    benchmark::DoNotOptimize(sink);
    Message message;
    for (auto _ : state)
        sink->take(Level::Warning, &message);
}
BENCHMARK(BM_Logging_Peer_VirtualCall);

static void BM_Logging_Reportsf(benchmark::State& state)
{
    Logger logger;
    logger.addHandler(new DiscardingStream);
    for (auto _ : state)
        reportsf(logger, "value %d of %s\n", 42, "limit");
}
BENCHMARK(BM_Logging_Reportsf);

static void BM_Logging_Peer_Snprintf(benchmark::State& state)
{
    Sink* sink = make_sink();
    benchmark::DoNotOptimize(sink);
    char buffer[1024];
    for (auto _ : state) {
        std::snprintf(buffer, sizeof buffer, "value %d of %s\n", 42, "limit");
        std::string text = std::string("Warning:\n") + buffer;
        sink->take(Level::Warning, text.data());
    }
}
BENCHMARK(BM_Logging_Peer_Snprintf);
