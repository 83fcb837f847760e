// A log target built against the installed SDK only: appends "<component>|<message>" for every
// record to the file named by its "file" parameter.
#include <cstdio>
#include <utility>
#include <vexlor/vexlor_target.h>

namespace {

class CFileTarget final : public ILogTarget {
public:
    explicit CFileTarget(std::string path) : m_path(std::move(path)) {}

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

class CFactory final : public IClassFactory {
public:
    IDynamicObject* createObject(const std::string&, IDynamicObjectCreationParams* params) override
    {
        // The cast relies on the type information the library shares with its plug-ins.
        auto* targetParams = dynamic_cast<CLogTargetParameters*>(params);
        return targetParams != nullptr ? new CFileTarget(targetParams->params["file"]) : nullptr;
    }
    void destroyObject(IDynamicObject* object) override { delete object; }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) IClassFactory* getClassFactory()
{
    static CFactory factory;
    return &factory;
}
