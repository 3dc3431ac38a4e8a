#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Tries the messaging layer as an attacker would, from outside the project:
tvsim serves, zorctl calls, and this script plays the hostile peers with raw
sockets. Prints one line of figures per check and exits non-zero when a
figure misses its mark.

    scripts/mup-hostile-check.py [BUILD_DIR] [CHECK...]

Checks: stress (16 threads x 2000 calls up to 1 MiB, with bench's mup_stress),
idle, flood, halfsent, impostor (as root only: other uids through setresuid).
"""
import multiprocessing
import os
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

STRANGER = 65533
USER = 65534
SERVICE = "oxa.kel.avs.client"


def header(size, kind=1, sequence=9, command=0x18040003):
    return struct.pack("<IHHIII", 0x50554D5A, 1, kind, sequence, command, size)


class Tvsim:
    """tvsim in a private runtime directory, its stderr kept in a file."""

    def __init__(self, build, runtime, uid=None):
        self.runtime = runtime
        self.stderr_path = os.path.join(tempfile.mkdtemp(prefix="tvsim-log-"), "stderr")
        self.stderr = open(self.stderr_path, "w")
        env = dict(os.environ, ZOR_RUNTIME_DIR=runtime)
        self.process = subprocess.Popen(
            [os.path.join(build, "sim/tvsim"), "--quiet"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=self.stderr, env=env,
            preexec_fn=(lambda: become(uid)) if uid else None)
        path = os.path.join(runtime, SERVICE + ".sock")
        for _ in range(1000):
            if os.path.exists(path):
                return
            time.sleep(0.01)
        raise RuntimeError("tvsim did not start")

    def status_kb(self, field):
        with open("/proc/%d/status" % self.process.pid) as status:
            for line in status:
                if line.startswith(field + ":"):
                    return int(line.split()[1])
        return -1

    def stderr_lines(self):
        with open(self.stderr_path) as log:
            return log.read().splitlines()

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.stderr.close()


def become(uid):
    os.setgroups([])
    os.setresgid(uid, uid, uid)
    os.setresuid(uid, uid, uid)


def zorctl(build, runtime, *args, uid=None):
    env = dict(os.environ, ZOR_RUNTIME_DIR=runtime)
    return subprocess.run([os.path.join(build, "tools/zorctl")] + list(args), env=env,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=60,
                          preexec_fn=(lambda: become(uid)) if uid else None)


def connect(path):
    s = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    s.connect(path)
    return s


def check_stress(build, _runtime):
    program = os.path.join(build, "bench/mup_stress")
    result = subprocess.run([program, "16", "2000", "1048576"], stdout=subprocess.PIPE,
                            text=True)
    print(result.stdout.strip())
    return result.returncode == 0


def check_idle(build, runtime):
    sim = Tvsim(build, runtime)
    try:
        path = os.path.join(runtime, SERVICE + ".sock")
        held = [connect(path) for _ in range(200)]
        time.sleep(12)
        call = zorctl(build, runtime, "volume", "set", "30")
        open_count = 0
        for s in held:
            s.setblocking(False)
            try:
                open_count += s.recv(1, socket.MSG_PEEK) != b""
            except BlockingIOError:
                open_count += 1
            s.close()
        print("idle: 200 connections held 12 s, then zorctl volume set: exit %d; %d of them "
              "still open" % (call.returncode, open_count))
        return call.returncode == 0
    finally:
        sim.stop()


def flood(path, until):
    count = 0
    while time.time() < until:
        try:
            connect(path).close()
            count += 1
        except OSError:
            pass
    return count


def check_flood(build, runtime):
    sim = Tvsim(build, runtime)
    try:
        path = os.path.join(runtime, SERVICE + ".sock")
        until = time.time() + 8
        with multiprocessing.Pool(2) as pool:
            flooders = [pool.apply_async(flood, (path, until)) for _ in range(2)]
            served = 0
            for i in range(30):
                served += zorctl(build, runtime, "volume", "set", str(i)).returncode == 0
                time.sleep(max(0.0, (until - time.time()) / (30 - i) - 0.01))
            flooded = sum(f.get() for f in flooders)
        lines = sim.stderr_lines()
        print("flood: %d connect/close in 8 s; %d of 30 zorctl calls served; %d lines on "
              "tvsim's stderr" % (flooded, served, len(lines)))
        return served >= 27 and len(lines) <= 200
    finally:
        sim.stop()


def check_halfsent(build, runtime):
    sim = Tvsim(build, runtime)
    try:
        path = os.path.join(runtime, SERVICE + ".sock")
        before = sim.status_kb("VmRSS")
        frame = header(1048576) + b"\x5a" * (1048576 - 1)
        peers = []
        for _ in range(128):
            s = connect(path)
            s.setblocking(False)
            peers.append([s, 0])
        until = time.time() + 8
        while time.time() < until:
            for peer in peers:
                try:
                    peer[1] += peer[0].send(frame[peer[1]:peer[1] + 262144])
                except (BlockingIOError, BrokenPipeError, ConnectionResetError):
                    pass
            time.sleep(0.02)
        rss = sim.status_kb("VmRSS")
        peak = sim.status_kb("VmHWM")
        sent = sum(p[1] for p in peers) / 1e6
        for peer in peers:
            peer[0].close()
        print("halfsent: 128 frames of 1 MiB less a byte pushed for 8 s (%.1f MB taken): "
              "tvsim RSS %.1f MB before, %.1f MB after, peak %.1f MB"
              % (sent, before / 1024, rss / 1024, peak / 1024))
        return peak <= 40 * 1024
    finally:
        sim.stop()


def impostor_listener(path, uid, ready, result):
    """As another user: serves `path` and counts the bytes it receives."""
    become(uid)
    server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    server.bind(path)
    os.chmod(path, 0o666)
    server.listen(8)
    server.settimeout(15)
    ready.set()
    total = 0
    try:
        while True:
            conn, _ = server.accept()
            conn.settimeout(2)
            try:
                while True:
                    data = conn.recv(65536)
                    if not data:
                        break
                    total += len(data)
            except socket.timeout:
                pass
            conn.close()
            result.value = total
    except socket.timeout:
        pass


def check_impostor(build, _runtime):
    if os.geteuid() != 0:
        print("impostor: skipped (needs root for the other uids)")
        return True
    ok = True
    # 1. A runtime directory that another user made 0777.
    base = tempfile.mkdtemp(prefix="impostor-")
    os.chmod(base, 0o755)
    theirs = os.path.join(base, "theirs")
    os.mkdir(theirs)
    os.chmod(theirs, 0o777)
    os.chown(theirs, STRANGER, STRANGER)
    call = zorctl(build, theirs, "token", "set", "secret-avs-token", uid=USER)
    left = os.listdir(theirs)
    print("impostor 1: directory of uid %d, mode 0777: zorctl exit %d, %d files made there, "
          "stderr: %s" % (STRANGER, call.returncode, len(left), call.stderr.strip()))
    ok &= call.returncode != 0 and not left

    # 2. A shared sticky directory where the stranger serves the name first.
    shared = os.path.join(base, "shared")
    os.mkdir(shared)
    os.chmod(shared, 0o1777)
    path = os.path.join(shared, SERVICE + ".sock")
    ready = multiprocessing.Event()
    received = multiprocessing.Value("l", 0)
    listener = multiprocessing.Process(target=impostor_listener,
                                       args=(path, STRANGER, ready, received))
    listener.start()
    ready.wait(10)
    call = zorctl(build, shared, "token", "set", "secret-avs-token", uid=USER)
    time.sleep(2.5)
    listener.terminate()
    listener.join()
    print("impostor 2: uid %d serves %s in a sticky directory: zorctl (uid %d) exit %d, the "
          "impostor received %d bytes, stderr: %s"
          % (STRANGER, SERVICE, USER, call.returncode, received.value, call.stderr.strip()))
    ok &= call.returncode != 0 and received.value == 0
    os.unlink(path)

    # 3. tvsim of the user serving there: the stranger can't take its place.
    sim = Tvsim(build, shared, uid=USER)
    try:
        moved = subprocess.run(["mv", path, path + ".old"], preexec_fn=lambda: become(STRANGER),
                               stderr=subprocess.PIPE, text=True)
        removed = subprocess.run(["rm", "-f", path], preexec_fn=lambda: become(STRANGER),
                                 stderr=subprocess.PIPE, text=True)
        call = zorctl(build, shared, "token", "set", "secret-avs-token", uid=USER)
        print("impostor 3: tvsim of uid %d serving: the stranger's mv exit %d, rm exit %d; the "
              "user's zorctl token set exit %d" % (USER, moved.returncode, removed.returncode,
                                                   call.returncode))
        ok &= moved.returncode != 0 and removed.returncode != 0 and call.returncode == 0
    finally:
        sim.stop()
    shutil.rmtree(base, ignore_errors=True)
    return ok


CHECKS = {"stress": check_stress, "idle": check_idle, "flood": check_flood,
          "halfsent": check_halfsent, "impostor": check_impostor}


def main():
    args = sys.argv[1:]
    build = os.path.abspath(args.pop(0) if args and args[0] not in CHECKS else "build")
    names = args or list(CHECKS)
    failed = []
    for name in names:
        runtime = tempfile.mkdtemp(prefix="zor-hostile-")
        try:
            if not CHECKS[name](build, runtime):
                failed.append(name)
        finally:
            shutil.rmtree(runtime, ignore_errors=True)
    if failed:
        print("missed: " + ", ".join(failed), file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
