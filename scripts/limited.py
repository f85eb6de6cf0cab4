"""Programs that may hang."""
import os
import signal
import subprocess

_running = set()  # the processes of run that have not ended


def run(command, log, seconds, **options):
    """Runs a command with its output in the file `log`. Returns its exit status; None when it was not done in time.

    It runs in a session of its own, so that what it started ends with it when its time is up."""
    with open(log, "w") as out:
        process = subprocess.Popen(command, stdout=out, stderr=subprocess.STDOUT, start_new_session=True, **options)
    _running.add(process)
    try:
        return process.wait(seconds)
    except subprocess.TimeoutExpired:
        return None
    finally:
        end_group(process)
        process.wait()
        _running.discard(process)


def end_group(process):
    if process.poll() is None:  # else its number may be another's by now
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass  # it ended just now, and another thread has waited for it


def end_all():
    """Ends what run() has running: Ctrl-C in the terminal does not reach other sessions."""
    for process in list(_running):
        end_group(process)
