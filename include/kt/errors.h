/*
 * kt/errors.h -- error context, raising and catching, process ending,
 *                and the product's exception interfaces
 *
 * The procedural families report errors by raising a numbered message
 * (kt/messages.h) through an error context. A raise never returns: it
 * unwinds to the innermost kt_try_catch frame whose catch function accepts
 * it, or it is printed, handed to the error handler, and ends the process
 * (Quivera::System::fatal).
 *
 *     static void body(kt_error_context* ec, void* data) {
 *         ... kt_error(ec, KT_OUT_OF_MEMORY); ...
 *     }
 *     static int accept(kt_error_context* ec, void* d, int code, va_list a) {
 *         return 1;                      // nonzero: this frame takes it
 *     }
 *     int code = kt_try_catch(ec, data, body, accept);   // 0 or the code
 *
 * Frames live on the stack of kt_try_catch and are chained through the
 * error context, which belongs to one thread at a time (no locking). An
 * error raised inside a catch function is offered only to outer frames.
 * Exceptions other than the library's own unwinding are swallowed at the
 * kt_try_catch boundary (it then returns 0).
 *
 * Raised errors carry an identifier: "ZENTRA:" and the message mnemonic.
 *
 * In C++ this header also declares cx::ustring (UTF-16 text) and the
 * bedrock::core::except interfaces from which every exception the library
 * throws derives: IUserException (errors the user caused, such as running
 * out of memory) and IInternalException (faults of the program).
 */
#ifndef KT_ERRORS_H
#define KT_ERRORS_H

#include <stdarg.h>
#include <stdbool.h>

#include "kt/export.h"
#include "kt/messages.h"
#include "kt/output.h"

typedef struct _error_context kt_error_context;
struct try_catch_link;

/* The body run by kt_try_catch. */
typedef void (*kt_try_body_function)(kt_error_context* context, void* data);
/* Catch functions: nonzero accepts the error for this frame. `args` are
   the raise's arguments (a copy the function may consume). */
typedef int (*kt_catch_function)(kt_error_context* context, void* data, int code, va_list args);
typedef int (*kt_catch_id_function)(kt_error_context* context, void* data,
                                    const char* identifier, int code, va_list args);
/* Whether printed errors are wanted now. */
typedef bool (*kt_error_output_query)(void);
/* Called for an error no frame accepted, after it has been printed. */
typedef void (*kt_error_handler_function)(void* data, const char* identifier, int code);

/* The error context record; callers embed it in their basic contexts. */
struct _error_context {
    struct try_catch_link* top;          /* innermost frame, null when none */
    kt_message_context* messageContext;  /* prints and identifies messages */
    kt_putsn_function output;            /* receives printed errors */
    void* outputData;
    kt_error_output_query outputQuery;   /* initially: ktPrintfIsHot(); kept for
                                            hosts, the library does not ask it */
    kt_error_handler_function handler;   /* initially kt_error_exit_function */
    void* handlerData;                   /* initially null */
};

/* A catch frame, on the stack of kt_try_catch. */
struct try_catch_link {
    kt_error_context* context;
    void* data;
    kt_catch_function catchFunction;     /* plain form, or null */
    kt_catch_id_function catchIdFunction;/* identifier form, or null */
    struct try_catch_link* previous;
    unsigned char running;               /* set while its catch function runs */
};

/* Module-1 messages (the error context's own table). */
#define KT_ERR_RETHROW 0x10001
#define KT_ERR_SIGNAL_INTERRUPT 0x10002
#define KT_ERR_VALUE_OVERFLOW_TYPE 0x10003
#define KT_ERR_UNSUPPORTED_FP_FMT 0x10004
#define KT_ERR_FATAL 0x10005

#if defined(__cplusplus) && !defined(KT_NORETURN)
#define KT_NORETURN [[noreturn]]
#elif !defined(KT_NORETURN)
#define KT_NORETURN _Noreturn
#endif

KT_EXTERN_C_BEGIN

/*
 * Fills the record (no frame, the given message context and output pair,
 * the default output query and handler) and registers the module-1 table.
 * Returns kt_add_primary_message_table's result (0 on success).
 */
KT_API int kt_initialize_error_context(int* status, kt_error_context* context,
                                       kt_message_context* messageContext,
                                       kt_putsn_function output, void* outputData);

/* Replaces the error handler and its data (null handler: none is called). */
KT_API void kt_register_error_handler(kt_error_context* context,
                                      kt_error_handler_function handler, void* data);

/*
 * Runs body(context, data) under a new frame. Returns 0 when the body
 * completes (or throws a foreign exception, which is swallowed), or the
 * code of the error this frame's catch function accepted. The previous
 * top frame is restored on every way out.
 */
KT_API int kt_try_catch(kt_error_context* context, void* data, kt_try_body_function body,
                        kt_catch_function catchFunction);
/* The same with an identifier-form catch function. */
KT_API int kt_try_catch_id(kt_error_context* context, void* data, kt_try_body_function body,
                           kt_catch_id_function catchFunction);

/*
 * Raise message `code` with its arguments: offered to the frames innermost
 * first (skipping one whose catch function is running); if none accepts,
 * printed through the output function, handed to the handler, and the
 * process ends with Quivera::System::fatal. Never returns. The identifier
 * forms take it ready-made; a null identifier throws std::logic_error
 * (a programming error; the frame chain stays intact).
 */
KT_NORETURN KT_API void kt_error(kt_error_context* context, int code, ...);
KT_NORETURN KT_API void kt_verror(kt_error_context* context, int code, va_list args);
KT_NORETURN KT_API void kt_error_id(kt_error_context* context, const char* identifier,
                                    int code, ...);
KT_NORETURN KT_API void kt_verror_id(kt_error_context* context, const char* identifier,
                                     int code, va_list args);

/* Only prints: the message through the output function, then "\n". */
KT_API void kt_error_print(kt_error_context* context, int code, ...);
KT_API void kt_verror_print(kt_error_context* context, int code, va_list args);

/* The default error handler: calls Quivera::System::fatal. */
KT_NORETURN KT_API void kt_error_exit_function(void* data, const char* identifier, int code);

KT_EXTERN_C_END

#ifdef __cplusplus

#include <exception>
#include <new>
#include <string>

/* ---- process ending ---------------------------------------------------- */

namespace Quivera {
namespace System {

/*
 * Each reports on the system logger at level Severe (192) the caller's text
 * followed by "The program '[pid] name: Native' has exited with code N
 * (0xN)." and a newline, then exits with `status` (the name is empty on
 * this platform). The caller's conversions in `format` are filled by its
 * arguments. panics reports "text\n". fatal reports with status 2 and an
 * empty text, then aborts. Not async-signal-safe.
 */
[[noreturn]] KT_API void panic(int status);
[[noreturn]] KT_API void panics(int status, const char* text);
[[noreturn]] KT_API void panicsf(int status, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
[[noreturn]] KT_API void fatal();

}  // namespace System
}  // namespace Quivera

/* ---- UTF-16 text -------------------------------------------------------- */

namespace cx {
/* Text inside the product: UTF-16. */
typedef std::u16string ustring;
}  // namespace cx

/* ---- exception interfaces ----------------------------------------------- */

namespace bedrock {
namespace core {
namespace except {

/*
 * The common root of the two interfaces. Virtual operations in slot order:
 * clone, rethrow, the destructor, what, the two convert_str helpers,
 * ToUstringImpl, GetID, GetUnicodeMessageTxt. Derived classes keep this
 * order (their own virtuals follow).
 */
class KT_API IException {
public:
    /* A heap copy of the exception (the caller deletes it). */
    virtual IException* clone() const = 0;
    /* Throws a copy of the object as its own dynamic type. */
    virtual void rethrow() const = 0;
    virtual ~IException();
    virtual const char* what() const noexcept = 0;
    /* Helpers for ToUstringImpl: the text as UTF-16 (narrow is UTF-8). */
    virtual cx::ustring convert_str(const cx::ustring& text) const;
    virtual cx::ustring convert_str(const std::string& text) const;
    /* The description as UTF-16; by default what() converted. */
    virtual cx::ustring ToUstringImpl() const;
    /* The message identifier; by default empty. */
    virtual std::string GetID() const;
    /* The user-facing message; by default ToUstringImpl(). */
    virtual cx::ustring GetUnicodeMessageTxt() const;

protected:
    IException() = default;
    IException(const IException&) = default;
    IException& operator=(const IException&) = default;
};

/* Errors the user caused (bad input, exhausted resources). */
class KT_API IUserException : public IException {
public:
    ~IUserException() override;
};

/* Faults of the program itself. */
class KT_API IInternalException : public IException {
public:
    ~IInternalException() override;
};

/*
 * Joins an interface with a standard exception base, so that a handler for
 * either catches it; what() answers through the base. clone and rethrow
 * remain for the concrete class.
 */
template <class Interface, class Base>
class KT_API Exception : public Interface, public Base {
public:
    using Base::Base;
    Exception() = default;
    explicit Exception(const Base& base) : Base(base) {}
    Exception(const Exception&) = default;
    ~Exception() override {}
    const char* what() const noexcept override { return Base::what(); }
};

namespace detail {
/* The core library's bad-allocation exception: a std::bad_alloc. */
class KT_API bad_alloc_impl : public std::bad_alloc {
public:
    bad_alloc_impl() noexcept;
    bad_alloc_impl(const bad_alloc_impl&) noexcept;
    ~bad_alloc_impl() override;
};
}  // namespace detail

/* Makes the bad-allocation exception that ktVprintf and ktPutsn throw. */
KT_API detail::bad_alloc_impl bad_alloc();

}  // namespace except
}  // namespace core
}  // namespace bedrock

namespace util {
namespace detail {

/*
 * The out-of-memory exception of the throwing allocators (ktMallocWithCheck
 * ...). Caught as IUserException or as std::bad_alloc. GetID is
 * "ZENTRA:nomem"; GetUnicodeMessageTxt is the catalogue text of key "nomem"
 * in "bedrock_legacy:messages".
 */
class KT_API legacy_bad_alloc_impl
    : public bedrock::core::except::Exception<bedrock::core::except::IUserException,
                                              bedrock::core::except::detail::bad_alloc_impl> {
public:
    legacy_bad_alloc_impl();
    explicit legacy_bad_alloc_impl(const bedrock::core::except::detail::bad_alloc_impl& base);
    legacy_bad_alloc_impl(const legacy_bad_alloc_impl& other);
    ~legacy_bad_alloc_impl() override;
    legacy_bad_alloc_impl* clone() const override;
    void rethrow() const override;
    std::string GetID() const override;
    cx::ustring GetUnicodeMessageTxt() const override;
};

}  // namespace detail
}  // namespace util

namespace bedrock {
namespace core {
namespace except {
namespace detail {
/* Builds the out-of-memory exception from a bad_alloc_impl. */
KT_API util::detail::legacy_bad_alloc_impl legacy(const bad_alloc_impl& base);
}  // namespace detail
}  // namespace except
}  // namespace core
}  // namespace bedrock

#endif /* __cplusplus */

#endif /* KT_ERRORS_H */
