// Lookup in the registry of message tables and languages, for the printm
// family.
#ifndef KT_CONTEXTS_MESSAGE_REGISTRY_H
#define KT_CONTEXTS_MESSAGE_REGISTRY_H

#include "kt/messages.h"

namespace kt::internal {

struct MessageLocation {
  int module;
  int entry;  // 1-based
};

// False for an unknown code: a module beyond the registered ones or without
// English texts, entry 0, or an entry beyond the module's count.
bool LocateMessage(const kt_message_context* c, int code, MessageLocation* where);

// The English text of a located message; null when its table has none.
const char* EnglishText(const kt_message_context* c, MessageLocation at);

// The current language's text, or null when that language has none for the
// entry (no translation of the module, or one shorter than the English).
const char* TranslatedText(const kt_message_context* c, MessageLocation at);

}  // namespace kt::internal

#endif  // KT_CONTEXTS_MESSAGE_REGISTRY_H
