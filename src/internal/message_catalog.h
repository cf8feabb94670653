// Stand-in for the in-house message catalogue service: texts by catalogue
// identifier and key, in the current language (English only here).
#ifndef KT_INTERNAL_MESSAGE_CATALOG_H
#define KT_INTERNAL_MESSAGE_CATALOG_H

#include <string>

#include "kt/errors.h"  // cx::ustring

namespace cx::i18n {

class MessageCatalog {
 public:
  // The text of `key` in `catalog` (such as "bedrock_legacy:messages",
  // "nomem") as UTF-16. An unknown pair gives "catalog/key", so a missing
  // entry shows up in the message rather than as an empty text.
  static cx::ustring get_message(const std::string& catalog, const std::string& key);

  // Whether the pair has a text.
  static bool has_message(const std::string& catalog, const std::string& key);
};

}  // namespace cx::i18n

#endif  // KT_INTERNAL_MESSAGE_CATALOG_H
