// In-place byte-order conversion of arrays of 2-, 4- and 8-byte items.
#include <stdint.h>
#include <string.h>

#include "kt/contexts.h"
#include "kt/errors.h"
#include "kt/numbers.h"

namespace {

bool format_orders_differ(int fromFmt, int toFmt) {
    return ktGetFormatEndian(fromFmt) != ktGetFormatEndian(toFmt);
}

bool data_orders_differ(int fromType, int toType) {
    return ktGetDataEndianType(fromType) != ktGetDataEndianType(toType);
}

// The data size types whose floating-point layout is IEEE 754.
bool is_ieee_data_type(int type) { return type == 0 || type == 1 || type == 5 || type == 6; }

// Leaves only when `from` is an IEEE type: anything else is a VAX or Cray
// layout that cannot be converted, raised through the current error context.
void require_ieee_source(int from) {
    if (!is_ieee_data_type(from))
        kt_error(ktGetErrorContext(), KT_ERR_UNSUPPORTED_FP_FMT);
}

}  // namespace

void ktFlipTwoBytes(size_t count, uint16_t* p) {
    for (size_t i = 0; i < count; i++)
        p[i] = __builtin_bswap16(p[i]);
}

void ktFlipFourBytes(size_t count, uint32_t* p) {
    for (size_t i = 0; i < count; i++)
        p[i] = __builtin_bswap32(p[i]);
}

void ktFlipEightBytes(size_t count, uint64_t* p) {
    for (size_t i = 0; i < count; i++)
        p[i] = __builtin_bswap64(p[i]);
}

int32_t ktGetFourByteInt(const void* p) {
    int32_t v;
    memcpy(&v, p, sizeof v);
    return v;
}

void ktPutFourByteInt(void* p, int32_t value) { memcpy(p, &value, sizeof value); }

void ktFourByteIntConvert(int fromFmt, int toFmt, int32_t* data, size_t count) {
    if (format_orders_differ(fromFmt, toFmt))
        ktFlipFourBytes(count, reinterpret_cast<uint32_t*>(data));
}

void ktFourByteUIntConvert(int fromFmt, int toFmt, uint32_t* data, size_t count) {
    if (format_orders_differ(fromFmt, toFmt))
        ktFlipFourBytes(count, data);
}

void ktTwoByteIntConvert(int fromFmt, int toFmt, int16_t* data, size_t count) {
    if (format_orders_differ(fromFmt, toFmt))
        ktFlipTwoBytes(count, reinterpret_cast<uint16_t*>(data));
}

void ktTwoByteUIntConvert(int fromFmt, int toFmt, uint16_t* data, size_t count) {
    if (format_orders_differ(fromFmt, toFmt))
        ktFlipTwoBytes(count, data);
}

void ktFourByteIntConvertData(int fromType, int toType, int32_t* data, size_t count) {
    if (data_orders_differ(fromType, toType))
        ktFlipFourBytes(count, reinterpret_cast<uint32_t*>(data));
}

void ktTwoByteIntConvertData(int fromType, int toType, int16_t* data, size_t count) {
    if (data_orders_differ(fromType, toType))
        ktFlipTwoBytes(count, reinterpret_cast<uint16_t*>(data));
}

// From an IEEE type the items are flipped without comparing byte orders,
// on purpose: data written as "ieee-le" and read as "ieee-le.l64" flips
// too, which is what the readers of such files expect.
void ktDoubleConvert(int from, int to, double* data, size_t count) {
    if (from == to)
        return;
    require_ieee_source(from);
    for (size_t i = 0; i < count; i++) {
        uint64_t u;
        memcpy(&u, &data[i], sizeof u);
        u = __builtin_bswap64(u);
        memcpy(&data[i], &u, sizeof u);
    }
}

void ktSingleConvert(int from, int to, float* data, size_t count) {
    if (from == to)
        return;
    require_ieee_source(from);
    for (size_t i = 0; i < count; i++) {
        uint32_t u;
        memcpy(&u, &data[i], sizeof u);
        u = __builtin_bswap32(u);
        memcpy(&data[i], &u, sizeof u);
    }
}
