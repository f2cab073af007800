#!/usr/bin/env python3
"""Compares Kestrel with curl, wget and a bare window, and writes the result into a document.

Usage: measure.py BUILD-FOLDER ROUNDS DOCUMENT RESULT

RESULT is a copy of DOCUMENT with a new text between the lines BEGIN and END. Needs a display of its
own with a window manager, and 1 GiB in /dev/shm.

Other work on the machine can only make a round slower, so the best three rounds count. A virtual
machine returns memory to its host when it has been free for some seconds, and getting it back takes
longer than a download. So each program overwrites the file that the previous one has saved.
"""

import contextlib
import filecmp
import http.server
import itertools
import json
import os
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

MIB = 1024 * 1024
BEGIN = "<!-- scripts/bench writes what follows. -->\n"
END = "<!-- scripts/bench wrote what is above. -->\n"

SCHEMES = ("http", "https")
SIZE = 256  # MiB, what is fetched at full speed
FAST, SLOW = 125_000_000, 1_000_000  # bytes a second
SLOW_SIZE = 8  # MiB
SMALL, LARGE = 1, 10 * 1024  # MiB, for the memory
SO_MAX_PACING_RATE = 47

# What is compared, its figure, the other program, and the largest ratio that is wanted for each scheme.
RATIOS = [
    ("time", "seconds", "curl", {"http": 1.4, "https": 1.1}),
    ("time", "seconds", "wget", {"http": 1.15, "https": 1.05}),
    ("processor time", "processor", "curl", {"http": 2.0, "https": 1.3}),
]

APACHE = """\
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


class LineHandler(http.server.SimpleHTTPRequestHandler):
    """Sends as slowly as a line with its server's rate."""

    def setup(self):
        self.directory = self.server.directory
        self.request.setsockopt(socket.SOL_SOCKET, SO_MAX_PACING_RATE, self.server.rate)
        super().setup()


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as probe:
        return probe.getsockname()[1]


def run(*command):
    """Runs a command to its end and returns its figures. Those that it prints as JSON take precedence."""
    start = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.PIPE)
    said = process.stdout.read()
    _, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        sys.exit(f"{' '.join(command)} failed")
    return {"seconds": time.monotonic() - start, "processor": usage.ru_utime + usage.ru_stime,
            "peak": usage.ru_maxrss / 1024, **json.loads(said or "{}")}


class Bench:
    def __init__(self, build, rounds, work, resources):
        self.build, self.rounds, self.work = build, rounds, work
        self.saved, self.nothing = work + "/saved", work + "/nothing"
        self.certificate = work + "/certificate"
        os.symlink("/dev/null", self.nothing)
        os.mkdir(work + "/served")
        os.chmod(work, 0o755)
        os.environ.update(HOME=work, TMPDIR=work, SSL_CERT_FILE=self.certificate)
        ports = {scheme: free_port() for scheme in SCHEMES}
        self.start_apache(ports, resources)
        self.bases = {scheme: f"{scheme}://127.0.0.1:{port}" for scheme, port in ports.items()}
        for rate in (FAST, SLOW):
            self.bases[rate] = self.start_line(rate, resources)

    def start_apache(self, ports, resources):
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
             "-subj", "/CN=localhost", "-addext", "subjectAltName=IP:127.0.0.1",
             "-keyout", self.work + "/key", "-out", self.certificate],
            check=True, stderr=subprocess.DEVNULL)
        with open(self.work + "/server.conf", "w") as conf:
            conf.write(APACHE.format(work=self.work, **ports))
        server = subprocess.Popen(["/usr/sbin/apache2", "-f", conf.name, "-DFOREGROUND"])
        resources.callback(server.wait)
        resources.callback(server.terminate)
        for _ in range(200):
            with contextlib.suppress(OSError):
                return socket.create_connection(("127.0.0.1", ports["https"])).close()
            time.sleep(0.05)
        sys.exit("The server does not answer:\n" + open(self.work + "/server.log").read())

    def start_line(self, rate, resources):
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), LineHandler)
        server.rate, server.directory = rate, self.work + "/served"
        # Packets as on a real line; loopback's have 64 KiB.
        server.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_MAXSEG, 1448)
        threading.Thread(target=server.serve_forever).start()
        resources.callback(server.shutdown)
        return f"http://127.0.0.1:{server.server_port}"

    def serve(self, size, random=False):
        path = f"{self.work}/served/{size}.bin"
        with open(path, "wb") as file:
            for _ in range(size if random else 0):
                file.write(os.urandom(MIB))
            file.truncate(size * MIB)  # holes take no memory
        with open(f"{self.work}/served/{size}.ini", "w") as info:
            for section, base in self.bases.items():
                info.write(f"[{section}]\nVersion=2\nLink={base}/{size}.bin\n")
        return path

    def kestrel(self, section, size, save):
        figures = run(
            "timeout", "300", "env", f"LD_PRELOAD={self.build}/bench/libkestrel_probe.so",
            "KESTREL_BENCH_SAVE=" + save, self.build + "/kestrel",
            "-a", f"{self.bases['http']}/{size}.ini", "-i", str(section), "-v", "1")
        if "window" not in figures:
            sys.exit("Kestrel did not save the installer")
        return figures

    def fetch(self, scheme, program):
        url = f"{self.bases[scheme]}/{SIZE}.bin"
        if program == "curl":
            return run("curl", "-s", "-f", "--cacert", self.certificate, "-o", self.saved, url)
        if program == "wget":
            return run("wget", "-q", "--ca-certificate", self.certificate, "-O", self.saved, url)
        return self.kestrel(scheme, SIZE, self.saved)

    def measure_fetching(self):
        programs = ("curl", "wget", "Kestrel")
        served = self.serve(SIZE, random=True)
        results = {}
        for key in itertools.product(SCHEMES, programs):
            results[key] = []
            self.fetch(*key)
            if not filecmp.cmp(served, self.saved, shallow=False):
                sys.exit(f"{key} saved something else")
        orders = itertools.cycle(itertools.permutations(programs))
        for order in itertools.islice(orders, self.rounds):
            for key in itertools.product(SCHEMES, order):
                results[key].append(self.fetch(*key))
                print(key, results[key][-1], flush=True)
        return results

    def measure_lines(self):
        """Downloads at the two rates, and the two sizes whose use of memory is compared."""
        for size in (SLOW_SIZE, SMALL, LARGE):
            self.serve(size)
        return {name: [self.kestrel(section, size, save) for _ in range(min(3, self.rounds))]
                for name, section, size, save in ((FAST, FAST, SIZE, self.saved),
                                                  (SLOW, SLOW, SLOW_SIZE, self.saved),
                                                  (SMALL, "http", SMALL, self.nothing),
                                                  (LARGE, "http", LARGE, self.nothing))}

    def measure_drawing(self):
        """Returns the share of a processor that a bare window takes when it is drawn 60 times a second."""
        def spent():
            return int(open(f"/proc/{process.pid}/schedstat").read().split()[0]) / 1e9

        with subprocess.Popen([self.build + "/bench/bare_window", "draw"]) as process:
            time.sleep(2)
            start, before = time.monotonic(), spent()
            time.sleep(10)
            share = (spent() - before) / (time.monotonic() - start)
            process.kill()
        return share

    def measure_starts(self):
        """Returns the seconds from a program's start to its window, or to the first byte of its request."""
        times = {"bare window": [], "Kestrel": []}
        with socket.create_server(("127.0.0.1", 0)) as listener:
            listener.settimeout(20)
            address = "http://127.0.0.1:%d/a" % listener.getsockname()[1]
            commands = {"bare window": [self.build + "/bench/bare_window"],
                        "Kestrel": [self.build + "/kestrel", "-i", "a", "-v", "1", "-a", address]}
            for name in tuple(times) * (2 * self.rounds + 1):
                time.sleep(0.3)  # the window manager needs some time, before and after the kill
                start = time.monotonic()
                process = subprocess.Popen(commands[name], stderr=subprocess.PIPE)
                if name == "Kestrel":
                    listener.accept()[0].recv(1)
                else:
                    process.stderr.readline()
                times[name].append({"seconds": time.monotonic() - start})
                time.sleep(0.3)
                process.kill()
                process.wait()
        return {name: each[1:] for name, each in times.items()}  # the first start reads the disk


def best(runs, key="seconds"):
    return statistics.mean(sorted(each[key] for each in runs)[:3])


def table(*rows):
    rows = [rows[0], ["---"] * len(rows[0]), *rows[1:]]
    return "".join("| " + " | ".join(row) + " |\n" for row in rows)


def machine():
    with open("/proc/cpuinfo") as info:
        model = next(line.split(":")[1].strip() for line in info if line.startswith("model name"))
    versions = subprocess.check_output(
        ["dpkg-query", "-W", "-f", ", ${Package} ${Version}",
         "apache2-bin", "curl", "wget", "libcurl4-openssl-dev", "libwxgtk3.2-dev"], text=True)
    return f"{model}, {os.cpu_count()} processors, Linux {os.uname().release}{versions}"


def report(rounds, fetching, lines, drawing, starts):
    compared, spreads = [], []

    def compare(what, value, target, form="{:.2f}"):
        compared.append((what, form.format(value), form.format(target),
                         "met" if value <= target else "**not met**"))

    def spread(what, runs, key, form="{:.2f} s", factor=1):
        values = [each[key] for each in runs]
        figures = (best(runs, key), statistics.median(values), max(values))
        spreads.append((what, *(form.format(figure * factor) for figure in figures)))

    ours = {scheme: fetching[scheme, "Kestrel"] for scheme in SCHEMES}
    for what, key, other, targets in RATIOS:
        for scheme, target in targets.items():
            compare(f"{what} against {other}, {scheme}",
                    best(ours[scheme], key) / best(fetching[scheme, other], key), target)
    for scheme in SCHEMES:
        compare(f"processor time of the window's thread for 1 GiB, {scheme}",
                best(ours[scheme], "window") * 1024 / SIZE, 0.25, "{:.2f} s")
    for rate, key in ((FAST, "processor"), (SLOW, "window")):
        for each in lines[rate]:
            each["share"] = each[key] / each["seconds"]
    compare("processor time on a line of 125 MB/s, of one processor",
            best(lines[FAST], "share"), 0.15, "{:.1%}")
    compare("the window's thread at 1 MB/s, of one processor; target: a bare window at 60 Hz",
            best(lines[SLOW], "share"), drawing, "{:.1%}")
    # Other work does not change the use of memory, so the largest figure counts against the smallest.
    compare("memory for 10 GiB, more than for 1 MiB", max(each["peak"] for each in lines[LARGE]) -
            min(each["peak"] for each in lines[SMALL]), 4, "{:.1f} MiB")
    compare("last byte to the last box, the longest of all rounds",
            max(each["box"] for runs in ours.values() for each in runs) * 1e3, 100, "{:.0f} ms")
    compare("start to the first request, against a bare window on the screen",
            best(starts["Kestrel"]) / best(starts["bare window"]), 1.5)

    for what, key in (("time", "seconds"), ("processor time", "processor")):
        for (scheme, program), runs in fetching.items():
            spread(f"{program}, {scheme}, {what}", runs, key)
    for name, runs in starts.items():
        spread(f"{name}, start", runs, "seconds", "{:.0f} ms", 1e3)

    return f"""
{table(("what", "measured", "target", ""), *compared)}
Each figure is the mean of the best three: of {rounds} rounds, of {2 * rounds} starts, of {min(3, rounds)} downloads on a line. The line of 125 MB/s needed {best(lines[FAST]):.2f} s for {SIZE} MiB. The peak of Kestrel's memory was {max(each['peak'] for each in lines[LARGE]):.0f} MiB. All rounds with {SIZE} MiB, and all starts:

{table(("", "best three", "median", "worst"), *spreads)}
{time.strftime("%Y-%m-%d")}, {machine()}.

"""


def main():
    build, rounds, document, result = sys.argv[1:]
    with open(document) as file:
        before, rest = file.read().split(BEGIN)
    _, after = rest.split(END)
    with contextlib.ExitStack() as resources:
        work = resources.enter_context(tempfile.TemporaryDirectory(dir="/dev/shm"))
        bench = Bench(os.path.abspath(build), int(rounds), work, resources)
        text = report(bench.rounds, bench.measure_fetching(), bench.measure_lines(),
                      bench.measure_drawing(), bench.measure_starts())
    with open(result, "w") as file:
        file.write(before + BEGIN + text + END + after)
    print(text + f"Written to {result}")


if __name__ == "__main__":
    main()
