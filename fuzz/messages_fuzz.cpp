// Message tables with fuzzed texts and shapes, then kt_printm/kt_sprintm at
// fuzzed capacities with arguments that match the English holes.
//
// Input: a shape byte (texts in tables A and B of module 7, texts of a
// translation of it), a byte that spoils one code of A, then the texts and
// last a script of operations, separated by newlines. Checked: an
// independent model of the hole grammar accepts exactly the texts that
// register; kt_sprintm stays inside its buffer (allocated at its exact
// size), terminates it and stores a prefix of what kt_printm writes; texts
// holding only "%d", "%s" and "%%" print as the model renders them.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include "kt/messages.h"

namespace {

void Fail(const char* what) {
  std::fprintf(stderr, "messages_fuzz: %s\n", what);
  std::abort();
}

int Append(void* data, const char* text, int length) {
  static_cast<std::string*>(data)->append(text, static_cast<size_t>(length));
  return length;
}

int PrintSpot(const void*, kt_putsn_function putsn, void* data) { return putsn(data, "f:1", 3); }
const kt_percent_u_argument kSpot = {PrintSpot, nullptr};

// The argument types of an English text, one letter each: i int, l long,
// L long long, D double, E long double, p pointer, U "%U".
struct Model {
  std::string types;
  bool valid = true;
  bool simple = true;  // only "%d", "%s" and "%%"
};

char TypeOf(char letter, const std::string& length) {
  bool none = length.empty() || length == "h" || length == "hh";
  bool wide = length == "l" || length == "z" || length == "t";
  bool longer = length == "ll" || length == "q" || length == "j";
  if (std::strchr("feEgG", letter))
    return length == "L" ? 'E' : (length.empty() || length == "l") ? 'D' : 0;
  if (letter == 'c' || letter == 'p') return !length.empty() ? 0 : letter == 'c' ? 'i' : 'p';
  if (letter == 'n') return none || wide || longer ? 'p' : 0;
  return none ? 'i' : wide ? 'l' : longer ? 'L' : 0;
}

Model Parse(const std::string& text) {
  static const std::regex kSpec("[-+ #0']*(\\*|[0-9]*)(\\.(\\*|[0-9]*))?(hh|h|ll|l|q|j|z|t|L)?");
  Model m;
  for (size_t i = text.find('%'); i != std::string::npos; i = text.find('%', i + 1)) {
    size_t j = text.find_first_of("diuoxXfeEgGcspn%U", i + 1);
    if (j == std::string::npos) {
      m.valid = m.simple = false;
      return m;
    }
    std::string between = text.substr(i + 1, j - i - 1);
    char letter = text[j];
    i = j;
    std::smatch parts;
    char type = 0;
    if (std::strchr("%sU", letter)) {
      type = between.empty() ? (letter == '%' ? '-' : letter == 's' ? 'p' : 'U') : 0;
    } else if (std::regex_match(between, parts, kSpec)) {
      type = TypeOf(letter, parts[4]);
    }
    bool plain = std::strchr("%s", letter) || (letter == 'd' && between.empty());
    m.simple = m.simple && type != 0 && plain;
    if (type == 0) m.valid = false;
    if (type == 0 || type == '-') continue;
    m.types.append(static_cast<size_t>(std::count(between.begin(), between.end(), '*')), 'i');
    m.types += type;
  }
  return m;
}

// Calls g with the fuzzer's value of one argument type.
template <class G>
bool WithValue(char type, G&& g) {
  switch (type) {
    case 'i': return g(42);
    case 'l': return g(1234567890123L);
    case 'L': return g(-77LL);
    case 'D': return g(3.25);
    case 'E': return g(2.5L);
    case 'p': return g(static_cast<const void*>("str"));
    default: return g(&kSpot);
  }
}

// Calls f with arguments of `types`: up to 3 of any mix, or up to 12 of one.
template <int Depth, class F, class... A>
bool Dispatch(const std::string& types, size_t k, F& f, A... a) {
  if (k == types.size()) return f(a...), true;
  if (k == 0 && types.size() > 3) {
    if (types.size() > 12 || types.find_first_not_of(types[0]) != std::string::npos) return false;
    return WithValue(types[0], [&](auto v) { return f(v, v, v, v, v, v, v, v, v, v, v, v), true; });
  }
  if constexpr (Depth > 0) {
    return WithValue(types[k],
                     [&](auto v) { return Dispatch<Depth - 1>(types, k + 1, f, a..., v); });
  }
  return false;
}

// The expected print of a simple text: English holes in order, or a
// translation's "%n" references to them.
std::string Render(const char* text, const std::string& types, bool english) {
  std::string out;
  size_t hole = 0;
  for (const char* p = text; *p; ++p) {
    if (*p != '%') { out += *p; continue; }
    if (p[1] == '%') { out += '%'; ++p; continue; }
    size_t n = english ? ++hole : std::strtoul(p + 1, nullptr, 10);
    if (n >= 1 && n <= types.size()) out += types[n - 1] == 'i' ? "42" : "str";
    p += english ? 1 : std::strspn(p + 1, "0123456789");
  }
  return out;
}

// The texts and codes of one table of module 7.
struct Texts {
  std::vector<std::string> store;
  std::vector<const char*> texts;
  std::vector<int> codes{-1};
};

void Print(kt_message_context* mc, int code, size_t capacity) {
  const char* english = kt_get_primary_message(mc, code);
  Model m = Parse(english ? english : "");
  std::string full;
  auto call = [&](auto... a) {
    full.clear();
    int total = kt_printm(mc, Append, &full, code, a...);
    if (total != (english ? static_cast<int>(full.size()) : 0)) Fail("kt_printm count");
    std::vector<char> buffer(capacity ? capacity : 1, '#');
    int n = kt_sprintm(mc, buffer.data(), capacity, code, a...);
    if (capacity == 0) {
      if (n != -1 || buffer[0] != '#') Fail("capacity 0 must store nothing");
      return;
    }
    size_t stored = std::min(full.size(), capacity - 1);
    if (n != static_cast<int>(stored) || buffer[stored] != '\0' ||
        std::memcmp(buffer.data(), full.data(), stored) != 0)
      Fail("kt_sprintm stores no prefix of kt_printm");
  };
  if (!Dispatch<3>(m.types, 0, call) || !english || !m.valid || !m.simple) return;
  const char* text = kt_get_message(mc, code);
  if (full != Render(text, m.types, text == english)) Fail("differs from the model");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  std::string input(reinterpret_cast<const char*>(data + 2), size - 2);
  for (size_t i = 0, run = 0; i < input.size(); ++i) {  // widths past 9999 only take time
    run = std::isdigit(static_cast<unsigned char>(input[i])) ? run + 1 : 0;
    if (run > 4) return 0;
  }
  std::vector<std::string> pieces;
  for (size_t at = 0, nl; at <= input.size(); at = nl + 1) {
    nl = std::min(input.find('\n', at), input.size());
    pieces.push_back(input.substr(at, nl - at));
  }
  size_t counts[3] = {1u + data[0] % 4u, 1u + data[0] / 4u % 4u, data[0] / 16u % 5u};
  Texts t[3];
  size_t next = 0;
  for (int k = 0; k < 3; ++k) {
    for (size_t i = 0; i < counts[k]; ++i) {
      t[k].store.push_back(next < pieces.size() ? pieces[next++].c_str() : "x");
      t[k].codes.insert(t[k].codes.end() - 1, 7 << 16 | static_cast<int>(i + 1));
    }
    for (const std::string& text : t[k].store) t[k].texts.push_back(text.c_str());
  }
  std::string script = next < pieces.size() ? pieces.back() : "";
  size_t spoilt = data[1] / 4u % counts[0];
  if (data[1] % 4 == 1) t[0].codes[spoilt] = 5;     // wrong code
  if (data[1] % 4 == 2) t[0].codes[spoilt] = -1;    // early terminator
  if (data[1] % 4 == 3) t[0].codes[counts[0]] = 9;  // no terminator

  kt_message_context mc;
  int status;
  if (kt_initialize_message_context(&status, &mc, ktMalloc, ktRealloc) != 0) Fail("initialise");
  for (const Texts& one : t) {  // registration agrees with the model
    for (const char* text : one.texts) {
      const int codes[] = {9 << 16 | 1, -1};
      const kt_message_table single = {1, 9, codes, &text, &text, ""};
      bool accepted = kt_add_primary_message_table(&status, &mc, &single, ktRealloc) == 0;
      if (accepted != Parse(text).valid) Fail("registration differs from the model");
      kt_remove_primary_message_table(&status, &mc, &single);
    }
  }
  kt_message_table tables[2];
  for (int k = 0; k < 2; ++k) {
    tables[k] = {static_cast<int>(counts[k]), 7, t[k].codes.data(), t[k].texts.data(),
                 t[k].texts.data(), "fuzz"};
  }
  const int modules[] = {7, -1};
  const kt_language_module translation = {t[2].codes.data(), t[2].texts.data(),
                                          static_cast<int>(counts[2])};
  const kt_language_table language = {modules, &translation};
  for (size_t i = 0; i < script.size(); ++i) {
    unsigned op = static_cast<unsigned char>(script[i]);
    unsigned kind = op % 8, arg = op / 8;
    if (kind < 2) {
      kt_add_primary_message_table(&status, &mc, &tables[kind], ktRealloc);
    } else if (kind < 4) {
      kt_remove_primary_message_table(&status, &mc, &tables[kind - 2]);
    } else if (kind == 4) {
      kt_add_language(&status, &mc, "de", &language, ktRealloc);
    } else if (kind == 5) {
      kt_change_language(&mc, arg % 2 ? "de" : nullptr);
    } else {
      size_t capacity = i + 1 < script.size() ? static_cast<unsigned char>(script[++i]) : 0;
      Print(&mc, 7 << 16 | static_cast<int>(arg % 5 + 1), capacity);
    }
  }
  kt_clear_message_context(&mc, ktFree);
  return 0;
}
