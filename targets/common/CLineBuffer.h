// One output line built in one buffer: text, numbers and escaped fields are appended in runs,
// never a call per character. Lines up to INLINE_SIZE bytes stay inside the object (on the
// caller's stack); only longer ones move to the heap.
#pragma once

#include <cstddef>
#include <cstdint>
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
    void appendUnsigned(unsigned long long value, int width = 1) { commit(putUnsigned(claim(24), value, width)); }
    void appendSigned(long long value);
    // Control bytes (0x00-0x1f, 0x7f) become visible escapes (\n, \r, \t, \xHH), so one field can
    // never break or forge a line. Every other byte passes unchanged, invalid UTF-8 included.
    void appendEscaped(const char* text, std::size_t length)
    {
        commit(putEscaped(claim(ESCAPED_MAX * length), text, length));
    }
    void appendEscaped(const std::string& text) { appendEscaped(text.data(), text.size()); }

    // For a writer that knows an upper bound of what it adds: room for `most` more bytes at the
    // end, written through the put functions below without a check per piece; commit() then says
    // where the writing ended.
    char* claim(std::size_t most)
    {
        reserve(most);
        return m_data + m_size;
    }
    void commit(const char* end) { m_size = static_cast<std::size_t>(end - m_data); }

    static constexpr std::size_t ESCAPED_MAX = 4;  // bytes per byte of text, at most
    static char* put(char* to, const char* text, std::size_t length)
    {
        std::memcpy(to, text, length);
        return to + length;
    }
    static char* putUnsigned(char* to, unsigned long long value, int width = 1);  // at most 20 bytes
    static char* putEscaped(char* to, const char* text, std::size_t length)
    {
        const char* const end = text + length;
        for (;;) {
            const std::size_t plain = plainLength(text, static_cast<std::size_t>(end - text));
            to = put(to, text, plain);
            text += plain;
            if (text == end) {
                return to;
            }
            to = putEscape(to, static_cast<unsigned char>(*text++));
        }
    }

private:
    void reserve(std::size_t more)
    {
        if (m_capacity - m_size < more) {
            grow(more);
        }
    }
    void grow(std::size_t more);
    static char* putEscape(char* to, unsigned char control);
    // How many bytes from `text` on are no control byte: eight at a time while none is.
    static std::size_t plainLength(const char* text, std::size_t length)
    {
        constexpr std::uint64_t ONES = 0x0101010101010101ULL;
        constexpr std::uint64_t HIGH = 0x8080808080808080ULL;
        std::size_t done = 0;
        for (std::uint64_t word; length - done >= 8; done += 8) {
            std::memcpy(&word, text + done, 8);
            const std::uint64_t del = word ^ (0x7f * ONES);
            // A byte below 0x20, or a byte equal to 0x7f, sets its high bit here.
            if ((((word - 0x20 * ONES) & ~word) | ((del - ONES) & ~del)) & HIGH) {
                break;
            }
        }
        while (done < length && static_cast<unsigned char>(text[done]) >= 0x20 && text[done] != 0x7f) {
            ++done;
        }
        return done;
    }

    char m_inline[INLINE_SIZE];
    std::unique_ptr<char[]> m_heap;
    char* m_data = m_inline;
    std::size_t m_size = 0;
    std::size_t m_capacity = INLINE_SIZE;
};
