// The built DLL as a file: what it exports and what it needs.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>

#include "support/host_library.h"

namespace {

// The image of the loaded DLL; its headers and tables lie in it as they do in the file.
class Image {
public:
    Image() : mBase(reinterpret_cast<const unsigned char*>(GetModuleHandleW(L"SonviaPCAudioDll.dll"))) {}

    bool loaded() const { return mBase != nullptr; }

    std::vector<std::string> exports() const {
        const auto* table = directory<IMAGE_EXPORT_DIRECTORY>(IMAGE_DIRECTORY_ENTRY_EXPORT);
        const auto* names = at<DWORD>(table->AddressOfNames);
        std::vector<std::string> found;
        for (DWORD i = 0; i < table->NumberOfNames; ++i) {
            found.emplace_back(at<char>(names[i]));
        }
        return found;
    }

    DWORD exportCount() const {
        return directory<IMAGE_EXPORT_DIRECTORY>(IMAGE_DIRECTORY_ENTRY_EXPORT)->NumberOfFunctions;
    }

    std::vector<std::string> importedModules() const {
        std::vector<std::string> found;
        const auto* entry = directory<IMAGE_IMPORT_DESCRIPTOR>(IMAGE_DIRECTORY_ENTRY_IMPORT);
        for (; entry->Name != 0; ++entry) {
            std::string name = at<char>(entry->Name);
            std::transform(name.begin(), name.end(), name.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            found.push_back(std::move(name));
        }
        return found;
    }

private:
    template <typename Type>
    const Type* at(DWORD offset) const {
        return reinterpret_cast<const Type*>(mBase + offset);
    }

    template <typename Type>
    const Type* directory(unsigned index) const {
        const auto* dos = at<IMAGE_DOS_HEADER>(0);
        const auto* headers = at<IMAGE_NT_HEADERS64>(static_cast<DWORD>(dos->e_lfanew));
        return at<Type>(headers->OptionalHeader.DataDirectory[index].VirtualAddress);
    }

    const unsigned char* mBase;
};

TEST(Module, ExportsExactlyTheEightFunctions) {
    support::hostApi();
    const Image image;
    ASSERT_TRUE(image.loaded());
    std::vector<std::string> names = image.exports();
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"exitAudioProjection", "getSourceName", "getState",
                                               "getVersion", "initSonviaAudioService", "setAccountID",
                                               "setParam", "uninitSonviaAudioService"}));
    EXPECT_EQ(image.exportCount(), 8U);
}

TEST(Module, NeedsOnlyLibrariesOfTheSystem) {
    support::hostApi();
    const Image image;
    ASSERT_TRUE(image.loaded());
    const std::vector<std::string> system = {
        "advapi32.dll", "iphlpapi.dll", "kernel32.dll", "msvcrt.dll", "ntdll.dll",   "ole32.dll", "psapi.dll",
        "shell32.dll",  "shlwapi.dll",  "ucrtbase.dll", "user32.dll", "userenv.dll", "ws2_32.dll"};
    for (const std::string& name : image.importedModules()) {
        const bool known = std::find(system.begin(), system.end(), name) != system.end() ||
                           name.rfind("api-ms-win-", 0) == 0;
        EXPECT_TRUE(known) << name;
    }
}

TEST(Module, NullPointerIsTheVersionForCallersThatExpectAPointer) {
    const auto version = reinterpret_cast<void* (*)()>(reinterpret_cast<void*>(support::hostApi().version));
    EXPECT_EQ(version(), nullptr);
}

} // namespace
