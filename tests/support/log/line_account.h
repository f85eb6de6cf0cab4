// Where every line of a test has gone: numbered lines are looked for in the files that are there, and in those that the
// log has removed.
#pragma once

#include "log/manager.h"
#include "support/log/memory_files.h"

#include <map>
#include <string>
#include <vector>

namespace support {

/// Pushes a line with that number and, in hundreds of bytes, about that size; false when it was refused.
bool pushNumbered(orvel::log4z::LogerManager& manager, int id, int number, int size = 1);

/// The numbers of the whole lines in a text, in their order.
std::vector<int> numbersIn(const std::string& text);

/// The text of an archive's only member; nothing when the archive is not whole.
std::string unpackedText(const std::string& archive);

struct LineAccount {
    std::map<int, int> times; ///< how often each number was found
    bool inOrder = true;      ///< in each file
    bool namesInOrder = true; ///< from each file to that with the next name too
    bool archivesHold = true; ///< what was packed and removed is in its archive

    bool found(int number) const { return times.count(number) != 0; }

    bool onceEach() const;
};

/// Looks through the logs of the loggers whose files' names hold `namePart`. The disk must keep what is removed.
LineAccount accountFor(const MemoryFiles& disk, const std::string& namePart);

} // namespace support
