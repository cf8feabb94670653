// UnicodeConverterX outside the per-thread cache: opening and closing
// converters, standard encoding names, the scoped default encoding, and the
// exception for unknown names.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>

#include <unicode/ucnv.h>

#include "i18n/converter_cache.h"
#include "internal/diag.h"
#include "kt/encodings.h"

namespace Quivera {
namespace I18N {
namespace {

// The name of `name`'s encoding in the MIME standard, else IANA, else
// WINDOWS; null when it has none.
const char* StandardName(const char* name) {
  static const char* const kStandards[] = {"MIME", "IANA", "WINDOWS"};
  for (const char* standard : kStandards) {
  UErrorCode status = U_ZERO_ERROR;
  const char* found = ucnv_getStandardName(name, standard, &status);
  if (found != nullptr && U_SUCCESS(status))
      return found;
  }
  return nullptr;
}

const char* StandardNameOrSelf(const char* name) {
  const char* standard = StandardName(name);
  return standard ? standard : name;
}

// IBM table names carry a variant after an underscore
// ("ibm-5348_P100-1997"); the standards know the name without it.
const char* StandardNameOfIbmVariant(const char* canonical) {
  std::string lower(canonical);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  size_t ibm = lower.find("ibm-");
  if (ibm == std::string::npos || lower.find('_', ibm) == std::string::npos)
  return nullptr;
  lower.resize(lower.find('_'));
  return StandardName(lower.c_str());
}

}  // namespace

// ---- InvalidCharacterSetException ----------------------------------------

InvalidCharacterSetException::InvalidCharacterSetException(const char* name)
    : Throwable_DEPRECATED(std::string("unknown character set '") + (name ? name : "") + "'") {}

InvalidCharacterSetException::InvalidCharacterSetException(
    const InvalidCharacterSetException& other) = default;

InvalidCharacterSetException::~InvalidCharacterSetException() = default;

InvalidCharacterSetException* InvalidCharacterSetException::clone() const {
  return new InvalidCharacterSetException(*this);
}

void InvalidCharacterSetException::rethrow() const {
  throw InvalidCharacterSetException(*this);
}

// ---- UnicodeConverterX ---------------------------------------------------

UnicodeConverterX* UnicodeConverterX::create(const char* name) {
  UErrorCode status = U_ZERO_ERROR;
  UConverter* converter = ucnv_open(name, &status);
  if (U_FAILURE(status))
    throw InvalidCharacterSetException(name);
  return cast(converter);
}

void UnicodeConverterX::operator delete(void* converter) {
  if (converter != nullptr)
    ucnv_close(static_cast<UConverter*>(converter));
}

void UnicodeConverterX::destroy(UnicodeConverterX& converter) {
  ucnv_close(cast(&converter));
}

// The canonical name returned for encodings without a standard one points
// into ICU's converter data, which stays loaded after the converter that
// revealed it is closed (the library never flushes ICU's cache).
const char* UnicodeConverterX::getStdEncodingName(const char* name) {
  if (name == nullptr || *name == '\0')
    return nullptr;
  UConverter* converter = cast(create(name));
  UErrorCode status = U_ZERO_ERROR;
  const char* canonical = ucnv_getName(converter, &status);
  ucnv_close(converter);
  const char* standard = StandardNameOfIbmVariant(canonical);
  return standard ? standard : canonical;
}

const char* UnicodeConverterX::getDefaultName() {
  return StandardNameOrSelf(ucnv_getDefaultName());
}

const char* UnicodeConverterX::getName() const {
  UErrorCode status = U_ZERO_ERROR;
  return StandardNameOrSelf(ucnv_getName(const_cast<UConverter*>(cast(this)), &status));
}

void UnicodeConverterX::reset() {
  ucnv_reset(cast(this));
}

// ---- AutoRestoreUnicodeConverterName -------------------------------------

AutoRestoreUnicodeConverterName::AutoRestoreUnicodeConverterName(const char* name) {
  UErrorCode status = U_ZERO_ERROR;
  name_ = ucnv_getName(kt::internal::ThreadConverter(nullptr), &status);
  UnicodeConverterX::pushTssDefaultConvName(name);
}

AutoRestoreUnicodeConverterName::~AutoRestoreUnicodeConverterName() {
  try {
    UnicodeConverterX::pushTssDefaultConvName(name_.c_str());
  } catch (...) {
    kt::internal::diag::Terminate("cannot restore the thread's default encoding",
                                  __FILE__, __LINE__, __func__);
  }
}

}  // namespace I18N
}  // namespace Quivera
