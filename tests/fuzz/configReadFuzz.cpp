// Fuzzes the configuration read: the input is written as the configuration file and read the way
// the container reads it, with `target` lines split as the container splits them and `component`
// lines turned into masks; then the same file through the reader's table mode.
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <syslog.h>
#include <vexlor/cfread.h>

#include "config/CConfigRead.h"
#include "levels/CComponentRegistry.h"
#include "container/targetLine.h"

namespace {

std::string directory;

bool untrimmed(const std::string& text)
{
    return !text.empty() &&
        (std::isspace(static_cast<unsigned char>(text.front())) != 0 ||
         std::isspace(static_cast<unsigned char>(text.back())) != 0);
}

class CClient final : public IConfigReadClient, public IComponentCfgUpdateSink {
public:
    void lock() override { }
    void unlock() override { }
    bool sweepTargets() override { return false; }

    int onTargetLine(const std::string& key, const std::string& value) override
    {
        std::map<std::string, std::string> params;
        const std::string path = vx::parseTargetLine(value, "fuzz", params);
        if (key != "target" || untrimmed(value) || untrimmed(path) || params.count("application-name") != 1) {
            std::abort();
        }
        return 0;
    }

    int updateComponentLevel(const std::string& name, const std::string& bits) override
    {
        if (untrimmed(name) || bits.find_first_of(" \t\n\v\f\r") != std::string::npos) {
            std::abort();
        }
        mask ^= CComponentRegistry::maskFromBits(bits);
        return 0;
    }

    unsigned int mask = 0;
};

}  // namespace

// The read reports every entry at debug priority; a syslog line per entry would be most of the time.
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    setlogmask(LOG_UPTO(LOG_INFO));
    char pattern[] = "/tmp/vexlor-fuzz-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        std::abort();
    }
    directory = pattern;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string file = CConfigRead::defaultFile(directory);
    if (!(std::ofstream(file, std::ios::binary | std::ios::trunc)
              .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size)))) {
        std::abort();
    }
    CClient client;
    CConfigRead(client, &client).run(directory, "fuzz");

    if (cfread_handle* handle = cfread_open(file.c_str())) {
        cfread_find_entry(handle, "component");
        cfread_set_entry(handle, "target", "libvexlor-file.so, path=x");
        cfread_find_entry(handle, "target");
        cfread_close(handle);
    }
    return 0;
}
