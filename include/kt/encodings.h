/*
 * kt/encodings.h -- conversion between UTF-8, UTF-16 and other encodings
 *
 * Text inside the product is UTF-16. Narrow text comes in three kinds:
 *
 *   utf8_...  UTF-8;
 *   lcp_...   the calling thread's default encoding (the "locale code
 *             page"): ICU's default converter name until the thread pushes
 *             another one (UnicodeConverterX::pushTssDefaultConvName);
 *   enc_...   an encoding named by the caller (any name or alias ICU
 *             knows: "Shift_JIS", "sjis", "windows-1252", "UTF-16BE" ...).
 *
 * Every conversion runs on ICU converters. Each thread keeps its own cache
 * of open converters, one per canonical encoding name (so "utf8" and
 * "UTF-8" share one), closed when the thread exits. Nothing is shared
 * between threads and nothing here takes a lock; a converter obtained from
 * the cache belongs to the thread that obtained it.
 *
 *     kt_utf16* wide = utf8_to_utf16(text, -1);      // ktFree(wide) later
 *     char* sjis = utf16_to_enc("Shift_JIS", wide, -1);
 *
 * Conventions of the C functions:
 *   - lengths are ints counted in the source's units (bytes or UTF-16
 *     units); -1 means "up to the terminating NUL"; other negative lengths
 *     convert nothing;
 *   - a null source converts as the empty text;
 *   - the allocating forms return a NUL-terminated result allocated with
 *     ktMalloc (kt/memory.h), which the caller releases with ktFree; null
 *     means the allocation failed;
 *   - bytes that are invalid in the source encoding, and characters the
 *     destination encoding lacks, are replaced by ICU's substitution
 *     characters (U+FFFD, or the encoding's own substitute such as 0x1A);
 *     no error is reported for them;
 *   - an encoding name ICU does not know throws
 *     Quivera::I18N::InvalidCharacterSetException (callers in C++ only: a
 *     C caller passes only names it knows to be valid).
 */
#ifndef KT_ENCODINGS_H
#define KT_ENCODINGS_H

#include <stddef.h>
#include <stdint.h>

#include "kt/export.h"
#include "kt/utf16.h"

KT_EXTERN_C_BEGIN

/* ---- to UTF-16 ---------------------------------------------------------- */

/*
 * Convert `length` bytes of `text` to a new NUL-terminated UTF-16 string:
 * from UTF-8, from the thread's default encoding, and from the encoding
 * `encoding` names (null or "" meaning the thread's default). Null only
 * when the allocation failed.
 */
KT_API kt_utf16* utf8_to_utf16(const char* text, int length);
KT_API kt_utf16* lcp_to_utf16(const char* text, int length);
KT_API kt_utf16* enc_to_utf16(const char* encoding, const char* text, int length);

/*
 * Convert into the caller's `destination` of *capacity UTF-16 units.
 * Returns the full length of the converted text in units (without the
 * terminator), even when it did not fit, and stores the same value in
 * *capacity. Nothing is written past the capacity: the text is cut where
 * it stops fitting, and a terminating zero unit is added only when there is
 * room for it. A result equal to the old capacity means "fitted, not
 * terminated"; a larger one means "did not fit". A null `capacity`, a
 * negative one or a null `destination` measures without writing.
 */
KT_API int utf8_to_utf16_n(kt_utf16* destination, int* capacity, const char* text, int length);
KT_API int lcp_to_utf16_n(kt_utf16* destination, int* capacity, const char* text, int length);
KT_API int enc_to_utf16_n(const char* encoding, kt_utf16* destination, int* capacity,
                          const char* text, int length);

/* ---- from UTF-16 -------------------------------------------------------- */

/*
 * Convert `length` units of UTF-16 `text` to a new NUL-terminated byte
 * string: in UTF-8, in the thread's default encoding, and in the named
 * encoding (null or "" meaning the thread's default). Unpaired surrogates
 * are substituted. Null only when the allocation failed.
 */
KT_API char* utf16_to_utf8(const kt_utf16* text, int length);
KT_API char* utf16_to_lcp(const kt_utf16* text, int length);
KT_API char* utf16_to_enc(const char* encoding, const kt_utf16* text, int length);

/*
 * Convert into the caller's `destination` of *capacity bytes in the
 * thread's default encoding; results and capacity rules as for
 * utf8_to_utf16_n, counted in bytes.
 */
KT_API int utf16_to_lcp_n(char* destination, int* capacity, const kt_utf16* text, int length);

/* ---- searching through the thread's converter --------------------------- */

/*
 * strchr for text in the thread's default encoding, safe for multibyte
 * encodings whose trail bytes can look like ASCII (Shift_JIS, GB18030,
 * Big5 ...): returns the address of the byte where the first character
 * equal to `c` starts, or null. Only 7-bit characters are searched: a `c`
 * outside 0..127 gives null. A `c` of 0 finds the terminating NUL, as
 * strchr does. Text that is all 7-bit is scanned as bytes; other text is
 * decoded (invalid bytes are substituted and never match). A null text
 * gives null.
 */
KT_API char* lcp_strchr(const char* text, int c);

/*
 * The byte offset in `text` (`length` bytes, -1 for NUL-terminated) of the
 * last "/" character when the text is decoded with the thread's default
 * encoding; -1 when there is none, when the text does not decode (invalid
 * or incomplete byte sequences), or for a null text.
 */
KT_API int mpath_pathname_index(const char* text, int length);

KT_EXTERN_C_END

#ifdef __cplusplus

#include <string>

#include "kt/logging.h" /* Quivera::System::Throwable_DEPRECATED */

struct UConverter; /* ICU's converter */

KT_EXTERN_C_BEGIN
/*
 * As lcp_to_utf16, but the result is allocated with new[] and released by
 * the caller with delete[]; allocation failure throws std::bad_alloc.
 */
KT_API kt_utf16* lcp_to_utf16_mt(const char* text, int length);
KT_EXTERN_C_END

namespace Quivera {
namespace I18N {

/*
 * Thrown when no converter can be opened for an encoding name. what() is
 * "unknown character set '<name>'".
 */
class KT_API InvalidCharacterSetException : public Quivera::System::Throwable_DEPRECATED {
public:
    explicit InvalidCharacterSetException(const char* name);
    InvalidCharacterSetException(const InvalidCharacterSetException& other);
    ~InvalidCharacterSetException() override;

    InvalidCharacterSetException* clone() const override;
    void rethrow() const override;
};

/*
 * An ICU converter (UConverter) under the library's name: a pointer to one
 * is a pointer to the other (see cast below). Never constructed; obtained
 * from create (owned by the caller, released with delete or destroy) or
 * from getThreadSpecific (owned by the thread's cache: never delete it,
 * never pass it to another thread).
 */
class KT_API UnicodeConverterX {
public:
    /* Opens a converter for `name` (null: ICU's default). Throws
       InvalidCharacterSetException when ICU does not know the name. */
    static UnicodeConverterX* create(const char* name);
    /* `delete converter` closes it; null is ignored. */
    static void operator delete(void* converter);
    /* Closes a converter from create. */
    static void destroy(UnicodeConverterX& converter);

    /*
     * The calling thread's cached converter for `name`; null or "" means
     * the thread's default encoding. Opened on first request; aliases of
     * one encoding give the same converter. Throws
     * InvalidCharacterSetException for an unknown name (nothing is cached
     * then). The converter stays open until the thread exits. Its state is
     * whatever the last user left: reset it before streaming through it.
     */
    static UnicodeConverterX* getThreadSpecific(const char* name);
    /* The thread's default encoding name (valid until the thread changes
       its default). */
    static const char* getThreadSpecific_defaultEncoding();
    /* Makes the canonical name of `name`'s converter the thread's default
       encoding. Throws InvalidCharacterSetException for an unknown name
       (the default is then unchanged). */
    static void pushTssDefaultConvName(const char* name);
    /* Resets the thread's default to ICU's default converter name. There
       is no stack of pushed names: this never returns to an earlier push
       (AutoRestoreUnicodeConverterName restores one). */
    static void popTssDefaultConvName();

    /*
     * A standard name for any alias: null for a null or empty name;
     * otherwise the canonical name ICU gives the encoding, except that an
     * IBM canonical name with a variant suffix ("ibm-5348_P100-1997") is
     * looked up without its suffix in the MIME, IANA and WINDOWS standards
     * ("windows-1252"). Throws InvalidCharacterSetException for an unknown
     * name. The result points at ICU's static data.
     */
    static const char* getStdEncodingName(const char* name);
    /* The MIME, else IANA, else WINDOWS name of ICU's default converter,
       else that converter's own name. */
    static const char* getDefaultName();
    /* The same for this converter's canonical name. */
    const char* getName() const;
    /* Discards any partial character state of both directions. */
    void reset();

    ~UnicodeConverterX() = default;

private:
    UnicodeConverterX() = delete;
    UnicodeConverterX(const UnicodeConverterX&) = delete;
    UnicodeConverterX& operator=(const UnicodeConverterX&) = delete;
};

/* The two views of one converter; these change nothing. */
inline UConverter* cast(UnicodeConverterX* c) { return reinterpret_cast<UConverter*>(c); }
inline const UConverter* cast(const UnicodeConverterX* c) { return reinterpret_cast<const UConverter*>(c); }
inline UConverter& cast(UnicodeConverterX& c) { return reinterpret_cast<UConverter&>(c); }
inline const UConverter& cast(const UnicodeConverterX& c) { return reinterpret_cast<const UConverter&>(c); }
inline UnicodeConverterX* cast(UConverter* c) { return reinterpret_cast<UnicodeConverterX*>(c); }
inline const UnicodeConverterX* cast(const UConverter* c) { return reinterpret_cast<const UnicodeConverterX*>(c); }
inline UnicodeConverterX& cast(UConverter& c) { return reinterpret_cast<UnicodeConverterX&>(c); }
inline const UnicodeConverterX& cast(const UConverter& c) { return reinterpret_cast<const UnicodeConverterX&>(c); }

/*
 * Switches the thread's default encoding for a scope: remembers the
 * canonical name of the current default converter and pushes `name`
 * (throwing InvalidCharacterSetException for an unknown one, with nothing
 * changed); the destructor pushes the remembered name back. Nested guards
 * restore in reverse order. The destructor never throws: a failure to
 * restore ends the process.
 */
class KT_API AutoRestoreUnicodeConverterName {
public:
    explicit AutoRestoreUnicodeConverterName(const char* name);
    ~AutoRestoreUnicodeConverterName();
    AutoRestoreUnicodeConverterName(const AutoRestoreUnicodeConverterName&) = delete;
    AutoRestoreUnicodeConverterName& operator=(const AutoRestoreUnicodeConverterName&) = delete;

private:
    std::string name_;
};

/*
 * One conversion of UTF-16 text into an encoding (null or "" meaning the
 * thread's default), done at construction through the thread's converter
 * into an inline buffer. The buffer is offered only 1024 divided by the
 * encoding's maximum bytes per character, so any text that reports no
 * overflow fits it with room to spare. A null text converts as empty.
 * Throws InvalidCharacterSetException for an unknown encoding.
 *
 *     FromUTF16Converter conversion(text, length, "UTF-8");
 *     std::string bytes;
 *     conversion.copy_to(bytes);
 *
 * The object refers to `text`, which must outlive it, and uses the calling
 * thread's converter: build and use it in one thread.
 */
class KT_API FromUTF16Converter {
public:
    FromUTF16Converter(const kt_utf16* text, int length, const char* encoding);

    /* Converts the text again into `destination` of `capacity` bytes;
       returns the full converted length (terminated only when room is
       left, as utf16_to_lcp_n). */
    int _do_conversion(char* destination, int capacity);
    /* Stores the converted text into `out` (replacing its contents). */
    void copy_to(std::string& out);

    /* The encoding as given to the constructor. */
    const char* encoding() const { return encoding_; }
    /* The converted length in bytes, whether or not it fitted inline. */
    int length() const { return convertedLength_; }
    /* Whether the inline buffer was too small. */
    bool overflowed() const { return overflow_ != 0; }
    /* The inline result when not overflowed: `length()` bytes, followed by
       a NUL only when there was room for one. */
    const char* data() const { return buffer_; }

    /* Size of the inline buffer. */
    static constexpr int kInlineBytes = 1024;

private:
    static const kt_utf16 emptyText_[1];

    const char* encoding_;
    const kt_utf16* text_;
    int textLength_;
    UnicodeConverterX* converter_;
    int convertedLength_;
    unsigned char overflow_;
    char buffer_[kInlineBytes];
};

/*
 * Hash of a UTF-8 byte string: h = 97169, then for each byte c up to
 * `length` bytes or a zero byte, h = 17 * (h ^ c); the result is
 * h * 9987001, all in unsigned 32-bit arithmetic. A null text or a zero
 * length gives 0xF1F35EC9 (the formula on no bytes).
 */
KT_API uint32_t char8_hasher(const char* text, size_t length);

}  // namespace I18N
}  // namespace Quivera

#endif /* __cplusplus */

#endif /* KT_ENCODINGS_H */
