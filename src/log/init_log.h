#pragma once

namespace orvel {

/// Starts logging to files: creates the library's one logger, applies its settings and starts the writer thread. After
/// a call that succeeded, another one logs its settings line and changes nothing else. path: the folder of the log
/// files, in the process's code page, created when missing; null keeps the default "./sonvialog/". level: the
/// threshold, kLogDebug to kLogError; writeLog drops lines below it.
/// Thread: the start-up thread, before other threads log. Blocks: up to 3 s for the writer thread to start. On failure
/// (the writer thread cannot be started, or not in that time, or an allocation failed): the standard output says so,
/// lines still go there, and the next call tries again.
void INITLOG(const char* path, int level);

/// Waits until every line written before the call has been handed to the system.
/// Thread: any but the log's own. Blocks: up to 3 s; not at all when logging has not been initialised or the system has
/// ended the writer thread. Returns: false when the writer was not done in that time or has ended: earlier lines may be
/// lost. True does not mean that every line is in a file: lines that a full disk has cost only count as lost.
bool FLUSHLOG();

} // namespace orvel
