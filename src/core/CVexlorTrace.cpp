// Function entry and exit tracing. The bookkeeping happens whether or not the record passes the
// filter, so records at other levels always carry the innermost function and the depth.
#include "core/CVexlor.h"

void CVexlor::enterFunction(vexlor_component* component, const char* functionName)
{
    CThreadData& self = thread_data;
    // Build the copy first: a null name throws before anything changed.
    self.functionNames.push_front(std::string(functionName));
    vexlor(component, VX_ENTERLEAVE, "entering");
    ++self.depth;
}

void CVexlor::leaveFunction(vexlor_component* component)
{
    CThreadData& self = thread_data;
    // Depth first, name last: "leaving" carries the same name and depth as "entering" did.
    --self.depth;
    vexlor(component, VX_ENTERLEAVE, "leaving");
    if (!self.functionNames.empty()) {
        self.functionNames.pop_front();
    }
}
