// The main instance's configured start: something other than a file at the configuration path
// neither blocks nor busies the library. (The watcher itself is tested on a container.)
#include <chrono>
#include <future>
#include <sys/stat.h>
#include <thread>

#include "CMainInstanceTest.h"
#include "runInChild.h"

namespace {

using ConfiguredStartTest = CMainInstanceTest;

// Reported once and treated as missing. A FIFO must not block the first call; files written
// inside the directory must not make the watcher spin (it used to re-read the same unreadable
// event for ever, with two syslog lines each time): count the lines, not the time.
TEST_F(ConfiguredStartTest, SomethingOtherThanAFileAtTheConfigurationPathIsReportedOnce)
{
    for (const bool fifo : {false, true}) {
        SCOPED_TRACE(fifo ? "FIFO" : "directory");
        // A process of its own for each, since the main instance starts once per process.
        EXPECT_EQ(0, runInChild([&] {
                      const std::string path = m_paths.defaultConfig();
                      removeTree(path);
                      if ((fifo ? mkfifo(path.c_str(), 0600) : mkdir(path.c_str(), 0700)) != 0) {
                          return 10;
                      }
                      auto first = std::async(std::launch::async, [] { return vexlor_get_component_level("net"); });
                      if (first.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
                          return 11;  // blocked in the open
                      }
                      for (int i = 0; !fifo && i < 20; ++i) {
                          writeFile(path + "/inside" + std::to_string(i), "x");
                      }
                      std::this_thread::sleep_for(std::chrono::milliseconds(fifo ? 0 : 300));
                      vexlor_set_applicationname("other");  // a second read of the same path
                      const int reports = m_syslog.countContaining("\" is not a regular file - treated as missing");
                      return reports == 1 && m_syslog.messages().size() < 12 ? 0 : 12;
                  }));
    }
}

}  // namespace
