#!/usr/bin/env python3
"""site_test.py PROGRAMS ETCD WORK WINE_RUN PREFIX CASE: LevelSync's agents and a real etcd, or a folder that they share, each a
process of its own. PROGRAMS: where LevelSync.exe is. CASE is a function below without its case_."""
import hashlib
import json
import os
import random
import re
import signal
import struct
import subprocess
import sys
import threading
import time

import etcd
from page import Obedient, Page
from machines import BASE, Machine, Run, Witness, comes_true, expect, expect_same, windows_path


def store(run, *options):
    """An etcd with a base file, and the address of the site in it."""
    server = run.started(etcd.Member(run.etcd, run.work / "etcd/one", options=options))
    server.start().wait_ready()
    server.put("/site/base", BASE)
    return server, f"etcd:{server.url()}/site"


def share(run):
    folder = run.work / "share"
    folder.mkdir()
    (folder / "base").write_text(BASE)
    return folder, f"file:{windows_path(folder)}"


def with_level(level, package="Replay 320", old=6):
    return BASE.replace(f"{package} {old}", f"{package} {level}")


def level_of(text):
    """Of Replay, in one of the whole states that there are; nothing for what is none."""
    found = re.search(r"Replay 320 (\d)", text)
    return int(found[1]) if found and text == with_level(found[1]) else None


# What a site is for --------------------------------------------------------------------------------------
def case_a_level_is_raised_on_all_machines_and_off_again(run):
    server, site = store(run)
    machines = [Machine(run, site, name).start() for name in ("one", "two", "three")]
    for machine in machines:
        machine.wait_for("Replay 320 6")
    expect_same("file of a machine", machines[0].logger(), BASE)
    words = ("set", "Replay", "debug", "--client", "192.0.2.7", "--for", "15m", "--reason", "case 4711")
    dry = run.on_site(site, *words, "--dry-run")
    expect("a dry run says what would change", "Would change on the site: Replay 6 to 7 for client 192.0.2.7" in dry.out, dry)
    expect_same("keys after the dry run", [key for key in server.all("/site/") if "/overrides/" in key], [])
    began = time.monotonic()
    said = run.on_site(site, *words)
    expect("set says what changed", "Changed on the site: Replay 6 to 7 for client 192.0.2.7\n" in said.out, said)
    for machine in machines:
        machine.wait_for("(7;192.0.2.7)")
    print(f"all machines had it {time.monotonic() - began:.1f} s after LevelSync was called")
    document = json.loads(server.get("/site/overrides/1"))
    expect_same("override", [document[name] for name in ("package", "level", "clients", "reason")],
                [320, 7, ["192.0.2.7"], "case 4711"])
    pairs = server.ask("/v3/kv/range", {"key": etcd.b64("/site/overrides/1")})["kvs"]
    left = int(server.ask("/v3/lease/timetolive", {"ID": pairs[0]["lease"]})["TTL"])
    expect("the override goes by itself some time after its end", 14 * 60 < left < 17 * 60, left)
    comes_true("status tells that all have it", lambda: set(run.is_at(site).values()) == {"has_it"})
    status = run.on_site(site, "status")
    expect("status has the override", "Replay 7 debug for client 192.0.2.7" in status.out and "case 4711" in status.out, status)
    expect("status counts", "3 machines: 3 have it." in status.out, status)
    explained = run.on_site(site, "explain", "replay", "--client", "192.0.2.7", "--json").json()
    expect_same("explained level", explained["packages"][0]["level"], 7)
    listed = run.on_site(site, "list", "replay", "--json").json()
    expect_same("listed", (listed["source"], listed["packages"][0]["rules"]), ("site", ["7 for client 192.0.2.7"]))
    history = run.on_site(site, "history", "--json").json()["changes"]
    expect_same("history", [(one["id"], one["reason"], one["in_force"]) for one in history], [(1, "case 4711", True)])
    run.on_site(site, "undo")
    for machine in machines:
        machine.wait_for("(7;192.0.2.7)", False)
        expect_same("file afterwards", machine.logger(), BASE)
    expect("it was taken back once", "taken back" in run.on_site(site, "undo", "1", code=1).err)
    machines[0].stop()
    expect("the agent ends in good order", any("The agent ends" in line for line in machines[0].said), machines[0].words_said())
    machines[1].kill()
    comes_true("status tells who stopped", lambda: run.is_at(site)["one"] == "stopped")
    leases = server.ask("/v3/kv/range", {"key": etcd.b64("/site/machines/two")})["kvs"]
    server.ask("/v3/lease/revoke", {"ID": leases[0]["lease"]})  # what happens a minute later
    expect_same("who is there", run.is_at(site), {"one": "stopped", "two": "gone", "three": "has_it"})


def case_a_change_without_an_end_is_one_of_the_base_file(run):
    server, site = store(run)
    machine = Machine(run, site, "one").start()
    machine.wait_for("Replay 320 6")
    said = run.on_site(site, "set", "replay", "7")
    expect("the line is shown", "- Replay 320 6 // replays its lines\n  + Replay 320 7 // replays its lines" in said.out, said)
    expect_same("base", server.get("/site/base").decode(), with_level(7))
    machine.wait_for("Replay 320 7")
    run.on_site(site, "clear", "client")
    machine.wait_for("archive)", False)
    run.on_site(site, "undo", "2")
    run.on_site(site, "undo", "1")
    machine.wait_for("archive)")
    machine.wait_for("Replay 320 6")
    expect_same("base afterwards", server.get("/site/base").decode(), BASE)
    run.on_site(site, "set", "replay", "7", "--for", "10m", "--client", "192.0.2.7")
    run.on_site(site, "clear", "replay", "--client", "192.0.2.7")
    expect_same("overrides", [key for key in server.all("/site/") if "/overrides/" in key], [])
    run.on_site(site, "undo")  # of the clearing
    expect_same("overrides", [key for key in server.all("/site/") if "/overrides/" in key], ["/site/overrides/7"])


def case_what_makes_no_sense_on_a_site_says_so(run):
    _, site = share(run)
    for words in (["ps"], ["tail", "replay"], ["publish"], ["set", "replay", "7", "--for", "5m", "--detach"],
                  ["explain", "replay", "--pid", "8"], ["service", "again"]):
        said = run.on_site(site, *words, code=2)
        expect(f"{words}: a sentence", said.err.count(".") >= 1 and said.out == "", said)
    for words in (["agent"], ["service", "install"]):
        said = run.call(*words)
        expect_same(f"{words} without a site", said.code, 2)
    expect_same("an address with a password", run.call("--site", "etcd:http://user:word@x:1/y", "status").code, 2)
    expect_same("a group without a site", run.call("publish", "x", "--group", "g").code, 2)


def case_groups_have_sections_of_their_own(run):
    server, site = store(run)
    section = run.work / "section"
    section.write_text("# the servers\nReplay 320 3\nControl 340 7 // is told what to do\n")
    run.on_site(site, "publish", windows_path(section), "--group", "servers")
    server_machine = Machine(run, site, "server", "--group", "servers").start()
    other = Machine(run, site, "other").start()
    server_machine.wait_for("Replay 320 3")
    server_machine.wait_for("Control 340 7")
    other.wait_for("Replay 320 6")
    rows = run.on_site(site, "list", "replay", "--group", "servers", "--json").json()
    expect_same("listed for the group", rows["packages"][0]["level"], 3)
    section.write_text("Replay 750 3\n")
    said = run.on_site(site, "publish", windows_path(section), "--group", "servers", code=1)
    expect("what would not count is refused", "There is no package 750" in said.err, said)
    run.on_site(site, "set", "320", "7", "--for", "10m")
    server_machine.wait_for("Replay 320 7")
    other.wait_for("Replay 320 7")


def case_an_override_ends_by_itself_also_while_the_store_is_away(run):
    server, site = store(run)
    machine = Machine(run, site, "one").start()
    machine.wait_for("Replay 320 6")
    run.on_site(site, "set", "replay", "7", "--for", "10s")
    machine.wait_for("Replay 320 7")
    server.kill()
    machine.wait_said("The store does not answer")
    machine.kill()
    machine.start()  # with nothing but what it has on disk
    machine.wait_for("Replay 320 6")
    expect_same("file afterwards", machine.logger(), BASE)


# Stores that are away, or in trouble ---------------------------------------------------------------------
def case_etcd_gone_and_restarted(run):
    server, site = store(run)
    machine = Machine(run, site, "one").start()
    machine.wait_for("Replay 320 6")
    run.on_site(site, "set", "replay", "5")
    machine.wait_for("Replay 320 5")
    server.kill()
    machine.wait_said("The store does not answer")
    said = run.on_site(site, "set", "replay", "7", code=1)
    expect("a command says that nobody listens", "The store does not answer" in said.err, said)
    expect_same("file meanwhile", machine.logger(), with_level(5))
    server.start().wait_ready()
    run.on_site(site, "set", "replay", "7")
    machine.wait_for("Replay 320 7")
    comes_true("the machine says that all is well", lambda: run.is_at(site) == {"one": "has_it"})


def case_etcd_killed_in_the_middle_of_writes(run):
    server, site = store(run)
    machine = Machine(run, site, "one").start()
    machine.wait_for("Replay 320 6")
    witness = Witness(machine, lambda text: 0 if level_of(text) is not None else None)
    done, unsure, is_over = [], [], threading.Event()

    def change():
        level = 0
        while not is_over.is_set():
            level = level % 7 + 1
            called = run.call("--site", site, "set", "replay", level, "--json")
            (done if called.code == 0 else unsure).append(called)

    writer = threading.Thread(target=change)
    writer.start()
    dice = random.Random(15)
    for _ in range(4):
        time.sleep(dice.uniform(0.5, 1.5))
        server.kill()
        time.sleep(0.3)
        server.start().wait_ready()
    is_over.set()
    writer.join(120)
    history = run.on_site(site, "history", "--json", "-n", "1000").json()["changes"]
    ids = [one["id"] for one in history]
    expect_same("numbers of the changes", ids, list(range(1, len(ids) + 1)))
    known = {one["id"] for one in history}
    for called in done:
        change = called.json()
        expect("a change that was reported as done is there", not change["changed"] or change["id"] in known, called)
    expect("some were done", len(done) > 2, len(done))
    for called in unsure:
        expect("who was not done says why", "The store does not answer" in called.out + called.err, called)
    wanted = server.get("/site/base").decode()
    expect("the base file is whole", level_of(wanted) is not None, wanted)
    comes_true("the machine catches up", lambda: machine.logger() == wanted, more=machine.words_said)
    witness.end()
    print(f"{len(done)} changes done, {len(unsure)} not known")


def case_a_cluster_whose_leader_is_killed(run):
    members = etcd.cluster_of_three(run.etcd, run.work / "cluster")
    for member in members:
        run.started(member)
    members[0].put("/site/base", BASE)
    site = "etcd:" + ",".join(member.url() for member in members) + "/site"
    machine = Machine(run, site, "one").start()
    machine.wait_for("Replay 320 6")
    leader = next(member for member in members if member.is_leader())
    leader.kill()
    comes_true("a change gets through", lambda: run.call("--site", site, "set", "replay", "7").code == 0)
    machine.wait_for("Replay 320 7")
    next(member for member in members if member is not leader).kill()
    expect_same("without a majority nothing is changed", run.call("--site", site, "set", "replay", "5").code, 1)
    expect_same("file meanwhile", machine.logger(), with_level(7))
    for member in members:
        if member.process.poll() is not None:
            member.start()
    for member in members:
        member.wait_ready()
    comes_true("a change gets through again", lambda: run.call("--site", site, "set", "replay", "5").code == 0)
    machine.wait_for("Replay 320 5")


def case_a_network_that_stalls_cuts_and_drips(run):
    server, site = store(run)
    network = run.started(etcd.Network(server.client))
    machine = Machine(run, f"etcd:http://127.0.0.1:{network.port}/site", "one").start()
    machine.wait_for("Replay 320 6")
    server.put("/site/base", with_level(1))
    machine.wait_for("Replay 320 1")
    witness = Witness(machine, level_of)
    for mode, level in (("stalled", 2), ("cut", 3), ("refused", 4)):
        network.set(mode)
        if mode in ("stalled", "refused"):
            machine.wait_said("The store does not answer")
        server.put("/site/base", with_level(level))
        network.set("cut")
        network.set("good")
        machine.wait_for(f"Replay 320 {level}")
        machine.said.clear()
    network.set("drops")
    server.put("/site/base", with_level(5))
    time.sleep(2)
    network.set("good")
    machine.wait_for("Replay 320 5")
    witness.end()


def case_an_older_state_never_comes_after_a_newer(run):
    server, site = store(run)
    machine = Machine(run, site, "one").start()
    machine.wait_for("Replay 320 6")
    server.kill()
    etcd.remove(str(server.folder) + ".old")
    subprocess.run(["cp", "-a", server.folder, str(server.folder) + ".old"], check=True)
    server.start().wait_ready()
    for _ in range(5):
        server.put("/site/base", with_level(5))
    server.put("/site/base", with_level(7))
    machine.wait_for("Replay 320 7")
    server.kill()
    etcd.remove(server.folder)
    os.rename(str(server.folder) + ".old", server.folder)
    machine.said.clear()
    server.start().wait_ready()
    machine.wait_said("has gone back in time")
    expect_same("file", machine.logger(), with_level(7))
    comes_true("status tells", lambda: run.is_at(site) == {"one": "in_trouble"})


def case_a_machine_whose_agent_is_killed_at_any_moment_works(run):
    rounds = int(os.environ.get("LUMLOG_TEST_SITE_KILLS", "8"))
    dice = random.Random(rounds)
    server, site = store(run)
    machine = Machine(run, site, "one").start()
    began = time.monotonic()
    machine.wait_said("is in force here")
    level, span, killed, applied = 6, time.monotonic() - began, 0, 0
    witness = Witness(machine, lambda text: 0 if level_of(text) is not None else None)
    while killed < rounds:
        machine.kill()
        level = level % 7 + 1
        server.put("/site/base", with_level(level))
        began = time.monotonic()
        machine.start()
        moment = dice.uniform(0.8 * span, 1.6 * span)
        while time.monotonic() - began < moment and "is in force here" not in "".join(machine.said):
            time.sleep(0.002)
        # As long as an agent takes until it has done its work, beside what else this machine does.
        passed = time.monotonic() - began
        span = passed if passed < moment else span * 1.1
        killed += 1
        machine.kill()
        applied += level_of(machine.logger()) == level
        machine.said.clear()
    level = level % 7 + 1
    server.put("/site/base", with_level(level))
    machine.start()
    machine.wait_for(f"Replay 320 {level}")
    seen = witness.end()
    called = run.call("history", "--json", "-n", "100000", "--dir", windows_path(machine.folder))
    print(f"{killed} kills, of which {applied} left the new file; {len(seen)} states seen")
    comes_true("all is well", lambda: run.is_at(site) == {"one": "has_it"}, more=lambda: str(called))


# Hostile contents ----------------------------------------------------------------------------------------
def case_hostile_contents_of_etcd_are_refused_as_a_whole(run):
    count = int(os.environ.get("LUMLOG_TEST_SITE_OVERRIDES", "3000"))
    server, site = store(run, "--max-request-bytes", str(64 << 20), "--max-txn-ops", "20000")
    machine = Machine(run, site, "one").start()
    machine.wait_for("Replay 320 6")
    good = {"package": 320, "level": 7, "author": "x", "made": "2026-11-22T14:05:00.000Z", "until": "2026-11-22T15:05:00.000Z"}
    override = "/site/overrides/x"
    hostile = [
        ("/site/base", BASE.encode() + b"\xff\xfe", "is no UTF-8"),
        ("/site/base", BASE + "Net 750 5\n", "There is no package 750"),
        ("/site/base", BASE + "Net 1 5 [(7;999.1.1.1)]\n", "read differently than it looks"),
        ("/site/base", BASE + "# " + "x" * 300 + "\n", "has 302 characters"),
        ("/site/base", "", "No line says where messages go"),
        ("/site/base", "#" * (2 << 20), "are the most"),
        ("/site/base", b"#" * (40 << 20), "more than 4 MB"),
        (override, "no JSON", "it is no object of JSON"),
        (override, "[" * 8000, "it is no object of JSON"),
        (override, json.dumps({**good, "package": 750}), "there is no package 750"),
        (override, json.dumps({**good, "level": "7"}), "level is no number"),
        (override, json.dumps({**good, "level": 9}), "levels are 0 to 7"),
        (override, json.dumps({**good, "clients": ["a b"]}), "cannot be a rule"),
        (override, json.dumps({**good, "clients": ["192.0.2.7"] * 11}), "clients is no list"),
        (override, json.dumps({**good, "until": "soon"}), "until is no time"),
        (override, json.dumps({**good, "until": "2036-11-22T15:05:00.000Z"}), "more than 30 days"),
        (override, json.dumps({**good, "reason": "x" * 9000}), "are the most"),
        ("/site/overrides/../x", json.dumps(good), "no id that can be one"),
    ]
    for key, value, why in hostile:
        machine.said.clear()
        server.put(key, value)
        machine.wait_said(why)
        expect_same(f"file after {why!r}", machine.logger(), BASE)
        if key.startswith("/site/overrides/"):
            server.delete(key)
        else:
            server.put(key, BASE)
        machine.wait_said("All is as the site wants it.")
    server.put(override, "no JSON")
    comes_true("status has the words", lambda: any(
        "it is no object of JSON" in text for one in run.status(site)["machines"] for text in one["wrong"]))
    checked = run.on_site(site, "check", code=1)
    expect("check says it too", "it is no object of JSON" in checked.out, checked)
    server.delete(override)
    machine.wait_said("All is as the site wants it.")
    machine.said.clear()
    for first in range(0, count, 10000):
        server.ask("/v3/kv/txn", {"success": [
            {"requestPut": {"key": etcd.b64(f"/site/overrides/{number}"), "value": etcd.b64(json.dumps(good))}}
            for number in range(first, min(first + 10000, count))]}, timeout=120)
    machine.wait_said("overrides are the most")
    expect_same("file with too many overrides", machine.logger(), BASE)
    comes_true("status tells that it is in trouble", lambda: run.is_at(site) == {"one": "in_trouble"})
    # A few at a time: of a million at once, etcd says that it takes too long.
    bounds = ["/site/overrides/", *(f"/site/overrides/{digits}" for digits in range(10, 100)), "/site/overrides0"]
    for first, end in zip(bounds, bounds[1:]):
        server.delete(first, end)
    run.on_site(site, "set", "replay", "7")
    machine.wait_for("Replay 320 7")
    print(f"{len(hostile)} contents and {count} overrides were refused")


def case_hostile_contents_of_a_share_are_refused_as_a_whole(run):
    folder, site = share(run)
    machine = Machine(run, site, "one").start()
    machine.wait_for("Replay 320 6")
    (folder / "overrides").mkdir()
    with open(folder / "big", "wb") as big:
        big.truncate(100 << 20)
    hostile = [("base", BASE.encode() + b"\x80", "is no UTF-8"), ("base", BASE.encode() + b"Net 1 5 [(7;a;b\n", "read differently than it looks"),
               ("overrides/x.json", b"\xff\xff", "it is no object of JSON"),
               ("overrides/x.json", b" " * 9000, "are the most")]
    for name, content, why in hostile:
        machine.said.clear()
        old = (folder / "base").read_bytes()
        (folder / name).write_bytes(content)
        machine.wait_said(why)
        expect_same(f"file after {why!r}", machine.logger(), BASE)
        if name != "base":
            (folder / name).unlink()
        (folder / "base").write_bytes(old)
        machine.wait_said("All is as the site wants it.")
    machine.said.clear()
    os.rename(folder / "big", folder / "base")
    machine.wait_said("104857600 bytes")
    comes_true("status has the words", lambda: any(
        "104857600 bytes" in text for one in run.status(site)["machines"] for text in one["wrong"]))
    (folder / "base").write_text(BASE)
    machine.wait_said("All is as the site wants it.")
    machine.said.clear()
    for number in range(1500):
        (folder / f"overrides/{number}.json").write_text("{}")
    machine.wait_said("1000 overrides")
    expect_same("file", machine.logger(), BASE)


# Shares --------------------------------------------------------------------------------------------------
def case_a_share_does_the_same_as_a_store(run):
    folder, site = share(run)
    machines = [Machine(run, site, name).start() for name in ("one", "two")]
    for machine in machines:
        machine.wait_for("Replay 320 6")
    said = run.on_site(site, "set", "replay", "7", "--client", "192.0.2.7", "--for", "15m", "--reason", "case 4711")
    expect("set says what changed", "Changed on the site: Replay 6 to 7 for client 192.0.2.7\n" in said.out, said)
    for machine in machines:
        machine.wait_for("(7;192.0.2.7)")
    comes_true("all have it", lambda: run.is_at(site) == {"one": "has_it", "two": "has_it"})
    run.on_site(site, "set", "reader", "3")
    for machine in machines:
        machine.wait_for("Reader 310 3")
    expect_same("base", (folder / "base").read_text(), BASE.replace("310 5", "310 3"))
    history = run.on_site(site, "history")
    expect("history", "why: case 4711" in history.out and "Reader 5 to 3 for everybody" in history.out, history)
    run.on_site(site, "undo", "1")
    run.on_site(site, "undo", "2")
    for machine in machines:
        machine.wait_for("(7;192.0.2.7)", False)
        machine.wait_for("Reader 310 5")
    os.rename(folder, run.work / "away")
    for machine in machines:
        machine.wait_said("cannot be reached")
        expect_same("file meanwhile", machine.logger(), BASE)
    os.rename(run.work / "away", folder)
    (folder / "base").write_text(with_level(7))
    for machine in machines:
        machine.wait_for("Replay 320 7")
    machines[0].stop()
    comes_true("who stopped", lambda: run.is_at(site) == {"one": "stopped", "two": "has_it"})


def case_several_change_a_share_at_once(run):
    folder, site = share(run)
    calls = [subprocess.Popen(
        run.command("LevelSync", "--site", site, "set", "replay", "7", "--client", f"192.0.2.{number}", "--for", "10m",
                    "--dir", windows_path(run.work)),
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=run.environment)
        for number in range(1, 6)]
    for call in calls:
        said = call.communicate(timeout=120)[0]
        expect_same(f"exit code, with {said!r}", call.returncode, 0)
    expect_same("overrides", sorted(path.name for path in (folder / "overrides").iterdir()),
                [f"{number}.json" for number in range(1, 6)])
    expect_same("changes", len(run.on_site(site, "history", "--json").json()["changes"]), 5)


# The machine's own ---------------------------------------------------------------------------------------
def case_a_local_change_is_told_and_stays_until_the_site_changes(run):
    server, site = store(run)
    machine = Machine(run, site, "one").start()
    machine.wait_for("Replay 320 6")
    here = ("--dir", windows_path(machine.folder))

    def on_machine(*words):
        done = subprocess.run(run.command("LevelSync", *words, *here), stdin=subprocess.DEVNULL, capture_output=True,
                              timeout=120, env=machine.environment, check=False)
        expect_same(f"exit code of {words}: {done.stdout}{done.stderr}", done.returncode, 0)

    on_machine("set", "reader", "7")
    machine.wait_said("Changed on this machine since")
    expect("it says who", any("LevelSync set reader 7" in line for line in machine.said), machine.words_said())
    comes_true("status tells", lambda: run.is_at(site) == {"one": "differs"})
    shown = run.on_site(site, "status")
    expect("in words", "Reader 5 to 7 for everybody" in shown.out, shown)
    time.sleep(2.5)
    expect("it stays", "Reader 310 7" in machine.logger(), machine.words_said())
    server.put("/site/base", with_level(5))
    machine.wait_for("Replay 320 5")
    expect_same("file", machine.logger(), with_level(5))
    expect("what was replaced is kept", "Reader 310 7" in (machine.folder / "logger.local").read_text())
    machine.wait_said("All is as the site wants it.")
    machine.said.clear()
    (machine.folder / "logger").write_text(with_level(5).replace("310 5", "310 1"))  # an editor
    machine.wait_said("Reader 5 to 1 for everybody")
    machine.kill()
    machine.start()
    machine.wait_said("Changed on this machine since")
    expect("it stays over a new start", "Reader 310 1" in machine.logger())
    machine.kill()
    machine.start("--take-back-local")
    machine.wait_for("Reader 310 5")


def case_an_override_of_a_machine_stays_until_its_end(run):
    server, site = store(run)
    machine = Machine(run, site, "one").start()
    machine.wait_for("Replay 320 6")
    call = run.started(subprocess.Popen(
        run.command("LevelSync", "set", "replay", "7", "--client", "192.0.2.9", "--for", "12s", "--dir",
                    windows_path(machine.folder)),
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=machine.environment))
    machine.wait_for("(7;192.0.2.9)")
    machine.wait_said("on this machine until")
    server.put("/site/base", with_level(5))
    machine.wait_for("Replay 320 5")
    expect("the override is still there", "(7;192.0.2.9)" in machine.logger(), machine.words_said())
    expect_same("how its keeper ends", call.wait(60), 0)
    machine.wait_for("(7;192.0.2.9)", False)
    comes_true("all is as the site wants it", lambda: re.sub(" +", " ", machine.logger()) == with_level(5),
               more=machine.words_said)
    comes_true("status agrees", lambda: run.is_at(site) == {"one": "has_it"}, more=machine.words_said)


def case_the_processes_of_a_machine_obey(run):
    server, site = store(run)
    machine = Machine(run, site, "one", shares=True).start()
    machine.wait_for("Replay 320 6")
    environment = {**machine.environment, "PRISMATE_LOG_DIR": windows_path(machine.folder)}
    host = run.started(subprocess.Popen(run.command("levelsync_site_host", 320), stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=environment))
    expect_same("level at first", host.stdout.readline().split(), [b"320", b"6"])
    began = time.monotonic()
    run.on_site(site, "set", "replay", "7", "--for", "10m")
    expect_same("level then", host.stdout.readline().split(), [b"320", b"7"])
    print(f"a process had it {time.monotonic() - began:.1f} s after LevelSync was called")
    run.on_site(site, "undo")
    expect_same("level afterwards", host.stdout.readline().split(), [b"320", b"6"])
    comes_true("all is well", lambda: run.is_at(site) == {"one": "has_it"}, more=machine.words_said)


def case_one_agent_looks_after_a_folder(run):
    _, site = share(run)
    machine = Machine(run, site, "one").start()
    machine.wait_for("Replay 320 6")
    other = run.call("--site", site, "agent", "--dir", windows_path(machine.folder))
    expect("a second one says why not", other.code == 1 and "Another agent keeps the level file" in other.err, other)


# The page ------------------------------------------------------------------------------------------------
def only_asked_itself(page, browser):
    expect_same("what was asked of others", [url for url in browser.requests if not url.startswith(page.address)], [])
    expect_same("what the console says", browser.said, [])


def machine_chip(browser, name):
    return browser.run("[...document.querySelectorAll('#machines li')].find((each) => "
                       f"each.querySelector('.name').textContent === '{name}')?.querySelector('.chip').textContent ?? ''")


def case_a_click_on_a_page_raises_on_all_machines_and_off_again(run):
    _, site = store(run)
    page = Page(run, site)
    machines = [Obedient(run, site, name) for name in ("one", "two")]
    for each in machines:
        each.ask("serve 3 192.0.2.7")
    browser = page.browse()
    browser.sees("#summary", "2 machines: 2 have it.")
    browser.fill("#client", "192.0.2.7")
    browser.fill("#find", "replays its")
    browser.click("#package-320")
    browser.sees("#level", "6 info")
    browser.sees("#lines-place", "this machine takes no part in the site")
    browser.sees("#lines-place", "LevelSync lines --package Replay --client 192.0.2.7 --since 15m")
    expect_same("wanted before", [each.write("too early") for each in machines], [0, 0])
    slow = machines[1].machine.process
    slow.send_signal(signal.SIGSTOP)
    browser.fill("#reason", "case 4711, <b>slow</b>")
    browser.click("#raise-button")
    browser.sees("#raise-result", "Replay 6 to 7 for client 192.0.2.7 until ")
    browser.sees("#level", "7 debug")
    browser.sees("#raised", "Replay 7 debug for client 192.0.2.7")
    browser.sees("#raised", "case 4711, <b>slow</b>")
    expect("it says how long still", re.search(r"\b1[45]:\d\d left", browser.text("#raised")), browser.text("#raised"))
    browser.sees("#summary", "2 machines: 1 has it and 1 not yet.")
    expect_same("who has it", [machine_chip(browser, name) for name in ("one", "two")], ["has it", "not yet"])
    browser.sees("#machines", "Its agent has not been there since the last change.")
    expect_same("wanted then", [each.write("opened front.png") for each in machines], [1, 0])
    slow.send_signal(signal.SIGCONT)
    browser.sees("#summary", "2 machines: 2 have it.")
    comes_true("both hosts obey", lambda: [each.level() for each in machines] == [7, 7])
    machines[1].write("opened back.png")
    expect("both have the line", "opened front.png" in machines[0].log() and "opened back.png" in machines[1].log())
    history = run.on_site(site, "history", "--json").json()["changes"][0]
    expect_same("history", (history["command"], history["reason"]),
                ("page: set Replay debug --client 192.0.2.7 --for 15m", "case 4711, <b>slow</b>"))
    browser.click("#raised button")
    browser.sees("#raised", "Nothing is raised")
    browser.sees("#level", "6 info")
    comes_true("both hosts obey", lambda: [each.level() for each in machines] == [6, 6])
    only_asked_itself(page, browser)
    page.raise_level()
    page.process.send_signal(signal.SIGINT)
    expect_same("exit code of the page", page.process.wait(60), 0)
    expect_same("what outlives it", len(run.status(site)["overrides"]), 1)


def case_a_page_keeps_what_it_knows_while_the_store_is_away(run):
    server, site = store(run)
    run.on_site(site, "set", "replay", "7", "--client", "192.0.2.9", "--for", "15m", "--reason", "before")
    page = Page(run, site)
    browser = page.browse()
    browser.sees("#raised", "before")
    server.pause()
    answers = []
    raising = [threading.Thread(target=lambda: answers.append(page.raise_level())) for _ in range(2)]
    for each in raising:
        each.start()
    comes_true("one of two changes is refused at once", lambda: answers)
    for name in ("stamp", "state", "explain?package=320"):
        expect_same(f"{name} meanwhile", page.request("GET", name)[0], 200)
    expect_same("answers so far", [(status, report["error"]) for status, report in answers],
                [(409, "Another change of this page waits for the store.")])
    for each in raising:
        each.join(100)
    expect("the other is refused in words", answers[1][0] == 409 and "The store does not answer" in answers[1][1]["error"],
           answers)
    browser.sees("#away", "The store does not answer")
    browser.sees("#away", "What you see is as of ")
    server.kill()
    browser.sees("#away", "nobody listens there")
    browser.sees("#summary", "not known now")
    browser.sees("#raised", "before")
    browser.sees("#packages", "Replay")
    server.start().wait_ready()
    comes_true("the page is as before", lambda: browser.run("document.getElementById('away').hidden"))
    run.on_site(site, "undo")
    browser.sees("#raised", "Nothing is raised")
    status, report = page.raise_level(reason="after")
    expect_same(f"status of a raise, with {report}", status, 200)
    browser.sees("#raised", "after")
    only_asked_itself(page, browser)


def case_what_a_store_says_stays_text_on_a_page(run):
    server, site = store(run)
    markup = "<img src=x onerror=\"document.title='run'\"></li><script>document.title='run'</script>\u202e\x1b[31m"
    server.put("/site/base", BASE.replace("replays its lines", "<img src=x onerror=document.title='run'>"))
    server.put("/site/groups/servers", "Replay 320 3\n")
    words = {"machine": markup, "groups": [markup, "b"], "version": markup, "folder": markup, "state": markup,
             "applied": markup, "said": "2026-11-22T14:05:00.000Z", "wrong": [markup], "local": [markup, 7]}
    server.put("/site/machines/" + markup, json.dumps(words))
    server.put(b"/site/machines/\xff", b"\xff{")
    server.put("/site/known/away", json.dumps({**words, "wrong": [], "stopped": "no"}))
    seen = markup.replace("\x1b", "")  # what has such is refused
    now = time.gmtime(time.time() + 600)
    over = {"package": 320, "name": "Replay", "level": 7, "clients": ["192.0.2.7"], "author": seen, "machine": seen,
            "reason": seen, "made": time.strftime("%Y-%m-%dT00:00:00.000Z", now),
            "until": time.strftime("%Y-%m-%dT%H:%M:%S.000Z", now)}
    server.put("/site/overrides/by-hand", json.dumps(over))
    server.put("/site/history/0000000001", json.dumps(
        {"id": 1, "time": over["made"], "user": markup, "machine": markup, "command": markup, "reason": markup, "lines": [],
         "begun": [], "ended": [], "effects": [markup]}))
    page = Page(run, site)
    browser = page.browse()
    browser.sees("#machines", "<img src=x onerror=")
    browser.sees("#machines", "Nothing was heard of it for a minute.")
    browser.sees("#machines", "What it says of itself cannot be read.")
    browser.sees("#raised", "Written by hand as by-hand")
    expect_same("ways to take it back that there are not", browser.texts("#raised button"), [])
    browser.sees("#changes", "<img src=x onerror=")
    browser.fill("#client", "192.0.2.7")
    browser.click("#package-320")
    browser.sees("#package-comment", "<img src=x onerror=")
    browser.sees("#level", "7 debug")
    browser.fill("#client", "192.0.2.8")
    browser.sees("#level", "6 info")
    browser.choose("group", "servers")
    browser.sees("#level", "3 error")
    browser.sees("#level-for", "client 192.0.2.8, on machines of group servers")
    text = browser.text("main")
    expect("nothing drives a terminal or turns letters around", "\x1b" not in text and "\u202e" not in text, text)
    expect_same("elements that nobody made", browser.run(
        "document.querySelectorAll('main img, main script, main a').length"), 0)
    expect("the title is the page's", browser.run("document.title").startswith("LevelSync"))
    browser.choose("group", "")
    server.put("/site/overrides/x", "no JSON")
    browser.sees("#refused", "Override x: it is no object of JSON. The machines go on with what they have.")
    browser.sees("#raised", "What is raised cannot be told now.")
    expect_same("a group that can be none", page.request("GET", "state?groups=a%2Cb%20c")[0], 400)
    for host in ("localhost", "evil.example"):
        expect_same(f"of {host}", page.request("GET", "state", Host=host)[0], 403)
    expect_same("of another origin", page.request("POST", "undo", {"change": 1}, Origin="http://evil.example")[0], 403)
    only_asked_itself(page, browser)


def case_a_page_of_a_share_is_used_by_the_keyboard(run):
    folder, site = share(run)
    machine = Machine(run, site, "one").start()
    machine.wait_for("Replay 320 6")
    page = Page(run, site, machine.folder)
    browser = page.browse()
    expect_same("the focus at first", browser.focused(), "client")
    browser.type("192.0.2.7")
    browser.tab_to("find")
    browser.type("repl")
    browser.press("ArrowDown")
    browser.sees("#package-title", "Replay (320)")
    browser.sees("#lines-place", "The lines of this machine alone.")
    browser.sees("#lines-state", "0 lines since")
    now = time.strftime("%Y-%m-%d %H:%M:%S", time.gmtime())
    (machine.folder / "viewer.log").write_bytes(
        f"{now}.000+00:00 ERROR   (320) viewer (32,280) ClientIP(192.0.2.7) host.cpp(113) replay -> opened front.png\r\n".encode())
    browser.sees("#lines", "opened front.png")
    browser.tab_to("reason")
    browser.type("by keys")
    browser.press("Enter")
    browser.sees("#raised", "by keys")
    machine.wait_for("(7;192.0.2.7)")
    browser.sees("#summary", "1 machine: 1 has it.")
    browser.tab_into("#raised")
    browser.press("Enter")
    browser.sees("#raised", "Nothing is raised")
    machine.wait_for("(7;192.0.2.7)", False)
    os.rename(folder, run.work / "away")
    browser.sees("#away", "cannot be reached")
    browser.sees("#packages", "Replay")
    os.rename(run.work / "away", folder)
    comes_true("the page is as before", lambda: browser.run("document.getElementById('away').hidden"))
    browser.sees("#summary", "1 machine: 1 has it.")


# Users, certificates, services ---------------------------------------------------------------------------
def case_a_user_and_a_password_are_taken_from_the_environment_or_a_file(run):
    server, site = store(run)
    for path, question in (("user/add", {"name": "root", "password": "secret"}), ("role/add", {"name": "root"}),
                           ("user/grant", {"user": "root", "role": "root"}), ("enable", {})):
        server.ask("/v3/auth/" + path, question)
    refused = run.on_site(site, "list", code=1)
    expect("without a user it says what to do", "LEVELSYNC_SITE_USER" in refused.err, refused)
    wrong = run.on_site(site, "list", code=1, environment={
        "LEVELSYNC_SITE_USER": "root", "LEVELSYNC_SITE_PASSWORD": "wrong"})
    expect("a wrong password is told", "does not let the user root in" in wrong.err and "wrong" not in wrong.err, wrong)
    run.on_site(site, "list", environment={"LEVELSYNC_SITE_USER": "root", "LEVELSYNC_SITE_PASSWORD": "secret"})
    credentials = run.work / "credentials"
    credentials.write_text("root\r\nsecret\r\n")
    run.on_site(site, "set", "replay", "7", "--credentials", windows_path(credentials))
    machine = Machine(run, site, "one", "--credentials", windows_path(credentials)).start()
    machine.wait_for("Replay 320 7")


def case_a_certificate_counts_where_windows_trusts_it(run):
    key, certificate = run.work / "key.pem", run.work / "certificate.pem"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", certificate, "-days",
                    "2", "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost"], check=True, capture_output=True)
    client, peer = etcd.free_ports(2)
    here = f"https://127.0.0.1:{client}"
    run.started(etcd.Member(
        run.etcd, run.work / "etcd/tls", client=client, peer=peer,
        options=("--cert-file", str(certificate), "--key-file", str(key), "--listen-client-urls", here,
                 "--advertise-client-urls", here))).start()
    comes_true("it is there", lambda: subprocess.run(
        ["openssl", "s_client", "-connect", f"127.0.0.1:{client}"], stdin=subprocess.DEVNULL, capture_output=True,
        check=False, timeout=20).returncode == 0)
    site = f"etcd:https://localhost:{client}/site"
    said = run.on_site(site, "list", code=1)
    expect("who is not trusted is refused", "certificate is not trusted on this machine" in said.err, said)
    root = run.started(TrustedRoot(run, certificate))
    said = run.on_site(site, "list", code=1)
    expect("who is trusted answers", "The site has no base file." in said.err, said)
    base = run.work / "base"
    base.write_text(BASE)
    run.on_site(site, "publish", windows_path(base))
    machine = Machine(run, site, "one").start()
    machine.wait_for("Replay 320 6")
    said = run.on_site(f"etcd:{here}/site", "list", code=1)
    expect("a certificate of another name is refused", "certificate is not trusted on this machine" in said.err, said)
    root.end()


class TrustedRoot:
    """A certificate that this machine's Windows programs trust, as long as this object is there."""

    def __init__(self, run, certificate):
        der = subprocess.run(["openssl", "x509", "-in", certificate, "-outform", "DER"], check=True, capture_output=True).stdout
        number = hashlib.sha1(der).digest()
        self.run, self.file = run, run.work / "root.reg"
        self.key = f"HKEY_CURRENT_USER\\Software\\Microsoft\\SystemCertificates\\Root\\Certificates\\{number.hex().upper()}"
        # As the system has it: properties by number (3: the digest, 32: the certificate), each with its size.
        blob = b"".join(struct.pack("<III", kind, 1, len(data)) + data for kind, data in ((3, number), (32, der)))
        self.write(f'[{self.key}]\r\n"Blob"=hex:' + ",".join(f"{byte:02x}" for byte in blob))

    def write(self, text):
        self.file.write_text("Windows Registry Editor Version 5.00\r\n\r\n" + text + "\r\n")
        subprocess.run(["wine", "regedit", "/S", windows_path(self.file)], stdin=subprocess.DEVNULL, check=True, timeout=120,
                       capture_output=True, env=self.run.environment)

    def end(self):
        self.write(f"[-{self.key}]")


def case_the_agent_is_a_service(run):
    _, site = share(run)
    folder = run.work / "machine"
    folder.mkdir()

    def service(*words, code=0):
        done = subprocess.run(run.command("LevelSync", "service", *words), stdin=subprocess.DEVNULL, capture_output=True,
                              timeout=120, env=run.environment, check=False)
        expect_same(f"exit code of {words}: {done.stdout}{done.stderr}", done.returncode, code)
        return done.stdout.decode()

    service("status", code=1)
    service("remove", code=1)
    try:
        service("install", "--site", site, "--machine", "served", "--dir", windows_path(folder), "--every", "1")
        logger = folder / "logger"
        comes_true("the service does its work", lambda: logger.exists() and logger.read_text() == BASE)
        expect("status says that it runs", "is running" in service("status"))
        state = json.loads(service("status", "--json"))
        expect("with its words", "--machine" in state["command"] and state["process"] != 0, state)
        comes_true("the site knows it", lambda: run.is_at(site) == {"served": "has_it"})
        service("install", "--site", site, "--dir", windows_path(folder), code=1)
    finally:
        service("remove")
    comes_true("it said that it ends", lambda: run.is_at(site) == {"served": "stopped"})
    service("status", code=1)


def main():
    *arguments, name = sys.argv[1:]
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended from outside"))  # so that nothing is left behind
    run = Run(*arguments)
    try:
        globals()["case_" + name](run)
    finally:
        run.end()


if __name__ == "__main__":
    main()
