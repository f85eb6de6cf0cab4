#pragma once

#include "api/audio_service_handle.h"

#include <memory>

/// Starts up: ends old services, opens the log, starts the service, creates loop and session, and gives the service 200 ms
/// to open its pipe. Null when the service cannot be started.
std::unique_ptr<AudioServiceHandle> startUp(const char* logDir, int logLevel);

/// Starts the loop thread unless it has been started, and returns once the loop accepts a stop. False when the system
/// cannot create a thread.
bool startLoopThread(AudioServiceHandle& handle);

/// Shuts down: asks the service to stop and ends it if need be, stops and joins the loop thread, closes and destroys the
/// session. An allocation failure on the way does not stop it.
void shutDown(AudioServiceHandle& handle);

/// The loop thread.
void ThreadFun(const std::shared_ptr<OUVLoop>& loop);
