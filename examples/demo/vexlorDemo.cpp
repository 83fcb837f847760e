// A tour of vexlor while it runs: two threads log through two components; the demo rewrites its
// own configuration file four times, and the change of levels and targets shows on screen: the
// console target colours by level, the file target rotates its small file.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vexlor/vexlor.h>

namespace {

const std::string CONFIG_FILE = std::string(VEXLOR_DEMO_CONFIG_DIR) + "/vexlor.cfg";
const std::string RECORD_FILE = std::string(VEXLOR_DEMO_CONFIG_DIR) + "/records.log";
const std::string CONSOLE_TARGET = "target = " VEXLOR_DEMO_CONSOLE_TARGET ", pattern=%t %l %c [%T] %i%F%m\n";
const std::string FILE_TARGET =
    "target = " VEXLOR_DEMO_FILE_TARGET ", path=" + RECORD_FILE + ", max-size=1K, max-files=3\n";

void narrate(const std::string& text)
{
    std::printf("\n==> %s\n", text.c_str());
    std::fflush(stdout);
}

// Rewritten in place (open, write, close): the library's watcher sees the file closed.
void writeConfig(const std::string& comment, const std::string& body)
{
    std::ofstream(CONFIG_FILE, std::ios::trunc) << "#" << comment << "\n" << body;
    narrate("rewrote " + CONFIG_FILE + ": " + comment);
}

std::string lastLine(const std::string& path)
{
    std::ifstream in(path);
    std::string last;
    for (std::string line; std::getline(in, line);) {
        last = line;
    }
    return last;
}

// The record file and its rotated predecessors, with their sizes.
std::string recordFiles()
{
    std::string list;
    for (const std::string& path : {RECORD_FILE, RECORD_FILE + ".1", RECORD_FILE + ".2", RECORD_FILE + ".3"}) {
        std::error_code missing;
        const auto size = std::filesystem::file_size(path, missing);
        if (!missing) {
            list += "\n    " + path + " (" + std::to_string(size) + " bytes)";
        }
    }
    return list;
}

void readBlock(vexlor_component* storage, int block)
{
    vexlor_enter_function(storage, "readBlock");
    vexlor(storage, VX_INFO, "reading block %d", block);
    const char data[] = "vexlor demo block";
    vexlor_dump(storage, VX_DEBUG, data, sizeof data);
    vexlor_leave_function(storage);
}

void storageWorker(std::atomic<bool>& stop)
{
    vexlor_component* storage = vexlor_create_component("storage", nullptr, "6=info,7=debug");
    vexlor_init(storage, "worker");
    for (int block = 0; !stop; ++block) {
        readBlock(storage, block);
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
    }
    vexlor_done(storage);
}

void phase(vexlor_component* net, int seconds)
{
    for (int tick = 0; tick < seconds * 2; ++tick) {
        vexlor_enter_function(net, "poll");
        vexlor(net, VX_WARN, "link quality %d%%", 60 + tick);
        vexlor(net, VX_DEBUG, "retransmits: %d", tick % 3);
        vexlor_leave_function(net);
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
}

}  // namespace

int main()
{
    std::filesystem::create_directories(VEXLOR_DEMO_CONFIG_DIR);
    for (const char* suffix : {"", ".1", ".2", ".3"}) {
        std::filesystem::remove(RECORD_FILE + suffix);
    }
    writeConfig("phase 1: the console target, coloured by level; net up to warnings, storage up to info",
                CONSOLE_TARGET + "component = net, 11111\ncomponent = storage, 1111111\n");

    // The first call reads the configuration and starts the watcher.
    vexlor_component* net = vexlor_create_component("net", nullptr, "4=warn,7=debug,8=trace");
    vexlor_set_applicationname("vexlor-demo");
    vexlor_init(net, "main");
    std::atomic<bool> stop{false};
    std::thread worker(storageWorker, std::ref(stop));
    phase(net, 3);

    writeConfig("phase 2: net also logs debug and function entry/exit; storage quiet",
                CONSOLE_TARGET + "component = net, 1 1111 1111\ncomponent = storage, 0\n");
    phase(net, 3);

    writeConfig("phase 3: the file target writes every record too, rotating at 1 KiB (max-size=1K)",
                CONSOLE_TARGET + FILE_TARGET + "component = net, 11111\ncomponent = storage, 11111111\n");
    phase(net, 3);
    narrate("the record file so far:" + recordFiles());

    writeConfig("phase 4: the console target is unloaded; records go to the file only",
                FILE_TARGET + "component = net, 111111111\ncomponent = storage, 11111111\n");
    phase(net, 2);
    narrate("the screen stayed quiet; the file went on rotating, keeping three old files (max-files=3):" +
            recordFiles() + "\n    its last line: " + lastLine(RECORD_FILE));

    stop = true;
    worker.join();
    vexlor_done(net);
    narrate("done. Edit " + CONFIG_FILE + " while a program runs to change it the same way.");
    return 0;
}
