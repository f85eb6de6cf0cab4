// The timeline that --show prints: what came, what was sent, and by which line of the scenario.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

#include "oracle/packets.h"

namespace standin {

// `Notify #2  player-state 2, phone-name "Handset A"`. Bytes that no reader would make sense of are said to be there.
std::string described(const oracle::Packet& packet);

class Show {
public:
    struct Options {
        bool on = false;
        std::string file; // appended to; standard output when empty
        bool color = false;
    };

    explicit Show(const Options& options);
    ~Show();
    Show(const Show&) = delete;
    Show& operator=(const Show&) = delete;

    // `line` is the scenario's; 0: nothing in it caused this.
    void event(std::string_view text, std::size_t line = 0);
    void trouble(std::string_view text, std::size_t line = 0);
    void received(const oracle::Packet& packet);
    // Whatever bytes these are: packets are described, all else is counted. `dropped`: nobody was there to get them.
    void sent(const oracle::Bytes& bytes, std::size_t line, bool dropped);

private:
    void print(const char* color, const char* sign, std::string_view text, std::size_t line);

    std::FILE* mFile = nullptr;
    bool mOwnsFile = false;
    bool mColor = false;
    std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
};

} // namespace standin
