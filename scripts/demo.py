#!/usr/bin/env python3
"""Runs the example application against both simulators and tells its story.

Starts a private D-Bus session, the networking simulator, the backend simulator and the example
application, drives the story through the simulators' control endpoints and the application's
commands, prints the application's timeline as it happens and a summary, and writes the run-state
timeline as an SVG picture. Leaves no process behind. Exits 0 only when every step happened.

  demo.py --build DIR [--out DIR] [--interactive] [--emulator COMMAND]

--emulator runs the built programs through COMMAND (a cross build's programs under qemu, for
example); QEL_TEST_TIMEOUT_SCALE multiplies every wait of the story, as such programs run slower.
"""

import argparse
import json
import math
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request

TIMEOUT_SCALE = float(os.environ.get("QEL_TEST_TIMEOUT_SCALE", "1"))
STEP_TIMEOUT_S = 30.0 * TIMEOUT_SCALE
# The framework re-subscribes 10 s after a dropped WebSocket; allow for that and a margin.
RESUBSCRIBE_TIMEOUT_S = 10.0 + 30.0 * TIMEOUT_SCALE


class Timeline:
    """The application's output lines, '[  123 ms] what', collected on a reader thread."""

    LINE = re.compile(r"^\[\s*(\d+) ms\] (.*)$")

    def __init__(self, stream, echo):
        self.events = []  # (ms, text), guarded by self.changed
        self.changed = threading.Condition()
        self.thread = threading.Thread(target=self._read, args=(stream, echo), name="timeline", daemon=False)
        self.thread.start()

    def _read(self, stream, echo):
        for raw in stream:
            line = raw.rstrip("\n")
            if echo:
                print("  " + line, flush=True)
            match = self.LINE.match(line)
            if match:
                with self.changed:
                    self.events.append((int(match.group(1)), match.group(2)))
                    self.changed.notify_all()

    def mark(self):
        with self.changed:
            return len(self.events)

    def wait_for(self, pattern, since, timeout=STEP_TIMEOUT_S):
        """The first event matching `pattern` at index `since` or later, or None after `timeout`."""
        regex = re.compile(pattern)
        deadline = time.monotonic() + timeout
        with self.changed:
            while True:
                for ms, text in self.events[since:]:
                    if regex.search(text):
                        return ms, text
                left = deadline - time.monotonic()
                if left <= 0:
                    return None
                self.changed.wait(left)


class Http:
    """Talks to a simulator's control endpoint on loopback."""

    def __init__(self, port):
        self.base = "http://127.0.0.1:%d" % port

    def post(self, path, body=None):
        data = json.dumps(body).encode() if body is not None else b""
        request = urllib.request.Request(self.base + path, data=data, method="POST")
        with urllib.request.urlopen(request, timeout=5) as answer:
            return json.loads(answer.read() or b"null")

    def get(self, path):
        with urllib.request.urlopen(self.base + path, timeout=5) as answer:
            return json.loads(answer.read() or b"null")


class Processes:
    """Every process the demo starts, stopped in reverse order on exit."""

    def __init__(self, workdir, emulator=()):
        self.workdir = workdir
        self.emulator = list(emulator)
        self.started = []

    def start(self, name, command, env, built=False, **kwargs):
        """Starts `command`; a program of the build tree (`built`) starts through the emulator, if any."""
        if built:
            command = self.emulator + command
        log = open(os.path.join(self.workdir, name + ".log"), "w")
        kwargs.setdefault("stdout", log)
        process = subprocess.Popen(command, env=env, stderr=log, start_new_session=True, **kwargs)
        self.started.append((name, process, log))
        return process

    def stop_all(self):
        for name, process, log in reversed(self.started):
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
                try:
                    process.wait(timeout=10)
                except subprocess.TimeoutExpired:
                    print("demo: %s did not stop, killing it" % name, file=sys.stderr)
                    process.kill()
                    process.wait()
            log.close()


def wait_for_log_line(path, pattern, timeout=STEP_TIMEOUT_S):
    """The first match of `pattern` in the log file at `path`, or None after `timeout`."""
    regex = re.compile(pattern)
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        with open(path) as log:
            match = regex.search(log.read())
        if match:
            return match
        time.sleep(0.05)
    return None


def listening_port(process, timeout=STEP_TIMEOUT_S):
    """The TCP port `process` listens on, found through /proc (its log may go to DLT), or None."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline and process.poll() is None:
        inodes = set()
        fd_dir = "/proc/%d/fd" % process.pid
        for fd in os.listdir(fd_dir):
            try:
                target = os.readlink(os.path.join(fd_dir, fd))
            except OSError:
                continue
            if target.startswith("socket:["):
                inodes.add(target[len("socket:["):-1])
        for table in ("/proc/net/tcp", "/proc/net/tcp6"):
            with open(table) as lines:
                next(lines)
                for line in lines:
                    fields = line.split()
                    if fields[3] == "0A" and fields[9] in inodes:  # 0A: LISTEN
                        return int(fields[1].rsplit(":", 1)[1], 16)
        time.sleep(0.05)
    return None


def start_bus(processes, env):
    config = os.path.join(processes.workdir, "bus.conf")
    with open(config, "w") as out:
        out.write(
            "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
            " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
            "<busconfig><type>session</type>"
            "<listen>unix:path=%s</listen>"
            "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
            "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n"
            % os.path.join(processes.workdir, "bus.socket"))
    bus = processes.start("dbus", ["dbus-daemon", "--config-file=" + config, "--nofork", "--print-address=1"],
                          env, stdout=subprocess.PIPE, text=True)
    address = bus.stdout.readline().strip()
    if not address:
        raise RuntimeError("the private D-Bus daemon did not start")
    return address


def start_simulators(processes, build, env):
    networking_log = os.path.join(processes.workdir, "networking-sim.log")
    processes.start("networking-sim", [os.path.join(build, "sim/networking/qel-networking-sim"), "--control-port", "0"],
                    env, built=True)
    match = wait_for_log_line(networking_log, r"control port: (\d+)")
    if not match:
        raise RuntimeError("the networking simulator did not start (see %s)" % networking_log)
    networking = Http(int(match.group(1)))
    networking.console = wait_for_log_line(networking_log, r"console: (http://\S+)").group(1)

    backend_log = os.path.join(processes.workdir, "backend-sim.log")
    scenario = os.path.join(os.path.dirname(__file__), "..", "sim", "backend", "scenarios", "demo.json")
    backend = processes.start("backend-sim", [os.path.join(build, "sim/backend/qel-backend-sim"), "--port", "0",
                                               "--scenario", scenario], env, built=True)
    port = listening_port(backend)
    if port is None:
        raise RuntimeError("the backend simulator did not start (see %s)" % backend_log)
    backend = Http(port)
    backend.console = wait_for_log_line(backend_log, r"console: (http://\S+)").group(1)
    return networking, backend, port


def live_subscriptions(backend):
    """Subscribe messages received minus unsubscribe messages, from the simulator's record."""
    received = backend.get("/_control/received")
    subscribes = sum(1 for m in received if m.get("channel") == "ws" and m.get("method") == "subscribe")
    unsubscribes = sum(1 for m in received if m.get("channel") == "ws" and m.get("method") == "unsubscribe")
    return subscribes, unsubscribes


class Story:
    """The scripted steps; each records OK or FAILED with a short reason."""

    def __init__(self, timeline, app, backend, networking):
        self.timeline = timeline
        self.app = app
        self.backend = backend
        self.networking = networking
        self.results = []  # (step, ok, detail)
        self.marks = []    # (ms, label) for the picture

    def command(self, line):
        self.app.stdin.write(line + "\n")
        self.app.stdin.flush()

    def expect(self, step, pattern, since, timeout=STEP_TIMEOUT_S):
        found = self.timeline.wait_for(pattern, since, timeout)
        self.results.append((step, found is not None, found[1] if found else "no '%s' within %d s" % (pattern, timeout)))
        if found:
            self.marks.append((found[0], step))
        return found

    def run(self):
        since = 0
        if not self.expect("startup reaches RESUMED", r"^state RESUMED$", since):
            return
        self.expect("internet access granted with addresses", r"^network demoservice ipv4 [0-9.]+/\d+", since)
        self.job()
        self.kvs_from_backend()
        self.kvs_from_application()
        self.disable_reason()
        self.websocket_dropped()
        self.ocu_lost()
        self.pause()
        since = self.timeline.mark()
        self.command("stop")
        self.expect("stop reaches DESTROYED", r"^state DESTROYED$", since)

    def job(self):
        since = self.timeline.mark()
        self.backend.post("/_control/pushJob", {"name": "demoservice", "jobPayload": "open-window"})
        found = self.expect("job received", r"^job received \S+ payload open-window$", since)
        if not found:
            return
        job_id = found[1].split()[2]
        deadline = time.monotonic() + STEP_TIMEOUT_S
        acknowledged = []
        while time.monotonic() < deadline:
            acknowledged = [a for a in self.backend.get("/_control/acknowledgements") if a.get("jobId") == job_id]
            if acknowledged:
                break
            time.sleep(0.05)
        ok = [a.get("state") for a in acknowledged] == ["success"]
        self.results.append(("job acknowledged with success", ok, json.dumps(acknowledged)))

    def kvs_from_backend(self):
        since = self.timeline.mark()
        self.backend.post("/_control/kvs", {"item": "demo.volume", "value": "9"})
        self.expect("KVS value changed in the backend", r"^kvs demo\.volume = 9$", since)

    def kvs_from_application(self):
        since = self.timeline.mark()
        self.command("update demo.color blue")
        self.expect("KVS value updated by the application", r"^kvs update demo\.color = blue -> UPDATE_OK$", since)

    def disable_reason(self):
        since = self.timeline.mark()
        self.backend.post("/_control/disableReasons", {"service": "demoservice", "reasons": ["license"]})
        self.expect("disable reason set: STOPPED", r"^state STOPPED$", since)
        since = self.timeline.mark()
        self.backend.post("/_control/disableReasons", {"service": "demoservice", "reasons": []})
        self.expect("disable reason cleared: RESUMED", r"^state RESUMED$", since)

    def websocket_dropped(self):
        subscribed, unsubscribed = live_subscriptions(self.backend)
        live = subscribed - unsubscribed
        since = self.timeline.mark()
        self.backend.post("/_control/closeWebSockets")
        self.marks.append((self._last_ms(), "WebSocket dropped"))
        deadline = time.monotonic() + RESUBSCRIBE_TIMEOUT_S
        restored = 0
        while time.monotonic() < deadline:
            restored = live_subscriptions(self.backend)[0] - subscribed
            if restored >= live:
                break
            time.sleep(0.2)
        self.results.append(("WebSocket dropped, every subscription restored", restored >= live > 0,
                             "%d of %d subscriptions made again" % (restored, live)))
        # Proof that the restored subscriptions carry events again.
        since = self.timeline.mark()
        self.backend.post("/_control/rotateToken", {"token": "tok-demo", "value": "demo-token-2"})
        self.expect("events flow after the drop (new token)", r"^token demoservice demo-token-2$", since)

    def ocu_lost(self):
        since = self.timeline.mark()
        self.networking.post("/_control/ocu", {"available": False})
        self.expect("OCU connection lost: DISCONNECTED", r"^state DISCONNECTED$", since)
        since = self.timeline.mark()
        self.networking.post("/_control/ocu", {"available": True})
        self.expect("OCU connection back: RESUMED", r"^state RESUMED$", since)

    def pause(self):
        since = self.timeline.mark()
        self.command("pause")
        self.expect("pause: PAUSED", r"^state PAUSED$", since)
        since = self.timeline.mark()
        self.command("unpause")
        self.expect("unpause: RESUMED", r"^state RESUMED$", since)

    def _last_ms(self):
        with self.timeline.changed:
            return self.timeline.events[-1][0] if self.timeline.events else 0


STATE_COLOURS = {
    "INVALID": "#bdbdbd", "CREATED": "#90caf9", "STARTED": "#64b5f6", "RESUMED": "#66bb6a", "PAUSED": "#ffca28",
    "STOPPED": "#ef5350", "DISCONNECTED": "#ab47bc", "DESTROYED": "#616161",
}


def state_segments(events):
    """(begin ms, end ms, state) for every run state entered, INVALID first."""
    end = max([ms for ms, _ in events] + [1])
    entered = [(ms, text.split()[1]) for ms, text in events if text.startswith("state ")]
    segments, begin, current = [], 0, "INVALID"
    for ms, state in entered + [(end, None)]:
        segments.append((begin, ms, current))
        begin, current = ms, state
    return segments


def write_svg(path, events, marks):
    """Run states as bands, the story's steps as numbered marks on them.

    The story spends milliseconds on most steps and seconds on a few, so a linear time axis would
    show one band. Each band's width grows with the logarithm of its duration instead, and the
    times are written at the band edges.
    """
    width, left, top = 1200, 20, 50
    segments = state_segments(events)
    weights = [1.0 + math.log1p(end - begin) for begin, end, _ in segments]
    scale = (width - 2 * left) / sum(weights)
    edges, x = [], float(left)
    for weight in weights:
        edges.append(x)
        x += weight * scale
    edges.append(x)

    def position(ms):
        for (begin, end, _), x0, x1 in zip(segments, edges, edges[1:]):
            if ms <= end:
                return x0 + (x1 - x0) * ((ms - begin) / (end - begin) if end > begin else 0.5)
        return edges[-1]

    parts = ['<svg xmlns="http://www.w3.org/2000/svg" width="%d" height="%d" font-family="sans-serif" '
             'font-size="12">' % (width, 230 + 16 * len(marks)),
             '<rect width="100%" height="100%" fill="white"/>',
             '<text x="%d" y="22" font-size="15">Run states of the example application over %.1f s '
             '(band widths grow with the logarithm of their duration)</text>' % (left, segments[-1][1] / 1000.0)]
    for index, ((begin, end, state), x0, x1) in enumerate(zip(segments, edges, edges[1:])):
        parts.append('<rect x="%.1f" y="%d" width="%.1f" height="44" fill="%s" stroke="white">'
                     '<title>%s %d-%d ms</title></rect>' % (x0, top, x1 - x0, STATE_COLOURS.get(state, "#000"),
                                                            state, begin, end))
        parts.append('<text x="%.1f" y="%d" font-size="9" transform="rotate(-90 %.1f %d)">%s</text>'
                     % (x0 + (x1 - x0) / 2 + 3, top + 42, x0 + (x1 - x0) / 2 + 3, top + 42, state[:7]))
        parts.append('<text x="%.1f" y="%d" font-size="9" text-anchor="middle">%d</text>'
                     % (x0, top + 58 + 10 * (index % 2), begin))
    parts.append('<text x="%.1f" y="%d" font-size="9" text-anchor="end">%d ms</text>'
                 % (edges[-1], top + 58, segments[-1][1]))
    for number, (ms, label) in enumerate(marks, 1):
        x = position(ms)
        parts.append('<line x1="%.1f" y1="%d" x2="%.1f" y2="%d" stroke="black"/>' % (x, top - 8, x, top))
        parts.append('<text x="%.1f" y="%d" text-anchor="middle" font-size="9">%d</text>' % (x, top - 10 - 9 * (number % 2), number))
        parts.append('<text x="%d" y="%d">%d. %s (%d ms)</text>' % (left, 180 + 16 * number, number, label, ms))
    legend_x = left
    for state, colour in STATE_COLOURS.items():
        parts.append('<rect x="%d" y="%d" width="10" height="10" fill="%s"/>' % (legend_x, top + 90, colour))
        parts.append('<text x="%d" y="%d" font-size="10">%s</text>' % (legend_x + 13, top + 99, state))
        legend_x += 110
    parts.append("</svg>")
    with open(path, "w") as out:
        out.write("\n".join(parts) + "\n")


def summarise(events, results):
    started = next((ms for ms, text in events if text == "startup"), None)
    resumed = next((ms for ms, text in events if text == "state RESUMED"), None)
    print("\nSummary")
    if started is not None and resumed is not None:
        print("  startup to RESUMED: %d ms" % (resumed - started))
    for step, ok, detail in results:
        print("  %-52s %s%s" % (step, "OK" if ok else "FAILED", "" if ok else "  (" + detail + ")"))
    passed = sum(1 for _, ok, _ in results if ok)
    print("%d passed, %d failed" % (passed, len(results) - passed))
    return passed == len(results) and len(results) > 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True, help="the build tree with the simulators and the example")
    parser.add_argument("--out", default=None, help="where the timeline and the picture go (default: the build tree)")
    parser.add_argument("--interactive", action="store_true", help="run until Ctrl-C; drive the simulators by hand")
    parser.add_argument("--emulator", default="", help="command that runs the built programs (a cross build's)")
    args = parser.parse_args()
    build = os.path.abspath(args.build)
    out = os.path.abspath(args.out or os.path.join(build, "demo"))
    os.makedirs(out, exist_ok=True)
    workdir = tempfile.mkdtemp(prefix="qel-demo-")
    processes = Processes(workdir, shlex.split(args.emulator))
    env = dict(os.environ)
    ok = False
    try:
        env["DBUS_SESSION_BUS_ADDRESS"] = start_bus(processes, env)
        networking, backend, backend_port = start_simulators(processes, build, env)
        env["QEL_RSI_HOST"], env["QEL_RSI_PORT"] = "127.0.0.1", str(backend_port)
        env.setdefault("QEL_LOG_LEVEL", "4")
        ini = os.path.join(workdir, "framework.ini")
        open(ini, "w").close()
        app_command = [os.path.join(build, "examples/qel-demo-app"), "--ini", ini, "--log-level", env["QEL_LOG_LEVEL"]]
        if args.interactive:
            print("Backend simulator:    %s  (e.g. curl -s -X POST -d '{\"name\":\"demoservice\",\"jobPayload\":"
                  "\"hi\"}' %s/_control/pushJob)" % (backend.base, backend.base))
            print("Networking simulator: %s  (e.g. curl -s -X POST -d '{\"available\":false}' %s/_control/ocu)"
                  % (networking.base, networking.base))
            print("Backend console:      %s\nNetworking console:   %s" % (backend.console, networking.console))
            print("Type pause, unpause, update KEY VALUE or stop; Ctrl-C ends the demo.\n", flush=True)
            app = processes.start("app", app_command, env, built=True, stdout=None)
            try:
                app.wait()
            except KeyboardInterrupt:
                app.send_signal(signal.SIGINT)
                app.wait()
            print("demo: the processes' logs are in %s" % workdir, file=sys.stderr)
            return 0
        app = processes.start("app", app_command, env, built=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                              bufsize=1)
        timeline = Timeline(app.stdout, echo=True)
        story = Story(timeline, app, backend, networking)
        story.run()
        app.stdin.close()
        exited = app.wait(timeout=STEP_TIMEOUT_S) == 0
        story.results.append(("application exits cleanly", exited, "exit code %s" % app.returncode))
        timeline.thread.join()
        with open(os.path.join(out, "timeline.txt"), "w") as text:
            text.writelines("[%7d ms] %s\n" % event for event in timeline.events)
        write_svg(os.path.join(out, "timeline.svg"), timeline.events, story.marks)
        ok = summarise(timeline.events, story.results)
        print("Timeline: %s\nPicture:  %s" % (os.path.join(out, "timeline.txt"), os.path.join(out, "timeline.svg")))
    except Exception as error:  # a failed set-up is a failed demo, with its reason
        print("demo: %s" % error, file=sys.stderr)
    finally:
        processes.stop_all()
    if ok:
        shutil.rmtree(workdir, ignore_errors=True)
    else:
        print("demo: the processes' logs are in %s" % workdir, file=sys.stderr)
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
