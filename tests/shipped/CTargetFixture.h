// What the shipped targets' tests share: a container on a temporary directory that loads the
// plug-ins through a configuration file, the captured syslog, the idle check of a thread, fork
// children, and the counters the control target reports to vexlorctl's client.
#pragma once

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <thread>
#include <vector>
#include <unistd.h>

#include "CControlClient.h"
#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "programView.h"
#include "runInChild.h"
#include "container/CLogTargetContainer.h"
#include "waitUntil.h"

// 2099-01-01T00:00:00Z: past 2038 for 32-bit systems, and rsyslogd 8.2302 takes no later year.
constexpr long long SECONDS = 4070908800LL;

class CTargetFixture : public ::testing::Test {
protected:
    // Replaces the configuration by `lines` and reads it ("" unloads every target).
    void read(const std::string& lines)
    {
        m_dir.write("vexlor.cfg", lines);
        m_container.onCfgUpdate();
    }
    void log(vexlor_level* level, const std::string& message, const std::string& function = "", int pid = 42)
    {
        m_container.log(pid, 0, SECONDS, 7, level, "main", "net", function, message);
    }

    // `plugin` under a short path of its own for each `variant` (a target line holds 255 bytes at
    // most): the container loads one library path once, so a further target of the same plug-in in
    // one configuration needs another path, and the loader still sees the same file.
    std::string pluginLink(const std::string& plugin, int variant) const
    {
        const std::string link = m_dir.file("p" + std::to_string(variant) + ".so");
        std::filesystem::create_symlink(plugin, link);
        return link;
    }

    // A failed test shows what the targets said.
    void TearDown() override
    {
        for (const CSyslogMessage& m : HasFailure() ? m_syslog.messages() : std::vector<CSyslogMessage>()) {
            std::cerr << "syslog " << m.priority << ": " << m.text << "\n";
        }
    }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    CLogTargetContainer m_container{m_dir.path(), false, nullptr};
};

// Makes this process controllable, as vexlorctl sees it.
const std::string CONTROL_LINE = "target = " VEXLOR_TEST_TARGET_CONTROL "\n";

using CCounters = std::map<std::string, unsigned long long>;

// What this process's control target reports for the target `name`, asked as vexlorctl stats asks
// it: each counter by its name ("written", "lost", ...).
inline CCounters statsOf(const std::string& name)
{
    for (const CTargetRow& row : targetRows(askProcess(getpid(), {"stats"}).lines)) {
        if (row.name == name) {
            return CCounters(row.counters.begin(), row.counters.end());
        }
    }
    return {};
}

// How often the thread named `name` has gone to sleep so far; -1 without such a thread.
inline long long sleepsOf(const std::string& name)
{
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (readFile(task.path() / "comm") == name + "\n") {
            const std::string status = readFile(task.path() / "status");
            return std::atoll(status.c_str() + status.find("\nvoluntary_ctxt_switches:") + 26);
        }
    }
    return -1;
}

// An idle thread sleeps until there is work: one that polled on a timer would wake within 1.5 s.
// The count is taken once the thread has settled (a last short wait after work is fine).
inline void expectSleepsWhileIdle(const std::string& name)
{
    long long before = sleepsOf(name);
    for (long long previous = -2; before != previous;) {
        previous = before;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        before = sleepsOf(name);
    }
    if (before < 0 && std::getenv("VEXLOR_TEST_EMULATOR") != nullptr) {
        GTEST_SKIP() << "no thread names in an emulated /proc";
    }
    ASSERT_GE(before, 0) << "no thread " << name;
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    EXPECT_EQ(before, sleepsOf(name)) << name;
}

// A fork child's first record starts a thread, which qemu-user 7.2 and ThreadSanitizer do not
// allow after a multithreaded fork: there the children of the fork tests only unload.
inline bool childMayStartThreads()
{
#ifdef __SANITIZE_THREAD__
    return false;
#else
    return std::getenv("VEXLOR_TEST_EMULATOR") == nullptr;
#endif
}
