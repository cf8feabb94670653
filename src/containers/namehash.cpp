// Name hashes (interned names in a pool of large blocks) and the
// process-wide symbol table.
#include <cstring>
#include <string>

#include "internal/atom_table.h"
#include "kt/containers.h"

namespace {

constexpr size_t kBlockSize = 16024;  // header (24 bytes) + 16,000 bytes of room

const char* KeyOf(const void* element) {
  const char* key;
  std::memcpy(&key, element, sizeof key);
  return key;
}

void StoreKey(void* element, const char* key) { std::memcpy(element, &key, sizeof key); }

// Starts a new pool block big enough for a name of length n; the rest of the
// old block is abandoned.
void NewBlock(kt_namehash* namehash, size_t n) {
  size_t size = n + 25 >= kBlockSize ? n + 16025 : kBlockSize;
  auto* block = static_cast<kt_namehash_block*>(kt_mem_alloc(namehash->memoryContext, size));
  block->previous = namehash->currentBlock;
  block->nextFree = reinterpret_cast<char*>(block + 1);
  block->end = reinterpret_cast<char*>(block) + size;
  namehash->currentBlock = block;
}

// The copy-key callback of a name hash's table: copies a new name into the
// pool. With the copy flag clear the caller's pointer is stored as it is.
void CopyNameIntoPool(void* context, void* destination, const void* source) {
  auto* namehash = static_cast<kt_namehash*>(context);
  const char* name = KeyOf(source);
  if (!namehash->copyFlag) {
    StoreKey(destination, name);
    return;
  }
  size_t n = std::strlen(name);
  kt_namehash_block* block = namehash->currentBlock;
  // Strictly less: a name that would fill the remainder exactly starts a new
  // block. Kept so, since pool sizes observed by callers follow from it.
  if (block == nullptr || !(n + 1 < static_cast<size_t>(block->end - block->nextFree))) {
    NewBlock(namehash, n);
    block = namehash->currentBlock;
  }
  std::memcpy(block->nextFree, name, n + 1);
  StoreKey(destination, block->nextFree);
  block->nextFree += n + 1;
}

}  // namespace

extern "C" void kt_initialize_namehash(kt_namehash* namehash, kt_mem_context* context,
                                       int32_t initialSize) {
  kt_initialize_ghash_table(&namehash->table, context, kt_ghash_string_key,
                            kt_ghash_compare_string_keys, CopyNameIntoPool, nullptr, nullptr,
                            nullptr, sizeof(char*), 0, 0, sizeof(char*), namehash, initialSize,
                            0.25f, 1.0f);
  namehash->memoryContext = context;
  namehash->currentBlock = nullptr;
  namehash->copyFlag = 0;
}

extern "C" kt_namehash* kt_new_namehash(kt_mem_context* context, int32_t initialSize) {
  auto* namehash = static_cast<kt_namehash*>(kt_mem_alloc(context, sizeof(kt_namehash)));
  try {
    kt_initialize_namehash(namehash, context, initialSize);
  } catch (...) {
    kt_mem_free(context, namehash);
    throw;
  }
  return namehash;
}

extern "C" const char* kt_namehash_add(kt_namehash* namehash, const char* name) {
  if (namehash == nullptr)
    return kt_symtab_add(name);
  namehash->copyFlag = 1;
  void* element;
  kt_ghash_insert_key(&namehash->table, &name, &element, nullptr);
  return KeyOf(element);
}

extern "C" const char* kt_namehash_add_with_length(kt_namehash* namehash, const char* characters,
                                                   size_t length) {
  if (namehash == nullptr)
    return kt_symtab_add_with_length(characters, length);
  auto* temporary = static_cast<char*>(ktMallocWithCheck(length + 1));
  std::memcpy(temporary, characters, length);
  temporary[length] = '\0';
  const char* interned;
  try {
    interned = kt_namehash_add(namehash, temporary);
  } catch (...) {
    ktFree(temporary);
    throw;
  }
  ktFree(temporary);
  return interned;
}

extern "C" const char* kt_namehash_lookup(kt_namehash* namehash, const char* name) {
  if (namehash == nullptr)
    return kt_symtab_lookup(name);
  void* data = kt_ghash_query_data(&namehash->table, &name);
  return data ? KeyOf(data) : nullptr;
}

extern "C" void kt_clear_namehash(kt_namehash* namehash) {
  while (namehash->currentBlock != nullptr) {
    kt_namehash_block* block = namehash->currentBlock;
    namehash->currentBlock = block->previous;
    kt_mem_free(namehash->memoryContext, block);
  }
  kt_clear_ghash_table(&namehash->table);
}

extern "C" void kt_delete_namehash(kt_namehash* namehash) {
  if (namehash == nullptr)
    return;
  kt_mem_context* context = namehash->memoryContext;
  kt_clear_namehash(namehash);
  kt_mem_free(context, namehash);
}

// ---- process-wide symbol table ----------------------------------------------

extern "C" const char* kt_symtab_add(const char* name) {
  if (name == nullptr)
    return nullptr;
  return bedrock::strings::makeAtom<char>(std::string(name)).c_str();
}

extern "C" const char* kt_symtab_add_with_length(const char* characters, size_t length) {
  if (characters == nullptr)
    return nullptr;
  return bedrock::strings::makeAtom<char>(std::string(characters, length)).c_str();
}

extern "C" const char* kt_symtab_lookup(const char* name) {
  if (name == nullptr)
    return nullptr;
  bedrock::strings::BasicAtom<char> atom = bedrock::strings::findAtom<char>(std::string(name));
  if (atom == bedrock::strings::BasicAtom<char>::m_default)
    return nullptr;
  return atom.c_str();
}
