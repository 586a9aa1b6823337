#include "basekit/qtPtr.h"

#include <mutex>

bool qtPtrBase::m_CountAux::s_singleThread = false;

qtPtrBase::m_CountAux::~m_CountAux() = default;

void qtPtrBase::m_CountAux::Take() {
    if (s_singleThread) {
        ++count;
        return;
    }
    const std::lock_guard<qtMutex> lock(mutex);
    ++count;
}

bool qtPtrBase::m_CountAux::Release() {
    if (s_singleThread) {
        return --count == 0;
    }
    const std::lock_guard<qtMutex> lock(mutex);
    return --count == 0;
}
