#pragma once

namespace orvel {

/// Starts logging to files: makes the library's one logger, applies its settings and starts the writer
/// thread. path: the folder of the log files, in the process's code page, made when missing; null keeps the
/// default
/// "./sonvialog/". level: the threshold, kLogDebug to kLogError; lines below it are dropped by writeLog.
/// Thread: the start-up thread, before other threads log. Blocks: up to 3 s for the writer thread to start.
/// A second call logs its settings line and changes nothing else.
void INITLOG(const char* path, int level);

/// Waits until every line written before the call is in its file.
/// Thread: any but the log's own. Blocks: at most 3 s, and not at all when logging has not been initialised
/// or the writer thread has already been ended by the system. Returns false when lines may be missing.
bool FLUSHLOG();

} // namespace orvel
