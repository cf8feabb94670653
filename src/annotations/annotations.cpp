// Hyperlink annotations around file/line/column references, their message
// table (module 63), and the per-session hot-links setting.
#include <atomic>
#include <string>

#include "internal/slot_store.h"
#include "kt/annotations.h"
#include "kt/contexts.h"

namespace {

const int kCodes[] = {KT_HREF_FILE_LINE_COLUMN, KT_HREF_DOC_FILE_KEY,   KT_HREF_END,
                      KT_LINENO_NO_ANONYMOUS,   KT_LINENO_ONE_ANONYMOUS, KT_LINENO_MANY_ANONYMOUS,
                      -1};
const char* const kMnemonics[] = {"HREF_FILE_LINE_COLUMN", "HREF_DOC_FILE_KEY",
                                  "HREF_END",              "LINENO_NO_ANONYMOUS",
                                  "LINENO_ONE_ANONYMOUS",  "LINENO_MANY_ANONYMOUS"};
const char* const kTexts[] = {"<a href=\"zentra: opentoline('%s',%ld,%ld)\">",
                              "<a href=\"zentra: showhelp([helproot '%s'],'%s')\">",
                              "</a>",
                              "%d",
                              "%d@",
                              "%d@%d"};
const kt_message_table kFileLineColumnTable = {6, KT_FILE_LINE_COLUMN_MODULE, kCodes, kMnemonics,
                                               kTexts, "annotations"};

// The session's hot-links byte.
struct HotLinksSlot {
  std::atomic<unsigned char> on{0};
};

// The file name with every ' doubled, to sit inside a quoted argument.
std::string QuoteFileName(const char* fileName) {
  std::string quoted;
  for (const char* p = fileName != nullptr ? fileName : ""; *p != '\0'; ++p) {
    quoted += *p;
    if (*p == '\'') quoted += '\'';
  }
  return quoted;
}

// A putsn function over the console output hook (the data is unused).
int PutToConsole(void*, const char* text, int length) { return ktPutsn(text, length); }

// Registers the table in the installed basic contexts unless it is there
// already: printing must not add a registration per call.
kt_message_context* ConsoleMessages() {
  kt_message_context* messages = ktGetMessageContext();
  if (kt_get_primary_message(messages, KT_HREF_FILE_LINE_COLUMN) != kTexts[0])
    kt_mem_add_primary_message_table(ktGetMemoryContext(), &kFileLineColumnTable);
  return messages;
}

}  // namespace

extern "C" {

int ktPutAnnotationHeader(kt_message_context* context, kt_putsn_function put, void* stream,
                          const char* fileName, long line, long column) {
  std::string quoted = QuoteFileName(fileName);
  return kt_printm(context, put, stream, KT_HREF_FILE_LINE_COLUMN, quoted.c_str(), line, column);
}

int ktPutAnnotationTrailer(kt_message_context* context, kt_putsn_function put, void* stream) {
  return kt_printm(context, put, stream, KT_HREF_END);
}

void ktPrintAnnotationHeader(const char* fileName, long line, long column) {
  if (line == 0 || !ktGetHotLinks()) return;
  ktPutAnnotationHeader(ConsoleMessages(), PutToConsole, nullptr, fileName, line, column);
}

void ktPrintAnnotationTrailer(int flag) {
  if (flag == 0 || !ktGetHotLinks()) return;
  const char* text = kt_get_message(ConsoleMessages(), KT_HREF_END);
  if (text != nullptr) ktPrintf("%s", text);
}

int ktInitializeFileLineColumnMessageContext(kt_message_context* context) {
  int status = 0;
  return kt_add_primary_message_table(&status, context, &kFileLineColumnTable, ktRealloc);
}

void ktSetHotLinks(bool on) {
  kt::internal::SlotStore* session = kt::internal::CurrentSessionStore();
  if (session == nullptr) return;  // no session: nowhere to keep the setting
  session->FindOrInsert<HotLinksSlot>().on.store(on ? 1 : 0, std::memory_order_relaxed);
}

bool ktGetHotLinks(void) {
  kt::internal::SlotStore* session = kt::internal::CurrentSessionStore();
  if (session == nullptr) return false;
  HotLinksSlot* slot = session->Find<HotLinksSlot>();
  return slot != nullptr && slot->on.load(std::memory_order_relaxed) != 0;
}

}  // extern "C"
