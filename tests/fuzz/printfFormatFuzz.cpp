// Fuzzes the message formatter against the C library's vsnprintf. The input bytes choose a format
// of literal text and directives, the arguments its conversions read (each of the type the
// conversion reads, never one for %n or a positional argument), a buffer size and errno; the
// texts and results must be equal.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "../core/formatBoth.h"

// Length modifiers z, j and t read a long here, which is their type's size and class on x86-64.
static_assert(sizeof(long) == 8 && std::is_same_v<std::intmax_t, long> && std::is_same_v<std::ptrdiff_t, long> &&
                  std::is_same_v<std::size_t, unsigned long>,
              "the fuzzer assumes an LP64 platform");

#pragma clang diagnostic ignored "-Wformat-nonliteral"

namespace {

constexpr std::size_t MAX_ARGUMENTS = 5;  // each is a template level of callWith()

struct CArgument {
    char type;  // 'i' int, 'l' long, 'L' long long, 'p' pointer
    long long integer;
    const char* pointer;
};

struct CInput {
    const std::uint8_t* data;
    std::size_t size;
    std::size_t used = 0;
    unsigned int byte() { return used < size ? data[used++] : 0; }
    unsigned int below(unsigned int bound) { return byte() % bound; }
    long long integer(int bytes)
    {
        unsigned long long value = 0;
        while (bytes-- > 0) {
            value = value << 8 | byte();
        }
        return static_cast<long long>(value);
    }
};

// Values at the formatter's edges turn up more often than random bytes would bring them.
long long integerArgument(CInput& in)
{
    static const long long EDGES[] = {0,     -1,        8,         10,         99,        255,      -128,
                                      65535, INT32_MAX, INT32_MIN, UINT32_MAX, INT64_MAX, INT64_MIN};
    const unsigned int choice = in.below(4);
    return choice == 0 ? EDGES[in.below(std::size(EDGES))] : in.integer(choice == 1 ? 1 : choice == 2 ? 4 : 8);
}

// A width or precision: small, or around the 2047-character cut and the formatter's own limits.
std::string fieldDigits(CInput& in)
{
    static const int LARGE[] = {2040, 2047, 2048, 4095, 4096, 5000};
    return std::to_string(in.below(4) == 0 ? LARGE[in.below(6)] : static_cast<int>(in.below(40)));
}

// One directive and its arguments; false when they would not fit.
bool appendDirective(CInput& in, std::string& format, std::vector<CArgument>& arguments)
{
    static const char* const LENGTHS[] = {"", "", "", "hh", "h", "l", "ll", "z", "j", "t", "L", "q", "Z"};
    static const char* const TEXTS[] = {"", "a", "text", "\xff\x80 high bytes", nullptr};
    static const std::string LONG_TEXT(3000, 'L');
    const char conversion = "diuoxXcsp%myk"[in.below(13)];
    const bool integer = std::strchr("diuoxX", conversion) != nullptr;
    // Directives that read no value take no '*' either: the C library might not read it then.
    const bool readsValue = integer || std::strchr("csp", conversion) != nullptr;
    std::vector<CArgument> taken;
    // Small, negative or beyond the formatter's limit, never near INT_MAX: the C library takes
    // seconds to count a field that wide.
    auto star = [&] {
        taken.push_back({'i', static_cast<int>(in.integer(2) % 5001) * (in.below(2) == 0 ? 1 : -1), nullptr});
        return std::string("*");
    };
    std::string directive = "%";
    for (unsigned int flags = in.byte(), bit = 0; bit < 7; ++bit) {
        if ((flags >> bit & 1) != 0) {
            directive += "-+ #0'I"[bit];
        }
    }
    const unsigned int width = in.below(4);
    directive += width == 1 ? fieldDigits(in) : width == 2 && readsValue ? star() : "";
    const unsigned int precision = in.below(5);
    directive += precision == 1        ? "."
        : precision == 2               ? "." + fieldDigits(in)
        : precision == 3 && readsValue ? ".*"
                                       : "";
    if (precision == 3 && readsValue) {
        star();
    }
    // %s with a wide length would read a wide string: only the narrow ones for it.
    const std::string length = LENGTHS[in.below(conversion == 's' ? 5 : std::size(LENGTHS))];
    directive += length + conversion;
    if (integer) {
        const char type = length == "ll" || length == "L" || length == "q"                      ? 'L'
            : length == "l" || length == "z" || length == "j" || length == "t" || length == "Z" ? 'l'
                                                                                                : 'i';
        const long long value = integerArgument(in);
        taken.push_back({type, type == 'i' ? static_cast<int>(value) : value, nullptr});
    } else if (conversion == 'c') {
        taken.push_back({'i', static_cast<int>(integerArgument(in)), nullptr});  // a wint_t with l
    } else if (conversion == 's') {
        const unsigned int choice = in.below(6);
        taken.push_back({'p', 0, choice == 5 ? LONG_TEXT.c_str() : TEXTS[choice]});
    } else if (conversion == 'p') {
        taken.push_back({'p', 0, reinterpret_cast<const char*>(integerArgument(in))});
    }
    if (arguments.size() + taken.size() > MAX_ARGUMENTS) {
        return false;
    }
    format += directive;
    arguments.insert(arguments.end(), taken.begin(), taken.end());
    return true;
}

struct CCase {
    std::string format;
    std::vector<CArgument> arguments;
    std::size_t size = 0;
    int errnoValue = 0;
};

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
    if (expectedResult != actualResult ||
        (expectedResult >= 0
             ? !std::equal(actual.begin(), actual.begin() + definedBytes(expectedResult, c.size), expected.begin())
             : c.size != 0 && std::strcmp(expected.data(), actual.data()) != 0)) {
        std::fprintf(stderr, "format \"%s\", %zu bytes: %d \"%.*s\", the C library %d \"%.*s\"\n", c.format.c_str(),
                     c.size, actualResult, static_cast<int>(c.size), actual.data(), expectedResult,
                     static_cast<int>(c.size), expected.data());
        std::abort();
    }
}

// Passes the decoded arguments, each with its own type, by adding one typed argument per level.
template <typename... Args>
void callWith(const CCase& c, Args... args)
{
    constexpr std::size_t next = sizeof...(Args);
    if constexpr (next == MAX_ARGUMENTS) {
        compare(c, args...);
    } else if (next == c.arguments.size()) {
        compare(c, args...);
    } else {
        const CArgument& a = c.arguments[next];
        switch (a.type) {
        case 'i': callWith(c, args..., static_cast<int>(a.integer)); break;
        case 'l': callWith(c, args..., static_cast<long>(a.integer)); break;
        case 'L': callWith(c, args..., a.integer); break;
        default: callWith(c, args..., a.pointer); break;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    CInput in{data, size};
    CCase c;
    const unsigned int sizeChoice = in.below(4);
    c.size = sizeChoice == 0 ? 2048 : sizeChoice == 1 ? in.below(16) : static_cast<std::size_t>(in.integer(2) % 4096);
    c.errnoValue = static_cast<int>(in.below(40));
    while (in.used < in.size && c.format.size() < 4000) {
        if (in.below(3) == 0) {
            // Literal text, now and then a run long enough to cross the cut.
            for (unsigned int count = in.below(12); count > 0; --count) {
                const char ch = static_cast<char>(in.byte());
                c.format += ch == '%' ? "%%" : ch == '\0' ? "0" : std::string(1, ch);
            }
            if (in.below(16) == 0) {
                c.format += std::string(static_cast<std::size_t>(in.integer(2) % 2100), '-');
            }
        } else if (!appendDirective(in, c.format, c.arguments)) {
            break;
        }
    }
    callWith(c);
    return 0;
}
