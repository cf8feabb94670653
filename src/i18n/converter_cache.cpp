// The per-thread converter cache and the per-thread default encoding.
//
// Each thread owns a record, made on its first request and destroyed when
// it exits: the open converters by canonical name (the owning map, so that
// aliases share one converter), the names callers asked for (so that a
// repeated alias does not open a converter just to learn its canonical
// name), the default encoding, and the last converter handed out, which
// makes the common case -- the same encoding as last time -- one string
// comparison.
#include <atomic>
#include <cstring>
#include <functional>
#include <map>
#include <string>

#include "i18n/converter_cache.h"
#include "kt/encodings.h"

namespace kt::internal {
namespace {

// Canonical names are ICU's strings; null sorts as "".
struct NameLess {
  bool operator()(const char* a, const char* b) const {
    return std::strcmp(a ? a : "", b ? b : "") < 0;
  }
};

struct ThreadConverters {
  std::map<const char*, UConverter*, NameLess> byCanonical;       // owns the converters
  std::map<std::string, UConverter*, std::less<>> byRequestedName;  // aliases as asked for
  std::string defaultName;                  // the thread's default encoding
  UConverter* defaultConverter = nullptr;   // its converter, once looked up
  char lastName[32] = "";                   // the last named request (if short) ...
  UConverter* lastConverter = nullptr;      // ... and its answer

  ThreadConverters() : defaultName(ucnv_getDefaultName()) {}
  ~ThreadConverters();
};

std::atomic<int> g_cachedConverters{0};

ThreadConverters::~ThreadConverters() {
  for (auto& entry : byCanonical) {
    ucnv_close(entry.second);
    g_cachedConverters.fetch_sub(1, std::memory_order_relaxed);
  }
}

// The record is reached through a plain pointer, so that the hot path is a
// TLS load; the owner object exists only to delete it at thread exit.
thread_local ThreadConverters* t_converters = nullptr;

struct ThreadConvertersOwner {
  ~ThreadConvertersOwner() {
    delete t_converters;
    t_converters = nullptr;
  }
};
thread_local ThreadConvertersOwner t_owner;

ThreadConverters& CreateThreadRecord() {
  (void)&t_owner;  // first use registers the owner's destructor for this thread
  t_converters = new ThreadConverters;
  return *t_converters;
}

inline ThreadConverters& ThreadRecord() {
  ThreadConverters* record = t_converters;
  return record ? *record : CreateThreadRecord();
}

UConverter* OpenConverter(const char* name) {
  return Quivera::I18N::cast(Quivera::I18N::UnicodeConverterX::create(name));
}

// Opens a converter for `name` and returns the cached one of the same
// canonical name, caching the new one when there is none yet.
UConverter* FindOrCacheByCanonicalName(ThreadConverters& record, const char* name) {
  UConverter* opened = OpenConverter(name);  // throws for an unknown name
  UErrorCode status = U_ZERO_ERROR;
  const char* canonical = ucnv_getName(opened, &status);
  auto found = record.byCanonical.find(canonical);
  if (found != record.byCanonical.end()) {
    ucnv_close(opened);
    return found->second;
  }
  record.byCanonical.emplace(canonical, opened);
  g_cachedConverters.fetch_add(1, std::memory_order_relaxed);
  return opened;
}

UConverter* DefaultConverter(ThreadConverters& record) {
  if (record.defaultConverter == nullptr) {
    auto found = record.byCanonical.find(record.defaultName.c_str());
    record.defaultConverter = found != record.byCanonical.end()
                                  ? found->second
                                  : FindOrCacheByCanonicalName(record, record.defaultName.c_str());
  }
  return record.defaultConverter;
}

UConverter* NamedConverter(ThreadConverters& record, const char* name) {
  auto found = record.byRequestedName.find(name);
  if (found == record.byRequestedName.end())
    found = record.byRequestedName.emplace(name, FindOrCacheByCanonicalName(record, name)).first;
  size_t length = std::strlen(name);
  if (length < sizeof record.lastName) {  // longer names just miss the shortcut
    std::memcpy(record.lastName, name, length + 1);
    record.lastConverter = found->second;
  }
  return found->second;
}

}  // namespace

UConverter* ThreadConverter(const char* name) {
  ThreadConverters& record = ThreadRecord();
  if (name == nullptr || *name == '\0')
    return DefaultConverter(record);
  if (record.lastConverter != nullptr && std::strcmp(record.lastName, name) == 0)
    return record.lastConverter;
  return NamedConverter(record, name);
}

int CachedConverterCount() { return g_cachedConverters.load(std::memory_order_relaxed); }

}  // namespace kt::internal

namespace Quivera {
namespace I18N {

UnicodeConverterX* UnicodeConverterX::getThreadSpecific(const char* name) {
  return cast(kt::internal::ThreadConverter(name));
}

const char* UnicodeConverterX::getThreadSpecific_defaultEncoding() {
  return kt::internal::ThreadRecord().defaultName.c_str();
}

void UnicodeConverterX::pushTssDefaultConvName(const char* name) {
  UConverter* converter = kt::internal::ThreadConverter(name);  // may throw: nothing changed
  UErrorCode status = U_ZERO_ERROR;
  kt::internal::ThreadConverters& record = kt::internal::ThreadRecord();
  record.defaultName = ucnv_getName(converter, &status);
  record.defaultConverter = converter;
}

// Deliberately not a stack: popping returns to ICU's default name whatever
// was pushed before. Callers that need the earlier default back use
// AutoRestoreUnicodeConverterName, which remembers it.
void UnicodeConverterX::popTssDefaultConvName() {
  kt::internal::ThreadConverters& record = kt::internal::ThreadRecord();
  record.defaultName = ucnv_getDefaultName();
  record.defaultConverter = nullptr;
}

}  // namespace I18N
}  // namespace Quivera
