// Console output redirection: the process-wide output hook and the
// formatting entry points in front of it.
#include "kt/output.h"

#include <atomic>
#include <climits>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

#include "internal/locale_codecvt.h"
#include "kt/errors.h"
#include "kt/memory.h"

namespace {

int DefaultOutput(const char* text, void* /*data*/) { return std::fputs(text, stdout); }

// The three hook words. Each is exchanged on its own (sequentially
// consistent); a set is not atomic as a whole, by design.
std::atomic<ktVprintfFunction> g_output{DefaultOutput};
std::atomic<void*> g_outputData{nullptr};
std::atomic<ktPrintfHotFunction> g_hot{nullptr};

// The output function to call. A swap to null stores the default just
// after the exchange; a printer that looks in between uses it too.
ktVprintfFunction CurrentOutput() {
  ktVprintfFunction output = g_output.load();
  return output ? output : DefaultOutput;
}

// The first attempt formats into 1023 bytes, one less than the power of
// two, so that text up to 1022 bytes never touches the heap.
constexpr int kStackFormatSize = 1023;

// Replaces the bytes of a NUL-terminated buffer that are not valid UTF-8,
// read as the locale's code page, by their UTF-8 form, cut to `capacity`.
// Returns the length of the whole re-encoded text.
int ReencodeFromCodepage(char* buffer, size_t capacity) {
  std::string utf8 = cx::i18n::ustring_to_utf8(cx::i18n::codecvt_string_to_ustring(
      buffer, std::strlen(buffer), cx::i18n::system_codepage()));
  if (utf8.size() >= capacity) {
    std::memcpy(buffer, utf8.data(), capacity - 1);
    buffer[capacity - 1] = '\0';
  } else {
    std::memcpy(buffer, utf8.c_str(), utf8.size() + 1);
  }
  return static_cast<int>(utf8.size() > INT_MAX ? INT_MAX : utf8.size());
}

// ktVSNprintf. With `fixCutText` false, a cut text is returned as the
// formatter left it: ktVprintf formats again in a larger buffer then, and
// the result is the same either way.
int FormatBounded(char* buffer, size_t capacity, const char* format, va_list args,
                  bool fixCutText) {
  int n = std::vsnprintf(buffer, capacity, format, args);
  if (n == -1 || capacity == 0) return n;
  // The capacity is compared as a 32-bit signed number, as it always was.
  bool cut = static_cast<int>(capacity) <= n;
  if (cut) {
    buffer[capacity - 1] = '\0';
    if (!fixCutText) return n;
  }
  // The check is of the NUL-terminated text. When all `n` bytes are well
  // formed, so is the text up to any NUL among them: skip the strlen.
  if (!cut && cx::i18n::is_well_formed_utf8(buffer, static_cast<size_t>(n))) return n;
  if (cx::i18n::is_valid_utf8(buffer, std::strlen(buffer))) return n;
  int reencoded = ReencodeFromCodepage(buffer, capacity);
  return cut ? n : reencoded;
}

}  // namespace

extern "C" {

void ktSetVprintfCallbacks(ktVprintfFunction output, void* data, ktPrintfHotFunction hot) {
  g_output.exchange(output ? output : DefaultOutput);
  g_outputData.exchange(data);
  g_hot.exchange(hot);
}

void ktGetVprintfCallbacks(ktVprintfFunction* output, void** data, ktPrintfHotFunction* hot) {
  *output = CurrentOutput();
  *data = g_outputData.load();
  *hot = g_hot.load();
}

int ktPuts(const char* text) {
  ktVprintfFunction output = CurrentOutput();
  return output(text, g_outputData.load());
}

int ktPutsn(const char* text, int length) {
  kt_puts_pair pair = {CurrentOutput(), g_outputData.load()};
  return kt_puts_to_putsn(&pair, text, length);
}

int fpts(FILE* stream, const char* text) {
  if (stream == nullptr) return ktPuts(text);
  return std::fputs(text, stream);
}

int ktVSNprintf(char* buffer, size_t capacity, const char* format, va_list args) {
  return FormatBounded(buffer, capacity, format, args, true);
}

int ktSNprintf(char* buffer, size_t capacity, const char* format, ...) {
  va_list args;
  va_start(args, format);
  int n = ktVSNprintf(buffer, capacity, format, args);
  va_end(args);
  return n;
}

int ktVprintf(const char* format, va_list args) {
  char stackBuffer[kStackFormatSize];
  char* heapBuffer = nullptr;
  char* buffer = stackBuffer;
  int size = kStackFormatSize;
  int n;
  for (;;) {
    buffer[0] = '\0';
    va_list copy;
    va_copy(copy, args);
    n = FormatBounded(buffer, static_cast<size_t>(size), format, copy, false);
    va_end(copy);
    if (n < size) break;
    int grown = (n >= 2 * size) ? n + 1 : 2 * size;
    // Only the heap buffer is reallocated; the stack text is not copied
    // because the next attempt formats anew.
    char* bigger = static_cast<char*>(ktRealloc(heapBuffer, static_cast<size_t>(grown)));
    if (bigger == nullptr) {
      ktFree(heapBuffer);
      throw bedrock::core::except::bad_alloc();
    }
    heapBuffer = bigger;
    buffer = heapBuffer;
    size = grown;
  }
  ktVprintfFunction output = CurrentOutput();
  int written = output(buffer, g_outputData.load());
  ktFree(heapBuffer);
  return written < 0 ? 0 : n;
}

int ktPrintf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  int n = ktVprintf(format, args);
  va_end(args);
  return n;
}

int fprntf(FILE* stream, const char* format, ...) {
  va_list args;
  va_start(args, format);
  int n = stream ? std::vfprintf(stream, format, args) : ktVprintf(format, args);
  va_end(args);
  return n;
}

int kt_fputsn(void* stream, const char* text, int length) {
  if (length < 1) return 0;
  return std::fprintf(static_cast<FILE*>(stream), "%.*s", length, text);
}

int kt_puts_to_putsn(void* pair, const char* text, int length) {
  const kt_puts_pair* p = static_cast<const kt_puts_pair*>(pair);
  size_t n = length > 0 ? static_cast<size_t>(length) : 0;
  char* copy = static_cast<char*>(ktMalloc(n + 1));
  if (copy == nullptr) throw bedrock::core::except::bad_alloc();
  if (n > 0) std::memcpy(copy, text, n);
  copy[n] = '\0';
  int result = p->puts(copy, p->data);
  ktFree(copy);
  return result;
}

int kt_putsn_to_puts(const char* text, void* pair) {
  const kt_putsn_pair* p = static_cast<const kt_putsn_pair*>(pair);
  size_t length = std::strlen(text);
  if (length > static_cast<size_t>(INT_MAX))
    throw std::overflow_error("kt_putsn_to_puts: text longer than 2147483647 bytes");
  int result = p->putsn(p->data, text, static_cast<int>(length));
  return result < 0 ? -1 : result;
}

}  // extern "C"

void ktSwapVprintfCallbacks(ktVprintfFunction* output, void** data, ktPrintfHotFunction* hot) {
  ktVprintfFunction wanted = *output;
  *output = g_output.exchange(wanted);
  *data = g_outputData.exchange(*data);
  *hot = g_hot.exchange(*hot);
  // A null function is replaced by the default only after the exchange, so
  // the caller still receives the previous function.
  if (wanted == nullptr) {
    ktVprintfFunction expected = nullptr;
    g_output.compare_exchange_strong(expected, DefaultOutput);
  }
}

bool ktPrintfIsHot() {
  ktPrintfHotFunction hot = g_hot.load();
  if (hot == nullptr) return false;
  return hot(g_outputData.load());
}
