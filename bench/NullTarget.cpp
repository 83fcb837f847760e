// A log target that does nothing: what the benchmark's emitted calls are delivered to.
#include <vexlor/vexlor_target.h>

namespace {

class CNullTarget final : public CLogTargetBase {
public:
    explicit CNullTarget(const CLogTargetParameters& parameters)
        : CLogTargetBase(parameters, "null")
    {
    }
    void log(int, int, long long, int, vexlor_level*, const std::string&, const std::string&, const std::string&,
             const std::string&) override
    {
    }
};

}  // namespace

VEXLOR_TARGET_PLUGIN(CNullTarget)
