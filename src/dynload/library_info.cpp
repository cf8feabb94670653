// The library record of the load-failure diagnosis: the probes run through
// the process runner, and the parsers of file, nm and objdump output.
#include "dynload/library_info.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "internal/diag.h"
#include "internal/locale_codecvt.h"
#include "internal/process_runner.h"

namespace kt::internal::dynload {

namespace {

using bedrock::core::process::shell_quote;

constexpr uint32_t kTrace = 4;

void Trace(int line, const std::string& text) {
  static diag::Channel& channel = diag::GetChannel("util::posix");
  channel.Write(kTrace, "dynload", line, "LibraryInfo", text);
}

// A word for the shell that no tool reads as an option.
std::string QuotedPath(const std::string& path) {
  return shell_quote(path.empty() || path[0] == '/' ? path : "./" + path);
}

// How many lines of `text` contain `word` (grep WORD | wc -l).
int CountLines(const std::string& text, const char* word) {
  int count = 0;
  for (const std::string& line : SplitWords(text, "\n"))
    if (line.find(word) != std::string::npos) ++count;
  return count;
}

// Probes 1-3, answered from one run of file: is it ELF, and of which width.
void ProbeFileKind(LibraryInfo* info, const std::string& quoted, ProbeRunner* runner) {
  std::string out;
  if (!runner->Run("file -L -b " + quoted, &out) || CountLines(out, "ELF") < 1) {
    info->validity = Validity::LIB_INVALID;
    Trace(__LINE__, " rt=" + std::to_string(runner->lastStatus()) + " output=" + out +
                        " error=" + runner->lastError() +
                        " static_cast<int>(Validity::LIB_INVALID)=" +
                        std::to_string(static_cast<int>(Validity::LIB_INVALID)));
    return;
  }
  info->validity = Validity::VALID;
  if (CountLines(out, "64-bit") > 0)
    info->arch = kArch64;
  else
    info->arch = CountLines(out, "32-bit") < 1 ? kArchOther : kArch32;
}

// Probes 4-7: the symbols from the chosen lister, NEEDED and the run paths
// from the dynamic section. With objdump, one run prints both.
void ProbeContents(LibraryInfo* info, const std::string& quoted, const std::string& origin,
                   ProbeRunner* runner) {
  bool useNm = ListSymbolsWithNm();
  Trace(__LINE__, std::string(" useNM=") + (useNm ? "1" : "0"));
  std::string out;
  if (useNm && runner->Run("nm -D " + quoted, &out)) ParseNmListing(out, &info->defined, &info->undefined);
  if (!runner->Run(useNm ? "objdump -p " + quoted : "objdump -p -T " + quoted, &out)) return;
  if (!useNm) ParseObjdumpListing(out, &info->defined, &info->undefined);
  std::vector<std::string> runPaths;
  ParseDynamicSection(out, &info->needed, &runPaths);
  for (const std::string& dir : runPaths) info->runPaths.push_back(ExpandOrigin(dir, origin));
}

}  // namespace

bool ProbeRunner::Run(const std::string& command, std::string* output) {
  ++spawns_;
  lastStatus_ = bedrock::core::process::run(command, *output, lastError_);
  return lastStatus_ != -1 && lastError_.empty();
}

LibraryInfo ProbeLibrary(const std::string& path, const std::string& origin, ProbeRunner* runner) {
  LibraryInfo info;
  info._libname = cx::i18n::codecvt_string_to_ustring(path, "UTF-8");
  info._exists = true;
  const std::string quoted = QuotedPath(path);
  ProbeFileKind(&info, quoted, runner);
  if (info.isValid() && info.arch != kArchOther) ProbeContents(&info, quoted, origin, runner);
  Trace(__LINE__, " _libname=" + path + " _exists=" + (info._exists ? "1" : "0") +
                      " ((isValid()) ? \"VALID\" : \"INVALID\")=" +
                      (info.isValid() ? "VALID" : "INVALID"));
  return info;
}

// ---- parsers ------------------------------------------------------------------

std::vector<std::string> SplitWords(const std::string& text, const char* separators) {
  std::vector<std::string> words;
  size_t at = 0;
  while (at < text.size()) {
    size_t start = text.find_first_not_of(separators, at);
    if (start == std::string::npos) break;
    size_t end = text.find_first_of(separators, start);
    if (end == std::string::npos) end = text.size();
    words.push_back(text.substr(start, end - start));
    at = end;
  }
  return words;
}

std::string ComparableSymbolName(const std::string& name) {
  std::string plain = name.substr(0, name.find('@'));
  // The product's external data-interface functions: "v7.3" names are the
  // "_730" implementations (a deliberate special case).
  size_t versioned = plain.find("v7.3");
  if (plain.compare(0, 2, "qk") == 0 && versioned != std::string::npos)
    plain = plain.substr(0, versioned) + "_730";
  return plain;
}

void ParseNmListing(const std::string& text, std::vector<std::string>* defined,
                    std::vector<std::string>* undefined) {
  for (const std::string& line : SplitWords(text, "\n")) {
    std::vector<std::string> fields = SplitWords(line, " \t");
    if (fields.size() == 3)
      defined->push_back(ComparableSymbolName(fields[2]));
    else if (fields.size() == 2 && fields[0] == "U")
      undefined->push_back(ComparableSymbolName(fields[1]));
  }
}

// Symbol lines: a 16-digit address, a blank, seven flag columns (1 binding:
// l g u !, 1 weak: w, ... 5 dynamic: D, 6 type: F O or blank), a blank, the
// section ("*UND*" for imports), a tab, the size, the version, the name.
void ParseObjdumpListing(const std::string& text, std::vector<std::string>* defined,
                         std::vector<std::string>* undefined) {
  for (const std::string& line : SplitWords(text, "\n")) {
    if (line.size() < 26 || line[16] != ' ' || line[22] != 'D' ||
        line.find_first_not_of("0123456789abcdef") != 16)
      continue;
    std::string name = ComparableSymbolName(SplitWords(line, " \t").back());
    bool weak = line[18] == 'w';
    if (line.compare(25, 5, "*UND*") != 0)
      defined->push_back(name);
    else if (!weak)
      undefined->push_back(name);
  }
}

void ParseDynamicSection(const std::string& text, std::vector<std::string>* needed,
                         std::vector<std::string>* runPaths) {
  for (const std::string& line : SplitWords(text, "\n")) {
    std::vector<std::string> fields = SplitWords(line, " \t");
    if (fields.size() < 2) continue;
    // The value is the rest of the line, so a directory may hold blanks.
    size_t value = line.find_first_not_of(" \t", line.find(fields[0]) + fields[0].size());
    std::string rest = line.substr(value);
    if (fields[0] == "NEEDED")
      needed->push_back(rest);
    else if (fields[0] == "RPATH" || fields[0] == "RUNPATH")
      for (std::string& dir : SplitWords(rest, ":")) runPaths->push_back(dir);
  }
}

// As the loader reads it: "$ORIGIN" followed by a letter, digit or '_' is
// another name ("$ORIGINAL"), left alone.
std::string ExpandOrigin(const std::string& path, const std::string& origin) {
  std::string out;
  size_t at = 0;
  while (at < path.size()) {
    size_t dollar = path.find('$', at);
    if (dollar == std::string::npos) break;
    out.append(path, at, dollar - at);
    size_t after = dollar + 7;
    bool plain = path.compare(dollar, 7, "$ORIGIN") == 0 &&
                 (after == path.size() || !(std::isalnum(static_cast<unsigned char>(path[after])) ||
                                            path[after] == '_'));
    if (plain) {
      out += origin;
      at = after;
    } else if (path.compare(dollar, 9, "${ORIGIN}") == 0) {
      out += origin;
      at = dollar + 9;
    } else {
      out += '$';
      at = dollar + 1;
    }
  }
  if (at < path.size()) out.append(path, at, std::string::npos);
  return out;
}

bool ListSymbolsWithNm() {
  const char* value = std::getenv("ZENTRA_LIST_SYMBOLS_WITH_NM");
  return value != nullptr && std::strcmp(value, "0") != 0;
}

}  // namespace kt::internal::dynload
