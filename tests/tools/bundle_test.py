#!/usr/bin/env python3
"""Bundles of cairn-lt diagnose: what is written is read again with the same diagnosis, as one report and in a fleet; and
bundles that are made to do harm end in one line, write nothing, and take no more memory than they may, also where a page
is to be made of them.

    bundle_test.py CAIRN_LT
"""

import gzip
import io
import json
import os
import pathlib
import pty
import random
import subprocess
import sys
import tarfile
import tempfile
import zlib

CAIRN_LT = sys.argv[1]


def run(*arguments, stdin=None):
    return subprocess.run([CAIRN_LT, *map(str, arguments)], input=stdin, capture_output=True, text=True, check=False)


def expect(condition, what):
    if not condition:
        sys.exit(f"bundle_test: {what}")


def tar(path, members, manifest='{"bundle": 1, "tool": "0", "release": "0"}'):
    """A tar.gz of members: names with bytes, or TarInfo."""
    with tarfile.open(path, "w:gz") as archive:
        for name, contents in [("bundle.json", manifest.encode()), ("report.log", b"x\n"), *members]:
            info = name if isinstance(name, tarfile.TarInfo) else tarfile.TarInfo(name)
            info.size = len(contents)
            archive.addfile(info, io.BytesIO(contents))
    return path


def link(name, kind, target):
    info = tarfile.TarInfo(name)
    info.type, info.linkname = kind, target
    return info


def refused(path, *parts):
    """Both verbs refuse the file in one line with these parts, and nothing appears beside it."""
    before = sorted(os.listdir(path.parent))
    for result in (run("diagnose", path), run("report", path, "-o", path.parent / "page.html")):
        expect(result.returncode == 2, f"{path.name}: exit code {result.returncode}")
        expect(result.stdout == "" and result.stderr.count("\n") == 1, f"{path.name}: {result.stderr}")
        expect(result.stderr.startswith(f"cairn-lt: {path}:"), result.stderr)
        for part in parts:
            expect(part in result.stderr, f"{path.name}: no \"{part}\" in {result.stderr}")
    expect(sorted(os.listdir(path.parent)) == before, f"{path.name}: something was written")


def huge(path):
    """300 MiB of zeros in one member: a gzip stream may be several, one behind the other."""
    info = tarfile.TarInfo("report.log")
    info.size = 300 << 20
    piece = gzip.compress(bytes(4 << 20))
    with open(path, "wb") as file:
        file.write(gzip.compress(info.tobuf()))
        for _ in range(75):
            file.write(piece)
    return path


def round_trip(folder):
    trace, report, state = folder / "trace", folder / "agent.log", folder / "state.json"
    stopped = run("run", "setEgrTunnelEcnEncap", 0, 5, 4, "--record-to", trace, "--trace-dir", trace)
    report.write_text(stopped.stderr)
    at_once = run("diagnose", report, "--trace", trace)
    for name in ("case.tar.gz", "case.tar.zst"):
        bundle = folder / name
        written = run("diagnose", report, "--trace", trace, "--bundle", bundle)
        expect(written.returncode == 0 and written.stdout == at_once.stdout, f"{name}: {written.stderr}")
        again = run("diagnose", bundle)
        expect(again.stdout == at_once.stdout, f"{name} says something else:\n{again.stdout}{again.stderr}")
        rebuilt = run("diagnose", bundle, "--state", state, "--format", "json")
        expect(rebuilt.returncode == 0 and state.exists(), rebuilt.stderr)
        state.unlink()
    with tarfile.open(folder / "case.tar.gz") as archive:
        names = archive.getnames()
        manifest = json.load(archive.extractfile("bundle.json"))
        expect(archive.extractfile("diagnosis.txt").read().decode() == at_once.stdout, "another diagnosis")
        states = [json.load(archive.extractfile(each)) for each in ("chips.json", "state.json", "diagnosis.json")]
    expect(manifest["bundle"] == 1 and manifest["release"] and manifest["tool"], manifest)
    expect(all(states), "an empty member")
    expect({"report.log", "sites.txt"} < set(names), names)
    expect(sum(name.startswith("trace/") for name in names) == 2, names)
    # A bundle of a bundle is the same case.
    run("diagnose", folder / "case.tar.gz", "--bundle", folder / "again.tar.gz")
    expect(run("diagnose", folder / "again.tar.gz").stdout == at_once.stdout, "the bundle of a bundle differs")
    # Standard input, and a report without a trace.
    run("diagnose", "--bundle", folder / "alone.tar.gz", stdin=stopped.stderr)
    expect(run("diagnose", folder / "alone.tar.gz").stdout == run("diagnose", report).stdout, "alone")
    # Not over what is there, if it fails.
    expect(run("diagnose", report, "--bundle", folder / "case.zip").returncode == 2, "another ending")
    expect(run("diagnose", report, "--bundle", folder / "no" / "x.tar.gz").returncode == 2, "no folder")


def damaged(folder):
    """Wherever a bit is another one, the bundle is refused, or it is one that does not matter."""
    chosen = random.Random(1)
    for name in ("case.tar.gz", "case.tar.zst"):
        whole, said = (folder / name).read_bytes(), run("diagnose", folder / name).stdout
        path, found = folder / f"damaged-{name}", 0
        for _ in range(100):
            bad = bytearray(whole)
            bad[chosen.randrange(16, len(bad))] ^= 1 << chosen.randrange(8)
            path.write_bytes(bad)
            result = run("diagnose", path)
            if result.returncode == 0:
                expect(result.stdout == said, f"{name}: damage is not noticed:\n{result.stdout}")
                continue
            found += 1
            expect(result.returncode == 2 and result.stderr.count("\n") == 1, f"{name}: {result.stderr}")
        expect(found > 80, f"{name}: damage is found {found} times only")
        path.unlink()


def on_terminal(folder):
    """What is bold on a terminal is plain in a bundle."""
    bundle = folder / "terminal.tar.gz"
    terminal, end = pty.openpty()
    command = [CAIRN_LT, "diagnose", folder / "agent.log", "--bundle", bundle]
    environment = {name: value for name, value in os.environ.items() if name != "NO_COLOR"}
    with subprocess.Popen(command, stdout=end, env=environment) as process:
        os.close(end)
        shown = b""
        while piece := read_terminal(terminal):
            shown += piece
    os.close(terminal)
    expect(process.returncode == 0 and b"\x1b[1m" in shown, f"nothing is bold: {shown}")
    with tarfile.open(bundle) as archive:
        contents = {name: archive.extractfile(name).read() for name in archive.getnames()}
    expect(contents["diagnosis.txt"].startswith(b"line 1: an SDK call failed\n"), contents["diagnosis.txt"])
    for name, content in contents.items():
        expect(b"\x1b" not in content, f"{name} holds what a terminal understands")


def read_terminal(terminal):
    """What is shown next; nothing when nobody has the terminal any more, which reads as an error."""
    try:
        return os.read(terminal, 1 << 16)
    except OSError:
        return b""


def fleet(folder):
    bundles = folder / "fleet"
    bundles.mkdir()
    (folder / "case.tar.gz").rename(bundles / "a.tar.gz")
    (folder / "case.tar.zst").rename(bundles / "b.tar.zst")
    (bundles / "c.log").write_text((folder / "agent.log").read_text())
    (bundles / "d.log").write_text((folder / "agent.log").read_text().replace(":286", ":999"))
    tar(bundles / "e.tar.gz", [("sites.txt", b"cairn-lt sites 1\t7.7\n")], '{"bundle": 1, "release": "7.7"}')
    found = json.loads(run("diagnose", bundles, "--format", "json").stdout)
    (group,) = found["groups"]
    expect(found["reports"] == 5 and group["count"] == 4, found)
    release = found["release"]
    expect(group["releases"] == {release: 3, "unknown": 1}, group["releases"])
    expect(f"releases  unknown (1), {release} (3)" in run("diagnose", bundles).stdout, "no releases")
    lines = run("diagnose", bundles, "--format", "ndjson").stdout.splitlines()
    expect([json.loads(line)["report"] for line in lines] == [str(bundles / f) for f in sorted(os.listdir(bundles))[:4]], lines)
    # One that is damaged hides no other.
    (bundles / "f.tar.gz").write_bytes(b"\x1f\x8b damaged")
    bad = run("diagnose", bundles)
    expect(bad.returncode == 1 and bad.stdout.startswith("4 stops in 5 reports"), bad.stdout)
    expect("f.tar.gz: is compressed, and no bundle" in bad.stderr, bad.stderr)


def hostile(folder):
    outside = "is no part of a bundle"
    for name in ("/tmp/cairn-evil", "../evil", "trace/../../evil.fleetlog", "trace/a/b.fleetlog", "other.txt", "trace/.x"):
        refused(tar(folder / "names.tar.gz", [(name, b"evil")]), name, outside)
    for kind in (tarfile.SYMTYPE, tarfile.LNKTYPE, tarfile.FIFOTYPE, tarfile.DIRTYPE, tarfile.CHRTYPE):
        refused(tar(folder / "kinds.tar.gz", [(link("trace/x.fleetlog", kind, "/etc/passwd"), b"")]), outside)
    refused(huge(folder / "huge.tar.gz"), "is larger than 256 MiB unpacked")
    whole = tar(folder / "whole.tar.gz", [("trace/x.fleetlog", os.urandom(100_000))]).read_bytes()
    for size in (3, 60, 5_000, 50_000):
        (folder / "cut.tar.gz").write_bytes(whole[:size])
        refused(folder / "cut.tar.gz", "copy the bundle again")
    (folder / "log.gz").write_bytes(gzip.compress(b"a log of a day\n" * 1000))
    refused(folder / "log.gz", "is compressed, and no bundle", "zcat FILE | cairn-lt diagnose")
    with tarfile.open(folder / "empty.tar.gz", "w:gz"):
        pass
    refused(folder / "empty.tar.gz", "it has no bundle.json")
    for manifest in ("", "[]", "{", "{}", '{"bundle": "1"}'):
        refused(tar(folder / "manifest.tar.gz", [], manifest), "no bundle: ")
    refused(tar(folder / "later.tar.gz", [], '{"bundle": 2}'), "a version that cannot be read")
    refused(tar(folder / "sums.tar.gz", [], '{"bundle": 1, "crc32": 7}'), "is damaged: bundle.json")
    refused(tar(folder / "sums.tar.gz", [], '{"bundle": 1, "crc32": {"report.log": 7}}'), "is damaged: report.log")
    refused(tar(folder / "sums.tar.gz", [], '{"bundle": 1, "crc32": {}}'), "is damaged: report.log")
    gone = f'{{"bundle": 1, "crc32": {{"report.log": {zlib.crc32(b"x" + bytes([10]))}, "trace/x.fleetlog": 1}}}}'
    refused(tar(folder / "gone.tar.gz", [], gone), "is damaged: trace/x.fleetlog is missing")
    refused(tar(folder / "chips.tar.gz", [("chips.json", b"{")]), "not a state file")
    refused(tar(folder / "sites.tar.gz", [("sites.txt", b"x")]), "table of sites is damaged")
    refused(tar(folder / "trace.tar.gz", [("trace/x.fleetlog", b"no trace")]), "x.fleetlog")
    many = [(f"trace/{n}.fleetlog", b"") for n in range(20001)]
    refused(tar(folder / "many.tar.gz", many), "more than 20000 members")


with tempfile.TemporaryDirectory() as temporary:
    place = pathlib.Path(temporary)
    round_trip(place)
    damaged(place)
    on_terminal(place)
    fleet(place)
    (place / "hostile").mkdir()
    hostile(place / "hostile")
