// The out-of-line parts of CLineBuffer: growth, numbers and escaping.
#include "CLineBuffer.h"

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

char* CLineBuffer::putUnsigned(char* to, unsigned long long value, int width)
{
    char digits[20];
    int count = 0;
    do {
        digits[count++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (count < width && count < 20) {
        digits[count++] = '0';
    }
    while (count > 0) {
        *to++ = digits[--count];
    }
    return to;
}

void CLineBuffer::appendSigned(long long value)
{
    char* to = claim(21);
    if (value < 0) {
        *to++ = '-';
    }
    // Through unsigned arithmetic, so that the most negative value does not overflow.
    commit(putUnsigned(
        to, value < 0 ? 0ULL - static_cast<unsigned long long>(value) : static_cast<unsigned long long>(value)));
}

char* CLineBuffer::putEscape(char* to, unsigned char control)
{
    static const char HEX[] = "0123456789abcdef";
    *to++ = '\\';
    if (control == '\n' || control == '\r' || control == '\t') {
        *to++ = control == '\n' ? 'n' : control == '\r' ? 'r' : 't';
        return to;
    }
    *to++ = 'x';
    *to++ = HEX[control >> 4];
    *to++ = HEX[control & 0xf];
    return to;
}
