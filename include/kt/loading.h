/*
 * kt/loading.h -- loading shared libraries, symbol lookup, and the
 *                 exceptions that name why a library did not load
 *
 * Every load, lookup and unload of another shared library goes through the
 * functions below. They choose the loader mode, report the outcome through
 * an int status the caller passes by pointer (0 success, 1 failure; no
 * other value is ever written), and keep the loader's text of the last
 * failure in a record of the calling thread:
 *
 *     int status;
 *     void* lib = ktLoadLibrary("/opt/plugins/libfoo.so", &status);
 *     if (status != 0)
 *         fprintf(stderr, "cannot load: %s\n", ktLastLibraryError());
 *     void* f = ktFindSymbolInLibrary(lib, "foo_init");
 *     ...
 *     ktUnloadLibrary(lib);
 *
 * In C++ each load function also takes a UTF-16 path (cx::ustring), and two
 * forms throw instead of returning a status: ktLoadLibraryWithDiagnosticMsg
 * and ktLoadLibraryWithLocalSymbolVisibilityAndDiagnosticMsg find out WHY
 * the load failed (not an ELF file, the wrong architecture, which
 * dependency is missing and through which chain it is needed, which symbols
 * no loaded library defines) and throw the exception class that names the
 * cause:
 *
 *     try {
 *         void* lib = ktLoadLibraryWithDiagnosticMsg(u"/opt/plugins/libfoo.so");
 *     } catch (const LoadLibraryExceptionBase& e) {
 *         std::cerr << e.what();   // names the library, the chains, the symbols
 *     }
 *
 * Paths. The narrow (const char*) forms take the path in the calling
 * thread's code page (kt/encodings.h) and convert it to UTF-16; the UTF-16
 * forms hand it to the loader in UTF-8. An empty path loads the main
 * program. A path without "/" is searched for by the loader as usual.
 *
 * Loader modes are glibc's: RTLD_LAZY 1, RTLD_NOW 2, RTLD_NOLOAD 4,
 * RTLD_DEEPBIND 8, RTLD_GLOBAL 0x100.
 *
 * The loader fault. When a load fails, the load is retried with
 * RTLD_NOLOAD. If that finds the library, the loader has kept a partly
 * registered object although the load failed: the function still returns
 * null with status 1, the last error becomes the catalogue message
 * "glibcFailedLoadBug" (which carries the first loader text), and the
 * reference the retry took is deliberately never released (closing it
 * could unmap code the loader still refers to).
 *
 * Threads. Any thread may call any function; each thread has its own last
 * error, so concurrent loads never see each other's errors. Handles belong
 * to the caller; nothing here keeps a table of loaded libraries.
 *
 * Tracing. Calls are traced on the diagnostic channel "util::dynload"
 * (kt/diagnostics.h: flags 2 parameters, 4 the per-thread error, 8 entry,
 * 16 retries, 64 exit, 128 results, 512 the loader's text); the diagnosis
 * traces on "util::posix".
 */
#ifndef KT_LOADING_H
#define KT_LOADING_H

#include "kt/export.h"
#include "kt/utf16.h"

KT_EXTERN_C_BEGIN

/*
 * Load the library at `path` (the thread's code page) and return the
 * loader's handle, or null. Each writes 0 or 1 to *errorStatus (a null
 * pointer is allowed: the status is then not reported) and leaves this
 * thread's last error describing the load: empty after success, the
 * loader's text after a failure. A path the code-page converter cannot take
 * (it throws) fails with the converter's text as the last error; no
 * exception leaves these functions.
 *
 *   ktLoadLibrary                           RTLD_NOW | RTLD_GLOBAL (0x102)
 *   ktGetModule                             0x102: loads the library when it
 *                                           is not loaded yet, exactly like
 *                                           ktLoadLibrary (kept so on purpose;
 *                                           only its trace name differs)
 *   ktLoadLibraryAndAddGlobalSymbols        0x102
 *   ktLoadLibraryUnresolved                 RTLD_LAZY (1): symbols bound on
 *                                           first use, not made global
 *   ktLoadLibraryWithLocalSymbolVisibility  RTLD_NOW (2): not made global
 *
 * After a failure the returned handle is always null, even when the loader
 * fault above was met.
 */
KT_API void* ktLoadLibrary(const char* path, int* errorStatus);
KT_API void* ktGetModule(const char* path, int* errorStatus);
KT_API void* ktLoadLibraryAndAddGlobalSymbols(const char* path, int* errorStatus);
KT_API void* ktLoadLibraryUnresolved(const char* path, int* errorStatus);
KT_API void* ktLoadLibraryWithLocalSymbolVisibility(const char* path, int* errorStatus);

/*
 * The same with the caller's own loader `mode`, passed to dlopen unchanged.
 * Note the order: the mode comes BEFORE the status pointer.
 */
KT_API void* ktLoadLibraryWithCustomSymbolVisibility(const char* path, int mode,
                                                     int* errorStatus);

/*
 * dlsym(handle, name); `name` must not be null. Afterwards this thread's last error is empty when the
 * loader found the symbol and holds the loader's text when not. A symbol
 * whose value is null is returned as null too: read ktLastLibraryError to
 * tell the two apart.
 */
KT_API void* ktFindSymbolInLibrary(void* handle, const char* name);

/*
 * dlclose(handle): 0 on success; otherwise the loader's non-zero result
 * unchanged, with the loader's text as this thread's last error.
 */
KT_API int ktUnloadLibrary(void* handle);

/*
 * This thread's last load, lookup or unload error: in the thread's code
 * page, or as NUL-terminated UTF-16. Empty after a success (and before any
 * call); "Unknown error" when the loader's text could not be converted. The
 * loaders sometimes fail without any text (dlerror() gives none): the
 * record is then empty although the status said 1. The result belongs to
 * the library and stays valid until this thread's next call of this
 * header; it is never null.
 */
KT_API const char* ktLastLibraryError(void);
KT_API const kt_utf16* ktLastLibraryError_u(void);

KT_EXTERN_C_END

#ifdef __cplusplus

#include <string>
#include <utility>
#include <vector>

#include "kt/errors.h"

/* The UTF-16 forms of the loads above: same modes, same results. */
KT_API void* ktLoadLibrary(const cx::ustring& path, int* errorStatus);
KT_API void* ktGetModule(const cx::ustring& path, int* errorStatus);
KT_API void* ktLoadLibraryAndAddGlobalSymbols(const cx::ustring& path, int* errorStatus);
KT_API void* ktLoadLibraryUnresolved(const cx::ustring& path, int* errorStatus);
KT_API void* ktLoadLibraryWithLocalSymbolVisibility(const cx::ustring& path, int* errorStatus);
KT_API void* ktLoadLibraryWithCustomSymbolVisibility(const cx::ustring& path, int mode,
                                                     int* errorStatus);

/*
 * Load as ktLoadLibrary (resp. ktLoadLibraryWithLocalSymbolVisibility) and
 * return the handle; when the load fails, diagnose it and throw the
 * LoadLibraryExceptionBase subclass that names the cause (below). The
 * diagnosis runs the system's object-file tools (file, nm or objdump,
 * ldconfig) through /bin/sh, so it takes tens of milliseconds per library
 * in the dependency tree; the path only ever reaches the shell quoted, and
 * its temporary files are removed whatever fails.
 */
KT_API void* ktLoadLibraryWithDiagnosticMsg(const cx::ustring& path);
KT_API void* ktLoadLibraryWithLocalSymbolVisibilityAndDiagnosticMsg(const cx::ustring& path);

/* The path of the loaded object that holds `address` as the loader gives it;
   empty when no object holds it. */
KT_API std::string ktModuleNameFromAddress(void* address);

/*
 * The name of the function that starts exactly at `address`, demangled, and
 * in `module` the file name (after the last "/") of the object holding it.
 * An address inside a function, or one no symbol names, gives an empty
 * name -- or "UnknownFunctionDueToVariantBuild" while a memory or
 * performance instrumentation tool runs (their symbol tables are not to be
 * trusted). `module` is left unchanged when no object holds the address.
 */
KT_API std::string ktSymbolNameFromAddress(void* address, std::string& module);

/*
 * The load-failure exceptions. All derive from LoadLibraryExceptionBase,
 * itself a bedrock::core::except::IInternalException (not a
 * std::exception). Each carries the library name as given, the loader's
 * text, and -- where they apply -- the dependency chains and the missing
 * symbols:
 *
 *   InvalidLibrary              the file is not an ELF object
 *   ArchMismatch                an ELF file, but not 64-bit
 *   MissingDependency           a library needed directly or indirectly is
 *                               found in none of the places the loader looks
 *   MissingSymbol               every library is found, but undefined
 *                               symbols are defined by none of them
 *   MissingDependencyAndSymbol  both
 *   LoadLibraryUnknown          the path cannot be made canonical, or
 *                               nothing wrong was found
 *
 * A chain lists library names from the library being loaded down to the
 * missing one (for a symbol: down to the library that needs it). what() is
 * the message in UTF-8 and ToUstringImpl() the same in UTF-16; it names the
 * library, every chain ("libA.so -> libB.so -> libC.so (not found)"), every
 * missing symbol with the library that needs it, and the loader's text.
 */
class KT_API LoadLibraryExceptionBase : public bedrock::core::except::IInternalException {
public:
    typedef std::vector<cx::ustring> Chain;
    typedef std::vector<Chain> DependencyChains;
    typedef std::vector<std::pair<std::string, Chain> > MissingSymbols;

    LoadLibraryExceptionBase(const LoadLibraryExceptionBase& other);
    /* Virtual operations in slot order: clone, rethrow, the destructor,
       what, then those of IInternalException. */
    LoadLibraryExceptionBase* clone() const override = 0;
    void rethrow() const override = 0;
    ~LoadLibraryExceptionBase() override;
    const char* what() const noexcept override;
    cx::ustring ToUstringImpl() const override;

    const cx::ustring& libraryName() const { return libname_; }
    const cx::ustring& loaderText() const { return loaderText_; }
    const DependencyChains& dependencyChains() const { return chains_; }
    const MissingSymbols& missingSymbols() const { return symbols_; }

protected:
    /* `cause` is one line of UTF-8 after the library's name. */
    LoadLibraryExceptionBase(const cx::ustring& library, const cx::ustring& loaderText,
                             const DependencyChains& chains, const MissingSymbols& symbols,
                             const char* cause);

private:
    cx::ustring libname_;
    cx::ustring loaderText_;
    DependencyChains chains_;
    MissingSymbols symbols_;
    cx::ustring message_;
    std::string what_;
};

class KT_API InvalidLibrary : public LoadLibraryExceptionBase {
public:
    InvalidLibrary(const cx::ustring& library, const cx::ustring& loaderText);
    ~InvalidLibrary() override;
    InvalidLibrary* clone() const override;
    void rethrow() const override;
};

class KT_API ArchMismatch : public LoadLibraryExceptionBase {
public:
    ArchMismatch(const cx::ustring& library, const cx::ustring& loaderText);
    ~ArchMismatch() override;
    ArchMismatch* clone() const override;
    void rethrow() const override;
};

class KT_API MissingDependency : public LoadLibraryExceptionBase {
public:
    MissingDependency(const cx::ustring& library, const cx::ustring& loaderText,
                      const DependencyChains& chains);
    ~MissingDependency() override;
    MissingDependency* clone() const override;
    void rethrow() const override;
};

class KT_API MissingSymbol : public LoadLibraryExceptionBase {
public:
    MissingSymbol(const cx::ustring& library, const cx::ustring& loaderText,
                  const MissingSymbols& symbols);
    ~MissingSymbol() override;
    MissingSymbol* clone() const override;
    void rethrow() const override;
};

class KT_API MissingDependencyAndSymbol : public LoadLibraryExceptionBase {
public:
    MissingDependencyAndSymbol(const cx::ustring& library, const cx::ustring& loaderText,
                               const DependencyChains& chains, const MissingSymbols& symbols);
    ~MissingDependencyAndSymbol() override;
    MissingDependencyAndSymbol* clone() const override;
    void rethrow() const override;
};

class KT_API LoadLibraryUnknown : public LoadLibraryExceptionBase {
public:
    LoadLibraryUnknown(const cx::ustring& library, const cx::ustring& loaderText);
    ~LoadLibraryUnknown() override;
    LoadLibraryUnknown* clone() const override;
    void rethrow() const override;
};

#endif /* __cplusplus */

#endif /* KT_LOADING_H */
