#!/usr/bin/env python3
"""Measures Kestrel against curl, wget and a bare window, and writes what it found as a document.

Usage: measure.py BUILD-FOLDER DOCUMENT [--quick]

Needs a display of its own with a window manager, and room for two large files in /dev/shm. What
stands in the document below the line MARKER is kept.
"""

import contextlib
import datetime
import filecmp
import itertools
import json
import os
import platform
import selectors
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

MIB = 1024 * 1024
MARKER = "<!-- What follows is written by hand; scripts/bench leaves it alone. -->"

SERVER = """\
ServerRoot /usr/lib/apache2
ServerName localhost
PidFile {work}/server.pid
ErrorLog {work}/server.log
User www-data
Group www-data
LoadModule mpm_event_module modules/mod_mpm_event.so
LoadModule authz_core_module modules/mod_authz_core.so
LoadModule ssl_module modules/mod_ssl.so
Mutex posixsem
Listen 127.0.0.1:{http}
Listen 127.0.0.1:{https}
EnableSendfile On
DocumentRoot {work}/served
<VirtualHost 127.0.0.1:{https}>
    SSLEngine on
    SSLCertificateFile {work}/certificate
    SSLCertificateKeyFile {work}/key
</VirtualHost>
"""

# Against what, over what, in what, and the most that is wanted.
TARGETS = [
    ("curl", "http", "time", 0.85),
    ("curl", "https", "time", 0.95),
    ("wget", "http", "time", 0.90),
    ("wget", "https", "time", 1.05),
    ("curl", "http", "processor", 1.3),
    ("curl", "https", "processor", 1.3),
]
REQUEST_TARGET = 1.3
MEMORY_TARGET = 4.0  # MiB
BOX_TARGET = 100.0  # ms


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def stop(process, how=signal.SIGTERM):
    process.send_signal(how)
    process.wait()


class Bench:
    def __init__(self, build, work, resources, quick):
        self.build, self.work, self.quick = build, work, quick
        self.rounds = 1 if quick else 6
        self.sizes = [1, 16] if quick else [1, 100, 1024, 10240]  # MiB
        self.saved = os.path.join(work, "saved")
        for name in ("served", "home", "tmp"):
            os.mkdir(os.path.join(work, name))
        os.chmod(work, 0o755)
        os.environ.update(HOME=work + "/home", TMPDIR=work + "/tmp",
                          SSL_CERT_FILE=work + "/certificate")
        self.ports = {"http": free_port(), "https": free_port()}
        self.start_server(resources)

    def start_server(self, resources):
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
             "-subj", "/CN=localhost", "-addext", "subjectAltName=IP:127.0.0.1",
             "-keyout", self.work + "/key", "-out", self.work + "/certificate"],
            check=True, stderr=subprocess.DEVNULL)
        with open(self.work + "/server.conf", "w") as conf:
            conf.write(SERVER.format(work=self.work, **self.ports))
        server = subprocess.Popen(
            ["/usr/sbin/apache2", "-f", self.work + "/server.conf", "-DFOREGROUND"],
            stderr=subprocess.DEVNULL)
        resources.callback(stop, server)
        for port in self.ports.values():
            for _ in range(200):
                with socket.socket() as probe:
                    if probe.connect_ex(("127.0.0.1", port)) == 0:
                        break
                time.sleep(0.05)
            else:
                sys.exit("The server does not answer:\n" + open(self.work + "/server.log").read())

    def serve(self, name, size, random=False):
        path = f"{self.work}/served/{name}"
        with open(path, "wb") as file:
            if random:
                for _ in range(size):
                    file.write(os.urandom(MIB))
            else:
                file.truncate(size * MIB)  # holes take no memory
        with open(path + ".ini", "w") as info:
            for scheme in self.ports:
                info.write(f"[{scheme}]\nVersion=2\nLink={self.url(scheme, name)}\n")
        return path

    def url(self, scheme, name):
        return f"{scheme}://127.0.0.1:{self.ports[scheme]}/{name}"

    def kestrel(self, scheme, name, **variables):
        """The whole program, up to the box that ends the dialogue."""
        with contextlib.suppress(FileNotFoundError):
            os.remove(self.saved)
        given = {"KESTREL_BENCH_SAVE": self.saved, **variables}
        run = subprocess.run(
            [self.build + "/bench/kestrel_bench", "-a", self.url("http", name + ".ini"),
             "-i", scheme, "-v", "1"],
            env={**os.environ, **given}, stdout=subprocess.PIPE, check=True, timeout=600)
        return json.loads(run.stdout)

    def tool(self, command):
        """A command-line tool, from its start to its end."""
        with contextlib.suppress(FileNotFoundError):
            os.remove(self.saved)
        peak = self.work + "/peak"
        start = time.monotonic()
        process = subprocess.Popen(["/usr/bin/time", "-f", "%M", "-o", peak] + command)
        _, status, usage = os.wait4(process.pid, 0)
        seconds = time.monotonic() - start
        if status != 0:
            sys.exit(f"{command[0]} failed")
        return {"seconds": seconds, "processor": usage.ru_utime + usage.ru_stime,
                "peak_kib": int(open(peak).read())}

    def fetch(self, program, scheme, name):
        url = self.url(scheme, name)
        if program == "curl":
            return self.tool(["curl", "-s", "-f", "--cacert", self.work + "/certificate",
                              "-o", self.saved, url])
        if program == "wget":
            return self.tool(["wget", "-q", "--ca-certificate=" + self.work + "/certificate",
                              "-O", self.saved, url])
        return self.kestrel(scheme, name)

    def measure_fetching(self):
        programs = ("curl", "wget", "Kestrel")
        served = self.serve("installer.bin", 16 if self.quick else 1024, random=True)
        results = {}
        for scheme, program in itertools.product(self.ports, programs):
            results[scheme, program] = []
            self.fetch(program, scheme, "installer.bin")
            if not filecmp.cmp(served, self.saved, shallow=False):
                sys.exit(f"{program} saved something else over {scheme}")
        orders = itertools.cycle(itertools.permutations(programs))
        for order in itertools.islice(orders, self.rounds):
            for scheme, program in itertools.product(self.ports, order):
                results[scheme, program].append(self.fetch(program, scheme, "installer.bin"))
                print(scheme, program, results[scheme, program][-1], flush=True)
        os.remove(self.saved)
        return results

    def measure_memory(self):
        """Into a file that keeps nothing, so that ten GiB need none of the machine's memory."""
        os.symlink("/dev/null", self.work + "/nothing")
        peaks = {}
        for size in self.sizes:
            name = f"sparse-{size}.bin"
            self.serve(name, size)
            runs = [self.kestrel("http", name, KESTREL_BENCH_SAVE=self.work + "/nothing")
                    for _ in range(1 if self.quick else 3)]
            peaks[size] = statistics.median(run["peak_kib"] for run in runs) / 1024
            print(size, "MiB:", runs, flush=True)
        return peaks

    def measure_starts(self):
        """Seconds from the start of each program to its window on the screen, and to the first
        byte of a request."""
        watcher = subprocess.Popen(["stdbuf", "-oL", "xev", "-root", "-event", "substructure"],
                                   stdout=subprocess.PIPE)
        os.set_blocking(watcher.stdout.fileno(), False)
        listener = socket.create_server(("127.0.0.1", 0))
        port = listener.getsockname()[1]
        kestrel = [self.build + "/kestrel", "-a", f"http://127.0.0.1:{port}/a", "-i", "a", "-v", "1"]
        bare = [self.build + "/bench/bare_window"]
        times = {"bare": [], "shown": [], "request": []}
        for turn in range(2 if self.quick else 16):
            for program in ((bare, kestrel) if turn % 2 else (kestrel, bare)):
                shown, request = self.time_start(program, watcher, listener)
                if turn == 0:
                    continue
                if program is bare:
                    times["bare"].append(shown)
                else:
                    times["shown"].append(shown)
                    times["request"].append(request)
        stop(watcher)
        listener.close()
        return times

    @staticmethod
    def time_start(program, watcher, listener):
        time.sleep(0.3)  # until the last window is gone
        watcher.stdout.read()
        wanted = {"shown", "request"} if "-a" in program else {"shown"}
        found = {}
        with selectors.DefaultSelector() as events:
            events.register(watcher.stdout, selectors.EVENT_READ)
            events.register(listener, selectors.EVENT_READ)
            start = time.monotonic()
            process = subprocess.Popen(program)
            while not wanted <= found.keys():
                ready = events.select(20)
                now = time.monotonic() - start
                if not ready:
                    sys.exit(f"{program[0]} does not start")
                for key, _ in ready:
                    if key.fileobj is listener:
                        connection, _ = listener.accept()
                        connection.recv(1)
                        found["request"] = time.monotonic() - start
                    elif b"MapNotify" in (watcher.stdout.read() or b""):
                        found.setdefault("shown", now)
            stop(process, signal.SIGKILL)
            if "request" in found:
                connection.close()
        return found["shown"], found.get("request")


def machine():
    with open("/proc/cpuinfo") as info:
        model = next(line.split(":")[1].strip() for line in info if line.startswith("model name"))
    with open("/proc/meminfo") as info:
        memory = int(info.readline().split()[1]) / MIB
    packages = ["apache2-bin", "curl", "wget", "libcurl4", "libwxgtk3.2-1"]
    versions = subprocess.run(["dpkg-query", "-W", "-f", "${Package} ${Version}, "] + packages,
                              stdout=subprocess.PIPE, check=True, text=True).stdout
    return (f"{model}, {os.cpu_count()} processors, {memory:.0f} GiB of memory; "
            f"Linux {platform.release()}; {versions.rstrip(', ')}")


def row(*cells):
    return "| " + " | ".join(str(cell) for cell in cells) + " |"


def table(head, rows):
    return "\n".join([row(*head), row(*("---" for _ in head))] + [row(*cells) for cells in rows])


def verdict(value, most):
    return "met" if value <= most else "not met"


def report(bench, fetching, memory, starts, cost, held):
    keys = {"time": "seconds", "processor": "processor"}

    def middle(runs, key):
        return statistics.median(run[key] for run in runs)

    fetched = [(scheme, program, *(f"{middle(runs, key):.2f}" for key in keys.values()),
                f"{middle(runs, 'peak_kib') / 1024:.1f}")
               for (scheme, program), runs in fetching.items()]

    ratios = []
    for other, scheme, what, most in TARGETS:
        pairs = zip(fetching[scheme, "Kestrel"], fetching[scheme, other])
        each = sorted(ours[keys[what]] / theirs[keys[what]] for ours, theirs in pairs)
        ratio = statistics.median(each)
        ratios.append((f"{what} over {scheme}, against {other}", f"{ratio:.2f}",
                       f"{each[0]:.2f} to {each[-1]:.2f}", most, verdict(ratio, most)))

    starting = {name: statistics.median(times) * 1e3 for name, times in starts.items()}

    def against_bare(name):
        return statistics.median(
            ours / bare for ours, bare in zip(starts[name], starts["bare"]))

    request = against_bare("request")
    started = [
        ("bare window: to the window on the screen", f"{starting['bare']:.0f}", "", "", ""),
        ("Kestrel: to the window on the screen", f"{starting['shown']:.0f}",
         f"{against_bare('shown'):.2f}", "", ""),
        ("Kestrel: to the first byte of the request", f"{starting['request']:.0f}",
         f"{request:.2f}", REQUEST_TARGET, verdict(request, REQUEST_TARGET)),
    ]

    growth = max(memory.values()) - min(memory.values())
    ours = [run for (_, program), runs in fetching.items() if program == "Kestrel" for run in runs]
    box = max(run["box_ms"] for run in ours)
    behind = max(run["most_pending"] for run in ours)
    drawn = min(run["paints"] / run["seconds"] for run in ours)
    others = [
        ("peak memory, growth over these sizes", f"{growth:.1f} MiB", f"{MEMORY_TARGET} MiB",
         verdict(growth, MEMORY_TARGET)),
        ("last byte to the last box, the longest of all downloads", f"{box:.1f} ms",
         f"{BOX_TARGET:.0f} ms", verdict(box, BOX_TARGET)),
        ("one report, on the download thread", f"{cost['thread_us']:.1f} µs", "", ""),
        ("one report, on the main thread", f"{cost['window_us']:.1f} µs", "", ""),
        ("reports waiting, the most in all downloads", behind, "", ""),
        ("reports waiting, the most when the window is held up for two seconds",
         held["most_pending"], "", ""),
        ("drawn a second during a download, the least", f"{drawn:.0f}", "", ""),
    ]

    size = "16 MiB" if bench.quick else "1 GiB"
    return f"""\
# Performance

Measured by `scripts/bench` on {datetime.date.today().isoformat()}. {machine()}.

## Fetching {size}

From a server on loopback into memory; medians of {bench.rounds} rounds after a warm-up, in which the three take turns in each order. curl and wget are timed from the start of the command to its end, Kestrel from the answer in the dialog for saving to the box that says that the installer has been downloaded, with the window on a virtual display. Peak memory is that of the whole process, Kestrel's with GTK.

{table(("scheme", "program", "time, s", "processor, s", "peak memory, MiB"), fetched)}

Kestrel against the others, round by round:

{table(("ratio", "median", "from, to", "target", ""), ratios)}

## Starting

Medians of {len(starts["bare"])} starts in turn; the ratios are to the bare window of the same turn.

{table(("from the start of the program", "ms", "ratio", "target", ""), started)}

## Memory, reports and the end

Peak memory of the whole program when it fetches files of different sizes:

{table(("MiB fetched", "peak memory, MiB"),
       [(size, f"{peak:.1f}") for size, peak in memory.items()])}

{table(("what", "measured", "target", ""), others)}

"""


def write(path, text):
    kept = "\n"
    with contextlib.suppress(FileNotFoundError, IndexError):
        with open(path) as document:
            kept = document.read().split(MARKER, 1)[1]
    with open(path, "w") as document:
        document.write(text + MARKER + kept)


def main():
    build, document = os.path.abspath(sys.argv[1]), sys.argv[2]
    quick = "--quick" in sys.argv[3:]
    work = tempfile.mkdtemp(prefix="kestrel-bench-", dir="/dev/shm")
    with contextlib.ExitStack() as resources:
        resources.callback(shutil.rmtree, work)
        bench = Bench(build, work, resources, quick)
        fetching = bench.measure_fetching()
        memory = bench.measure_memory()
        starts = bench.measure_starts()
        cost = bench.kestrel("http", "installer.bin",
                             KESTREL_BENCH_EVENTS="4096" if quick else "65536")
        held = bench.kestrel("http", "installer.bin", KESTREL_BENCH_HOLD="2000")
        write(document, report(bench, fetching, memory, starts, cost, held))
    print(f"Written to {document}")


if __name__ == "__main__":
    main()
