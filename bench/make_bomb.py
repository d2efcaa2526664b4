#!/usr/bin/python3
"""Writes a decompression bomb: a zul stream of chunks of identical points (coded in next to no
bits) whose headers claim forged counts, to measure what the readers' limits let through.

    make_bomb.py ZUL_TOOL OUT.zul --bytes N [--count C | --density K --allowance F]

Fills at most N bytes with copies of the chunk. With --count every chunk claims C points; with
--density each claims as many as the density limit leaves (the points of the chunks before it
and its own at most F + K * the bytes up to its end), capped at the chunk budget's count --cap.
"""
import argparse
import os
import struct
import subprocess
import tempfile

SYNC_MARKER = 16  # ZUL_SYNC_MARKER_SIZE
COUNT_AT = SYNC_MARKER + 48  # behind the box of six 64-bit integers


def one_chunk(tool):
    with tempfile.TemporaryDirectory() as folder:
        xyz, zul = os.path.join(folder, "two.xyz"), os.path.join(folder, "two.zul")
        with open(xyz, "w") as out:
            out.write("1.5 -2 0.5\n1.5 -2 0.5\n")
        subprocess.run([tool, "compress", "-q", "--order", "input", "--chunk", "2", xyz, zul],
                       check=True)
        with open(zul, "rb") as f:
            return f.read()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("tool")
    parser.add_argument("out")
    parser.add_argument("--bytes", type=int, default=1 << 20)
    parser.add_argument("--count", type=int)
    parser.add_argument("--density", type=int, default=4)
    parser.add_argument("--allowance", type=int, default=1 << 20)
    parser.add_argument("--cap", type=int, default=(256 << 20) // 64)
    parser.add_argument("--burst", action="store_true",
                        help="claim 1 point until the limit leaves room for --cap, then --cap")
    parser.add_argument("--source", help="a stream of one chunk of identical points to copy "
                        "(default: two points without attributes, written by ZUL_TOOL)")
    parser.add_argument("--head", type=int, default=172, help="bytes before the first chunk")
    args = parser.parse_args()
    if args.source:
        with open(args.source, "rb") as f:
            stream = f.read()
    else:
        stream = one_chunk(args.tool)
    head, chunk = bytearray(stream[:args.head]), bytearray(stream[args.head:])
    assert struct.unpack_from("<I", chunk, COUNT_AT)[0] == 2, "unexpected layout"
    out, listed = bytearray(head), 0
    while len(out) + len(chunk) <= args.bytes:
        if args.count is not None:
            count = args.count
        else:
            room = args.allowance + args.density * (len(out) + len(chunk)) - listed
            count = min(room, args.cap, (1 << 30) - 1)
            if args.burst and count < args.cap:
                count = 1
        if count < 1:
            break
        struct.pack_into("<I", chunk, COUNT_AT, count)
        out += chunk
        listed += count
    with open(args.out, "wb") as f:
        f.write(out)
    print(f"{args.out}: {len(out)} bytes, {(len(out) - len(head)) // len(chunk)} chunks of "
          f"{len(chunk)} bytes, {listed} points claimed")


if __name__ == "__main__":
    main()
