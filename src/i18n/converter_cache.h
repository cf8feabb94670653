// The per-thread converter cache behind the encoding functions, for the
// library's own conversion code (and tests that count open converters).
#ifndef KT_I18N_CONVERTER_CACHE_H
#define KT_I18N_CONVERTER_CACHE_H

#include <unicode/ucnv.h>

namespace kt::internal {

// The calling thread's converter for `name` (null or "": the thread's
// default encoding): what UnicodeConverterX::getThreadSpecific returns, as
// the ICU type. A repeat of the thread's previous request costs one string
// comparison. Throws InvalidCharacterSetException for an unknown name.
UConverter* ThreadConverter(const char* name);

// The number of converters open in the caches of all live threads.
int CachedConverterCount();

// Source lengths of the C functions: -1 means NUL-terminated; any other
// negative length converts nothing.
inline int SourceLength(int length) { return length < -1 ? 0 : length; }

}  // namespace kt::internal

#endif  // KT_I18N_CONVERTER_CACHE_H
