// One output line built in one buffer: text, numbers and escaped fields are appended in runs,
// never a call per character. Lines up to INLINE_SIZE bytes stay inside the object (on the
// caller's stack); only longer ones move to the heap.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>

class CLineBuffer {
public:
    // A 2047-character message with ordinary fields fits, escaped or not in most cases.
    static constexpr std::size_t INLINE_SIZE = 4096;

    CLineBuffer() = default;
    CLineBuffer(const CLineBuffer&) = delete;
    CLineBuffer& operator=(const CLineBuffer&) = delete;

    const char* data() const { return m_data; }
    std::size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    void clear() { m_size = 0; }

    void append(const char* text, std::size_t length)
    {
        reserve(length);
        std::memcpy(m_data + m_size, text, length);
        m_size += length;
    }
    void append(const std::string& text) { append(text.data(), text.size()); }
    void append(const char* text) { append(text, std::strlen(text)); }
    void append(char c)
    {
        reserve(1);
        m_data[m_size++] = c;
    }
    void appendSpaces(std::size_t count)
    {
        reserve(count);
        std::memset(m_data + m_size, ' ', count);
        m_size += count;
    }
    // Decimal, at least `width` digits (zero-padded).
    void appendUnsigned(unsigned long long value, int width = 1);
    void appendSigned(long long value);
    // Control bytes (0x00-0x1f, 0x7f) become visible escapes (\n, \r, \t, \xHH), so one field can
    // never break or forge a line. Every other byte passes unchanged, invalid UTF-8 included.
    void appendEscaped(const char* text, std::size_t length);
    void appendEscaped(const std::string& text) { appendEscaped(text.data(), text.size()); }

private:
    void reserve(std::size_t more)
    {
        if (m_capacity - m_size < more) {
            grow(more);
        }
    }
    void grow(std::size_t more);

    char m_inline[INLINE_SIZE];
    std::unique_ptr<char[]> m_heap;
    char* m_data = m_inline;
    std::size_t m_size = 0;
    std::size_t m_capacity = INLINE_SIZE;
};
