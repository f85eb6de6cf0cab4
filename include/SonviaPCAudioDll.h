/**
 * SonviaPCAudioDll: drives the audio-casting service "QuPCAudio.exe" from a desktop application.
 *
 * Plain C. Compiles as C89 (with <stdbool.h> and <stdint.h>) to C23 and as C++98 to C++23, with any compiler for x64
 * Windows. The lowest supported versions are Windows 10 version 1507 and Windows Server 2016.
 *
 * The life of a handle:
 *
 *     initSonviaAudioService  ->  setParam  ->  (any calls, callbacks arrive)  ->  uninitSonviaAudioService
 *
 * Threads. Each handle has one loop thread, from the first successful setParam until uninitSonviaAudioService. It
 * calls both callbacks, one at a time, and holds no lock of the library meanwhile. Any thread may call any function,
 * with these exceptions:
 *   - no function from DllMain or from the constructors and destructors of a DLL's static objects: a thread that the
 *     library waits for can neither start nor end there;
 *   - initSonviaAudioService and uninitSonviaAudioService not inside a callback.
 *
 * Callbacks must not throw, and must not leave by longjmp. The library logs an exception and ends the process, as C++
 * does. While a callback runs, no other event arrives: return soon, and never wait in it for a thread that may be
 * inside uninitSonviaAudioService. A call never waits for a callback, except uninitSonviaAudioService.
 *
 * Sending. When a function that sends returns, its packet has been handed to the system's pipe, after the packets of
 * earlier calls. If the loop thread is busy receiving or sending, the call waits for at most 50 ms, and the packet
 * follows as soon as the thread can send it. A callback delays no call. A service that does not read cannot fill the
 * host's memory: while 4 MB are unsent or 1000 packets wait, the library drops further ones, with a line in the log.
 *
 * Handles. NULL, and a handle that was released, give the result named with each function and a line in the log. A
 * handle counts as released from the beginning of uninitSonviaAudioService on; only a callback that still runs may use
 * it until the call returns. No later handle has its value. A handle is not an address: do not read through it.
 *
 * One service for each machine: initSonviaAudioService and, if need be, uninitSonviaAudioService end every process
 * named "QuPCAudio.exe", whoever started it. Use one handle at a time.
 *
 * After the first initSonviaAudioService the library stays in the process until the process ends. FreeLibrary may be
 * called at any time after uninitSonviaAudioService, and LoadLibrary then gives the same module.
 *
 * At log level SONVIA_LOG_DEBUG each line also goes to the standard output. Where that is a pipe or a console that
 * nobody reads, every function may take longer than its contract says.
 *
 * Example (C99):
 *
 *     static void onEvent(int event, int value) { printf("event %d, value %d\n", event, value); }
 *     static void onError(int code, int value)  { printf("error %d, value %d\n", code, value); }
 *
 *     AudioServiceHandle* service = initSonviaAudioService("C:\\ProgramData\\App\\logs", SONVIA_LOG_INFO);
 *     if (service == NULL) return 1;                          // no QuPCAudio.exe next to this program
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
 *     ...                                                     // events arrive on the loop thread
 *     printf("%u %s\n", getState(service), getSourceName(service));
 *     exitAudioProjection(service);
 *     uninitSonviaAudioService(service);
 */
#ifndef SONVIA_PC_AUDIO_DLL_H
#define SONVIA_PC_AUDIO_DLL_H

#if defined(_WIN32) && !defined(_WIN64)
#error "SonviaPCAudioDll is for x64 programs; this one is compiled for 32 bits"
#endif

#ifndef __cplusplus
#include <stdbool.h>
#endif
#include <stddef.h>
#include <stdint.h>

/** Version of this header. That of the DLL is in its version resource; getVersion does not report it. */
#define SONVIA_VERSION_MAJOR 2
#define SONVIA_VERSION_MINOR 1
#define SONVIA_VERSION_BUILD 2110122
#define SONVIA_VERSION_STRING "2.1.2110122"

#ifdef __cplusplus
extern "C" {
#endif

/** Log levels for initSonviaAudioService. There is no level 2. */
enum { SONVIA_LOG_DEBUG = 0, SONVIA_LOG_INFO = 1, SONVIA_LOG_WARNING = 3, SONVIA_LOG_ERROR = 4 };

/** First argument of onEvent. */
enum {
    SONVIA_EVENT_BUFFERING_STARTED = 200001, /**< value: 0 */
    SONVIA_EVENT_BUFFERING_ENDED = 200002,   /**< value: 0 */
    SONVIA_EVENT_FIRST_AUDIO = 200003,       /**< value: 0 */
    SONVIA_EVENT_MODE_CHANGED = 200006 /**< value: the new mode as the service sent it; may be negative */
};

/** First argument of onError. */
enum {
    /** No connection (value: 0), or the connection was lost (value: a libuv error code, always negative). */
    SONVIA_ERROR_CONNECTION = -2,
    /** Any other stream error while connected (value: a libuv error code). Value 0 is no error: a frame of the service
     *  arrives in several pieces, and nothing is lost. */
    SONVIA_ERROR_STREAM = -3
};

enum {
    SONVIA_STATE_UNKNOWN = 4, /**< getState before the service has reported a state */
    SONVIA_TEXT_SIZE = 256    /**< bytes of each text in AudioServiceParam, with the terminating NUL */
};

/** The record for setParam, 1560 bytes. setParam copies it whole: reuse or free it after the call. */
typedef struct AudioServiceParam {
    void (*onEvent)(int event, int value); /**< not NULL; called on the loop thread */
    void (*onError)(int code, int value);  /**< not NULL; called on the loop thread */
    void* context;                         /**< not NULL; the library never reads through it */
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
 * Starts the service process and creates a handle for it.
 *
 * First ends every running "QuPCAudio.exe" and opens the log in logDir + "\PCAudiodll". Then starts the
 * "QuPCAudio.exe" in the folder of the host's executable (not in this library's folder) with logDir and logLevel as its
 * arguments. The first call in a process decides the folder and the level of the log; later calls do not change them.
 *
 * @param logDir   folder for the log files; NUL-terminated, in the process's code page, not kept after the call. Use an
 *                 absolute path of at most 200 characters: in a longer one no log can be written, and a relative one
 *                 follows the current directory with each new file. "" and NULL mean the root of the current drive. The
 *                 service gets at most 255 characters, unquoted and each byte widened to a character: only a path of
 *                 ASCII characters without spaces reaches it unchanged.
 * @param logLevel SONVIA_LOG_DEBUG to SONVIA_LOG_ERROR: the lowest level that is logged.
 * Thread: any; not inside a callback. Concurrent calls wait for each other.
 * Blocks: while old services are stopped (taskkill), plus 200 ms in which the new one opens its pipe. If the call
 *         fails, also until the log is written, for at most 3 s.
 * Returns: the handle; release it with uninitSonviaAudioService. NULL if the service could not be started (the log has
 *         the system's error number) or memory ran out.
 * On failure: nothing is kept but the open log. The call may be repeated.
 * Callbacks: none.
 */
AudioServiceHandle* initSonviaAudioService(const char* logDir, int logLevel);

/**
 * Stops the service and releases the handle.
 *
 * Asks the service to stop and waits up to 1000 ms for it to end; then ends it by force, with its child processes.
 * Stops and joins the loop thread, closes the pipe, and waits until the log is written.
 *
 * @param handle from initSonviaAudioService; invalid after the call. NULL is logged, and so is a handle that was released
 *               or that another thread is releasing; nothing is done then.
 * Thread: any but the loop thread: inside a callback the call ends the process.
 * Blocks: until the calls of other threads on this handle have returned. Then until the service has ended: at most
 *         1000 ms plus the time that taskkill takes. Plus the rest of a callback that is running: it must not wait for
 *         the calling thread. Plus at most 3 s for the log. If another process owns the pipe's name and never accepts
 *         the connection, Windows gives up 30 s after setParam began to connect, or when that process ends.
 * Returns: true, always.
 * On failure: does not fail. What cannot be ended or written is logged.
 * Callbacks: onError(SONVIA_ERROR_CONNECTION, 0) while the call runs, if the connection was still being made. The loss
 *         of the connection that this call causes is not reported. None after the call has returned.
 */
bool uninitSonviaAudioService(AudioServiceHandle* handle);

/**
 * Sets the callbacks and texts and starts the session; later calls send the new texts to the service.
 *
 * The first successful call starts the loop thread and the connection to the service. The library connects once: if that
 * fails, it calls onError(SONVIA_ERROR_CONNECTION, 0), and another setParam tries again. It never reconnects after
 * a connection was lost: release the handle and create a new one.
 *
 * @param handle from initSonviaAudioService. NULL is logged and gives false.
 * @param param  copied whole at the start of the call, even if the call then fails. NULL is logged and gives false.
 * Thread: any; allowed inside a callback.
 * Blocks: the first call until the loop thread runs, which is a moment; later ones at most 50 ms.
 * Returns: true if the record was taken; the connection is completed later. false if onEvent, onError or context is
 *         NULL, while a connection is still being made, if the thread could not be started, if memory ran out, or inside
 *         a callback while uninitSonviaAudioService runs.
 * On failure: without a callback or context the session keeps its last record. While a connection is being made the new
 *         record is taken all the same, and its texts are sent once the service is connected.
 * Callbacks: onEvent and onError from then on, until uninitSonviaAudioService returns.
 */
bool setParam(AudioServiceHandle* handle, const AudioServiceParam* param);

/**
 * Changes the account that is signed in and sends it to the service.
 *
 * The bytes of accountID replace the start of the account id in the record and nothing else: the tail of a longer one
 * stays ("abc" after "abcdef" gives "abcdef"). To shorten it, use setParam.
 *
 * @param handle    from initSonviaAudioService. NULL is logged and gives false.
 * @param accountID NUL-terminated, 1 to 255 bytes; not kept after the call. NULL means "".
 * Thread: any; allowed inside a callback.
 * Blocks: at most 50 ms.
 * Returns: true if the id was taken; it is sent if the service is connected. false if it is empty or too long,
 *         or if memory ran out.
 * On failure: nothing is sent. After an allocation failure the id may have been taken.
 * Callbacks: none.
 */
bool setAccountID(AudioServiceHandle* handle, const char* accountID);

/**
 * Asks the service to end the current projection.
 *
 * @param handle from initSonviaAudioService. NULL is logged and gives false.
 * Thread: any; allowed inside a callback.
 * Blocks: at most 50 ms.
 * Returns: true if the request was accepted; it is dropped if the service is not connected. false if memory
 *         ran out.
 * On failure: nothing is sent.
 * Callbacks: none.
 */
bool exitAudioProjection(AudioServiceHandle* handle);

/**
 * Gets the player state that the service reported last.
 *
 * @param handle from initSonviaAudioService. NULL is logged and gives SONVIA_STATE_UNKNOWN.
 * Thread: any; allowed inside a callback.
 * Blocks: never.
 * Returns: the state as the service sent it; SONVIA_STATE_UNKNOWN (4) before its first report.
 * On failure: does not fail.
 * Callbacks: none.
 */
uint32_t getState(AudioServiceHandle* handle);

/**
 * Gets the name of the phone that casts, in the service's encoding.
 *
 * @param handle from initSonviaAudioService. NULL is logged and gives "phone".
 * Thread: any; allowed inside a callback.
 * Blocks: never.
 * Returns: NUL-terminated text that the library owns; "phone" until the service has sent a name, and after an empty one.
 *         Copy it to keep it. It is valid until the handle is released, or the service sends another name and then this
 *         thread calls getSourceName again or 64 other threads do.
 * On failure: gives "phone".
 * Callbacks: none.
 */
const char* getSourceName(AudioServiceHandle* handle);

/**
 * Gets 0, as an integer or as a pointer; for hosts that were built long ago. See SONVIA_VERSION_STRING.
 *
 * Thread: any; allowed inside a callback.
 * Blocks: never.
 * Returns: 0, always.
 * On failure: does not fail. Nothing is logged.
 * Callbacks: none.
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
#if (defined(__cplusplus) && __cplusplus >= 201103L) || (defined(_MSVC_LANG) && _MSVC_LANG >= 201103L)
#define SONVIA_ASSERT_LAYOUT(name, condition) static_assert(condition, #name)
#elif !defined(__cplusplus) && defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define SONVIA_ASSERT_LAYOUT(name, condition) _Static_assert(condition, #name)
#else
#define SONVIA_ASSERT_LAYOUT(name, condition) typedef char sonviaLayoutOf_##name[(condition) ? 1 : -1]
#endif
#if defined(_WIN64) || defined(__LP64__)
SONVIA_ASSERT_LAYOUT(onEvent, offsetof(AudioServiceParam, onEvent) == 0);
SONVIA_ASSERT_LAYOUT(onError, offsetof(AudioServiceParam, onError) == 8);
SONVIA_ASSERT_LAYOUT(context, offsetof(AudioServiceParam, context) == 16);
SONVIA_ASSERT_LAYOUT(accountID, offsetof(AudioServiceParam, accountID) == 24);
SONVIA_ASSERT_LAYOUT(deviceID, offsetof(AudioServiceParam, deviceID) == 280);
SONVIA_ASSERT_LAYOUT(sn, offsetof(AudioServiceParam, sn) == 536);
SONVIA_ASSERT_LAYOUT(model, offsetof(AudioServiceParam, model) == 792);
SONVIA_ASSERT_LAYOUT(bluetoothMac, offsetof(AudioServiceParam, bluetoothMac) == 1048);
SONVIA_ASSERT_LAYOUT(pcName, offsetof(AudioServiceParam, pcName) == 1304);
SONVIA_ASSERT_LAYOUT(record, sizeof(AudioServiceParam) == 1560);
SONVIA_ASSERT_LAYOUT(boolean, sizeof(bool) == 1);
#endif
#undef SONVIA_ASSERT_LAYOUT

#endif /* SONVIA_PC_AUDIO_DLL_H */
