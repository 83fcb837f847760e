// Targets behind the main instance: a target that logs or renames the application from inside its
// own log, and the lock order between component creation, level creation and configuration
// re-reads under load.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <thread>
#include <unistd.h>

#include "CMainInstanceTest.h"
#include "waitUntil.h"

namespace {

using Lines = std::vector<std::string>;
using CVexlorTargetsTest = CMainInstanceTest;

// The nested target creates its component while it is created, that is while the main instance
// is still being built by the first call below.
TEST_F(CVexlorTargetsTest, TargetLoggingFromItsOwnLogGetsTheNestedRecordBeforeItsCallReturns)
{
    m_paths.writeDefaultConfig(targetLine(testpaths::recorderTwin(), "name=b") +
                               targetLine(testpaths::recorder(), "name=a, nested=1"));
    vexlor(vexlor_create_component("net", VX_INFO, ""), VX_INFO, "outer");
    Lines order;
    for (const CRecordedCall& call : CRecorder::instance().calls("log")) {
        order.push_back(call.target + ":" + call.componentName + ":" + call.message);
    }
    // b, after a in name order, gets the nested record first: a's call had not returned yet.
    EXPECT_EQ((Lines{"a:net:outer", "a:nested:nested:outer", "b:nested:nested:outer", "b:net:outer"}), order);
}

// The re-read that a target starts from inside its own log unloads that very target: it waits
// until the delivery has ended, so the target is never destroyed (nor its library closed) while
// its call is running.
TEST_F(CVexlorTargetsTest, TargetSettingTheApplicationNameFromItsLogIsUnloadedOnlyAfterItsCall)
{
    m_paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=a, rename=other") +
                               targetLine(testpaths::recorderTwin(), "name=c"));
    m_paths.writeAppConfig("other", targetLine(testpaths::hookless(), "name=b"));
    vexlor_component* net = vexlor_create_component("net", VX_INFO, "");
    CRecorder::instance().clear();
    vexlor(net, VX_INFO, "outer");
    vexlor(net, VX_INFO, "later");
    Lines events;
    for (const CRecordedCall& call : CRecorder::instance().calls()) {
        if (call.kind != "factory" && call.kind != "syslog?" && call.kind != "init" && call.kind != "done") {
            events.push_back(call.kind + ":" + call.target + (call.kind == "log" ? ":" + call.message : ""));
        }
    }
    // c still gets the outer record, and learns the name, before the read unloads a and c; b is
    // made with the new name.
    EXPECT_EQ((Lines{"log:a:outer", "appname:a", "appname:c", "renamed:a", "log:c:outer", "created:b", "destroyed:a",
                     "destroyed:c", "log:b:later"}),
              events);
    EXPECT_EQ("other", CRecorder::instance().calls("created", "b").at(0).params.at("application-name"));
}

// Application threads create components and log while the configuration file is rewritten and
// the application name changes: component creation takes the registry and then the container,
// a re-read the container and then the registry. Nothing may deadlock, the target that every
// version of the file names must get each record exactly once, and the one toggled on and off
// must never get a record twice. Each record goes out at a level created for it, numbered after
// its thread: appends to the level store from several threads must neither mix up records nor
// lose any.
TEST_F(CVexlorTargetsTest, SurvivesConcurrentComponentsReReadsAndApplicationNames)
{
    constexpr int LOGGERS = 3;
    constexpr int RECORDS_PER_LOGGER = 8000;
    // Every version has the same length and names "always" on its first line, so a read that
    // overlaps a rewrite still sees it. The toggled line differs in one byte; the component
    // masks differ only above the four lowest levels, which stay enabled in all of them.
    auto version = [](bool toggled, bool wide) {
        std::string content = targetLine(testpaths::recorder(), "name=always");
        content += (toggled ? "t" : "#") + targetLine(testpaths::recorderTwin(), "name=toggle").substr(1);
        for (int k = 0; k < 4; ++k) {
            content += "component = shared" + std::to_string(k) + ", " + (wide ? "11111" : "00000") + "1111\n";
        }
        return content;
    };
    m_paths.writeDefaultConfig(version(true, false));
    m_paths.writeAppConfig("stressA", version(false, true));

    std::atomic<bool> stop{false};
    std::vector<int> logged(LOGGERS, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < LOGGERS; ++t) {
        threads.emplace_back([t, &stop, &logged] {
            for (int i = 0; !stop; ++i) {
                vexlor_component* shared =
                    vexlor_create_component(("shared" + std::to_string(i % 4)).c_str(), VX_ERR, "");
                if (logged[t] >= RECORDS_PER_LOGGER) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    continue;
                }
                vexlor(shared, vexlor_level_create(static_cast<unsigned int>(t)), "seq:%d:%d", t, logged[t]++);
            }
        });
    }
    threads.emplace_back([&] {
        // Overwritten from the first byte in one write, never truncated: a read running at the
        // same time never sees the file empty or short. Every other round renames the application.
        for (int i = 0; !stop; ++i) {
            const std::string content = version(i % 2 == 0, i % 4 < 2);
            const std::string file = i % 3 == 0 ? m_paths.appConfig("stressA") : m_paths.defaultConfig();
            const int fd = open(file.c_str(), O_WRONLY | O_CLOEXEC);
            EXPECT_EQ(static_cast<ssize_t>(content.size()), pwrite(fd, content.data(), content.size(), 0));
            close(fd);
            if (i % 2 == 0) {
                vexlor_set_applicationname(i % 4 == 0 ? "stressA" : "stressB");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });

    // At least two seconds, and until the toggled target came and went a few times.
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_TRUE(waitUntil([] { return CRecorder::instance().calls("created", "toggle").size() >= 3; },
                          std::chrono::seconds(60)));
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }

    // Per logger, "always" got 0, 1, 2, ... without a gap; "toggle" a rising part of that.
    std::map<std::string, std::vector<int>> next{{"always", std::vector<int>(LOGGERS)},
                                                 {"toggle", std::vector<int>(LOGGERS)}};
    for (const CRecordedCall& call : CRecorder::instance().calls("log")) {
        int t = 0;
        int n = 0;
        ASSERT_EQ(2, std::sscanf(call.message.c_str(), "seq:%d:%d", &t, &n)) << call.message;
        int& expected = next.at(call.target).at(t);
        ASSERT_TRUE(call.target == "always" ? n == expected : n >= expected) << call.target << " " << call.message;
        ASSERT_EQ(static_cast<unsigned int>(t), call.level->numeric) << call.message;
        expected = n + 1;
    }
    EXPECT_EQ(logged, next["always"]);
}

}  // namespace
