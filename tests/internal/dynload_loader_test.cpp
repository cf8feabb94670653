// The loading family over a stand-in dlopen: the exact mode and path each
// form hands the loader, the loader-fault retry, exceptions of the narrow
// forms, the trace records, and the instrumentation-tool branch of
// ktSymbolNameFromAddress.
#include <dlfcn.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/diag_sink.h"
#include "dynload/dynload.h"
#include "dynload/dynload_support.h"
#include "internal/message_catalog.h"
#include "kt/encodings.h"
#include "kt/loading.h"

using kttest::Fixture;
using kttest::U;
namespace dynload = kt::internal::dynload;

// Stand-ins for the memory-tool probes: the loader's references are weak,
// so the archive's own probes are not linked in for them. Were they linked
// in, theirs would win and the expectations below follow their answers.
int g_tool = 0;  // 1 Purify, 2 Quantify, 3 coverage
extern "C" __attribute__((weak)) int ktIsPurifyRunning(void) { return g_tool == 1; }
extern "C" __attribute__((weak)) int ktIsQuantifyRunning(void) { return g_tool == 2; }
extern "C" __attribute__((weak)) int ktIsCoverageRunning(void) { return g_tool == 3; }

namespace {

struct Call {
  std::string path;  // "(null)" for a null path
  int mode;
};
std::vector<Call> g_calls;
void* g_fake_result = nullptr;

void* Record(const char* path, int mode) {
  g_calls.push_back(Call{path != nullptr ? path : "(null)", mode});
  return g_fake_result;
}

// The loader fault: the load fails with a real loader text, and the
// RTLD_NOLOAD retry finds the object registered after all.
void* Botched(const char* path, int mode) {
  g_calls.push_back(Call{path, mode});
  if ((mode & RTLD_NOLOAD) == 0) return dlopen("/nonexistent/kt_botched.so", mode);
  return dlopen(Fixture("libkt_good.so").c_str(), RTLD_NOW);
}

void* Throwing(const char*, int) { throw std::runtime_error("converter says no"); }
void* ThrowingInt(const char*, int) { throw 7; }

class HookScope {
public:
  explicit HookScope(dynload::DlopenFunction hook) {
    g_calls.clear();
    dynload::SetDlopenHook(hook);
  }
  ~HookScope() { dynload::SetDlopenHook(nullptr); }
};

}  // namespace

TEST(DynloadLoader, EachFormHandsTheLoaderItsModeAndPath) {
  using W = void* (*)(const cx::ustring&, int*);
  using N = void* (*)(const char*, int*);
  const struct {
    const char* name;
    void* (*load)(const cx::ustring&, int*);
    void* (*narrow)(const char*, int*);
    int mode;
  } cases[] = {
      {"ktLoadLibrary", static_cast<W>(ktLoadLibrary), static_cast<N>(ktLoadLibrary), 0x102},
      {"ktGetModule", static_cast<W>(ktGetModule), static_cast<N>(ktGetModule), 0x102},
      {"AddGlobalSymbols", static_cast<W>(ktLoadLibraryAndAddGlobalSymbols),
       static_cast<N>(ktLoadLibraryAndAddGlobalSymbols), 0x102},
      {"Unresolved", static_cast<W>(ktLoadLibraryUnresolved),
       static_cast<N>(ktLoadLibraryUnresolved), 1},
      {"Local", static_cast<W>(ktLoadLibraryWithLocalSymbolVisibility),
       static_cast<N>(ktLoadLibraryWithLocalSymbolVisibility), 2},
      {"DeepBind", &ktLoadLibraryWithLocalSymbolVisibilityAndDeepBind, nullptr, 10},
  };
  HookScope hook(&Record);
  g_fake_result = reinterpret_cast<void*>(0x1000);
  const cx::ustring accented = u"/lib/caf\u00e9.so";
  for (const auto& c : cases) {
    g_calls.clear();
    int status = -1;
    EXPECT_EQ(c.load(accented, &status), g_fake_result) << c.name;
    EXPECT_EQ(status, 0) << c.name;
    EXPECT_EQ(c.load(u"", &status), g_fake_result) << c.name;
    if (c.narrow != nullptr) {
      EXPECT_EQ(c.narrow("/lib/x.so", &status), g_fake_result) << c.name;
    }
    std::vector<std::string> expected = {"/lib/caf\xc3\xa9.so", "(null)"};
    if (c.narrow != nullptr) expected.push_back("/lib/x.so");
    ASSERT_EQ(g_calls.size(), expected.size()) << c.name;
    for (size_t i = 0; i < expected.size(); ++i) {
      EXPECT_EQ(g_calls[i].path, expected[i]) << c.name;
      EXPECT_EQ(g_calls[i].mode, c.mode) << c.name;
    }
  }
  // Narrow paths are in the thread's encoding: Latin-1 "\xe9" reaches the
  // loader as UTF-8.
  {
    Quivera::I18N::AutoRestoreUnicodeConverterName latin1("ISO-8859-1");
    g_calls.clear();
    int status = -1;
    ktLoadLibrary("/lib/caf\xe9.so", &status);
    ASSERT_EQ(g_calls.size(), 1u);
    EXPECT_EQ(g_calls[0].path, "/lib/caf\xc3\xa9.so");
  }
  // The caller's mode goes through untouched, whatever it holds.
  for (int mode : {0x101, 0x1, 0x2 | 0x8 | 0x1000, 0x7fffffff}) {
    g_calls.clear();
    int status = -1;
    ktLoadLibraryWithCustomSymbolVisibility("/lib/x.so", mode, &status);
    ktLoadLibraryWithCustomSymbolVisibility(U("/lib/x.so"), mode, &status);
    ASSERT_EQ(g_calls.size(), 2u);
    EXPECT_EQ(g_calls[0].mode, mode);
    EXPECT_EQ(g_calls[1].mode, mode);
  }
  g_fake_result = nullptr;
}

// A failed load whose RTLD_NOLOAD retry finds the object: null, status 1,
// the catalogue text carrying the first loader text, and the retry's
// reference never released (the library stays loaded although nobody
// else holds it).
TEST(DynloadLoader, LoaderFaultRetryLeaksItsReference) {
  const std::string good = Fixture("libkt_good.so");
  ASSERT_EQ(dlopen(good.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
  dlopen("/nonexistent/kt_botched.so", RTLD_NOW | RTLD_GLOBAL);
  const std::string first = dlerror();
  {
    HookScope hook(&Botched);
    int status = -1;
    EXPECT_EQ(ktLoadLibrary("/any/path.so", &status), nullptr);
    EXPECT_EQ(status, 1);
    ASSERT_EQ(g_calls.size(), 2u);
    EXPECT_EQ(g_calls[1].mode, RTLD_NOW | RTLD_GLOBAL | RTLD_NOLOAD);
  }
  cx::ustring expected =
      cx::i18n::MessageCatalog::get_message("bedrock_legacy:messages", "glibcFailedLoadBug");
  ASSERT_NE(expected.find(u"{0}"), cx::ustring::npos);
  expected.replace(expected.find(u"{0}"), 3, U(first));
  EXPECT_EQ(cx::ustring(ktLastLibraryError_u()), expected);
  void* still = dlopen(good.c_str(), RTLD_NOW | RTLD_NOLOAD);
  EXPECT_NE(still, nullptr) << "the retry's reference was released";
  if (still != nullptr) dlclose(still);

  // A retry that finds nothing keeps the first text.
  HookScope hook(&Record);
  int status = -1;
  EXPECT_EQ(ktLoadLibrary("/any/path.so", &status), nullptr);
  EXPECT_EQ(status, 1);
  EXPECT_EQ(g_calls.size(), 2u);
}

// The narrow forms turn standard exceptions into a failed load with their
// text; anything else goes through.
TEST(DynloadLoader, NarrowFormsCatchStandardExceptions) {
  HookScope hook(&Throwing);
  int status = -1;
  EXPECT_EQ(ktLoadLibraryUnresolved("/x.so", &status), nullptr);
  EXPECT_EQ(status, 1);
  EXPECT_STREQ(ktLastLibraryError(), "converter says no");
  dynload::SetDlopenHook(&ThrowingInt);
  EXPECT_THROW(ktLoadLibrary("/x.so", &status), int);
}

TEST(DynloadLoader, TraceRecordsCarryTheirFlags) {
  HookScope hook(&Botched);
  std::vector<std::string> lines;
  {
    kttest::DiagSink sink("util::dynload:all,windows::dlopen:all");
    int status = 0;
    ktLoadLibrary("/any/path.so", &status);
    lines = sink.Lines();
  }
  const std::vector<std::string> expected = {
      "util::dynload [0x8] dynload:",  // entry, then the signature
      "void* ktLoadLibrary(const char*, int*)",
      "[0x2] dynload:", " ufullname=/any/path.so errorStatus=0x", " mode=258",
      "[0x200] dynload:", "dlerror() : /nonexistent/kt_botched.so: cannot open",
      "[0x4] dynload:", " m_code=1 m_unknown=0 cx::i18n::to_string(m_u_message)=",
      "[0x10] dynload:", "First load attempt failed", "Attempting second load with RTLD_NOLOAD",
      "Botched glibc load; we're toast", "[0x80] dynload:", "handle=0", "[0x40] dynload:"};
  std::string all;
  for (const std::string& line : lines) all += line + "\n";
  for (const std::string& piece : expected)
    EXPECT_NE(all.find(piece), std::string::npos) << piece << " missing in\n" << all;
  EXPECT_EQ(all.find("windows::dlopen"), std::string::npos);
}

TEST(DynloadLoader, UnnamedAddressesUnderAnInstrumentationTool) {
  void* good = dlopen(Fixture("libkt_good.so").c_str(), RTLD_NOW);
  ASSERT_NE(good, nullptr);
  char* start = static_cast<char*>(dlsym(good, "kt_fixture_value"));
  for (int tool = 0; tool <= 3; ++tool) {
    g_tool = tool;
    bool running = ktIsPurifyRunning() || ktIsQuantifyRunning() || ktIsCoverageRunning();
    std::string module;
    EXPECT_EQ(ktSymbolNameFromAddress(start + 2, module),
              running ? "UnknownFunctionDueToVariantBuild" : "") << tool;
    EXPECT_EQ(module, "libkt_good.so");
    EXPECT_EQ(ktSymbolNameFromAddress(start, module), "kt_fixture_value") << tool;
  }
  g_tool = 0;
  dlclose(good);
}
