// The instances' lifetime (see CInstanceSlot.h).
#include "core/CInstanceSlot.h"

std::atomic<int> CInstanceSlot::ms_constructions{0};

CInstanceSlot::CInstanceSlot(bool enableConfig, CVexlor*& constructingHere)
    : m_mark(&m_instance, constructingHere)
    , m_instance(enableConfig)
{
    m_mark.end();
}

CInstanceSlot::CMark::CMark(CVexlor* instance, CVexlor*& constructingHere)
    : m_here(constructingHere)
{
    m_here = instance;
    ms_constructions.fetch_add(1);
}

void CInstanceSlot::CMark::end()
{
    // Only while the constructing thread is still in the constructor: the thread-local is that
    // thread's, and it may be gone later.
    if (m_active) {
        m_active = false;
        m_here = nullptr;
        ms_constructions.fetch_sub(1);
    }
}

CVexlor* CInstanceSlot::standIn()
{
    static CVexlor* const quiet = new CVexlor(false);
    return quiet;
}
