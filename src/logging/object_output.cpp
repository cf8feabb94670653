/*
 * Message objects and their text output: Externalizable, the DataOutput /
 * ObjectOutput interfaces, ObjectOutputStream, filters and formatters.
 */
#include <ostream>
#include <sstream>

#include "kt/logging.h"

namespace Quivera {
namespace System {

/* Out-of-line destructors anchor each class's vtable and typeinfo here. */
Externalizable::~Externalizable() = default;
DataOutput::~DataOutput() = default;
ObjectOutput::~ObjectOutput() = default;
Filter::~Filter() = default;
Formatter::~Formatter() = default;

ObjectOutputStream::ObjectOutputStream(std::ostream& stream) : stream_(stream) {}

ObjectOutputStream::~ObjectOutputStream() = default;

void ObjectOutputStream::write_bool(bool value)
{
    stream_ << value;
}

/* The 8-bit forms write the character itself, not its number. */
void ObjectOutputStream::write_int8_t(signed char value)
{
    stream_ << value;
}

void ObjectOutputStream::write_uint8_t(unsigned char value)
{
    stream_ << value;
}

void ObjectOutputStream::write_int16_t(short value)
{
    stream_ << value;
}

void ObjectOutputStream::write_uint16_t(unsigned short value)
{
    stream_ << value;
}

void ObjectOutputStream::write_int32_t(int value)
{
    stream_ << value;
}

void ObjectOutputStream::write_uint32_t(unsigned int value)
{
    stream_ << value;
}

void ObjectOutputStream::write_int64_t(long value)
{
    stream_ << value;
}

void ObjectOutputStream::write_uint64_t(unsigned long value)
{
    stream_ << value;
}

void ObjectOutputStream::write_float(float value)
{
    stream_ << static_cast<double>(value);
}

void ObjectOutputStream::write_double(double value)
{
    stream_ << value;
}

void ObjectOutputStream::write_c_str(const char* text)
{
    if (!text) {
        stream_.setstate(std::ios_base::badbit);
        return;
    }
    stream_ << text;
}

/* Deliberately empty: raw bytes have no text form in this stream, and
   callers rely on it writing nothing. */
void ObjectOutputStream::write_bytes(unsigned char* data, unsigned long offset,
                                     unsigned long length)
{
    (void)data;
    (void)offset;
    (void)length;
}

void ObjectOutputStream::writeObject(const Externalizable& object)
{
    object.writeExternal(*this);
}

SimpleFormatter::SimpleFormatter() = default;

SimpleFormatter::~SimpleFormatter() = default;

std::string SimpleFormatter::format(const Externalizable& object) const
{
    std::ostringstream text;
    ObjectOutputStream out(text);
    object.writeExternal(out);
    return text.str();
}

}  // namespace System
}  // namespace Quivera
