// The message formatter (see printfFormat.h). Each conversion reproduces one of glibc's rules; where
// glibc does something unusual (a directive it prints verbatim, an overflow it reports as -1) we do not
// imitate it but hand the whole message to vsnprintf, from an untouched copy of the arguments.
#include "core/printfFormat.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "base/platformTricks.h"

#if defined(VEXLOR_SCAN_BLOCKS)
#include <emmintrin.h>
#endif

namespace vx {

namespace {

// Wider fields and longer precisions are left to vsnprintf: they are rare, and with this bound no
// sum below can overflow, whatever the width of size_t.
constexpr int MAX_FIELD = 4095;

// "00", "01", ... "99": two decimal digits per division.
constexpr char DIGIT_PAIRS[] = "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
                               "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
                               "8081828384858687888990919293949596979899";
constexpr char LOWER_HEX[] = "0123456789abcdef";
constexpr char UPPER_HEX[] = "0123456789ABCDEF";
// The octal digits of 64 bits.
constexpr std::size_t MAX_DIGITS = 22;

// Inlined wherever the output's cursor is written (see COutput). A build for size (the devices')
// leaves it to the compiler: forced, the formatter grows by 4 KiB on 32-bit ARM.
#if defined(__OPTIMIZE_SIZE__)
#define ALWAYS_INLINE inline
#else
#define ALWAYS_INLINE __attribute__((always_inline)) inline
#endif

#if defined(VEXLOR_SCAN_BLOCKS)
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VEXLOR_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VEXLOR_SANITIZED 1
#endif
#endif

// Sixteen bytes of a text, which may be bytes past its end in the same page: not a fault, whatever
// the sanitizers would see. Under a sanitizer the read stays a call of its own, where the
// attribute still holds; inlined, its caller's checks would cover it.
#if defined(VEXLOR_SANITIZED)
#define BLOCK_READ __attribute__((noinline, no_sanitize("address", "thread")))
#else
#define BLOCK_READ ALWAYS_INLINE
#endif
BLOCK_READ __m128i loadBlock(const char* text) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(text)); }
#endif

enum class ELength { NONE, HH, H, L, LL, Z, J, T };

struct CDirective {
    bool left = false;
    bool plus = false;
    bool space = false;
    bool alternate = false;
    bool zeroPad = false;
    int width = 0;
    int precision = -1;  // -1: none given
    ELength length = ELength::NONE;
    char conversion = '\0';
};

// Writes up to the buffer's last byte but one and counts everything, as vsnprintf does. What
// writes through it is inlined into the formatter's one function, so that the cursor stays in a
// register instead of being stored and loaded again for every piece of the message.
class COutput {
public:
    // Without a buffer the cursor points at NO_BUFFER, so that no copy ever gets a null pointer.
    COutput(char* buffer, std::size_t size)
        : m_start(size == 0 ? &NO_BUFFER : buffer)
        , m_cursor(m_start)
        , m_end(m_start + (size == 0 ? 0 : size - 1))
        , m_terminated(size != 0)
    {
    }

    ALWAYS_INLINE void put(const char* text, std::size_t count)
    {
        if (count <= SHORT && room() >= SHORT) {
            copyShort(m_cursor, text, count);
            m_cursor += count;
        } else if (count <= room()) {
            std::memcpy(m_cursor, text, count);
            m_cursor += count;
        } else {
            const std::size_t part = room();
            std::memcpy(m_cursor, text, part);
            m_cursor += part;
            m_beyond += count - part;
        }
    }

    // Copies text up to the first STOP character or its terminating zero, and returns where it
    // stopped. Messages are made of short pieces, for which a library scan and a library copy cost
    // more than the bytes themselves: the text is copied as it is scanned, and only what is left
    // near the end of the buffer or of a page goes to the library.
    template <char STOP>
    ALWAYS_INLINE const char* putUntil(const char* text)
    {
#if defined(VEXLOR_SCAN_BLOCKS)
        // Sixteen bytes at a time. A read that stays within its page cannot fault, even where it
        // goes past the text's end (the C library's string functions read so too).
        while (room() >= SHORT && reinterpret_cast<std::uintptr_t>(text) % PAGE <= PAGE - SHORT) {
            const __m128i block = loadBlock(text);
            const int found = _mm_movemask_epi8(
                _mm_or_si128(_mm_cmpeq_epi8(block, _mm_set1_epi8(STOP)), _mm_cmpeq_epi8(block, _mm_setzero_si128())));
            if (found != 0) {
                const auto count = static_cast<std::size_t>(__builtin_ctz(static_cast<unsigned int>(found)));
                // The whole block: what lies past the text is overwritten by the next piece or left
                // past the terminating zero, and one store costs less than a copy of `count` bytes.
                _mm_storeu_si128(reinterpret_cast<__m128i*>(m_cursor), block);
                m_cursor += count;
                return text + count;
            }
            _mm_storeu_si128(reinterpret_cast<__m128i*>(m_cursor), block);
            m_cursor += SHORT;
            text += SHORT;
        }
#endif
        // Byte by byte, for up to sixteen bytes (a page end, or no block scan).
        if (room() >= SHORT) {
            for (std::size_t i = 0; i < SHORT; ++i) {
                const char c = text[i];
                if (c == STOP || c == '\0') {
                    m_cursor += i;
                    return text + i;
                }
                m_cursor[i] = c;
            }
            m_cursor += SHORT;
            text += SHORT;
        }
        const char* const end = STOP == '\0' ? text + std::strlen(text) : strchrnul(text, STOP);
        put(text, static_cast<std::size_t>(end - text));
        return end;
    }

    ALWAYS_INLINE void fill(char c, std::size_t count)
    {
        if (count == 0) {
            return;
        }
        const std::size_t part = count <= room() ? count : room();
        std::memset(m_cursor, c, part);
        m_cursor += part;
        m_beyond += count - part;
    }

    // Where `count` characters can be written in place, or null where fewer fit; advance() then
    // moves past what was written there.
    char* space(std::size_t count) { return room() >= count ? m_cursor : nullptr; }
    void advance(std::size_t count) { m_cursor += count; }

    void terminate()
    {
        if (m_terminated) {
            *m_cursor = '\0';
        }
    }

    unsigned long long length() const { return static_cast<std::size_t>(m_cursor - m_start) + m_beyond; }

private:
    static constexpr std::size_t SHORT = 16;
    static constexpr std::uintptr_t PAGE = 4096;  // the smallest page

    std::size_t room() const { return static_cast<std::size_t>(m_end - m_cursor); }

    // Up to SHORT bytes in at most two moves of a fixed size, which the compiler turns into a
    // load and a store each; the two may overlap. Reads nothing outside the source.
    static void copyShort(char* to, const char* from, std::size_t count)
    {
        if (count >= 8) {
            std::memcpy(to, from, 8);
            std::memcpy(to + count - 8, from + count - 8, 8);
        } else if (count >= 4) {
            std::memcpy(to, from, 4);
            std::memcpy(to + count - 4, from + count - 4, 4);
        } else if (count >= 2) {
            std::memcpy(to, from, 2);
            std::memcpy(to + count - 2, from + count - 2, 2);
        } else if (count == 1) {
            *to = *from;
        }
    }

    static char NO_BUFFER;  // never written: nothing fits
    char* const m_start;
    char* m_cursor;
    char* const m_end;
    const bool m_terminated;
    unsigned long long m_beyond = 0;  // characters past the cut; 64 bits, so that no sum wraps
};

char COutput::NO_BUFFER;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// A width or precision written as digits; false for one above MAX_FIELD. (A positional argument,
// "%1$d", falls back because '$' is no conversion.)
bool readField(const char*& p, int& value)
{
    int result = 0;
    while (isDigit(*p)) {
        result = result * 10 + (*p++ - '0');
        if (result > MAX_FIELD) {
            return false;
        }
    }
    value = result;
    return true;
}

// The directive after '%', consuming the '*' arguments. False for anything left to vsnprintf.
bool parseDirective(const char*& p, va_list& args, CDirective& directive)
{
    for (;; ++p) {
        switch (*p) {
        case '-': directive.left = true; continue;
        case '+': directive.plus = true; continue;
        case ' ': directive.space = true; continue;
        case '#': directive.alternate = true; continue;
        case '0': directive.zeroPad = true; continue;
        default: break;
        }
        break;
    }
    if (*p == '*') {
        ++p;
        const int width = va_arg(args, int);
        // A negative width is a '-' flag; digits after '*' (glibc prints such a directive verbatim, and
        // "*1$" is positional) go to vsnprintf.
        if (width < -MAX_FIELD || width > MAX_FIELD || isDigit(*p)) {
            return false;
        }
        directive.left = directive.left || width < 0;
        directive.width = width < 0 ? -width : width;
    } else if (!readField(p, directive.width)) {
        return false;
    }
    if (*p == '.') {
        ++p;
        if (*p == '*') {
            ++p;
            const int precision = va_arg(args, int);
            if (precision > MAX_FIELD || isDigit(*p)) {
                return false;
            }
            directive.precision = precision < 0 ? -1 : precision;  // negative: as if none were given
        } else if (!readField(p, directive.precision)) {
            return false;
        }
    }
    switch (*p) {
    case 'h':
        directive.length = p[1] == 'h' ? ELength::HH : ELength::H;
        p += p[1] == 'h' ? 2 : 1;
        break;
    case 'l':
        directive.length = p[1] == 'l' ? ELength::LL : ELength::L;
        p += p[1] == 'l' ? 2 : 1;
        break;
    case 'z':
        directive.length = ELength::Z;
        ++p;
        break;
    case 'j':
        directive.length = ELength::J;
        ++p;
        break;
    case 't':
        directive.length = ELength::T;
        ++p;
        break;
    default: break;
    }
    directive.conversion = *p;
    if (directive.conversion == '\0') {
        return false;
    }
    ++p;
    return true;
}

// The argument of a signed conversion, read with the type its length modifier names.
long long readSigned(va_list& args, ELength length)
{
    switch (length) {
    case ELength::HH: return static_cast<signed char>(va_arg(args, int));
    case ELength::H: return static_cast<short>(va_arg(args, int));
    case ELength::L: return va_arg(args, long);
    case ELength::LL: return va_arg(args, long long);
    case ELength::Z: return va_arg(args, std::make_signed_t<std::size_t>);
    case ELength::J: return va_arg(args, std::intmax_t);
    case ELength::T: return va_arg(args, std::ptrdiff_t);
    case ELength::NONE: break;
    }
    return va_arg(args, int);
}

unsigned long long readUnsigned(va_list& args, ELength length)
{
    switch (length) {
    case ELength::HH: return static_cast<unsigned char>(va_arg(args, unsigned int));
    case ELength::H: return static_cast<unsigned short>(va_arg(args, unsigned int));
    case ELength::L: return va_arg(args, unsigned long);
    case ELength::LL: return va_arg(args, unsigned long long);
    case ELength::Z: return va_arg(args, std::size_t);
    case ELength::J: return va_arg(args, std::uintmax_t);
    case ELength::T: return va_arg(args, std::make_unsigned_t<std::ptrdiff_t>);
    case ELength::NONE: break;
    }
    return va_arg(args, unsigned int);
}

// Digit writers fill a buffer backwards from `end` and return the first digit.
char* manyDecimalDigits(char* end, unsigned long long value)
{
    // 64-bit division is a library call on 32-bit ARM: only while the value needs it.
    while (value > UINT32_MAX) {
        const unsigned long long quotient = value / 100;
        end -= 2;
        std::memcpy(end, DIGIT_PAIRS + 2 * (value - quotient * 100), 2);
        value = quotient;
    }
    auto small = static_cast<std::uint32_t>(value);
    while (small >= 100) {
        const std::uint32_t quotient = small / 100;
        end -= 2;
        std::memcpy(end, DIGIT_PAIRS + 2 * (small - quotient * 100), 2);
        small = quotient;
    }
    if (small >= 10) {
        end -= 2;
        std::memcpy(end, DIGIT_PAIRS + 2 * small, 2);
    } else {
        *--end = static_cast<char>('0' + small);
    }
    return end;
}

// Most numbers in messages have up to four digits: those without a call.
ALWAYS_INLINE char* decimalDigits(char* end, unsigned long long value)
{
    if (value >= 10000) {
        return manyDecimalDigits(end, value);
    }
    if (value >= 100) {
        const unsigned long long quotient = value / 100;
        end -= 2;
        std::memcpy(end, DIGIT_PAIRS + 2 * (value - quotient * 100), 2);
        value = quotient;
    }
    if (value < 10) {
        *--end = static_cast<char>('0' + value);
        return end;
    }
    end -= 2;
    std::memcpy(end, DIGIT_PAIRS + 2 * value, 2);
    return end;
}

// Most numbers in messages have up to four digits: those without a loop.
ALWAYS_INLINE std::size_t decimalLength(unsigned long long value)
{
    if (value < 10000) {
        return 1 + std::size_t{value >= 10} + std::size_t{value >= 100} + std::size_t{value >= 1000};
    }
    constexpr std::size_t MAX_DECIMAL = 20;
    std::size_t length = 5;
    for (unsigned long long bound = 100000; value >= bound && length < MAX_DECIMAL; bound *= 10) {
        ++length;
    }
    return length;
}

// A decimal number without flags, width or precision, written in place; false where it does not
// fit. Digits built beside the output and copied would be read back in wider pieces than they
// were written in, and such a read waits until the writes have reached the cache.
ALWAYS_INLINE bool putPlainDecimal(COutput& out, bool negative, unsigned long long magnitude)
{
    const std::size_t length = decimalLength(magnitude) + (negative ? 1 : 0);
    char* const at = out.space(length);
    if (at == nullptr) {
        return false;
    }
    decimalDigits(at + length, magnitude);
    if (negative) {
        *at = '-';
    }
    out.advance(length);
    return true;
}

char* hexDigits(char* end, unsigned long long value, const char* digits)
{
    do {
        *--end = digits[value & 0xf];
        value >>= 4;
    } while (value != 0);
    return end;
}

char* octalDigits(char* end, unsigned long long value)
{
    do {
        *--end = static_cast<char>('0' + (value & 7));
        value >>= 3;
    } while (value != 0);
    return end;
}

// Text padded with blanks to the width; glibc ignores the '0' flag for %s, %c and "(nil)".
ALWAYS_INLINE void putPadded(COutput& out, const CDirective& directive, const char* text, std::size_t length)
{
    const auto width = static_cast<std::size_t>(directive.width);
    const std::size_t padding = width > length ? width - length : 0;
    if (!directive.left) {
        out.fill(' ', padding);
    }
    out.put(text, length);
    if (directive.left) {
        out.fill(' ', padding);
    }
}

ALWAYS_INLINE bool putString(COutput& out, const CDirective& directive, const char* text)
{
    if (text == nullptr) {
        // glibc prints "(null)" only where the precision leaves room for all of it.
        static const char NULL_TEXT[] = "(null)";
        const bool whole = directive.precision < 0 || directive.precision >= static_cast<int>(sizeof NULL_TEXT - 1);
        putPadded(out, directive, NULL_TEXT, whole ? sizeof NULL_TEXT - 1 : 0);
        return true;
    }
    if (directive.width == 0 && directive.precision < 0) {
        out.putUntil<'\0'>(text);
        return true;
    }
    // strnlen: a precision lets the caller pass text without a terminating zero.
    const std::size_t length =
        directive.precision < 0 ? std::strlen(text) : strnlen(text, static_cast<std::size_t>(directive.precision));
    if (length > INT_MAX) {
        return false;
    }
    putPadded(out, directive, text, length);
    return true;
}

// The digits of an integer conversion are at [first, end), its sign or "0x" just before them from
// `prefixed` on. Adds the zeros of the precision and of the '0' flag, and the width's blanks:
// [blanks] [prefix] [zeros] digits [blanks].
ALWAYS_INLINE void putNumber(COutput& out, const CDirective& directive, const char* prefixed, const char* first,
                             const char* end)
{
    // The usual case: nothing to add.
    if (directive.width == 0 && directive.precision < 0 && directive.conversion != 'o') {
        out.put(prefixed, static_cast<std::size_t>(end - prefixed));
        return;
    }
    const auto count = static_cast<std::size_t>(end - first);
    const auto precision = static_cast<std::size_t>(directive.precision < 0 ? 0 : directive.precision);
    std::size_t zeros = precision > count ? precision - count : 0;
    // '#' with %o: the first digit printed is a 0.
    if (directive.conversion == 'o' && directive.alternate && zeros == 0 && (count == 0 || *first != '0')) {
        zeros = 1;
    }
    const auto prefixLength = static_cast<std::size_t>(first - prefixed);
    const auto width = static_cast<std::size_t>(directive.width);
    const std::size_t length = prefixLength + zeros + count;
    std::size_t padding = width > length ? width - length : 0;
    if (directive.zeroPad && !directive.left && directive.precision < 0) {
        zeros += padding;
        padding = 0;
    }
    if (!directive.left) {
        out.fill(' ', padding);
    }
    if (zeros == 0) {
        out.put(prefixed, prefixLength + count);
    } else {
        out.put(prefixed, prefixLength);
        out.fill('0', zeros);
        out.put(first, count);
    }
    if (directive.left) {
        out.fill(' ', padding);
    }
}

// Room for the digits and a prefix of up to two characters before them.
struct CDigits {
    char text[2 + MAX_DIGITS];
    char* end() { return text + sizeof text; }
};

ALWAYS_INLINE void putSigned(COutput& out, const CDirective& directive, long long number)
{
    // Negated in unsigned arithmetic, which is right for the most negative value too.
    const unsigned long long magnitude =
        number < 0 ? 0ULL - static_cast<unsigned long long>(number) : static_cast<unsigned long long>(number);
    const bool plain = directive.width == 0 && directive.precision < 0 && !directive.plus && !directive.space;
    if (plain && putPlainDecimal(out, number < 0, magnitude)) {
        return;
    }
    CDigits digits;
    // A zero precision prints no digit for the value 0.
    char* const first = directive.precision == 0 && number == 0 ? digits.end() : decimalDigits(digits.end(), magnitude);
    char* prefixed = first;
    if (number < 0) {
        *--prefixed = '-';
    } else if (directive.plus || directive.space) {
        *--prefixed = directive.plus ? '+' : ' ';
    }
    putNumber(out, directive, prefixed, first, digits.end());
}

// %u, %o, %x, %X
ALWAYS_INLINE void putUnsigned(COutput& out, const CDirective& directive, unsigned long long value)
{
    const bool plain = directive.conversion == 'u' && directive.width == 0 && directive.precision < 0;
    if (plain && putPlainDecimal(out, false, value)) {
        return;
    }
    CDigits digits;
    char* first = digits.end();
    if (directive.precision != 0 || value != 0) {
        switch (directive.conversion) {
        case 'u': first = decimalDigits(first, value); break;
        case 'o': first = octalDigits(first, value); break;
        default: first = hexDigits(first, value, directive.conversion == 'x' ? LOWER_HEX : UPPER_HEX); break;
        }
    }
    char* prefixed = first;
    if (directive.alternate && value != 0 && directive.conversion != 'u' && directive.conversion != 'o') {
        *--prefixed = directive.conversion;
        *--prefixed = '0';
    }
    putNumber(out, directive, prefixed, first, digits.end());
}

// Like "%#lx", but glibc also honours '+' and ' ' here, and writes a null pointer as "(nil)".
ALWAYS_INLINE void putPointer(COutput& out, const CDirective& directive, const void* pointer)
{
    if (pointer == nullptr) {
        putPadded(out, directive, "(nil)", 5);
        return;
    }
    CDigits digits;
    char* const first = hexDigits(digits.end(), reinterpret_cast<std::uintptr_t>(pointer), LOWER_HEX);
    char* prefixed = first;
    *--prefixed = 'x';
    *--prefixed = '0';
    if (directive.plus || directive.space) {
        *--prefixed = directive.plus ? '+' : ' ';
    }
    putNumber(out, directive, prefixed, first, digits.end());
}

// One conversion. False for one left to vsnprintf: unknown conversions, wide characters and strings
// (%lc, %ls) and length modifiers on %c, %s and %p, which glibc accepts but log messages never use.
ALWAYS_INLINE bool convert(COutput& out, const CDirective& directive, va_list& args)
{
    // The commonest conversions by plain tests, which cost less than the jump of the switch.
    if (directive.conversion == 'd' || directive.conversion == 'i') {
        putSigned(out, directive, readSigned(args, directive.length));
        return true;
    }
    if (directive.conversion == 's') {
        return directive.length == ELength::NONE && putString(out, directive, va_arg(args, const char*));
    }
    switch (directive.conversion) {
    case 'u':
    case 'o':
    case 'x':
    case 'X': putUnsigned(out, directive, readUnsigned(args, directive.length)); return true;
    case 'p':
        if (directive.length != ELength::NONE) {
            return false;
        }
        putPointer(out, directive, va_arg(args, void*));
        return true;
    case 'c': {
        if (directive.length != ELength::NONE) {
            return false;
        }
        const char c = static_cast<char>(va_arg(args, int));
        putPadded(out, directive, &c, 1);
        return true;
    }
    default: return false;
    }
}

// A conversion without flags, width, precision or length modifier, the commonest in log messages:
// with this directive's constant fields the compiler drops every test of them from convert().
template <char CONVERSION>
ALWAYS_INLINE bool convertBare(COutput& out, va_list& args)
{
    CDirective directive;
    directive.conversion = CONVERSION;
    return convert(out, directive, args);
}

// The whole message, or -1 when some part of it is left to vsnprintf.
ALWAYS_INLINE int formatOwn(char* buffer, std::size_t size, const char* format, va_list& args)
{
    COutput out(buffer, size);
    const char* p = format;
    for (;;) {
        const char* const percent = out.putUntil<'%'>(p);
        if (*percent == '\0') {
            break;
        }
        p = percent + 2;
        // A bare number, character or pointer adds at most 22 characters for the format's two: the
        // check after the loop sees their sum. A string or a directive may add any number. The
        // two commonest conversions are tested before the switch, whose jump costs more.
        const char conversion = percent[1];
        if (conversion == 'd') {
            convertBare<'d'>(out, args);
            continue;
        }
        if (conversion == 's') {
            if (!convertBare<'s'>(out, args)) {
                return -1;
            }
        } else {
            switch (conversion) {
            case '%': out.put(percent, 1); continue;
            case 'i': convertBare<'i'>(out, args); continue;
            case 'u': convertBare<'u'>(out, args); continue;
            case 'x': convertBare<'x'>(out, args); continue;
            case 'X': convertBare<'X'>(out, args); continue;
            case 'o': convertBare<'o'>(out, args); continue;
            case 'c': convertBare<'c'>(out, args); continue;
            case 'p': convertBare<'p'>(out, args); continue;
            default: break;
            }
            p = percent + 1;
            CDirective directive;
            if (!parseDirective(p, args, directive) || !convert(out, directive, args)) {
                return -1;
            }
        }
        // vsnprintf fails with EOVERFLOW where the result does not fit an int.
        if (out.length() > INT_MAX) {
            return -1;
        }
    }
    if (out.length() > INT_MAX) {
        return -1;
    }
    out.terminate();
    return static_cast<int>(out.length());
}

#if defined(VEXLOR_COPY_VA_LIST_FIELDS)
// va_copy for x86-64. The caller has just written the list field by field, and va_copy reads it
// back in one 16-byte load, which cannot be served from those smaller pending writes and waits
// for them: the System V list, a plain record of two offsets and two pointers, is copied field by
// field instead (volatile, so that the compiler does not merge the reads again). Both parameters
// are pointers there, as a va_list parameter always is on x86-64.
void copyArguments(va_list to, va_list from)
{
    struct CFields {
        std::uint32_t generalOffset;
        std::uint32_t floatOffset;
        void* overflowArea;
        void* saveArea;
    };
    static_assert(sizeof(CFields) == sizeof(va_list) && std::is_array<va_list>::value &&
                      std::extent<va_list>::value == 1,
                  "not the System V va_list: build with VEXLOR_PORTABLE");
    const auto* const source = reinterpret_cast<const volatile CFields*>(from);
    auto* const target = reinterpret_cast<CFields*>(to);
    target->generalOffset = source->generalOffset;
    target->floatOffset = source->floatOffset;
    target->overflowArea = source->overflowArea;
    target->saveArea = source->saveArea;
}
#endif

}  // namespace

int formatPrintf(char* buffer, std::size_t size, const char* format, va_list args)
{
    if (format == nullptr) {
        // What glibc's vsnprintf answers; not asked of it, because its declaration forbids null.
        if (size != 0) {
            buffer[0] = '\0';
        }
        errno = EINVAL;
        return -1;
    }
    va_list own;
#if defined(VEXLOR_COPY_VA_LIST_FIELDS)
    copyArguments(own, args);
#else
    va_copy(own, args);
#endif
    const int length = formatOwn(buffer, size, format, own);
    va_end(own);
    // The fallback reads the arguments from the start, from the caller's untouched list.
    return length >= 0 ? length : vsnprintf(buffer, size, format, args);
}

}  // namespace vx
