// Process-wide interning of character strings: the atom table of the
// in-house strings library, which the symbol table (kt_symtab_*) uses.
//
// makeAtom returns an atom whose characters stay valid, at the same
// address, for the life of the process; equal strings give the same
// address. findAtom never inserts: for a string that was never interned it
// returns BasicAtom<char>::m_default. Both are safe to call from any
// thread at any time.
#ifndef KT_INTERNAL_ATOM_TABLE_H
#define KT_INTERNAL_ATOM_TABLE_H

#include <cstddef>
#include <string>

namespace bedrock::strings {

template <typename CharT>
class BasicAtom {
public:
  constexpr BasicAtom() : chars_(nullptr), length_(0) {}
  constexpr BasicAtom(const CharT* chars, size_t length) : chars_(chars), length_(length) {}

  // The interned characters, NUL-terminated (the string may also hold
  // NULs of its own; size() counts them). Null for the default atom.
  const CharT* c_str() const { return chars_; }
  size_t size() const { return length_; }

  bool operator==(const BasicAtom& other) const { return chars_ == other.chars_; }
  bool operator!=(const BasicAtom& other) const { return chars_ != other.chars_; }

  // The atom findAtom answers for "never interned".
  static const BasicAtom m_default;

private:
  const CharT* chars_;
  size_t length_;
};

template <typename CharT>
BasicAtom<CharT> makeAtom(const std::basic_string<CharT>& text);

template <typename CharT>
BasicAtom<CharT> findAtom(const std::basic_string<CharT>& text);

template <>
const BasicAtom<char> BasicAtom<char>::m_default;

template <>
BasicAtom<char> makeAtom<char>(const std::string& text);
template <>
BasicAtom<char> findAtom<char>(const std::string& text);

// Number of distinct strings interned so far (for tests and statistics).
size_t atomCount();

}  // namespace bedrock::strings

#endif  // KT_INTERNAL_ATOM_TABLE_H
