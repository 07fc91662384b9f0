#!/usr/bin/env python3
"""CPU seconds (user + system) used so far by process trees, for scripts/bench.sh.

    proc_cpu.py LABEL=PID ...      prints "LABEL SECONDS" per argument

A tree is the process and every descendant alive now, each with the CPU of its children that
have ended and been waited for (a PostgreSQL server's ended sessions, say). The difference
between two readings around a measurement is the CPU the tree spent on it. Linux /proc only.
"""
import os
import sys

TICKS = os.sysconf("SC_CLK_TCK")


def read_processes():
    """pid -> (parent pid, CPU ticks of the process and its waited-for children)."""
    processes = {}
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open("/proc/%s/stat" % entry) as stat:
                text = stat.read()
        except OSError:
            continue  # ended meanwhile
        # The command name may hold blanks and parentheses: the fields follow the last ")".
        fields = text[text.rindex(")") + 2:].split()
        # After the name: state ppid ... utime(14) stime(15) cutime(16) cstime(17), counted from 1.
        parent = int(fields[1])
        ticks = sum(int(value) for value in fields[11:15])
        processes[int(entry)] = (parent, ticks)
    return processes


def tree_seconds(root, processes):
    children = {}
    for pid, (parent, _) in processes.items():
        children.setdefault(parent, []).append(pid)
    total, pending = 0, [root]
    while pending:
        pid = pending.pop()
        if pid in processes:
            total += processes[pid][1]
        pending.extend(children.get(pid, []))
    return total / TICKS


def main():
    processes = read_processes()
    for argument in sys.argv[1:]:
        label, _, pid = argument.partition("=")
        print("%s %.3f" % (label, tree_seconds(int(pid), processes)))


if __name__ == "__main__":
    main()
