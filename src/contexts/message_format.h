// The grammar of message texts, shared by the registry (which validates
// texts with it when tables and languages are registered) and the printm
// family (which formats by it).
//
// An English text holds conversions: "%%", "%s", "%U", or a C conversion
// that the bounded C formatter can print from one argument of a type known
// here. A translation holds "%%" and hole numbers "%1", "%2" ... that refer
// to the English text's holes.
#ifndef KT_CONTEXTS_MESSAGE_FORMAT_H
#define KT_CONTEXTS_MESSAGE_FORMAT_H

#include <cstring>

namespace kt::internal {

enum class ConversionKind : unsigned char {
  kPercent,    // "%%": prints one "%", not a hole
  kString,     // "%s": a string hole, printed uncut
  kCallback,   // "%U": a kt_percent_u_argument* hole
  kFormatted,  // a numeric, character, pointer or count hole
  kMalformed,  // anything else: no hole, printed as it stands
};

// The argument a formatted conversion takes.
enum class ArgumentType : unsigned char {
  kInt, kUnsigned, kLong, kLongLong, kDouble, kLongDouble, kPointer, kCount
};

// 16 bytes, so that it is returned in registers.
struct Conversion {
  long end;               // index of its last character
  ConversionKind kind;
  ArgumentType argument;  // kFormatted
  unsigned char status;   // kMalformed: the registration status explaining it
  int stars;              // kFormatted: '*' values taken before the argument
};

// The conversion started by the "%" at text[at].
Conversion ScanConversion(const char* text, long at);

// Calls visit(at, conversion) for every conversion of `text` in order,
// continuing after malformed ones; stops when visit returns false.
template <class Visit>
void ForEachConversion(const char* text, Visit visit) {
  for (const char* p = std::strchr(text, '%'); p != nullptr;) {
    long at = p - text;
    Conversion c = ScanConversion(text, at);
    if (!visit(at, c)) return;
    p = std::strchr(text + c.end + 1, '%');
  }
}

bool IsHole(const Conversion& c);

struct TextScan {
  int status;  // 0 when every conversion is well formed
  int holes;
  int longestSpec;
};

// Checks one English text; the first malformed conversion gives its status.
TextScan ScanEnglishText(const char* text);

// The holes of an English text (malformed conversions are none); 0 for null.
int CountHoles(const char* text);

// Checks a translation against its English text's hole count: each "%" is
// followed by "%" or a hole number between 1 and `holes`, each used once,
// all used. Returns 0 or the status.
int CheckTranslation(const char* text, int holes);

}  // namespace kt::internal

#endif  // KT_CONTEXTS_MESSAGE_FORMAT_H
