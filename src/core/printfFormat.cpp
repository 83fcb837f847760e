// The message formatter (see printfFormat.h). Each conversion reproduces one of glibc's rules; where
// glibc does something unusual (a spec it prints verbatim, an overflow it reports as -1) we do not
// imitate it but hand the whole message to vsnprintf, from an untouched copy of the arguments.
#include "core/printfFormat.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <type_traits>

namespace vx {

namespace {

// Wider fields and longer precisions are left to vsnprintf: they are rare, and with this bound no
// sum below can overflow, whatever the width of size_t.
constexpr int MAX_FIELD = 4095;

// "00", "01", ... "99": two decimal digits per division.
constexpr char DIGIT_PAIRS[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";
constexpr char LOWER_HEX[] = "0123456789abcdef";
constexpr char UPPER_HEX[] = "0123456789ABCDEF";
// Enough for the octal digits of 64 bits (22).
constexpr std::size_t MAX_DIGITS = 24;

enum class ELength { NONE, HH, H, L, LL, Z, J, T };

struct CSpec {
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

// Writes up to the buffer's last byte but one and counts everything, as vsnprintf does.
class COutput {
public:
    COutput(char* buffer, std::size_t size) : m_buffer(buffer), m_size(size), m_limit(size == 0 ? 0 : size - 1) {}

    void put(const char* text, std::size_t count)
    {
        if (m_length < m_limit) {
            const std::size_t room = m_limit - m_length;
            std::memcpy(m_buffer + m_length, text, count < room ? count : room);
        }
        m_length += count;
    }

    void fill(char c, std::size_t count)
    {
        if (m_length < m_limit) {
            const std::size_t room = m_limit - m_length;
            std::memset(m_buffer + m_length, c, count < room ? count : room);
        }
        m_length += count;
    }

    void terminate()
    {
        if (m_size != 0) {
            m_buffer[m_length < m_limit ? m_length : m_limit] = '\0';
        }
    }

    std::size_t length() const { return m_length; }

private:
    char* const m_buffer;
    const std::size_t m_size;
    const std::size_t m_limit;
    std::size_t m_length = 0;
};

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

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

// The conversion spec after '%', consuming the '*' arguments. False for anything left to vsnprintf.
bool parseSpec(const char*& p, va_list& args, CSpec& spec)
{
    for (;; ++p) {
        switch (*p) {
        case '-': spec.left = true; continue;
        case '+': spec.plus = true; continue;
        case ' ': spec.space = true; continue;
        case '#': spec.alternate = true; continue;
        case '0': spec.zeroPad = true; continue;
        default: break;
        }
        break;
    }
    if (*p == '*') {
        ++p;
        const int width = va_arg(args, int);
        // A negative width is a '-' flag; digits after '*' (glibc prints such a spec verbatim, and
        // "*1$" is positional) go to vsnprintf.
        if (width < -MAX_FIELD || width > MAX_FIELD || isDigit(*p)) {
            return false;
        }
        spec.left = spec.left || width < 0;
        spec.width = width < 0 ? -width : width;
    } else if (!readField(p, spec.width)) {
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
            spec.precision = precision < 0 ? -1 : precision;  // negative: as if none were given
        } else if (!readField(p, spec.precision)) {
            return false;
        }
    }
    switch (*p) {
    case 'h':
        spec.length = p[1] == 'h' ? ELength::HH : ELength::H;
        p += p[1] == 'h' ? 2 : 1;
        break;
    case 'l':
        spec.length = p[1] == 'l' ? ELength::LL : ELength::L;
        p += p[1] == 'l' ? 2 : 1;
        break;
    case 'z': spec.length = ELength::Z; ++p; break;
    case 'j': spec.length = ELength::J; ++p; break;
    case 't': spec.length = ELength::T; ++p; break;
    default: break;
    }
    spec.conversion = *p;
    if (spec.conversion == '\0') {
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
char* decimalDigits(char* end, unsigned long long value)
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
void putPadded(COutput& out, const CSpec& spec, const char* text, std::size_t length)
{
    const auto width = static_cast<std::size_t>(spec.width);
    const std::size_t padding = width > length ? width - length : 0;
    if (!spec.left) {
        out.fill(' ', padding);
    }
    out.put(text, length);
    if (spec.left) {
        out.fill(' ', padding);
    }
}

bool putString(COutput& out, const CSpec& spec, const char* text)
{
    if (text == nullptr) {
        // glibc prints "(null)" only where the precision leaves room for all of it.
        static const char NULL_TEXT[] = "(null)";
        const bool whole = spec.precision < 0 || spec.precision >= static_cast<int>(sizeof NULL_TEXT - 1);
        putPadded(out, spec, NULL_TEXT, whole ? sizeof NULL_TEXT - 1 : 0);
        return true;
    }
    // strnlen: a precision lets the caller pass text without a terminating zero.
    const std::size_t length =
        spec.precision < 0 ? std::strlen(text) : strnlen(text, static_cast<std::size_t>(spec.precision));
    if (length > INT_MAX) {
        return false;
    }
    putPadded(out, spec, text, length);
    return true;
}

// Integer conversions and %p: [blanks] [sign or 0x] [zeros] digits [blanks].
void putInteger(COutput& out, const CSpec& spec, va_list& args)
{
    char digits[MAX_DIGITS];
    char* const end = digits + sizeof digits;
    char* first = nullptr;
    char prefix[2];
    std::size_t prefixLength = 0;
    unsigned long long value = 0;
    bool isSigned = false;
    switch (spec.conversion) {
    case 'd':
    case 'i': {
        const long long number = readSigned(args, spec.length);
        isSigned = true;
        // Negated in unsigned arithmetic, which is right for the most negative value too.
        value = number < 0 ? 0ULL - static_cast<unsigned long long>(number) : static_cast<unsigned long long>(number);
        if (number < 0) {
            prefix[prefixLength++] = '-';
        }
        first = decimalDigits(end, value);
        break;
    }
    case 'u':
        value = readUnsigned(args, spec.length);
        first = decimalDigits(end, value);
        break;
    case 'o':
        value = readUnsigned(args, spec.length);
        first = octalDigits(end, value);
        break;
    case 'x':
    case 'X':
        value = readUnsigned(args, spec.length);
        first = hexDigits(end, value, spec.conversion == 'x' ? LOWER_HEX : UPPER_HEX);
        if (spec.alternate && value != 0) {
            prefix[prefixLength++] = '0';
            prefix[prefixLength++] = spec.conversion;
        }
        break;
    default: {  // 'p': like "%#lx", but glibc also honours '+' and ' ' here
        value = reinterpret_cast<std::uintptr_t>(va_arg(args, void*));
        if (value == 0) {
            putPadded(out, spec, "(nil)", 5);
            return;
        }
        isSigned = true;
        first = hexDigits(end, value, LOWER_HEX);
        break;
    }
    }
    if (isSigned && prefixLength == 0 && (spec.plus || spec.space)) {
        prefix[prefixLength++] = spec.plus ? '+' : ' ';
    }
    if (spec.conversion == 'p') {
        prefix[prefixLength++] = '0';
        prefix[prefixLength++] = 'x';
    }
    // A zero precision prints no digit for the value 0.
    const std::size_t count = spec.precision == 0 && value == 0 ? 0 : static_cast<std::size_t>(end - first);
    const auto precision = static_cast<std::size_t>(spec.precision < 0 ? 0 : spec.precision);
    std::size_t zeros = precision > count ? precision - count : 0;
    // '#' with %o: the first digit printed is a 0.
    if (spec.conversion == 'o' && spec.alternate && zeros == 0 && (count == 0 || *first != '0')) {
        zeros = 1;
    }
    std::size_t length = prefixLength + zeros + count;
    const auto width = static_cast<std::size_t>(spec.width);
    if (spec.zeroPad && !spec.left && spec.precision < 0 && width > length) {
        zeros += width - length;
        length = width;
    }
    const std::size_t padding = width > length ? width - length : 0;
    if (!spec.left) {
        out.fill(' ', padding);
    }
    out.put(prefix, prefixLength);
    out.fill('0', zeros);
    out.put(first, count);
    if (spec.left) {
        out.fill(' ', padding);
    }
}

// One conversion. False for one left to vsnprintf: unknown conversions, wide characters and strings
// (%lc, %ls) and length modifiers on %c, %s and %p, which glibc accepts but log messages never use.
bool convert(COutput& out, const CSpec& spec, va_list& args)
{
    switch (spec.conversion) {
    case 'd':
    case 'i':
    case 'u':
    case 'o':
    case 'x':
    case 'X':
        putInteger(out, spec, args);
        return true;
    case 'p':
        if (spec.length != ELength::NONE) {
            return false;
        }
        putInteger(out, spec, args);
        return true;
    case 'c': {
        if (spec.length != ELength::NONE) {
            return false;
        }
        const char c = static_cast<char>(va_arg(args, int));
        putPadded(out, spec, &c, 1);
        return true;
    }
    case 's':
        return spec.length == ELength::NONE && putString(out, spec, va_arg(args, const char*));
    default:
        return false;
    }
}

// The whole message, or -1 when some part of it is left to vsnprintf.
int formatOwn(char* buffer, std::size_t size, const char* format, va_list& args)
{
    COutput out(buffer, size);
    const char* p = format;
    for (;;) {
        const char* percent = strchrnul(p, '%');
        out.put(p, static_cast<std::size_t>(percent - p));
        if (*percent == '\0') {
            break;
        }
        p = percent + 1;
        if (*p == '%') {
            out.put(p++, 1);
            continue;
        }
        CSpec spec;
        if (!parseSpec(p, args, spec) || !convert(out, spec, args)) {
            return -1;
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
    va_copy(own, args);
    const int length = formatOwn(buffer, size, format, own);
    va_end(own);
    // The fallback reads the arguments from the start, from the caller's untouched list.
    return length >= 0 ? length : vsnprintf(buffer, size, format, args);
}

}  // namespace vx
