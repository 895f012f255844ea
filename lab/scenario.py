"""A run of a lab: every switch from the factory to its configuration, and what came of each."""

import asyncio
import os
import sys
import time

import plan
import rack
import report
from director import Director
from rack import LabError, until
from switches import Switch

SPEED = 60  # a minute of a daemon's takes a second
CROWD = 100  # switches that may ask for their files in the same second; with more of them, the clocks run slower
IMAGE_SIZE = 1 << 20
SLOW_SIZE = 24 << 20  # of an image whose transfer is to be caught in its middle
CHECK_INTERVAL = 60  # of a daemon, in seconds of its clock


class Lab:
    """What a run works on."""

    def __init__(self, args, fault):
        self.root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
        self.transport = args.transport or (fault and fault.transport) or "tftp"
        self.is_signed = args.trust or bool(fault and fault.is_signed)
        self.fault = fault
        rack.install(os.path.join(self.root, os.environ.get("BUILD", "build")), self.root)
        self.places = plan.places(args.switches or (4 if fault else 10), args.groups)
        self.speed = args.clock_speed or (fault and fault.clock_speed) or SPEED * CROWD // max(CROWD, len(self.places))
        image_size = args.image_size or (SLOW_SIZE if fault and fault.is_slow else IMAGE_SIZE)
        self.deadline = time.monotonic() + args.timeout
        self.director = Director(self.places, self.transport, image_size, self.root)
        self.director.is_slow = bool(fault and fault.is_slow)
        self.director.signs = self.is_signed
        self.report = report.Progress()
        env = {**(fault.env if fault else {}), **({"TRUST": f"{rack.SITE}/trust.pem"} if self.is_signed else {})}
        how = (self.speed, self.report.on_stage, env, fault and fault.descriptors)
        self.switches = [Switch(place, *how) for place in self.places]
        self.report.switches = self.switches
        self.daemons = rack.Daemons()
        self.lives = []
        self.seconds = 0.0
        self.director_ms = None  # processor time of the director's daemon; not of one that a fault has restarted
        self.checks = []  # what a fault is expected to lead to, and whether it did

    def left(self):
        return max(self.deadline - time.monotonic(), 0)

    async def all(self, what, holds):
        """Waits until something holds for every switch. Fails when that of one has failed."""

        def so():
            for switch in self.switches:
                if switch.verdict and not switch.ok:
                    raise LabError(f"{switch.name}: {switch.verdict}")
            return all(holds(switch) for switch in self.switches)

        await until(what, so, self.left())

    async def expect(self, what, holds):
        """Waits until an expected outcome is there for every switch, and takes note of it."""
        await self.all(what, holds)
        self.check(what, True)

    def check(self, what, holds):
        """Takes note of an expected outcome."""
        self.checks.append((what, bool(holds)))

    # --- a switch -----------------------------------------------------------------------------------------------------

    def wrong(self, switch):
        """Returns what is wrong with what a switch holds; an empty text when nothing is."""
        group = switch.place.group
        if switch.image_sum() != self.director.sums[group.image]:
            return "wrong image" if switch.image_sum() else "no image"
        if switch.config_sum() != self.director.sums[group.config]:
            return "wrong configuration" if switch.config_sum() else "no configuration"
        return ""

    async def comes_back(self, switch):
        """Restarts a switch, and sees that it comes up configured, with an address, and then keeps quiet."""
        before, fetched, failures = switch.address, len(switch.fetched), switch.failures
        await switch.process.end()
        switch.power_on("boot")
        await until(f"{switch.name} has an address again", lambda: switch.address, self.left())
        await until(f"{switch.name}'s daemon is there", lambda: os.path.exists(switch.path(rack.SOCKET)), self.left())
        status, said = await switch.ctl("wait", "--for", "service=on", "--timeout", "20")
        if status != 0:
            raise LabError(f"its service does not come back: {' '.join(said)}")
        switch.enter("done")
        await asyncio.sleep(2 * CHECK_INTERVAL / self.speed)  # what it would do unasked happens in this time
        if len(switch.fetched) != fetched or switch.failures != failures:
            raise LabError(f"is not quiet after its reboot: {' '.join(switch.fetched[fetched:])}")
        if switch.restarts:
            raise LabError("asks for another reboot after its reboot")
        # A daemon that has ended is quiet as well.
        if (await switch.ctl("get", "service"))[1] != ["on"]:
            raise LabError("its daemon has ended after its reboot")
        if switch.address != before:
            raise LabError(f"has another address after its reboot: {switch.address}, not {before}")

    async def provision(self, switch):
        """Sees a switch that is on through to its configuration."""
        await switch.reaches("restart", self.left())
        names = switch.names() or {}
        switch.imagelist = names.get("imagelist", "-")
        switch.own_ms = self.daemons.used(switch.process.pid)
        if wrong := self.wrong(switch):
            raise LabError(wrong)
        if names != self.director.told(switch.place.group):
            raise LabError(f"was told by DHCP: {names}")
        await self.comes_back(switch)
        if wrong := self.wrong(switch):
            raise LabError(f"{wrong} after the reboot")
        switch.ok = True
        switch.verdict = "provisioned"

    async def life(self, switch):
        """Provisions a switch and keeps the reason when that fails, so that the others go on."""
        try:
            await self.provision(switch)
        except (LabError, OSError) as error:
            switch.verdict = str(error)
        self.report.ended(switch)

    async def power_on(self, switches=None):
        """Starts switches, all of them if none are named. Returns what waits for the end of each one's life."""
        lives = []
        for switch in self.switches if switches is None else switches:
            switch.power_on()
            lives.append(asyncio.create_task(self.life(switch)))
            await asyncio.sleep(0)  # news of those that are on already are read in time
        self.lives += lives
        return asyncio.gather(*lives)

    # --- the whole ----------------------------------------------------------------------------------------------------

    async def start(self):
        rack.wire(self.places)
        await self.director.boot()
        await self.director.start_all()

    async def run(self):
        """Provisions all switches, with the fault if there is one."""
        drawing = asyncio.create_task(self.report.draw())
        started = time.monotonic()
        used = self.daemons.used(self.director.daemon.pid)
        try:
            if self.fault:
                await self.fault.run(self)
            else:
                await (await self.power_on())
                self.director_ms = self.daemons.used(self.director.daemon.pid) - used
        except (LabError, OSError) as error:
            self.check(str(error), False)
        for task in (drawing, *self.lives):
            task.cancel()
        self.seconds = time.monotonic() - started
        self.report.finish()

    def passed(self):
        return all(switch.ok for switch in self.switches) and all(holds for _, holds in self.checks)

    def show_output(self):
        """Shows what programs printed that may tell why it failed."""
        for switch in self.switches:
            if not switch.ok and switch.process:
                report.tail(switch.name, switch.lines)
        for part in self.director.parts():
            report.tail(part.name, part.lines)

    async def end(self):
        """Ends all programs; the rest goes with the namespaces."""
        for switch in self.switches:
            if switch.process:
                await switch.process.end()
        await self.director.power_off()


async def run(args, fault, keep):
    """Runs a lab, and shows what came of it. `keep` is called before it is left running. Returns whether it passed."""
    lab = None
    ok = False
    try:
        lab = Lab(args, fault)
        report.title(lab)
        await lab.start()
        await lab.run()
        report.result(lab)
        ok = lab.passed()
        if not ok:
            lab.show_output()
        if args.keep:
            keep(ok)
            await asyncio.Event().wait()
    except (LabError, OSError) as error:
        print(f"lab/lab: {error}", file=sys.stderr)
    finally:
        if lab:
            await lab.end()
    return ok
