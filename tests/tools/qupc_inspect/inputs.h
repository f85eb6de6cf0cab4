// What the tests of the inspector read.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "capture.h"
#include "items.h"

inline std::vector<inspect::Chunk> chunksOf(const std::string& text,
                                            inspect::CaptureReader::Options options = {}) {
    std::istringstream in(text);
    inspect::CaptureReader reader(in, "input", options);
    std::vector<inspect::Chunk> chunks;
    for (inspect::Chunk chunk; reader.next(chunk);) {
        chunks.push_back(chunk);
    }
    return chunks;
}

struct Key {
    oracle::Block key = {};
    oracle::Block start = {};
};

inline std::vector<inspect::Item> itemsOf(const std::string& text, const Key* key = nullptr,
                                          inspect::CaptureReader::Options options = {}) {
    std::istringstream in(text);
    inspect::CaptureReader reader(in, "input", options);
    inspect::ItemReader source(reader);
    if (key != nullptr) {
        source.open(key->key, key->start);
    }
    std::vector<inspect::Item> items;
    for (inspect::Item item; source.next(item);) {
        items.push_back(item);
    }
    return items;
}

/// What was wrong with the input; empty when nothing was.
template <class Read>
std::string mistakeOf(const Read& read) {
    try {
        read();
    } catch (const inspect::InputError& error) {
        return error.what();
    }
    return "";
}
