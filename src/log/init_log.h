#pragma once

namespace orvel {

/// Starts logging to files: makes the library's one logger, applies its settings and starts the writer
/// thread. path: the folder of the log files, in the process's code page, made when missing; null keeps the
/// default
/// "./sonvialog/". level: the threshold, kLogDebug to kLogError; lines below it are dropped by writeLog.
/// Thread: the start-up thread, before other threads log. Blocks: up to 3 s for the writer thread to start.
/// When the writer thread cannot be started, or not in that time, or there is no memory, the standard output says so,
/// lines go on to it, and the next call tries again. After a call that succeeded another one logs its settings line and
/// changes nothing else.
void INITLOG(const char* path, int level);

/// Waits until every line written before the call is in its file.
/// Thread: any but the log's own. Blocks: at most 3 s, and not at all when logging has not been initialised
/// or the writer thread has already been ended by the system. Returns false when the writer
/// was not done in that time or is gone: lines of before may not have been handed to the system then. True does not
/// say that every line is in a file: what a full disk has cost is only in the number of lost lines.
bool FLUSHLOG();

} // namespace orvel
