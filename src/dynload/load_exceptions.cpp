// The load-failure exceptions and their messages.
#include <utility>

#include "internal/locale_codecvt.h"
#include "kt/loading.h"

namespace {

using Chain = LoadLibraryExceptionBase::Chain;

cx::ustring FromUtf8(const char* text) { return cx::i18n::codecvt_string_to_ustring(text, "UTF-8"); }

cx::ustring BaseName(const cx::ustring& path) {
  size_t slash = path.rfind(u'/');
  return slash == cx::ustring::npos ? path : path.substr(slash + 1);
}

// "libA.so -> libB.so -> libC.so"; the first is the library being loaded,
// already named in full on the first line.
cx::ustring ChainText(const Chain& chain) {
  cx::ustring text;
  for (size_t i = 0; i < chain.size(); ++i) {
    if (i > 0) text += u" -> ";
    text += i == 0 ? BaseName(chain[i]) : chain[i];
  }
  return text;
}

cx::ustring SymbolLine(const std::string& symbol, const Chain& chain) {
  cx::ustring line = u"  " + FromUtf8(symbol.c_str()) + u" (needed by ";
  line += chain.empty() ? cx::ustring(u"?") : BaseName(chain.back());
  if (chain.size() > 1) line += u", loaded through " + ChainText(chain);
  return line + u")\n";
}

// "Cannot load library 'PATH': CAUSE", a line per missing library and per
// missing symbol, then the loader's own text.
cx::ustring ComposeMessage(const cx::ustring& library, const cx::ustring& loaderText,
                           const LoadLibraryExceptionBase::DependencyChains& chains,
                           const LoadLibraryExceptionBase::MissingSymbols& symbols,
                           const char* cause) {
  cx::ustring message = u"Cannot load library '" + library + u"': " + FromUtf8(cause) + u"\n";
  for (const Chain& chain : chains) message += u"  " + ChainText(chain) + u" (not found)\n";
  for (const auto& symbol : symbols) message += SymbolLine(symbol.first, symbol.second);
  message += u"Loader message: ";
  message += loaderText.empty() ? cx::ustring(u"(none)") : loaderText;
  return message;
}

const LoadLibraryExceptionBase::DependencyChains kNoChains;
const LoadLibraryExceptionBase::MissingSymbols kNoSymbols;

}  // namespace

LoadLibraryExceptionBase::LoadLibraryExceptionBase(const cx::ustring& library,
                                                   const cx::ustring& loaderText,
                                                   const DependencyChains& chains,
                                                   const MissingSymbols& symbols,
                                                   const char* cause)
    : libname_(library),
      loaderText_(loaderText),
      chains_(chains),
      symbols_(symbols),
      message_(ComposeMessage(library, loaderText, chains, symbols, cause)),
      what_(cx::i18n::ustring_to_utf8(message_)) {}

LoadLibraryExceptionBase::LoadLibraryExceptionBase(const LoadLibraryExceptionBase& other) = default;
LoadLibraryExceptionBase::~LoadLibraryExceptionBase() = default;

const char* LoadLibraryExceptionBase::what() const noexcept { return what_.c_str(); }

cx::ustring LoadLibraryExceptionBase::ToUstringImpl() const { return message_; }

// ---- the six causes ------------------------------------------------------------

InvalidLibrary::InvalidLibrary(const cx::ustring& library, const cx::ustring& loaderText)
    : LoadLibraryExceptionBase(library, loaderText, kNoChains, kNoSymbols,
                               "the file is not a shared library (not an ELF object).") {}
InvalidLibrary::~InvalidLibrary() = default;
InvalidLibrary* InvalidLibrary::clone() const { return new InvalidLibrary(*this); }
void InvalidLibrary::rethrow() const { throw InvalidLibrary(*this); }

ArchMismatch::ArchMismatch(const cx::ustring& library, const cx::ustring& loaderText)
    : LoadLibraryExceptionBase(
          library, loaderText, kNoChains, kNoSymbols,
          "wrong architecture: the file is an ELF object, but not a 64-bit one.") {}
ArchMismatch::~ArchMismatch() = default;
ArchMismatch* ArchMismatch::clone() const { return new ArchMismatch(*this); }
void ArchMismatch::rethrow() const { throw ArchMismatch(*this); }

MissingDependency::MissingDependency(const cx::ustring& library, const cx::ustring& loaderText,
                                     const DependencyChains& chains)
    : LoadLibraryExceptionBase(library, loaderText, chains, kNoSymbols,
                               "libraries it needs cannot be found:") {}
MissingDependency::~MissingDependency() = default;
MissingDependency* MissingDependency::clone() const { return new MissingDependency(*this); }
void MissingDependency::rethrow() const { throw MissingDependency(*this); }

MissingSymbol::MissingSymbol(const cx::ustring& library, const cx::ustring& loaderText,
                             const MissingSymbols& symbols)
    : LoadLibraryExceptionBase(library, loaderText, kNoChains, symbols,
                               "symbols it needs are defined by none of the libraries it loads:") {}
MissingSymbol::~MissingSymbol() = default;
MissingSymbol* MissingSymbol::clone() const { return new MissingSymbol(*this); }
void MissingSymbol::rethrow() const { throw MissingSymbol(*this); }

MissingDependencyAndSymbol::MissingDependencyAndSymbol(const cx::ustring& library,
                                                       const cx::ustring& loaderText,
                                                       const DependencyChains& chains,
                                                       const MissingSymbols& symbols)
    : LoadLibraryExceptionBase(library, loaderText, chains, symbols,
                               "libraries it needs cannot be found, and symbols it needs are "
                               "defined by none of the libraries it loads:") {}
MissingDependencyAndSymbol::~MissingDependencyAndSymbol() = default;
MissingDependencyAndSymbol* MissingDependencyAndSymbol::clone() const {
  return new MissingDependencyAndSymbol(*this);
}
void MissingDependencyAndSymbol::rethrow() const { throw MissingDependencyAndSymbol(*this); }

LoadLibraryUnknown::LoadLibraryUnknown(const cx::ustring& library, const cx::ustring& loaderText)
    : LoadLibraryExceptionBase(library, loaderText, kNoChains, kNoSymbols,
                               "no cause was found beyond the loader's message.") {}
LoadLibraryUnknown::~LoadLibraryUnknown() = default;
LoadLibraryUnknown* LoadLibraryUnknown::clone() const { return new LoadLibraryUnknown(*this); }
void LoadLibraryUnknown::rethrow() const { throw LoadLibraryUnknown(*this); }
