// The raises of this process (see temporaryRaises.h), under a lock of their own: the control
// thread sets and ends them, the thread that reads the configuration reports masks it set.
// Nothing calls into the library with the lock held, so it orders with no other.
#include "temporaryRaises.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <pthread.h>
#include <vexlor/vexlor.h>

#include "forkGeneration.h"

namespace temporaryRaises {
namespace {

struct CEntry {
    unsigned int raised;
    unsigned int restore;
    CClock::time_point due;
};

std::mutex g_mutex;
std::map<std::string, CEntry>* g_raises = new std::map<std::string, CEntry>;  // guarded; never freed:
// a target unloaded at exit may still report a mask

// The control thread may hold the lock across a fork: the child (which has no such thread) starts
// with a free one.
const bool g_forkHandled = pthread_atfork(nullptr, nullptr, [] { freeInForkChild(g_mutex); }) == 0;

}  // namespace

unsigned int restoreOf(const std::string& component, unsigned int current)
{
    std::lock_guard<std::mutex> guard(g_mutex);
    const auto found = g_raises->find(component);
    return found != g_raises->end() ? found->second.restore : current;
}

void add(const std::string& component, unsigned int restore, unsigned int raised, std::chrono::seconds duration)
{
    (void)g_forkHandled;
    std::lock_guard<std::mutex> guard(g_mutex);
    (*g_raises)[component] = CEntry{raised, restore, CClock::now() + duration};
}

void cancel(const std::string& component)
{
    std::lock_guard<std::mutex> guard(g_mutex);
    g_raises->erase(component);
}

void maskSet(const vexlor_component& component)
{
    std::lock_guard<std::mutex> guard(g_mutex);
    const auto found = g_raises->find(component.name);
    if (found != g_raises->end() && found->second.raised != component.level) {
        g_raises->erase(found);
    }
}

int msUntilDue()
{
    std::lock_guard<std::mutex> guard(g_mutex);
    if (g_raises->empty()) {
        return -1;
    }
    CClock::time_point first = CClock::time_point::max();
    for (const auto& entry : *g_raises) {
        first = std::min(first, entry.second.due);
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(first - CClock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 24LL * 3600 * 1000));
}

std::vector<CRaise> takeDue()
{
    std::vector<CRaise> due;
    const CClock::time_point now = CClock::now();
    std::lock_guard<std::mutex> guard(g_mutex);
    for (auto entry = g_raises->begin(); entry != g_raises->end();) {
        if (entry->second.due <= now) {
            due.push_back({entry->first, entry->second.raised, entry->second.restore, entry->second.due});
            entry = g_raises->erase(entry);
        } else {
            ++entry;
        }
    }
    return due;
}

std::vector<CRaise> pending()
{
    std::vector<CRaise> raises;
    std::lock_guard<std::mutex> guard(g_mutex);
    for (const auto& [component, entry] : *g_raises) {
        raises.push_back({component, entry.raised, entry.restore, entry.due});
    }
    return raises;
}

}  // namespace temporaryRaises
