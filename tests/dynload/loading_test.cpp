// Loading through libkt.so: results and last errors against the system
// loader's own answers for the same files, the loader modes seen through
// their effects, the error record of each thread, and addresses to names.
#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "dynload/dynload_support.h"
#include "kt/encodings.h"
#include "kt/loading.h"

using kttest::A;
using kttest::Fixture;
using kttest::U;

namespace {

using Path = const std::string&;

// One load form per mode, narrow and UTF-16 mixed (the exact mode of every
// form is checked against a stand-in loader in tests/internal).
struct Form {
  const char* name;
  std::function<void*(Path path, int* status)> load;
  bool global;  // symbols join the global scope
  bool lazy;    // undefined functions are bound on first call
};
const Form kForms[] = {
    {"ktLoadLibrary", [](Path p, int* s) { return ktLoadLibrary(p.c_str(), s); }, true, false},
    {"ktGetModule16", [](Path p, int* s) { return ktGetModule(U(p), s); }, true, false},
    {"AddGlobal16", [](Path p, int* s) { return ktLoadLibraryAndAddGlobalSymbols(U(p), s); }, true,
     false},
    {"Unresolved", [](Path p, int* s) { return ktLoadLibraryUnresolved(p.c_str(), s); }, false, true},
    {"Local16", [](Path p, int* s) { return ktLoadLibraryWithLocalSymbolVisibility(U(p), s); },
     false, false},
    {"Custom0x101", [](Path p, int* s) {
       return ktLoadLibraryWithCustomSymbolVisibility(p.c_str(), RTLD_LAZY | RTLD_GLOBAL, s);
     }, true, true},
};

bool IsLoaded(const std::string& path) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) dlclose(handle);
  return handle != nullptr;
}

// What the system loader itself says about loading `path`.
std::string LoaderText(const std::string& path) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL);
  if (handle != nullptr) {
    dlclose(handle);
    return "(loaded)";
  }
  const char* text = dlerror();
  return text != nullptr ? text : "(none)";
}

void ExpectLastError(const std::string& text, const char* context) {
  EXPECT_EQ(ktLastLibraryError(), text) << context;
  EXPECT_EQ(cx::ustring(ktLastLibraryError_u()), U(text)) << context;
}

}  // namespace

// Every form loads a library that was not loaded (ktGetModule too), with
// the binding and visibility of its mode, and an empty last error. The
// provider defines what libkt_undefined.so imports: that library loads
// lazily only, or at once when the provider is in the global scope.
TEST(Loading, EveryFormLoadsWithItsModesEffects) {
  const std::string provider = Fixture("libkt_provider.so");
  const std::string undefined = Fixture("libkt_undefined.so");
  for (const Form& form : kForms) {
    int status = -1;
    void* handle = form.load(undefined, &status);
    EXPECT_EQ(handle != nullptr, form.lazy) << form.name;
    EXPECT_EQ(status, form.lazy ? 0 : 1) << form.name;
    if (handle != nullptr) {
      EXPECT_EQ(ktUnloadLibrary(handle), 0);
    }

    ASSERT_FALSE(IsLoaded(provider)) << form.name;
    status = -1;
    handle = form.load(provider, &status);
    ASSERT_NE(handle, nullptr) << form.name;
    EXPECT_EQ(status, 0) << form.name;
    ExpectLastError("", form.name);
    EXPECT_TRUE(IsLoaded(provider)) << form.name;
    auto f = reinterpret_cast<int (*)()>(ktFindSymbolInLibrary(handle, "kt_test_undefined_function"));
    ASSERT_NE(f, nullptr) << form.name;
    EXPECT_EQ(f(), 7);
    void* user = dlopen(undefined.c_str(), RTLD_NOW);
    EXPECT_EQ(user != nullptr, form.global) << form.name;
    if (user != nullptr) dlclose(user);
    EXPECT_EQ(ktUnloadLibrary(handle), 0) << form.name;
    EXPECT_FALSE(IsLoaded(provider)) << form.name;
  }
}

// A failed load: null, status 1, and the loader's own text in both
// readers; a successful lookup then empties the record.
TEST(Loading, FailuresKeepTheLoadersTextUntilTheNextSuccess) {
  kttest::TempDir dir;
  const std::string text_file = dir.path() + "/notes.so";
  std::ofstream(text_file) << "not a library\n";
  int status = -1;
  void* self = ktLoadLibrary("", &status);  // the main program
  ASSERT_NE(self, nullptr);
  EXPECT_EQ(status, 0);
  for (const std::string& path : {dir.path() + "/missing.so", text_file, dir.path(),
                                  Fixture("libkt_needs_absent.so"), Fixture("libkt_undefined.so"),
                                  Fixture("libkt_m32.so")}) {
    status = -1;
    EXPECT_EQ(ktLoadLibrary(path.c_str(), &status), nullptr) << path;
    EXPECT_EQ(status, 1) << path;
    ExpectLastError(LoaderText(path), path.c_str());
    ASSERT_NE(ktFindSymbolInLibrary(self, "ktLoadLibrary"), nullptr);
    ExpectLastError("", path.c_str());
  }
  EXPECT_EQ(ktUnloadLibrary(self), 0);
}

TEST(Loading, LookupAndUnloadFailuresCarryTheLoadersText) {
  int status = -1;
  void* good = ktLoadLibrary(Fixture("libkt_good.so").c_str(), &status);
  ASSERT_NE(good, nullptr);
  EXPECT_EQ(ktFindSymbolInLibrary(good, "kt_no_such_symbol"), nullptr);
  dlsym(good, "kt_no_such_symbol");
  ExpectLastError(dlerror(), "dlsym");
  // glibc rejects a handle whose open count is zero ("shared object not
  // open") without touching anything else in it.
  std::unique_ptr<char[]> never_opened(new char[8192]());
  EXPECT_EQ(ktUnloadLibrary(never_opened.get()), -1);
  ExpectLastError("shared object not open", "dlclose");
  EXPECT_EQ(ktUnloadLibrary(good), 0);
  ExpectLastError("", "dlclose");
}

// Two threads fail at once on different libraries, and each reads only its
// own loader text.
TEST(LoadingThreads, ConcurrentFailuresStayInTheirThread) {
  struct Side {
    std::string path, expected;
    int mismatches = 0;
  } sides[2] = {{Fixture("libkt_undefined.so"), "", 0}, {Fixture("libkt_needs_absent.so"), "", 0}};
  for (Side& side : sides) side.expected = LoaderText(side.path);
  ASSERT_NE(sides[0].expected, sides[1].expected);
  std::atomic<int> ready{0};
  auto run = [&ready](Side* side) {
    int status = 0;
    void* self = ktLoadLibrary("", &status);
    for (++ready; ready.load() < 2;) {
    }
    for (int i = 0; i < 400; ++i) {
      void* handle = ktLoadLibraryWithLocalSymbolVisibility(side->path.c_str(), &status);
      if (handle != nullptr || status != 1 || ktLastLibraryError() != side->expected ||
          A(ktLastLibraryError_u()) != side->expected)
        ++side->mismatches;
      // A success in between empties this thread's record only.
      if (ktFindSymbolInLibrary(self, "ktLoadLibrary") == nullptr || *ktLastLibraryError() != '\0')
        ++side->mismatches;
    }
    ktUnloadLibrary(self);
  };
  std::thread first(run, &sides[0]), second(run, &sides[1]);
  first.join();
  second.join();
  EXPECT_EQ(sides[0].mismatches, 0);
  EXPECT_EQ(sides[1].mismatches, 0);
}

TEST(Loading, AddressesToModuleAndFunctionNames) {
  int status = 0;
  void* good = ktLoadLibrary(Fixture("libkt_good.so").c_str(), &status);
  ASSERT_NE(good, nullptr);
  void* value = dlsym(good, "kt_fixture_value");
  void* cxx = dlsym(RTLD_DEFAULT, "_ZN17MissingDependencyD2Ev");
  ASSERT_NE(cxx, nullptr);
  Dl_info kt;
  ASSERT_NE(dladdr(cxx, &kt), 0);
  const struct {
    void* address;
    const char* name;
    std::string module;
  } cases[] = {
      {value, "kt_fixture_value", "libkt_good.so"},
      {cxx, "MissingDependency::~MissingDependency()", "libkt.so.1"},
      {static_cast<char*>(value) + 1, "", "libkt_good.so"},  // inside, not at the start
  };
  for (const auto& c : cases) {
    std::string module = "unchanged";
    EXPECT_EQ(ktSymbolNameFromAddress(c.address, module), c.name);
    EXPECT_EQ(module, c.module);
  }
  EXPECT_EQ(ktModuleNameFromAddress(value), Fixture("libkt_good.so"));
  EXPECT_EQ(ktModuleNameFromAddress(cxx), kt.dli_fname);
  std::unique_ptr<int> heap(new int(0));
  std::string module = "unchanged";
  EXPECT_EQ(ktModuleNameFromAddress(heap.get()), "");
  EXPECT_EQ(ktSymbolNameFromAddress(heap.get(), module), "");
  EXPECT_EQ(module, "unchanged");
  EXPECT_EQ(ktUnloadLibrary(good), 0);
}
