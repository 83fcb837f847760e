// The message formatter against the C library's vsnprintf over a generated corpus: every conversion
// with every flag, width and precision, the extremes of every length modifier, the cut at every
// position (near 2047 in a 2048-byte buffer too), and the formats it leaves to vsnprintf.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <gtest/gtest.h>
#include <string>
#include <limits>
#include <sys/mman.h>
#include <type_traits>
#include <unistd.h>
#include <vector>

#include "formatBoth.h"

// The formats are built at run time; both formatters are handed exactly the arguments they name.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

namespace {

// Both into a buffer of `size` bytes followed by a guard: same result, same text, and the guard
// untouched, so a byte written past the buffer shows too.
template <typename... Args>
::testing::AssertionResult sameAsLibc(std::size_t size, const char* format, Args... args)
{
    constexpr std::size_t GUARD = 8;
    std::string expected(size + GUARD, '~');
    std::string actual(size + GUARD, '~');
    const int expectedResult = libc(expected.data(), size, format, args...);
    const int actualResult = ours(actual.data(), size, format, args...);
    const std::size_t defined = definedBytes(expectedResult, size);
    if (expectedResult == actualResult && expected.compare(0, defined, actual, 0, defined) == 0 &&
        expected.compare(size, GUARD, actual, size, GUARD) == 0) {
        return ::testing::AssertionSuccess();
    }
    using ::testing::PrintToString;
    return ::testing::AssertionFailure() << PrintToString(format) << " into " << size << " bytes: " << actualResult
                                         << " " << PrintToString(actual) << ", the C library: " << expectedResult << " "
                                         << PrintToString(expected);
}

constexpr int NONE = INT_MAX;  // no '*' argument

// One directive after its '*' arguments: `width` and `precision`, each unless NONE.
template <typename T>
::testing::AssertionResult sameWithStars(const std::string& format, int width, int precision, T value)
{
    if (width != NONE && precision != NONE) {
        return sameAsLibc(64, format.c_str(), width, precision, value);
    }
    if (width != NONE || precision != NONE) {
        return sameAsLibc(64, format.c_str(), std::min(width, precision), value);
    }
    return sameAsLibc(64, format.c_str(), value);
}

// Every combination of the five flags, widths and precisions, '*' with negative values included.
template <typename T>
void expectEveryDirectiveMatches(const std::string& conversion, const std::vector<T>& values)
{
    const std::vector<int> starWidths{-9, 0, 3};
    const std::vector<int> starPrecisions{-1, 0, 6, INT_MIN};  // 6: all of "(null)"
    for (unsigned int mask = 0; mask < 32; ++mask) {
        std::string flags;
        for (unsigned int bit = 0; bit < 5; ++bit) {
            flags += (mask & (1u << bit)) != 0 ? std::string(1, "-+ #0"[bit]) : "";
        }
        for (const std::string width : {"", "1", "7", "24", "*"}) {
            for (const std::string precision : {"", ".", ".0", ".1", ".7", ".24", ".*"}) {
                const std::string format = "<%" + flags + width + precision + conversion + ">";
                for (const int w : width == "*" ? starWidths : std::vector<int>{NONE}) {
                    for (const int p : precision == ".*" ? starPrecisions : std::vector<int>{NONE}) {
                        for (const T& value : values) {
                            ASSERT_TRUE(sameWithStars(format, w, p, value));
                        }
                    }
                }
            }
        }
    }
}

TEST(PrintfFormatTest, MatchesForEveryFlagWidthAndPrecisionOfEachConversion)
{
    expectEveryDirectiveMatches("c", std::vector<int>{'a', 0, 255, ' '});
    expectEveryDirectiveMatches("s", std::vector<const char*>{"", "a", "a longer text of 28 letters", nullptr});
    expectEveryDirectiveMatches("p",
                                std::vector<void*>{nullptr, reinterpret_cast<void*>(1),
                                                   reinterpret_cast<void*>(0x7ffe1234),
                                                   reinterpret_cast<void*>(UINTPTR_MAX)});
}

// Every integer conversion with every directive, at the extremes of the type that the modifier
// names and a few values between.
template <typename Signed, typename Unsigned>
void expectLengthModifierMatches(const std::string& modifier, std::vector<Signed> signedValues = {},
                                 std::vector<Unsigned> unsignedValues = {})
{
    signedValues.insert(signedValues.end(),
                        {std::numeric_limits<Signed>::min(), std::numeric_limits<Signed>::max(), Signed(-1), Signed(0),
                         Signed(1), Signed(42)});
    unsignedValues.insert(unsignedValues.end(),
                          {std::numeric_limits<Unsigned>::max(), Unsigned(0), Unsigned(1), Unsigned(255),
                           Unsigned(std::numeric_limits<Unsigned>::max() / 2 + 1)});
    for (const char* conversion : {"d", "i"}) {
        expectEveryDirectiveMatches(modifier + conversion, signedValues);
    }
    for (const char* conversion : {"u", "o", "x", "X"}) {
        expectEveryDirectiveMatches(modifier + conversion, unsignedValues);
    }
}

TEST(PrintfFormatTest, MatchesForTheExtremesOfEveryLengthModifier)
{
    // hh and h read an int and convert it: values beyond char and short, passed as int, too.
    expectLengthModifierMatches<int, unsigned int>("hh", {SCHAR_MIN, SCHAR_MAX, 300, -129}, {256, 65536});
    expectLengthModifierMatches<int, unsigned int>("h", {SHRT_MIN, SHRT_MAX, 70000, -32769}, {65535, 65536});
    expectLengthModifierMatches<int, unsigned int>("");
    expectLengthModifierMatches<long, unsigned long>("l");
    expectLengthModifierMatches<long long, unsigned long long>("ll", {INT_MIN - 1LL, 1LL << 32}, {1ULL << 32});
    expectLengthModifierMatches<std::make_signed_t<std::size_t>, std::size_t>("z");
    expectLengthModifierMatches<std::intmax_t, std::uintmax_t>("j");
    expectLengthModifierMatches<std::ptrdiff_t, std::make_unsigned_t<std::ptrdiff_t>>("t");
}

TEST(PrintfFormatTest, CutsAtEveryPosition)
{
    // Every buffer size from none to more than enough, across literal text, padding, prefixes,
    // zeros, digits, strings, characters and pointers.
    const char* const format = "a%-+8d|%#010x|%5s|%c%.3s%p %#o %%";
    void* const pointer = reinterpret_cast<void*>(0xbeef);
    const int length = libc(nullptr, 0, format, -42, 255u, "str", 'c', "truncated", pointer, 8u);
    for (int size = 0; size <= length + 2; ++size) {
        ASSERT_TRUE(
            sameAsLibc(static_cast<std::size_t>(size), format, -42, 255u, "str", 'c', "truncated", pointer, 8u));
    }
    EXPECT_EQ(length, ours(nullptr, 0, format, -42, 255u, "str", 'c', "truncated", pointer, 8u));

    // A message cut at 2047 characters: the same conversions lead up to the cut at every position.
    constexpr std::size_t MESSAGE_BUFFER = 2048;
    for (int lead = 1990; lead <= 2050; ++lead) {
        ASSERT_TRUE(sameAsLibc(MESSAGE_BUFFER, "%*s%-+8d|%#010x|%5s|%c%.3s%p %#o %%", lead, "", -42, 255u, "str", 'c',
                               "truncated", pointer, 8u));
        const std::string literal(static_cast<std::size_t>(lead), 'x');
        ASSERT_TRUE(sameAsLibc(MESSAGE_BUFFER, (literal + "%s and %d").c_str(), "text", INT_MIN));
    }
    EXPECT_TRUE(sameAsLibc(MESSAGE_BUFFER, "%4000d|%-3000s|", 1, "left"));
}

// The formatter reads texts in blocks that may go past their end, but never into the next page:
// formats and strings that end at every position before an inaccessible page.
TEST(PrintfFormatTest, NeverReadsIntoThePageAfterAText)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(MAP_FAILED, pages);
    char* const end = static_cast<char*>(pages) + page;
    ASSERT_EQ(0, mprotect(end, page, PROT_NONE));
    for (std::size_t length = 1; length <= 40; ++length) {
        char* const text = end - length;
        std::memset(text, 'x', length - 1);
        text[length - 1] = '\0';
        EXPECT_TRUE(sameAsLibc(64, text));
        EXPECT_TRUE(sameAsLibc(64, "%s|", text));
        if (length >= 3) {
            std::memcpy(end - 3, "%d", 3);
            EXPECT_TRUE(sameAsLibc(64, text, 42));
        }
    }
    munmap(pages, 2 * page);
}

// A format that must go to vsnprintf whole: nothing of it may be taken for one of ours. And the C
// library's answer to a null format, which its declaration forbids asking it.
TEST(PrintfFormatTest, LeavesTheRestToVsnprintf)
{
    for (const std::size_t size : {std::size_t{64}, std::size_t{4}}) {
        EXPECT_TRUE(sameAsLibc(size, "%d %f %s", 7, 1.5, "after a double"));
        EXPECT_TRUE(sameAsLibc(size, "%2$s %1$s", "a", "b"));
        EXPECT_TRUE(sameAsLibc(size, "%'d %s", 1234567, "grouped"));
        // One each: a later directive that falls back would hide an earlier one taken wrongly.
        EXPECT_TRUE(sameAsLibc(size, "%ls", L"wide"));
        EXPECT_TRUE(sameAsLibc(size, "%lc", static_cast<wint_t>(0x20ac)));
        EXPECT_TRUE(sameAsLibc(size, "%hhc", 'a'));
        EXPECT_TRUE(sameAsLibc(size, "%zp", nullptr));
        EXPECT_TRUE(sameAsLibc(size, "%Ld", 5LL));
        EXPECT_TRUE(sameAsLibc(size, "%d %y", 1));
        EXPECT_TRUE(sameAsLibc(size, "%*5d", 3, 5));
        EXPECT_TRUE(sameAsLibc(size, "%hhld", 5));
        errno = ENOENT;
        EXPECT_TRUE(sameAsLibc(size, "%d: %m", 3));
        EXPECT_TRUE(sameAsLibc(size, "abc%"));
    }
    char buffer[8] = "text";
    const char* volatile noFormat = nullptr;
    errno = 0;
    EXPECT_EQ(-1, ours(buffer, sizeof buffer, noFormat));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_STREQ("", buffer);
}

}  // namespace
