// Set-up shared by the file target's tests: target lines for files in a log directory, numbered
// records, and the records found in log files.
#pragma once

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <sstream>
#include <vector>

#include "CTargetFixture.h"

// A record of 100 bytes with pattern=%m: "record 00042 xx...x end" and the line feed.
inline std::string recordText(int number)
{
    char head[24];
    std::snprintf(head, sizeof head, "record %05d ", number);
    return head + std::string(82, 'x') + " end";
}

class CFileTargetFixture : public CTargetFixture {
protected:
    CFileTargetFixture() { std::filesystem::create_directory(m_logs); }

    // A target line for a file in the log directory.
    std::string fileTarget(const std::string& file, const std::string& parameters,
                           const char* plugin = VEXLOR_TEST_TARGET_FILE) const
    {
        return std::string("target = ") + plugin + ", path=" + logPath(file) + ", " + parameters + "\n";
    }
    std::string logPath(const std::string& file) const { return m_logs + "/" + file; }
    void logRecords(int first, int count)
    {
        for (int n = first; n < first + count; ++n) {
            log(VX_INFO, recordText(n));
        }
    }

    const std::string m_logs = m_dir.file("logs");
};

// The lines of `path`, or of every file a pattern such as "app.log*" names (".gz" files
// decompressed), without line feeds; an unended last line comes back with "<unended>" after it.
inline std::vector<std::string> linesOf(const std::string& path)
{
    FILE* in = popen(("gzip -dcf " + path).c_str(), "r");  // -f: other files pass as they are
    // The pipe read to its end under its /proc name, as any file.
    const std::string content = in != nullptr ? readFile("/proc/self/fd/" + std::to_string(fileno(in))) : "";
    EXPECT_TRUE(in != nullptr && pclose(in) == 0) << path;
    std::vector<std::string> lines;
    std::istringstream stream(content.empty() || content.back() == '\n' ? content : content + "<unended>\n");
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The numbers of the whole records among `lines`, sorted.
inline std::vector<int> recordNumbers(const std::vector<std::string>& lines)
{
    std::vector<int> numbers;
    for (const std::string& line : lines) {
        if (line.rfind("record ", 0) == 0 && line == recordText(std::atoi(line.c_str() + 7))) {
            numbers.push_back(std::atoi(line.c_str() + 7));
        }
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

// first, first + 1, ..., first + count - 1
inline std::vector<int> range(int first, int count)
{
    std::vector<int> numbers(static_cast<std::size_t>(count));
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}
