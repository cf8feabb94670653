// The load-failure diagnosis through libkt.so: each fixture library ends in
// the exception class of its cause with the right chains and symbols,
// under both symbol listers; hostile paths never run anything; no
// temporary file stays behind. (A child started with LD_LIBRARY_PATH:
// tests/tools/kt_diagnose_test.sh.)
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include "dynload/dynload_support.h"
#include "kt/encodings.h"
#include "kt/loading.h"
#include "kt/memory.h"

using kttest::A;
using kttest::Fixture;
using kttest::U;

namespace {

using Names = std::vector<std::string>;
using Symbols = std::vector<std::pair<std::string, Names>>;

// What a diagnosis ended in, as plain strings; "*" in the first place of a
// chain stands for the path loaded.
struct Verdict {
  std::string type;
  std::vector<Names> chains;
  Symbols symbols;
  std::string loaderText;
  std::string what;
};

Names Plain(const LoadLibraryExceptionBase::Chain& chain, const cx::ustring& path) {
  Names names;
  for (const cx::ustring& name : chain) names.push_back(name == path ? "*" : A(name));
  return names;
}

Verdict VerdictOf(const LoadLibraryExceptionBase& e) {
  Verdict v{typeid(e).name(), {}, {}, A(e.loaderText()), e.what()};
  for (const auto& chain : e.dependencyChains()) v.chains.push_back(Plain(chain, e.libraryName()));
  for (const auto& s : e.missingSymbols()) v.symbols.emplace_back(s.first, Plain(s.second, e.libraryName()));
  return v;
}

Verdict Diagnose(const std::string& path,
                 void* (*load)(const cx::ustring&) = &ktLoadLibraryWithDiagnosticMsg) {
  try {
    void* handle = load(U(path));
    dlclose(handle);
    return Verdict{"loads", {}, {}, "", ""};
  } catch (const LoadLibraryExceptionBase& e) {
    return VerdictOf(e);
  }
}

std::string LoaderText(const std::string& path) {
  if (void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL)) {
    dlclose(handle);
    return "(loaded)";
  }
  return dlerror();
}

// A 32-bit ELF file: the fixture when the compiler made one, else a bare
// 32-bit shared-object header written here.
std::string Elf32(const std::string& dir) {
  std::string built = Fixture("libkt_m32.so");
  if (access(built.c_str(), R_OK) == 0) return built;
  std::string path = dir + "/libkt_m32.so";
  unsigned char header[52] = {0x7f, 'E', 'L', 'F', 1 /* 32-bit */, 1 /* LSB */, 1};
  header[16] = 3;  // ET_DYN
  header[18] = 3;  // EM_386
  header[20] = 1;  // EV_CURRENT
  header[40] = 52; // e_ehsize
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<char*>(header), sizeof header);
  return path;
}

const std::string kMissingDependency = typeid(MissingDependency).name();
const std::string kMissingSymbol = typeid(MissingSymbol).name();

struct Case {
  std::string path;
  std::string type;
  std::vector<Names> chains;
  Symbols symbols;
};

std::vector<Case> FixtureCases(const std::string& dir) {
  std::ofstream(dir + "/notes.so") << "plain text, no library\n";
  return {
      {dir + "/notes.so", typeid(InvalidLibrary).name(), {}, {}},
      {dir, typeid(InvalidLibrary).name(), {}, {}},
      {Elf32(dir), typeid(ArchMismatch).name(), {}, {}},
      {dir + "/does_not_exist.so", typeid(LoadLibraryUnknown).name(), {}, {}},
      {Fixture("libkt_needs_absent.so"), kMissingDependency, {{"*", "libkt_absent.so"}}, {}},
      {Fixture("libkt_chain_a.so"), kMissingDependency,
       {{"*", "libkt_chain_b.so", "libkt_absent.so"}}, {}},
      {Fixture("libkt_fan.so"), kMissingDependency, {{"*", "libkt_absent.so"}}, {}},
      {Fixture("libkt_ldpath.so"), kMissingDependency, {{"*", "libkt_ldpath_dep.so"}}, {}},
      {Fixture("libkt_undefined.so"), kMissingSymbol, {}, {{"kt_test_undefined_function", {"*"}}}},
      {Fixture("libkt_origin.so"), kMissingSymbol, {},
       {{"kt_test_origin_missing", {"*", "libkt_origin_dep.so"}}}},
      {Fixture("libkt_both.so"), typeid(MissingDependencyAndSymbol).name(),
       {{"*", "libkt_absent.so"}}, {{"kt_test_undefined_function", {"*"}}}},
  };
}

void ExpectVerdict(const Case& c, const Verdict& v, const std::string& context) {
  EXPECT_EQ(v.type, c.type) << context;
  EXPECT_EQ(v.chains, c.chains) << context;
  EXPECT_EQ(v.symbols, c.symbols) << context;
  EXPECT_EQ(v.loaderText, LoaderText(c.path)) << context;
  // The message names the library, each chain, each symbol, the loader's text.
  EXPECT_NE(v.what.find("'" + c.path + "'"), std::string::npos) << v.what;
  EXPECT_NE(v.what.find(v.loaderText), std::string::npos) << v.what;
  const std::string base = c.path.substr(c.path.rfind('/') + 1);
  for (const Names& chain : c.chains) {
    std::string line = base;
    for (size_t i = 1; i < chain.size(); ++i) line += " -> " + chain[i];
    EXPECT_NE(v.what.find("  " + line + " (not found)\n"), std::string::npos) << v.what;
  }
  for (const auto& symbol : c.symbols)
    EXPECT_NE(v.what.find(symbol.first + " (needed by "), std::string::npos) << v.what;
}

class ListerScope {
public:
  explicit ListerScope(const char* value) {
    if (value != nullptr) setenv("ZENTRA_LIST_SYMBOLS_WITH_NM", value, 1);
    else unsetenv("ZENTRA_LIST_SYMBOLS_WITH_NM");
  }
  ~ListerScope() { unsetenv("ZENTRA_LIST_SYMBOLS_WITH_NM"); }
};

}  // namespace

// Every fixture under objdump -T (the default) and under nm -D (binutils
// 2.40 prints versioned names), with no temporary file left behind.
TEST(Diagnosis, EachFixtureEndsInItsCauseWithChainsAndSymbols) {
  kttest::TempDir dir;
  std::set<std::string> before = kttest::RunnerTempFiles();
  for (const char* lister : {static_cast<const char*>(nullptr), "1"}) {
    ListerScope scope(lister);
    for (const Case& c : FixtureCases(dir.path()))
      ExpectVerdict(c, Diagnose(c.path), c.path + (lister ? " (nm)" : " (objdump)"));
  }
  EXPECT_EQ(kttest::LeftBehind(before), std::set<std::string>());
  EXPECT_EQ(Diagnose(Fixture("libkt_good.so")).type, "loads");
  const Case local{Fixture("libkt_undefined.so"), kMissingSymbol, {},
                   {{"kt_test_undefined_function", {"*"}}}};
  ExpectVerdict(local, Diagnose(local.path, &ktLoadLibraryWithLocalSymbolVisibilityAndDiagnosticMsg),
                "local visibility");
}

// A copy and a rethrow keep the dynamic type and every field; the UTF-16
// form is what() in UTF-16.
TEST(Diagnosis, CloneRethrowAndTheUtf16Message) {
  try {
    ktLoadLibraryWithDiagnosticMsg(U(Fixture("libkt_both.so")));
    FAIL() << "loaded";
  } catch (const LoadLibraryExceptionBase& e) {
    std::unique_ptr<LoadLibraryExceptionBase> copy(e.clone());
    EXPECT_EQ(typeid(*copy), typeid(MissingDependencyAndSymbol));
    EXPECT_STREQ(copy->what(), e.what());
    kt_utf16* wide = utf8_to_utf16(e.what(), -1);
    EXPECT_EQ(e.ToUstringImpl(), cx::ustring(wide));
    EXPECT_EQ(e.GetUnicodeMessageTxt(), e.ToUstringImpl());
    ktFree(wide);
    try {
      copy->rethrow();
    } catch (const MissingDependencyAndSymbol& again) {
      EXPECT_EQ(again.dependencyChains(), e.dependencyChains());
      EXPECT_EQ(again.missingSymbols(), e.missingSymbols());
      EXPECT_EQ(again.loaderText(), e.loaderText());
    }
  }
}

// Paths holding shell syntax reach the tools as one word: the diagnosis
// reads the right files (the symbol of the copy's dependency is found
// missing through its hostile directory) and no marker file appears.
TEST(Diagnosis, HostilePathsNeverRunAnything) {
  kttest::TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  std::unique_ptr<char, void (*)(void*)> cwd(getcwd(nullptr, 0), &std::free);
  ASSERT_EQ(chdir(dir.path().c_str()), 0);  // where relative markers would land
  std::set<std::string> before = kttest::RunnerTempFiles();
  const char* names[] = {"a b.so", "q'uote\"d.so", "semi;touch m1;.so", "pipe|touch m2|.so",
                         "$(touch m3).so", "`touch m4`.so", "new\nline;touch m5.so",
                         "x' ; touch m6 ; echo '.so"};
  for (const char* name : names) {
    std::string path = dir.path() + "/" + name;
    kttest::CopyFile(Fixture("libkt_undefined.so"), path);
    Verdict v = Diagnose(path);
    EXPECT_EQ(v.type, kMissingSymbol) << name;
    EXPECT_EQ(v.symbols, (Symbols{{"kt_test_undefined_function", {"*"}}})) << name;
  }
  std::string evil = dir.path() + "/evil $(touch m7) `touch m8`;touch m9";
  ASSERT_EQ(mkdir(evil.c_str(), 0700), 0);
  ASSERT_EQ(mkdir((evil + "/origin_sub").c_str(), 0700), 0);
  kttest::CopyFile(Fixture("libkt_origin.so"), evil + "/libkt_origin.so");
  kttest::CopyFile(Fixture("origin_sub/libkt_origin_dep.so"), evil + "/origin_sub/libkt_origin_dep.so");
  Verdict v = Diagnose(evil + "/libkt_origin.so");
  EXPECT_EQ(v.symbols, (Symbols{{"kt_test_origin_missing", {"*", "libkt_origin_dep.so"}}}));
  for (const char* marker : {"m1", "m2", "m3", "m4", "m5", "m6", "m7", "m8", "m9"})
    EXPECT_NE(access((dir.path() + "/" + marker).c_str(), F_OK), 0) << marker << " was created";
  EXPECT_EQ(kttest::LeftBehind(before), std::set<std::string>());
  ASSERT_EQ(chdir("/"), 0);
}

// Without the tools every probe fails: the file is taken for no library,
// and the runner's files are gone all the same.
TEST(DiagnosisDeathTest, MissingToolsMakeAnInvalidLibrary) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::set<std::string> before = kttest::RunnerTempFiles();
  EXPECT_EXIT(
      {
        setenv("PATH", "/nonexistent", 1);
        std::exit(Diagnose(Fixture("libkt_undefined.so")).type == typeid(InvalidLibrary).name() ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
  EXPECT_EQ(kttest::LeftBehind(before), std::set<std::string>());
}
