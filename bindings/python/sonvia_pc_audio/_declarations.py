# Written by bindings/declarations.py from src/api/abi.json and bindings/texts.json: change those.
import ctypes
import enum
from typing import Any, Dict, Final, List, Tuple


class LogLevel(enum.IntEnum):
    DEBUG = 0
    INFO = 1
    WARNING = 3
    ERROR = 4

    @property
    def text(self) -> str:
        return _LOG_LEVEL_TEXTS[self.value]


_LOG_LEVEL_TEXTS = {
    0: "every call and every packet",
    1: "the steps of a session",
    3: "what a host may have done wrong",
    4: "what failed",
}


class EventKind(enum.IntEnum):
    BUFFERING_STARTED = 200001
    BUFFERING_ENDED = 200002
    FIRST_AUDIO = 200003
    MODE_CHANGED = 200006

    @property
    def text(self) -> str:
        return _EVENT_KIND_TEXTS[self.value]


_EVENT_KIND_TEXTS = {
    200001: "buffering started",
    200002: "buffering ended",
    200003: "first audio",
    200006: "mode changed",
}


class ErrorKind(enum.IntEnum):
    CONNECTION = -2
    STREAM = -3

    @property
    def text(self) -> str:
        return _ERROR_KIND_TEXTS[self.value]


_ERROR_KIND_TEXTS = {
    -2: "no connection to the service, or the connection was lost",
    -3: "the stream from the service failed",
}


class Failure(enum.IntEnum):
    LIBRARY_NOT_LOADED = 1
    NOT_THE_LIBRARY = 2
    SERVICE_NOT_STARTED = 3
    SESSION_OPEN = 4
    NOT_OPEN = 5
    INSIDE_CALLBACK = 6
    TEXT_TOO_LONG = 7
    TEXT_NOT_UTF8 = 8
    TEXT_HOLDS_NUL = 9
    FOLDER_NOT_MADE = 10
    FOLDER_TOO_LONG = 11
    FOLDER_WITHOUT_SHORT_NAME = 12
    REFUSED = 13

    @property
    def text(self) -> str:
        return _FAILURE_TEXTS[self.value]


_FAILURE_TEXTS = {
    1: "SonviaPCAudioDll.dll could not be loaded",
    2: "SonviaPCAudioDll.dll lacks a function: it is another library or another version",
    3: "QuPCAudio.exe did not start: it belongs next to the host's executable",
    4: "a session is open already in this process",
    5: "the session is not open",
    6: "a session is neither opened nor closed inside a callback",
    7: "a text has more than 255 bytes of UTF-8",
    8: "a text is not valid UTF-8",
    9: "a text holds a NUL",
    10: "the log folder could not be created",
    11: "the path of the log folder has more than 200 characters",
    12: "the service needs a log folder of ASCII without spaces, and this one has no short name",
    13: "the library refused the call: a connection is still being made, or memory ran out",
}


STATE_UNKNOWN: Final = 4
TEXT_SIZE: Final = 256
VERSION: Final = "2.1.2110122"
LIBRARY: Final = "SonviaPCAudioDll.dll"
TEXT_FIELDS: Final = ("accountID", "deviceID", "sn", "model", "bluetoothMac", "pcName")

# Not PYFUNCTYPE: a callback takes the interpreter's lock itself, on the library's thread.
CALLBACK: Final = ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_int)


class AudioServiceParam(ctypes.Structure):
    _fields_ = [
        ("onEvent", CALLBACK),
        ("onError", CALLBACK),
        ("context", ctypes.c_void_p),
        ("accountID", ctypes.c_ubyte * 256),
        ("deviceID", ctypes.c_ubyte * 256),
        ("sn", ctypes.c_ubyte * 256),
        ("model", ctypes.c_ubyte * 256),
        ("bluetoothMac", ctypes.c_ubyte * 256),
        ("pcName", ctypes.c_ubyte * 256),
    ]


assert ctypes.sizeof(AudioServiceParam) == 1560
assert AudioServiceParam.onEvent.offset == 0
assert AudioServiceParam.onError.offset == 8
assert AudioServiceParam.context.offset == 16
assert AudioServiceParam.accountID.offset == 24
assert AudioServiceParam.deviceID.offset == 280
assert AudioServiceParam.sn.offset == 536
assert AudioServiceParam.model.offset == 792
assert AudioServiceParam.bluetoothMac.offset == 1048
assert AudioServiceParam.pcName.offset == 1304

# The result and the arguments of each exported function.
FUNCTIONS: Final[Dict[str, Tuple[Any, List[Any]]]] = {
    "exitAudioProjection": (ctypes.c_bool, [ctypes.c_void_p]),
    "getSourceName": (ctypes.c_char_p, [ctypes.c_void_p]),
    "getState": (ctypes.c_uint32, [ctypes.c_void_p]),
    "getVersion": (ctypes.c_int, []),
    "initSonviaAudioService": (ctypes.c_void_p, [ctypes.c_char_p, ctypes.c_int]),
    "setAccountID": (ctypes.c_bool, [ctypes.c_void_p, ctypes.c_char_p]),
    "setParam": (ctypes.c_bool, [ctypes.c_void_p, ctypes.POINTER(AudioServiceParam)]),
    "uninitSonviaAudioService": (ctypes.c_bool, [ctypes.c_void_p]),
}
