// The level store: a list that owns every level record, guarded for appends by a plain mutex.
#include "levels/levelStore.h"

#include <list>
#include <pthread.h>
#include <system_error>

#include "base/forkSafety.h"

namespace vx {

namespace {

pthread_mutex_t storeMutex = PTHREAD_MUTEX_INITIALIZER;

// A std::list never moves its elements, so handed-out pointers stay valid. Built on first use so
// that levels can be created from any static initialiser; destroyed at library finalisation.
std::list<vexlor_level>& store()
{
    static std::list<vexlor_level> levels;
    static const bool forkSafe = (registerForkLock(&storeMutex, LockRank::LEVEL_STORE, false), true);
    (void)forkSafe;
    return levels;
}

}  // namespace

vexlor_level* allocLevel(unsigned int numeric, unsigned int mask)
{
    std::list<vexlor_level>& levels = store();
    const int rc = pthread_mutex_lock(&storeMutex);
    if (rc != 0) {
        throw std::system_error(rc, std::generic_category());
    }
    try {
        levels.push_back(vexlor_level{numeric, mask});
    } catch (...) {
        pthread_mutex_unlock(&storeMutex);
        throw;
    }
    vexlor_level* record = &levels.back();
    pthread_mutex_unlock(&storeMutex);
    return record;
}

vexlor_level* createLevel(unsigned int numeric) { return allocLevel(numeric, numeric < 32 ? 1u << numeric : 0u); }

}  // namespace vx
