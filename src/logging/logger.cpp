/*
 * Loggers, the system logger kept in the process singleton registry, and
 * the report family.
 */
#include <cstdarg>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "internal/singleton_registry.h"
#include "kt/logging.h"
#include "kt/output.h"

namespace Quivera {
namespace System {

namespace {

/* The threshold test of Logger::isLoggable, kept local so that log() does
   not pay an exported call for it: the threshold must not be above the
   level, and a threshold of Off stops everything. */
inline bool passes_threshold(const Level& threshold, const Level& level)
{
    if (static_cast<int>(threshold.value) > static_cast<int>(level.value))
        return false;
    return threshold.value != Level::Off;
}

/* The registry key of the one system logger. */
struct SystemLogSingleton {};

void destroy_logger(void* logger)
{
    delete static_cast<Logger*>(logger);
}

/* The temporary message object of reports(): the text, written whole
   through the output's string operation. Lives only for the call. */
class TextMessage : public Externalizable {
public:
    explicit TextMessage(const std::string& text) : text_(&text) {}
    void writeExternal(ObjectOutput& out) const override { out.write_c_str(text_->c_str()); }

private:
    const std::string* text_;
};

/* Formats into the 1024-byte report buffer; false when ktVSNprintf fails
   (-1), in which case nothing is to be reported. Longer text is left cut,
   as ktVSNprintf leaves it. */
bool format_report(char (&buffer)[1024], const char* format, va_list args)
{
    if (!format)
        throw std::logic_error("vreportsf: null format");
    buffer[0] = '\0';
    return ktVSNprintf(buffer, sizeof buffer, format, args) != -1;
}

}  // namespace

/* ---- Logger ------------------------------------------------------------- */

Logger::Logger() : handlers_(), filter_(nullptr), level_(Level::All) {}

/* Destroys each handler still listed, once even if it was added twice. */
Logger::~Logger()
{
    while (!handlers_.empty()) {
        Handler* handler = handlers_.front();
        handlers_.remove(handler);
        delete handler;
    }
}

/* Every name gives the system logger: established behaviour, the report
   functions pass a null name. */
Logger& Logger::getLogger(const char* name)
{
    (void)name;
    static const kt::internal::SingletonId id =
        kt::internal::singleton_id(typeid(SystemLogSingleton));
    if (void* found = kt::internal::singleton_find(id))
        return *static_cast<Logger*>(found);

    std::unique_ptr<Logger> fresh(new Logger);
    fresh->setLevel(Level(Level::Warning));
    std::unique_ptr<Handler> system_handler(new BasicSystemHandler);
    fresh->addHandler(system_handler.get());
    system_handler.release();
    std::unique_ptr<Handler> terminal_handler(new TerminalHandler);
    fresh->addHandler(terminal_handler.get());
    terminal_handler.release();

    kt::internal::SingletonInsert result =
        kt::internal::singleton_find_or_insert(id, fresh.get(), destroy_logger);
    if (result.inserted)
        fresh.release();
    return *static_cast<Logger*>(result.object);
}

void Logger::addHandler(Handler* handler)
{
    if (handler)
        handlers_.push_back(handler);
}

void Logger::removeHandler(Handler* handler)
{
    handlers_.remove(handler);
}

void Logger::setFilter(const Filter& filter)
{
    filter_ = &filter;
}

const Filter* Logger::getFilter() const
{
    return filter_;
}

void Logger::setLevel(const Level& level)
{
    level_ = level;
}

Level Logger::getLevel() const
{
    return level_;
}

/* A logger set to Off passes nothing, not even a message at Off. */
bool Logger::isLoggable(const Level& level) const
{
    return passes_threshold(level_, level);
}

void Logger::log(const Level& level, const Externalizable& object)
{
    if (!passes_threshold(level_, level))
        return;
    if (filter_ && !filter_->isLoggable(level, object))
        return;
    Level copy(level);
    for (Handler* handler : handlers_)
        handler->publish(copy, object);
}

/* ---- Reports ------------------------------------------------------------ */

void report(Logger& logger, const Externalizable& object, const Level& level)
{
    logger.log(level, object);
}

void report(const Externalizable& object, const Level& level)
{
    report(Logger::getLogger(nullptr), object, level);
}

void reports(Logger& logger, const std::string& text, const Level& level)
{
    TextMessage message(text);
    report(logger, message, level);
}

void reports(const std::string& text, const Level& level)
{
    reports(Logger::getLogger(nullptr), text, level);
}

void reports(Logger& logger, const char* text, const Level& level)
{
    if (!text)
        throw std::logic_error("basic_string: construction from null is not valid");
    reports(logger, std::string(text), level);
}

void reports(const char* text, const Level& level)
{
    reports(Logger::getLogger(nullptr), text, level);
}

void vreportsf(Logger& logger, const Level& level, const char* format, va_list args)
{
    char buffer[1024];
    if (format_report(buffer, format, args))
        reports(logger, buffer, level);
}

void vreportsf(const Level& level, const char* format, va_list args)
{
    vreportsf(Logger::getLogger(nullptr), level, format, args);
}

void reportsf(Logger& logger, const Level& level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    try {
        vreportsf(logger, level, format, args);
    } catch (...) {
        va_end(args);
        throw;
    }
    va_end(args);
}

void reportsf(const Level& level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    try {
        vreportsf(Logger::getLogger(nullptr), level, format, args);
    } catch (...) {
        va_end(args);
        throw;
    }
    va_end(args);
}

void reportsf(Logger& logger, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    try {
        vreportsf(logger, Level(Level::Warning), format, args);
    } catch (...) {
        va_end(args);
        throw;
    }
    va_end(args);
}

void reportsf(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    try {
        vreportsf(Logger::getLogger(nullptr), Level(Level::Warning), format, args);
    } catch (...) {
        va_end(args);
        throw;
    }
    va_end(args);
}

}  // namespace System
}  // namespace Quivera
