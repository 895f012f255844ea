"""Faults on demand, and what is expected of the switches then."""

import asyncio
import dataclasses
import glob
import os
import signal
from typing import Any, Callable, Optional

import plan
import rack
from rack import LabError, until


@dataclasses.dataclass(frozen=True)
class Fault:
    """A fault, and what makes it easy to hit the moment."""

    name: str
    what: str
    run: Callable[[Any], Any]  # of a lab whose director works
    is_slow: bool = False  # images take seconds
    least: int = 1  # switches
    kind: Optional[str] = None  # of a group that one of them must be in
    clock_speed: Optional[int] = None
    transport: Optional[str] = None  # where it makes no difference, the one that it is tried with
    is_signed: bool = False  # files are, and switches take no others
    descriptors: Optional[int] = None  # that a process of a switch may have
    env: dict = dataclasses.field(default_factory=dict)  # settings of the switches


FAULTS = {}


def fault(what, **how):
    """Enters a function in the table of faults, under its own name."""

    def enter(run):
        name = run.__name__.replace("_", "-")
        FAULTS[name] = Fault(name, what, run, **how)
        return run

    return enter


def described():
    return (
        "; ".join(f"{entry.name}: {entry.what}" for entry in FAULTS.values())
        + "; all: those for the transport, one after the other"
    )


def nothing_installed(switches):
    return not any(switch.image_sum() or switch.config_sum() for switch in switches)


def partial(lab, switch):
    """Returns whether a switch has a part of its image and not all of it."""
    try:
        sizes = [os.path.getsize(path) for path in glob.glob(switch.path("/tmp/.fetch.*/file"))]
    except OSError:
        return False
    return switch.stage == "image" and 0 < sum(sizes) < lab.director.image_size


def asked(switch):
    """Returns how often a switch has asked for a DHCP server."""
    return sum("broadcasting discover" in line for line in switch.lines)


def failed_again(lab, times):
    """Returns a condition: that a switch has failed so many times more."""
    before = {switch: switch.failures for switch in lab.switches}
    return lambda switch: switch.failures >= before[switch] + times


@fault("the file server takes requests and does not answer")
async def server_silent(lab):
    lab.director.files.send(signal.SIGSTOP)
    lives = await lab.power_on()
    if lab.transport == "tftp":
        await lab.expect("each switch gives up", lambda switch: switch.failures > 0)
        lab.check("nothing is installed", nothing_installed(lab.switches))
    await lab.all("each switch asking for its imagelist", lambda switch: switch.stage == "list")
    if lab.transport == "ftp":
        first = lab.switches[0]
        status, _ = await first.ctl("--timeout", "2", "get", "service")
        lab.check("a daemon that waits for the server does not answer lumenharbourctl, exit status 5", status == 5)
        lab.check("nothing is installed", nothing_installed(lab.switches))
    lab.director.files.send(signal.SIGCONT)
    await lives


@fault("the file server refuses the images")
async def server_refuses(lab):
    await missing(lab, ".bin")


async def missing(lab, suffix):
    """Hides files from the file server until each switch has missed them twice."""
    lab.director.withdraw(suffix)
    lives = await lab.power_on()
    await lab.expect("each switch is refused and tries again", lambda switch: switch.failures >= 2)
    lab.check("nothing is installed, configurations neither", nothing_installed(lab.switches))
    lab.director.restore(suffix)
    await lives


@fault("the file server ends in the middle of every image", is_slow=True)
async def server_breaks(lab):
    lives = await lab.power_on()
    await lab.all("a part of the image on each switch", lambda switch: partial(lab, switch))
    await lab.director.files.end()
    await lab.all("a failed attempt of each switch", failed_again(lab, 1))
    lab.check("no part of an image is written to flash, no configuration saved", nothing_installed(lab.switches))
    await lab.director.start_files()
    await lives


@fault("the director's daemon is down while switches ask, and comes back", transport="tftp")
async def director_away(lab):
    await lab.director.daemon.end()
    os.unlink(lab.director.path("/tmp/lumenHarbour.socket"))
    lives = await lab.power_on()
    await lab.expect("each switch gets an address and no names", lambda switch: switch.names() == {})
    await lab.all("a failed attempt of each switch", lambda switch: switch.failures > 0)
    lab.check("nothing is fetched", not any(switch.fetched for switch in lab.switches))
    lab.check("the hook tells it once", lab.director.notices == ["AWAY"])
    await lab.director.start_daemon()
    await lives
    lab.check("the hook tells once that it is back", lab.director.notices == ["AWAY", "BACK"])


@fault("the DHCP server presents a wrong authentication message, until it is corrected", transport="tftp")
async def wrong_auth(lab):
    await present(lab, "somebodyelse")
    lives = await lab.power_on()
    await lab.all("two failed attempts of each switch", lambda switch: switch.failures >= 2)
    only_lists_asked(lab)
    await present(lab, "quaylanterns")
    await lives


async def present(lab, message):
    """Has the DHCP server present an authentication message from now on."""
    await lab.director.dhcp.end(signal.SIGTERM)
    lab.director.auth = message
    await lab.director.start_dhcp()


def only_lists_asked(lab):
    images = [name for switch in lab.switches for name in switch.fetched if not name.endswith(".txt")]
    lab.check("no image and no configuration is asked for", not images)
    lab.check("nothing is installed", nothing_installed(lab.switches))


@fault("each imagelist begins with somebody else's line", transport="tftp")
async def foreign_line(lab):
    for group in plan.GROUPS.values():
        path = lab.director.path(f"/tmp/{group.imagelist}")
        with open(path) as file:
            line = file.read()
        with open(path, "w") as file:
            file.write(f"mac=02:00:5e:ff:ff:ff;imagefile=other.bin;cfgfile=other.cfg;\n{line}")
    await (await lab.power_on())
    others = [name for switch in lab.switches for name in switch.fetched if name.startswith("other")]
    lab.check("nobody asks for what that line names", not others)


@fault(
    "the DHCP server is killed when the first switch has its lease, and is away while the others ask", transport="tftp"
)
async def dhcp_restart(lab):
    first, *others = lab.switches
    life = await lab.power_on([first])
    await until("the first lease", lambda: first.address, lab.left())
    leased = first.address
    await lab.director.dhcp.end()
    lives = await lab.power_on(others)
    await until("the others asking twice", lambda: all(asked(switch) > 1 for switch in others), lab.left())
    lab.check("nobody else has an address", not any(switch.address for switch in others))
    await lab.director.start_dhcp()
    await life
    await lives
    lab.check("the first switch keeps its address", first.address == leased)
    lab.check("no address is given twice", len({switch.address for switch in lab.switches}) == len(lab.switches))


@fault(
    "a group is deactivated after its switches were told of it, and activated again",
    clock_speed=12,
    kind="mac",
    transport="tftp",
)
async def group_off(lab):
    group = plan.GROUPS["mac"]
    members = [switch for switch in lab.switches if switch.place.group is group]
    lives = await lab.power_on()
    await lab.all("the names of each switch", lambda switch: switch.names())
    lab.check("no switch has begun to fetch", not any(switch.fetched for switch in lab.switches))
    await lab.director.ctl("group", "deactivate", group.name)
    await lab.all("a failed attempt of each of them", lambda switch: switch not in members or switch.failures > 0)
    lab.check("its switches find no imagelist, and install nothing", nothing_installed(members))
    await lab.director.ctl("group", "activate", group.name)
    await lives


@fault("the first switch loses power while it fetches its image", is_slow=True)
async def power_loss(lab):
    victim = lab.switches[0]
    lives = await lab.power_on()
    await until("a part of the first switch's image", lambda: partial(lab, victim), lab.left())
    await victim.power_off()
    lab.check("its flash is as it was", not victim.image_sum() and not victim.config_sum())
    before = len(victim.fetched)
    victim.power_on()
    await lives
    again = victim.fetched[before : before + 1]
    lab.check("it begins anew, with its imagelist", again == [victim.place.group.imagelist])


@fault(
    "the first switch gives its address back, and the second vanishes until its lease is over",
    least=2,
    transport="tftp",
)
async def lease_ends(lab):
    released, vanished, *others = lab.switches
    await (await lab.power_on())
    lab.check("the director knows every switch", await known(lab) == macs(lab.switches))
    with open(released.path("/run/lumenharbour/udhcpc.pid")) as file:
        os.kill(int(file.read()), signal.SIGUSR2)
    await forgets(lab, "it forgets the first, and that alone", [vanished, *others])
    await vanished.power_off()
    await lab.director.dhcp.end(signal.SIGTERM)
    lab.director.let_expire(vanished.place.mac)
    await lab.director.start_dhcp()
    await forgets(lab, "it forgets the second, and that alone", others)


@fault("the file server has no imagelists, and then has them again", transport="tftp")
async def list_lost(lab):
    await missing(lab, ".txt")


@fault("the FTP server takes requests and does not answer", transport="ftp", env={"FETCH_IDLE": "2"})
async def ftp_hangs(lab):
    lab.director.files.send(signal.SIGSTOP)
    lives = await lab.power_on()
    await lab.expect("each switch ends the fetch and tries again", lambda switch: switch.failures >= 2)
    await refused(lab, "nothing came for 2 seconds (FETCH_IDLE)")
    lab.director.files.send(signal.SIGCONT)
    await lives


async def refused(lab, why):
    """Waits until each switch says why it refuses what it has fetched, and has installed nothing."""
    await lab.expect(f"each switch says: {why}", lambda switch: switch.said(why) and switch.failures > 0)
    lab.check("nothing is installed", nothing_installed(lab.switches))


async def forged(lab, suffix, change, why):
    """Has the file server give out altered files until each switch has refused one."""
    lab.director.replace(suffix, change)
    lives = await lab.power_on()
    await refused(lab, why)
    lab.director.restore(suffix)
    await lives


@fault("each name of an imagelist has a command in it", transport="tftp")
async def hostile_imagelist(lab):
    command = b"=`touch${IFS}/run/owned`"
    await forged(lab, ".txt", lambda data: data.replace(b"=", command), "a character that a shell interprets")
    lab.check("the command never ran", not any(os.path.exists(switch.path("/run/owned")) for switch in lab.switches))


@fault("the images are not signed", is_signed=True, transport="tftp")
async def unsigned_image(lab):
    await forged(lab, ".bin", lambda data: os.urandom(len(data)), "refused: it is not signed")


@fault("a byte of each signed image is another", is_signed=True, transport="tftp")
async def altered_image(lab):
    def alter(data):
        middle = len(data) // 2
        return data[:middle] + bytes([data[middle] ^ 1]) + data[middle + 1 :]

    await forged(lab, ".bin", alter, "refused: it has been altered since it was signed")


@fault("the images are signed by somebody else", is_signed=True, transport="tftp")
async def foreign_signer(lab):
    rack.quietly("lumenharbour-sign", "init", f"{rack.SITE}.foreign")

    def sign(_):
        path = f"{rack.LAB}/forged"
        with open(path, "wb") as file:
            file.write(b"somebody else's")
        lab.director.sign(path, f"{rack.SITE}.foreign")
        with open(path, "rb") as file:
            return file.read()

    await forged(lab, ".bin", sign, "refused: it was signed by somebody whom")


@fault(
    "a wrong server for days, of which each daemon could outlast a few hours",
    transport="tftp",
    descriptors=40,
    clock_speed=1000,
)
async def fails_for_days(lab):
    await present(lab, "somebodyelse")
    lives = await lab.power_on()
    await lab.expect("each switch fails 60 times", lambda switch: switch.failures >= 60)
    lab.check("its daemon is replaced again and again", all(switch.replaced > 3 for switch in lab.switches))
    only_lists_asked(lab)
    await present(lab, "quaylanterns")
    await lives


def macs(switches):
    return {switch.place.mac for switch in switches}


async def known(lab):
    """Returns the MAC addresses that the director knows."""
    said = await lab.director.ctl("show", "client")
    return {word for line in said for word in line.split() if word.count(":") == 5}


async def forgets(lab, what, left):
    """Waits until the director knows these switches alone, and takes note of it."""
    while (now := await known(lab)) != macs(left):
        if not macs(left) < now or lab.left() == 0:
            raise LabError(f"{what}: the director knows {', '.join(sorted(now))}")
        await asyncio.sleep(0.1)
    lab.check(what, True)
