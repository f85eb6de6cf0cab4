#pragma once

#include "log/log_record.h"

#include <cstdint>

namespace orvel::log4z {

/// The logging engine as its users see it. A logger id is valid from 0 to the last one made; operations that take an
/// id fail (false, 0 or -1) when it is not.
///
/// Thread: any, for every operation but `config`, `start` and `stop`, which are the owner's. The setters change a
/// logger at once while the engine is stopped; while it runs they are queued and take effect in order with the lines.
/// They return false for an invalid id, a text of 8192 bytes or more, and an allocation failure. A null text is an
/// empty one.
class ILog4zManager {
public:
    virtual ~ILog4zManager() = default;

    /// Loads a configuration file; may be called once. False when it cannot be read.
    virtual bool config(const char* configFile) = 0;

    /// Applies a configuration text. False when a logger it names cannot be created; the rest is applied.
    virtual bool configFromText(const char* text) = 0;

    /// Creates a logger, or finds the one with that key. Returns: its id; -1 for a null key or when all are in use.
    virtual int createLogger(const char* key) = 0;

    /// Starts the writer thread and waits up to 3 s until it runs. False when it was started already or cannot be
    /// created. The standard output reports a thread that could not be created or did not start in that time.
    virtual bool start() = 0;

    /// Writes all queued lines, waits without limit for the writer thread to end, and frees the pooled records. False
    /// when it does not run.
    virtual bool stop() = 0;

    /// The id of the logger that `createLogger` created for this key; -1 when there is none.
    virtual int findLogger(const char* key) = 0;

    /// Whether a line of that level would be written. Blocks: up to 100 ms while more than 20000 records wait.
    virtual bool wouldLog(int id, int level) = 0;

    /// Passes a record to the writer; the manager owns it afterwards, even when it refuses it (false). file: the source
    /// file that the line ends with, together with its line number; null for none.
    virtual bool pushLog(LogRecord* record, const char* file, int line) = 0;

    virtual bool enableLogger(int id, bool enable) = 0;
    virtual bool setLoggerName(int id, const char* name) = 0;

    /// A "/" is appended when the path does not end in a separator. Null keeps the folder in force.
    virtual bool setLoggerPath(int id, const char* path) = 0;
    virtual bool setLoggerVersion(int id, const char* version) = 0;
    virtual bool setLoggerLevel(int id, int level) = 0;
    virtual bool setLoggerFileLine(int id, bool fileline) = 0;
    virtual bool setLoggerDisplay(int id, bool display) = 0;
    virtual bool setLoggerOutFile(int id, bool outfile) = 0;

    /// Megabytes of one file; 0 for no limit.
    virtual bool setLoggerLimitsize(int id, std::uint32_t megabytes) = 0;

    /// Megabytes of all files together; 0 for no limit.
    virtual bool setLoggerTotalsize(int id, std::uint32_t megabytes) = 0;

    /// Whether each file goes to a folder named after its month.
    virtual bool setLoggerMonthdir(int id, bool monthdir) = 0;

    /// Seconds for which old files are kept; 0 and negative numbers keep them for good.
    virtual bool setLoggerReserveTime(int id, std::int64_t seconds) = 0;
    virtual bool setLoggerZip(int id, bool isZip) = 0;

    /// A ReserveDelType; 4 and more count as "size-or-Time".
    virtual bool setLoggerReserveDelType(int id, std::int32_t type) = 0;

    /// The writer thread checks whether the configuration file has changed every so many seconds; 0 for never.
    virtual bool setConfigCheckInterval(std::uint32_t seconds) = 0;

    /// Applies the configuration file again if its content has changed. False when it cannot be read.
    virtual bool updateConfig() = 0;

    virtual bool isLoggerEnabled(int id) = 0;
    virtual std::uint64_t totalLinesWritten() = 0;
    virtual std::uint64_t totalBytesWritten() = 0;
    virtual std::uint64_t totalRecordsPushed() = 0;
    virtual std::uint64_t totalRecordsPopped() = 0;
    virtual std::uint32_t activeLoggerCount() = 0;

    /// Makes a record for a line of that logger, with the prefix written. The caller owns it until it is pushed or
    /// freed.
    /// On failure: null after an allocation failure; the line counts as lost.
    virtual LogRecord* makeRecord(int id, int level) = 0;
    virtual void freeRecord(LogRecord* record) = 0;

    /// Reads again which old files there are. While the engine runs, the writer thread does it, in order with the
    /// lines. False on an allocation failure.
    virtual bool loadHistory() = 0;
};

} // namespace orvel::log4z
