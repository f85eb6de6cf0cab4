#include "platform/critical_section.h"

#include <windows.h>

#include <new>

namespace platform {

namespace {

CRITICAL_SECTION* section(unsigned char* storage) {
    return std::launder(reinterpret_cast<CRITICAL_SECTION*>(storage));
}

/// Spins first: these locks are held for less time than a switch to another thread takes.
constexpr DWORD kSpins = 400;

} // namespace

CriticalSection::CriticalSection() {
    static_assert(sizeof(CRITICAL_SECTION) <= sizeof mLock);
    InitializeCriticalSectionAndSpinCount(new (mLock) CRITICAL_SECTION, kSpins);
}

CriticalSection::~CriticalSection() {
    DeleteCriticalSection(section(mLock));
}

void CriticalSection::lock() {
    EnterCriticalSection(section(mLock));
}

void CriticalSection::unlock() {
    LeaveCriticalSection(section(mLock));
}

} // namespace platform
