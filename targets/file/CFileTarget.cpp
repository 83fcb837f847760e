// The file target: appends every record as one tab-separated line to a file, flushed at once so
// that nothing is lost when the program dies. Fields: seconds.microseconds, pid, level number,
// thread, component, function, depth, message (tabs and line feeds in texts become spaces).
// Parameters: path=<file> (required), name=<target name> (default "file").
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vexlor/vexlor_target.h>

namespace {

// One record must stay one line.
void writeField(std::FILE* file, const std::string& text)
{
    for (const char c : text) {
        std::fputc(c == '\t' || c == '\n' || c == '\r' ? ' ' : c, file);
    }
}

std::FILE* openForAppending(const std::string& path)
{
    std::FILE* file = path.empty() ? nullptr : std::fopen(path.c_str(), "ae");
    if (file == nullptr) {
        throw std::runtime_error("file target: unable to open \"" + path + "\" - " +
                                 (path.empty() ? "no path= parameter given" : std::strerror(errno)));
    }
    return file;
}

class CFileTarget final : public CLogTargetBase {
public:
    explicit CFileTarget(const CLogTargetParameters& parameters)
        : CLogTargetBase(parameters, "file")
        , m_file(openForAppending(targetParameter(parameters, "path")))
    {
    }
    ~CFileTarget() override { std::fclose(m_file); }
    CFileTarget(const CFileTarget&) = delete;
    CFileTarget& operator=(const CFileTarget&) = delete;

    void log(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& message) override
    {
        std::fprintf(m_file, "%lld.%06d\t%d\t%u\t", seconds, microseconds, pid, level->numeric);
        writeField(m_file, threadName);
        std::fputc('\t', m_file);
        writeField(m_file, componentName);
        std::fputc('\t', m_file);
        writeField(m_file, functionName);
        std::fprintf(m_file, "\t%d\t", depth);
        writeField(m_file, message);
        std::fputc('\n', m_file);
        std::fflush(m_file);
    }

private:
    std::FILE* const m_file;
};

}  // namespace

VEXLOR_TARGET_PLUGIN(CFileTarget)
