"""Shared by bench/run and bench/run-scale: the build, the test machine for the runs, the clock."""
import os
import shutil
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
TOP = os.path.dirname(HERE)
BUILD = f"{TOP}/build/bench"
OLD = [20001 + i for i in range(20)]
NEW = [31000 + 37 * i for i in range(20)]
ZONE = "/etc/orvantadc/zone"


def enter_namespace(script, inside):
    """Builds release and starts `script` again, with --inside, in a mount namespace of its own."""
    if os.geteuid() != 0:
        sys.exit(f"{script} needs root")
    if inside:
        return
    subprocess.run([f"{TOP}/scripts/install-packages", "build", "bench"], check=True)
    subprocess.run(["cmake", "-S", TOP, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                    "-DIDSHIFT_BENCH=ON", "-DBUILD_TESTING=OFF"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", BUILD], check=True, stdout=subprocess.DEVNULL)
    os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", sys.executable,
                          os.path.abspath(script), *sys.argv[1:], "--inside"])


def write_accounts(folder, ids):
    """The users user0 ... and groups group0 ... with `ids`, each user in the group of its number."""
    with open(f"{folder}/passwd", "w", encoding="ascii") as passwd:
        passwd.writelines(f"user{i}:x:{n}:{n}::/:/bin/sh\n" for i, n in enumerate(ids))
    with open(f"{folder}/group", "w", encoding="ascii") as group:
        group.writelines(f"group{i}:x:{n}:\n" for i, n in enumerate(ids))


def start_agent():
    agent = subprocess.Popen([f"{BUILD}/zonagent"])
    while not os.path.exists("/var/orvantadc/daemon"):
        time.sleep(0.01)
    return agent


def make_scratch():
    """Mounts a fresh tmpfs, which holds everything else."""
    scratch = f"{BUILD}/scratch"
    shutil.rmtree(scratch, ignore_errors=True)
    os.makedirs(scratch)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=90%,nr_inodes=0", "tmpfs", scratch], check=True)
    return scratch


def enter_world(scratch):
    """Puts test accounts, zone and settings over the machine's; starts and returns the agent."""
    for name in ("etc", "var"):
        upper, work = f"{scratch}/{name}.upper", f"{scratch}/{name}.work"
        os.makedirs(upper)
        os.makedirs(work)
        subprocess.run(["mount", "-t", "overlay", "overlay", "-o",
                        f"lowerdir=/{name},upperdir={upper},workdir={work}", f"/{name}"], check=True)
    shutil.rmtree("/etc/orvantadc", ignore_errors=True)
    os.makedirs(ZONE)
    os.makedirs("/var/orvantadc", exist_ok=True)
    write_accounts(ZONE, NEW)
    renew_world()
    return start_agent()


def renew_world():
    """Restores the first accounts and settings."""
    write_accounts("/etc", OLD)
    with open("/etc/orvantadc/orvantadc.conf", "w", encoding="ascii") as settings:
        settings.write("domain.name = bench\n")


def timed(command, cpu=False):
    """Wall (or processor) seconds of a command, peak resident KiB of its largest process, wait status."""
    null = [(os.POSIX_SPAWN_OPEN, fd, "/dev/null", os.O_RDWR, 0) for fd in (1, 2)]
    start = time.perf_counter()
    pid = os.posix_spawn("/usr/bin/env", ["env", "sh", "-c", command], os.environ, file_actions=null)
    _, status, usage = os.wait4(pid, 0)
    seconds = usage.ru_utime + usage.ru_stime if cpu else time.perf_counter() - start
    return seconds, usage.ru_maxrss, status
