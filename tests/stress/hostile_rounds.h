// Fixture of the tests with services that do their worst: the same round over and over, each with a life of its own from
// initSonviaAudioService to uninitSonviaAudioService, and after each of them nothing that is left or still to come.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "support/process.h"
#include "support/service_fixture.h"
#include "support/wait.h"

namespace stress {

// What onError reports to the host, in one round.
enum class Reported { kNothing, kNeverConnected, kConnectionLost, kStreamError };

// Who ends the service.
enum class End { kItself, kLibrary };

// uninitSonviaAudioService must come back in this time: it gives the service a second to end, and the log three.
inline constexpr std::chrono::seconds kReleaseBound{30};

class HostileRounds : public support::ServiceTest {
protected:
    // Runs `round` `times` times. The first one loads what is loaded once; after it this process may not grow.
    void repeat(const std::string& what, int times, const std::function<void(int)>& round);
    void configure();
    // uninitSonviaAudioService, which must come back within `bound` at the latest, and what must be true after it.
    void release(Reported reported, End end, std::chrono::seconds bound = kReleaseBound);

private:
    void expectReported(Reported reported);
    void expectServiceGone(End end);

    std::vector<std::chrono::microseconds> mReleases; ///< how long each took
    std::size_t mEventsAtRelease = 0;
};

} // namespace stress
