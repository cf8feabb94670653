/*
 * Handlers: the level and filter check common to all of them, the
 * composed text "<level name>:\n<formatted object>", and each handler's
 * destination.
 */
#include <mutex>
#include <ostream>
#include <string>
#include <unordered_map>

#include "kt/logging.h"
#include "kt/output.h"

namespace Quivera {
namespace System {

namespace {

/* The text every handler emits: the level's name, ":\n", then the object
   as the handler's formatter renders it (SimpleFormatter when none). */
std::string compose(const Handler& handler, const Level& level,
                    const Externalizable& object)
{
    std::string text = level.getName();
    text += ":\n";
    const Formatter* formatter = handler.getFormatter();
    if (formatter)
        text += formatter->format(object);
    else
        text += SimpleFormatter().format(object);
    return text;
}

/* The formatters that a handler's configure() made, by handler: the only
   ones a handler deletes. A formatter the caller installs stays the
   caller's. Kept beside the handlers because their fields are fixed. */
class OwnedFormatters {
public:
    void adopt(const Handler* handler, Formatter* formatter)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        owned_[handler] = formatter;
    }
    /* Gives up the handler's own formatter (null when it has none). */
    Formatter* release(const Handler* handler)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = owned_.find(handler);
        if (it == owned_.end())
            return nullptr;
        Formatter* formatter = it->second;
        owned_.erase(it);
        return formatter;
    }

private:
    std::mutex mutex_;
    std::unordered_map<const Handler*, Formatter*> owned_;
};

OwnedFormatters& ownedFormatters()
{
    static OwnedFormatters* owned = new OwnedFormatters;  // outlives static handlers
    return *owned;
}

}  // namespace

/* configure(): a new SimpleFormatter that the handler owns. */
static void installOwnFormatter(Handler* handler)
{
    auto* formatter = new SimpleFormatter;
    handler->setFormatter(formatter);
    ownedFormatters().adopt(handler, formatter);
}

/* ---- Handler ------------------------------------------------------------ */

Handler::Handler() : formatter_(nullptr), filter_(nullptr), level_(Level::All) {}

Handler::~Handler()
{
    delete ownedFormatters().release(this);
}

void Handler::publish(const Level& level, const Externalizable& object)
{
    _publish(level, object);
}

Formatter* Handler::getFormatter() const
{
    return formatter_;
}

/* The handler's own formatter, if it is being replaced, is deleted; the
   one given is only used. */
void Handler::setFormatter(Formatter* formatter)
{
    if (formatter == formatter_)
        return;
    formatter_ = formatter;
    delete ownedFormatters().release(this);
}

const Filter* Handler::getFilter() const
{
    return filter_;
}

void Handler::setFilter(const Filter& filter)
{
    filter_ = &filter;
}

Level Handler::getLevel() const
{
    return level_;
}

void Handler::setLevel(const Level& level)
{
    level_ = level;
}

bool Handler::isLoggable(const Level& level, const Externalizable& object) const
{
    if (level_ > level)
        return false;
    if (level_.value == Level::Off)
        return false;
    if (!filter_)
        return true;
    return filter_->isLoggable(level, object);
}

/* ---- BasicSystemHandler ------------------------------------------------- */

BasicSystemHandler::BasicSystemHandler() = default;

BasicSystemHandler::~BasicSystemHandler() = default;

/* The text is composed (so a formatter sees the object as with any other
   handler) and then dropped: this platform has no system event log. */
void BasicSystemHandler::_publish(const Level& level, const Externalizable& object)
{
    if (!isLoggable(level, object))
        return;
    std::string discarded = compose(*this, level, object);
    (void)discarded;
}

/* ---- DebugOutputHandler ------------------------------------------------- */

DebugOutputHandler::DebugOutputHandler() = default;

DebugOutputHandler::~DebugOutputHandler() = default;

void DebugOutputHandler::_publish(const Level& level, const Externalizable& object)
{
    if (!isLoggable(level, object))
        return;
    DebuggerOutputString(compose(*this, level, object).c_str());
}

/* ---- TerminalHandler ---------------------------------------------------- */

TerminalHandler::TerminalHandler()
{
    configure();
}

TerminalHandler::~TerminalHandler() = default;

void TerminalHandler::configure()
{
    installOwnFormatter(this);
    setLevel(Level(Level::All));
}

void TerminalHandler::close() {}

/* The composed text goes to ktPrintf as the format string itself, with no
   arguments: a "%" in a message is read as a conversion. Established
   behaviour that callers know and escape for; do not "fix" it. */
void TerminalHandler::_publish(const Level& level, const Externalizable& object)
{
    if (!isLoggable(level, object))
        return;
    std::string text = compose(*this, level, object);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    ktPrintf(text.c_str());
#pragma GCC diagnostic pop
}

/* ---- StreamHandler and OutputStreamHandler ------------------------------ */

StreamHandler::StreamHandler() = default;

StreamHandler::~StreamHandler() = default;

void StreamHandler::_publish(const Level& level, const Externalizable& object)
{
    if (!isLoggable(level, object))
        return;
    _output(compose(*this, level, object));
}

OutputStreamHandler::OutputStreamHandler(std::ostream* stream) : stream_(stream)
{
    configure();
}

OutputStreamHandler::~OutputStreamHandler() = default;

void OutputStreamHandler::configure()
{
    installOwnFormatter(this);
    setLevel(Level(Level::All));
}

void OutputStreamHandler::close() {}

void OutputStreamHandler::_output(const std::string& text)
{
    if (stream_)
        *stream_ << text;
}

}  // namespace System
}  // namespace Quivera
