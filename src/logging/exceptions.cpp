/*
 * SimpleException and the deprecated exception classes: message objects
 * that carry their text and write it through an object output.
 */
#include <string>

#include "internal/locale_codecvt.h"
#include "kt/logging.h"

namespace Quivera {
namespace System {

/* ---- SimpleException ------------------------------------------------------ */

SimpleException::SimpleException() = default;

SimpleException::SimpleException(const std::string& id, const cx::ustring& message)
    : id_(id), message_(message), what_(cx::i18n::ustring_to_utf8(message))
{
}

SimpleException::SimpleException(const SimpleException& other)
    : Exception(other), id_(other.id_), message_(other.message_), what_(other.what_)
{
}

SimpleException& SimpleException::operator=(const SimpleException& other)
{
    id_ = other.id_;
    message_ = other.message_;
    what_ = other.what_;
    return *this;
}

SimpleException::~SimpleException() = default;

SimpleException* SimpleException::clone() const
{
    return new SimpleException(*this);
}

void SimpleException::rethrow() const
{
    throw SimpleException(*this);
}

const char* SimpleException::what() const noexcept
{
    return what_.c_str();
}

std::string SimpleException::GetID() const
{
    return id_;
}

cx::ustring SimpleException::GetUnicodeMessageTxt() const
{
    return message_;
}

void SimpleException::SetID(const std::string& id)
{
    id_ = id;
}

/* The UTF-8 form is made now so that what() never allocates. */
void SimpleException::SetMessageTxt(const cx::ustring& message)
{
    std::string utf8 = cx::i18n::ustring_to_utf8(message);
    message_ = message;
    what_.swap(utf8);
}

/* ---- Throwable_DEPRECATED ----------------------------------------------- */

Throwable_DEPRECATED::Throwable_DEPRECATED() = default;

Throwable_DEPRECATED::Throwable_DEPRECATED(const std::string& message) : message_(message) {}

Throwable_DEPRECATED::Throwable_DEPRECATED(const Throwable_DEPRECATED& other)
    : Externalizable(other), message_(other.message_)
{
}

Throwable_DEPRECATED& Throwable_DEPRECATED::operator=(const Throwable_DEPRECATED& other)
{
    message_ = other.message_;
    return *this;
}

Throwable_DEPRECATED::~Throwable_DEPRECATED() = default;

void Throwable_DEPRECATED::writeExternal(ObjectOutput& out) const
{
    out.write_c_str(message_.c_str());
}

void Throwable_DEPRECATED::writeLocalizedMsg(ObjectOutputStream& out) const
{
    out.write_c_str(message_.c_str());
}

Throwable_DEPRECATED* Throwable_DEPRECATED::clone() const
{
    return new Throwable_DEPRECATED(*this);
}

void Throwable_DEPRECATED::rethrow() const
{
    throw Throwable_DEPRECATED(*this);
}

const char* Throwable_DEPRECATED::what() const noexcept
{
    return message_.c_str();
}

/* ---- InternalException_DEPRECATED --------------------------------------- */

InternalException_DEPRECATED::InternalException_DEPRECATED() = default;

InternalException_DEPRECATED::InternalException_DEPRECATED(const std::string& message)
    : Throwable_DEPRECATED(message)
{
}

InternalException_DEPRECATED::InternalException_DEPRECATED(
    const InternalException_DEPRECATED& other)
    : Throwable_DEPRECATED(other), IInternalException(other)
{
}

InternalException_DEPRECATED::~InternalException_DEPRECATED() = default;

void InternalException_DEPRECATED::writeLocalizedMsg(ObjectOutputStream& out) const
{
    Throwable_DEPRECATED::writeLocalizedMsg(out);
}

InternalException_DEPRECATED* InternalException_DEPRECATED::clone() const
{
    return new InternalException_DEPRECATED(*this);
}

void InternalException_DEPRECATED::rethrow() const
{
    throw InternalException_DEPRECATED(*this);
}

const char* InternalException_DEPRECATED::what() const noexcept
{
    return Throwable_DEPRECATED::what();
}

/* ---- UserException_DEPRECATED ------------------------------------------- */

UserException_DEPRECATED::UserException_DEPRECATED() = default;

UserException_DEPRECATED::UserException_DEPRECATED(const std::string& message)
    : Throwable_DEPRECATED(message)
{
}

UserException_DEPRECATED::UserException_DEPRECATED(const UserException_DEPRECATED& other)
    : Throwable_DEPRECATED(other), IUserException(other)
{
}

UserException_DEPRECATED::~UserException_DEPRECATED() = default;

void UserException_DEPRECATED::writeLocalizedMsg(ObjectOutputStream& out) const
{
    Throwable_DEPRECATED::writeLocalizedMsg(out);
}

UserException_DEPRECATED* UserException_DEPRECATED::clone() const
{
    return new UserException_DEPRECATED(*this);
}

void UserException_DEPRECATED::rethrow() const
{
    throw UserException_DEPRECATED(*this);
}

const char* UserException_DEPRECATED::what() const noexcept
{
    return Throwable_DEPRECATED::what();
}

/* ---- UserErrorException_DEPRECATED -------------------------------------- */

UserErrorException_DEPRECATED::UserErrorException_DEPRECATED() = default;

UserErrorException_DEPRECATED::UserErrorException_DEPRECATED(const std::string& message)
    : UserException_DEPRECATED(message)
{
}

UserErrorException_DEPRECATED::UserErrorException_DEPRECATED(
    const UserErrorException_DEPRECATED& other)
    : UserException_DEPRECATED(other)
{
}

UserErrorException_DEPRECATED::~UserErrorException_DEPRECATED() = default;

void UserErrorException_DEPRECATED::writeLocalizedMsg(ObjectOutputStream& out) const
{
    UserException_DEPRECATED::writeLocalizedMsg(out);
}

UserErrorException_DEPRECATED* UserErrorException_DEPRECATED::clone() const
{
    return new UserErrorException_DEPRECATED(*this);
}

void UserErrorException_DEPRECATED::rethrow() const
{
    throw UserErrorException_DEPRECATED(*this);
}

/* ---- ktErrorException_DEPRECATED ---------------------------------------- */

ktErrorException_DEPRECATED::ktErrorException_DEPRECATED() : code_(0) {}

ktErrorException_DEPRECATED::ktErrorException_DEPRECATED(int code, const std::string& id,
                                                         const std::string& message)
    : UserException_DEPRECATED(message), code_(code), id_(id)
{
}

ktErrorException_DEPRECATED::ktErrorException_DEPRECATED(
    const ktErrorException_DEPRECATED& other)
    : UserException_DEPRECATED(other), code_(other.code_), id_(other.id_)
{
}

ktErrorException_DEPRECATED::~ktErrorException_DEPRECATED() = default;

void ktErrorException_DEPRECATED::writeLocalizedMsg(ObjectOutputStream& out) const
{
    UserException_DEPRECATED::writeLocalizedMsg(out);
}

ktErrorException_DEPRECATED* ktErrorException_DEPRECATED::clone() const
{
    return new ktErrorException_DEPRECATED(*this);
}

void ktErrorException_DEPRECATED::rethrow() const
{
    throw ktErrorException_DEPRECATED(*this);
}

std::string ktErrorException_DEPRECATED::GetID() const
{
    return id_;
}

int ktErrorException_DEPRECATED::getCode() const
{
    return code_;
}

}  // namespace System
}  // namespace Quivera
