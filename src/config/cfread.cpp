// cfread: reader of line-oriented key=value files, into a table or line by line to a callback.
// Problems go to syslog with the prefix "cfread: ".
#include <vexlor/cfread.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <syslog.h>

#include "base/diag.h"
#include "base/strtol32.h"
#include "config/readFindings.h"

namespace {

constexpr int LINE_BUFFER_SIZE = vx::READER_LINE_BUFFER;
constexpr size_t MAX_TEXT_LENGTH = vx::READER_MAX_TEXT;  // of a key and of a value
constexpr int SLOT_GROWTH = 64;

// A key or value being collected; the reader's fixed per-call buffers.
struct CText {
    char bytes[MAX_TEXT_LENGTH + 1];
    size_t length = 0;

    bool full() const { return length == MAX_TEXT_LENGTH; }
    void append(char c) { bytes[length++] = c; }
    const char* terminated()
    {
        bytes[length] = '\0';
        return bytes;
    }
};

enum class LineResult { ENTRY, KEY_TOO_LONG, VALUE_TOO_LONG, NOT_TERMINATED };

// Splits one buffered line into key and value by the file syntax: spaces vanish from the key,
// the spaces right after the first "=" are skipped, bytes with the top bit set vanish everywhere,
// and a line feed or carriage return ends the line.
LineResult scanLine(const char* line, CText& key, CText& value)
{
    bool inValue = false;
    bool skippingSpaces = false;
    for (const char* p = line;; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (c == '\0') {
            return LineResult::NOT_TERMINATED;
        }
        if (c == '\n' || c == '\r') {
            return LineResult::ENTRY;
        }
        if ((c & 0x80) != 0) {
            continue;
        }
        if (!inValue) {
            if (c == '=') {
                inValue = true;
                skippingSpaces = true;
            } else if (key.full()) {
                return LineResult::KEY_TOO_LONG;
            } else if (c != ' ') {
                key.append(static_cast<char>(c));
            }
            continue;
        }
        if (skippingSpaces && c == ' ') {
            continue;
        }
        skippingSpaces = false;
        if (value.full()) {
            return LineResult::VALUE_TOO_LONG;
        }
        value.append(static_cast<char>(c));
    }
}

// Hands one line's entry to the table or the callback. Returns -1 on failure, 1 when the callback
// asked to stop, 0 to go on.
int storeEntry(cfread_handle* handle, CText& key, CText& value, int lineNumber)
{
    const bool empty = key.length == 0 || value.length == 0;
    if (handle->callback == nullptr) {
        if (!empty && cfread_set_entry(handle, key.terminated(), value.terminated()) == nullptr) {
            vx::diag(LOG_ERR, "cfread: unable to add entry in %s at line %d", handle->filename, lineNumber);
            vx::reportRead(vx::EReadFinding::NOT_READ, lineNumber, "unable to add the entry");
            return -1;
        }
        return 0;
    }
    if (empty && handle->call_on_empty == 0) {
        return 0;
    }
    return handle->callback(key.terminated(), value.terminated(), handle->user_data) != 0 ? 1 : 0;
}

int readLines(cfread_handle* handle, FILE* file)
{
    char line[LINE_BUFFER_SIZE];
    for (int lineNumber = 1; !feof(file); ++lineNumber) {
        if (fgets(line, sizeof line, file) == nullptr) {
            break;
        }
        // Only the first column starts a comment.
        if (line[0] == '#') {
            continue;
        }
        CText key;
        CText value;
        switch (scanLine(line, key, value)) {
        case LineResult::KEY_TOO_LONG:
            vx::diag(LOG_ERR, "cfread: max. key length exceeded in %s at line %d", handle->filename, lineNumber);
            vx::reportRead(vx::EReadFinding::KEY_TOO_LONG, lineNumber);
            return -1;
        case LineResult::VALUE_TOO_LONG:
            vx::diag(LOG_ERR, "cfread: max. value length exceeded in %s at line %d", handle->filename, lineNumber);
            vx::reportRead(vx::EReadFinding::VALUE_TOO_LONG, lineNumber);
            return -1;
        case LineResult::NOT_TERMINATED:
            vx::diag(LOG_ERR, "cfread: non-terminated entry in %s at line %d", handle->filename, lineNumber);
            vx::reportRead(vx::EReadFinding::NOT_TERMINATED, lineNumber);
            return -1;
        case LineResult::ENTRY: break;
        }
        const int rc = storeEntry(handle, key, value, lineNumber);
        if (rc != 0) {
            return rc < 0 ? -1 : 0;
        }
    }
    return 0;
}

int readFile(cfread_handle* handle, const char* fileName)
{
    if (fileName == nullptr || fileName[0] == '\0') {
        vx::diag(LOG_ERR, "cfread: no config file given");
        return -1;
    }
    FILE* file = fopen(fileName, "r");
    if (file == nullptr) {
        vx::diag(LOG_ERR, "cfread: unable to open %s", fileName);
        vx::reportRead(vx::EReadFinding::NOT_READ, 0, "unable to open it");
        return -1;
    }
    const int rc = readLines(handle, file);
    fclose(file);
    return rc;
}

// Decimal digits with an optional leading sign give their value (the two saturation limits give
// -1); "true" and "false" give 1 and 0; anything else -1.
int intValueOf(const char* value)
{
    if (value[0] != '\0') {
        const char* digits = (value[0] == '+' || value[0] == '-') ? value + 1 : value;
        if (digits[strspn(digits, "0123456789")] == '\0') {
            const std::int32_t number = vx::strtol32(value);
            return (number == INT32_MAX || number == INT32_MIN) ? -1 : number;
        }
    }
    if (strcmp(value, "true") == 0) {
        return 1;
    }
    if (strcmp(value, "false") == 0) {
        return 0;
    }
    return -1;
}

void freeEntry(cfread_entry* entry)
{
    free(entry->key);
    free(entry->value);
    free(entry);
}

// The lowest empty slot, growing the table by SLOT_GROWTH when it is full; -1 when the table
// cannot grow for lack of memory.
int freeSlot(cfread_handle* handle)
{
    for (int i = 0; i < handle->capacity; ++i) {
        if (handle->entries[i] == nullptr) {
            return i;
        }
    }
    if (handle->capacity > INT_MAX - SLOT_GROWTH) {
        vx::diag(LOG_EMERG, "cfread: unable to get a free index");
        exit(1);
    }
    const int capacity = handle->capacity + SLOT_GROWTH;
    auto* entries = static_cast<cfread_entry**>(realloc(handle->entries, sizeof(cfread_entry*) * capacity));
    if (entries == nullptr) {
        return -1;
    }
    for (int i = handle->capacity; i < capacity; ++i) {
        entries[i] = nullptr;
    }
    const int slot = handle->capacity;
    handle->entries = entries;
    handle->capacity = capacity;
    return slot;
}

}  // namespace

extern "C" {

cfread_handle* cfread_open(const char* filename)
{
    auto* handle = static_cast<cfread_handle*>(calloc(1, sizeof(cfread_handle)));
    if (handle == nullptr) {
        return nullptr;
    }
    // A private copy: the caller's text need not outlive the handle.
    if (filename != nullptr && (handle->filename = strdup(filename)) == nullptr) {
        free(handle);
        return nullptr;
    }
    if (readFile(handle, filename) != 0) {
        cfread_close(handle);
        return nullptr;
    }
    return handle;
}

void cfread_close(cfread_handle* handle)
{
    if (handle == nullptr) {
        return;
    }
    for (int i = 0; i < handle->capacity; ++i) {
        if (handle->entries[i] != nullptr) {
            freeEntry(handle->entries[i]);
            handle->entries[i] = nullptr;
        }
    }
    free(handle->entries);
    free(const_cast<char*>(handle->filename));
    free(handle);
}

cfread_entry* cfread_find_entry(cfread_handle* handle, const char* key)
{
    if (key == nullptr || key[0] == '\0') {
        return nullptr;
    }
    for (int i = 0; i < handle->capacity; ++i) {
        cfread_entry* entry = handle->entries[i];
        if (entry != nullptr && strcmp(entry->key, key) == 0) {
            return entry;
        }
    }
    return nullptr;
}

cfread_entry* cfread_set_entry(cfread_handle* handle, const char* key, const char* value)
{
    if (key == nullptr || key[0] == '\0') {
        return nullptr;
    }
    if (value == nullptr) {
        value = "";
    }
    if (cfread_entry* old = cfread_find_entry(handle, key)) {
        handle->entries[old->index] = nullptr;
        --handle->count;
        freeEntry(old);
    }
    const char* fileName = handle->filename != nullptr ? handle->filename : "";
    const int slot = freeSlot(handle);
    if (slot < 0) {
        vx::diag(LOG_ERR, "cfread: unable to add entry '%s' in %s", key, fileName);
        return nullptr;
    }
    auto* entry = static_cast<cfread_entry*>(calloc(1, sizeof(cfread_entry)));
    if (entry == nullptr || (entry->key = strdup(key)) == nullptr || (entry->value = strdup(value)) == nullptr) {
        if (entry != nullptr) {
            freeEntry(entry);
        }
        vx::diag(LOG_ERR, "cfread: unable to add entry '%s' in %s", key, fileName);
        return nullptr;
    }
    entry->index = slot;
    entry->int_value = intValueOf(entry->value);
    handle->entries[slot] = entry;
    ++handle->count;
    return entry;
}

int cfread_parse_with_callback(const char* filename, cfread_callback callback, void* user_data,
                               unsigned char call_on_empty)
{
    if (callback == nullptr) {
        vx::diag(LOG_ERR, "cfread: no callback given for %s", filename != nullptr ? filename : "");
        return -1;
    }
    cfread_handle handle{};
    handle.filename = filename;
    handle.callback = callback;
    handle.user_data = user_data;
    handle.call_on_empty = call_on_empty;
    return readFile(&handle, filename);
}

}  // extern "C"
