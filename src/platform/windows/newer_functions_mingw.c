/* Definitions of five functions that libuv 1.50 names and this library never needs, in front of the system's. Without
 * them the DLL would import them: it would not load where kernel32.dll has no Set- and GetThreadDescription (Windows 10
 * up to 1607, Windows Server 2016), and would load dbghelp.dll into every host. The import gate fails without this file.
 *
 * libuv handles each of the answers given here: a thread stays without a name, and no dump is written. */
#include <windows.h>

static HRESULT WINAPI setThreadDescription(HANDLE thread, PCWSTR description) {
    (void)thread;
    (void)description;
    return E_NOTIMPL;
}

static HRESULT WINAPI getThreadDescription(HANDLE thread, PWSTR* description) {
    (void)thread;
    *description = NULL;
    return E_NOTIMPL;
}

static DWORD WINAPI symGetOptions(void) {
    return 0;
}

static DWORD WINAPI symSetOptions(DWORD options) {
    return options;
}

/* The linker takes a pointer of this name for an import that is resolved already. */
HRESULT(WINAPI* __imp_SetThreadDescription)(HANDLE thread, PCWSTR description) = setThreadDescription;
HRESULT(WINAPI* __imp_GetThreadDescription)(HANDLE thread, PWSTR* description) = getThreadDescription;
DWORD(WINAPI* __imp_SymGetOptions)(void) = symGetOptions;
DWORD(WINAPI* __imp_SymSetOptions)(DWORD options) = symSetOptions;

BOOL WINAPI MiniDumpWriteDump(HANDLE process, DWORD processId, HANDLE file, int type, void* exception,
                              void* userStream, void* callback);

BOOL WINAPI MiniDumpWriteDump(HANDLE process, DWORD processId, HANDLE file, int type, void* exception,
                              void* userStream, void* callback) {
    (void)process;
    (void)processId;
    (void)file;
    (void)type;
    (void)exception;
    (void)userStream;
    (void)callback;
    SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
    return FALSE;
}
