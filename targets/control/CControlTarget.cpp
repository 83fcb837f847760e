// The control target: makes the program visible to vexlorctl, which lists it and shows and
// sets its components' masks from outside. It writes no records (log costs one empty call).
// It starts one thread, which sleeps on the control socket until someone connects. Only the
// program's own user and root are served: any other user is refused at connection, before a
// byte is read, with one syslog message per user. The thread serves up to 16 connections at once
// without blocking on any, each within 2 s for the whole exchange. When another process holds
// the socket's name, the target listens on a fallback name (see controlProtocol.h) and says so
// once in syslog. A mask set from outside lasts until the next configuration read that names the
// component, or, set for a while, until the thread restores the mask it replaced when the time is
// over (the thread sleeps until then; nothing wakes it while no raise is pending). The thread ends when the target is unloaded and at process exit; a fork child
// closes its copy of the socket and is not controllable itself.
// Parameters: name=<target name> (default "control").
#include <vexlor/vexlor_target.h>

#include "CControlServer.h"
#include "createTarget.h"
#include "temporaryRaises.h"

namespace {

class CControlTarget final : public CLogTargetBase {
public:
    static constexpr const char* KIND = "control";

    explicit CControlTarget(const CLogTargetParameters& parameters)
        : CLogTargetBase(parameters, KIND)
    {
    }

    void log(int, int, long long, int, vexlor_level*, const std::string&, const std::string&, const std::string&,
             const std::string&) override
    {
    }

    // A mask the configuration set ends a raise of the component (see temporaryRaises.h).
    void onComponentAdded(vexlor_component* component) override { temporaryRaises::maskSet(*component); }

private:
    CControlServer m_server;
};

}  // namespace

VEXLOR_SHIPPED_TARGET(CControlTarget)
