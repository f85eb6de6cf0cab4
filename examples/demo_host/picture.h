#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Where something happened, from left to right: at the host, between library and service, at the service.
enum class Lane { Call, Event, ToService, ToHost, Service };

struct Mark {
    std::int64_t at = 0; ///< microseconds since 1970
    Lane lane = Lane::Call;
    std::string text;
    /// Marks of one kind are alike, so that a picture need not show all of them; empty: shown always.
    std::string kind;
};

/// All marks on one time axis, as lines of UTF-8 text. Long pauses are drawn as such; of many marks of a kind the first
/// ones and the last one are shown.
std::string draw(std::vector<Mark> marks, bool color);
