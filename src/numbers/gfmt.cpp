// kt_g_fmt: the shortest text that reads back to the same double.
#include "kt/numbers.h"

namespace {

// Stores characters only while room remains in the caller's buffer.
struct BoundedWriter {
    char* buf;
    size_t size;
    size_t pos;

    void put(char c) {
        if (pos < size)
            buf[pos] = c;
        pos++;
    }
    void put_all(const char* s) {
        while (*s != '\0')
            put(*s++);
    }
    // The terminator only if room remains after the text: a text that
    // exactly fills the buffer stays unterminated, as callers expect.
    void terminate() {
        if (pos < size)
            buf[pos] = '\0';
    }
};

void put_exponent(BoundedWriter& w, int e) {
    w.put('e');
    w.put(e < 0 ? '-' : '+');
    unsigned magnitude = static_cast<unsigned>(e < 0 ? -e : e);
    char digits[8];
    int n = 0;
    do {
        digits[n++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (n < 2)
        digits[n++] = '0';  // at least two exponent digits: e+06
    while (n > 0)
        w.put(digits[--n]);
}

void put_exponential(BoundedWriter& w, const char* d, int n, int p) {
    w.put(d[0]);
    if (n > 1) {
        w.put('.');
        for (int i = 1; i < n; i++)
            w.put(d[i]);
    }
    put_exponent(w, p - 1);
}

void put_small_fraction(BoundedWriter& w, const char* d, int n, int p) {
    w.put('.');  // no leading zero: .001
    for (int i = 0; i < -p; i++)
        w.put('0');
    for (int i = 0; i < n; i++)
        w.put(d[i]);
}

void put_positional(BoundedWriter& w, const char* d, int n, int p) {
    for (int i = 0; i < n; i++) {
        w.put(d[i]);
        if (i + 1 == p && i + 1 < n)
            w.put('.');
    }
    if (n > p)
        return;
    for (int i = n; i < p; i++)
        w.put('0');
    w.put('.');  // integral values keep a ".0"
    w.put('0');
}

}  // namespace

char* kt_g_fmt(kt_fpc_context* ctx, double x, char* buf, size_t bufsize) {
    char digits[64];
    int p = 0;
    int sign = 0;
    char* end = nullptr;
    kt_dtoa(ctx, x, digits, sizeof digits, 0, 0, &p, &sign, &end);
    int n = static_cast<int>(end - digits);
    BoundedWriter w = {buf, buf != nullptr ? bufsize : 0, 0};
    if (sign)
        w.put('-');
    if (p == KT_DTOA_SPECIAL_DECPT)
        w.put_all(digits);
    else if (p < -3 || p > n + 5)
        put_exponential(w, digits, n, p);
    else if (p <= 0)
        put_small_fraction(w, digits, n, p);
    else
        put_positional(w, digits, n, p);
    w.terminate();
    return buf;
}
