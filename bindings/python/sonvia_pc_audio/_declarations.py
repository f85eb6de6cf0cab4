# Written by scripts/bindings.py from src/api/abi.json and bindings/texts.json: change those.
import ctypes
import enum
from typing import Any, Dict, Final, List, Tuple


class LogLevel(enum.IntEnum):
    text: str

    def __new__(cls, value: int, text: str) -> "LogLevel":
        member = int.__new__(cls, value)
        member._value_ = value
        member.text = text
        return member

    DEBUG = (0, "every call and every packet")
    INFO = (1, "the steps of a session")
    WARNING = (3, "what a host may have done wrong")
    ERROR = (4, "what failed")


class EventKind(enum.IntEnum):
    text: str

    def __new__(cls, value: int, text: str) -> "EventKind":
        member = int.__new__(cls, value)
        member._value_ = value
        member.text = text
        return member

    BUFFERING_STARTED = (200001, "buffering started")
    BUFFERING_ENDED = (200002, "buffering ended")
    FIRST_AUDIO = (200003, "first audio")
    MODE_CHANGED = (200006, "mode changed")


class ErrorKind(enum.IntEnum):
    text: str

    def __new__(cls, value: int, text: str) -> "ErrorKind":
        member = int.__new__(cls, value)
        member._value_ = value
        member.text = text
        return member

    CONNECTION = (-2, "no connection to the service, or the connection was lost")
    STREAM = (-3, "the stream from the service failed")


class Failure(enum.IntEnum):
    text: str

    def __new__(cls, value: int, text: str) -> "Failure":
        member = int.__new__(cls, value)
        member._value_ = value
        member.text = text
        return member

    LIBRARY_NOT_LOADED = (1, "SonviaPCAudioDll.dll could not be loaded")
    NOT_THE_LIBRARY = (2, "SonviaPCAudioDll.dll lacks a function: it is another library or another version")
    SERVICE_NOT_STARTED = (3, "QuPCAudio.exe did not start: it belongs next to the host's executable")
    SESSION_OPEN = (4, "a session is open already in this process")
    NOT_OPEN = (5, "the session is not open")
    INSIDE_CALLBACK = (6, "a session is neither opened nor closed inside a callback")
    TEXT_TOO_LONG = (7, "a text has more than 255 bytes of UTF-8")
    TEXT_NOT_UTF8 = (8, "a text is not valid UTF-8")
    TEXT_HOLDS_NUL = (9, "a text holds a NUL")
    FOLDER_NOT_MADE = (10, "the log folder could not be created")
    FOLDER_TOO_LONG = (11, "the path of the log folder has more than 200 characters")
    FOLDER_WITHOUT_SHORT_NAME = (12, "the service needs a log folder of ASCII without spaces, and this one has no short name")
    REFUSED = (13, "the library refused the call: a connection is still being made, or memory ran out")


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
