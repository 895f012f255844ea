"""A switch of a lab: its life from the factory to its configuration, read off what its own programs print."""

import collections
import hashlib
import os
import re
import time

import rack
from rack import BIN, LabError, until

# What a switch prints as it goes on, and the stage that begins with it. In a pattern with a group, the group is a file's
# name, whose ending tells the stage.
LINES = (
    (re.compile(r"udhcpc: lease of (?P<address>[0-9.]+) obtained"), "wait"),
    (re.compile(r"cmd: tftp -g -r \S*?(?P<file>[^ /]+) -l"), None),
    (re.compile(r"cmd: ftpget .* \S*?(?P<file>[^ /]+)$"), None),
    (re.compile(r"cmd: flashcp -v"), "flash"),
    (re.compile(r"cmd:mv  "), "reboot"),
    (re.compile(r"notify \(stand-in\)"), "wait"),
    (re.compile(r"reboot \(stand-in\)"), "restart"),
)
FILES = {".txt": "list", ".bin": "image", ".cfg": "config"}

# In the order in which a switch passes through them. Its daemon waits for its first minute, and after a failure.
STAGES = ("dhcp", "wait", "list", "image", "flash", "config", "reboot", "boot")


def digest(path):
    with open(path, "rb") as file:
        return hashlib.sha256(file.read()).hexdigest()


class Switch:
    """A switch at a place of the plan."""

    def __init__(self, place, speed, on_stage, env, descriptors):
        """`on_stage` is called with the switch each time that a stage has begun.

        `env` is for its daemon and the tools of that; `descriptors` is how many each of them may have, None for many.
        """
        self.place = place
        self._on_stage = on_stage
        self.name = place.name
        self.flash = rack.make_flash(place.name)
        self.address = ""
        self.stage = "dark"
        self.since = time.monotonic()
        self.seconds = dict.fromkeys(STAGES, 0.0)
        self.imagelist = "-"
        self.fetched = []  # names of all files that were asked for
        self.failures = 0  # attempts
        self.restarts = 0  # that were asked for since it was switched on
        self.replaced = 0  # daemons, by new ones
        self.verdict = ""
        self.ok = False
        self.own_ms = None  # processor time of its daemon until the reboot
        self.process = None
        self.lines = collections.deque(maxlen=rack.SPEAKS)  # of all its lives
        self._env = {
            "LUMENHARBOUR_PLATFORM_CONF": rack.conf(place.name, speed),
            "LUMENHARBOUR_CONF": "/dev/null",
            "LUMENHARBOUR_DIRECTOR_FILE": "/nonexistent",
            **env,
        }
        self._limit = f"ulimit -n {descriptors} && " if descriptors else ""

    # --- what it does -------------------------------------------------------------------------------------------------

    def enter(self, stage):
        """Takes note of a stage that begins, and of the time that the one before it took."""
        now = time.monotonic()
        if self.stage in self.seconds:
            self.seconds[self.stage] += now - self.since
        self.stage = stage
        self.since = now
        self._on_stage(self)

    def _line(self, line):
        self.replaced += line.endswith("is started anew")
        for pattern, stage in LINES:
            if found := pattern.search(line):
                break
        else:
            return
        groups = found.groupdict()
        self.address = groups.get("address", self.address)
        if "file" in groups:
            self.fetched.append(groups["file"])
            stage = FILES.get(os.path.splitext(groups["file"])[1], "config")
        self.failures += line.startswith("notify")
        self.restarts += stage == "restart"
        if self.stage in ("boot", "done"):
            return  # whatever it does then is told by what it has fetched
        if self.stage == "dhcp" and not self.address or "address" in groups and self.stage != "dhcp":
            return  # it still waits for its lease, or has renewed it
        self.enter(stage)

    def power_on(self, stage="dhcp"):
        self.enter(stage)
        self.address = ""
        self.restarts = 0
        product = str(self.place.group.product_id)
        start = f"lumenharbour-udhcpc uplink {product} & {self._limit}exec lumenharbour-start"
        command = ("sh", "-c", start)
        self.process = rack.boot(self.name, self.flash, self._env, *command, on_line=self._line, lines=self.lines)

    async def power_off(self):
        """As if the plug were pulled."""
        self.enter("dark")
        await self.process.end()

    def said(self, text):
        return any(text in line for line in self.lines)

    # --- what it has --------------------------------------------------------------------------------------------------

    def path(self, path):
        """Returns where the lab sees a file of a switch that is on."""
        return f"/proc/{self.process.pid}/root{path}"

    def names(self):
        """Returns what its DHCP client has told its daemon; None while it has told nothing."""
        try:
            with open(self.path("/run/lumenharbour/dhcp.options")) as file:
                return dict(line.rstrip("\n").split("=", 1) for line in file)
        except OSError:
            return None

    def image_sum(self):
        """Returns the checksum of its flash partition; an empty text when that is empty."""
        path = f"{self.flash}/mtd5"
        return digest(path) if os.path.getsize(path) else ""

    def config_sum(self):
        """Returns the checksum of its saved configuration; an empty text when it has none."""
        path = f"{self.flash}/mtd/startcfg"
        return digest(path) if os.path.exists(path) else ""

    async def ctl(self, *words):
        """Runs lumenharbourctl on its daemon. Returns the exit status and what was printed."""
        socket = self.path(rack.SOCKET)
        tool = rack.Process("lumenharbourctl", [f"{BIN}/lumenharbourctl", "--socket", socket, *words])
        return await tool.result(), list(tool.lines)

    async def reaches(self, stage, seconds):
        """Waits until it is at a stage. Fails when its programs end, unless somebody has pulled its plug."""

        def there():
            if self.process.ended.is_set() and self.stage != "dark":
                raise LabError(f"{self.name}: its programs have ended")
            return self.stage == stage

        await until(f"{self.name} gets to '{stage}'", there, seconds)
