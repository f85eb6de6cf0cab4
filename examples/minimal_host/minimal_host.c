/* The smallest whole host, in C: loads the library, waits for a phone, for as long as asked at most, and leaves
 * cleanly. */
#include "SonviaPCAudioDll.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <windows.h>

/* Both run on the library's thread; a program with windows posts itself a message here and returns. */
static void onEvent(int event, int value) {
    printf("event %d, value %d\n", event, value);
}

static volatile LONG notConnected = 0;

static void onError(int code, int value) {
    printf("error %d, value %d\n", code, value);
    if (code == SONVIA_ERROR_CONNECTION && value == 0) {
        InterlockedExchange(&notConnected, 1);
    }
}

static FARPROC functionOf(HMODULE library, const char* name) {
    FARPROC function = GetProcAddress(library, name);
    if (function == NULL) {
        fprintf(stderr, "SonviaPCAudioDll.dll has no %s\n", name);
        exit(2);
    }
    return function;
}

/* GetProcAddress gives every function as a FARPROC; the union turns it into what it is. */
#define FUNCTION(library, name)                                                                              \
    union {                                                                                                  \
        FARPROC raw;                                                                                         \
        name##_fn call;                                                                                      \
    } name;                                                                                                  \
    name.raw = functionOf(library, #name)

int main(int argc, char** argv) {
    const char* logDir = argc > 1 ? argv[1] : ".";
    const DWORD milliseconds = argc > 2 ? (DWORD)atoi(argv[2]) : 1000;
    HMODULE library = LoadLibraryA("SonviaPCAudioDll.dll");
    if (library == NULL) {
        fprintf(stderr, "SonviaPCAudioDll.dll not found\n");
        return 2;
    }
    FUNCTION(library, initSonviaAudioService);
    FUNCTION(library, setParam);
    FUNCTION(library, getState);
    FUNCTION(library, getSourceName);
    FUNCTION(library, exitAudioProjection);
    FUNCTION(library, uninitSonviaAudioService);

    AudioServiceHandle* service = initSonviaAudioService.call(logDir, SONVIA_LOG_INFO);
    if (service == NULL) {
        fprintf(stderr, "QuPCAudio.exe did not start: it belongs next to this program\n");
        return 1;
    }
    AudioServiceParam param;
    memset(&param, 0, sizeof param);
    param.onEvent = onEvent;
    param.onError = onError;
    param.context = &param;
    strcpy(param.accountID, "someone@example.com");
    strcpy(param.pcName, "Office");
    if (!setParam.call(service, &param)) {
        fprintf(stderr, "setParam failed\n");
        uninitSonviaAudioService.call(service);
        return 1;
    }
    /* The name is "phone" until a phone has sent its own. */
    for (DWORD waited = 0; waited < milliseconds && strcmp(getSourceName.call(service), "phone") == 0;
         waited += 100) {
        Sleep(100);
        /* On a busy machine the service may open its pipe later than the library waits for it: ask again. */
        if (InterlockedExchange(&notConnected, 0) != 0) {
            setParam.call(service, &param);
        }
    }
    printf("state %u, phone \"%s\"\n", getState.call(service), getSourceName.call(service));
    exitAudioProjection.call(service);
    uninitSonviaAudioService.call(service);
    FreeLibrary(library);
    return 0;
}
