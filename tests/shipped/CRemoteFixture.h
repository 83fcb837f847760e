// What the remote target's tests share: the plug-in under short paths, numbered records logged
// with a watch on how long a call takes, and the counts the target reports.
#pragma once

#include <string>

#include "CTargetFixture.h"

class CRemoteFixture : public CTargetFixture {
protected:
    using Clock = std::chrono::steady_clock;

    std::string plugin(int variant) const { return pluginLink(VEXLOR_TEST_TARGET_REMOTE, variant); }

    // Logs "record <i>" for i in [first, first + count), and expects no call to wait noticeably.
    void logNumbered(int first, int count)
    {
        Clock::duration slowest{};
        for (int i = first; i < first + count; ++i) {
            const Clock::time_point start = Clock::now();
            log(VX_INFO, "record " + std::to_string(i));
            slowest = std::max(slowest, Clock::now() - start);
        }
        EXPECT_LT(slowest, std::chrono::seconds(1));  // far above a normal call (microseconds)
    }

    // The number before `after` in the message of `owner` that holds `marker`, once it came; -1
    // when it did not.
    long long reported(const std::string& owner, const std::string& marker, const std::string& after)
    {
        long long number = -1;
        waitUntil([&] {
            for (const CSyslogMessage& m : m_syslog.messages()) {
                const std::size_t at = m.text.find(after);
                if (m.text.rfind(owner + ": ", 0) == 0 && m.text.find(marker) != std::string::npos &&
                    at != std::string::npos) {
                    number = std::stoll(m.text.substr(m.text.find_last_of(" :(", at - 1) + 1));
                }
            }
            return number >= 0;
        });
        return number;
    }
    long long droppedAtTheEnd(const std::string& owner)
    {
        return reported(owner, " records dropped at the end", " records dropped at the end");
    }
};
