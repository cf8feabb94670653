// Peers for the encoding tests: ICU called directly on a converter of the
// test's own, glibc's iconv, and random text drawn from what both agree an
// encoding can hold.
#ifndef KT_TESTS_I18N_ENCODING_PEERS_H
#define KT_TESTS_I18N_ENCODING_PEERS_H

#include <iconv.h>
#include <unicode/ucnv.h>
#include <unicode/utf16.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace peers {

inline const char* const kEncodings[] = {
    "ISO-8859-1", "ISO-8859-15", "windows-1252", "Shift_JIS", "EUC-JP", "GB18030",
    "Big5",       "KOI8-R",      "UTF-16BE",     "UTF-16LE",  "UTF-32", "UTF-8"};

using Converter = std::unique_ptr<UConverter, void (*)(UConverter*)>;
inline Converter Open(const char* name) {
  UErrorCode status = U_ZERO_ERROR;
  return Converter(ucnv_open(name, &status), ucnv_close);
}

// ICU's own answers, measured first and then converted into exact storage.
inline std::u16string IcuToUtf16(UConverter* c, const std::string& bytes) {
  UErrorCode status = U_ZERO_ERROR;
  int length = static_cast<int>(bytes.size());
  std::u16string out(ucnv_toUChars(c, nullptr, 0, bytes.data(), length, &status) + 1u, u'\0');
  status = U_ZERO_ERROR;
  out.resize(ucnv_toUChars(c, &out[0], int(out.size()), bytes.data(), length, &status));
  return out;
}

inline std::string IcuFromUtf16(UConverter* c, const std::u16string& text) {
  UErrorCode status = U_ZERO_ERROR;
  int length = static_cast<int>(text.size());
  std::string out(ucnv_fromUChars(c, nullptr, 0, text.data(), length, &status) + 1u, '\0');
  status = U_ZERO_ERROR;
  out.resize(ucnv_fromUChars(c, &out[0], int(out.size()), text.data(), length, &status));
  return out;
}

// glibc's iconv (which takes the ICU names above too); false when it
// refuses the input.
inline bool Iconv(const char* from, const char* to, const std::string& in, std::string* out) {
  iconv_t cd = iconv_open(to, from);
  out->assign(in.size() * 4 + 16, '\0');
  char* src = const_cast<char*>(in.data());
  size_t srcLeft = in.size();
  char* dst = &(*out)[0];
  size_t dstLeft = out->size();
  bool ok = cd != reinterpret_cast<iconv_t>(-1) &&
            iconv(cd, &src, &srcLeft, &dst, &dstLeft) != static_cast<size_t>(-1) &&
            iconv(cd, nullptr, nullptr, &dst, &dstLeft) != static_cast<size_t>(-1);
  if (cd != reinterpret_cast<iconv_t>(-1)) iconv_close(cd);
  out->resize(out->size() - dstLeft);
  return ok;
}

inline std::string AsBytes(const std::u16string& text) {  // UTF-16LE
  return std::string(reinterpret_cast<const char*>(text.data()), text.size() * 2);
}

inline void Append(std::u16string* text, char32_t c) {
  if (c > 0xFFFF) *text += static_cast<char16_t>(U16_LEAD(c));
  *text += static_cast<char16_t>(c > 0xFFFF ? U16_TRAIL(c) : c);
}

// Code points from every plane that the encoding holds: ICU round-trips
// them, and iconv encodes and decodes them as ICU does. (Not thread-safe.)
inline const std::vector<char32_t>& Repertoire(const char* encoding) {
  static std::map<std::string, std::vector<char32_t>> cache;
  std::vector<char32_t>& keep = cache[encoding];
  if (!keep.empty()) return keep;
  static const char32_t kRanges[][3] = {  // first, last, step
      {0x09, 0x0A, 1},      {0x20, 0x7E, 1},     {0xA0, 0x24F, 1},      {0x370, 0x4FF, 1},
      {0x2010, 0x20AC, 1},  {0x2100, 0x2667, 3}, {0x3000, 0x30FF, 1},   {0x4E00, 0x9FFF, 7},
      {0xAC00, 0xD7A3, 13}, {0xFF01, 0xFF9F, 1}, {0x10000, 0x1FFFF, 61}, {0x20000, 0x10FFFD, 4099}};
  Converter c = Open(encoding);
  for (const auto& range : kRanges)
    for (char32_t cp = range[0]; cp <= range[1]; cp += range[2]) {
      std::u16string one;
      Append(&one, cp);
      std::string ours = IcuFromUtf16(c.get(), one), theirs, back;
      if (IcuToUtf16(c.get(), ours) == one && Iconv("UTF-16LE", encoding, AsBytes(one), &theirs) &&
          theirs == ours && Iconv(encoding, "UTF-16LE", ours, &back) && back == AsBytes(one))
        keep.push_back(cp);
    }
  return keep;
}

// Random text of `chars` characters from the encoding's repertoire.
inline std::u16string RandomText(const char* encoding, size_t chars, std::mt19937& rng) {
  const auto& pool = Repertoire(encoding);
  std::u16string text;
  for (size_t i = 0; i < chars; ++i) Append(&text, pool[rng() % pool.size()]);
  return text;
}

}  // namespace peers

#endif  // KT_TESTS_I18N_ENCODING_PEERS_H
