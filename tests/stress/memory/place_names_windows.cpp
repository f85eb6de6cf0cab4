#include "stress/memory/place_names.h"

// The product has no symbols: the offsets, for a DLL that is linked again with them.
std::string placeNames(const std::string& /*program*/, const std::vector<std::string>& offsets) {
    std::string names = "   ";
    for (const std::string& offset : offsets) {
        names += " " + offset;
    }
    return names + "\n";
}
