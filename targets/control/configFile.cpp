// The configuration file in force and whether a watch holds it (see configFile.h). An inotify
// watch holds an inode, not a name: the kernel lists each watch of an inotify descriptor with the
// inode's number and device in /proc/self/fdinfo. A file renamed over the watched one is another
// inode, and the watch of a removed inode is gone, also when a new file got the same number; so
// the watch is followed exactly as long as the kernel lists the inode now at the path.
#include "configFile.h"

#include <cstdio>
#include <dirent.h>
#include <fstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <vexlor/vexlor.h>

#include "controlProtocol.h"

namespace {

// The device number as the kernel prints it (major in the bits from 20 on), not as stat gives it.
unsigned long kernelDevice(dev_t device)
{
    return static_cast<unsigned long>(major(device)) << 20 | static_cast<unsigned long>(minor(device));
}

bool isInotify(const std::string& descriptor)
{
    char target[32];
    const ssize_t length = readlink(("/proc/self/fd/" + descriptor).c_str(), target, sizeof target - 1);
    return length > 0 && std::string(target, static_cast<std::size_t>(length)) == "anon_inode:inotify";
}

// "inotify wd:1 ino:2a0c31 sdev:800001 mask:208 ignored_mask:0 ...", one line per watch.
bool watches(const std::string& descriptor, unsigned long long inode, unsigned long device)
{
    std::ifstream info("/proc/self/fdinfo/" + descriptor);
    for (std::string line; std::getline(info, line);) {
        unsigned long long watchedInode = 0;
        unsigned long watchedDevice = 0;
        if (std::sscanf(line.c_str(), "inotify wd:%*x ino:%llx sdev:%lx", &watchedInode, &watchedDevice) == 2 &&
            watchedInode == inode && watchedDevice == device) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string configFileInForce(const std::string& appname)
{
    const std::string perApplication = std::string(VEXLOR_CONFIG_DIR) + "/vexlor-" + appname + ".cfg";
    return !appname.empty() && access(perApplication.c_str(), F_OK) == 0
        ? perApplication
        : std::string(VEXLOR_CONFIG_DIR) + "/vexlor.cfg";
}

EConfigState configState(const std::string& path)
{
    struct stat file;
    if (stat(path.c_str(), &file) != 0) {
        return EConfigState::MISSING;
    }
    DIR* descriptors = opendir("/proc/self/fd");
    bool followed = false;
    for (dirent* entry; !followed && descriptors != nullptr && (entry = readdir(descriptors)) != nullptr;) {
        followed = entry->d_name[0] != '.' && isInotify(entry->d_name) &&
            watches(entry->d_name, static_cast<unsigned long long>(file.st_ino), kernelDevice(file.st_dev));
    }
    if (descriptors != nullptr) {
        closedir(descriptors);
    }
    return followed ? EConfigState::FOLLOWED : EConfigState::NOT_FOLLOWED;
}

std::string configLine()
{
    const std::string path = configFileInForce(vexlor_get_application_name());
    const EConfigState state = configState(path);
    return vexlor_control::joinFields({"config", path,
                                       state == EConfigState::FOLLOWED      ? "followed"
                                           : state == EConfigState::MISSING ? "missing"
                                                                            : "not-followed"});
}
