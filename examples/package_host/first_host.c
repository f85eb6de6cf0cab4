#include <SonviaPCAudioDll.h>
#include <stdio.h>

static void report(int what, int value) { /* on the library's thread */
    printf("%d: %d\n", what, value);
}

int main(void) {
    AudioServiceParam param = {.onEvent = report, .onError = report, .context = &param, .pcName = "Office"};
    AudioServiceHandle* service = initSonviaAudioService("C:\\ProgramData\\FirstHost", SONVIA_LOG_INFO);
    if (service != NULL && setParam(service, &param)) {
        getchar(); /* events arrive until Enter is pressed */
    }
    return !uninitSonviaAudioService(service);
}
