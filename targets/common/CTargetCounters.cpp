// The live targets of this plug-in library and the function through which the control target
// reads their counters (see targetStats.h).
#include "CTargetCounters.h"

#include <mutex>
#include <pthread.h>

#include "forkGeneration.h"
#include "targetStats.h"

namespace {

// Targets register and unregister under the library's lock; the control thread reads the list
// from outside it. The lock is a leaf: nothing else is taken while it is held. Both are plain
// data with nothing to destroy, so a target unloaded at exit after this library's static
// destructors ran still finds them.
std::mutex g_mutex;
CTargetCounters* g_first = nullptr;  // guarded by g_mutex

// The control thread may hold the lock across a fork: the child starts with a free one.
const bool g_forkHandled = pthread_atfork(nullptr, nullptr, [] { freeInForkChild(g_mutex); }) == 0;

}  // namespace

struct CTargetCounters::CAccess {
    static void visit(vexlor_target_visit_v1 visit, void* context)
    {
        std::lock_guard<std::mutex> guard(g_mutex);
        for (const CTargetCounters* target = g_first; target != nullptr; target = target->m_next) {
            vexlor_stats_counter_v1 counters[OWN + MAX_OWN];
            for (std::size_t i = 0; i < target->m_count; ++i) {
                counters[i] = {target->m_names[i], target->m_values[i].load(std::memory_order_relaxed)};
            }
            const vexlor_stats_target_v1 stats{target->m_kind, target->m_name.c_str(), target->m_state.c_str(),
                                               static_cast<unsigned>(target->m_count), counters};
            visit(&stats, context);
        }
    }
};

extern "C" __attribute__((visibility("default"))) void vexlor_target_stats_v1(vexlor_target_visit_v1 visit,
                                                                              void* context)
{
    CTargetCounters::CAccess::visit(visit, context);
}

CTargetCounters::CTargetCounters(const char* kind, std::string name, std::initializer_list<const char*> own)
    : m_kind(kind)
    , m_name(std::move(name))
{
    for (const char* counter : own) {
        if (m_count < OWN + MAX_OWN) {
            m_names[m_count++] = counter;
        }
    }
    (void)g_forkHandled;
    std::lock_guard<std::mutex> guard(g_mutex);
    m_next = g_first;
    if (m_next != nullptr) {
        m_next->m_previous = this;
    }
    g_first = this;
}

CTargetCounters::~CTargetCounters()
{
    std::lock_guard<std::mutex> guard(g_mutex);
    (m_previous != nullptr ? m_previous->m_next : g_first) = m_next;
    if (m_next != nullptr) {
        m_next->m_previous = m_previous;
    }
}

void CTargetCounters::setState(const std::string& state)
{
    std::lock_guard<std::mutex> guard(g_mutex);
    m_state = state;
}
