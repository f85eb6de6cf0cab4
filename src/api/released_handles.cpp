#include "api/released_handles.h"

#include <array>
#include <atomic>
#include <cstddef>

namespace {

constexpr std::size_t kKept = 32;

constinit std::array<std::atomic<AudioServiceHandle*>, kKept> kept = {};
constinit std::atomic<std::size_t> next{0};

} // namespace

void keepReleased(std::unique_ptr<AudioServiceHandle> handle) noexcept {
    delete kept[next.fetch_add(1) % kKept].exchange(handle.release());
}
