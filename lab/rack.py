"""Where a lab's switches stand: the bridge, a network for each, and the processes in them."""

import asyncio
import collections
import os
import shutil
import signal
import subprocess
import time

LAB = "/lab"  # seen by every switch, unlike /tmp
BIN = f"{LAB}/bin"
SOCKET = "/tmp/lumenHarbour.socket"  # of the daemon of each switch
PROGRAMS = ("busybox", "c++", "in.tftpd", "ip", "kea-dhcp4", "nsenter", "openssl")
SITE = f"{LAB}/site"  # the operator's keys
SCRIPTS = ("lab/ftp_server", "packaging/lumenharbour-start", "fetch/lumenharbour-sign")
SPEAKS = 200  # lines of a process that are kept


class LabError(Exception):
    """What a lab cannot go on with, as its user is told."""


async def until(what, holds, seconds=30):
    """Waits until a condition holds, for so long."""
    end = time.monotonic() + seconds
    while not holds():
        if time.monotonic() > end:
            raise LabError(f"not within {seconds:.1f} s: {what}")
        await asyncio.sleep(0.02)


class Process:
    """A process group, and what it prints, a line at a time.

    Its end is the end of all that it started, since all of it prints into one pipe.
    """

    def __init__(self, name, command, env=None, on_line=None, lines=None):
        self.name = name
        self.lines = collections.deque(maxlen=SPEAKS) if lines is None else lines
        self.ended = asyncio.Event()
        self._on_line = on_line or (lambda line: None)
        self._rest = b""
        readable, writable = os.pipe()
        os.set_blocking(readable, False)
        try:
            self._popen = subprocess.Popen(
                command,
                env={**os.environ, **(env or {})},
                stdin=subprocess.DEVNULL,
                stdout=writable,
                stderr=writable,
                start_new_session=True,
            )
        finally:
            os.close(writable)
        self.pid = self._popen.pid
        self._readable = readable
        asyncio.get_running_loop().add_reader(readable, self._read)

    def _read(self):
        data = os.read(self._readable, 65536)
        *lines, self._rest = (self._rest + data).replace(b"\r", b"\n").split(b"\n")
        for line in filter(None, lines if data else [*lines, self._rest]):
            text = line.decode(errors="replace")
            self.lines.append(text)
            self._on_line(text)
        if data:
            return
        asyncio.get_running_loop().remove_reader(self._readable)
        os.close(self._readable)
        self.ended.set()

    def send(self, number):
        """Sends a signal to all of the group."""
        try:
            os.killpg(self.pid, number)
        except ProcessLookupError:
            pass

    async def end(self, number=signal.SIGKILL, seconds=30):
        """Ends all of the group and waits until it is gone."""
        self.send(number)
        try:
            await asyncio.wait_for(self.ended.wait(), seconds)
        except asyncio.TimeoutError:
            raise LabError(f"{self.name} did not end within {seconds:g} s of signal {number}") from None
        self._popen.wait()

    async def result(self, seconds=30):
        """Waits for its end. Returns its exit status."""
        try:
            await asyncio.wait_for(self.ended.wait(), seconds)
        except asyncio.TimeoutError:
            await self.end()
            raise LabError(f"{self.name} did not end within {seconds:g} s") from None
        return self._popen.wait()


def quietly(*command, text=None):
    """Runs a command that is done at once; what it says is shown only when it fails."""
    done = subprocess.run(command, input=text, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if done.returncode != 0:
        raise LabError(f"{' '.join(command)}: {done.stdout.strip()}")


def install(build, root):
    """Gathers what runs on a switch, in its PATH, also if the checkout is below its /tmp."""
    os.environ["PATH"] = f"{BIN}:{os.environ['PATH']}:/usr/sbin"
    if missing := [name for name in PROGRAMS if not shutil.which(name)]:
        raise LabError(f"{', '.join(missing)} not installed; try scripts/bootstrap dhcp")
    built = [os.path.join(build, name) for name in ("lumenharbourd", "lumenharbourctl", "liblumenharbour-kea.so")]
    if missing := [path for path in built if not os.path.exists(path)]:
        raise LabError(f"{', '.join(missing)} not built; try make")
    os.makedirs(BIN)
    for path in (*built, *(f"{root}/{name}" for name in SCRIPTS)):
        shutil.copy(path, BIN)
    for directory in ("lab/stand-ins", "dhcp/udhcpc"):
        shutil.copytree(os.path.join(root, directory), BIN, dirs_exist_ok=True)
    shutil.copytree(os.path.join(build, "fetch"), f"{LAB}/libexec/lumenharbour/fetch")
    for applet in ("tftp", "ftpget", "udhcpc"):
        os.symlink(shutil.which("busybox"), f"{BIN}/{applet}")
    open("/dev/mtd5", "w").close()


def wire(places):
    """Makes the bridge, and a network of its own for the director and each switch, an uplink in it."""
    sockets = [("director", "02:00:5e:01:00:00"), *((place.name, place.mac) for place in places)]
    lines = ["link add lan type bridge", "link set lan addrgenmode none up"]
    for name, mac in sockets:
        lines += [
            f"netns add {name}",
            f"link add {name} type veth peer name uplink address {mac} netns {name}",
            f"link set {name} addrgenmode none master lan up",
        ]
    quietly("ip", "-batch", "-", text="\n".join(lines))


def boot(name, directory, env, *command, on_line=None, lines=None):
    """Starts a switch: its network as it stands, its RAM empty, its flash as it was left."""
    return Process(
        name,
        ["nsenter", f"--net=/run/netns/{name}", "unshare", "-m", f"{os.path.dirname(__file__)}/switch", directory]
        + list(command),
        {**env, "LUMENHARBOUR_SWITCH": name},
        on_line,
        lines,
    )


def make_flash(name):
    """Makes what stays of a switch that is off. Returns the directory."""
    directory = f"{LAB}/{name}"
    os.makedirs(f"{directory}/mtd")
    open(f"{directory}/mtd5", "w").close()
    return directory


def conf(name, speed):
    """Writes the platform configuration of a switch. Returns its path."""
    path = f"{LAB}/{name}/platform.conf"
    with open(path, "w") as file:
        file.write(
            "uplink = uplink\n"
            f"reboot_command = {BIN}/reboot\n"
            f"dhcp_notify_command = {BIN}/notify\n"
            f"clock_speed = {speed}\n"
        )
    return path


class Daemons:
    """The daemons' processor time, by the process group that each is in."""

    def __init__(self):
        self._pids = {}

    def _look(self):
        # A child that the daemon has just forked has the same name and a higher number.
        for entry in sorted(filter(str.isdigit, os.listdir("/proc")), key=int, reverse=True):
            try:
                with open(f"/proc/{entry}/stat") as file:
                    stat = file.read()
            except OSError:
                continue
            name = stat[stat.index("(") + 1 : stat.rindex(")")]
            if name == "lumenharbourd":
                self._pids[int(stat[stat.rindex(")") :].split()[3])] = int(entry)

    def pid(self, group):
        """Returns the daemon of a process group; None when there is none."""
        if not os.path.exists(f"/proc/{self._pids.get(group)}"):  # not known, or replaced by another since
            self._look()
        return self._pids.get(group)

    def used(self, group):
        """Returns the milliseconds of processor time that a group's daemon has used, without the tools it ran."""
        pid = self.pid(group)
        if pid is None:
            raise LabError("a daemon is not there to be measured")
        with open(f"/proc/{pid}/schedstat") as file:
            return int(file.read().split()[0]) / 1e6
