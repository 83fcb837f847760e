// Fuzzes the message formatter against the C library's vsnprintf. The input bytes are decoded into
// a format, the arguments its conversions read (each of the type the conversion reads, never one
// for %n or a positional argument), a buffer size and errno; the bytes and results must be equal.
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "core/printfFormat.h"
#include "../core/formatBoth.h"

// Length modifiers z, j and t read a long here, which is their type's size and class on x86-64.
static_assert(sizeof(long) == 8 && std::is_same_v<std::intmax_t, long> && std::is_same_v<std::ptrdiff_t, long> &&
              std::is_same_v<std::size_t, unsigned long>, "the fuzzer assumes an LP64 platform");

#pragma clang diagnostic ignored "-Wformat-nonliteral"

namespace {

// At most this many arguments per format: each is a template level of callWith().
constexpr std::size_t MAX_ARGUMENTS = 5;

enum class EType { INT, LONG, LONG_LONG, POINTER };

struct CArgument {
    EType type;
    long long integer;
    const char* pointer;
};

struct CCase {
    std::string format;
    std::vector<CArgument> arguments;
    std::size_t size = 0;
    int errnoValue = 0;
};

class CInput {
public:
    CInput(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}
    bool empty() const { return m_used == m_size; }
    unsigned int byte() { return empty() ? 0 : m_data[m_used++]; }
    unsigned int below(unsigned int bound) { return byte() % bound; }
    long long integer(unsigned int bytes)
    {
        unsigned long long value = 0;
        for (unsigned int i = 0; i < bytes; ++i) {
            value = value << 8 | byte();
        }
        return static_cast<long long>(value);
    }

private:
    const std::uint8_t* const m_data;
    const std::size_t m_size;
    std::size_t m_used = 0;
};

const std::string& longText()
{
    static const std::string text(3000, 'L');
    return text;
}

// Values that meet the formatter's edges more often than random bytes would.
long long integerArgument(CInput& input, EType type)
{
    static const long long EDGES[] = {0, 1, -1, 7, 8, 10, 16, 99, 100, 255, 256, -128, 32767, -32768, 65535,
                                      INT32_MAX, INT32_MIN, UINT32_MAX, INT64_MAX, INT64_MIN};
    const unsigned int choice = input.below(4);
    const long long value = choice == 0 ? EDGES[input.below(sizeof EDGES / sizeof EDGES[0])]
                                        : input.integer(choice == 1 ? 1 : choice == 2 ? 4 : 8);
    return type == EType::INT ? static_cast<int>(value) : value;
}

const char* stringArgument(CInput& input)
{
    static const char* const TEXTS[] = {"", "a", "text", "replica", "\xff\x80 high bytes", nullptr};
    const unsigned int choice = input.below(8);
    if (choice == 7) {
        return longText().c_str();
    }
    return TEXTS[choice % (sizeof TEXTS / sizeof TEXTS[0])];
}

std::string fieldDigits(CInput& input)
{
    static const int LARGE[] = {2040, 2047, 2048, 2060, 4095, 4096, 5000};
    const unsigned int choice = input.below(4);
    return std::to_string(choice == 0 ? static_cast<int>(LARGE[input.below(7)]) : static_cast<int>(input.below(40)));
}

// A '*' argument: small, negative or beyond the formatter's own limit, but never near INT_MAX
// (the C library takes seconds to count a field that wide).
CArgument starArgument(CInput& input)
{
    return {EType::INT, static_cast<int>(input.integer(2) % 5001) * (input.below(2) == 0 ? 1 : -1), nullptr};
}

// One directive with its arguments; false when the arguments would not fit.
bool appendConversion(CInput& input, CCase& c)
{
    static const char CONVERSIONS[] = "diuoxXcsp%myk";
    static const char* const LENGTHS[] = {"", "", "", "hh", "h", "l", "ll", "z", "j", "t", "L", "q", "Z"};
    const char conversion = CONVERSIONS[input.below(sizeof CONVERSIONS - 1)];
    const bool integer = std::strchr("diuoxX", conversion) != nullptr;
    // Directives that read no value must not take '*' either: the C library might not read it then.
    const bool readsValue = integer || conversion == 'c' || conversion == 's' || conversion == 'p';
    std::string directive = "%";
    const unsigned int flags = input.byte();
    for (unsigned int bit = 0; bit < 7; ++bit) {
        if ((flags & (1u << bit)) != 0) {
            directive += "-+ #0'I"[bit];
        }
    }
    std::vector<CArgument> arguments;
    const unsigned int width = input.below(4);
    if (width == 1) {
        directive += fieldDigits(input);
    } else if (width == 2 && readsValue) {
        directive += '*';
        arguments.push_back(starArgument(input));
    }
    const unsigned int precision = input.below(5);
    if (precision == 1) {
        directive += '.';
    } else if (precision == 2) {
        directive += '.' + fieldDigits(input);
    } else if (precision == 3 && readsValue) {
        directive += ".*";
        arguments.push_back(starArgument(input));
    }
    // %s with a wide modifier would read a wide string: only the narrow ones for it.
    const std::string length = LENGTHS[input.below(conversion == 's' ? 5 : sizeof LENGTHS / sizeof LENGTHS[0])];
    if (conversion == 's' && length == "l") {
        return true;
    }
    directive += length + conversion;
    if (integer) {
        const bool longLong = length == "ll" || length == "L" || length == "q";
        const bool isLong = length == "l" || length == "z" || length == "j" || length == "t" || length == "Z";
        const EType type = longLong ? EType::LONG_LONG : isLong ? EType::LONG : EType::INT;
        arguments.push_back({type, integerArgument(input, type), nullptr});
    } else if (conversion == 'c') {
        arguments.push_back({EType::INT, integerArgument(input, EType::INT), nullptr});  // wint_t with l
    } else if (conversion == 's') {
        arguments.push_back({EType::POINTER, 0, stringArgument(input)});
    } else if (conversion == 'p') {
        arguments.push_back({EType::POINTER, 0, reinterpret_cast<const char*>(integerArgument(input, EType::LONG))});
    }
    if (c.arguments.size() + arguments.size() > MAX_ARGUMENTS) {
        return false;
    }
    c.format += directive;
    c.arguments.insert(c.arguments.end(), arguments.begin(), arguments.end());
    return true;
}

CCase decode(CInput& input)
{
    CCase c;
    const unsigned int sizeChoice = input.below(4);
    c.size = sizeChoice == 0 ? 2048 : sizeChoice == 1 ? input.below(16) : input.integer(2) % 4096;
    c.errnoValue = static_cast<int>(input.below(40));
    while (!input.empty() && c.format.size() < 4000) {
        if (input.below(3) == 0) {
            // Literal text, or a run long enough to cross the cut.
            const unsigned int count = input.below(12);
            for (unsigned int i = 0; i < count; ++i) {
                const char ch = static_cast<char>(input.byte());
                c.format += ch == '%' ? "%%" : ch == '\0' ? "0" : std::string(1, ch);
            }
            if (input.below(16) == 0) {
                c.format += std::string(input.integer(2) % 2100, '-');
            }
        } else if (!appendConversion(input, c)) {
            break;
        }
    }
    return c;
}

template <typename... Args>
void compare(const CCase& c, Args... args)
{
    // Buffers of exactly the size given, so that the address sanitizer sees any write past it.
    std::vector<char> expected(c.size, '~');
    std::vector<char> actual(c.size, '~');
    errno = c.errnoValue;
    const int expectedResult = libc(expected.data(), c.size, c.format.c_str(), args...);
    errno = c.errnoValue;
    const int actualResult = ours(actual.data(), c.size, c.format.c_str(), args...);
    // After a failure only the terminated text is the C library's to define.
    const bool same = expectedResult == actualResult &&
                      (expectedResult >= 0 ? expected == actual
                                           : c.size == 0 || std::strcmp(expected.data(), actual.data()) == 0);
    if (!same) {
        std::fprintf(stderr, "format \"%s\", %zu bytes: %d \"%.*s\", the C library %d \"%.*s\"\n", c.format.c_str(),
                     c.size, actualResult, static_cast<int>(c.size), actual.data(), expectedResult,
                     static_cast<int>(c.size), expected.data());
        std::abort();
    }
}

// Passes the decoded arguments, each with its own type, by adding one typed argument per level.
template <typename... Args>
void callWith(const CCase& c, std::size_t next, Args... args)
{
    if constexpr (sizeof...(Args) == MAX_ARGUMENTS) {
        compare(c, args...);
    } else {
        if (next == c.arguments.size()) {
            compare(c, args...);
            return;
        }
        const CArgument& argument = c.arguments[next];
        switch (argument.type) {
        case EType::INT: callWith(c, next + 1, args..., static_cast<int>(argument.integer)); break;
        case EType::LONG: callWith(c, next + 1, args..., static_cast<long>(argument.integer)); break;
        case EType::LONG_LONG: callWith(c, next + 1, args..., argument.integer); break;
        case EType::POINTER: callWith(c, next + 1, args..., argument.pointer); break;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    CInput input(data, size);
    const CCase c = decode(input);
    callWith(c, 0);
    return 0;
}
