// Permission checks of vexlor-check: the file and the directory that holds it.
#include "fileSafety.h"

#include <sys/stat.h>

namespace {

bool writableByAll(const std::string& path)
{
    struct stat status { };
    return stat(path.c_str(), &status) == 0 && (status.st_mode & S_IWOTH) != 0;
}

std::string directoryOf(const std::string& path)
{
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

std::string worldWritable(const std::string& path)
{
    if (writableByAll(path)) {
        return "\"" + path + "\" is world-writable";
    }
    const std::string directory = directoryOf(path);
    if (writableByAll(directory)) {
        return "it lies in the world-writable directory \"" + directory + "\"";
    }
    return std::string();
}
