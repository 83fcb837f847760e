// Where each of the two CVexlor instances lives: built on first use, reachable by plug-ins while it
// is still being built, and replaced by a quiet stand-in once its destruction has begun.
#pragma once

#include <atomic>

#include "core/CVexlor.h"

class CInstanceSlot {
public:
    // Builds the instance; `constructingHere` is the thread-local that marks it meanwhile.
    CInstanceSlot(bool enableConfig, CVexlor*& constructingHere);
    ~CInstanceSlot() { m_gone.store(true, std::memory_order_release); }
    CInstanceSlot(const CInstanceSlot&) = delete;
    CInstanceSlot& operator=(const CInstanceSlot&) = delete;

    CVexlor* get() { return m_gone.load(std::memory_order_acquire) ? standIn() : &m_instance; }

    // Whether some thread is building an instance: only then may this thread be the one, and its
    // thread-local worth a look. The first configuration read loads plug-ins whose hooks and
    // targets may call the library: they must reach the instance under construction instead of
    // waiting for its construction to end.
    static bool anyUnderConstruction() { return ms_constructions.load(std::memory_order_relaxed) != 0; }

private:
    // Marks the instance for the constructing thread while its constructor runs. The count keeps
    // the thread-local lookup off the path of every later call.
    class CMark {
    public:
        CMark(CVexlor* instance, CVexlor*& constructingHere);
        ~CMark() { end(); }  // still active only when the construction threw
        CMark(const CMark&) = delete;
        CMark& operator=(const CMark&) = delete;
        void end();

    private:
        CVexlor*& m_here;
        bool m_active = true;
    };

    // What callers get once the instance is being destroyed: an instance without configuration
    // or targets, never destroyed, so that late calls neither crash nor log.
    static CVexlor* standIn();

    static std::atomic<int> ms_constructions;
    // Set in the destructor's body, before the instance is taken apart; trivially destructible,
    // so threads that still log while the process exits can read it.
    std::atomic<bool> m_gone{false};
    CMark m_mark;
    CVexlor m_instance;
};
