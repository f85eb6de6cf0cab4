#pragma once

#include "api/audio_service_handle.h"
#include "pipe_end.h"

#include <memory>
#include <string>

/// A log at level info in the current folder's log/, which is emptied before. Once a process.
void startLog();

AudioServiceParam hostRecord(void (*onEvent)(int event, int value));

/// The library, connected to a service on a pipe of its own, without a service process.
class LibraryConnection {
public:
    /// What the service receives comes to `received`, the first packet with the device information included.
    LibraryConnection(void (*onEvent)(int event, int value), PipeEnd::Received received);
    ~LibraryConnection();
    LibraryConnection(const LibraryConnection&) = delete;
    LibraryConnection& operator=(const LibraryConnection&) = delete;

    /// What a host holds, and what it stands for.
    AudioServiceHandle* handle() { return mHandle; }

    AudioServiceHandle& record() { return *mRecord; }

    PipeEnd& service() { return *mService; }

private:
    std::unique_ptr<PipeEnd> mService;
    AudioServiceHandle* mRecord;
    AudioServiceHandle* mHandle;
};

/// A host's handle as initSonviaAudioService makes it, without the service's process; its record comes to `record`. Its
/// pipe is `prefix` + "QuPCAudio".
AudioServiceHandle* makeHandle(const std::string& prefix, AudioServiceHandle*& record);

std::string servicePipe(const std::string& prefix);
