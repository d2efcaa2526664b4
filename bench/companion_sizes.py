#!/usr/bin/python3
"""Bits a point of a LAS file's zul stream and companion, stream by stream and field by field.

Compresses each LAS file with `zul compress` (the companion in stored order, then with
--keep-order) into a temporary folder, reads the stream's sizes from `zul info --json` and walks
the companion's blocks (docs/companion.md) to add up each field's segments, and prints bits a
point beside the LAS file's own. With --laz-bits, the figure of a LAZ file of the same records
(measured elsewhere) gives the ratios the size targets are stated in.

  bench/companion_sizes.py --zul build/tools/zul FILE.las [FILE.las ...] [--laz-bits N ...]
"""
import argparse
import json
import os
import struct
import subprocess
import sys
import tempfile


def companion_parts(path):
    """Bytes of the companion by part: its head, each field, the order, the metadata."""
    data = open(path, "rb").read()
    if data[:8] != b"\x89ZULX\r\n\x1a":
        sys.exit(path + ": not a companion")
    num_fields, num_chunks = struct.unpack_from("<IQ", data, 12)
    head_size, meta_offset, meta_size = struct.unpack_from("<qqq", data, 72)
    names = [data[head_size - 64 * (num_fields - f):].split(b"\0", 1)[0].decode()
             for f in range(num_fields)]
    parts = {"head (chunk index, fields)": head_size, "metadata (LAS header)": meta_size}
    for c in range(num_chunks):
        offset, size = struct.unpack_from("<qq", data, 112 + 152 * c + 128)
        at, segment = offset, 0
        while at < offset + size:
            stored = struct.unpack_from("<I", data, at + 4)[0]
            name = names[segment] if segment < num_fields else "input order"
            parts[name] = parts.get(name, 0) + 8 + stored
            at += 8 + stored
            segment += 1
    return parts


def measure(zul, las, folder, keep_order):
    stream = os.path.join(folder, "k.zul" if keep_order else "s.zul")
    command = [zul, "compress", "-q", "-f"] + (["--keep-order"] if keep_order else []) + [las,
                                                                                            stream]
    subprocess.run(command, check=True)
    info = json.loads(subprocess.run([zul, "info", "--json", stream], check=True,
                                     capture_output=True, text=True).stdout)
    companion = stream + "x"
    parts = companion_parts(companion) if os.path.exists(companion) else {}
    return info, parts


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--zul", required=True)
    parser.add_argument("--laz-bits", type=float, action="append", default=[],
                        help="bits a point of the same records as LAZ, one a file, in order")
    parser.add_argument("inputs", nargs="+")
    args = parser.parse_args()
    folder = tempfile.mkdtemp(prefix="zul-companion-sizes-")
    for i, las in enumerate(args.inputs):
        stored_info, stored = measure(args.zul, las, folder, False)
        _, ordered = measure(args.zul, las, folder, True)
        n = stored_info["points"]
        bits = lambda size: 8.0 * size / n
        print("%s: %d points, LAS %.2f bits a point" % (las, n, bits(os.path.getsize(las))))
        print("  %-36s %10s %12s" % ("part", "stored", "--keep-order"))
        stream_total = stored_info["bytes"]
        for name, stream in stored_info["streams"].items():
            print("  %-36s %10.2f %12s" % ("stream: " + name, bits(stream["bytes"]), "same"))
        print("  %-36s %10.2f %12s" % ("stream: framing", bits(stored_info["framingBytes"]),
                                        "same"))
        for name in sorted(set(stored) | set(ordered), key=lambda k: -ordered.get(k, 0)):
            print("  %-36s %10.2f %12.2f" % ("companion: " + name, bits(stored.get(name, 0)),
                                            bits(ordered.get(name, 0))))
        total_stored = stream_total + sum(stored.values())
        total_ordered = stream_total + sum(ordered.values())
        print("  %-36s %10.2f %12.2f" % ("stream", bits(stream_total), bits(stream_total)))
        print("  %-36s %10.2f %12.2f" % ("companion", bits(sum(stored.values())),
                                        bits(sum(ordered.values()))))
        print("  %-36s %10.2f %12.2f" % ("stream + companion", bits(total_stored),
                                        bits(total_ordered)))
        if i < len(args.laz_bits):
            laz = args.laz_bits[i]
            print("  %-36s %10.2fx %11.2fx  (LAZ %.2f bits; targets 1.5x and 1.75x)" %
                  ("against LAZ", bits(total_stored) / laz, bits(total_ordered) / laz, laz))
    for name in os.listdir(folder):
        os.remove(os.path.join(folder, name))
    os.rmdir(folder)


if __name__ == "__main__":
    main()
