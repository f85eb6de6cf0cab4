"""Shows what the service reports until a phone plays its first audio, then quits."""
import sys
import threading

from sonvia_pc_audio import EventKind, Session

first_audio = threading.Event()


def on_event(code: int, value: int) -> None:
    """On the library's thread: it returns soon."""
    print(EventKind(code).name, value)
    if code == EventKind.FIRST_AUDIO:
        first_audio.set()


def on_error(code: int, value: int) -> None:
    print("error", code, value, file=sys.stderr)
    first_audio.set()


with Session("C:\\ProgramData\\PythonHost", on_event, on_error) as session:
    session.connect(accountID="someone@example.com", pcName="Büro")
    first_audio.wait()
    print(f"phone {session.phone}, state {session.state}")
print("closed")
