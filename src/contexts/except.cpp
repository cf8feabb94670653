// The product's exception interfaces and its out-of-memory exception.
#include <string>

#include "internal/locale_codecvt.h"
#include "internal/message_catalog.h"
#include "kt/errors.h"

namespace bedrock::core::except {

IException::~IException() = default;

cx::ustring IException::convert_str(const cx::ustring& text) const { return text; }

cx::ustring IException::convert_str(const std::string& text) const {
  return cx::i18n::codecvt_string_to_ustring(text, "UTF-8");
}

cx::ustring IException::ToUstringImpl() const { return convert_str(std::string(what())); }

std::string IException::GetID() const { return std::string(); }

cx::ustring IException::GetUnicodeMessageTxt() const { return ToUstringImpl(); }

IUserException::~IUserException() = default;
IInternalException::~IInternalException() = default;

namespace detail {
bad_alloc_impl::bad_alloc_impl() noexcept = default;
bad_alloc_impl::bad_alloc_impl(const bad_alloc_impl&) noexcept = default;
bad_alloc_impl::~bad_alloc_impl() = default;

util::detail::legacy_bad_alloc_impl legacy(const bad_alloc_impl& base) {
  return util::detail::legacy_bad_alloc_impl(base);
}
}  // namespace detail

detail::bad_alloc_impl bad_alloc() { return detail::bad_alloc_impl(); }

// The one instantiation thrown across the library boundary.
template class Exception<IUserException, detail::bad_alloc_impl>;

}  // namespace bedrock::core::except

namespace util::detail {

using bedrock::core::except::detail::bad_alloc_impl;

legacy_bad_alloc_impl::legacy_bad_alloc_impl() = default;
legacy_bad_alloc_impl::legacy_bad_alloc_impl(const bad_alloc_impl& base) : Exception(base) {}
legacy_bad_alloc_impl::legacy_bad_alloc_impl(const legacy_bad_alloc_impl& other) = default;
legacy_bad_alloc_impl::~legacy_bad_alloc_impl() = default;

legacy_bad_alloc_impl* legacy_bad_alloc_impl::clone() const { return new legacy_bad_alloc_impl(*this); }

void legacy_bad_alloc_impl::rethrow() const { throw legacy_bad_alloc_impl(*this); }

std::string legacy_bad_alloc_impl::GetID() const { return "ZENTRA:nomem"; }

cx::ustring legacy_bad_alloc_impl::GetUnicodeMessageTxt() const {
  return cx::i18n::MessageCatalog::get_message("bedrock_legacy:messages", "nomem");
}

}  // namespace util::detail
