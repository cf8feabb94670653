// The load-failure diagnosis: the library's own record, the walk of its
// dependencies through the places the loader searches, the symbol check
// over everything reachable, and the exception that names the cause.
#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdlib>
#include <memory>
#include <set>
#include <unordered_set>
#include <utility>

#include "dynload/dynload.h"
#include "dynload/library_info.h"
#include "internal/locale_codecvt.h"
#include "kt/loading.h"

namespace kt::internal::dynload {

namespace {

thread_local DiagnosisStats t_stats;

using Names = std::vector<std::string>;

// ---- where dependencies are looked for --------------------------------------

std::string DirectoryOf(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Read once per process: a later change of the variable is not seen (the
// loader does not see it either).
const Names& LdLibraryPathDirs() {
  static const Names dirs = [] {
    const char* value = std::getenv("LD_LIBRARY_PATH");
    return SplitWords(value != nullptr ? value : "", ":");
  }();
  return dirs;
}

// <root>/bin/plat64x/libkt.so.1 in an installed product.
std::string PlatformDirectory() {
  Dl_info info;
  if (dladdr(reinterpret_cast<void*>(&DiagnoseLoadFailure), &info) == 0 ||
      info.dli_fname == nullptr)
    return std::string();
  std::string root = DirectoryOf(DirectoryOf(DirectoryOf(info.dli_fname)));
  return root + "/bin/" + "plat64x";
}

Names BuildSearchList(ProbeRunner* runner) {
  Names dirs;
  std::string platform = PlatformDirectory();
  if (!platform.empty()) dirs.push_back(platform);
  const char* path = std::getenv("PATH");
  for (std::string& dir : SplitWords(path != nullptr ? path : "", ":")) dirs.push_back(dir);
  // The directory lines of ldconfig end in a colon. -N -X: list only, never
  // rewrite the cache or links (this may run as root). ldconfig lives in
  // sbin, which an ordinary user's PATH may lack.
  std::string out;
  runner->Run("PATH=\"$PATH:/sbin:/usr/sbin\" ldconfig -v -N -X 2>/dev/null | "
              "awk '{print $1}' |grep :", &out);
  for (std::string& line : SplitWords(out, "\n"))
    if (line.size() > 1 && line.back() == ':') dirs.push_back(line.substr(0, line.size() - 1));
  return dirs;
}

// Built once per process, by the first diagnosis (whose runner counts it).
const Names& SearchList(ProbeRunner* runner) {
  static const Names dirs = BuildSearchList(runner);
  return dirs;
}

bool IsFile(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

std::string FindIn(const Names& dirs, const std::string& name) {
  for (const std::string& dir : dirs) {
    std::string candidate = dir + "/" + name;
    if (IsFile(candidate)) return candidate;
  }
  return std::string();
}

std::string Canonical(const std::string& path) {
  std::unique_ptr<char, void (*)(void*)> resolved(realpath(path.c_str(), nullptr), &std::free);
  return resolved ? std::string(resolved.get()) : std::string();
}

// ---- the walk --------------------------------------------------------------

// One library reached: its record, the chain of names through which it is
// needed, and the run paths of the libraries above it.
struct Reached {
  LibraryInfo info;
  Names chain;
  Names inherited;
};

class DependencyWalk {
public:
  explicit DependencyWalk(ProbeRunner* runner) : runner_(runner) {}

  void Run(LibraryInfo top, const std::string& name, const std::string& canonical);
  void CheckSymbols();
  int records() const { return static_cast<int>(reached_.size()); }

  std::vector<Names> missingChains;
  std::vector<std::pair<std::string, Names>> missingSymbols;

private:
  std::string Locate(const std::string& name, const Reached& parent) const;
  void Visit(size_t index);

  ProbeRunner* runner_;
  std::vector<Reached> reached_;
  std::set<std::string> namesSeen_;
  std::set<std::string> filesProbed_;
};

// The four places, in order: the parent's run paths, LD_LIBRARY_PATH, the
// run paths handed down the chain, the search list.
std::string DependencyWalk::Locate(const std::string& name, const Reached& parent) const {
  if (name.find('/') != std::string::npos) return IsFile(name) ? name : std::string();
  for (const Names* dirs :
       {&parent.info.runPaths, &LdLibraryPathDirs(), &parent.inherited, &SearchList(runner_)}) {
    std::string found = FindIn(*dirs, name);
    if (!found.empty()) return found;
  }
  return std::string();
}

// Breadth first, as the loader goes; each name and each file only once.
void DependencyWalk::Run(LibraryInfo top, const std::string& name, const std::string& canonical) {
  filesProbed_.insert(canonical);
  reached_.push_back(Reached{std::move(top), Names{name}, Names{}});
  for (size_t i = 0; i < reached_.size(); ++i) Visit(i);
}

void DependencyWalk::Visit(size_t index) {
  const Names needed = reached_[index].info.needed;
  for (const std::string& name : needed) {
    // Another platform's loader library: ignored on purpose.
    if (name == "libSystem.B.dylib" || !namesSeen_.insert(name).second) continue;
    const Reached& parent = reached_[index];
    Names chain = parent.chain;
    chain.push_back(name);
    std::string path = Locate(name, parent);
    if (path.empty()) {
      missingChains.push_back(std::move(chain));
      continue;
    }
    std::string canonical = Canonical(path);
    if (!filesProbed_.insert(canonical.empty() ? path : canonical).second) continue;
    Names inherited = parent.inherited;
    inherited.insert(inherited.end(), parent.info.runPaths.begin(), parent.info.runPaths.end());
    LibraryInfo info = ProbeLibrary(path, DirectoryOf(path), runner_);
    reached_.push_back(Reached{std::move(info), std::move(chain), std::move(inherited)});
  }
}

// Every import that no reached library defines, with the chain of the
// library that needs it.
void DependencyWalk::CheckSymbols() {
  std::unordered_set<std::string> definitions;
  for (const Reached& r : reached_) definitions.insert(r.info.defined.begin(), r.info.defined.end());
  for (const Reached& r : reached_) {
    std::set<std::string> reported;
    for (const std::string& symbol : r.info.undefined) {
      // Another platform's loader helper: never reported, on purpose.
      if (symbol == "dyld_stub_binder" || definitions.count(symbol) != 0) continue;
      if (reported.insert(symbol).second) missingSymbols.emplace_back(symbol, r.chain);
    }
  }
}

// ---- the verdict ------------------------------------------------------------

cx::ustring ToUstring(const std::string& utf8) {
  return cx::i18n::codecvt_string_to_ustring(utf8, "UTF-8");
}

LoadLibraryExceptionBase::Chain ToChain(const Names& names) {
  LoadLibraryExceptionBase::Chain chain;
  for (const std::string& name : names) chain.push_back(ToUstring(name));
  return chain;
}

[[noreturn]] void ThrowVerdict(const cx::ustring& path, const cx::ustring& text,
                               const DependencyWalk& walk) {
  // The chains start with the name the caller gave.
  LoadLibraryExceptionBase::DependencyChains chains;
  for (const Names& names : walk.missingChains) {
    chains.push_back(ToChain(names));
    chains.back().front() = path;
  }
  LoadLibraryExceptionBase::MissingSymbols symbols;
  for (const auto& missing : walk.missingSymbols) {
    symbols.emplace_back(missing.first, ToChain(missing.second));
    symbols.back().second.front() = path;
  }
  if (chains.empty() && symbols.empty()) throw LoadLibraryUnknown(path, text);
  if (chains.empty()) throw MissingSymbol(path, text, symbols);
  if (symbols.empty()) throw MissingDependency(path, text, chains);
  throw MissingDependencyAndSymbol(path, text, chains, symbols);
}

// The file the loader would open for `native`: a name without "/" is
// searched for as a dependency of nothing; anything else made canonical.
std::string ResolveTopLibrary(const std::string& native, ProbeRunner* runner) {
  if (native.empty()) return std::string();
  if (native.find('/') == std::string::npos) {
    std::string found = FindIn(LdLibraryPathDirs(), native);
    if (found.empty()) found = FindIn(SearchList(runner), native);
    return found.empty() ? std::string() : Canonical(found);
  }
  return Canonical(native);
}

}  // namespace

DiagnosisStats LastDiagnosisStats() { return t_stats; }

void DiagnoseLoadFailure(const cx::ustring& path, const cx::ustring& loaderText) {
  ProbeRunner runner;
  struct Count {  // the stats are kept whichever exception ends the diagnosis
    ProbeRunner* runner;
    int records = 0;
    ~Count() { t_stats = DiagnosisStats{runner->spawns(), records}; }
  } count{&runner};

  std::string native = cx::i18n::ustring_to_utf8(path);
  std::string canonical = ResolveTopLibrary(native, &runner);
  if (canonical.empty()) throw LoadLibraryUnknown(path, loaderText);
  LibraryInfo top = ProbeLibrary(canonical, DirectoryOf(canonical), &runner);
  count.records = 1;
  if (!top.isValid()) throw InvalidLibrary(path, loaderText);
  if (top.arch != kArch64) throw ArchMismatch(path, loaderText);
  DependencyWalk walk(&runner);
  walk.Run(std::move(top), native, canonical);
  walk.CheckSymbols();
  count.records = walk.records();
  ThrowVerdict(path, loaderText, walk);
}

}  // namespace kt::internal::dynload
