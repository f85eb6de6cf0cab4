// Packs what a support case needs into one zip: the logs, the library's version and a masked capture.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <miniz.h>
#include <windows.h>

#include "mask.h"

namespace {

namespace fs = std::filesystem;

constexpr int kExitInput = 2;
constexpr int kExitUsage = 3;

struct Options {
    std::string logs;
    std::string library = "SonviaPCAudioDll.dll";
    std::string capture;
    std::string out = "support.zip";
};

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error(path.string() + " cannot be read");
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

class Zip {
public:
    Zip() {
        if (mz_zip_writer_init_heap(&mArchive, 0, 0) == MZ_FALSE) {
            throw std::bad_alloc();
        }
    }

    ~Zip() { mz_zip_writer_end(&mArchive); }

    Zip(const Zip&) = delete;
    Zip& operator=(const Zip&) = delete;

    void add(const std::string& name, const std::string& content) {
        if (mz_zip_writer_add_mem(&mArchive, name.c_str(), content.data(), content.size(),
                                  MZ_BEST_COMPRESSION) == MZ_FALSE) {
            throw std::runtime_error(name + " cannot be packed");
        }
        std::cout << fmt::format("{} ({} bytes)\n", name, content.size());
    }

    void write(const fs::path& path) {
        void* bytes = nullptr;
        std::size_t size = 0;
        if (mz_zip_writer_finalize_heap_archive(&mArchive, &bytes, &size) == MZ_FALSE) {
            throw std::bad_alloc();
        }
        std::ofstream file(path, std::ios::binary);
        file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
        mz_free(bytes);
        if (!file.flush()) {
            throw std::runtime_error(path.string() + " cannot be written");
        }
    }

private:
    mz_zip_archive mArchive{};
};

/// What the library's version resource says.
std::string versions(const fs::path& library) {
    DWORD unused = 0;
    std::string data(GetFileVersionInfoSizeW(library.c_str(), &unused), '\0');
    VS_FIXEDFILEINFO* file = nullptr;
    UINT size = 0;
    if (data.empty() ||
        GetFileVersionInfoW(library.c_str(), 0, static_cast<DWORD>(data.size()), data.data()) == 0 ||
        VerQueryValueW(data.data(), L"\\", reinterpret_cast<void**>(&file), &size) == 0) {
        throw std::runtime_error(library.string() + " has no version");
    }
    return fmt::format("{} {}.{}.{}.{}, {} bytes\n", library.filename().string(),
                       HIWORD(file->dwFileVersionMS), LOWORD(file->dwFileVersionMS),
                       HIWORD(file->dwFileVersionLS), LOWORD(file->dwFileVersionLS), fs::file_size(library));
}

std::string maskedCapture(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error(path.string() + " cannot be read");
    }
    std::string masked;
    for (std::string line; std::getline(file, line);) {
        masked += bundle::maskedLine(line);
    }
    return masked;
}

void addLogs(Zip& zip, const fs::path& folder) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        const std::string suffix = entry.path().extension().string();
        if (entry.is_regular_file() && (suffix == ".log" || suffix == ".zip")) {
            zip.add("logs/" + fs::relative(entry.path(), folder).generic_string(), contentOf(entry.path()));
        }
    }
}

void pack(const Options& options) {
    Zip zip;
    zip.add("version.txt", versions(options.library));
    addLogs(zip, options.logs);
    if (!options.capture.empty()) {
        zip.add("capture.jsonl", maskedCapture(options.capture));
    }
    zip.write(options.out);
    std::cout << options.out << "\n";
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("Packs the logs, the library's version and a masked capture into one zip.",
                 "support-bundle");
    app.footer(
        "Exit codes: 0 done; 2 something cannot be read or written; 3 the command line has a mistake.");
    app.add_option("--logs", options.logs, "folder that initSonviaAudioService was given")
        ->required()
        ->check(CLI::ExistingDirectory);
    app.add_option("--library", options.library, "the DLL that the host loads")->capture_default_str();
    app.add_option("--capture", options.capture,
                   "what the tap or the stand-in recorded; its texts are masked");
    app.add_option("--out", options.out, "the zip")->capture_default_str();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kExitUsage;
    }
    try {
        pack(options);
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return kExitInput;
    }
    return 0;
}
