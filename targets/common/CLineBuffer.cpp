// The out-of-line parts of CLineBuffer: growth, numbers and escaping.
#include "CLineBuffer.h"

namespace {

bool isControl(unsigned char c)
{
    return c < 0x20 || c == 0x7f;
}

}  // namespace

void CLineBuffer::grow(std::size_t more)
{
    std::size_t capacity = m_capacity * 2;
    while (capacity - m_size < more) {
        capacity *= 2;
    }
    std::unique_ptr<char[]> bigger(new char[capacity]);
    std::memcpy(bigger.get(), m_data, m_size);
    m_heap = std::move(bigger);
    m_data = m_heap.get();
    m_capacity = capacity;
}

void CLineBuffer::appendUnsigned(unsigned long long value, int width)
{
    char digits[24];
    char* end = digits + sizeof digits;
    char* begin = end;
    do {
        *--begin = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (end - begin < width && begin > digits) {
        *--begin = '0';
    }
    append(begin, static_cast<std::size_t>(end - begin));
}

void CLineBuffer::appendSigned(long long value)
{
    if (value < 0) {
        append('-');
        // Through unsigned arithmetic, so that the most negative value does not overflow.
        appendUnsigned(0ULL - static_cast<unsigned long long>(value));
    } else {
        appendUnsigned(static_cast<unsigned long long>(value));
    }
}

void CLineBuffer::appendEscaped(const char* text, std::size_t length)
{
    static const char HEX[] = "0123456789abcdef";
    const char* const end = text + length;
    while (text < end) {
        // Copy the run up to the next control byte in one go.
        const char* run = text;
        while (run < end && !isControl(static_cast<unsigned char>(*run))) {
            ++run;
        }
        append(text, static_cast<std::size_t>(run - text));
        if (run == end) {
            return;
        }
        const auto c = static_cast<unsigned char>(*run);
        char escape[4] = {'\\', 'x', HEX[c >> 4], HEX[c & 0xf]};
        std::size_t escapeLength = 4;
        if (c == '\n' || c == '\r' || c == '\t') {
            escape[1] = c == '\n' ? 'n' : c == '\r' ? 'r' : 't';
            escapeLength = 2;
        }
        append(escape, escapeLength);
        text = run + 1;
    }
}
