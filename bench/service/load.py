#!/usr/bin/env python3
"""usage: load.py VELDAN PHOTO [SECONDS] [CONNECTIONS]

How many photos a second `veldan serve` answers on loopback, asked by wrk over many connections, beside `veldan detect --jobs` with
as many workers on the same processors. Both are told by the clock and by the processor time that the process took for a photo: on
a machine with other work the latter is what can be compared, as it leaves out wrk, too. Prints a table for docs/service.md.
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request

WORKERS = os.cpu_count()
ASK = """
wrk.method = "POST"
local file = io.open("{photo}", "rb")
wrk.body = file:read("*a")
file:close()
wrk.headers["Content-Type"] = "image/jpeg"
done = function(summary, latency, requests)
  print(string.format("ms %.1f %.1f %.1f", latency:percentile(50) / 1000, latency:percentile(99) / 1000, latency.max / 1000))
  local e = summary.errors
  print(string.format("errors %d %d %d %d", e.connect, e.read, e.write, e.timeout))
end
"""


def processor_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def resident_mib(pid):
    return int(pathlib.Path(f"/proc/{pid}/statm").read_text().split()[1]) * os.sysconf("SC_PAGESIZE") / 2 ** 20


def serve(veldan, photo, seconds, connections, folder):
    server = subprocess.Popen([veldan, "serve", "--gallery", f"{folder}/g.db", "--listen", "127.0.0.1:0", "--workers", str(WORKERS)],
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    address = server.stdout.readline().split()[-1]
    script = pathlib.Path(folder, "ask.lua")
    script.write_text(ASK.format(photo=photo))

    def wrk(duration):
        return subprocess.run(["wrk", "-t2", f"-c{connections}", f"-d{duration}s", "--timeout", "60s", "-s", script,
                               address + "/v1/detect"], capture_output=True, text=True, check=True).stdout

    wrk(3)
    memory = []
    over = threading.Event()

    def watch():
        while not over.wait(seconds / 6):
            memory.append(resident_mib(server.pid))

    watcher = threading.Thread(target=watch)
    before, start = processor_seconds(server.pid), time.monotonic()
    watcher.start()
    text = wrk(seconds)
    elapsed, used = time.monotonic() - start, processor_seconds(server.pid) - before
    over.set()
    watcher.join()
    metrics = urllib.request.urlopen(address + "/metrics").read().decode()
    server.terminate()
    server.wait()
    count = int(re.search(r"(\d+) requests in", text).group(1))
    statuses = re.findall(r'veldan_requests_total{method="POST".*status="(\d+)"} (\d+)', metrics)
    print(f"load {os.getloadavg()[0]:.1f} on {os.cpu_count()} processors, {WORKERS} workers, {connections} connections, {seconds} s")
    print(f"served       {count / elapsed:8.1f} a second, {1000 * used / count:6.2f} ms of processor time each")
    print("latency      p50 {} ms, p99 {} ms, longest {} ms".format(*re.search(r"ms (\S+) (\S+) (\S+)", text).groups()))
    print("statuses     " + ", ".join(f"{status}: {number}" for status, number in statuses))
    print("failures     connect {}, read {}, write {}, timeout {}".format(*re.search(r"errors (\d+) (\d+) (\d+) (\d+)", text).groups()))
    print("memory       " + ", ".join(f"{one:.0f}" for one in memory) + " MiB")
    return count / elapsed, used / count


def command(veldan, photo, photos, folder):
    """Photos a second and processor seconds of each, without the start."""
    def run(count):
        names = pathlib.Path(folder, f"names{count}")
        names.write_text(f"{photo}\n" * count)
        start, before = time.monotonic(), os.times()
        subprocess.run([veldan, "detect", "--files-from", names, "--jobs", str(WORKERS), "--json"], stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL, check=True)
        after = os.times()
        return (time.monotonic() - start,
                after.children_user + after.children_system - before.children_user - before.children_system)

    few = run(2 * WORKERS)
    many = run(photos)
    added = photos - 2 * WORKERS
    rate, each = added / (many[0] - few[0]), (many[1] - few[1]) / added
    print(f"one process  {rate:8.1f} a second, {1000 * each:6.2f} ms of processor time each")
    return rate, each


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__.split("\n\n", 1)[0])
    veldan, photo = (os.path.abspath(name) for name in sys.argv[1:3])
    seconds = int(sys.argv[3]) if len(sys.argv) > 3 else 60
    connections = int(sys.argv[4]) if len(sys.argv) > 4 else 32
    with tempfile.TemporaryDirectory() as folder:
        command(veldan, photo, 50, folder)
        served, served_each = serve(veldan, photo, seconds, connections, folder)
        alone, alone_each = command(veldan, photo, max(100, int(served * seconds / 2)), folder)
    print(f"served / one process: {served / alone:.2f} by the clock, {alone_each / served_each:.2f} by processor time")


if __name__ == "__main__":
    main()
