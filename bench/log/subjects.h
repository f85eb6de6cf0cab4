#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// The two lines that are compared: what a player writes most, and one of about 120 characters.
enum class Line { Short, Long };

inline constexpr char kTag[] = "Sonvia_PCAudioMessage";
inline constexpr char kFunction[] = "QuPCAudioMessage::handlePlayerState";
inline constexpr char kShortFormat[] = "[%s:%d]Player state is %d.";
inline constexpr char kLongFormat[] =
    "[%s:%d]Player state is %d, phone %s, buffered %d ms of %d ms, mode %d.";
inline constexpr char kPhone[] = "Galaxy S23 of Anna";

/// The message alone, as a peer is fed with it; returns its length.
int formatMessage(char* out, std::size_t size, Line line, int number);

/// The whole line as in a file, with a given time: the lower bound for every logger.
int formatWholeLine(char* out, std::size_t size, Line line, int number);

/// A logger under test that writes to a folder of its own, empty at first, in files of 2 MB.
class Subject {
public:
    virtual ~Subject() = default;
    virtual void write(Line line, int number) = 0;

    /// Returns when all that was written is in the files.
    virtual void drain() = 0;
};

using SubjectFactory = std::unique_ptr<Subject> (*)(const std::string& folder);

std::unique_ptr<Subject> makeOurs(const std::string& folder);
std::unique_ptr<Subject> makeSpdlogAsync(const std::string& folder);
std::unique_ptr<Subject> makeSpdlogSync(const std::string& folder);
#ifdef SONVIA_BENCH_GLOG
std::unique_ptr<Subject> makeGlog(const std::string& folder);
#endif

/// The lines with "Player state is" in all files of a folder and its sub-folders.
std::uint64_t countLines(const std::string& folder);

/// An empty folder for one run, within the given one if that exists, else where temporary files go.
std::string freshFolder(const std::string& within = "");
