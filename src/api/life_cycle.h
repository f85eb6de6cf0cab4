#pragma once

#include "api/audio_service_handle.h"

#include <memory>

/// The whole start-up: ends old services, opens the log, starts the service, builds loop and session, and
/// leaves the service 200 ms to open its pipe. Null when the service cannot be started.
std::unique_ptr<AudioServiceHandle> startUp(const char* logDir, int logLevel);

/// Starts the loop thread unless it has been started, and returns when the loop accepts a stop. False when
/// the system has no thread to give.
bool startLoopThread(AudioServiceHandle& handle);

/// The whole shut-down: asks the service to stop and ends it if need be, stops and joins the loop thread,
/// closes and destroys the session. Does so too when memory runs out on the way.
void shutDown(AudioServiceHandle& handle);

/// The loop thread.
void ThreadFun(const std::shared_ptr<OUVLoop>& loop);
