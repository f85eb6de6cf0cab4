"""Shows what the service reports until a phone plays its first audio, then quits. Any Python 3, anywhere from."""
import json
import subprocess
import sys

host = subprocess.Popen(sys.argv[1:] or ["sonvia-host.exe"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                        text=True, encoding="utf-8")


def call(name, **arguments):
    host.stdin.write(json.dumps({"call": name, **arguments}) + "\n")
    host.stdin.flush()


call("initSonviaAudioService", logDir="C:\\ProgramData\\AnyHost")
call("setParam", accountID="someone@example.com", pcName="Büro")
state = None
for line in host.stdout:
    message = json.loads(line)
    if "event" in message:
        print(message["event"], message["value"])
        if message["event"] == "firstAudio":
            call("getState")
            call("getSourceName")
    elif message.get("reply") == "getState":
        state = message["result"]
    elif message.get("reply") == "getSourceName":
        print(f"phone {message['result']}, state {state}")
        break
    elif "failure" in message or "error" in message:
        print(message, file=sys.stderr)
        break
host.communicate()  # the end of its input ends the session; what still comes is read
print("closed")
sys.exit(host.returncode)
