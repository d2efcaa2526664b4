#!/usr/bin/python3
"""Tiles a LAS file of version 1.0 to 1.2 (point formats 0 to 3) into NX x NY copies, X and Y
shifted by its extent and GPS time by its span, for a larger input to the companion benchmarks
(bench/companion_time.py, bench/companion_sizes.py). Write it outside the repository:

  bench/tile_las.py IN.las OUT.las NX NY
"""
import struct, sys
src, dst, nx, ny = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
b = open(src, 'rb').read()
off = struct.unpack_from('<I', b, 96)[0]
fmt = b[104]; rl = struct.unpack_from('<H', b, 105)[0]; n = struct.unpack_from('<I', b, 107)[0]
sx, sy, sz = struct.unpack_from('<3d', b, 131)
maxx, minx, maxy, miny = struct.unpack_from('<4d', b, 179)
recs = b[off:off + n * rl]
dxi = int((maxx - minx) / sx) + 1; dyi = int((maxy - miny) / sy) + 1
tpos = {1: 20, 3: 20}.get(fmt)
times = [struct.unpack_from('<d', recs, i * rl + tpos)[0] for i in range(n)] if tpos else [0]
span = max(times) - min(times) + 1
out = bytearray(b[:off])
struct.pack_into('<I', out, 107, n * nx * ny)
for k in range(5):
    struct.pack_into('<I', out, 111 + 4 * k, struct.unpack_from('<I', b, 111 + 4 * k)[0] * nx * ny)
struct.pack_into('<4d', out, 179, maxx + (nx - 1) * dxi * sx, minx, maxy + (ny - 1) * dyi * sy, miny)
body = bytearray()
for t in range(nx * ny):
    i, j = t % nx, t // nx
    r = bytearray(recs)
    for p in range(n):
        o = p * rl
        x, y = struct.unpack_from('<ii', r, o)
        struct.pack_into('<ii', r, o, x + i * dxi, y + j * dyi)
        if tpos:
            struct.pack_into('<d', r, o + tpos, struct.unpack_from('<d', r, o + tpos)[0] + t * span)
    body += r
out += body + b[off + n * rl:]
open(dst, 'wb').write(out)
print(dst, n * nx * ny, 'points')
