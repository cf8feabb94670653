// The process-wide atom table: a reader/writer-locked hash set of string
// views whose characters live in blocks that are never freed, so that an
// atom's address is stable for the life of the process.
#include "internal/atom_table.h"

#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace bedrock::strings {

template <>
const BasicAtom<char> BasicAtom<char>::m_default{};

namespace {

// Character storage: large blocks carved front to back; a string longer
// than a block gets a block of its own.
class CharArena {
public:
  const char* copy(std::string_view text) {
    size_t need = text.size() + 1;
    if (need > room_) {
      size_t size = need > kBlockSize ? need : kBlockSize;
      next_ = new char[size];
      room_ = size;
    }
    char* out = next_;
    std::memcpy(out, text.data(), text.size());
    out[text.size()] = '\0';
    next_ += need;
    room_ -= need;
    return out;
  }

private:
  static constexpr size_t kBlockSize = 64 * 1024;
  char* next_ = nullptr;
  size_t room_ = 0;
};

struct AtomTable {
  std::shared_mutex lock;
  std::unordered_set<std::string_view> atoms;
  CharArena arena;
};

// Deliberately leaked: atoms must outlive every static destructor that
// might still hold one.
AtomTable& Table() {
  static AtomTable* table = new AtomTable;
  return *table;
}

}  // namespace

template <>
BasicAtom<char> makeAtom<char>(const std::string& text) {
  AtomTable& table = Table();
  std::string_view key(text);
  {
    std::shared_lock<std::shared_mutex> reader(table.lock);
    auto it = table.atoms.find(key);
    if (it != table.atoms.end())
      return BasicAtom<char>(it->data(), it->size());
  }
  std::unique_lock<std::shared_mutex> writer(table.lock);
  auto it = table.atoms.find(key);
  if (it == table.atoms.end())
    it = table.atoms.insert(std::string_view(table.arena.copy(key), key.size())).first;
  return BasicAtom<char>(it->data(), it->size());
}

template <>
BasicAtom<char> findAtom<char>(const std::string& text) {
  AtomTable& table = Table();
  std::shared_lock<std::shared_mutex> reader(table.lock);
  auto it = table.atoms.find(std::string_view(text));
  if (it == table.atoms.end())
    return BasicAtom<char>::m_default;
  return BasicAtom<char>(it->data(), it->size());
}

size_t atomCount() {
  AtomTable& table = Table();
  std::shared_lock<std::shared_mutex> reader(table.lock);
  return table.atoms.size();
}

}  // namespace bedrock::strings
