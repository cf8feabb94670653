// The warning manager: per-identifier statuses stamped against the "all"
// setting, modes, last-warning records, listeners, callback and log.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <strings.h>

#include "internal/message_catalog.h"
#include "internal/slot_store.h"
#include "kt/containers.h"
#include "kt/hashing.h"
#include "kt/warnings.h"

using kt::internal::CurrentContextStore;
using kt::internal::RequiredContextActive;
using kt::internal::ThisThreadStore;

// The manager record. The status table maps identifiers (case-insensitive)
// to a StatusRecord; the listener table holds (function, data) keys.
struct ktWarningManagerContext {
  kt_mem_context* memoryContext = nullptr;
  kt_ghash_table statusTable{};
  int32_t allStamp = 1;  // |value|: time of the last "all" setting; sign: on (+) / off (-)
  int32_t allKind = 0;
  cx::ustring* lastMessage = nullptr;
  std::string* lastIdentifier = nullptr;
  std::string* lastPrintedIdentifier = nullptr;
  uint32_t modes[5] = {0, 0, 0, 0, 1};
  ktWarningModeHook modeHook = nullptr;
  std::function<void()> callback;
  ktWarningLog* log = nullptr;
  kt_ghash_table listenerTable{};
};

namespace {

// Element of the status table: the key string, then the data part.
struct StatusRecord {
  char* identifier;
  int32_t stamp;  // |value|: time of this setting; sign: off (+) / on (-)
  int32_t kind;   // 0 for off and on, 1 for error
};

// Element (and key) of the listener table.
struct ListenerKey {
  ktWarningStatusListener function;
  void* data;
};

// Slots of the per-context and per-thread stores.
struct TheWarningManagerContext {
  std::atomic<ktWarningManagerContext*> manager{nullptr};
};
struct WarningLogFactorySlot {
  ktWarningLogFactoryFcn factory = nullptr;
};
struct WarningLogDestroySlot {
  ktWarningLogDestroyFcn destroy = nullptr;
};

// Listener keys order by the data word first, then the function.
int CompareListenerKeys(void*, const void* key, const void* element) {
  const auto* a = static_cast<const ListenerKey*>(key);
  const auto* b = static_cast<const ListenerKey*>(element);
  if (a->data != b->data)
    return reinterpret_cast<uintptr_t>(a->data) < reinterpret_cast<uintptr_t>(b->data) ? -1 : 1;
  if (a->function == b->function)
    return 0;
  return reinterpret_cast<uintptr_t>(a->function) < reinterpret_cast<uintptr_t>(b->function) ? -1
                                                                                              : 1;
}

int KindOfStatus(int status) { return status == KT_WARNING_ERROR ? 1 : 0; }
int StatusOfKind(int kind) { return kind == 0 ? KT_WARNING_ON : KT_WARNING_ERROR; }

// The stamping rule: a record wins over "all" only when set later.
int EffectiveStatus(const ktWarningManagerContext* m, const StatusRecord* record) {
  if (record == nullptr)
    return m->allStamp < 1 ? KT_WARNING_OFF : StatusOfKind(m->allKind);
  if (record->stamp >= m->allStamp)
    return KT_WARNING_OFF;
  if (record->stamp > 0 && m->allStamp > 0)
    return StatusOfKind(m->allKind);
  if (std::abs(m->allStamp) < std::abs(record->stamp))
    return StatusOfKind(record->kind);
  return StatusOfKind(m->allKind);
}

void InitializeStatusTable(ktWarningManagerContext* m) {
  kt_initialize_ghash_table(&m->statusTable, m->memoryContext, kt_ghash_stringi_key,
                            kt_ghash_compare_stringi_keys, kt_ghash_copy_string_key,
                            kt_ghash_delete_string_key, nullptr, nullptr, sizeof(char*),
                            offsetof(StatusRecord, stamp), 2 * sizeof(int32_t),
                            sizeof(StatusRecord), m->memoryContext, 1023, 0.5f, 1.0f);
}

void InitializeListenerTable(ktWarningManagerContext* m) {
  kt_initialize_ghash_table(&m->listenerTable, m->memoryContext, nullptr, CompareListenerKeys,
                            nullptr, nullptr, nullptr, nullptr, sizeof(ListenerKey),
                            sizeof(ListenerKey), 0, sizeof(ListenerKey), nullptr, 7, 1.0f, 2.0f);
}

ktWarningLogDestroyFcn ThisThreadDestroyFunction() {
  auto* slot = ThisThreadStore().Find<WarningLogDestroySlot>();
  return slot ? slot->destroy : nullptr;
}

ktWarningLog* MakeLogIfContextActive() {
  if (!RequiredContextActive())
    return nullptr;
  auto* slot = ThisThreadStore().Find<WarningLogFactorySlot>();
  return slot && slot->factory ? slot->factory() : nullptr;
}

void HandLogToDestroyFunction(ktWarningLog* log) {
  if (log == nullptr || !RequiredContextActive())
    return;
  if (ktWarningLogDestroyFcn destroy = ThisThreadDestroyFunction())
    destroy(log);
}

void ReleaseStrings(ktWarningManagerContext* m) {
  delete m->lastPrintedIdentifier;
  delete m->lastIdentifier;
  delete m->lastMessage;
  m->lastPrintedIdentifier = nullptr;
  m->lastIdentifier = nullptr;
  m->lastMessage = nullptr;
}

void CallListeners(ktWarningManagerContext* m, const char* identifier, int status) {
  kt_ghash_cursor cursor;
  void* element;
  kt_ghash_cursor_init(&m->listenerTable, &cursor);
  while (kt_ghash_iterate(&m->listenerTable, &cursor, &element, nullptr)) {
    const auto* key = static_cast<const ListenerKey*>(element);
    key->function(key->data, identifier, status);
  }
}

}  // namespace

ktWarningLog::~ktWarningLog() = default;

// ---- lifecycle --------------------------------------------------------------

extern "C" ktWarningManagerContext* ktNewWarningManager(kt_mem_context* memoryContext) {
  void* storage = kt_mem_calloc(memoryContext, sizeof(ktWarningManagerContext));
  auto* m = new (storage) ktWarningManagerContext;
  m->memoryContext = memoryContext;
  bool statusTableBuilt = false;
  try {
    m->lastMessage = new cx::ustring;
    m->lastIdentifier = new std::string;
    m->lastPrintedIdentifier = new std::string;
    InitializeStatusTable(m);
    statusTableBuilt = true;
    m->log = MakeLogIfContextActive();
    InitializeListenerTable(m);
  } catch (...) {
    if (statusTableBuilt)
      kt_clear_ghash_table(&m->statusTable);
    HandLogToDestroyFunction(m->log);
    ReleaseStrings(m);
    m->~ktWarningManagerContext();
    kt_mem_free(memoryContext, storage);
    throw;
  }
  return m;
}

extern "C" void ktDeleteWarningManager(ktWarningManagerContext* m) {
  if (m == nullptr)
    return;
  kt_clear_ghash_table(&m->statusTable);
  kt_clear_ghash_table(&m->listenerTable);
  HandLogToDestroyFunction(m->log);
  m->callback = nullptr;  // std::function's destructor cannot throw
  ReleaseStrings(m);
  kt_mem_context* memoryContext = m->memoryContext;
  m->~ktWarningManagerContext();
  kt_mem_free(memoryContext, m);
}

extern "C" void ktSetWarningManagerContext(ktWarningManagerContext* manager) {
  CurrentContextStore().FindOrInsert<TheWarningManagerContext>().manager.exchange(manager);
}

extern "C" ktWarningManagerContext* ktGetWarningManagerContext(void) {
  auto* slot = CurrentContextStore().Find<TheWarningManagerContext>();
  return slot ? slot->manager.load() : nullptr;
}

extern "C" ktWarningManagerContext* ktGetWarningManagerContextSafe(void) {
  if (!RequiredContextActive())
    return nullptr;
  return ktGetWarningManagerContext();
}

extern "C" ktWarningLog* ktGetWarningLog(ktWarningManagerContext* m) { return m->log; }

extern "C" void ktSetWarningLog(ktWarningManagerContext* m, ktWarningLog* log) { m->log = log; }

extern "C" void ktSetWarningLogFactoryFcn(ktWarningLogFactoryFcn factory) {
  if (!RequiredContextActive())
    return;
  ThisThreadStore().FindOrInsert<WarningLogFactorySlot>().factory = factory;
}

extern "C" void ktSetWarningLogDestroyFcn(ktWarningLogDestroyFcn destroy) {
  if (!RequiredContextActive())
    return;
  ThisThreadStore().FindOrInsert<WarningLogDestroySlot>().destroy = destroy;
}

// ---- statuses -------------------------------------------------------------------

extern "C" void ktSetWarningStatus(ktWarningManagerContext* m, const char* identifier,
                                   int status) {
  if (identifier == nullptr)
    identifier = "";
  int kind = KindOfStatus(status);
  int32_t now = std::abs(m->allStamp);
  if (strcasecmp(identifier, "all") == 0) {
    // Existing records stay as they are: their stamps now compare older.
    m->allKind = kind;
    m->allStamp = status != KT_WARNING_OFF ? now + 1 : ~now;
  } else {
    void* element = nullptr;
    kt_ghash_insert_key(&m->statusTable, &identifier, &element, nullptr);
    auto* record = static_cast<StatusRecord*>(element);
    record->stamp = status != KT_WARNING_OFF ? ~now : now;
    record->kind = kind;
  }
  CallListeners(m, identifier, status);
}

extern "C" int ktGetWarningStatus(ktWarningManagerContext* m, const char* identifier) {
  if (identifier == nullptr)
    identifier = "";
  const auto* record =
      static_cast<const StatusRecord*>(kt_ghash_query_element(&m->statusTable, &identifier));
  return EffectiveStatus(m, record);
}

extern "C" unsigned int ktCountWarningsInWarningManager(ktWarningManagerContext* m) {
  return static_cast<unsigned int>(m->statusTable.count);
}

extern "C" void ktIterateOverWarningStatuses(ktWarningManagerContext* m, void* data,
                                             ktWarningStatusVisitor visitor) {
  kt_ghash_cursor cursor;
  void* element;
  kt_ghash_cursor_init(&m->statusTable, &cursor);
  while (kt_ghash_iterate(&m->statusTable, &cursor, &element, nullptr)) {
    const auto* record = static_cast<const StatusRecord*>(element);
    visitor(data, record->identifier, EffectiveStatus(m, record));
  }
}

extern "C" void ktAddWarningStatusListener(ktWarningManagerContext* m,
                                           ktWarningStatusListener listener, void* data) {
  ListenerKey key{listener, data};
  kt_ghash_insert_key(&m->listenerTable, &key, nullptr, nullptr);
}

extern "C" int ktRemoveWarningStatusListener(ktWarningManagerContext* m,
                                             ktWarningStatusListener listener, void* data) {
  ListenerKey key{listener, data};
  return kt_ghash_remove_element(&m->listenerTable, &key);
}

bool ktIsValidMessageIdentifier(std::string_view identifier) {
  auto isLetter = [](unsigned char c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; };
  auto isDigit = [](unsigned char c) { return c >= '0' && c <= '9'; };
  size_t components = 0;
  size_t i = 0;
  while (true) {
    // A component: a letter, then letters, digits or underscores.
    if (i >= identifier.size() || !isLetter(identifier[i]))
      return false;
    for (++i; i < identifier.size() && identifier[i] != ':'; ++i) {
      unsigned char c = identifier[i];
      if (!isLetter(c) && !isDigit(c) && c != '_')
        return false;
    }
    ++components;
    if (i == identifier.size())
      return components >= 2;
    ++i;  // past the ':'; a trailing ':' fails at the top
  }
}

// ---- modes, last warning, callback ------------------------------------------------

extern "C" void ktSetWarningMode(ktWarningManagerContext* m, int mode, unsigned int value) {
  if (mode < 0 || mode > 4)
    return;
  m->modes[mode] = value;
  if (mode == 0 && m->modeHook != nullptr)
    m->modeHook(value);
}

extern "C" bool ktIsWarningModeOn(ktWarningManagerContext* m, int mode) {
  return mode >= 0 && mode <= 4 && m->modes[mode] == 1;
}

extern "C" void ktSetWarningModeHook(ktWarningManagerContext* m, ktWarningModeHook hook) {
  m->modeHook = hook;
}

void ktSetLastWarningMsg(ktWarningManagerContext* m, const std::string& identifier,
                         const cx::ustring& message) {
  if (!ktIsWarningModeOn(m, 4))
    return;
  // Fresh copies first, so that a failure leaves the old pair intact.
  auto* newIdentifier = new std::string(identifier);
  cx::ustring* newMessage;
  try {
    newMessage = new cx::ustring(message);
  } catch (...) {
    delete newIdentifier;
    throw;
  }
  delete m->lastIdentifier;
  m->lastIdentifier = newIdentifier;
  delete m->lastMessage;
  m->lastMessage = newMessage;
}

void ktGetLastWarningMsg(ktWarningManagerContext* m, std::string& identifier,
                         cx::ustring& message) {
  identifier = *m->lastIdentifier;
  message = *m->lastMessage;
}

void ktSetLastPrintedWarningId(ktWarningManagerContext* m, const std::string& identifier) {
  *m->lastPrintedIdentifier = identifier;
}

void ktSetLastPrintedWarningId(ktWarningManagerContext* m, const char* identifier) {
  // A null pointer throws std::logic_error from the string constructor.
  ktSetLastPrintedWarningId(m, std::string(identifier));
}

void ktGetLastPrintedWarningId(ktWarningManagerContext* m, std::string& identifier) {
  identifier = *m->lastPrintedIdentifier;
}

const char* ktGetLastPrintedWarningId(ktWarningManagerContext* m, const char** identifier) {
  *identifier = m->lastPrintedIdentifier->c_str();
  return *identifier;
}

std::function<void()> ktSetWarningCallbackFcn(ktWarningManagerContext* m,
                                              std::function<void()> callback) {
  std::swap(m->callback, callback);
  return callback;
}

extern "C" void ktCallRegisteredWarningCallback(ktWarningManagerContext* m) {
  if (m->callback)
    m->callback();
}

// ---- logging ----------------------------------------------------------------------------

void ktLogWarning(ktWarningManagerContext* m, const std::string& identifier,
                  const cx::ustring& format, va_list* arguments, const cx::ustring& message,
                  bool suppressCallback) {
  if (m->log != nullptr) {
    m->log->logWarning(m, identifier, format, arguments, message, suppressCallback);
    return;
  }
  ktSetLastWarningMsg(m, identifier, message);  // the formatted text, not the format
  if (!suppressCallback)
    ktCallRegisteredWarningCallback(m);
}

void ktLogWarning(ktWarningManagerContext* m, const boost::optional<std::string>& identifier,
                  const resource_core::BaseMsgID& messageId, bool suppressCallback) {
  if (m->log != nullptr) {
    m->log->logWarning(m, identifier, messageId, suppressCallback);
    return;
  }
  cx::ustring text = cx::i18n::MessageCatalog::get_message(messageId.component(),
                                                           messageId.mnemonic());
  std::string id;
  if (identifier) {
    id = *identifier;
  } else {
    // Two-part legacy components are recorded under their short prefix
    // "ZENTRA", as existing warning settings name them that way.
    const std::string& component = messageId.component();
    id = component == "ZENTRA:legacy_two_part" ? component.substr(0, 6) : component;
    id += ":" + messageId.mnemonic();
  }
  ktSetLastWarningMsg(m, id, text);
  if (!suppressCallback)
    ktCallRegisteredWarningCallback(m);
}
