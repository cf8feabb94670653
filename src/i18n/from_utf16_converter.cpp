// FromUTF16Converter: one conversion out of UTF-16 through the thread's
// converter, into an inline buffer when the result is short.
#include <unicode/ucnv.h>

#include "i18n/converter_cache.h"
#include "kt/encodings.h"

namespace Quivera {
namespace I18N {

const kt_utf16 FromUTF16Converter::emptyText_[1] = {0};

// The inline buffer is offered only sizeof buffer_ / (maximum bytes per
// character). That is deliberately conservative -- it keeps the first
// conversion's answer safe to copy for any encoding -- and it is kept even
// though texts of up to sizeof buffer_ bytes could often have fitted.
FromUTF16Converter::FromUTF16Converter(const kt_utf16* text, int length, const char* encoding)
    : encoding_(encoding),
      text_(text ? text : emptyText_),
      textLength_(text ? kt::internal::SourceLength(length) : 0),
      converter_(UnicodeConverterX::getThreadSpecific(encoding)),
      convertedLength_(0),
      overflow_(0) {
  UConverter* converter = cast(converter_);
  int capacity = static_cast<int>(sizeof buffer_) / ucnv_getMaxCharSize(converter);
  UErrorCode status = U_ZERO_ERROR;
  convertedLength_ = ucnv_fromUChars(converter, buffer_, capacity, text_, textLength_, &status);
  overflow_ = status == U_BUFFER_OVERFLOW_ERROR;
}

int FromUTF16Converter::_do_conversion(char* destination, int capacity) {
  if (destination == nullptr || capacity < 0)
    capacity = 0;
  UErrorCode status = U_ZERO_ERROR;
  return ucnv_fromUChars(cast(converter_), capacity ? destination : nullptr, capacity, text_,
                         textLength_, &status);
}

void FromUTF16Converter::copy_to(std::string& out) {
  if (!overflow_) {
    out.assign(buffer_, static_cast<size_t>(convertedLength_));
    return;
  }
  out.resize(static_cast<size_t>(convertedLength_));
  _do_conversion(&out[0], convertedLength_);
}

}  // namespace I18N
}  // namespace Quivera
