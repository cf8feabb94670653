// Name hashes against std::unordered_map<std::string, const char*> and the
// process-wide symbol table, under operation sequences decoded from the
// input (short names, names with NUL bytes, names long enough for a block
// of their own).
//
// Checked after every step: a known name comes back as the same pointer and
// allocates nothing; a new name is copied into the pool right after the
// previous one, or into a new block of the documented size when it does not
// fit strictly; lookups never insert; every pointer handed out still holds
// its name at the end.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unordered_map>

#include "kt/containers.h"
#include "kt/contexts.h"

namespace {

void Fail(const char* what) {
  std::fprintf(stderr, "namehash_fuzz: %s\n", what);
  std::abort();
}

using Model = std::unordered_map<std::string, const char*>;

// Adds `text` (or its first `length` bytes, which may hold a NUL) and
// checks the interned pointer and the pool against the model.
void Add(kt_namehash* names, Model& model, const std::string& text, bool withLength) {
  std::string name = text.c_str();  // the name ends at the first NUL
  kt_namehash_block* block = names->currentBlock;
  char* free = block ? block->nextFree : nullptr;
  size_t room = block ? static_cast<size_t>(block->end - block->nextFree) : 0;
  const char* p = withLength ? kt_namehash_add_with_length(names, text.data(), text.size())
                             : kt_namehash_add(names, text.c_str());
  auto known = model.find(name);
  if (known != model.end()) {
    if (p != known->second || names->currentBlock != block || block->nextFree != free)
      Fail("a known name was copied again");
    return;
  }
  if (std::strcmp(p, name.c_str()) != 0) Fail("interned text");
  model.emplace(name, p);
  size_t n = name.size();
  kt_namehash_block* now = names->currentBlock;
  if (block != nullptr && n + 1 < room) {  // strictly less: an exact fill does not fit
    if (now != block || p != free) Fail("name not placed after the previous one");
  } else {
    size_t size = n + 25 >= 16024 ? n + 16025 : 16024;
    if (now == block || now->previous != block || p != reinterpret_cast<char*>(now + 1) ||
        now->end != reinterpret_cast<char*>(now) + size)
      Fail("new pool block");
  }
  if (now->nextFree != p + n + 1) Fail("next free byte");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  kt_namehash* names = kt_new_namehash(ktGetMemoryContext(), in.ConsumeIntegralInRange(-1, 40));
  Model model;
  while (in.remaining_bytes() > 0) {
    int op = in.ConsumeIntegralInRange(0, 4);
    std::string text = in.ConsumeRandomLengthString(24);
    if (op == 4)
      text = "n" + text.substr(0, 1) + std::string(in.ConsumeIntegralInRange(15990, 16010), 'L');
    if (op == 0 || op == 4) {
      Add(names, model, text, false);
    } else if (op == 1) {
      Add(names, model, text, true);
    } else if (op == 2) {
      auto known = model.find(text.c_str());
      if (kt_namehash_lookup(names, text.c_str()) != (known == model.end() ? nullptr : known->second))
        Fail("lookup");
    } else {
      // The symbol table (two bytes at most: it keeps every name for good):
      // interning is idempotent and lookups find it.
      text.resize(std::min<size_t>(text.size(), 2));
      const char* atom = kt_namehash_add_with_length(nullptr, text.data(), text.size());
      if (std::memcmp(atom, text.data(), text.size() + 1) != 0 ||
          kt_symtab_add_with_length(text.data(), text.size()) != atom ||
          (text.find('\0') == std::string::npos && kt_namehash_lookup(nullptr, text.c_str()) != atom))
        Fail("symbol table");
    }
    if (names->table.count != static_cast<int32_t>(model.size())) Fail("count");
  }
  for (auto& [name, pointer] : model)
    if (name != pointer || kt_namehash_lookup(names, name.c_str()) != pointer)
      Fail("an interned name moved or changed");
  kt_delete_namehash(names);
  return 0;
}
