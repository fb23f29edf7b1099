"""bench/run --latency: the same jobs on a disk that delays each read but serves many reads at a time."""
import mmap
import os
import random
import shutil
import statistics
import subprocess
import sys
import time

from world import BUILD, NEW, OLD, timed

SETTINGS = "/etc/orvantadc/orvantadc.conf"


def run(*command, **options):
    subprocess.run(command, check=True, **options)


class SlowDisk:
    """An ext4 image, mounted at `place` while it is in use. A server delays its reads; with the delay
    "local" there is no server."""

    def __init__(self, place, image, delay):
        self.place, self.folder = place, f"{place}.disk"
        os.makedirs(self.folder, exist_ok=True)
        self.file, self.server = image, None
        if delay != "local":
            self.serve(image, delay)
        found = subprocess.run(["losetup", "--direct-io=on", "-f", "--show", self.file], check=True,
                               capture_output=True, text=True)
        self.device = found.stdout.strip()
        try:
            self.mount()
        except subprocess.CalledProcessError:
            run("losetup", "-d", self.device)
            if self.server:
                self.server.terminate()
            raise

    def serve(self, image, delay):
        self.file = f"{self.folder}/disk"
        open(self.file, "w", encoding="ascii").close()
        self.server = subprocess.Popen(["nbdfuse", self.file, "--command", "nbdkit", "-s", "--threads=64",
                                        "--filter=delay", "file", image, f"rdelay={delay}"])
        for _ in range(100):
            if os.stat(self.file).st_size > 0:
                break
            time.sleep(0.1)

    def read_time(self):
        """Milliseconds that one read takes when reads follow each other."""
        block = mmap.mmap(-1, 4096)
        device = os.open(self.device, os.O_RDONLY | os.O_DIRECT)
        places = random.Random(1).sample(range(os.stat(self.file).st_size // 4096), 300)
        begin = time.perf_counter()
        for place in places:
            os.preadv(device, [block], place * 4096)
        os.close(device)
        return (time.perf_counter() - begin) / len(places) * 1000

    def mount(self):
        run("mount", "-o", "noatime", self.device, self.place)

    def forget(self):
        """Drops the file system from the kernel's caches."""
        run("umount", self.place)
        with open("/proc/sys/vm/drop_caches", "w", encoding="ascii") as drop:
            drop.write("3")
        run("blockdev", "--flushbufs", self.device)
        self.mount()

    def close(self):
        run("umount", self.place)
        run("losetup", "-d", self.device)
        if not self.server:
            return
        time.sleep(0.2)
        run("umount", self.file)
        self.server.wait()


def set_helpers(helpers):
    with open(SETTINGS, "w", encoding="ascii") as settings:
        settings.write(f"domain.name = bench\nidshift.read.ahead = {helpers}\n")


def jobs(tree, helpers):
    """Rows: name, setting, what runs first (cached, untimed), what is timed."""
    ranges = " ".join(f"b:{o}:{n}:1" for o, n in zip(OLD, NEW))
    convert = f"{BUILD}/bench/floor {tree}"
    commit = f"{BUILD}/idshift -c -R {tree}"
    rows = [("chown --from, nothing matches", "off", "", f"chown -R -h --from=50001:50001 61000:61000 {tree}"),
            ("floor, nothing matches", "off", "", f"{BUILD}/bench/floor --miss {tree}"),
            ("find -uid", "off", "", f"find {tree} -uid 50001"),
            ("fuidshift, one change of 20 ranges", "off", "", f"fuidshift {tree} {ranges}")]
    for count in helpers:
        rows += [(f"scan, nothing matches, {count}", count, convert, commit),
                 (f"commit, {count}", count, "", commit),
                 (f"second commit, {count}", count, commit, f"{BUILD}/idshift -c {tree}"),
                 (f"undo, {count}", count, commit, f"{BUILD}/idshift -U")]
    return rows


def measure_one(disk, tree, row):
    name, helpers, before, command = row
    run(f"{BUILD}/bench/bench_tree", "reset", tree)
    set_helpers("off")
    if before:
        run("sh", "-c", f"rm -f /etc/orvantadc/idshift.log*; {before}", stdout=subprocess.DEVNULL)
    else:
        run("sh", "-c", "rm -f /etc/orvantadc/idshift.log*")
    set_helpers(helpers)
    disk.forget()
    wall, peak, status = timed(command)
    if status != 0:
        print(f"# {name}: wait status {status}", file=sys.stderr)
    return wall, peak


def bench_latency(arguments, scratch):
    place, image = f"{scratch}/slow", f"{scratch}.image"
    os.makedirs(place, exist_ok=True)
    entries = arguments.dirs + arguments.names
    with open(image, "wb") as file:
        file.truncate(max(1 << 30, entries * 8192))
    run("mkfs.ext4", "-q", "-F", "-N", str(2 * entries + 65536), image)
    run("mount", "-o", "loop", image, place)
    tree = f"{place}/users"
    run(f"{BUILD}/bench/bench_tree", "make", tree, str(arguments.dirs), str(arguments.names), "7")
    run("umount", place)
    for delay in arguments.delays.split(","):
        disk = SlowDisk(place, image, delay)
        try:
            print(f"\next4, {delay} a read ({disk.read_time():.2f} ms measured), {entries} entries, cold, "
                  f"{arguments.rounds} rounds", flush=True)
            rows = [row for row in jobs(tree, arguments.helpers.split(",")) if arguments.wants(row[0])]
            results = {row[0]: [] for row in rows}
            for _ in range(arguments.rounds):
                for row in rows:
                    results[row[0]].append(measure_one(disk, tree, row))
        finally:
            disk.close()
        print(f"{'job':40} {'median s':>9} {'peak MiB':>9} {'of chown':>9}")
        reference = [wall for wall, _ in next(iter(results.values()))]
        for name, runs in results.items():
            ratio = statistics.median(wall / base for (wall, _), base in zip(runs, reference))
            print(f"{name:40} {statistics.median(wall for wall, _ in runs):9.2f} "
                  f"{max(peak for _, peak in runs) / 1024:9.1f} {ratio:9.2f}", flush=True)
    os.unlink(image)
    shutil.rmtree(f"{place}.disk", ignore_errors=True)
