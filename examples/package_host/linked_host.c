/* A host in C that is linked to the library: waits for a phone, for as long as asked at most, and leaves cleanly. */
#include <SonviaPCAudioDll.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <windows.h>

static HANDLE firstAudio;
static volatile LONG notConnected = 0;

/* Both run on the library's thread. */
static void onEvent(int event, int value) {
    printf("event %d, value %d\n", event, value);
    if (event == SONVIA_EVENT_FIRST_AUDIO) {
        SetEvent(firstAudio);
    }
}

static void onError(int code, int value) {
    printf("error %d, value %d\n", code, value);
    if (code == SONVIA_ERROR_CONNECTION && value == 0) {
        InterlockedExchange(&notConnected, 1);
    }
}

int main(int argc, char** argv) {
    const char* logDir = argc > 1 ? argv[1] : "C:\\ProgramData\\PackageHost";
    const DWORD milliseconds = argc > 2 ? (DWORD)atoi(argv[2]) : 1000;
    DWORD waited;
    AudioServiceParam param;
    AudioServiceHandle* service = initSonviaAudioService(logDir, SONVIA_LOG_INFO);
    if (service == NULL) {
        fprintf(stderr, "QuPCAudio.exe did not start: it belongs next to this program\n");
        return 1;
    }
    firstAudio = CreateEventW(NULL, TRUE, FALSE, NULL);
    memset(&param, 0, sizeof param);
    param.onEvent = onEvent;
    param.onError = onError;
    param.context = &param;
    strcpy(param.accountID, "someone@example.com");
    strcpy(param.pcName, "Office");
    if (!setParam(service, &param)) {
        fprintf(stderr, "setParam failed\n");
        uninitSonviaAudioService(service);
        return 1;
    }
    for (waited = 0; waited < milliseconds && WaitForSingleObject(firstAudio, 100) != WAIT_OBJECT_0;
         waited += 100) {
        /* On a busy machine the service may open its pipe later than the library waits for it: ask again. */
        if (InterlockedExchange(&notConnected, 0) != 0) {
            setParam(service, &param);
        }
    }
    printf("header %s, state %u, phone \"%s\"\n", SONVIA_VERSION_STRING, (unsigned)getState(service),
           getSourceName(service));
    uninitSonviaAudioService(service);
    CloseHandle(firstAudio);
    return 0;
}
