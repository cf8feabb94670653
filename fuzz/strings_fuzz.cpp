// The byte-string utilities on arbitrary input, each in exactly sized
// buffers so that any read or write past a bound is a sanitizer report.
// Input: an operation byte, a parameter byte, then the text.
//
// Checked against independent models: ktPatternMatch against dynamic
// programming in both case modes; ktFgets returns every byte once, with
// each line end as one LF, in lines that fit the buffer; ktF2cstr,
// ktC2fstr and ktStrncpyWithEllipses against their rules; the multibyte
// stepping and searches against boundaries found with mbrtowc in a real
// locale.
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "kt/strings.h"

namespace {

void Check(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "strings_fuzz: %s\n", what);
  std::abort();
}

bool ModelMatch(const std::string& p, const std::string& t, bool exact) {
  std::vector<char> row(t.size() + 2, 0), below(t.size() + 2, 0);  // below: p[i+1..]
  below[t.size()] = 1;
  for (size_t i = p.size(); i-- > 0; std::swap(row, below))
    for (size_t j = t.size() + 1; j-- > 0;)
      row[j] = p[i] == '*' ? below[j] || (j < t.size() && row[j + 1])
                           : j < t.size() && below[j + 1] &&
                                 (p[i] == t[j] || (!exact && p[i] == std::tolower((uint8_t)t[j])));
  return below[0];
}

void FuzzPattern(const std::string& text) {
  size_t cut = text.find('\n');
  if (cut == std::string::npos || text.size() > 300) return;
  std::string pattern = text.substr(0, cut).c_str(), subject = text.substr(cut + 1).c_str();
  for (int exact = 0; exact < 2; ++exact)
    Check(ktPatternMatch(pattern.c_str(), subject.c_str(), exact) ==
              (pattern.empty() || ModelMatch(pattern, subject, exact)),
          "ktPatternMatch differs from the model");
}

void FuzzFgets(std::string text, int size) {
  for (char& c : text) c = c ? c : 'x';  // a line cannot carry a NUL out
  std::string expected, got;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
    expected += text[i] == '\r' ? '\n' : text[i];
  }
  FILE* f = fmemopen(text.empty() ? nullptr : &text[0], text.size(), "r");
  if (f == nullptr) return;
  std::vector<char> buffer(size);
  while (const char* line = ktFgets(buffer.data(), size, f)) {
    size_t n = std::strlen(line);
    Check(n < static_cast<size_t>(size) && (n > 0 || size == 1), "line too long or empty");
    Check(std::memchr(line, '\n', n) == nullptr || line[n - 1] == '\n', "LF inside a line");
    if (size == 1) break;
    got.append(line, n);
  }
  std::fclose(f);
  Check(size == 1 || got == expected, "ktFgets lost or changed bytes");
}

void FuzzFixedFields(const std::string& text, size_t n) {
  std::vector<char> out(n + 1);
  ktF2cstr(text.data(), text.size(), out.data(), n + 1, n & 1);
  size_t keep = n & 1 ? text.find_last_not_of(' ') + 1 : std::min(text.find(' '), text.size());
  Check(std::string(out.data()) == text.substr(0, std::min(keep, n)).c_str(), "ktF2cstr");
  std::vector<char> field(n);
  ktC2fstr(text.c_str(), field.data(), n);
  std::string c = text.c_str();
  Check(std::string(field.begin(), field.end()) == (c + std::string(n, ' ')).substr(0, n),
        "ktC2fstr");
  ktStrncpyWithEllipses(field.data(), text.c_str(), n);
  std::string cut = c.size() < n ? c + '\0'
                   : n < 4        ? c.substr(0, n)  // unterminated
                                  : c.substr(0, n - 4) + std::string("...", 4);
  Check(cut.compare(0, n, field.data(), std::min(n, cut.size())) == 0, "ktStrncpyWithEllipses");
}

// Steps through the text with the model's characters (mbrtowc from the
// whole rest; an invalid or cut-short sequence is one byte) beside ours.
void FuzzMultiByte(const std::string& text, int param) {
  static const char* locales[] = {"ja_JP.EUC-JP", "zh_CN.GB18030", "en_US.UTF-8", "C"};
  std::string c = text.substr(0, 512).c_str();
  if (std::setlocale(LC_ALL, locales[param % 4]) == nullptr) return;
  std::vector<char> copy(c.c_str(), c.c_str() + c.size() + 1);  // exactly sized
  const char* s = copy.data();
  const char* needle = s + param % (c.size() + 1);  // any byte, maybe mid-character
  char wanted = c.empty() ? 'A' : c[param % c.size()];
  const char *p = s, *first = nullptr, *last = nullptr, *found = nullptr;
  for (size_t i = 0; i < c.size();) {
    std::mbstate_t state{};
    size_t n = std::mbrtowc(nullptr, s + i, c.size() - i, &state);
    n = n == 0 || n > c.size() ? 1 : n;
    Check(p == s + i, "ktMultiByteNextChar left the boundaries");
    Check(ktMultiBytePrevChar(s, s + i + n) == s + i, "ktMultiBytePrevChar");
    if (n == 1 && s[i] == wanted) last = s + i, first = first ? first : last;
    if (!found && std::strncmp(s + i, needle, std::strlen(needle)) == 0) found = s + i;
    p = ktMultiByteNextChar(p);
    i += n;
  }
  Check(p == s + c.size() && ktMultiByteNextChar(p) == p, "walk does not end at the terminator");
  Check(ktMultiByteStrChr(s, wanted) == first && ktMultiByteStrrChr(s, wanted) == last, "strchr");
  Check(ktMultiByteStrStr(s, needle) == (*needle ? found : s), "ktMultiByteStrStr");
  std::setlocale(LC_ALL, "C");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  std::string text(reinterpret_cast<const char*>(data + 2), size - 2);
  switch (data[0] % 4) {
    case 0: FuzzPattern(text); break;
    case 1: FuzzFgets(text, 1 + data[1] % 16); break;
    case 2: FuzzFixedFields(text, data[1] % 40); break;
    default: FuzzMultiByte(text, data[1]); break;
  }
  return 0;
}
