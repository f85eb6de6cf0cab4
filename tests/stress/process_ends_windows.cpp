#include <cstdlib>

#include <windows.h>

#include "stress/process_ends.h"

namespace stress {

std::map<std::string, std::function<void(int)>> processEnds() {
    return {{"exit", [](int code) { std::exit(code); }},
            {"_exit", [](int code) { std::_Exit(code); }},
            {"abort", [](int /*code*/) { std::abort(); }},
            {"system", [](int code) { ExitProcess(static_cast<UINT>(code)); }}};
}

} // namespace stress
