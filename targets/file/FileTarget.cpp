// The file target: appends every record as one tab-separated line to a file, flushed at once so
// that nothing is lost when the program dies. Fields: seconds.microseconds, pid, level number,
// thread, component, function, depth, message (tabs and line feeds in texts become spaces).
// Parameters: path=<file> (required), name=<target name> (default "file").
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <syslog.h>
#include <vexlor/vexlor_target.h>

namespace {

// One record must stay one line.
void writeField(std::FILE* file, const std::string& text)
{
    for (const char c : text) {
        std::fputc(c == '\t' || c == '\n' || c == '\r' ? ' ' : c, file);
    }
}

class CFileTarget final : public ILogTarget {
public:
    CFileTarget(std::string name, std::FILE* file) : m_name(std::move(name)), m_file(file) {}
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

    // Without a file to write there is no target; the library reports the failed creation.
    static ILogTarget* create(const CLogTargetParameters& parameters)
    {
        const std::string path = targetParameter(parameters, "path");
        std::FILE* file = path.empty() ? nullptr : std::fopen(path.c_str(), "ae");
        if (file == nullptr) {
            syslog(LOG_ERR, "file target: unable to open \"%s\" - %s", path.c_str(),
                   path.empty() ? "no path= parameter given" : std::strerror(errno));
            return nullptr;
        }
        const std::string name = targetParameter(parameters, "name");
        auto* target = new (std::nothrow) CFileTarget(name.empty() ? "file" : name, file);
        if (target == nullptr) {
            std::fclose(file);
        }
        return target;
    }

    void onComponentAdded(vexlor_component*) override {}
    std::string getName() override { return m_name; }
    int isSyslogTarget() override { return 0; }
    void setAppname(const std::string&) override {}

private:
    const std::string m_name;
    std::FILE* const m_file;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) IClassFactory* getClassFactory()
{
    static CLogTargetFactory<CFileTarget> factory;
    return &factory;
}
