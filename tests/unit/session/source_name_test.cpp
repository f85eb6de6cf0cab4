#include "session/source_name.h"
#include "support/heap.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

TEST(SourceName, IsNullUntilANameIsSet) {
    SourceName name;
    EXPECT_EQ(name.get(), nullptr);
    name.set("Handset A");
    EXPECT_STREQ(name.get(), "Handset A");
}

TEST(SourceName, IsNullAgainAfterAnEmptyName) {
    SourceName name;
    name.set("Handset A");
    name.set("");
    EXPECT_EQ(name.get(), nullptr);
}

TEST(SourceName, IsNullForANameThatBeginsWithAZeroByte) {
    SourceName name;
    name.set(std::string("\0A", 2));
    EXPECT_EQ(name.get(), nullptr);
}

TEST(SourceName, TheSameNameIsReturnedAtTheSameAddress) {
    SourceName name;
    name.set("Handset A");
    const char* first = name.get();
    EXPECT_EQ(name.get(), first);
}

TEST(SourceName, ATextStaysReadableWhenAnotherNameArrives) {
    SourceName name;
    name.set("Handset A");
    const char* text = name.get();
    name.set("Handset B, with a text that is long enough to need memory of its own");
    name.set("");
    EXPECT_STREQ(text, "Handset A");
}

TEST(SourceName, ReadersOnDifferentThreadsDoNotEndEachOthersTexts) {
    SourceName name;
    name.set("one");
    const char* here = name.get();
    name.set("two");
    std::thread([&name] { EXPECT_STREQ(name.get(), "two"); }).join();
    EXPECT_STREQ(here, "one");
    EXPECT_STREQ(name.get(), "two");
}

TEST(SourceName, TheLast64ReadersKeepTheirTexts) {
    SourceName name;
    std::vector<const char*> texts;
    std::vector<std::thread> threads;
    std::atomic<std::size_t> turn{0};
    std::atomic<bool> done{false};
    // All alive at once, so that no two have the same thread id.
    for (std::size_t reader = 0; reader < SourceName::kMaxReaders; ++reader) {
        threads.emplace_back([&, reader] {
            while (turn.load() != reader) {
                std::this_thread::yield();
            }
            name.set("name " + std::to_string(reader));
            texts.push_back(name.get());
            turn = reader + 1;
            while (!done.load()) {
                std::this_thread::yield();
            }
        });
    }
    while (turn.load() != SourceName::kMaxReaders) {
        std::this_thread::yield();
    }
    name.set("the last");
    for (std::size_t reader = 0; reader < texts.size(); ++reader) {
        EXPECT_EQ(texts[reader], "name " + std::to_string(reader));
    }
    EXPECT_STREQ(name.get(),
                 "the last"); // this reader takes the place of the one that has not read for longest
    for (std::size_t reader = 1; reader < texts.size(); ++reader) {
        EXPECT_EQ(texts[reader], "name " + std::to_string(reader));
    }
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(SourceName, NoMoreThan64TextsAreKeptHoweverManyReadersHaveAsked) {
    constexpr std::size_t kSize = 1000000; // far more than what a sanitizer keeps of a thread that has ended
    SourceName name;
    const std::size_t before = support::heapInUse();
    for (int reader = 0; reader < 100; ++reader) {
        std::thread([&name, reader] {
            name.set(std::string(kSize, static_cast<char>('a' + reader % 26)));
            EXPECT_NE(name.get(), nullptr);
        }).join();
    }
    EXPECT_LT(support::heapInUse(), before + (SourceName::kMaxReaders + 2) * kSize);
}

TEST(SourceName, ReadersNeverReadFreedTextWhileThousandsOfNamesArrive) {
    SourceName name;
    std::atomic<bool> done{false};
    std::atomic<int> started{0};
    std::atomic<bool> allWell{true};
    const auto read = [&] {
        bool first = true;
        while (!done.load() || first) {
            const char* text = name.get();
            if (text != nullptr) {
                // Every name is one letter, repeated: a torn or replaced text would show another one.
                for (std::size_t index = 0, length = std::strlen(text); index < length; ++index) {
                    if (text[index] != text[0]) {
                        allWell = false;
                    }
                }
            }
            if (first) {
                ++started;
                first = false;
            }
        }
    };
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 4; ++reader) {
        readers.emplace_back(read);
    }
    while (started.load() != 4) {
        std::this_thread::yield();
    }
    for (int round = 0; round < 5000; ++round) {
        name.set(std::string(static_cast<std::size_t>(round % 300), static_cast<char>('a' + round % 26)));
    }
    done = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_TRUE(allWell.load());
}
