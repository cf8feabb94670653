// The load-failure diagnosis from the inside: the tool-output parsers on
// real output shapes, no false findings on real library trees, every
// library probed once and the search list read once per process.
#include <dlfcn.h>
#include <unicode/ustring.h>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/diag_sink.h"
#include "dynload/dynload.h"
#include "dynload/dynload_support.h"
#include "dynload/library_info.h"
#include "kt/loading.h"

using kttest::A;
using kttest::Fixture;
using kttest::U;
using namespace kt::internal::dynload;
using Names = std::vector<std::string>;

namespace {

// The class name and the list sizes a diagnosis ended in.
std::string Verdict(const std::string& path) {
  try {
    DiagnoseLoadFailure(U(path), u"loader text");
  } catch (const LoadLibraryExceptionBase& e) {
    return std::string(typeid(e).name()) + " chains=" + std::to_string(e.dependencyChains().size()) +
           " symbols=" + std::to_string(e.missingSymbols().size()) +
           (e.missingSymbols().empty() ? "" : " first=" + e.missingSymbols()[0].first);
  }
  return "returned";
}

std::string ObjectOf(void* address) {
  Dl_info info;
  return dladdr(address, &info) != 0 && info.dli_fname != nullptr ? info.dli_fname : "";
}

}  // namespace

TEST(DynloadParsers, ToolOutputShapes) {
  // nm -D of binutils 2.40: versioned names, weak imports, absolute version nodes.
  Names defined, undefined;
  ParseNmListing("                 w __gmon_start__\n"
                 "                 U printf@GLIBC_2.2.5\n"
                 "                 U kt_plain\n"
                 "00000000000525b0 T printf@@GLIBC_2.2.5\n"
                 "000000000009be70 i memcpy@@GLIBC_2.14\n"
                 "0000000000000000 A GLIBC_2.2.5\n"
                 "00000000001db320 V environ@@GLIBC_2.2.5\n",
                 &defined, &undefined);
  EXPECT_EQ(defined, (Names{"printf", "memcpy", "GLIBC_2.2.5", "environ"}));
  EXPECT_EQ(undefined, (Names{"printf", "kt_plain"}));

  // objdump -p -T: the dynamic section and the symbol table in one text.
  const std::string objdump =
      "\nlibx.so:     file format elf64-x86-64\n\nDynamic Section:\n"
      "  NEEDED               libkt_b.so\n  NEEDED               libc.so.6\n"
      "  RPATH                $ORIGIN/sub:/opt/my libs\n  RUNPATH              /run\n"
      "  SONAME               libx.so\n\nVersion References:\n  required from libc.so.6:\n"
      "    0x09691a75 0x00 02 GLIBC_2.2.5\n\nDYNAMIC SYMBOL TABLE:\n"
      "0000000000000000      D  *UND*\t0000000000000000 kt_untyped\n"
      "0000000000000000  w   DF *UND*\t0000000000000000 (GLIBC_2.2.5) __cxa_finalize\n"
      "0000000000000000  w   D  *UND*\t0000000000000000  Base        __gmon_start__\n"
      "0000000000000000      DF *UND*\t0000000000000000 (GLIBC_2.2.5) printf\n"
      "0000000000000000      DO *UND*\t0000000000000000  GLIBC_2.2.5 stdout\n"
      "000000000009f1c0 g   iD  .text\t0000000000000081  GLIBC_2.2.5 strlen\n"
      "0000000000001100 g    DF .text\t0000000000000006  Base        qkGetValuev7.3\n"
      "00000000001d4848 g    DO .data\t0000000000000008  GLIBC_2.2.5 stdout_copy\n";
  defined.clear();
  undefined.clear();
  ParseObjdumpListing(objdump, &defined, &undefined);
  EXPECT_EQ(defined, (Names{"strlen", "qkGetValue_730", "stdout_copy"}));
  EXPECT_EQ(undefined, (Names{"kt_untyped", "printf", "stdout"}));
  Names needed, runPaths;
  ParseDynamicSection(objdump, &needed, &runPaths);
  EXPECT_EQ(needed, (Names{"libkt_b.so", "libc.so.6"}));
  EXPECT_EQ(runPaths, (Names{"$ORIGIN/sub", "/opt/my libs", "/run"}));
}

// (Symbol names against a model: fuzz/loadprobe_fuzz.cpp.)
TEST(DynloadParsers, OriginAndListerChoice) {
  const std::pair<const char*, const char*> origins[] = {
      {"$ORIGIN", "/d"}, {"$ORIGIN/../lib", "/d/../lib"}, {"${ORIGIN}/x", "/d/x"},
      {"/a/$ORIGINAL", "/a/$ORIGINAL"}, {"$ORIGIN:x", "/d:x"}, {"$HOME/x", "$HOME/x"}, {"a$", "a$"}, {"$ORIGIN$ORIGIN", "/d/d"},
  };
  for (const auto& o : origins) EXPECT_EQ(ExpandOrigin(o.first, "/d"), o.second) << o.first;
  const std::pair<const char*, bool> listers[] = {
      {nullptr, false}, {"0", false}, {"00", true}, {"1", true}, {"", true}, {"no", true}};
  for (const auto& l : listers) {
    if (l.first != nullptr) setenv("ZENTRA_LIST_SYMBOLS_WITH_NM", l.first, 1);
    else unsetenv("ZENTRA_LIST_SYMBOLS_WITH_NM");
    EXPECT_EQ(ListSymbolsWithNm(), l.second) << (l.first ? l.first : "(unset)");
  }
  unsetenv("ZENTRA_LIST_SYMBOLS_WITH_NM");
}

// Real trees with versioned and indirect symbols (the C++ runtime, ICU, the
// fixture that loads): nothing missing is found, under either lister.
TEST(DynloadDiagnosis, NoFalseFindingsOnLibrariesThatLoad) {
  const std::string libraries[] = {ObjectOf(reinterpret_cast<void*>(&std::terminate)),
                                   ObjectOf(reinterpret_cast<void*>(&u_strlen)),
                                   Fixture("libkt_good.so")};
  for (const char* lister : {"0", "1"}) {
    setenv("ZENTRA_LIST_SYMBOLS_WITH_NM", lister, 1);
    for (const std::string& library : libraries)
      EXPECT_EQ(Verdict(library), std::string(typeid(LoadLibraryUnknown).name()) +
                                      " chains=0 symbols=0") << library << " lister " << lister;
  }
  unsetenv("ZENTRA_LIST_SYMBOLS_WITH_NM");
}

// 30 dependencies that also need each other: every file is probed by one
// run of objdump, and the ldconfig list is made by the first diagnosis of
// the process only.
TEST(DynloadDiagnosisDeathTest, EachLibraryProbedOnceAndTheSearchListMadeOnce) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto child = [] {
    std::map<std::string, int> probes;
    DiagnosisStats first, second;
    {
      kttest::DiagSink sink("util::posix:4");
      Verdict(Fixture("libkt_fan.so"));
      first = LastDiagnosisStats();
      for (const std::string& line : sink.Lines()) {
        size_t at = line.find(" cmd=objdump -p -T '");
        if (at != std::string::npos) ++probes[line.substr(at + 20, line.find('\'', at + 20) - at - 20)];
      }
    }
    Verdict(Fixture("libkt_fan.so"));
    second = LastDiagnosisStats();
    bool once = true;
    for (const auto& p : probes) once = once && p.second == 1;
    return once && static_cast<int>(probes.size()) == first.records && first.records >= 33 &&
           first.spawns == 2 * first.records + 1 && second.records == first.records &&
           second.spawns == 2 * second.records;
  };
  EXPECT_EXIT(std::exit(child() ? 0 : 1), ::testing::ExitedWithCode(0), "");
}

// A bare name is looked for as the loader would; LD_LIBRARY_PATH is read
// once, by the first diagnosis of the process.
TEST(DynloadDiagnosisDeathTest, BareNamesAndLdLibraryPathReadOnce) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::string found = std::string(typeid(MissingSymbol).name()) +
                            " chains=0 symbols=1 first=kt_test_undefined_function";
  auto first_use = [&] {
    setenv("LD_LIBRARY_PATH", KT_DYNLOAD_FIXTURE_DIR, 1);
    return Verdict("libkt_undefined.so") == found;
  };
  auto later_change = [] {
    Verdict(Fixture("libkt_needs_absent.so"));  // its walk reads the list
    setenv("LD_LIBRARY_PATH", KT_DYNLOAD_FIXTURE_DIR, 1);
    return Verdict("libkt_undefined.so") ==
           std::string(typeid(LoadLibraryUnknown).name()) + " chains=0 symbols=0";
  };
  EXPECT_EXIT(std::exit(first_use() ? 0 : 1), ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(std::exit(later_change() ? 0 : 1), ::testing::ExitedWithCode(0), "");
}
