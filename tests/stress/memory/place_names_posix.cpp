#include "stress/memory/place_names.h"

#include <array>
#include <cstdio>
#include <memory>

std::string placeNames(const std::string& program, const std::vector<std::string>& offsets) {
    std::string command = "addr2line -Cfspe '" + program + "'";
    for (const std::string& offset : offsets) {
        command += " 0x" + offset;
    }
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(popen((command + " 2>&1").c_str(), "r"),
                                                                 pclose);
    std::string names;
    std::array<char, 1024> line = {};
    while (output != nullptr && std::fgets(line.data(), line.size(), output.get()) != nullptr) {
        const std::string text = line.data();
        // What the standard library does in between says nothing.
        if (text.rfind("std::", 0) != 0 && text.rfind(" (inlined by) std::", 0) != 0 &&
            text.find("refused_memory") == std::string::npos) {
            names += "    " + text;
        }
    }
    return names;
}
