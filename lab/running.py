"""The processes of a lab, found by what their environment says: whatever became of the one that started them."""

import dataclasses
import os

NAME = os.path.dirname(os.path.abspath(__file__))


@dataclasses.dataclass(frozen=True)
class Process:
    pid: int
    switch: str  # empty for one that is no switch's
    path: str


def environment(pid):
    """Returns a process's environment; empty when it ended, or is another user's."""
    try:
        with open(f"/proc/{pid}/environ", "rb") as file:
            entries = file.read().split(b"\0")
    except OSError:
        return {}
    pairs = (entry.decode(errors="replace").partition("=") for entry in entries)
    return {name: value for name, _, value in pairs}


def processes():
    """Returns the processes of this checkout's lab, but the caller."""
    found = []
    for entry in os.listdir("/proc"):
        if not entry.isdigit() or int(entry) == os.getpid():
            continue
        env = environment(entry)
        if env.get("LUMENHARBOUR_LAB") == NAME:
            found.append(Process(int(entry), env.get("LUMENHARBOUR_SWITCH", ""), env.get("PATH", "")))
    return found


def switch(name):
    """Returns a process that stands in a switch's namespaces; None when the switch is off or unknown."""
    return next((process for process in processes() if process.switch == name), None)
