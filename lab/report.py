"""What a lab shows: its progress, live, then a table of what came of each switch."""

import asyncio
import collections
import os
import statistics
import sys

from switches import STAGES

LINES = 20  # more switches than these share one bar, or one line for each tenth of them
DOES = {
    "dark": "is without power",
    "dhcp": "asks for an address",
    "wait": "has {0.address} and waits",
    "list": "fetches {1}",
    "image": "fetches {1}",
    "flash": "writes its flash",
    "config": "fetches {1}",
    "reboot": "is installed and waits for its reboot",
    "restart": "restarts",
    "boot": "starts",
    "done": "is back, and is watched",
}


def doing(switch):
    """Returns what a switch does at the moment."""
    if switch.verdict:
        return switch.verdict
    return DOES[switch.stage].format(switch, switch.fetched[-1] if switch.fetched else "")


class Progress:
    """Redraws its lines on a terminal; elsewhere each piece of news is a line."""

    def __init__(self):
        self.switches = []
        # Of the terminal, if there is one.
        self._columns, lines = map(int, os.environ.get("LUMENHARBOUR_LAB_TERMINAL", "0 0").split())
        self._most = min(LINES, lines - 1) if self._columns else LINES
        self._drawn = 0  # lines on the terminal
        self._told = 0  # tenths of the switches

    def on_stage(self, switch):
        """Takes note of a stage that has begun."""
        if self._columns or not self.switches:
            return
        if len(self.switches) <= self._most:
            print(f"  {switch.name:<10} {doing(switch)}", flush=True)

    def ended(self, switch):
        """Takes note of a verdict."""
        if self._columns:
            return
        if len(self.switches) <= self._most:
            print(f"  {switch.name:<10} {switch.verdict}", flush=True)
            return
        tenths = 10 * sum(bool(other.verdict) for other in self.switches) // len(self.switches)
        if tenths > self._told:
            self._told = tenths
            print(f"  {self._bar(40)}", flush=True)

    def _bar(self, width):
        done = sum(switch.ok for switch in self.switches)
        filled = width * done // len(self.switches)
        at = collections.Counter(switch.verdict and "ended" or switch.stage for switch in self.switches)
        where = "  ".join(f"{stage} {at[stage]}" for stage in (*STAGES, "done") if at[stage])
        failed = at["ended"] - done
        wrong = f"  {failed} FAILED" if failed else ""
        return f"[{'#' * filled}{'.' * (width - filled)}] {done} of {len(self.switches)} provisioned{wrong}  {where}"

    def _redraw(self):
        width = self._columns - 1
        if len(self.switches) <= self._most:
            lines = [f"  {switch.name:<10} {doing(switch)}" for switch in self.switches]
        else:
            lines = [f"  {self._bar(max(10, min(40, width - 90)))}"]
        up = f"\x1b[{self._drawn}A" if self._drawn else ""
        sys.stdout.write(up + "".join(f"\x1b[2K{line[:width]}\n" for line in lines))
        sys.stdout.flush()
        self._drawn = len(lines)

    async def draw(self):
        """Keeps the lines on a terminal up to date until it is cancelled."""
        while self._columns:
            self._redraw()
            await asyncio.sleep(0.1)

    def finish(self):
        """Draws them for the last time."""
        if self._columns:
            self._redraw()


def title(lab):
    fault = f"\n   fault: {lab.fault.name}, {lab.fault.what}" if lab.fault else ""
    plural = "es" if len(lab.places) > 1 else ""
    files = "signed files" if lab.is_signed else "files"
    print(
        f"\n== {len(lab.places)} factory-fresh switch{plural} and a director, {files} by {lab.transport.upper()}; "
        f"a daemon's clock runs {lab.speed} times faster{fault}",
        flush=True,
    )


def table(rows):
    """Prints rows of texts in columns; numbers are set to the right."""
    widths = [max(map(len, column)) for column in zip(*rows)]
    numeric = [all(cell.replace(".", "", 1).isdigit() for cell in column[1:]) for column in zip(*rows)]
    for row in rows:
        cells = (cell.rjust(width) if right else cell.ljust(width) for cell, width, right in zip(row, widths, numeric))
        print("  ".join(cells).rstrip())


def result(lab):
    """Prints what came of each switch, and of the expectations of a fault."""
    heads = ["SWITCH", "GROUP", "ADDRESS", "IMAGELIST", "BYTES", "CONFIG", *STAGES, "VERDICT"]
    rows = [heads]
    for switch in lab.switches:
        group = switch.place.group
        rows.append(
            [
                switch.name,
                group.name,
                switch.address or "none",
                switch.imagelist,
                str(os.path.getsize(f"{switch.flash}/mtd5")),
                group.config if switch.config_sum() == lab.director.sums[group.config] else "none",
                *(f"{switch.seconds[stage]:.2f}" for stage in STAGES),
                switch.verdict or "not done",
            ]
        )
    print("\nFrom dhcp to boot: seconds in each stage.")
    table(rows)
    print()
    if lab.checks:
        table([["EXPECTED", "SEEN"], *([what, "yes" if holds else "NO"] for what, holds in lab.checks)])
    summary(lab)


def summary(lab):
    done = sum(switch.ok for switch in lab.switches)
    print(
        f"{done} of {len(lab.switches)} switches as they should be, by checksum, before their reboot and after it, "
        f"in {lab.seconds:.1f} s"
    )
    own = [switch.own_ms for switch in lab.switches if switch.own_ms is not None]
    if lab.director_ms is None or not own:
        return
    director = lab.director_ms / len(lab.switches)
    print(
        "processor time of the daemons themselves, tools and waiting left out: "
        f"{statistics.mean(own):.2f} ms in a switch (at most {max(own):.2f}) and {director:.2f} ms in the director, "
        f"{statistics.mean(own) + director:.2f} ms a switch (goal: < 5)",
        flush=True,
    )


def tail(name, lines):
    """Shows the end of what a program printed, for whoever looks for a fault."""
    print(f"\n--- {name}", file=sys.stderr)
    for line in list(lines)[-40:]:
        print(f"  {line}", file=sys.stderr)
