// The parsers of the load diagnosis's tool output (nm -D, objdump -p -T)
// against a model: the input describes symbols (name, defined or not, weak,
// type, version) and dynamic-section entries; both tools' listings of them
// are rendered, parsed, and compared with what the model expects. The raw
// input is parsed too, as hostile tool output: no crash, no name holding a
// line break.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "dynload/library_info.h"

using namespace kt::internal::dynload;
using Names = std::vector<std::string>;

namespace {

void Fail(const char* what) {
  std::fprintf(stderr, "loadprobe_fuzz: %s\n", what);
  std::abort();
}

// The comparable name, written down from the rules: no version, and the
// data-interface names "qk...v7.3..." as "qk..._730".
std::string ModelName(const std::string& name) {
  std::string base = name.substr(0, name.find('@'));
  size_t v = base.find("v7.3");
  if (base.size() >= 2 && base[0] == 'q' && base[1] == 'k' && v != std::string::npos)
    return base.substr(0, v) + "_730";
  return base;
}

struct Input {
  const uint8_t* data;
  size_t size;
  uint8_t Next() { return size > 0 ? (--size, *data++) : 0; }
  std::string Word() {  // 1-12 characters, no blank, tab, newline or colon
    static const char kChars[] = "abqkv7.3_@x19";
    std::string word;
    for (int n = 1 + Next() % 12; n > 0; --n) word += kChars[Next() % (sizeof kChars - 1)];
    return word;
  }
};

void CheckNames(const Names& names) {
  for (const std::string& name : names)
    if (name.find('\n') != std::string::npos) Fail("a name holds a line break");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Names defined, undefined, needed, runPaths;
  const std::string raw(reinterpret_cast<const char*>(data), size);
  ParseNmListing(raw, &defined, &undefined);
  ParseObjdumpListing(raw, &defined, &undefined);
  ParseDynamicSection(raw, &needed, &runPaths);
  CheckNames(defined), CheckNames(undefined), CheckNames(needed), CheckNames(runPaths);

  Input in{data, size};
  std::string nm, objdump;
  Names wantDefined, wantUndefined, wantNeeded, wantRunPaths;
  for (int entries = in.Next() % 24; entries > 0; --entries) {
    uint8_t shape = in.Next();
    std::string name = in.Word();
    char line[256];
    if (shape % 5 == 4) {  // a dynamic-section entry
      bool rpath = (shape & 8) != 0;
      std::string value = rpath ? name + ":" + in.Word() : name;
      std::snprintf(line, sizeof line, "  %-20s %s\n", rpath ? (shape & 16 ? "RUNPATH" : "RPATH") : "NEEDED",
                    value.c_str());
      objdump += line;
      if (!rpath) wantNeeded.push_back(name);
      else wantRunPaths.push_back(name), wantRunPaths.push_back(value.substr(name.size() + 1));
      continue;
    }
    bool isDefined = shape % 5 < 2, weak = shape % 5 == 3;
    unsigned address = isDefined ? 0x1000u + in.Next() : 0;
    std::string versioned = name + ((shape & 32) ? "@@GLIBC_2.2.5" : (shape & 64) ? "@V1" : "");
    if (isDefined) std::snprintf(line, sizeof line, "%016x %c %s\n", address, "TDBRVWi"[in.Next() % 7], versioned.c_str());
    else std::snprintf(line, sizeof line, "%16s %c %s\n", "", weak ? "wv"[shape & 1] : 'U', versioned.c_str());
    nm += line;
    const char* version = (shape & 32) ? "(GLIBC_2.2.5)" : (shape & 64) ? " GLIBC_2.2.5" : " Base       ";
    std::snprintf(line, sizeof line, "%016x %c%c  %cD%c %s\t%016x %s %s\n", address,
                  isDefined ? 'g' : ' ', weak ? 'w' : ' ', (shape & 128) ? 'i' : ' ', " FO"[in.Next() % 3],
                  isDefined ? ".text" : "*UND*", 8u, version, name.c_str());
    objdump += line;
    if (isDefined) wantDefined.push_back(ModelName(name));
    else if (!weak) wantUndefined.push_back(ModelName(name));
  }
  defined.clear(), undefined.clear();
  ParseNmListing(nm, &defined, &undefined);
  if (defined != wantDefined || undefined != wantUndefined) Fail("nm listing misread");
  defined.clear(), undefined.clear(), needed.clear(), runPaths.clear();
  ParseObjdumpListing("\nDYNAMIC SYMBOL TABLE:\n" + objdump, &defined, &undefined);
  if (defined != wantDefined || undefined != wantUndefined) Fail("objdump listing misread");
  ParseDynamicSection(objdump, &needed, &runPaths);
  if (needed != wantNeeded || runPaths != wantRunPaths) Fail("dynamic section misread");
  return 0;
}
