// taskkill [/f] [/t] /im NAME: ends every process of that image name by force; with /t its descendants too.
//
// The Wine of Debian 12 brings a taskkill that ignores /t. This one does what Windows' own does for these
// switches, in the same words and with the same exit codes, and nothing else.
#include <cstdio>
#include <string>
#include <vector>

#include "process_tree.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitUsage = 1;
constexpr int kExitNotEnded = 1;
constexpr int kExitNotFound = 128;
// New matches may appear while the first ones are being ended; something that restarts forever is left
// alone.
constexpr int kMaxRounds = 10;

struct Options {
    std::wstring image;
    bool tree = false;
    bool valid = true;
};

bool isSwitch(const std::wstring& word, const wchar_t* name) {
    return word.size() > 1 && (word[0] == L'/' || word[0] == L'-') &&
           taskkill::sameImage(word.substr(1), name);
}

Options parse(int argc, wchar_t** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::wstring word = argv[i];
        if (isSwitch(word, L"t")) {
            options.tree = true;
        } else if (isSwitch(word, L"im") && i + 1 < argc) {
            options.image = argv[++i];
        } else if (!isSwitch(word, L"f")) {
            options.valid = false;
        }
    }
    options.valid = options.valid && !options.image.empty();
    return options;
}

// Ends what is there and looks again, until a round finds nothing new.
int endAll(const Options& options) {
    std::vector<taskkill::Process> ended;
    bool failed = false;
    for (int round = 0; round < kMaxRounds; ++round) {
        const std::vector<taskkill::Process> found =
            selectTrees(taskkill::listProcesses(), options.image, options.tree, ended);
        bool progress = false;
        failed = false;
        for (const taskkill::Process& process : found) {
            if (terminate(process)) {
                std::printf("SUCCESS: The process \"%ls\" with PID %lu has been terminated.\n",
                            process.image.c_str(), static_cast<unsigned long>(process.pid));
                ended.push_back(process);
                progress = true;
            } else {
                failed = true;
            }
        }
        if (!progress) {
            break;
        }
    }
    if (ended.empty() && !failed) {
        std::fprintf(stderr, "ERROR: The process \"%ls\" not found.\n", options.image.c_str());
        return kExitNotFound;
    }
    if (failed) {
        std::fprintf(stderr, "ERROR: A process \"%ls\" could not be terminated.\n", options.image.c_str());
        return kExitNotEnded;
    }
    return kExitOk;
}

} // namespace

int wmain(int argc, wchar_t** argv) {
    const Options options = parse(argc, argv);
    if (!options.valid) {
        std::fprintf(stderr, "ERROR: Invalid syntax.\nUsage: taskkill [/f] [/t] /im NAME\n");
        return kExitUsage;
    }
    return endAll(options);
}
