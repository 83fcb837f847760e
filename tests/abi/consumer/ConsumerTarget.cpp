// A log target built against the installed SDK only: appends "<component>|<message>" for every
// record to the file named by its "file" parameter.
#include <cstdio>
#include <vexlor/vexlor_target.h>

namespace {

class CConsumerTarget final : public CLogTargetBase {
public:
    // The factory's cast to the parameters relies on the type information the library shares.
    explicit CConsumerTarget(const CLogTargetParameters& parameters)
        : CLogTargetBase(parameters, "consumer-file")
        , m_path(targetParameter(parameters, "file"))
    {
    }

    void log(int, int, long long, int, vexlor_level*, const std::string&, const std::string& componentName,
             const std::string&, const std::string& message) override
    {
        if (FILE* out = std::fopen(m_path.c_str(), "a")) {
            std::fprintf(out, "%s|%s\n", componentName.c_str(), message.c_str());
            std::fclose(out);
        }
    }

private:
    const std::string m_path;
};

}  // namespace

VEXLOR_TARGET_PLUGIN(CConsumerTarget)
