// kt linecol: line and column of byte offsets in a file, through one line
// map per run, optionally wrapped in the console's hyperlink annotation.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "commands.h"
#include "kt/annotations.h"
#include "kt/contexts.h"
#include "kt/vmcontext.h"

namespace kttool {
namespace {

// Reads all of `path` ("-": standard input) into `text`.
bool ReadWhole(const char* path, std::string* text) {
  bool isStdin = std::strcmp(path, "-") == 0;
  FILE* file = isStdin ? stdin : std::fopen(path, "rb");
  if (file == nullptr) return false;
  char buffer[64 * 1024];
  size_t got;
  while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) text->append(buffer, got);
  bool ok = !std::ferror(file);
  if (!isStdin) std::fclose(file);
  return ok;
}

// A decimal byte offset, all of `text`.
bool ParseOffset(const char* text, size_t* offset) {
  if (*text < '0' || *text > '9') return false;
  char* end = nullptr;
  errno = 0;
  unsigned long long v = std::strtoull(text, &end, 10);
  if (*end != '\0' || errno != 0) return false;
  *offset = static_cast<size_t>(v);
  return true;
}

// A virtual-machine context running a session with hot links on, so that
// the annotations print as they do in the product's console.
class LinkSession {
public:
  LinkSession() : vm_(ktNewVmContext()) {
    ktEnterVmContext(vm_);
    ktStartVmSession(vm_);
    ktSetHotLinks(true);
  }
  ~LinkSession() {
    ktEndVmSession(vm_);
    ktLeaveVmContext();
    ktDeleteVmContext(vm_);
  }
  LinkSession(const LinkSession&) = delete;
  LinkSession& operator=(const LinkSession&) = delete;

private:
  kt_vm_context* vm_;
};

// Prints each offset's place; returns the exit status.
int PrintPlaces(const char* path, const std::string& text, char** offsets, int count) {
  kt_lineno_map map;
  kt_initialize_lineno_map(&map, ktGetMemoryContext(), text.data(), text.size());
  int status = 0;
  for (int i = 0; i < count; ++i) {
    size_t offset = 0;
    if (!ParseOffset(offsets[i], &offset)) {
      Complain("linecol: '%s' is not a byte offset", offsets[i]);
      status = 1;
      continue;
    }
    if (offset > text.size()) {
      Complain("linecol: offset %zu is past the end of '%s' (%zu bytes)", offset, path,
               text.size());
      status = 1;
      continue;
    }
    size_t column = 0;
    size_t line = kt_find_line_and_column(&column, &map, offset);
    ktPrintAnnotationHeader(path, static_cast<long>(line), static_cast<long>(column));
    ktPrintf("%s:%zu:%zu", path, line, column);
    ktPrintAnnotationTrailer(1);
    ktPrintf("\n");
  }
  kt_clear_lineno_map(&map);
  return status;
}

}  // namespace

int RunLinecol(int argc, char** argv) {
  if (argc >= 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
    std::printf("Usage: kt linecol [--link] FILE OFFSET...\n"
                "Prints FILE:LINE:COLUMN for each byte OFFSET of FILE (lines end at LF, CR or\n"
                "CR LF; tab stops every 8 columns; both counted from 1; OFFSET may be the\n"
                "file's length). --link wraps each in the console's hyperlink annotation.\n");
    return 0;
  }
  bool link = argc >= 2 && std::strcmp(argv[1], "--link") == 0;
  int first = link ? 2 : 1;
  if (argc - first < 2) {
    Complain("linecol: need a FILE and at least one OFFSET (try 'kt linecol --help')");
    return 2;
  }
  const char* path = argv[first];
  std::string text;
  if (!ReadWhole(path, &text)) {
    Complain("linecol: cannot read '%s': %s", path, std::strerror(errno));
    return 1;
  }
  if (!link) return PrintPlaces(path, text, argv + first + 1, argc - first - 1);
  LinkSession session;
  return PrintPlaces(path, text, argv + first + 1, argc - first - 1);
}

}  // namespace kttool
