// Refuses the library single requests for memory, each of them once: every place in the code that asks, identified by its call
// stack, and how often it has asked in the same call. So no request is missed because a thread was quicker or slower this
// time, and what has been refused in one process is not refused again in the next one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace refused_memory {

// Which of the library's threads. Hosts' threads are the caller only while they are inside the library.
enum Role : std::size_t { kCaller, kLoop, kWriter, kRoles };

// Begins to watch the library's requests; the calling thread is the host's. `progress` is a file that says what has been
// refused, also by the processes before, and survives this one's end. `times` is how often one place is refused in one call.
void begin(const char* progress, int times);

// Adds a line to that file. Any thread; allocates nothing.
void note(const char* kind, const char* text);

// Threads that are seen first from now on.
void newThreadsAre(Role role);

// The calling thread is inside the library while this lives.
class LibraryCall {
public:
    LibraryCall();
    ~LibraryCall();
    LibraryCall(const LibraryCall&) = delete;
    LibraryCall& operator=(const LibraryCall&) = delete;
};

// The library's thread is in the host's code while this lives.
class HostCode {
public:
    HostCode();
    ~HostCode();
    HostCode(const HostCode&) = delete;
    HostCode& operator=(const HostCode&) = delete;

private:
    bool mWasInside;
};

// While this lives, the first request of that role's threads that was not refused yet in a phase of this name is refused;
// with more `requests` those after it too.
class Refusing {
public:
    Refusing(Role role, const char* phase, int requests = 1);
    ~Refusing();
    Refusing(const Refusing&) = delete;
    Refusing& operator=(const Refusing&) = delete;

    // Ends it; true when a request was refused.
    bool end();
    bool happened() const;

private:
    Role mRole;
};

// Counts the blocks that the library has.
void startRound();
// Those that it has more now, from the same place, one line each, but for those of `keptSize` bytes.
std::vector<std::string> blocksLeft(std::size_t keptSize);

// ---- The system's side (refused_memory_wrap.cpp, refused_memory_import.cpp) ----

constexpr int kMaxFrames = 24;

// Puts itself between the library and the allocator.
void install();
// The callers of the request under way, as offsets in the library, the nearest first.
int callers(std::uintptr_t* frames, int most);
// The function that ends the process when it is refused memory, and is under way; or null.
const char* endsTheProcess(const std::uintptr_t* frames, int count);

bool mayHaveMemory(std::size_t size);
void given(void* memory, std::size_t size);
void returned(void* memory);

} // namespace refused_memory
