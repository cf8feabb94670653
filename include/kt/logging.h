/*
 * kt/logging.h -- levels, loggers, handlers, formatters and object output
 *
 * A small process-wide logging framework in namespace Quivera::System:
 *
 *   - a message is an object that writes itself (Externalizable) through an
 *     ObjectOutput; ObjectOutputStream writes every value as text to a
 *     std::ostream;
 *   - a Logger passes a message on when its severity reaches the logger's
 *     threshold and its optional Filter agrees, to each of its Handlers in
 *     the order they were added;
 *   - a Handler applies its own level and filter, turns the object into
 *     text with its Formatter and emits "<level name>:\n<text>" to its
 *     destination (the console hook, a stream, standard error, nowhere);
 *   - report, reports, reportsf and vreportsf wrap an object or a text and
 *     send it to a given logger or to the process's system logger.
 *
 *     Quivera::System::reportsf("cannot open %s\n", path);   // at Warning
 *     Quivera::System::reportsf(Quivera::System::Level(
 *         Quivera::System::Level::Severe), "giving up\n");
 *
 * The system logger (Logger::getLogger) is built on first use with
 * threshold Warning, no filter, a BasicSystemHandler and a TerminalHandler;
 * it lives until the process ends.
 *
 * Threads: getLogger is safe from any thread. Logger and Handler
 * configuration (addHandler, removeHandler, setLevel, setFilter,
 * setFormatter) takes no lock: configure before sharing. log/publish take
 * no lock either; terminal output is serialised only as far as the console
 * output hook (kt/output.h) serialises it. Nothing here is async-signal-safe.
 *
 * The header also carries SimpleException and the deprecated exception
 * classes (Throwable_DEPRECATED and its family), which are message objects
 * too, and the process information used by the process-ending reports:
 * CurrentProcessId, CurrentExecutableName and DebuggerOutputString.
 */
#ifndef KT_LOGGING_H
#define KT_LOGGING_H

#ifdef __cplusplus

#include <cstdarg>
#include <cstddef>
#include <iosfwd>
#include <list>
#include <string>

#include "kt/errors.h"
#include "kt/export.h"

namespace Quivera {
namespace System {

class Externalizable;
class Handler;

/* ---- Levels ------------------------------------------------------------ */

/*
 * A severity and its display name. `name` points at a static string:
 * "All", "Info", "Warning", "Severe", "Off", or "Unknown log level" for any
 * other value. Comparisons look at `value` only (signed), never the name.
 */
class KT_API Level {
public:
    /* Fixed to int so that every 32-bit value is a valid level. */
    enum Enum : int { All = 0, Info = 64, Warning = 127, Severe = 192, Off = 255 };

    /* Any 32-bit value may be cast to Enum; unlisted values are legal and
       get the name "Unknown log level". */
    Level(Enum value);
    Level(const Level& other);
    Level& operator=(const Level& other);
    /* Same as assignment: copies the name and the value. */
    void copy(const Level& other);

    /* The static display name; never null, never to be freed. */
    const char* getName() const;

    bool operator==(const Level& other) const;
    bool operator<(const Level& other) const;
    bool operator>(const Level& other) const;
    bool operator<=(const Level& other) const;
    bool operator>=(const Level& other) const;

    const char* name;
    Enum value;
};

/* ---- Object output ----------------------------------------------------- */

class ObjectOutput;

/*
 * A message object: it writes itself through an ObjectOutput, including
 * any separators and any trailing newline it wants.
 */
class KT_API Externalizable {
public:
    virtual ~Externalizable();
    virtual void writeExternal(ObjectOutput& out) const = 0;
};

/* The typed write operations, in this slot order after the destructor:
   bool, the signed then the unsigned integers (8 to 64 bits), float,
   double, C string, bytes. See ObjectOutputStream for the text each
   produces there. */
class KT_API DataOutput {
public:
    virtual ~DataOutput();
    virtual void write_bool(bool value) = 0;
    virtual void write_int8_t(signed char value) = 0;
    virtual void write_uint8_t(unsigned char value) = 0;
    virtual void write_int16_t(short value) = 0;
    virtual void write_int32_t(int value) = 0;
    virtual void write_int64_t(long value) = 0;
    virtual void write_uint16_t(unsigned short value) = 0;
    virtual void write_uint32_t(unsigned int value) = 0;
    virtual void write_uint64_t(unsigned long value) = 0;
    virtual void write_float(float value) = 0;
    virtual void write_double(double value) = 0;
    virtual void write_c_str(const char* text) = 0;
    virtual void write_bytes(unsigned char* data, unsigned long offset,
                             unsigned long length) = 0;
};

/* DataOutput plus nested objects. */
class KT_API ObjectOutput : public DataOutput {
public:
    ~ObjectOutput() override;
    virtual void writeObject(const Externalizable& object) = 0;
};

/*
 * Writes every value as text to a std::ostream, with no separators:
 *   write_bool             the stream's bool insertion ("0"/"1", or
 *                          "false"/"true" if the stream is set boolalpha)
 *   write_int8_t/uint8_t   the single character itself
 *   other integers         decimal text by the stream's integer insertion
 *   write_float            widened to double, then as write_double
 *   write_double           the stream's double insertion (so 0.5 -> "0.5")
 *   write_c_str            the characters up to the NUL; a null pointer
 *                          sets badbit on the stream and writes nothing
 *   write_bytes            nothing at all (deliberately empty)
 *   writeObject            object.writeExternal(*this)
 * The stream is borrowed and must outlive this object. Stream formatting
 * flags (precision, boolalpha, width) apply as set by the caller.
 */
class KT_API ObjectOutputStream : public ObjectOutput {
public:
    explicit ObjectOutputStream(std::ostream& stream);
    ~ObjectOutputStream() override;
    ObjectOutputStream(const ObjectOutputStream&) = delete;
    ObjectOutputStream& operator=(const ObjectOutputStream&) = delete;

    void write_bool(bool value) override;
    void write_int8_t(signed char value) override;
    void write_uint8_t(unsigned char value) override;
    void write_int16_t(short value) override;
    void write_int32_t(int value) override;
    void write_int64_t(long value) override;
    void write_uint16_t(unsigned short value) override;
    void write_uint32_t(unsigned int value) override;
    void write_uint64_t(unsigned long value) override;
    void write_float(float value) override;
    void write_double(double value) override;
    void write_c_str(const char* text) override;
    void write_bytes(unsigned char* data, unsigned long offset,
                     unsigned long length) override;
    void writeObject(const Externalizable& object) override;

private:
    std::ostream& stream_;
};

/* ---- Exception classes -------------------------------------------------- */

/*
 * SimpleException: an exception that carries an identifier and a UTF-16
 * message set by the thrower. Caught as IUserException or std::exception;
 * what() is the message in UTF-8 (unpaired surrogates become U+FFFD).
 * clone returns a heap copy the caller deletes; rethrow throws a copy as
 * SimpleException. Copying may throw std::bad_alloc.
 */
class KT_API SimpleException
    : public bedrock::core::except::Exception<bedrock::core::except::IUserException,
                                              std::exception> {
public:
    SimpleException();
    SimpleException(const std::string& id, const cx::ustring& message);
    SimpleException(const SimpleException& other);
    SimpleException& operator=(const SimpleException& other);
    ~SimpleException() override;

    SimpleException* clone() const override;
    void rethrow() const override;
    const char* what() const noexcept override;
    std::string GetID() const override;
    cx::ustring GetUnicodeMessageTxt() const override;

    void SetID(const std::string& id);
    void SetMessageTxt(const cx::ustring& message);

private:
    std::string id_;
    cx::ustring message_;
    std::string what_;  /* message_ in UTF-8, kept for what() */
};

/*
 * The deprecated exception classes. Each is a message object
 * (Externalizable, so it can be reported through a logger) whose text is
 * the message it was built with: writeLocalizedMsg and writeExternal write
 * exactly that text (no newline added); what() returns it. New code throws
 * the bedrock::core::except interfaces instead.
 *
 *   Throwable_DEPRECATED            the root; not an IException
 *   InternalException_DEPRECATED    also an IInternalException
 *   UserException_DEPRECATED        also an IUserException
 *   UserErrorException_DEPRECATED   a UserException_DEPRECATED
 *   ktErrorException_DEPRECATED     a UserException_DEPRECATED carrying the
 *                                   message code and identifier of an error
 *                                   raised through an error context
 *
 * clone returns a heap copy of the dynamic type (the caller deletes it);
 * rethrow throws a copy as the dynamic type. Copying may throw
 * std::bad_alloc.
 */
class KT_API Throwable_DEPRECATED : public Externalizable {
public:
    Throwable_DEPRECATED();
    explicit Throwable_DEPRECATED(const std::string& message);
    Throwable_DEPRECATED(const Throwable_DEPRECATED& other);
    Throwable_DEPRECATED& operator=(const Throwable_DEPRECATED& other);
    ~Throwable_DEPRECATED() override;

    void writeExternal(ObjectOutput& out) const override;
    virtual void writeLocalizedMsg(ObjectOutputStream& out) const;
    virtual Throwable_DEPRECATED* clone() const;
    virtual void rethrow() const;
    virtual const char* what() const noexcept;

protected:
    std::string message_;
};

class KT_API InternalException_DEPRECATED
    : public Throwable_DEPRECATED, public bedrock::core::except::IInternalException {
public:
    InternalException_DEPRECATED();
    explicit InternalException_DEPRECATED(const std::string& message);
    InternalException_DEPRECATED(const InternalException_DEPRECATED& other);
    ~InternalException_DEPRECATED() override;

    void writeLocalizedMsg(ObjectOutputStream& out) const override;
    InternalException_DEPRECATED* clone() const override;
    void rethrow() const override;
    const char* what() const noexcept override;
};

class KT_API UserException_DEPRECATED
    : public Throwable_DEPRECATED, public bedrock::core::except::IUserException {
public:
    UserException_DEPRECATED();
    explicit UserException_DEPRECATED(const std::string& message);
    UserException_DEPRECATED(const UserException_DEPRECATED& other);
    ~UserException_DEPRECATED() override;

    void writeLocalizedMsg(ObjectOutputStream& out) const override;
    UserException_DEPRECATED* clone() const override;
    void rethrow() const override;
    const char* what() const noexcept override;
};

class KT_API UserErrorException_DEPRECATED : public UserException_DEPRECATED {
public:
    UserErrorException_DEPRECATED();
    explicit UserErrorException_DEPRECATED(const std::string& message);
    UserErrorException_DEPRECATED(const UserErrorException_DEPRECATED& other);
    ~UserErrorException_DEPRECATED() override;

    void writeLocalizedMsg(ObjectOutputStream& out) const override;
    UserErrorException_DEPRECATED* clone() const override;
    void rethrow() const override;
};

/* GetID returns the identifier ("ZENTRA:" plus the mnemonic); getCode the
   message code (module in the upper 16 bits). */
class KT_API ktErrorException_DEPRECATED : public UserException_DEPRECATED {
public:
    ktErrorException_DEPRECATED();
    ktErrorException_DEPRECATED(int code, const std::string& id, const std::string& message);
    ktErrorException_DEPRECATED(const ktErrorException_DEPRECATED& other);
    ~ktErrorException_DEPRECATED() override;

    void writeLocalizedMsg(ObjectOutputStream& out) const override;
    ktErrorException_DEPRECATED* clone() const override;
    void rethrow() const override;
    std::string GetID() const override;
    int getCode() const;

private:
    int code_;
    std::string id_;
};

/* ---- Filters and formatters ---------------------------------------------- */

/* Decides whether a message may pass a logger or a handler. Loggers and
   handlers keep only the address: the filter must outlive them. */
class KT_API Filter {
public:
    virtual ~Filter();
    virtual bool isLoggable(const Level& level, const Externalizable& object) const = 0;
};

/* Turns a message object into text. */
class KT_API Formatter {
public:
    virtual ~Formatter();
    virtual std::string format(const Externalizable& object) const = 0;
};

/* The text an ObjectOutputStream over a string stream collects from
   object.writeExternal, nothing added. */
class KT_API SimpleFormatter : public Formatter {
public:
    SimpleFormatter();
    ~SimpleFormatter() override;
    std::string format(const Externalizable& object) const override;
};

/* ---- Handlers -------------------------------------------------------------- */

/*
 * Receives messages from a logger. publish() goes straight to the virtual
 * _publish, where each handler checks isLoggable, composes
 * "<level name>:\n<formatter text>" and emits it.
 *
 * A new handler has no formatter, no filter and level All. The handler owns
 * the formatter it holds: setFormatter takes ownership of the new one and
 * destroys the previous one; the destructor destroys the current one. A
 * handler without a formatter formats as SimpleFormatter does.
 */
class KT_API Handler {
public:
    Handler();
    virtual ~Handler();
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;

    void publish(const Level& level, const Externalizable& object);

    /* The formatter used to compose text; null means SimpleFormatter. */
    Formatter* getFormatter() const;
    /* Uses `formatter` (may be null) from now on. The handler owns only
       the formatter that configure() installed: that one is deleted when
       it is replaced or the handler is destroyed. A formatter given here
       stays the caller's and must outlive its use by the handler. Not
       thread-safe against concurrent publishing on the same handler. */
    void setFormatter(Formatter* formatter);
    /* Null when no filter was set. */
    const Filter* getFilter() const;
    void setFilter(const Filter& filter);
    Level getLevel() const;
    void setLevel(const Level& level);

    /* False if the handler's level is above `level` or is Off (255, which
       so also stops a message at Off); else true without a filter, else the
       filter's answer. */
    bool isLoggable(const Level& level, const Externalizable& object) const;

protected:
    virtual void _publish(const Level& level, const Externalizable& object) = 0;

    Formatter* formatter_;
    const Filter* filter_;
    Level level_;
};

/* Composes the text and discards it: there is no system event log on this
   platform (deliberate). The system logger's first handler. */
class KT_API BasicSystemHandler : public Handler {
public:
    BasicSystemHandler();
    ~BasicSystemHandler() override;

protected:
    void _publish(const Level& level, const Externalizable& object) override;
};

/* Emits through DebuggerOutputString, i.e. to standard error with the
   composed text used as the printf format. */
class KT_API DebugOutputHandler : public Handler {
public:
    DebugOutputHandler();
    ~DebugOutputHandler() override;

protected:
    void _publish(const Level& level, const Externalizable& object) override;
};

/*
 * Emits through the console output hook with ktPrintf, the composed text
 * being the format string itself: a "%" in a message is interpreted as a
 * conversion (established behaviour; write "%%" for a percent sign). The
 * constructor calls configure(). The system logger's second handler.
 */
class KT_API TerminalHandler : public Handler {
public:
    TerminalHandler();
    ~TerminalHandler() override;
    /* Installs a new SimpleFormatter (destroying the previous formatter)
       and sets the level to All. */
    void configure();
    /* Does nothing. */
    void close();

protected:
    void _publish(const Level& level, const Externalizable& object) override;
};

/* A handler whose destination is the virtual _output(text). */
class KT_API StreamHandler : public Handler {
public:
    StreamHandler();
    ~StreamHandler() override;

protected:
    void _publish(const Level& level, const Externalizable& object) override;
    virtual void _output(const std::string& text) = 0;
};

/*
 * Inserts the composed text into a std::ostream it borrows (it must
 * outlive the handler; a null stream makes the handler emit nothing).
 * The constructor calls configure().
 */
class KT_API OutputStreamHandler : public StreamHandler {
public:
    explicit OutputStreamHandler(std::ostream* stream);
    ~OutputStreamHandler() override;
    /* Installs a new SimpleFormatter and sets the level to All. */
    void configure();
    /* Does nothing; the stream stays the caller's. */
    void close();

protected:
    void _output(const std::string& text) override;

private:
    std::ostream* stream_;
};

/* ---- Loggers --------------------------------------------------------------- */

/*
 * Fields in order: the handlers (in the order added), the filter (null
 * when none) and the threshold. The logger owns its handlers and destroys
 * those still in its list when it is destroyed (each once, even if listed
 * twice); it never owns the filter.
 * A logger built by a caller starts with no handlers, no filter and
 * threshold All.
 */
class KT_API Logger {
public:
    Logger();
    ~Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    /*
     * The process's system logger, built on first use (threshold Warning,
     * a BasicSystemHandler then a TerminalHandler) and destroyed at process
     * end. `name` is ignored: every name, null included, gives the same
     * logger (established behaviour). Thread-safe; may throw std::bad_alloc
     * on the first call.
     */
    static Logger& getLogger(const char* name);

    /* Appends `handler` (null is ignored); the logger takes ownership.
       Adding the same handler twice makes two entries, and it is published
       to twice. May throw std::bad_alloc (the caller then keeps it). */
    void addHandler(Handler* handler);
    /* Removes every entry equal to `handler`; it is not destroyed and
       belongs to the caller again. */
    void removeHandler(Handler* handler);

    void setFilter(const Filter& filter);
    const Filter* getFilter() const;
    void setLevel(const Level& level);
    Level getLevel() const;

    /* False if the threshold is above `level` or is Off (255, so a message
       at Off does not pass a logger set to Off); true otherwise. */
    bool isLoggable(const Level& level) const;

    /* Passes (level, object) to each handler's publish in list order, when
       isLoggable(level) holds and the filter, if any, agrees. */
    void log(const Level& level, const Externalizable& object);

protected:
    std::list<Handler*> handlers_;
    const Filter* filter_;
    Level level_;
};

/* ---- Reports ------------------------------------------------------------- */

/* logger.log(level, object). The overloads without a logger use
   Logger::getLogger(nullptr). */
KT_API void report(Logger& logger, const Externalizable& object, const Level& level);
KT_API void report(const Externalizable& object, const Level& level);

/* Reports `text` as it stands (no newline added) through a temporary
   message object that lives for the call. */
KT_API void reports(Logger& logger, const std::string& text, const Level& level);
KT_API void reports(const std::string& text, const Level& level);
/* As above; a null `text` throws std::logic_error("basic_string:
   construction from null is not valid") and reports nothing. */
KT_API void reports(Logger& logger, const char* text, const Level& level);
KT_API void reports(const char* text, const Level& level);

/*
 * Formats into a 1024-byte buffer with ktVSNprintf (kt/output.h) and
 * reports the buffer: text longer than 1023 bytes is reported cut, as
 * ktVSNprintf leaves it; if ktVSNprintf returns -1 nothing is reported.
 * A null format throws std::logic_error and reports nothing.
 */
KT_API void vreportsf(Logger& logger, const Level& level, const char* format, va_list args)
    __attribute__((format(printf, 3, 0)));
KT_API void vreportsf(const Level& level, const char* format, va_list args)
    __attribute__((format(printf, 2, 0)));
KT_API void reportsf(Logger& logger, const Level& level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
KT_API void reportsf(const Level& level, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
/* At level Warning (127). */
KT_API void reportsf(Logger& logger, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
KT_API void reportsf(const char* format, ...) __attribute__((format(printf, 1, 2)));

/* ---- Process information ------------------------------------------------- */

/* The process identifier (getpid). Async-signal-safe. */
KT_API int CurrentProcessId();

/*
 * Returns 0 and writes nothing to `buffer` on this platform (a deliberate
 * stub): callers treat 0 as "no name" and must have initialised the buffer
 * themselves.
 */
KT_API int CurrentExecutableName(char* buffer, size_t size);

/*
 * fprintf(stderr, text): the text is the format itself, so "%" starts a
 * conversion (established behaviour). A null text writes nothing.
 */
KT_API void DebuggerOutputString(const char* text);

}  // namespace System
}  // namespace Quivera

#endif /* __cplusplus */

#endif /* KT_LOGGING_H */
