"""One process of the whole-process benchmarks, measured.

The benchmark pins itself to one core (core 0, as `taskset -c 0` would), and
the programs it starts inherit that. A timed program is started directly with
posix_spawn and reaped with wait4, whose resource usage gives its CPU time to
the microsecond: started through GNU time and taskset, a short job's wall
time counted two more programs, and CPU times came rounded to hundredths of a
second. Its peak resident memory is taken from a run of its own under GNU
time: the kernel counts the memory of the process a program is started from
into the peak, which for one started from here is this Python's.
"""
import os
import sys
import tempfile
import time
from collections import namedtuple

Run = namedtuple("Run", "wall cpu")  # seconds


def pin():
    """Runs this process, and what it starts, on core 0 (else the first core it may use)."""
    allowed = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {0 if 0 in allowed else min(allowed)})


def _spawn(cmd):
    """Runs cmd with its output thrown away: wall time, wait4's resource usage
    and what it wrote to standard error; exits with that if it fails."""
    with tempfile.TemporaryFile() as err:
        actions = [(os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0),
                   (os.POSIX_SPAWN_DUP2, err.fileno(), 2)]
        t0 = time.perf_counter()
        pid = os.posix_spawnp(cmd[0], cmd, os.environ, file_actions=actions)
        _, status, usage = os.wait4(pid, 0)
        wall = time.perf_counter() - t0
        err.seek(0)
        text = err.read().decode(errors="replace")
    if os.waitstatus_to_exitcode(status) != 0:
        sys.exit("failed: %s\n%s" % (" ".join(cmd), text))
    return wall, usage, text


def run(cmd):
    """The wall time and the CPU time (user + system) of one run of cmd."""
    wall, usage, _ = _spawn(cmd)
    return Run(wall, usage.ru_utime + usage.ru_stime)


def peak(cmd):
    """The peak resident memory of one run of cmd in MiB, as GNU time reports it."""
    _, _, text = _spawn(["/usr/bin/time", "-f", "peak %M"] + cmd)
    return int(text.strip().splitlines()[-1].split()[1]) / 1024.0


def load():
    """The load averages of /proc/loadavg."""
    with open("/proc/loadavg") as f:
        return " ".join(f.read().split()[:3])
