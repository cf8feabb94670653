// The per-thread last-error record of the loading family, its two
// readers, and the call traces on "util::dynload".
#include <cstring>
#include <memory>
#include <new>
#include <sstream>

#include "dynload/dynload.h"
#include "kt/encodings.h"
#include "kt/loading.h"
#include "kt/memory.h"

namespace kt::internal::dynload {

namespace {

const char16_t kUnknownErrorU[] = u"Unknown error";
const char kUnknownError[] = "Unknown error";

// One record per thread, deleted with the thread.
thread_local std::unique_ptr<LastLibraryError> t_record;

std::string ToUtf8(const cx::ustring& text) {
  std::string out;
  Quivera::I18N::FromUTF16Converter(text.data(), static_cast<int>(text.size()), "UTF-8")
      .copy_to(out);
  return out;
}

// Encodings in which every byte below 0x80 is that ASCII character: plain
// ASCII text needs no converter then.
bool AsciiIsItself(const char* encoding) {
  return std::strcmp(encoding, "UTF-8") == 0 || std::strcmp(encoding, "US-ASCII") == 0 ||
         std::strcmp(encoding, "ISO-8859-1") == 0;
}

}  // namespace

cx::ustring LcpToUstring(const char* text) {
  if (AsciiIsItself(Quivera::I18N::UnicodeConverterX::getThreadSpecific_defaultEncoding())) {
    size_t n = 0;
    unsigned char any = 0;
    for (; text[n] != '\0'; ++n) any |= static_cast<unsigned char>(text[n]);
    if (any < 0x80) return cx::ustring(text, text + n);
  }
  kt_utf16* converted = lcp_to_utf16(text, -1);
  if (converted == nullptr) throw std::bad_alloc();
  cx::ustring result;
  try {
    result = converted;
  } catch (...) {
    ktFree(converted);
    throw;
  }
  ktFree(converted);
  return result;
}

void LastLibraryError::Reset() {
  m_code = 0;
  m_unknown = 0;
  m_u_message.clear();
  m_narrow.clear();
}

void LastLibraryError::Record(int code, const char* message) {
  if (message == nullptr) {
    Reset();
    return;
  }
  m_code = code;
  m_narrow.clear();
  try {
    m_u_message = LcpToUstring(message);
    m_unknown = 0;
  } catch (...) {
    m_u_message.clear();
    m_unknown = 1;
  }
}

void LastLibraryError::RecordText(int code, const cx::ustring& message) {
  m_code = code;
  m_narrow.clear();
  try {
    m_u_message = message;
    m_unknown = 0;
  } catch (...) {
    m_u_message.clear();
    m_unknown = 1;
  }
}

LastLibraryError* ThreadLastError() {
  if (!t_record) t_record.reset(new (std::nothrow) LastLibraryError);
  return t_record.get();
}

// ---- tracing ----------------------------------------------------------------

diag::Channel& Channel() {
  static diag::Channel& channel = [] () -> diag::Channel& {
    diag::GetChannel("windows::dlopen");  // made, never written: kept on purpose
    return diag::GetChannel("util::dynload");
  }();
  return channel;
}

CallTrace::CallTrace(const char* signature, int line)
    : channel_(Channel()), mask_(channel_.mask()), signature_(signature), line_(line) {
  if (auto record = Open(kTraceEntry, line)) record.stream() << signature;
}

CallTrace::~CallTrace() {
  if (auto record = Open(kTraceExit, line_)) record.stream() << "exit";
}

diag::Record CallTrace::Open(uint32_t flag, int line) const {
  if ((mask_ & flag) == 0) return diag::Record();
  return channel_.Open(flag, "dynload", line, signature_);
}

void CallTrace::Result(const char* name, const void* value, int line) const {
  if (auto record = Open(kTraceResult, line)) record.stream() << name << "=" << value;
}

void CallTrace::Result(const char* name, int value, int line) const {
  if (auto record = Open(kTraceResult, line)) record.stream() << name << "=" << value;
}

void CallTrace::RecordState(const LastLibraryError* r, int line) const {
  if (r == nullptr) return;
  if (auto record = Open(kTraceRecord, line))
    record.stream() << " m_code=" << r->m_code << " m_unknown=" << r->m_unknown
                    << " cx::i18n::to_string(m_u_message)=" << ToUtf8(r->m_u_message);
}

}  // namespace kt::internal::dynload

using kt::internal::dynload::CallTrace;
using kt::internal::dynload::LastLibraryError;
using kt::internal::dynload::ThreadLastError;

const kt_utf16* ktLastLibraryError_u(void) {
  CallTrace trace("const char16_t* ktLastLibraryError_u()", __LINE__);
  LastLibraryError* record = ThreadLastError();
  if (record == nullptr) return u"";
  if (record->m_unknown) return kt::internal::dynload::kUnknownErrorU;
  return record->m_u_message.c_str();
}

const char* ktLastLibraryError(void) {
  CallTrace trace("const char* ktLastLibraryError()", __LINE__);
  LastLibraryError* record = ThreadLastError();
  if (record == nullptr) return "";
  if (record->m_unknown) return kt::internal::dynload::kUnknownError;
  if (record->m_narrow.empty() && !record->m_u_message.empty()) {
    try {
      const cx::ustring& text = record->m_u_message;
      Quivera::I18N::FromUTF16Converter(text.data(), static_cast<int>(text.size()), nullptr)
          .copy_to(record->m_narrow);
    } catch (...) {
      return kt::internal::dynload::kUnknownError;
    }
  }
  return record->m_narrow.c_str();
}
