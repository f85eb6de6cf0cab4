#include "picture.h"

#include <algorithm>
#include <cstdio>
#include <map>

namespace {

constexpr std::int64_t kPause = 50'000;
constexpr std::size_t kMostOfAKind = 6; // of more, the first three and the last one are shown
constexpr std::size_t kFirstOfAKind = 3;
constexpr std::size_t kTimeWidth = 12;
constexpr std::size_t kHostWidth = 56;
constexpr std::size_t kLongestText = 60;
constexpr const char* kLifelines = "│      │";

struct Style {
    const char* color;
    const char* sign;
};

Style styleOf(Lane lane) {
    switch (lane) {
    case Lane::Call:
        return {"\x1b[1m", "● "};
    case Lane::Event:
        return {"\x1b[33m", "◀ "};
    case Lane::ToService:
        return {"\x1b[36m", "├─────▶│ "};
    case Lane::ToHost:
        return {"\x1b[32m", "│◀─────┤ "};
    case Lane::Service:
        return {"\x1b[2m", "│      ● "};
    }
    return {"", ""};
}

bool isHosts(Lane lane) {
    return lane == Lane::Call || lane == Lane::Event;
}

/// How many columns a text fills: its bytes without those that continue a character.
std::size_t columns(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

std::string shortened(const std::string& text, std::size_t most) {
    if (columns(text) <= most) {
        return text;
    }
    std::string start;
    for (const char c : text) {
        start += c;
        if (columns(start) == most) {
            start.pop_back(); // the first byte of the character that is one too many
            break;
        }
    }
    return start + "…";
}

std::string padded(const std::string& text, std::size_t width) {
    const std::size_t used = columns(text);
    return text + std::string(used < width ? width - used : 0, ' ');
}

std::string line(const std::string& time, const std::string& host, const std::string& between) {
    return padded(time, kTimeWidth) + host + between + "\n";
}

std::string plainLine(const std::string& host) {
    return line("", padded(host, kHostWidth), kLifelines);
}

std::string seconds(std::int64_t microseconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%8.3f s", static_cast<double>(microseconds) / 1e6);
    return text;
}

std::string markLine(const Mark& mark, std::int64_t start, bool color) {
    const Style style = styleOf(mark.lane);
    const bool atHost = isHosts(mark.lane);
    const std::string text = style.sign + shortened(mark.text, atHost ? kHostWidth - 4 : kLongestText);
    const auto painted = [&](const std::string& plain) {
        return color ? style.color + plain + "\x1b[0m" : plain;
    };
    const std::string time = seconds(mark.at - start);
    return atHost ? line(time, painted(padded(text, kHostWidth)), kLifelines)
                  : line(time, std::string(kHostWidth, ' '), painted(text));
}

/// What becomes of a mark that is the `number`th of `count` of its kind.
bool isShown(std::size_t number, std::size_t count) {
    return count <= kMostOfAKind || number <= kFirstOfAKind || number == count;
}

} // namespace

std::string draw(std::vector<Mark> marks, bool color) {
    std::stable_sort(marks.begin(), marks.end(), [](const Mark& a, const Mark& b) { return a.at < b.at; });
    std::map<std::string, std::size_t> counts;
    for (const Mark& mark : marks) {
        ++counts[mark.kind];
    }
    std::string picture = line("", padded("host", kHostWidth - 3), "library service");
    std::map<std::string, std::size_t> numbers;
    std::int64_t last = marks.empty() ? 0 : marks.front().at;
    for (const Mark& mark : marks) {
        const std::size_t count = counts[mark.kind];
        const std::size_t number = ++numbers[mark.kind];
        if (!mark.kind.empty() && !isShown(number, count)) {
            if (number == kFirstOfAKind + 1) {
                picture +=
                    plainLine("⋮ " + std::to_string(count - kFirstOfAKind - 1) + " more: " + mark.kind);
            }
            continue;
        }
        if (mark.at - last >= kPause) {
            picture += plainLine("┊ " + std::to_string((mark.at - last) / 1000) + " ms");
        }
        last = mark.at;
        picture += markLine(mark, marks.front().at, color);
    }
    return picture;
}
