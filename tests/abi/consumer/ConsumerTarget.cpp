// A log target built against the installed SDK only: appends "<component>|<message>" for every
// record to the file named by its "file" parameter.
#include <cstdio>
#include <utility>
#include <vexlor/vexlor_target.h>

namespace {

class CFileTarget final : public ILogTarget {
public:
    explicit CFileTarget(std::string path) : m_path(std::move(path)) {}
    // The factory's cast to the parameters relies on the type information the library shares.
    static ILogTarget* create(const CLogTargetParameters& parameters)
    {
        return new CFileTarget(targetParameter(parameters, "file"));
    }

    void log(int, int, long long, int, vexlor_level*, const std::string&, const std::string& componentName,
             const std::string&, const std::string& message) override
    {
        if (FILE* out = std::fopen(m_path.c_str(), "a")) {
            std::fprintf(out, "%s|%s\n", componentName.c_str(), message.c_str());
            std::fclose(out);
        }
    }
    void onComponentAdded(vexlor_component*) override {}
    std::string getName() override { return "consumer-file"; }
    int isSyslogTarget() override { return 0; }
    void setAppname(const std::string&) override {}

private:
    std::string m_path;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) IClassFactory* getClassFactory()
{
    static CLogTargetFactory<CFileTarget> factory;
    return &factory;
}
