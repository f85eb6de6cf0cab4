#pragma once

#include "platform/critical_section.h"
#include "platform/semaphore.h"

namespace orvel::log4z {

using LockHelper = platform::CriticalSection;
using SemHelper = platform::Semaphore;

} // namespace orvel::log4z
