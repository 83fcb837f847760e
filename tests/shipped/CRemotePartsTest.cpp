// The remote target's message format without a network: header fields and their limits,
// structured data and its escaping, UTF-8 rules, the datagram limit. The framings, and the record
// queue when full, are proven against rsyslogd.
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>

#include "CRecordQueue.h"
#include "Rfc5424.h"

namespace {

// An error at 2100-01-01 00:00:00.000007 UTC: past 2038. The texts are views: the caller keeps them.
CQueuedRecord record(std::string_view message, std::string_view function = "poll")
{
    return CQueuedRecord{4711, 2, 4102444800LL, 7, 3, "player", "main", "net", function, message, 1};
}

std::string format(const CRfc5424Options& options, const CQueuedRecord& r)
{
    std::string out;
    CRfc5424Formatter(options).append(r, out);
    return out;
}

// The usual fields are proven against rsyslogd; here what it would not show.
TEST(CRfc5424FormatterTest, WritesTimesAndCleansCutsAndEscapesHeaderFieldsAndStructuredData)
{
    EXPECT_EQ("dev01", headerField("dev 01\xC3\xA9\t", 48));  // blanks, control and non-ASCII bytes dropped
    EXPECT_EQ("-", headerField(" \x01\xFF", 48));  // nothing printable left: NILVALUE
    std::string sd;
    appendSdValue(sd, "a\"b\\c]d=e \xC3\xA9 \xFF");
    EXPECT_EQ("a\\\"b\\\\c\\]d=e \xC3\xA9 \xEF\xBF\xBD", sd);

    // HOSTNAME at most 255 bytes, APP-NAME 48, MSGID 32; no function: no such parameter; no text: no MSG.
    CQueuedRecord r = record("", "");
    const std::string appname(50, 'a');
    r.appname = appname;
    r.component = "a component name that is longer than thirty-two";
    EXPECT_EQ("<11>1 2100-01-01T00:00:00.000007Z " + std::string(255, 'h') + " " + std::string(48, 'a') +
                  " 4711 acomponentnamethatislongerthanth [ours@99999 component=\"a component name that is longer "
                  "than thirty-two\" thread=\"main\" depth=\"2\"]",
              format(CRfc5424Options{1, std::string(300, 'h'), "ours@99999", true, false, 0, false}, r));
    for (const char* bad : {"a b@1", "a]@1", "abcdefghijklmnopqrstuvwxyz@1234567"}) {
        EXPECT_FALSE(isValidSdId(bad)) << bad;
    }

    // TIMESTAMP in UTC or with the local offset, to the microsecond.
    EXPECT_EQ("2024-02-29T13:05:09.123456Z", rfc3339Time(1709211909LL, 123456, true));
    setenv("TZ", "<+0530>-5:30", 1);
    tzset();
    EXPECT_EQ("2024-02-29T18:35:09.000001+05:30", rfc3339Time(1709211909LL, 1, false));
}

TEST(CRfc5424FormatterTest, CutsDatagramsOnUtf8Boundaries)
{
    // A cut point that falls inside a sequence moves before it.
    EXPECT_EQ(1u, utf8PrefixLength("a\xF0\x9F\x98\x80", 4));
    CRfc5424Options options{1, "h", "vexlor@32473", true, true, 480, false};  // with a byte order mark
    std::string text;
    for (int i = 0; i < 200; ++i) {
        text += "\xE2\x82\xAC";  // € (three bytes)
    }
    const std::string datagram = format(options, record(text));
    EXPECT_EQ("] \xEF\xBB\xBF\xE2\x82\xAC", datagram.substr(datagram.find("] "), 8));
    EXPECT_TRUE(datagram.size() <= 480 && datagram.size() > 477) << datagram.size();
    EXPECT_EQ(0u, (datagram.size() - datagram.find("] ") - 5) % 3) << "a sequence was cut";

    // Names too long to leave room: the structured data goes, header and text stay.
    CQueuedRecord r = record("text");
    const std::string thread(600, 't');
    r.thread = thread;
    options.bom = false;
    EXPECT_EQ("<11>1 2100-01-01T00:00:00.000007Z h player 4711 net - text", format(options, r));
}

// The ring keeps the records in order across its end, bounds them in bytes (the count: the relay
// tests) and numbers every record it is handed, the dropped ones too. Once empty it goes on at its
// beginning with the whole ring as room at once, and the sender, still at the old end, finds the
// records there in order.
TEST(CRecordQueueTest, KeepsOrderAcrossTheRingsEndNumbersDroppedRecordsAndStartsAgainOnceEmpty)
{
    CWaiter waiter;
    CRecordQueue queue(1000, 128 << 10, waiter);
    int stored = 0;
    while (queue.push(1, 0, 0, 0, 6, "app", "main", "net", "", std::string(3000, 'x'))) {
        ++stored;
    }
    EXPECT_EQ(42, stored);  // 128 KiB of 3 KiB records
    CRecordQueue::Position position = queue.begin();
    CQueuedRecord record;
    for (int i = 0; i < 40; ++i) {
        queue.read(position, record);
    }
    position = queue.release(position, 40);  // room at the ring's start, records near its end
    for (int i = 0; i < 30; ++i) {
        EXPECT_TRUE(queue.push(1, 0, 0, 0, 6, "app", "main", "net", "", "short"));
    }
    std::string order;
    while (position != queue.end()) {
        queue.read(position, record);
        order += std::string(record.message.substr(0, 1)) + std::to_string(record.sequence) + " ";
    }
    EXPECT_EQ("x41 x42 s44 s45 s46 ", order.substr(0, 20));  // 43 was dropped
    EXPECT_EQ(42u - 40 + 30, queue.size());
    EXPECT_EQ(1u, nextSequence(2147483647u));

    queue.release(position, queue.size());
    stored = 0;
    while (queue.push(1, 0, 0, 0, 6, "app", "main", "net", "", std::string(3000, 'b'))) {
        ++stored;
    }
    ASSERT_EQ(42, stored);
    for (int i = 0; i < stored; ++i) {
        queue.read(position, record);
        EXPECT_EQ(i + 74u, record.sequence);  // after 1-42 and 44-73; 43 was dropped
    }
    EXPECT_EQ(position, queue.end());
}

}  // namespace
