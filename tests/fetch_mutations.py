#!/usr/bin/python3
"""Counts what of altered signed files the front of the switch's tools would let pass: nothing that is not signed.

fetch_mutations.py SOURCE [COUNT]

Each file is altered at random: bits, runs of bytes, cut off, or put together from parts of several files, with lengths
that fit. It goes to the function that judges a fetched file, in both shells that switches have. An accepted one must
have given a content that was signed as a whole.
"""
import os
import random
import subprocess
import sys
import tempfile
import threading

SOURCE = os.path.abspath(sys.argv[1])
COUNT = int(sys.argv[2]) if len(sys.argv) > 2 else 200
SEED = int(os.environ.get("SEED", random.randrange(10**6)))
SHELLS = ["dash"], ["busybox", "ash"]
JUDGE = '. "$1"; while read -r file; do if verify "$file" "$file.out"; then echo yes; else echo "no $why"; fi; done'
CONF = "[req]\ndistinguished_name=name\n[name]\n[tls]\nkeyUsage=digitalSignature\nextendedKeyUsage=serverAuth\n"


def run(*command):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def der(tag, value):
    size = len(value)
    if size < 128:
        return bytes([tag, size]) + value
    length = size.to_bytes((size.bit_length() + 7) // 8, "big")
    return bytes([tag, 0x80 + len(length)]) + length + value


def elements(data):
    """The elements that stand one after the other: (tag, value) of each."""
    found = []
    while data:
        size, start = data[1], 2
        if size > 128:
            start = 2 + size - 128
            size = int.from_bytes(data[2:start], "big")
        found.append((data[0], data[start : start + size]))
        data = data[start + size :]
    return found


class Parts:
    """A signed file taken apart."""

    def __init__(self, data):
        self.type, (_, wrapped) = elements(elements(data)[0][1])
        self.version, self.digests, content, certificates, signers = elements(elements(wrapped)[0][1])
        self.data_type, (_, octets) = elements(content[1])
        self.content = elements(octets)[0][1]
        self.certificates = certificates[1]
        self.signers = signers[1]

    def join(self):
        content = der(*self.data_type) + der(0xA0, der(4, self.content))
        signed = der(*self.version) + der(*self.digests) + der(0x30, content)
        signed += der(0xA0, self.certificates) + der(0x31, self.signers)
        return der(0x30, der(*self.type) + der(0xA0, der(0x30, signed)))


def without_attributes(data):
    """A file whose content is the attributes that another one's signature covers: the signature matches."""
    parts = Parts(data)
    fields = elements(elements(parts.signers)[0][1])
    parts.content = der(0x31, fields[3][1])
    parts.signers = der(0x30, b"".join(der(*field) for field in fields[:3] + fields[4:]))
    return parts.join()


def swapped(rng, pool):
    parts = Parts(rng.choice(pool))
    for part in rng.sample(["content", "certificates", "signers"], rng.randint(1, 2)):
        values = [getattr(Parts(other), part) for other in pool] + [b"", getattr(parts, part) * 2]
        if part == "content":
            values += [parts.content[:-1], parts.content + b"\n", b"evil"]
        setattr(parts, part, rng.choice(values))
    return parts.join()


def flipped(rng, data):
    data = bytearray(data)
    # What is not content is small, and where it matters.
    content = data.find(Parts(bytes(data)).content)
    places = rng.choice([range(len(data)), range(content), range(content + 3000, len(data))])
    for place in rng.choices(places, k=rng.randint(1, 4)):
        data[place] ^= 1 << rng.randrange(8)
    return bytes(data)


def rearranged(rng, data, other):
    at = rng.randrange(len(data))
    run_of = rng.choice([data, other])[rng.randrange(len(data)) :][: rng.choice([1, 2, 16, 300])]
    return data[:at] + rng.choice([b"", run_of]) + data[at + rng.choice([0, 1, len(run_of)]) :]


def mutant(rng, pool):
    kind = rng.randrange(100)
    if kind < 3:
        return without_attributes(pool[0])
    if kind < 35:
        return swapped(rng, pool)
    if kind < 45:
        return pool[0][: rng.randrange(len(pool[0]))]
    return flipped(rng, pool[0]) if kind < 75 else rearranged(rng, pool[0], pool[1])


def count(number, shell, folder, pool, signed, totals):
    rng = random.Random(f"{SEED} {number}")
    env = dict(os.environ, TRUST=f"{folder}/site/trust.pem", TRUST_SINCE="")
    judge = [*shell, "-c", JUDGE, "judge", f"{SOURCE}/fetch/lumenharbour-fetch"]
    file = f"{folder}/{number}"
    with subprocess.Popen(judge, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, env=env) as process:
        # The first is as it was signed: who refuses everything is found out.
        for turn in range(COUNT // len(SHELLS) + 1):
            data = mutant(rng, pool) if turn else pool[0]
            with open(file, "wb") as out:
                out.write(data)
            print(file, file=process.stdin, flush=True)
            answer = process.stdout.readline().split(maxsplit=1)[0]
            with open(f"{file}.out", "rb") if answer == "yes" else open(os.devnull, "rb") as out:
                what = "refused" if answer == "no" else "signed" if out.read() in signed else "FORGED"
            if what == "FORGED" or (turn == 0 and what != "signed"):
                print(f"{' '.join(shell)}: turn {turn} of SEED={SEED}: {what}: {data.hex()}")
                totals["wrong"] += 1
            totals[what] = totals.get(what, 0) + (turn > 0)
        process.stdin.close()


def main():
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        sign = f"{SOURCE}/fetch/lumenharbour-sign"
        signed = [random.randbytes(3000), random.randbytes(3000)]
        for name, data in zip(("image", "config", "evil"), signed + [b"evil" * 700]):
            with open(name, "wb") as out:
                out.write(data)
        for site in ("site", "other"):
            run(sign, "init", site)
        for site, name in (("site", "image"), ("site", "config"), ("other", "evil")):
            run(sign, "sign", "-k", site, name)
        with open("conf", "w", encoding="ascii") as out:
            out.write(CONF)
        run(*"openssl req -new -config conf -key other/signer.key -subj /CN=web -out request".split())
        authority = "-CA site/trust.pem -CAkey site/ca.key -set_serial 7 -extfile conf -extensions tls"
        run(*f"openssl x509 -req -in request {authority} -out web.pem".split())
        cms = "openssl cms -sign -binary -nodetach -outform DER"
        run(*f"{cms} -in evil -signer web.pem -inkey other/signer.key -out web.cms".split())
        run(*f"{cms} -in config -noattr -signer site/signer.pem -inkey site/signer.key -out bare.cms".split())
        pool = []
        for name in ("image.cms", "config.cms", "evil.cms", "web.cms", "bare.cms"):
            with open(name, "rb") as file:
                pool.append(file.read())
        totals = {"wrong": 0}
        threads = [
            threading.Thread(target=count, args=(number, shell, folder, pool, signed, totals))
            for number, shell in enumerate(SHELLS)
        ]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    tried = sum(totals.get(what, 0) for what in ("refused", "signed", "FORGED"))
    print(f"tried {tried}, refused {totals.get('refused', 0)}, accepted {totals.get('signed', 0)} as they were signed,")
    print(f"accepted {totals.get('FORGED', 0)} that nobody has signed")
    return 0 if tried == COUNT // len(SHELLS) * len(SHELLS) and totals["wrong"] == 0 else 1


sys.exit(main())
