// Targets behind the main instance: a target that logs from inside its own log, and the lock
// order between component creation and configuration re-reads under concurrent load.
#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "testPaths.h"

namespace {

// Overwrites the file from its first byte in one write, without truncating: a reader running at
// the same time never sees it empty or short.
void overwriteInPlace(const std::string& path, const std::string& content)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    ASSERT_NE(-1, fd) << path;
    EXPECT_EQ(static_cast<ssize_t>(content.size()), pwrite(fd, content.data(), content.size(), 0)) << path;
    close(fd);
}

class CVexlorTargetsTest : public ::testing::Test {
protected:
    CVexlorTargetsTest() { CRecorder::instance().clear(); }

    CCompiledPaths m_paths;
    CSyslogCapture m_syslog;
};

TEST_F(CVexlorTargetsTest, TargetLoggingFromItsOwnLogGetsTheNestedRecordBeforeItsCallReturns)
{
    m_paths.writeDefaultConfig(targetLine(testpaths::recorderTwin(), "name=b"));
    vexlor_component* net = vexlor_create_component("net", VX_INFO, "");
    // The nested target creates its component when it is made, so it is added once the main
    // instance exists; a new application name re-reads the file at once.
    m_paths.writeDefaultConfig(targetLine(testpaths::recorderTwin(), "name=b") +
                               targetLine(testpaths::recorder(), "name=a, nested=1"));
    vexlor_set_applicationname("nesting");
    ASSERT_EQ(1u, CRecorder::instance().calls("created", "a").size());
    CRecorder::instance().clear();

    vexlor(net, VX_INFO, "outer");
    std::vector<std::string> order;
    for (const CRecordedCall& call : CRecorder::instance().calls("log")) {
        order.push_back(call.target + ":" + call.componentName + ":" + call.message);
    }
    // b, after a in name order, gets the nested record first: a's call had not returned yet.
    EXPECT_EQ((std::vector<std::string>{"a:net:outer", "a:nested:nested:outer", "b:nested:nested:outer",
                                        "b:net:outer"}),
              order);
}

// Application threads create components and log while the configuration file is rewritten and
// the application name changes: component creation takes the registry and then the container,
// a re-read the container and then the registry. Nothing may deadlock, the target that every
// version of the file names must get each record exactly once, and the one toggled on and off
// must never get a record twice.
TEST_F(CVexlorTargetsTest, SurvivesConcurrentComponentsReReadsAndApplicationNames)
{
    constexpr int LOGGERS = 3;
    constexpr int RECORDS_PER_LOGGER = 8000;
    constexpr int TOGGLED_LOADS = 3;
    const auto minimumRun = std::chrono::seconds(2);
    const auto limit = std::chrono::seconds(60);

    // Every version has the same length and names "always" on its first line, so a read that
    // overlaps a rewrite still sees it. The toggled line differs in one byte; the component
    // masks differ only above VX_ERR, which stays enabled in all of them.
    auto version = [](bool toggled, bool wide) {
        std::string content = targetLine(testpaths::recorder(), "name=always");
        content += (toggled ? "t" : "#") + targetLine(testpaths::recorderTwin(), "name=toggle").substr(1);
        for (int k = 0; k < 4; ++k) {
            content += "component = shared" + std::to_string(k) + ", " + (wide ? "11111" : "00000") + "1111\n";
        }
        return content;
    };
    const std::string defaultFile = m_paths.defaultConfig();
    const std::string appFile = m_paths.appConfig("stressA");
    overwriteInPlace(defaultFile, version(true, false));
    overwriteInPlace(appFile, version(false, true));

    std::atomic<bool> stop{false};
    std::vector<int> logged(LOGGERS, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < LOGGERS; ++t) {
        threads.emplace_back([t, &stop, &logged] {
            vexlor_init(nullptr, ("logger" + std::to_string(t)).c_str());
            for (int i = 0; !stop.load(); ++i) {
                const std::string own = "s" + std::to_string(t) + "-" + std::to_string(i % 4);
                vexlor_component* mine = vexlor_create_component(own.c_str(), VX_ERR, "");
                vexlor_component* shared =
                    vexlor_create_component(("shared" + std::to_string(i % 4)).c_str(), VX_ERR, "");
                if (logged[t] >= RECORDS_PER_LOGGER) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    continue;
                }
                for (int r = 0; r < 4; ++r) {
                    vexlor(r % 2 == 0 ? mine : shared, VX_ERR, "seq:%d:%d", t, logged[t]++);
                }
            }
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; !stop.load(); ++i) {
            overwriteInPlace(i % 3 == 0 ? appFile : defaultFile, version(i % 2 == 0, i % 4 < 2));
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    threads.emplace_back([&] {
        for (int i = 0; !stop.load(); ++i) {
            vexlor_set_applicationname(i % 2 == 0 ? "stressA" : "stressB");
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });

    // Runs a minimum time and until the toggled target came and went a few times; the limit
    // only keeps a broken build from hanging.
    const auto start = std::chrono::steady_clock::now();
    for (;;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const auto elapsed = std::chrono::steady_clock::now() - start;
        const bool toggledEnough = CRecorder::instance().calls("created", "toggle").size() >= TOGGLED_LOADS;
        if ((elapsed >= minimumRun && toggledEnough) || elapsed >= limit) {
            break;
        }
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_GE(CRecorder::instance().calls("created", "toggle").size(), static_cast<std::size_t>(TOGGLED_LOADS));
    std::map<std::string, int> always;
    for (const std::string& message : CRecorder::instance().messages("always")) {
        ++always[message];
    }
    int expected = 0;
    for (int t = 0; t < LOGGERS; ++t) {
        for (int n = 0; n < logged[t]; ++n) {
            const std::string message = "seq:" + std::to_string(t) + ":" + std::to_string(n);
            const auto found = always.find(message);
            ASSERT_TRUE(found != always.end()) << message;
            ASSERT_EQ(1, found->second) << message;
            ++expected;
        }
    }
    EXPECT_EQ(static_cast<std::size_t>(expected), always.size());
    std::set<std::string> toggled;
    for (const std::string& message : CRecorder::instance().messages("toggle")) {
        ASSERT_TRUE(toggled.insert(message).second) << message;
    }
}

}  // namespace
