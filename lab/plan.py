"""What a lab is to look like: the groups, the switches, and what each of them is to run in the end."""

import dataclasses
import json

DIRECTOR = "198.18.0.1"
PREFIX = "198.18.0.1/16"
SUBNET = "198.18.0.0/16"
POOL = "198.18.1.0 - 198.18.255.254"
MOST = 200  # switches; a crowd of 400 had its TFTP requests time out
USER, PASSWORD = "quay", "lantern"  # of the FTP server


@dataclasses.dataclass(frozen=True)
class Group:
    """What decides what a switch runs."""

    name: str
    product_id: int  # of its switches
    imagelist: str
    image: str
    config: str


# By kind. A MAC group counts more than a product-id group that has the switch as well.
GROUPS = {
    "mac": Group("floor-2", 4711, "floor-2.txt", "floor-2.bin", "floor-2.cfg"),
    "pid": Group("access", 4711, "access.txt", "access.bin", "access.cfg"),
    "builtin": Group("builtin", 815, "built_in0.txt", "builtin.bin", "builtin.cfg"),
    "default": Group("default", 9, "imagelist.txt", "default.bin", "default.cfg"),
}


@dataclasses.dataclass(frozen=True)
class Place:
    """A switch, and the group that is to serve it."""

    name: str
    mac: str
    group: Group


def places(number, kinds):
    """Spreads switches over kinds of groups, one after the other."""
    return [
        Place(f"switch-{i + 1}", f"02:00:5e:00:{i // 256:02x}:{i % 256:02x}", GROUPS[kinds[i % len(kinds)]])
        for i in range(number)
    ]


def state(chosen):
    """Returns the director's state for these places, as `lumenharbourctl apply` reads it."""
    mac, pid, builtin, default = GROUPS.values()
    members = [place.mac for place in chosen if place.group is mac]
    return json.dumps(
        {
            "service": "on",
            "director": {"address": DIRECTOR},
            "defaults": {"image": default.image, "config": default.config},
            "groups": [
                {"name": mac.name, "type": "mac", "image": mac.image, "config": mac.config, "members": members},
                {
                    "name": pid.name,
                    "type": "pid",
                    "image": pid.image,
                    "config": pid.config,
                    "members": [pid.product_id],
                },
            ],
            "builtins": [{"pid": builtin.product_id, "image": builtin.image, "config": builtin.config}],
        },
        indent=2,
    )
