// A log target that does nothing: what the benchmark's emitted calls are delivered to.
#include <vexlor/vexlor_target.h>

namespace {

class CNullTarget final : public ILogTarget {
public:
    void log(int, int, long long, int, vexlor_level*, const std::string&, const std::string&, const std::string&,
             const std::string&) override
    {
    }
    void onComponentAdded(vexlor_component*) override {}
    std::string getName() override { return "null"; }
    int isSyslogTarget() override { return 0; }
    void setAppname(const std::string&) override {}
};

class CNullFactory final : public IClassFactory {
public:
    IDynamicObject* createObject(const std::string&, IDynamicObjectCreationParams*) override { return new CNullTarget; }
    void destroyObject(IDynamicObject* object) override { delete object; }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) IClassFactory* getClassFactory()
{
    static CNullFactory factory;
    return &factory;
}
