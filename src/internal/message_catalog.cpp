// The catalogue texts. Adding a message is one line in kEntries.
#include "internal/message_catalog.h"

#include <cstring>

#include "internal/locale_codecvt.h"

namespace cx::i18n {
namespace {

struct CatalogEntry {
  const char* catalog;
  const char* key;
  const char* text;  // UTF-8
};

constexpr CatalogEntry kEntries[] = {
    {"bedrock_legacy:messages", "nomem", "Out of memory. The program could not allocate the memory it needs."},
    // {0}: the loader's text of the failed load.
    {"bedrock_legacy:messages", "glibcFailedLoadBug",
     "The library could not be loaded, and the system loader kept part of it registered "
     "(a known fault of the GNU C library's loader). Loading it again will not work until "
     "the program is restarted. The loader reported: {0}"},
};

const CatalogEntry* Find(const std::string& catalog, const std::string& key) {
  for (const CatalogEntry& e : kEntries) {
    if (catalog == e.catalog && key == e.key) return &e;
  }
  return nullptr;
}

cx::ustring FromUtf8(const std::string& text) {
  return codecvt_string_to_ustring(text, "UTF-8");
}

}  // namespace

cx::ustring MessageCatalog::get_message(const std::string& catalog, const std::string& key) {
  const CatalogEntry* e = Find(catalog, key);
  if (e == nullptr) return FromUtf8(catalog + "/" + key);
  return FromUtf8(e->text);
}

bool MessageCatalog::has_message(const std::string& catalog, const std::string& key) {
  return Find(catalog, key) != nullptr;
}

}  // namespace cx::i18n
