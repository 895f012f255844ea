#!/usr/bin/python3
"""Types at the tool's prompt in a pseudo-terminal and looks at what appears: shell_test.py DAEMON CTL

The daemon's fixed paths have to be its own; scripts/test sees to that.
"""

import itertools
import os
import pathlib
import pty
import re
import select
import signal
import subprocess
import sys
import tempfile
import termios

DAEMON, CTL = sys.argv[1:]
PROMPT = r"lumenharbour (?:director|none)@\S+(?: \(read-only\))?> "
UP, SEARCH, INTERRUPT, END = "\x1b[A", "\x12", "\x03", "\x04"
opened = []
changes = itertools.count()


class Terminal:
    """The tool at a terminal of its own, and what has appeared there."""

    def __init__(self, *words, **environment):
        opened.append(self)
        self.bytes = b""
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            # The line editor keeps what it has allocated to the end.
            os.execve(CTL, [CTL, *words], {"TERM": "xterm", "ASAN_OPTIONS": "detect_leaks=0", **environment})
        self.type("", PROMPT)

    def text(self, begin=0):
        """What has appeared from that byte on, without what moves the cursor."""
        return re.sub(r"\x1b\[[0-9;?]*[a-zA-Z]|\r", "", self.bytes[begin:].decode(errors="replace"))

    def type(self, keys, expected):
        """Types keys and waits for what is expected, a regular expression, and behind a prompt for the line editor."""
        begin = len(self.bytes)
        os.write(self.fd, keys.encode())
        while not re.search(expected + r"\Z", self.text(begin), re.DOTALL) or (
            expected.endswith(PROMPT) and termios.tcgetattr(self.fd)[3] & termios.ICANON
        ):
            if keys.startswith("watch"):  # for something that changes
                ctl("default", "config", f"{next(changes)}.cfg")
            if select.select([self.fd], [], [], 0.05)[0]:
                self.bytes += os.read(self.fd, 4096)

    def end(self, keys):
        """Types keys that end the tool, and waits for its exit status."""
        os.write(self.fd, keys.encode())
        assert os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1]) == 0


def ctl(*words):
    subprocess.run([CTL, *words], check=True)


def history(path):
    assert os.stat(path).st_mode & 0o777 == 0o600, "others can read the history"
    lines = pathlib.Path(path).read_text().splitlines()[1:]
    return [re.sub(r"\\(\d{3})", lambda octal: chr(int(octal[1], 8)), line).rstrip("\n") for line in lines]


# What is typed, what appears before the next prompt, and the line as the history has it if it is kept.
STEPS = [
    ("get\tservice\r", r"\non\n", "get service"),
    ("get service\r", r"\non\n", None),
    ("get ab\\\r", r"\n[^\n]*: there is no global attribute 'ab\\'; .*\n", "get ab\\"),
    ("gr\ta\t" + INTERRUPT, r"\n  add\n  activate\n.*group a\^C\n", None),
    ("ex\t" + INTERRUPT, r"\n  exit\n  explain\n  export\n.*", None),
    ("sh gr fl\t\r", r"\nname: floor-2\n.*", "sh gr floor-2 "),
    ("apply --dr\t\tit\t\r", r"\n  folder/\n  it's # 3\n.*\nnothing to change\n", r"apply --dry-run it\'s\ #\ 3 "),
    ("--socket=/tmp/lum\tget service\r", r"\non\n", "--socket=/tmp/lumenHarbour.socket get service"),
    ("dir st?" + INTERRUPT, r"\n  start  Become the director\n  stop   Leave [^\n]*\n.*dir st\^C\n", None),
    ("group add 3 a ?" + INTERRUPT, r"\n  --type TYPE    what [^\n]*\n.*\n  --activate     [^\n]*\n.*\^C\n", None),
    ("get 'a?'\r", r"\n[^\n]*: there is no global attribute 'a\?'; .*\n", "get 'a?'"),
    ("help dir\tst\ta\t\r", r"\n  start\n  stop\n.*\nBecome the director.*", "help director start "),
    (UP + UP + UP + "\r", r"\non\n", "--socket=/tmp/lumenHarbour.socket get service"),
    (SEARCH + "floor\r", r"\nname: floor-2\n.*", "sh gr floor-2"),
    ("nonsense\r", r"\n[^\n]*: there is no command 'nonsense'; .*\n", "nonsense"),
    ("-f json get stat\r", r'\n{"error":{"status":"usage",.*}}\n', "-f json get stat"),
    ("-f json\r", r"\n[^\n]*: the line holds options and no command; .*\n", "-f json"),
    ("-c get\r", r"\n[^\n]*: a line cannot hold --command; .*\n", "-c get"),
    ("get 'x\r", r"\n[^\n]*: a quote ' is not closed; .*\n", "get 'x"),
    ("# note\t\r", r"\x07\n", None),
    ("get nonsense\t" + INTERRUPT, r"\x07\^C\n", None),
    ("watch --interval 0.02\r", None, "watch --interval 0.02"),
    (INTERRUPT, r"\^C.*\n", None),
    ("director stop\r", r"role and loses 1 group and the defaults\. Go on\? \[y/N\] ", "director stop"),
    ("\r", r"\n[^\n]*: did not set director-state; nothing was changed\n", None),
    ("service stop\r", r"role and loses 1 group and the defaults\. Go on\? \[y/N\] ", "service stop"),
    ("y\r", r"y\n", None),
    ("get service\r", r"\noff\n", "get service"),
]


def drive():
    ctl("wait", "--for", "service=off", "--timeout", "30")
    ctl("-c", "service start", "-c", "director address 127.0.0.1", "-c", "group add 0 floor-2 --type mac")
    terminal = Terminal(HOME=".")
    for keys, expected, _ in STEPS:
        expected = expected or r"default-config changed: .*\n"
        terminal.type(keys, expected + ("" if expected.endswith("] ") or keys.startswith("watch") else PROMPT))
    terminal.end(END)
    found = history(".lumenharbourctl_history")
    assert found == [line for _, _, line in STEPS if line], f"the history is {found}"
    terminal = Terminal(HOME=".")
    terminal.type(UP + INTERRUPT, r"get service\^C\n" + PROMPT)
    terminal.end("exit\r")
    Terminal("--read-only", HOME=".", XDG_STATE_HOME="folder").end("quit\r")
    assert history("folder/lumenharbourctl_history") == ["quit"]


def give_up(*_):
    raise TimeoutError("what appeared last is not what was expected")


with tempfile.TemporaryDirectory() as directory:
    os.chdir(directory)
    os.mkdir("folder")
    pathlib.Path("it's # 3").write_text("service: on")
    daemon = subprocess.Popen([DAEMON, "5", "5", "5"], stdout=subprocess.DEVNULL)
    signal.signal(signal.SIGALRM, give_up)
    signal.alarm(60)
    try:
        drive()
    except BaseException:
        print(*(terminal.text() for terminal in opened), sep="\n")
        raise
    finally:
        daemon.kill()
        daemon.wait()
