// The control target: makes the program visible to vexlorctl, which lists it and shows and
// sets its components' masks from outside. It writes no records (log costs one empty call).
// It starts one thread, which sleeps on the control socket until someone connects. Only the
// program's own user and root are served: any other user is refused at connection, before a
// byte is read, with one syslog message per user. The thread serves up to 16 connections at once
// without blocking on any, each within 2 s for the whole exchange. When another process holds
// the socket's name, the target listens on a fallback name (see controlProtocol.h) and says so
// once in syslog. A mask set from outside lasts until the next configuration read that names the
// component. The thread ends when the target is unloaded and at process exit; a fork child
// closes its copy of the socket and is not controllable itself.
// Parameters: name=<target name> (default "control").
#include <vexlor/vexlor_target.h>

#include "CControlServer.h"

namespace {

class CControlTarget final : public CLogTargetBase {
public:
    explicit CControlTarget(const CLogTargetParameters& parameters)
        : CLogTargetBase(parameters, "control")
    {
    }

    void log(int, int, long long, int, vexlor_level*, const std::string&, const std::string&, const std::string&,
             const std::string&) override
    {
    }

private:
    CControlServer m_server;
};

}  // namespace

VEXLOR_TARGET_PLUGIN(CControlTarget)
