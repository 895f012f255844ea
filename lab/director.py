"""The director of a lab: its DHCP server with the hook, its daemon, its file server, and what it serves."""

import hashlib
import json
import os
import re
import signal
import time

import plan
import rack
from rack import LAB, LabError, Process, until

SLOW = 8 << 20  # bytes a second and connection by FTP; TFTP is slow by itself
HIDDEN = ".hidden"
NOTICE = re.compile(r"LUMENHARBOUR_DIRECTOR_(AWAY|BACK)")


class Director:
    """Each of its parts is a process of its own, which a fault may end or stop."""

    def __init__(self, places, transport, image_size, root):
        self.places = places
        self.transport = transport
        self.image_size = image_size
        self.root = root
        self.is_slow = False  # to be told before the file server is started
        self.signs = False  # so is this
        self.auth = "quaylanterns"
        self.sums = {}  # file name -> sha256 of what is offered under it
        self.notices = []  # what the hook told of the director: AWAY, BACK
        self.directory = rack.make_flash("director")
        self.switch = self.daemon = self.dhcp = self.files = None

    # --- from the outside ---------------------------------------------------------------------------------------------

    def path(self, path):
        """Returns where the lab sees a file of the director's."""
        return f"/proc/{self.switch.pid}/root{path}"

    def start(self, name, command, env=None, on_line=None):
        """Starts a part of the director."""
        spaces = ["nsenter", "-t", str(self.switch.pid), "-m", "-n", "--"]
        return Process(name, [*spaces, *command], {**(env or {}), "LUMENHARBOUR_SWITCH": "director"}, on_line)

    def listens(self, table, port):
        with open(f"/proc/{self.switch.pid}/net/{table}") as file:
            return any(f":{port:04X} " in line for line in file)

    async def ctl(self, *words):
        """Runs lumenharbourctl at the director. Returns what it printed."""
        tool = self.start("lumenharbourctl", ["lumenharbourctl", *words])
        if await tool.result() != 0:
            raise LabError(f"lumenharbourctl {' '.join(words)}: {' '.join(tool.lines)}")
        return list(tool.lines)

    def parts(self):
        return [part for part in (self.daemon, self.dhcp, self.files, self.switch) if part]

    # --- its life -----------------------------------------------------------------------------------------------------

    async def boot(self):
        """Starts it, without any of its parts but the files it offers."""
        self.switch = rack.boot("director", self.directory, {}, "sh", "-c", "echo up; exec sleep infinity")
        await self._is_there(self.switch, lambda: self.switch.lines)
        rack.quietly("nsenter", "--net=/run/netns/director", "ip", "address", "add", plan.PREFIX, "dev", "uplink")
        # Without a saved configuration it would begin as a client like every other switch.
        with open(f"{self.directory}/mtd/startcfg", "w") as file:
            file.write("hostname director\n")
        if self.signs:
            rack.quietly("lumenharbour-sign", "init", rack.SITE)
        for group in plan.GROUPS.values():
            self.offer(group.image, os.urandom(self.image_size))
            self.offer(group.config, f"hostname {group.name}\n".encode())
        with open(f"{self.directory}/state.json", "w") as file:
            file.write(plan.state(self.places))

    def offer(self, name, data):
        """Puts a file where the file server finds it, signed if files are."""
        path = self.path(f"/tmp/{name}")
        with open(path, "wb") as file:
            file.write(data)
        if self.signs:
            self.sign(path, rack.SITE)
        self.sums[name] = hashlib.sha256(data).hexdigest()

    def sign(self, path, site):
        rack.quietly("lumenharbour-sign", "sign", "-k", site, path, path + HIDDEN)
        os.rename(path + HIDDEN, path)

    def replace(self, suffix, change):
        """Has files, given to `change` as bytes, replaced by what that returns, until they are restored."""
        self.withdraw(suffix)
        for name in os.listdir(self.path("/tmp")):
            if name.endswith(suffix + HIDDEN):
                with open(self.path(f"/tmp/{name}"), "rb") as file:
                    changed = change(file.read())
                with open(self.path(f"/tmp/{name.removesuffix(HIDDEN)}"), "wb") as file:
                    file.write(changed)

    def withdraw(self, suffix):
        """Hides files from the file server until they are restored."""
        for name in os.listdir(self.path("/tmp")):
            if name.endswith(suffix):
                os.rename(self.path(f"/tmp/{name}"), self.path(f"/tmp/{name}{HIDDEN}"))

    def restore(self, suffix):
        for name in os.listdir(self.path("/tmp")):
            if name.endswith(suffix + HIDDEN):
                os.rename(self.path(f"/tmp/{name}"), self.path(f"/tmp/{name.removesuffix(HIDDEN)}"))

    async def start_daemon(self):
        """Starts its daemon, with room for the lab, and waits until it has its groups back."""
        lists = [self.path(f"/tmp/{group.imagelist}") for group in plan.GROUPS.values()]
        for path in filter(os.path.exists, lists):
            os.unlink(path)
        self.daemon = self.start(
            "the director's daemon",
            ["lumenharbour-start"],
            {
                "CLIENTS": str(len(self.places)),
                "GROUPS_MAX": str(len(self.places) + 2),
                "LUMENHARBOUR_CONF": "/dev/null",
                "LUMENHARBOUR_DIRECTOR_FILE": f"{self.directory}/state.json",
                "LUMENHARBOUR_PLATFORM_CONF": rack.conf("director", 1),
            },
        )
        await self._is_there(self.daemon, lambda: all(map(os.path.exists, lists)))
        # The last of what it is given.
        await self.ctl("wait", "--for", f"default-config={plan.GROUPS['default'].config}", "--timeout", "30")

    async def start_dhcp(self):
        """Starts Kea with the hook, on the configuration that is shipped, fitted to this network."""
        with open(f"{self.root}/dhcp/kea/kea-dhcp4.conf") as file:
            lines = [line for line in file if not line.strip().startswith("//")]
        config = json.loads("".join(lines))
        dhcp = config["Dhcp4"]
        dhcp["interfaces-config"]["interfaces"] = ["uplink"]
        dhcp["lease-database"]["name"] = f"{self.directory}/leases"
        dhcp["expired-leases-processing"] = {"reclaim-timer-wait-time": 1}
        # Told apart by what they are, the lab counts what the hook tells.
        dhcp["loggers"] = [
            {"name": name, "severity": severity, "output_options": [{"output": "stdout"}]}
            for name, severity in (("kea-dhcp4", "WARN"), ("kea-dhcp4.lumenharbour-hooks", "INFO"))
        ]
        (hook,) = dhcp["hooks-libraries"]
        hook["library"] = f"{rack.BIN}/liblumenharbour-kea.so"
        # A subnet's own reboot time counts more.
        hook["parameters"] = {"reboot-time": 60, **self.same_for_all()}
        dhcp["subnet4"] = [
            {
                "subnet": plan.SUBNET,
                "pools": [{"pool": plan.POOL}],
                # For others that boot from this network; no switch of ours may flash it.
                "next-server": plan.DIRECTOR,
                "boot-file-name": "pxelinux.0",
                "user-context": {"lumenharbour": {"reboot-time": 30}},
            }
        ]
        with open(f"{self.directory}/kea.json", "w") as file:
            json.dump(config, file, indent=2)
        places = {"KEA_PIDFILE_DIR": "/run", "KEA_LOCKFILE_DIR": "/run"}
        self.dhcp = self.start("Kea", ["kea-dhcp4", "-c", f"{self.directory}/kea.json"], places, self._notice)
        await self._is_there(self.dhcp, lambda: self.listens("udp", 67))

    def let_expire(self, mac):
        """Has the lease of a MAC address end now, in the file of a Kea that is not running."""
        path = f"{self.directory}/leases"
        with open(path) as file:
            heads, *rows = [line.rstrip("\n").split(",") for line in file]
        for row in rows:
            if row[heads.index("hwaddr")] == mac:
                row[heads.index("expire")] = str(int(time.time()))
        with open(path, "w") as file:
            file.writelines(",".join(row) + "\n" for row in [heads, *rows])

    def told(self, group):
        """Returns what the DHCP client of a group's switch is to tell its daemon."""
        names = {"imagelist": group.imagelist, "config-file": group.config}
        return {**names, **self.same_for_all(), "reboot-time": "30"}

    def same_for_all(self):
        # Of an image that is not there: a switch takes the boot file for others where it is told none.
        values = {"auth-msg": self.auth, "image-file": "none.bin"}
        if self.transport == "tftp":
            return {**values, "tftp-server": plan.DIRECTOR}
        return {**values, "ftp-server": plan.DIRECTOR, "ftp-username": plan.USER, "ftp-password": plan.PASSWORD}

    def _notice(self, line):
        if found := NOTICE.search(line):
            self.notices.append(found[1])

    async def start_files(self):
        """Starts the file server on what the daemon's download directory holds."""
        if self.transport == "tftp":
            # The port by number: a small system has no /etc/services.
            words = ["in.tftpd", "-L", "-v", "--user", "root", "--secure", "--address", f"{plan.DIRECTOR}:69", "/tmp"]
            # A namespace of one user has no supplementary groups, which in.tftpd insists on setting.
            self.files = self.start("the TFTP server", words, {"LD_PRELOAD": f"{LAB}/groups.so"})
            await self._is_there(self.files, lambda: self.listens("udp", 69))
        else:
            limit = SLOW if self.is_slow else 0
            words = ["ftp_server", plan.DIRECTOR, plan.USER, plan.PASSWORD, "/tmp", str(limit)]
            self.files = self.start("the FTP server", words)
            await self._is_there(self.files, lambda: self.listens("tcp", 21))

    async def _is_there(self, part, holds):
        """Waits until a part does what it is there for."""
        await until(f"{part.name} serves", lambda: part.ended.is_set() or holds())
        if part.ended.is_set():
            raise LabError(f"{part.name} ended: {' '.join(part.lines)}")

    async def start_all(self):
        if self.transport == "tftp":
            shim = f"{self.root}/lab/groups.cpp"
            rack.quietly("c++", "-shared", "-fPIC", "-o", f"{LAB}/groups.so", shim)
        await self.start_daemon()
        await self.start_files()
        await self.start_dhcp()

    async def power_off(self):
        for part in self.parts():
            part.send(signal.SIGCONT)
            await part.end()
