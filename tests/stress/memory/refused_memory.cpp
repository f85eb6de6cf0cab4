#include "stress/memory/refused_memory.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace refused_memory {

namespace {

// Nothing in here may ask for memory: fixed tables under a lock that spins.
class SpinLock {
public:
    void lock() {
        while (mFlag.test_and_set(std::memory_order_acquire)) {
        }
    }

    void unlock() { mFlag.clear(std::memory_order_release); }

private:
    std::atomic_flag mFlag = ATOMIC_FLAG_INIT;
};

class Locked {
public:
    explicit Locked(SpinLock& lock) : mLock(lock) { mLock.lock(); }

    ~Locked() { mLock.unlock(); }

    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

private:
    SpinLock& mLock;
};

struct Stack {
    std::array<std::uintptr_t, kMaxFrames> frames;
    int count = 0;
};

struct Block {
    std::uintptr_t hidden = 0; // the address turned over, so that no leak check takes this table for an owner
    std::size_t size = 0;
    std::uint64_t origin = 0; // its nearest callers
    Stack stack;
};

struct Times {
    std::uint64_t place = 0;
    int times = 0;
};

struct Phase {
    bool armed = false;
    bool refused = false;
    int left = 0; // requests to refuse
    const char* name = "";
    int times = 0; // different places
    std::array<Times, 2048> seen;
};

constexpr std::size_t kBlocks = std::size_t{1} << 15U;
constexpr std::size_t kMaxDone = 8192;
constexpr int kMaxOrigins = 4096;
constexpr int kNearest = 5; // callers that show where a block comes from

SpinLock gLock;
std::atomic<bool> gWatching{false};
std::atomic<Role> gNewThreads{kWriter};
std::array<Phase, kRoles> gPhases;
std::array<std::uint64_t, kMaxDone> gDone;
std::size_t gDoneCount = 0;
std::array<Block, kBlocks> gBlocks;
std::size_t gBlockCount = 0;
std::array<Times, kMaxOrigins> gOrigins; // blocks that there were when the round began
int gOriginCount = 0;
int gMostTimes = 1;
std::FILE* gProgress = nullptr;

thread_local Role tRole = kRoles;
thread_local bool tInside = false;
thread_local bool tBusy = false; // in here: what the stack walk asks for is not the library's

std::uint64_t mix(std::uint64_t hash, std::uint64_t value) {
    hash ^= value + 0x9E3779B97F4A7C15U + (hash << 6U) + (hash >> 2U);
    return hash * 0xBF58476D1CE4E5B9U;
}

std::uint64_t hashOf(const Stack& stack, int frames = kMaxFrames) {
    std::uint64_t hash = 1;
    for (int i = 0; i < std::min(stack.count, frames); ++i) {
        hash = mix(hash, stack.frames[static_cast<std::size_t>(i)]);
    }
    return hash;
}

std::uint64_t hashOf(const char* text) {
    std::uint64_t hash = 2;
    for (; *text != '\0'; ++text) {
        hash = mix(hash, static_cast<unsigned char>(*text));
    }
    return hash;
}

void writeOut(const char* text, std::size_t length) {
    std::fwrite(text, 1, length, gProgress);
}

// The role of the calling thread while it is inside the library; kRoles when it is not.
Role insideAs() {
    if (tRole == kRoles) {
        tRole = gNewThreads.load();
        tInside = true;
    }
    return tInside ? tRole : kRoles;
}

// How often this place has asked in this phase, this time included.
int countPlace(Phase& phase, std::uint64_t place) {
    for (int i = 0; i < phase.times; ++i) {
        Times& seen = phase.seen[static_cast<std::size_t>(i)];
        if (seen.place == place) {
            return ++seen.times;
        }
    }
    if (phase.times < static_cast<int>(phase.seen.size())) {
        phase.seen[static_cast<std::size_t>(phase.times++)] = {place, 1};
    }
    return 1;
}

int& blocksOf(std::uint64_t origin) {
    for (int i = 0; i < gOriginCount; ++i) {
        if (gOrigins[static_cast<std::size_t>(i)].place == origin) {
            return gOrigins[static_cast<std::size_t>(i)].times;
        }
    }
    gOriginCount = std::min(gOriginCount + 1, kMaxOrigins - 1);
    Times& added = gOrigins[static_cast<std::size_t>(gOriginCount - 1)];
    added = {origin, 0};
    return added.times;
}

bool isDone(std::uint64_t key) {
    return std::find(gDone.begin(), gDone.begin() + static_cast<std::ptrdiff_t>(gDoneCount), key) !=
           gDone.begin() + static_cast<std::ptrdiff_t>(gDoneCount);
}

void tell(const char* kind, const char* phase, std::uint64_t key, std::size_t size, const Stack& stack) {
    std::array<char, 768> line = {};
    int length = std::snprintf(line.data(), line.size(), "%s %s %" PRIx64 " %zu", kind, phase, key, size);
    for (int i = 0; i < stack.count; ++i) {
        length += std::snprintf(line.data() + length, line.size() - static_cast<std::size_t>(length),
                                " %" PRIxPTR, stack.frames[static_cast<std::size_t>(i)]);
    }
    line[static_cast<std::size_t>(length++)] = '\n';
    writeOut(line.data(), static_cast<std::size_t>(length));
}

Stack walk() {
    Stack stack;
    tBusy = true;
    stack.count = callers(stack.frames.data(), kMaxFrames);
    tBusy = false;
    return stack;
}

std::size_t slotOf(std::uintptr_t hidden) {
    return static_cast<std::size_t>(mix(3, hidden)) % kBlocks;
}

} // namespace

void begin(const char* progress, int times) {
    std::ifstream before(progress);
    for (std::string line; std::getline(before, line);) {
        std::istringstream words(line);
        std::string kind;
        std::string phase;
        std::uint64_t key = 0;
        words >> kind >> phase >> std::hex >> key;
        if ((kind == "refused" || kind == "spared") && gDoneCount < kMaxDone) {
            gDone[gDoneCount++] = key;
        }
    }
    gProgress = std::fopen(progress, "ab");
    if (gProgress == nullptr) {
        throw std::runtime_error("cannot write what is refused");
    }
    std::setvbuf(gProgress, nullptr, _IONBF, 0); // on the disk at once, whatever becomes of this process
    gMostTimes = times;
    tRole = kCaller;
    walk(); // the first one loads what it needs
    install();
    gWatching = true;
}

void note(const char* kind, const char* text) {
    std::array<char, 768> line = {};
    const int length = std::snprintf(line.data(), line.size() - 1, "%s %s", kind, text);
    const std::size_t used = std::min(static_cast<std::size_t>(length), line.size() - 2);
    line[used] = '\n';
    writeOut(line.data(), used + 1);
}

void newThreadsAre(Role role) {
    gNewThreads = role;
}

LibraryCall::LibraryCall() {
    tInside = true;
}

LibraryCall::~LibraryCall() {
    tInside = false;
}

HostCode::HostCode() : mWasInside(insideAs() != kRoles) {
    tInside = false;
}

HostCode::~HostCode() {
    tInside = mWasInside;
}

Refusing::Refusing(Role role, const char* phase, int requests) : mRole(role) {
    const Locked locked(gLock);
    Phase& own = gPhases[role];
    own.name = phase;
    own.times = 0;
    own.refused = false;
    own.left = requests;
    own.armed = true;
}

Refusing::~Refusing() {
    end();
}

bool Refusing::end() {
    const Locked locked(gLock);
    gPhases[mRole].armed = false;
    return gPhases[mRole].refused;
}

bool Refusing::happened() const {
    const Locked locked(gLock);
    return gPhases[mRole].refused;
}

void startRound() {
    const Locked locked(gLock);
    gOriginCount = 0;
    for (const Block& block : gBlocks) {
        if (block.hidden != 0) {
            ++blocksOf(block.origin);
        }
    }
}

std::vector<std::string> blocksLeft(std::size_t keptSize) {
    const HostCode host;
    std::vector<Block> left;
    left.reserve(4096);
    {
        const Locked locked(gLock);
        const std::array<Times, kMaxOrigins> before = gOrigins;
        const int count = gOriginCount;
        for (const Block& block : gBlocks) {
            // One for one may have been exchanged: a longer text, a newer callback.
            if (block.hidden != 0 && block.size != keptSize && --blocksOf(block.origin) < 0 &&
                left.size() < left.capacity()) {
                left.push_back(block);
            }
        }
        gOrigins = before;
        gOriginCount = count;
    }
    std::vector<std::string> lines;
    for (const Block& block : left) {
        std::ostringstream line;
        line << block.size << std::hex;
        for (int i = 0; i < block.stack.count; ++i) {
            line << ' ' << block.stack.frames[static_cast<std::size_t>(i)];
        }
        lines.push_back(line.str());
    }
    return lines;
}

bool mayHaveMemory(std::size_t size) {
    if (!gWatching || tBusy) {
        return true;
    }
    const Role role = insideAs();
    if (role == kRoles) {
        return true;
    }
    {
        const Locked locked(gLock);
        const Phase& phase = gPhases[role];
        if (!phase.armed || phase.left == 0) {
            return true;
        }
    }
    const Stack stack = walk();
    const Locked locked(gLock);
    Phase& phase = gPhases[role];
    if (!phase.armed || phase.left == 0) {
        return true;
    }
    const std::uint64_t place = mix(hashOf(stack), hashOf(phase.name));
    const int times = countPlace(phase, place);
    const std::uint64_t key = mix(place, static_cast<std::uint64_t>(times));
    if (times > gMostTimes || isDone(key) || gDoneCount == kMaxDone) {
        return true;
    }
    gDone[gDoneCount++] = key;
    const char* fatal = endsTheProcess(stack.frames.data(), stack.count);
    if (fatal != nullptr) {
        tell("spared", fatal, key, size, stack);
        return true;
    }
    phase.refused = true;
    --phase.left;
    tell("refused", phase.name, key, size, stack);
    return false;
}

void given(void* memory, std::size_t size) {
    if (!gWatching || tBusy || memory == nullptr || insideAs() == kRoles) {
        return;
    }
    const Stack stack = walk();
    const Locked locked(gLock);
    if (gBlockCount > kBlocks / 2) {
        return;
    }
    const std::uintptr_t hidden = ~reinterpret_cast<std::uintptr_t>(memory);
    std::size_t at = slotOf(hidden);
    while (gBlocks[at].hidden != 0 && gBlocks[at].hidden != hidden) {
        at = (at + 1) % kBlocks;
    }
    gBlockCount += gBlocks[at].hidden == 0 ? 1U : 0U;
    gBlocks[at] = {hidden, size, hashOf(stack, kNearest), stack};
}

void returned(void* memory) {
    if (!gWatching || memory == nullptr) {
        return;
    }
    const Locked locked(gLock);
    const std::uintptr_t hidden = ~reinterpret_cast<std::uintptr_t>(memory);
    std::size_t at = slotOf(hidden);
    while (gBlocks[at].hidden != 0 && gBlocks[at].hidden != hidden) {
        at = (at + 1) % kBlocks;
    }
    if (gBlocks[at].hidden == 0) {
        return;
    }
    --gBlockCount;
    // What comes after the gap moves up, so that every block is found from its own slot on.
    std::size_t gap = at;
    for (std::size_t next = (gap + 1) % kBlocks; gBlocks[next].hidden != 0; next = (next + 1) % kBlocks) {
        const std::size_t home = slotOf(gBlocks[next].hidden);
        if ((next - home) % kBlocks >= (next - gap) % kBlocks) {
            gBlocks[gap] = gBlocks[next];
            gap = next;
        }
    }
    gBlocks[gap].hidden = 0;
}

} // namespace refused_memory
