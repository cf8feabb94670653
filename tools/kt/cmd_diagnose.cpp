// kt diagnose: loads each library as a plug-in host would and, when it does
// not load, prints the cause the library's diagnosis found: the missing
// libraries as a tree of the chains that need them, the missing symbols
// grouped by the library that needs them, and the loader's own text.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "kt/encodings.h"
#include "kt/loading.h"
#include "kt/memory.h"

namespace kttool {
namespace {

// Paths go to the loader in UTF-8, so arguments are read as UTF-8 and
// names printed back in it.
cx::ustring FromUtf8(const char* text) {
  std::unique_ptr<kt_utf16, void (*)(void*)> wide(utf8_to_utf16(text, -1), &ktFree);
  return wide ? cx::ustring(wide.get()) : cx::ustring();
}

std::string ToUtf8(const cx::ustring& text) {
  std::unique_ptr<char, void (*)(void*)> narrow(
      utf16_to_utf8(text.data(), static_cast<int>(text.size())), &ktFree);
  return narrow ? std::string(narrow.get()) : std::string();
}

std::string BaseName(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

const char* CauseOf(const LoadLibraryExceptionBase& e) {
  if (dynamic_cast<const InvalidLibrary*>(&e)) return "not a shared library (not an ELF file)";
  if (dynamic_cast<const ArchMismatch*>(&e)) return "wrong architecture (an ELF file, but not 64-bit)";
  if (dynamic_cast<const MissingDependencyAndSymbol*>(&e)) return "missing libraries and symbols";
  if (dynamic_cast<const MissingDependency*>(&e)) return "missing libraries";
  if (dynamic_cast<const MissingSymbol*>(&e)) return "missing symbols";
  return "does not load; nothing wrong found beyond the loader's message";
}

// The chains as one tree: a shared start is printed once, each level two
// blanks deeper; the last name of a chain is the missing library.
struct TreeNode {
  std::string name;
  bool missing = false;
  std::vector<TreeNode> children;
};

void AddChain(TreeNode* node, const LoadLibraryExceptionBase::Chain& chain, size_t from) {
  if (from == chain.size()) {
    node->missing = true;
    return;
  }
  std::string name = from == 0 ? BaseName(ToUtf8(chain[0])) : ToUtf8(chain[from]);
  for (TreeNode& child : node->children) {
    if (child.name == name) return AddChain(&child, chain, from + 1);
  }
  node->children.push_back(TreeNode{name, false, {}});
  AddChain(&node->children.back(), chain, from + 1);
}

void PrintTree(const TreeNode& node, int depth) {
  for (const TreeNode& child : node.children) {
    std::printf("%*s%s%s\n", 2 * depth, "", child.name.c_str(),
                child.missing && child.children.empty() ? " (not found)" : "");
    PrintTree(child, depth + 1);
  }
}

// "libA.so -> libB.so needs:" and the symbols below it, in first-seen order.
void PrintSymbols(const LoadLibraryExceptionBase::MissingSymbols& symbols) {
  std::vector<std::pair<std::string, std::vector<std::string>>> groups;
  for (const auto& symbol : symbols) {
    std::string needer;
    for (size_t i = 0; i < symbol.second.size(); ++i) {
      std::string name = ToUtf8(symbol.second[i]);
      needer += i == 0 ? BaseName(name) : " -> " + name;
    }
    auto group = groups.begin();
    while (group != groups.end() && group->first != needer) ++group;
    if (group == groups.end()) group = groups.insert(groups.end(), {needer, {}});
    group->second.push_back(symbol.first);
  }
  for (const auto& group : groups) {
    std::printf("  %s needs:\n", group.first.c_str());
    for (const std::string& name : group.second) std::printf("    %s\n", name.c_str());
  }
}

void PrintFailure(const char* library, const LoadLibraryExceptionBase& e) {
  std::printf("%s: %s\n", library, CauseOf(e));
  TreeNode root;
  for (const auto& chain : e.dependencyChains()) AddChain(&root, chain, 0);
  PrintTree(root, 1);
  PrintSymbols(e.missingSymbols());
  std::string loader = ToUtf8(e.loaderText());
  std::printf("  loader: %s\n", loader.empty() ? "(no message)" : loader.c_str());
}

}  // namespace

int RunDiagnose(int argc, char** argv) {
  if (argc < 2 || std::strcmp(argv[1], "--help") == 0) {
    std::printf("Usage: kt diagnose LIB...\n"
                "Loads each LIB as a plug-in host does (now, into the global scope) and\n"
                "prints \"LIB: loads\", or why it does not: not a library, the wrong\n"
                "architecture, the libraries missing with the chains that need them, the\n"
                "symbols no loaded library defines grouped by the library that needs them.\n"
                "A LIB without '/' is a file in this directory when there is one, else\n"
                "it is searched for as the loader does. Exit status 0 when every LIB\n"
                "loads, 1 otherwise.\n");
    return argc < 2 ? 2 : 0;
  }
  int status = 0;
  for (int i = 1; i < argc; ++i) {
    // A file here is meant, as ldd takes it; other bare names are searched
    // for as the loader does.
    std::string path = argv[i];
    if (path.find('/') == std::string::npos && access(path.c_str(), F_OK) == 0) path = "./" + path;
    try {
      void* handle = ktLoadLibraryWithDiagnosticMsg(FromUtf8(path.c_str()));
      std::printf("%s: loads\n", argv[i]);
      ktUnloadLibrary(handle);
    } catch (const LoadLibraryExceptionBase& e) {
      PrintFailure(argv[i], e);
      status = 1;
    }
    std::fflush(stdout);
  }
  return status;
}

}  // namespace kttool
