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

// The steps of ktVSNprintf after the formatter wrote `n` bytes into
// `buffer`: a cut text is terminated in its last byte, and a text that is
// not UTF-8 is re-encoded from the locale's code page. With `fixCutText`
// false, a cut text is returned as the formatter left it: ktVprintf formats
// again in a larger buffer then, and the result is the same either way.
int FinishFormatted(char* buffer, size_t capacity, int n, bool fixCutText) {
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

int FormatBounded(char* buffer, size_t capacity, const char* format, va_list args,
                  bool fixCutText) {
  return FinishFormatted(buffer, capacity, std::vsnprintf(buffer, capacity, format, args),
                         fixCutText);
}

// ktVprintf's first attempt formats into this much stack so that text a
// little over 1023 bytes is not cut by the C library, whose path for cut
// text is far slower than for text that fits (about 5 us against 80 ns for
// 4 KiB). Its outcome is exactly that of formatting into 1023 bytes.
constexpr int kFirstAttemptScratch = 8192;

// Formats into `scratch` and returns what FormatBounded(scratch, 1023, ...,
// false) would: the formatter's count, re-encoded only when the text fits.
// `whole` tells whether the scratch holds all of a text longer than 1022
// bytes, as the formatter left it.
int FirstAttempt(char* scratch, const char* format, va_list args, bool* whole) {
  scratch[0] = '\0';
  int n = std::vsnprintf(scratch, kFirstAttemptScratch, format, args);
  *whole = n >= kStackFormatSize && n < kFirstAttemptScratch;
  if (n >= kStackFormatSize) return n;  // cut at 1023: kept whole in the scratch
  return FinishFormatted(scratch, static_cast<size_t>(kStackFormatSize), n, false);
}

// Hands the text to the output function: 0 when it failed, else `n`.
int Emit(const char* text, int n) {
  ktVprintfFunction output = CurrentOutput();
  int written = output(text, g_outputData.load());
  return written < 0 ? 0 : n;
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
  // Step 1: the first attempt, as if into 1023 bytes.
  char scratch[kFirstAttemptScratch];
  va_list copy;
  va_copy(copy, args);
  bool whole = false;
  int n = FirstAttempt(scratch, format, copy, &whole);
  va_end(copy);
  if (n < kStackFormatSize)
    return Emit(scratch, n);

  // Step 2: grow on the heap (never copying the stack text) and format
  // again until the text fits. When the scratch already holds the whole
  // text and it is well-formed UTF-8, the next attempt could only
  // reproduce it, so it is copied instead of formatted.
  bool scratchHasText =
      whole && cx::i18n::is_well_formed_utf8(scratch, static_cast<size_t>(n));
  char* heapBuffer = nullptr;
  int size = kStackFormatSize;
  while (n >= size) {
    int grown = (n >= 2 * size) ? n + 1 : 2 * size;
    char* bigger = static_cast<char*>(ktRealloc(heapBuffer, static_cast<size_t>(grown)));
    if (bigger == nullptr) {
      ktFree(heapBuffer);
      throw bedrock::core::except::bad_alloc();
    }
    heapBuffer = bigger;
    size = grown;
    if (scratchHasText) {
      std::memcpy(heapBuffer, scratch, static_cast<size_t>(n) + 1);
      break;
    }
    heapBuffer[0] = '\0';
    va_copy(copy, args);
    n = FormatBounded(heapBuffer, static_cast<size_t>(size), format, copy, false);
    va_end(copy);
  }
  int result = Emit(heapBuffer, n);
  ktFree(heapBuffer);
  return result;
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
