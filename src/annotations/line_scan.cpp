// Direct scanners: line and column of an offset by walking the text itself,
// one template for 8-bit text and 16-bit code units.
#include "kt/annotations.h"

namespace {

// Column after walking text[start .. offset - 1]: each tab moves to the
// next multiple of 8, any other unit counts one.
template <class T>
size_t ColumnFrom(const T* text, size_t start, size_t offset) {
  size_t c = 0;
  for (size_t at = start; at < offset; ++at)
    c = text[at] == T('\t') ? (c + 8) - (c + 8) % 8 : c + 1;
  return c + 1;
}

// Start of the line holding `offset`, found backwards: just after the last
// LF or CR before it. A CR LF pair ends at its LF, and a CR just before the
// offset ends a line even when an LF follows at the offset.
template <class T>
size_t LineStart(const T* text, size_t offset) {
  for (size_t at = offset; at > 0; --at)
    if (text[at - 1] == T('\n') || text[at - 1] == T('\r')) return at;
  return 0;
}

}  // namespace

template <class T>
size_t kt_line_col(size_t* column, const T* text, size_t offset) {
  size_t line = 1;
  size_t start = 0;
  for (size_t at = 0; at < offset; ++at) {
    if (text[at] == T('\r') && at + 1 < offset && text[at + 1] == T('\n')) ++at;
    if (text[at] == T('\n') || text[at] == T('\r')) {
      ++line;
      start = at + 1;
    }
  }
  if (column != nullptr) *column = ColumnFrom(text, start, offset);
  return line;
}

template <class T>
size_t kt_buf_line(const T* text, size_t offset) {
  return kt_line_col<T>(nullptr, text, offset);
}

template <class T>
size_t kt_buf_column(const T* text, size_t offset) {
  return ColumnFrom(text, LineStart(text, offset), offset);
}

template size_t kt_line_col<char>(size_t*, const char*, size_t);
template size_t kt_line_col<char16_t>(size_t*, const char16_t*, size_t);
template size_t kt_buf_line<char>(const char*, size_t);
template size_t kt_buf_line<char16_t>(const char16_t*, size_t);
template size_t kt_buf_column<char>(const char*, size_t);
template size_t kt_buf_column<char16_t>(const char16_t*, size_t);
