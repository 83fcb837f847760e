// Turns a record into one RFC 5424 syslog message: header, structured data and message text.
// Functions of their arguments (the formatter only remembers the last second it wrote), so every
// rule of the format is tested without a network.
#pragma once

#include <climits>
#include <cstddef>
#include <string>
#include <string_view>

#include "CQueuedRecord.h"

struct CRfc5424Options {
    int facility = 1;  // facility number 0-23 (user = 1)
    std::string hostname;  // HOSTNAME as given; the formatter cleans and cuts it
    std::string sdId = "vexlor@32473";  // the SD-ID of our structured data element
    bool utc = true;  // TIMESTAMP with "Z", else with the local offset
    bool bom = false;  // MSG starts with the UTF-8 byte order mark
    std::size_t maxLength = 0;  // whole message at most this long (a UDP datagram); 0: no limit
    bool sequence = false;  // adds [meta sequenceId="n"] (RFC 5424 section 7.3.1)
};

class CRfc5424Formatter {
public:
    explicit CRfc5424Formatter(CRfc5424Options options);
    // Appends the message for `record` to `out`. The sender thread's: it keeps the text of the
    // last second it formatted.
    void append(const CQueuedRecord& record, std::string& out);

private:
    void appendTime(long long seconds, int microseconds, std::string& out);

    const CRfc5424Options m_options;
    const std::string m_hostname;  // already a header field
    long long m_second = LLONG_MIN;  // the second whose text m_date holds
    std::string m_date;  // "2025-03-04T10:15:02."
    std::string m_zone;  // "Z" or "+05:30"
};

// A header field: printable US-ASCII only (other bytes dropped), at most `maxLength` bytes, and
// the NILVALUE "-" when nothing is left.
std::string headerField(std::string_view text, std::size_t maxLength);
// Appends an SD-PARAM value: valid UTF-8, with '"', '\' and ']' escaped by a backslash.
void appendSdValue(std::string& out, std::string_view value);
// Appends `text` as valid UTF-8: every byte that is not part of a well-formed sequence becomes
// U+FFFD.
void appendValidUtf8(std::string& out, std::string_view text);
// The longest prefix of `text` of at most `maxLength` bytes that does not end inside a UTF-8
// sequence.
std::size_t utf8PrefixLength(std::string_view text, std::size_t maxLength);
// "2024-02-29T13:05:09.000042Z", or with the local offset ("+05:30") instead of "Z".
std::string rfc3339Time(long long seconds, int microseconds, bool utc);
// True for an SD-ID we may use: 1-32 printable US-ASCII bytes without '=', ' ', ']', '"',
// holding an '@' (names without one are reserved for registered names).
bool isValidSdId(const std::string& sdId);
