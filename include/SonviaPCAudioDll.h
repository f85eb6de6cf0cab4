/**
 * SonviaPCAudioDll: drives the audio-casting service "QuPCAudio.exe" from a desktop application.
 *
 * Plain C; usable from C and C++ with any compiler for 64-bit Windows. Nothing else of the library is public.
 *
 * The life of a handle:
 *
 *     initSonviaAudioService  ->  setParam  ->  (any calls, callbacks arrive)  ->  uninitSonviaAudioService
 *
 * Threads. The library runs one loop thread for each handle, from the first successful setParam until
 * uninitSonviaAudioService. Both callbacks run on that thread, one at a time, with no lock of the library
 * held. Every function may be called from any thread; only uninitSonviaAudioService must not run at the same
 * time as another call on the same handle, and never inside a callback. None may be called from DllMain or from
 * static objects of a DLL: a thread that is waited for there cannot begin or end.
 *
 * The service is one per machine: initSonviaAudioService and, if need be, uninitSonviaAudioService end every
 * process named "QuPCAudio.exe", whoever started it. Use one handle at a time.
 *
 * After the first initSonviaAudioService the library stays in the process until the process ends: FreeLibrary
 * may be called at any time after uninitSonviaAudioService, and LoadLibrary afterwards gives the same module.
 *
 * Example (C):
 *
 *     static void onEvent(int event, int value) { printf("event %d, value %d\n", event, value); }
 *     static void onError(int code, int value)  { printf("error %d, value %d\n", code, value); }
 *
 *     AudioServiceHandle* service = initSonviaAudioService("C:\\ProgramData\\App\\logs", SONVIA_LOG_INFO);
 *     if (service == NULL) return 1;                          // no QuPCAudio.exe beside this program
 *
 *     AudioServiceParam param;
 *     memset(&param, 0, sizeof param);
 *     param.onEvent = onEvent;
 *     param.onError = onError;
 *     param.context = &param;                                 // anything but NULL
 *     strcpy(param.accountID, "someone@example.com");
 *     strcpy(param.pcName, "Office");
 *     if (!setParam(service, &param)) { uninitSonviaAudioService(service); return 1; }
 *
 *     ...                                                     // events arrive on the library's thread
 *     printf("%u %s\n", getState(service), getSourceName(service));
 *     exitAudioProjection(service);
 *     uninitSonviaAudioService(service);
 */
#ifndef SONVIA_PC_AUDIO_DLL_H
#define SONVIA_PC_AUDIO_DLL_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Levels for initSonviaAudioService. 2 is no level of its own; lines of the library never carry it. */
enum { SONVIA_LOG_DEBUG = 0, SONVIA_LOG_INFO = 1, SONVIA_LOG_WARNING = 3, SONVIA_LOG_ERROR = 4 };

/** First argument of onEvent. */
enum {
    SONVIA_EVENT_BUFFERING_STARTED = 200001, /**< value 0 */
    SONVIA_EVENT_BUFFERING_ENDED = 200002,   /**< value 0 */
    SONVIA_EVENT_FIRST_AUDIO = 200003,       /**< value 0 */
    SONVIA_EVENT_MODE_CHANGED = 200006 /**< value: the new mode, as the service sent it; may be negative */
};

/** Values that the library sends to the service; never seen by a callback. */
enum { SONVIA_NOTIFY_STOP_SERVICE = 200004, SONVIA_NOTIFY_EXIT_PROJECTION = 200005 };

/** First argument of onError. */
enum {
    SONVIA_ERROR_CONNECTION = -2, /**< connection lost (value: libuv error code) or never made (value 0) */
    /** Any other stream error while connected (value: libuv error code). Value 0 is none: what the service sent in one
     *  piece arrives in several, and nothing is lost. */
    SONVIA_ERROR_STREAM = -3
};

enum {
    SONVIA_STATE_UNKNOWN = 4, /**< getState before the service has reported a state */
    SONVIA_TEXT_SIZE = 256    /**< bytes of each text in AudioServiceParam, terminating NUL included */
};

/** The fixed record for setParam: 1560 bytes, copied whole; the caller may reuse or free it after the call.
 *  */
typedef struct AudioServiceParam {
    void (*onEvent)(int event, int value); /**< must not be NULL; called on the loop thread */
    void (*onError)(int code, int value);  /**< must not be NULL; called on the loop thread */
    void* context;                         /**< must not be NULL; never read or followed by the library */
    char accountID[SONVIA_TEXT_SIZE];      /**< all texts: NUL-terminated; at most 256 bytes are read */
    char deviceID[SONVIA_TEXT_SIZE];
    char sn[SONVIA_TEXT_SIZE]; /**< serial number of the computer */
    char model[SONVIA_TEXT_SIZE];
    char bluetoothMac[SONVIA_TEXT_SIZE];
    char pcName[SONVIA_TEXT_SIZE];
} AudioServiceParam;

/** One running service; opaque. */
typedef struct AudioServiceHandle AudioServiceHandle;

/**
 * Starts the service process and makes a handle for it.
 *
 * Ends every running "QuPCAudio.exe" first, opens the log in logDir + "\PCAudiodll", and starts the
 * "QuPCAudio.exe" that stands beside the host's executable (not beside this library) with logDir and logLevel
 * as its arguments. The first call in a process decides the log's folder and level; later ones do not change
 * them.
 *
 * @param logDir   folder for log files, NUL-terminated, in the process's code page; NULL is read as "". Absolute: a
 *                 relative one follows the current directory with each new file. The service is given at most 255
 *                 characters of it, unquoted and widened byte by byte: only a folder of ASCII characters without
 *                 blanks reaches it whole. Not kept after the call.
 * @param logLevel SONVIA_LOG_DEBUG to SONVIA_LOG_ERROR: the least level that is logged.
 * Thread: any; not inside a callback.
 * Blocks: until old services are ended (taskkill), then 200 ms in which the new one opens its pipe. When it returns
 *         NULL: until the log's lines are in the file, 3 s at most.
 * @return the handle, to be released with uninitSonviaAudioService; NULL when the service could not be
 *         started (logged, with the system's error number). Nothing is kept then and the call may be repeated.
 * Callbacks: none.
 */
AudioServiceHandle* initSonviaAudioService(const char* logDir, int logLevel);

/**
 * Stops the service and releases the handle.
 *
 * Tells the service to stop, gives it 1000 ms to end, ends it by force with its child processes after that,
 * stops and joins the loop thread, closes the pipe, and waits until the log lines written so far are in the
 * file.
 *
 * @param handle from initSonviaAudioService, invalid afterwards; NULL is allowed and logged.
 * Thread: any but the loop thread (never inside a callback); no other call on this handle may be running.
 * Blocks: usually as long as the service takes to end, at most 1000 ms plus the time taskkill takes, and 3 s
 *         for a log that cannot be written; and until a callback under way has returned, which must therefore not
 *         wait for the calling thread. When the first connection is still waiting because another process owns the
 *         pipe and never accepts, Windows gives that wait up 30 s after setParam began it, or as soon as that
 *         process ends; one named "QuPCAudio.exe" is ended here if this handle's own service has to be.
 * @return always true.
 * Callbacks: a connection still being made is reported as onError(SONVIA_ERROR_CONNECTION, 0) while this call
 *            runs (a setParam made then gives false); the loss of the connection that this call causes is not.
 *            None after it returned.
 */
bool uninitSonviaAudioService(AudioServiceHandle* handle);

/**
 * Hands over the callbacks and texts and starts the session; later calls send the new texts to the service.
 *
 * The first successful call starts the connection to the service and the loop thread. The connection is made
 * once: if it fails, onError(SONVIA_ERROR_CONNECTION, 0) is called, and another setParam tries again. After a
 * connection that was made and then lost, setParam does not connect again; release the handle and begin anew.
 *
 * @param handle from initSonviaAudioService; NULL is logged and gives false.
 * @param param  copied whole before anything else, also when the call then fails; NULL is logged and gives
 *               false.
 * Thread: any; allowed inside a callback.
 * Blocks: never for long: the first call waits until the loop thread runs.
 * @return true when the record was taken (the connection is completed later); false when onEvent, onError or
 *         context is NULL, while a connection is still being made, when the thread could not be started, or inside
 *         a callback while uninitSonviaAudioService runs.
 * After failure: for a missing callback or context the session keeps what it had; while a connection is being
 *         made the new record is taken all the same, and its texts are sent when the connection is there.
 * Callbacks: see above; onEvent from then on.
 */
bool setParam(AudioServiceHandle* handle, const AudioServiceParam* param);

/**
 * Updates the signed-in account and tells the service.
 *
 * The bytes of accountID replace the start of the account id given to setParam and nothing else: a shorter id
 * leaves the tail of a longer one in place ("abc" after "abcdef" gives "abcdef"). Use setParam to shorten it.
 *
 * @param handle    from initSonviaAudioService; NULL is logged and gives false.
 * @param accountID NUL-terminated, 1 to 255 bytes; NULL is read as "". Not kept after the call.
 * Thread: any; allowed inside a callback.
 * Blocks: never.
 * @return true when the id was taken (sent if connected); false, and nothing is sent, for an empty or too
 *         long id.
 * Callbacks: none.
 */
bool setAccountID(AudioServiceHandle* handle, const char* accountID);

/**
 * Asks the service to end the current projection.
 *
 * @param handle from initSonviaAudioService; NULL is logged and gives false.
 * Thread: any; allowed inside a callback.
 * Blocks: never.
 * @return true when the request was handed on; it is dropped when the session is not connected.
 * Callbacks: none.
 */
bool exitAudioProjection(AudioServiceHandle* handle);

/**
 * The player state that the service reported last.
 *
 * @param handle from initSonviaAudioService; NULL is logged and gives SONVIA_STATE_UNKNOWN.
 * Thread: any; allowed inside a callback.
 * Blocks: never.
 * @return the state as the service sent it; SONVIA_STATE_UNKNOWN (4) until then.
 * Callbacks: none.
 */
uint32_t getState(AudioServiceHandle* handle);

/**
 * The name of the phone that is sending, in the service's encoding.
 *
 * @param handle from initSonviaAudioService; NULL is logged and gives "phone".
 * Thread: any; allowed inside a callback.
 * Blocks: never.
 * @return NUL-terminated text owned by the library, valid until the service sends another name or the handle
 *         is released: copy it to keep it. A name that arrives while the caller is reading does not pull the
 *         text away: it is kept until the same thread calls this function again, or 64 other threads have.
 *         "phone" as long as the service has sent no name, or an empty one.
 * Callbacks: none.
 */
const char* getSourceName(AudioServiceHandle* handle);

/**
 * Always 0, as an integer or as a pointer. Needs no handle, logs nothing, may be called at any time.
 */
int getVersion(void);

/** Types for GetProcAddress: name##_fn is a pointer to the function of that name. */
typedef AudioServiceHandle* (*initSonviaAudioService_fn)(const char* logDir, int logLevel);
typedef bool (*uninitSonviaAudioService_fn)(AudioServiceHandle* handle);
typedef bool (*setParam_fn)(AudioServiceHandle* handle, const AudioServiceParam* param);
typedef bool (*setAccountID_fn)(AudioServiceHandle* handle, const char* accountID);
typedef bool (*exitAudioProjection_fn)(AudioServiceHandle* handle);
typedef uint32_t (*getState_fn)(AudioServiceHandle* handle);
typedef const char* (*getSourceName_fn)(AudioServiceHandle* handle);
typedef int (*getVersion_fn)(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

/* The layout is shared with hosts that were built long ago: a change of any offset breaks them silently. */
#if defined(__cplusplus)
#define SONVIA_ASSERT_LAYOUT(condition) static_assert(condition, #condition)
#else
#define SONVIA_ASSERT_LAYOUT(condition) _Static_assert(condition, #condition)
#endif
#if UINTPTR_MAX == UINT64_MAX &&                                                                             \
    (defined(__cplusplus) || (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L))
SONVIA_ASSERT_LAYOUT(offsetof(AudioServiceParam, onEvent) == 0);
SONVIA_ASSERT_LAYOUT(offsetof(AudioServiceParam, onError) == 8);
SONVIA_ASSERT_LAYOUT(offsetof(AudioServiceParam, context) == 16);
SONVIA_ASSERT_LAYOUT(offsetof(AudioServiceParam, accountID) == 24);
SONVIA_ASSERT_LAYOUT(offsetof(AudioServiceParam, deviceID) == 280);
SONVIA_ASSERT_LAYOUT(offsetof(AudioServiceParam, sn) == 536);
SONVIA_ASSERT_LAYOUT(offsetof(AudioServiceParam, model) == 792);
SONVIA_ASSERT_LAYOUT(offsetof(AudioServiceParam, bluetoothMac) == 1048);
SONVIA_ASSERT_LAYOUT(offsetof(AudioServiceParam, pcName) == 1304);
SONVIA_ASSERT_LAYOUT(sizeof(AudioServiceParam) == 1560);
#endif
#undef SONVIA_ASSERT_LAYOUT

#endif /* SONVIA_PC_AUDIO_DLL_H */
