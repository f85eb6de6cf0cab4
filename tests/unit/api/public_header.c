/* The public header as a C program sees it: before anything else, and twice. */
#include "SonviaPCAudioDll.h"

#include "unit/api/public_header.h"

static int events;
static int errors;

static void onEvent(int event, int value) {
    if (event == SONVIA_EVENT_MODE_CHANGED) {
        events += value;
    }
}

static void onError(int code, int value) {
    if (code == SONVIA_ERROR_CONNECTION) {
        errors += 1 + value;
    }
}

size_t sizeOfRecordInC(void) {
    return sizeof(AudioServiceParam);
}

size_t sizeOfBoolResultInC(void) {
    return sizeof(setParam(NULL, NULL));
}

void fillRecordInC(AudioServiceParam* param) {
    const AudioServiceParam empty = {0};
    *param = empty;
    param->onEvent = onEvent;
    param->onError = onError;
    param->context = param;
    param->pcName[0] = 'c';
}

int callEveryFunctionInC(void) {
    /* Through the types that are meant for GetProcAddress. */
    uninitSonviaAudioService_fn uninitService = uninitSonviaAudioService;
    setParam_fn set = setParam;
    setAccountID_fn account = setAccountID;
    exitAudioProjection_fn leave = exitAudioProjection;
    getState_fn state = getState;
    getSourceName_fn name = getSourceName;
    getVersion_fn version = getVersion;
    AudioServiceParam param;

    fillRecordInC(&param);
    return uninitService(NULL) && !set(NULL, &param) && !account(NULL, "a") && !leave(NULL) &&
           state(NULL) == SONVIA_STATE_UNKNOWN && name(NULL)[0] == 'p' && version() == 0;
}

int errorsSeenInC(void) {
    return errors;
}
