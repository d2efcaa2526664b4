#!/usr/bin/python3
"""The time the companion adds to `zul compress` and `zul decompress` of a LAS file.

Runs, in rounds, each of the variants below once (so that a machine's changing load falls on all
of them alike), and prints each variant's median wall and CPU (user + system, all threads) time
and its ratio to the variant without companion:
  compress:   --no-companion | the companion (stored order) | --keep-order
  decompress: --no-companion | the companion               | the companion with the order
With several --zul binaries (say, before and after a change) every variant runs with each, in the
same rounds. Files go to a temporary folder beside nothing of the repository.

  bench/companion_time.py --zul build/tools/zul [--zul OTHER] [--rounds 5] [--only decompress] FILE.las
"""
import argparse
import os
import statistics
import subprocess
import sys
import tempfile
import time


def run(command):
    start = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.monotonic() - start
    error = process.stderr.read().decode(errors="replace")
    process.stderr.close()
    if status != 0:
        sys.exit("failed: %s\n%s" % (" ".join(command), error))
    return wall, usage.ru_utime + usage.ru_stime


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--zul", action="append", required=True, help="a zul binary (repeatable)")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--only", choices=["compress", "decompress"], help="one group only")
    parser.add_argument("input")
    args = parser.parse_args()
    folder = tempfile.mkdtemp(prefix="zul-companion-time-")
    stored, ordered = os.path.join(folder, "s.zul"), os.path.join(folder, "k.zul")
    plain = os.path.join(folder, "n.zul")
    out = os.path.join(folder, "out.las")
    zul0 = args.zul[0]
    # The streams the decompressions read, made once.
    run([zul0, "compress", "-q", "-f", args.input, stored])
    run([zul0, "compress", "-q", "-f", "--keep-order", args.input, ordered])
    groups = {
        "compress": [
            ("--no-companion", lambda z: [z, "compress", "-q", "-f", "--no-companion",
                                          args.input, plain]),
            ("companion", lambda z: [z, "compress", "-q", "-f", args.input, plain]),
            ("--keep-order", lambda z: [z, "compress", "-q", "-f", "--keep-order",
                                        args.input, plain]),
        ],
        "decompress": [
            ("--no-companion", lambda z: [z, "decompress", "-q", "-f", "--no-companion",
                                          stored, out]),
            ("companion", lambda z: [z, "decompress", "-q", "-f", stored, out]),
            ("with order", lambda z: [z, "decompress", "-q", "-f", ordered, out]),
        ],
    }
    print("%s, %d rounds, load average at the start %.2f" %
          (args.input, args.rounds, os.getloadavg()[0]))
    for name, variants in groups.items():
        if args.only and name != args.only:
            continue
        times = {}
        for _ in range(args.rounds):
            for label, command in variants:
                for z in args.zul:
                    times.setdefault((label, z), []).append(run(command(z)))
        print("%s (median wall s, CPU s; ratio to --no-companion of the same binary):" % name)
        for z in args.zul:
            base_wall = statistics.median(t[0] for t in times[(variants[0][0], z)])
            base_cpu = statistics.median(t[1] for t in times[(variants[0][0], z)])
            for label, _ in variants:
                wall = statistics.median(t[0] for t in times[(label, z)])
                cpu = statistics.median(t[1] for t in times[(label, z)])
                print("  %-16s %-28s wall %7.3f (%.2fx)  cpu %7.3f (%.2fx)" %
                      (label, os.path.basename(z) if len(args.zul) > 1 else "", wall,
                       wall / base_wall, cpu, cpu / base_cpu))
    print("load average at the end %.2f" % os.getloadavg()[0])
    for name in os.listdir(folder):
        os.remove(os.path.join(folder, name))
    os.rmdir(folder)


if __name__ == "__main__":
    main()
