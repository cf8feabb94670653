// Dynamic string buffers, bounded buffer cursors and C string literal
// output.
#include <cctype>
#include <cstdio>
#include <cstring>

#include "kt/containers.h"

// ---- dynamic string buffer --------------------------------------------------

namespace {

// Doubles the capacity until `needed` bytes fit, then re-allocates once.
// Doubling is the only growth step. A capacity of 0 would never grow by
// doubling; it is taken as 1 first so that such a buffer cannot spin or
// overrun.
void Reserve(kt_dsbuffer* buffer, uint64_t needed) {
  if (needed <= buffer->capacity)
    return;
  uint64_t capacity = buffer->capacity ? buffer->capacity : 1;
  while (capacity < needed)
    capacity *= 2;
  buffer->data = static_cast<char*>(kt_mem_realloc(buffer->memoryContext, buffer->data, capacity));
  buffer->capacity = capacity;
}

void Append(kt_dsbuffer* buffer, const void* bytes, uint64_t count) {
  if (count == 0)
    return;
  Reserve(buffer, buffer->length + count);
  std::memcpy(buffer->data + buffer->length, bytes, count);
  buffer->length += count;
}

}  // namespace

extern "C" void kt_initialize_dsbuffer(kt_dsbuffer* buffer, kt_mem_context* context,
                                       uint64_t capacity) {
  buffer->memoryContext = context;
  buffer->data = nullptr;
  buffer->length = 0;
  buffer->capacity = 0;
  buffer->data = static_cast<char*>(kt_mem_alloc(context, capacity));
  buffer->capacity = buffer->data ? capacity : 0;
}

extern "C" int kt_dsbputc(int c, kt_dsbuffer* buffer) {
  unsigned char byte = static_cast<unsigned char>(c);
  if (buffer->length == buffer->capacity)
    Reserve(buffer, buffer->length + 1);
  buffer->data[buffer->length++] = static_cast<char>(byte);
  return byte;
}

extern "C" int kt_dsbputsn(kt_dsbuffer* buffer, const char* bytes, int count) {
  if (count <= 0)
    return count < 0 ? 0 : count;
  Append(buffer, bytes, static_cast<uint64_t>(count));
  return count;
}

extern "C" int kt_dsbputs(const char* string, kt_dsbuffer* buffer) {
  size_t n = std::strlen(string);
  if (n == 0)
    return 0;
  Append(buffer, string, n);
  return 1;
}

extern "C" size_t kt_dsbwrite(const void* bytes, size_t size, size_t count, kt_dsbuffer* buffer) {
  if (size != 0 && count > SIZE_MAX / size)
    return 0;  // the product would wrap: write nothing rather than too little
  Append(buffer, bytes, size * count);
  return count;
}

extern "C" void kt_dsb_shrink_buffer(kt_dsbuffer* buffer, uint64_t length) {
  buffer->length = length;
}

extern "C" void kt_clear_dsbuffer(kt_dsbuffer* buffer) {
  if (buffer->data != nullptr)
    kt_mem_free(buffer->memoryContext, buffer->data);
  buffer->data = nullptr;
  buffer->length = 0;
  buffer->capacity = 0;
  buffer->memoryContext = nullptr;
}

// ---- buffer cursor ------------------------------------------------------------

namespace {

void Advance(kt_buffer_cursor* cursor, uint64_t n) {
  cursor->position += n;
  cursor->remaining -= n;
}

}  // namespace

extern "C" char* kt_bgets(char* destination, int size, kt_buffer_cursor* cursor) {
  if (size <= 0)
    return nullptr;
  int stored = 0;
  bool ranOut = false;
  // Step 1: copy up to a newline or until size - 1 bytes are stored.
  while (stored < size - 1) {
    if (cursor->remaining == 0) {
      ranOut = true;
      break;
    }
    char c = *cursor->position;
    if (c == '\n')
      break;
    destination[stored++] = c;
    Advance(cursor, 1);
  }
  // Step 2: the newline itself, when it is next and still fits with the NUL.
  if (!ranOut && stored < size - 1 && cursor->remaining > 0 && *cursor->position == '\n') {
    destination[stored++] = '\n';
    Advance(cursor, 1);
  }
  destination[stored] = '\0';
  // A last line without a newline is delivered, terminated, with a null
  // result; callers treat null as the end of input.
  return ranOut ? nullptr : destination;
}

extern "C" int kt_bputs(const char* string, kt_buffer_cursor* cursor) {
  size_t n = std::strlen(string);
  size_t fit = n < cursor->remaining ? n : cursor->remaining;
  if (fit > 0)
    std::memcpy(cursor->position, string, fit);
  Advance(cursor, fit);
  return fit == n ? 1 : -1;
}

extern "C" int kt_bputsn(void* sink, const char* bytes, int count) {
  kt_buffer_cursor* cursor = static_cast<kt_buffer_cursor*>(sink);
  if (count <= 0)
    return 0;
  uint64_t fit = static_cast<uint64_t>(count) < cursor->remaining ? static_cast<uint64_t>(count)
                                                                   : cursor->remaining;
  if (fit == 0)
    return -1;
  std::memcpy(cursor->position, bytes, fit);
  Advance(cursor, fit);
  return static_cast<int>(fit);
}

extern "C" size_t kt_bwrite(const void* bytes, size_t size, size_t count, kt_buffer_cursor* cursor) {
  if (size == 0)
    return 0;
  size_t items = cursor->remaining / size;
  if (items > count)
    items = count;
  if (items > 0)
    std::memcpy(cursor->position, bytes, items * size);
  Advance(cursor, items * size);
  return items;
}

// strchr also finds the set's own terminator, so a NUL byte counts as a
// member of every set; this follows from the design and is kept.
extern "C" uint64_t kt_bufspn(const kt_buffer_cursor* cursor, const char* set) {
  uint64_t n = 0;
  while (n < cursor->remaining && std::strchr(set, cursor->position[n]) != nullptr)
    ++n;
  return n;
}

extern "C" uint64_t kt_bufcspn(const kt_buffer_cursor* cursor, const char* set) {
  uint64_t n = 0;
  while (n < cursor->remaining && std::strchr(set, cursor->position[n]) == nullptr)
    ++n;
  return n;
}

extern "C" int kt_skip_white_space(kt_buffer_cursor* cursor) {
  // The byte goes to isspace as a signed char, as it always has; the C
  // library's tables accept the negative values of bytes 0x80..0xFF.
  while (cursor->remaining > 0 && std::isspace(static_cast<signed char>(*cursor->position)))
    Advance(cursor, 1);
  return cursor->remaining == 0 ? 1 : 0;
}

// ---- C string literal output ------------------------------------------------

namespace {

// Bytes written as a backslash and a letter; the letter string has one more
// entry than the set, so the NUL byte, found at the set's terminator, maps to
// '0'.
const char kEscapedBytes[] = "\n\"\\\r\t\a\b\f\v";
const char kEscapeLetters[] = "n\"\\rtabfv0";

struct CStringWriter {
  kt_c_string_put_function put;
  void* stream;
  kt_c_string_escape_hook before;
  kt_c_string_escape_hook after;
  void* argument;
  char pending[256];
  size_t used;
};

void Flush(CStringWriter* w) {
  if (w->used == 0)
    return;
  w->pending[w->used] = '\0';
  w->put(w->pending, w->stream);
  w->used = 0;
}

void PutRaw(CStringWriter* w, char c) {
  if (w->used == sizeof w->pending - 1)
    Flush(w);
  w->pending[w->used++] = c;
}

void PutEscape(CStringWriter* w, const char* escape) {
  Flush(w);
  if (w->before)
    w->before(w->put, w->stream, w->argument);
  w->put(escape, w->stream);
  if (w->after)
    w->after(w->put, w->stream, w->argument);
}

void WriteByte(CStringWriter* w, unsigned char byte) {
  const char* hit = std::strchr(kEscapedBytes, byte);
  if (hit != nullptr) {
    char escape[3] = {'\\', kEscapeLetters[hit - kEscapedBytes], '\0'};
    PutEscape(w, escape);
    return;
  }
  // Raw when the byte as a signed value is above 31: so 127 is raw and
  // 128..255 (negative) are written in octal.
  if (static_cast<signed char>(byte) > 31) {
    PutRaw(w, static_cast<char>(byte));
    return;
  }
  char escape[8];
  std::snprintf(escape, sizeof escape, "\\%03o", byte);
  PutEscape(w, escape);
}

}  // namespace

extern "C" void kt_output_c_string_with_hooks(kt_c_string_put_function put, void* stream,
                                              const char* bytes, size_t length,
                                              kt_c_string_escape_hook before,
                                              kt_c_string_escape_hook after, void* argument) {
  CStringWriter w{put, stream, before, after, argument, {}, 0};
  PutRaw(&w, '"');
  for (size_t i = 0; i < length; ++i)
    WriteByte(&w, static_cast<unsigned char>(bytes[i]));
  PutRaw(&w, '"');
  Flush(&w);
}

extern "C" void kt_output_c_string_with_length(kt_c_string_put_function put, void* stream,
                                               const char* bytes, size_t length) {
  kt_output_c_string_with_hooks(put, stream, bytes, length, nullptr, nullptr, nullptr);
}

extern "C" void kt_output_c_string(kt_c_string_put_function put, void* stream,
                                   const char* string) {
  kt_output_c_string_with_length(put, stream, string, std::strlen(string));
}
