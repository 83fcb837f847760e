// The observer of a thread's configuration reads (see readFindings.h).
#include "config/readFindings.h"

namespace vx {
namespace {

thread_local IReadFindings* observer = nullptr;

}  // namespace

IReadFindings* observeReads(IReadFindings* newObserver)
{
    IReadFindings* const before = observer;
    observer = newObserver;
    return before;
}

void reportRead(EReadFinding kind, int line, const std::string& detail)
{
    if (observer != nullptr) {
        observer->found(kind, line, detail);
    }
}

}  // namespace vx
