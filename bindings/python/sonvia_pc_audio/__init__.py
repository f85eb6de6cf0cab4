"""The session with the audio service for Python on Windows x64.

    with sonvia_pc_audio.Session(r"C:\\ProgramData\\App\\logs", on_event=print) as session:
        session.connect(accountID="someone@example.com")
        ...

The handlers run on the library's thread. ctypes takes the interpreter's lock for them and gives it back while a function
of the library runs, so no call waits for a handler but close.
"""
import ctypes
import os
import sys
import threading
import time
from typing import Any, Callable, Dict, Optional

from ._declarations import (CALLBACK, FUNCTIONS, LIBRARY, STATE_UNKNOWN, TEXT_FIELDS, TEXT_SIZE, VERSION,
                            AudioServiceParam, ErrorKind, EventKind, Failure, LogLevel)

__all__ = ["ErrorKind", "EventKind", "Failure", "LogLevel", "STATE_UNKNOWN", "Session", "SonviaError", "VERSION"]

_PAUSE_BETWEEN_CONNECTS = 0.1
_LONGEST_FOLDER = 200
_SEARCH_SYSTEM_FOLDER_ALONE = 0x800

OnEvent = Callable[[int, int], Any]


class SonviaError(Exception):
    """What failed is in `failure`."""

    def __init__(self, failure: Failure, detail: str = "") -> None:
        super().__init__(failure.text + (f": {detail}" if detail else ""))
        self.failure = failure


def _bytes_of(text: str) -> bytes:
    """A text of the record with its NUL."""
    try:
        encoded = text.encode("utf-8")
    except UnicodeEncodeError as error:
        raise SonviaError(Failure.TEXT_NOT_UTF8) from error
    if b"\0" in encoded:
        raise SonviaError(Failure.TEXT_HOLDS_NUL)
    if len(encoded) >= TEXT_SIZE:
        raise SonviaError(Failure.TEXT_TOO_LONG)
    return encoded.ljust(TEXT_SIZE, b"\0")


def _plain(text: str) -> bool:
    return all("!" <= letter <= "~" for letter in text)


def folder_for_service(folder: str) -> bytes:
    """The folder as the service understands it: absolute, created, and on Windows ASCII without spaces."""
    given = os.path.abspath(folder)
    try:
        os.makedirs(given, exist_ok=True)
    except OSError as error:
        raise SonviaError(Failure.FOLDER_NOT_MADE, str(error)) from error
    if sys.platform == "win32" and not _plain(given):
        buffer = ctypes.create_unicode_buffer(32768)
        length = ctypes.windll.kernel32.GetShortPathNameW(given, buffer, len(buffer))
        given = buffer.value if length else ""
        if not given or not _plain(given):
            raise SonviaError(Failure.FOLDER_WITHOUT_SHORT_NAME)
    if len(given) > _LONGEST_FOLDER:
        raise SonviaError(Failure.FOLDER_TOO_LONG)
    return os.fsencode(given)


def load_library(folder: Optional[str] = None) -> Any:
    """SonviaPCAudioDll.dll from this folder and nowhere else; without one, from that of the running python.exe."""
    path = os.path.join(os.path.abspath(folder or os.path.dirname(sys.executable)), LIBRARY)
    try:
        # CDLL lets go of the interpreter's lock while a function runs; PyDLL would not, and a release would hang.
        library = ctypes.CDLL(path, winmode=_SEARCH_SYSTEM_FOLDER_ALONE)
    except OSError as error:
        raise SonviaError(Failure.LIBRARY_NOT_LOADED, f"{path}: {error}") from error
    for name, (result, arguments) in FUNCTIONS.items():
        try:
            function = getattr(library, name)
        except AttributeError as error:
            raise SonviaError(Failure.NOT_THE_LIBRARY, name) from error
        function.restype, function.argtypes = result, arguments
    return library


class Session:
    """One session at a time in a process. Raises SonviaError."""

    _open_lock = threading.Lock()
    _handler_thread: Optional[int] = None

    def __init__(self, log_folder: str, on_event: Optional[OnEvent] = None, on_error: Optional[OnEvent] = None,
                 log_level: LogLevel = LogLevel.INFO, connect_time: float = 5.0, library: Any = None) -> None:
        """Starts the service, which has to be next to the running python.exe. `library` is what load_library gives."""
        self._closed = True
        folder = folder_for_service(log_folder)
        self._library = library if library is not None else load_library()
        if Session._handler_thread == threading.get_ident():
            raise SonviaError(Failure.INSIDE_CALLBACK)
        if not Session._open_lock.acquire(blocking=False):
            raise SonviaError(Failure.SESSION_OPEN)
        self._on_event, self._on_error = on_event, on_error
        self._connect_time, self._retries_end = connect_time, 0.0
        self._changed = threading.Condition()
        self._calls = 0
        self._closing = threading.Event()
        # Both have to live as long as the library may call them.
        self._callbacks = (CALLBACK(self._event), CALLBACK(self._error))
        self._param = AudioServiceParam(self._callbacks[0], self._callbacks[1], 1)
        self._handle = self._library.initSonviaAudioService(folder, int(log_level))
        if not self._handle:
            Session._open_lock.release()
            raise SonviaError(Failure.SERVICE_NOT_STARTED)
        self._closed = False

    def __enter__(self) -> "Session":
        return self

    def __exit__(self, *exception: Any) -> None:
        self.close()

    def connect(self, **texts: str) -> None:
        """Connects and sends the identity; again to change it. Texts that are left out stay as they are."""
        unknown = set(texts) - set(TEXT_FIELDS)
        if unknown:
            raise TypeError(f"an identity has no {', '.join(sorted(unknown))}")
        fields = {name: _bytes_of(text) for name, text in texts.items()}
        with self._changed:
            self._put(fields)
            self._retries_end = time.monotonic() + self._connect_time
        self._send_param()

    def set_account(self, account: str) -> None:
        """Empty if nobody is signed in."""
        field = _bytes_of(account)
        with self._changed:
            before = len(bytes(self._param.accountID).split(b"\0")[0])
            self._put({"accountID": field})
        text = field.rstrip(b"\0")
        # The library's setAccountID keeps the tail of a longer id.
        if not text or len(text) < before:
            self._send_param()
        else:
            self._call(lambda: self._library.setAccountID(self._handle, text))

    def exit_projection(self) -> None:
        """Asks the service to end the projection."""
        self._call(lambda: self._library.exitAudioProjection(self._handle))

    @property
    def state(self) -> int:
        """The player state as the service sent it."""
        try:
            return int(self._enter(lambda: self._library.getState(self._handle)))
        except SonviaError:
            return STATE_UNKNOWN

    @property
    def phone(self) -> str:
        """The name of the phone; ctypes copies it at once."""
        try:
            return bytes(self._enter(lambda: self._library.getSourceName(self._handle))).decode("utf-8", "replace")
        except SonviaError:
            return "phone"

    def close(self) -> None:
        """Stops the service; does nothing the second time. Not inside a handler."""
        if self._closed:
            return
        if Session._handler_thread == threading.get_ident():
            raise SonviaError(Failure.INSIDE_CALLBACK)
        with self._changed:
            if self._closing.is_set():  # another thread is at it
                self._changed.wait_for(lambda: self._closed)
                return
            self._closing.set()
            self._changed.wait_for(lambda: self._calls == 0)
        self._library.uninitSonviaAudioService(self._handle)
        with self._changed:
            self._closed = True
            self._changed.notify_all()
        Session._open_lock.release()

    def _put(self, fields: Dict[str, bytes]) -> None:
        for name, field in fields.items():
            ctypes.memmove(getattr(self._param, name), field, TEXT_SIZE)

    def _enter(self, function: Callable[[], Any]) -> Any:
        """A call that may not overlap the release."""
        with self._changed:
            if self._closed or self._closing.is_set():
                raise SonviaError(Failure.NOT_OPEN)
            self._calls += 1
        try:
            return function()
        finally:
            with self._changed:
                self._calls -= 1
                self._changed.notify_all()

    def _call(self, function: Callable[[], Any]) -> None:
        if not self._enter(function):
            raise SonviaError(Failure.REFUSED)

    def _send_param(self) -> None:
        with self._changed:
            copy = AudioServiceParam.from_buffer_copy(self._param)
        self._call(lambda: self._library.setParam(self._handle, ctypes.byref(copy)))

    def _event(self, event: int, value: int) -> None:
        self._handle_on_thread(self._on_event, event, value)

    def _error(self, code: int, value: int) -> None:
        no_error = code == ErrorKind.STREAM and value == 0  # a frame came in several pieces
        if not no_error and not (code == ErrorKind.CONNECTION and value == 0 and self._connect_again()):
            self._handle_on_thread(self._on_error, code, value)

    def _connect_again(self) -> bool:
        """A service that starts slowly is asked again. No event can come meanwhile, so the pause delays none."""
        if not self._closing.is_set() and time.monotonic() >= self._retries_end:
            return False
        if not self._closing.wait(_PAUSE_BETWEEN_CONNECTS):
            try:
                self._send_param()
            except SonviaError as error:
                return error.failure == Failure.NOT_OPEN
        return True

    @staticmethod
    def _handle_on_thread(handler: Optional[OnEvent], code: int, value: int) -> None:
        """What a handler raises is printed by sys.unraisablehook and goes no further: ctypes sees to that."""
        if handler is not None:
            Session._handler_thread = threading.get_ident()
            try:
                handler(code, value)
            finally:
                Session._handler_thread = None
