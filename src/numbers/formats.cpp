// Floating-point format types, data size types and data classes.
#include <stdint.h>
#include <string.h>

#include "kt/numbers.h"

namespace {

struct FormatType {
    const char* name;
    int exponentBits;
    int fractionBits;
    int byteOrder;     // 0 little, 1 big, -1 obsolete
    int implicitBit;   // leading significand bit not stored
    int biasAdjust;
};

const FormatType kFormats[6] = {
    {"ieee-le", 11, 52, 0, 1, 0},     {"ieee-be", 11, 52, 1, 1, 0},
    {"obsolete", 0, 0, -1, 0, 0},     {"obsolete", 0, 0, -1, 0, 0},
    {"obsolete", 0, 0, -1, 0, 0},     {"unknown_fmt", 0, 0, 0, 1, 0},
};

struct DataSizeType {
    const char* name;
    int byteOrder;
};

const DataSizeType kDataSizeTypes[8] = {
    {"ieee-le", 0},     {"ieee-be", 1},     {"obsolete", -1},    {"obsolete", -1},
    {"obsolete", -1},   {"ieee-le.l64", 0}, {"ieee-be.l64", 1},  {"unknown_fmt", 0},
};

// Data classes 1-12: size under the plain types, size under the ".l64"
// types (5 and 6), signedness.
struct DataClass {
    int size;
    int sizeL64;
    int sign;
};

const DataClass kDataClasses[13] = {
    {0, 0, -1},  // no class 0
    {1, 1, -1}, {2, 2, 1}, {1, 1, 1}, {2, 2, 1}, {4, 4, 1}, {4, 8, 1},
    {1, 1, 0},  {2, 2, 0}, {4, 4, 0}, {4, 8, 0}, {4, 4, 1}, {8, 8, 1},
};

// The double whose exponent field holds the row's bias (and zero
// fraction), laid out in the row's byte order: 1.0 in that format.
bool row_encodes_one(const FormatType& row, bool reversed) {
    int bias = (1 << (row.exponentBits - 1)) - row.implicitBit - row.biasAdjust;
    uint64_t pattern = static_cast<uint64_t>(bias) << row.fractionBits;
    unsigned char bytes[8];
    for (int i = 0; i < 8; i++) {
        int shift = reversed ? 8 * (7 - i) : 8 * i;
        bytes[i] = static_cast<unsigned char>(pattern >> shift);
    }
    double x;
    memcpy(&x, bytes, sizeof x);
    return x == 1.0;  // false for a NaN too
}

int probe_format_type() {
    if (row_encodes_one(kFormats[0], false))
        return 0;
    if (row_encodes_one(kFormats[1], true))
        return 1;
    return 5;  // the obsolete rows 2-4 are never probed
}

}  // namespace

int ktGetNumFormatTypes(void) { return 6; }

// No bounds check: callers pass 0-5.
const char* ktGetFormatTypeName(int i) { return kFormats[i].name; }
int ktGetFormatEndian(int i) { return kFormats[i].byteOrder; }

int ktGetFormatType(void) {
    static const int native = probe_format_type();
    return native;
}

int ktGetNumDataSizeTypes(void) { return 8; }

const char* ktGetDataSizeTypeName(int i) {
    if (i < 0 || i > 7)
        return "unknown_fmt";
    return kDataSizeTypes[i].name;
}

int ktGetDataEndianType(int i) {
    if (i < 0 || i > 7)
        return 0;
    return kDataSizeTypes[i].byteOrder;
}

int ktGetDataSizeType(void) {
    static const int native = ktGetFormatType() == 0 ? 5 : ktGetFormatType() == 1 ? 6 : 7;
    return native;
}

int ktDconvertSize(int sizeType, int dataClass) {
    // The last type, "unknown_fmt", is never looked up.
    if (sizeType < 0 || sizeType >= ktGetNumDataSizeTypes() - 1)
        return 0;
    if (dataClass < 1 || dataClass > 12)
        return 0;
    const DataClass& c = kDataClasses[dataClass];
    return (sizeType == 5 || sizeType == 6) ? c.sizeL64 : c.size;
}

int ktDconvertSign(int dataClass) {
    if (dataClass < 2 || dataClass > 12)
        return -1;
    return kDataClasses[dataClass].sign;
}
