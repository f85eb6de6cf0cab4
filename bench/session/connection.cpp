#include "connection.h"

#include "api/live_handles.h"
#include "log/init_log.h"
#include "log/write_log.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

namespace {

void onError(int code, int value) {
    std::fprintf(stderr, "the connection failed: %d, %d\n", code, value);
    std::exit(2);
}

template <std::size_t kSize>
void put(char (&field)[kSize], const char* text) {
    std::strncpy(field, text, kSize - 1);
}

} // namespace

void startLog() {
    static const std::string kFolder = [] {
        const auto folder = std::filesystem::current_path() / "log";
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
        std::filesystem::create_directories(folder);
        return folder.string();
    }();
    orvel::INITLOG(kFolder.c_str(), kLogInfo);
}

AudioServiceParam hostRecord(void (*onEvent)(int, int)) {
    static int context = 0;
    AudioServiceParam record = {};
    record.onEvent = onEvent;
    record.onError = onError;
    record.context = &context;
    put(record.accountID, "100000000000042");
    put(record.deviceID, "PC-3F2504E0-4F89-11D3");
    put(record.sn, "5CG1234XYZ");
    put(record.model, "Latitude 7440");
    put(record.bluetoothMac, "00:1A:7D:DA:71:13");
    put(record.pcName, "DESKTOP-ANNA");
    return record;
}

std::string servicePipe(const std::string& prefix) {
    return prefix + "QuPCAudio";
}

AudioServiceHandle* makeHandle(const std::string& prefix, AudioServiceHandle*& record) {
    startLog();
    OStreamPipe::pipeNamePrefix = prefix;
    auto one = std::make_unique<HandleEntry>();
    one->record = std::make_unique<AudioServiceHandle>();
    record = one->record.get();
    record->loop = std::make_shared<OUVLoop>();
    record->session = std::make_unique<QuPCAudioMessage>(record->loop);
    return liveHandles().add(std::move(one));
}

LibraryConnection::LibraryConnection(void (*onEvent)(int, int), PipeEnd::Received received) {
    const std::string prefix = freshPipePrefix();
    mService = std::make_unique<PipeEnd>(PipeEnd::Role::Service, servicePipe(prefix), std::move(received));
    mHandle = makeHandle(prefix, mRecord);
    const AudioServiceParam record = hostRecord(onEvent);
    if (!setParam(mHandle, &record)) {
        std::fprintf(stderr, "setParam failed\n");
        std::exit(2);
    }
    mService->waitForConnection();
    while (mRecord->session->connection() != Connection::Connected) {
        std::this_thread::yield();
    }
}

LibraryConnection::~LibraryConnection() {
    uninitSonviaAudioService(mHandle);
}
