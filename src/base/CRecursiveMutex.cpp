// Locking of CRecursiveMutex, kept out of line with its rare failure path.
#include "base/CRecursiveMutex.h"

#include <system_error>

void CRecursiveMutex::lock()
{
    const int rc = pthread_mutex_lock(&m_mutex);
    if (rc != 0) {
        throw std::system_error(rc, std::generic_category());
    }
}
