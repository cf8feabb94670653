// The record the load-failure diagnosis builds for a library file, the
// probes that fill it (file, nm or objdump, each run through /bin/sh), and
// the parsers of the tools' output.
#ifndef KT_DYNLOAD_LIBRARY_INFO_H
#define KT_DYNLOAD_LIBRARY_INFO_H

#include <cstdint>
#include <string>
#include <vector>

#include "kt/errors.h"  // cx::ustring

namespace kt::internal::dynload {

enum class Validity : int32_t { VALID = 0, LIB_INVALID = 1 };

// Widths: 1 a 64-bit ELF file, 0 a 32-bit one, 2 neither or unknown.
constexpr int32_t kArch64 = 1;
constexpr int32_t kArch32 = 0;
constexpr int32_t kArchOther = 2;

struct LibraryInfo {
  cx::ustring _libname;                 // the path probed (UTF-16)
  int32_t arch = kArchOther;
  Validity validity = Validity::LIB_INVALID;
  std::vector<std::string> defined;     // names its dynamic symbol table defines
  std::vector<std::string> needed;      // NEEDED entries, in file order
  std::vector<std::string> undefined;   // names it imports
  std::vector<std::string> runPaths;    // RPATH/RUNPATH, $ORIGIN replaced
  bool _exists = false;

  bool isValid() const { return validity == Validity::VALID; }
};

// Runs the probes' commands and counts them.
class ProbeRunner {
public:
  // The command's standard output, or false when it could not run or wrote
  // anything on standard error.
  bool Run(const std::string& command, std::string* output);
  int spawns() const { return spawns_; }
  // The last run's status and standard error, for traces.
  int lastStatus() const { return lastStatus_; }
  const std::string& lastError() const { return lastError_; }

private:
  int spawns_ = 0;
  int lastStatus_ = 0;
  std::string lastError_;
};

// The record of the library file at `path` (UTF-8), with `origin` as the
// value of $ORIGIN in its run paths. Probe failures only leave the record
// invalid, of unknown width, or with empty lists.
LibraryInfo ProbeLibrary(const std::string& path, const std::string& origin, ProbeRunner* runner);

// ---- parsers of tool output (pure functions) -------------------------------

// `text` split on any of `separators`, empty pieces dropped.
std::vector<std::string> SplitWords(const std::string& text, const char* separators);

// A symbol name as compared between libraries: without the version that
// nm prints ("printf@GLIBC_2.2.5", "printf@@GLIBC_2.2.5" -> "printf"), and
// the product's versioned data-interface names mapped to their
// implementation ("qkFoov7.3" -> "qkFoo_730").
std::string ComparableSymbolName(const std::string& name);

// `nm -D` output: lines "<address> <type> <name>" define a symbol, lines
// "U <name>" import one; weak undefined ("w", "v") imports are left out,
// since a missing one never stops a load.
void ParseNmListing(const std::string& text, std::vector<std::string>* defined,
                    std::vector<std::string>* undefined);

// `objdump -T` output: every dynamic symbol line. Lines of other sections
// (`objdump -p -T` prints both) are skipped. The name is the last field;
// "*UND*" lines are imports unless weak. Every type counts, functions ("F"),
// indirect functions (how the C library defines strlen and memcpy), objects
// and untyped ones: a reference to a function that nothing defined when its
// library was linked has no type at all.
void ParseObjdumpListing(const std::string& text, std::vector<std::string>* defined,
                         std::vector<std::string>* undefined);

// The dynamic section as `objdump -p` prints it: the NEEDED names in order,
// and the directories of RPATH and RUNPATH (today's linkers write RUNPATH
// by default; both are searched here).
void ParseDynamicSection(const std::string& text, std::vector<std::string>* needed,
                         std::vector<std::string>* runPaths);

// Every "$ORIGIN" and "${ORIGIN}" in `path` replaced by `origin`.
std::string ExpandOrigin(const std::string& path, const std::string& origin);

// Whether ZENTRA_LIST_SYMBOLS_WITH_NM selects nm: set to anything but "0".
bool ListSymbolsWithNm();

}  // namespace kt::internal::dynload

#endif  // KT_DYNLOAD_LIBRARY_INFO_H
