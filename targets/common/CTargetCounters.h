// What a shipped target counts, from its creation to its unload: records written (or sent),
// dropped because a queue was full, lost to a fault, suppressed by rate=, and what only it does
// (rotations, reconnects). Also its state: what failed while a fault lasts. The control target
// reads them from its own thread (see targetStats.h), so each is an atomic that writers add to
// with relaxed order: a count guards no other data.
#pragma once

#include <atomic>
#include <cstddef>
#include <initializer_list>
#include <string>

class CTargetCounters {
public:
    enum ECounter : unsigned { WRITTEN, DROPPED, LOST, SUPPRESSED, OWN };  // OWN: the first of the target's own
    static constexpr std::size_t MAX_OWN = 4;

    // Registers the target for the control target. `kind` and the names in `own` are static
    // texts ("file"; "rotations", "reopens"), at most MAX_OWN of them, counted as OWN, OWN + 1...
    CTargetCounters(const char* kind, std::string name, std::initializer_list<const char*> own = {});
    ~CTargetCounters();  // unregisters
    CTargetCounters(const CTargetCounters&) = delete;
    CTargetCounters& operator=(const CTargetCounters&) = delete;

    void add(unsigned counter, unsigned long long records = 1)
    {
        m_values[counter].fetch_add(records, std::memory_order_relaxed);
    }
    unsigned long long value(unsigned counter) const { return m_values[counter].load(std::memory_order_relaxed); }
    // What failed ("write failed: No space left on device"), or empty once it works again.
    void setState(const std::string& state);

    struct CAccess;  // the list of live targets (CTargetCounters.cpp)

private:
    const char* const m_kind;
    const std::string m_name;
    const char* m_names[OWN + MAX_OWN] = {"written", "dropped", "lost", "suppressed"};
    std::size_t m_count = OWN;
    std::atomic<unsigned long long> m_values[OWN + MAX_OWN] = {};
    std::string m_state;  // guarded by the list's lock, like the two links
    CTargetCounters* m_previous = nullptr;
    CTargetCounters* m_next = nullptr;
};
