#!/usr/bin/env python3
"""The framework's records on a real DLT daemon, read back with dlt-receive and dlt-convert.

Starts dlt-daemon on a private folder (its pipes, control socket and log) and a free TCP port,
runs the probe application and both simulators with QEL_LOG_SINK=dlt, and checks the records'
app ids, context ids and levels.

  dlt_daemon_test.py --probe EXE --backend-sim EXE --networking-sim EXE
"""

import argparse
import os
import re
import shlex
import shutil
import socket
import subprocess
import sys
import tempfile
import time

# "index date time timestamp count ECU APID CTID log LEVEL V N [text]"
RECORD = re.compile(r"^\d+ \S+ \S+\s+\d+ \d+ ECU1 (\w{4}) (\w{4}) log (\w+) V \d+ \[(.*)\]$")


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_until(condition, timeout=10.0):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        if condition():
            return True
        time.sleep(0.05)
    return False


def connects(port):
    try:
        socket.create_connection(("127.0.0.1", port), timeout=0.2).close()
        return True
    except OSError:
        return False


def run_simulator(command, env, ready):
    """Runs a simulator until `ready` appears on its stdout or in the daemon's records, then stops it."""
    process = subprocess.Popen(command, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        ready_seen = wait_until(ready)
    finally:
        process.terminate()
        process.wait(timeout=10)
    return ready_seen


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--probe", required=True)
    parser.add_argument("--backend-sim", required=True)
    parser.add_argument("--networking-sim", required=True)
    parser.add_argument("--emulator", default="", help="command that runs the built programs (a cross build's)")
    args = parser.parse_args()
    emulator = shlex.split(args.emulator)

    workdir = tempfile.mkdtemp(prefix="qel-dlt-")
    processes = []
    try:
        port = free_port()
        config = os.path.join(workdir, "dlt.conf")
        with open(config, "w") as out:
            out.write("ECUId = ECU1\nSendContextRegistration = 1\nLoggingMode = 2\n"
                      "LoggingFilename = %s\nControlSocketPath = %s\n"
                      % (os.path.join(workdir, "daemon.log"), os.path.join(workdir, "ctrl.sock")))
        processes.append(subprocess.Popen(["dlt-daemon", "-c", config, "-t", workdir, "-p", str(port)],
                                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL))
        if not wait_until(lambda: connects(port)):
            print("dlt-daemon did not listen on port %d" % port)
            return 1
        records_file = os.path.join(workdir, "records.dlt")
        processes.append(subprocess.Popen(["dlt-receive", "-o", records_file, "-p", str(port), "127.0.0.1"],
                                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL))

        def records():
            converted = subprocess.run(["dlt-convert", "-a", records_file], capture_output=True, text=True)
            return [m.groups() for m in map(RECORD.match, converted.stdout.splitlines()) if m]

        def has(app, text):
            return lambda: any(r[0] == app and r[3].startswith(text) for r in records())

        # The receiver is connected once the daemon says so in its own records.
        if not wait_until(has("DLTD", "New client connection")):
            print("dlt-receive did not connect")
            return 1

        env = dict(os.environ, DLT_PIPE_DIR=workdir, QEL_LOG_SINK="dlt")
        env.pop("QEL_DLT_APP_ID", None)
        subprocess.run(emulator + [args.probe, "--own-app", "MYAP"], env=dict(env, QEL_LOG_LEVEL="2"), check=True, timeout=30)
        subprocess.run(emulator + [args.probe], env=dict(env, QEL_LOG_LEVEL="3", QEL_DLT_APP_ID="ENVA"), check=True, timeout=30)
        subprocess.run(emulator + [args.probe], env=dict(env, QEL_LOG_LEVEL="4"), check=True, timeout=30)

        bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address=1",
                                "--address=unix:path=" + os.path.join(workdir, "bus")],
                               stdout=subprocess.PIPE, text=True)
        processes.append(bus)
        sim_env = dict(env, DBUS_SESSION_BUS_ADDRESS=bus.stdout.readline().strip())
        backend_up = run_simulator(emulator + [args.backend_sim, "--port", "0"], sim_env,
                                   has("BSIM", "Backend simulator listening"))
        networking_up = run_simulator(emulator + [args.networking_sim, "--control-port", "0"], sim_env,
                                      has("NSIM", "Networking service registered"))

        # Records of one process arrive in order; the daemon writes them as they come.
        wait_until(has("QOSF", "framework warning"))
        got = [r for r in records() if r[0] != "DLTD"]
        expected = [
            ("MYAP", "MAIN", "info", "before"),
            ("MYAP", "NOGG", "info", "framework info"),
            ("MYAP", "NOGG", "debug", "framework debug"),
            ("MYAP", "COA6", "warn", "framework warning"),
            ("MYAP", "MAIN", "info", "after"),
            ("ENVA", "NOGG", "info", "framework info"),
            ("ENVA", "COA6", "warn", "framework warning"),
            ("QOSF", "COA6", "warn", "framework warning"),
        ]
        failures = []
        probe_records = [r for r in got if r[0] in ("MYAP", "ENVA", "QOSF")]
        if probe_records != expected:
            failures.append("probe records:\n  got      %s\n  expected %s" % (probe_records, expected))
        if not backend_up:
            failures.append("no BSIM record from the backend simulator")
        if not networking_up:
            failures.append("no NSIM record from the networking simulator")
        print(subprocess.run(["dlt-convert", "-a", records_file], capture_output=True, text=True).stdout)
        for failure in failures:
            print("FAILED: " + failure)
        return 1 if failures else 0
    finally:
        for process in reversed(processes):
            if process.poll() is None:
                process.terminate()
                try:
                    process.wait(timeout=10)
                except subprocess.TimeoutExpired:
                    process.kill()
                    process.wait()
        shutil.rmtree(workdir, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
