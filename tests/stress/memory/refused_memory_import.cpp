// The allocator's functions are in the table of what the DLL imports from the C runtime: there each is exchanged for one
// of these. The runtime's own requests, and those of the test's program, never come here.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <malloc.h>
#include <sstream>
#include <stdexcept>
#include <string>

#include <windows.h>

#include "stress/memory/refused_memory.h"
#include "support/process.h"

namespace refused_memory {

namespace {

std::uintptr_t gStart = 0;
std::uintptr_t gEnd = 0;

void* give(void* memory, std::size_t size) {
    given(memory, size);
    return memory;
}

void* failingMalloc(std::size_t size) {
    return mayHaveMemory(size) ? give(std::malloc(size), size) : nullptr;
}

void* failingCalloc(std::size_t count, std::size_t size) {
    return mayHaveMemory(count * size) ? give(std::calloc(count, size), count * size) : nullptr;
}

void* failingRealloc(void* memory, std::size_t size) {
    if (!mayHaveMemory(size)) {
        return nullptr;
    }
    returned(memory);
    return give(std::realloc(memory, size), size);
}

void watchedFree(void* memory) {
    returned(memory);
    std::free(memory);
}

void* failingAlignedMalloc(std::size_t size, std::size_t alignment) {
    return mayHaveMemory(size) ? give(_aligned_malloc(size, alignment), size) : nullptr;
}

void watchedAlignedFree(void* memory) {
    returned(memory);
    _aligned_free(memory);
}

struct Exchange {
    const char* name;
    void* with;
};

const Exchange kExchanges[] = {{"malloc", reinterpret_cast<void*>(failingMalloc)},
                               {"calloc", reinterpret_cast<void*>(failingCalloc)},
                               {"realloc", reinterpret_cast<void*>(failingRealloc)},
                               {"free", reinterpret_cast<void*>(watchedFree)},
                               {"_aligned_malloc", reinterpret_cast<void*>(failingAlignedMalloc)},
                               {"_aligned_free", reinterpret_cast<void*>(watchedAlignedFree)}};

template <typename T>
T* at(std::uintptr_t offset) {
    return reinterpret_cast<T*>(gStart + offset);
}

void exchange(IMAGE_THUNK_DATA* entry, void* with) {
    DWORD before = 0;
    VirtualProtect(entry, sizeof *entry, PAGE_READWRITE, &before);
    entry->u1.Function = reinterpret_cast<std::uintptr_t>(with);
    VirtualProtect(entry, sizeof *entry, before, &before);
}

// Both tables run side by side: the names, and the addresses that the loader has put in.
int exchangeAll(const IMAGE_IMPORT_DESCRIPTOR& module) {
    int exchanged = 0;
    const auto* name = at<IMAGE_THUNK_DATA>(module.OriginalFirstThunk);
    auto* address = at<IMAGE_THUNK_DATA>(module.FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++address) {
        if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) {
            continue;
        }
        for (const Exchange& one : kExchanges) {
            if (std::strcmp(one.name, at<IMAGE_IMPORT_BY_NAME>(name->u1.AddressOfData)->Name) == 0) {
                exchange(address, one.with);
                ++exchanged;
            }
        }
    }
    return exchanged;
}

// What the compiler's runtime ends the process in (docs/limits.md): the guards of its function-local statics, which ask
// once for a process and once for each thread.
struct Fatal {
    const char* name;
    std::uintptr_t start = 0;
    std::uintptr_t end = 0;
};

Fatal gFatal[] = {{"__cxa_guard_acquire"}, {"__cxa_guard_release"}};

// The linker's list of the DLL's functions: the product itself names only what it exports.
void findFatal(std::uintptr_t imageBase) {
    std::ifstream map(support::programFolder() / "SonviaPCAudioDll.map");
    Fatal* open = nullptr;
    std::size_t found = 0;
    for (std::string line; std::getline(map, line);) {
        std::istringstream words(line);
        std::string address;
        std::string name;
        if (line.empty() || line.front() != ' ' || !(words >> address >> name) ||
            address.rfind("0x", 0) != 0) {
            continue;
        }
        const std::uintptr_t offset = std::stoull(address, nullptr, 16) - imageBase;
        if (open != nullptr && offset > open->start) {
            open->end = offset;
            open = nullptr;
        }
        for (Fatal& fatal : gFatal) {
            if (name == fatal.name && fatal.start == 0) {
                fatal.start = offset;
                open = &fatal;
                ++found;
            }
        }
    }
    if (found != std::size(gFatal)) {
        throw std::runtime_error("the linker's map does not name what is to be spared");
    }
}

// Where the linker has put the DLL; the loader has exchanged it in memory.
std::uintptr_t preferredBase() {
    wchar_t path[1024] = {};
    GetModuleFileNameW(GetModuleHandleW(L"SonviaPCAudioDll.dll"), path, 1024);
    std::ifstream file(std::filesystem::path(path), std::ios::binary);
    IMAGE_DOS_HEADER dos{};
    IMAGE_NT_HEADERS headers{};
    file.read(reinterpret_cast<char*>(&dos), sizeof dos);
    file.seekg(dos.e_lfanew);
    file.read(reinterpret_cast<char*>(&headers), sizeof headers);
    return headers.OptionalHeader.ImageBase;
}

// Where a debugger is set up for programs that crash, it would take its time.
LONG WINAPI endAtOnce(EXCEPTION_POINTERS* what) {
    TerminateProcess(GetCurrentProcess(), what->ExceptionRecord->ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

} // namespace

void install() {
    SetUnhandledExceptionFilter(endAtOnce);
    gStart = reinterpret_cast<std::uintptr_t>(GetModuleHandleW(L"SonviaPCAudioDll.dll"));
    const auto* header = at<IMAGE_NT_HEADERS>(static_cast<std::uintptr_t>(at<IMAGE_DOS_HEADER>(0)->e_lfanew));
    gEnd = gStart + header->OptionalHeader.SizeOfImage;
    findFatal(preferredBase());
    int exchanged = 0;
    for (const auto* module = at<IMAGE_IMPORT_DESCRIPTOR>(
             header->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress);
         module->Name != 0; ++module) {
        exchanged += exchangeAll(*module);
    }
    if (exchanged < 4) {
        throw std::runtime_error("the DLL imports only " + std::to_string(exchanged) +
                                 " of the allocator's functions");
    }
}

int callers(std::uintptr_t* frames, int most) {
    void* addresses[kMaxFrames + 16] = {};
    const int all = RtlCaptureStackBackTrace(0, kMaxFrames + 16, addresses, nullptr);
    int count = 0;
    for (int i = 0; i < all && count < most; ++i) {
        const auto address = reinterpret_cast<std::uintptr_t>(addresses[i]);
        if (address >= gStart && address < gEnd) {
            frames[count++] = address - gStart;
        }
    }
    return count;
}

const char* endsTheProcess(const std::uintptr_t* frames, int count) {
    for (const Fatal& fatal : gFatal) {
        for (int i = 0; i < count; ++i) {
            if (fatal.start != 0 && frames[i] > fatal.start && frames[i] <= fatal.end) {
                return fatal.name;
            }
        }
    }
    return nullptr;
}

} // namespace refused_memory
