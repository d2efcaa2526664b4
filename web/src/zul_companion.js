// The companion file NAME.zulx beside a stream NAME.zul (docs/companion.md): its head (the chunk
// index and the field directory) read and checked, its binding to the stream compared, and a
// chunk's block of columns decoded into typed arrays by the fields' types, in the chunk's stored
// order. zstd by fzstd (JavaScript), the XXH3-64 checksums by the WebAssembly module. Every size
// is checked against the bytes at hand before anything is allocated for it. A classic script,
// beside zul_core.js.
(function (root) {
  'use strict';
  // In a worker, vendor/fzstd.js imported before; in Node, the package, or the built folder's copy.
  const fromNode = () => {
    try { return require('fzstd'); } catch (error) { return require('../vendor/fzstd.js'); }
  };
  const fzstd = root.fzstd || (typeof require === 'function' ? fromNode() : null);

  const MAGIC = [0x89, 0x5a, 0x55, 0x4c, 0x58, 0x0d, 0x0a, 0x1a];
  const HEADER_SIZE = 112;
  const CHUNK_ENTRY = 152;
  const FIELD_ENTRY = 64;
  const SEGMENT_HEADER = 8;
  const MAX_FIELDS = 4096;
  const MAX_CHUNK_POINTS = 2 ** 30 - 1;
  // The decoded columns of one chunk this reader allocates at most (a block may declare more in
  // a few bytes of zstd frame headers).
  const MAX_BLOCK_BYTES = 512 * 2 ** 20;
  // Codings (docs/companion.md): a transform in the low two bits, then planes, zstd, input order.
  const DELTA = 1, XOR = 2, PLANES = 4, ZSTD = 8, INPUT_ORDER = 16;

  // type number: [name, typed array, width]; raw fields' width is their own.
  const TYPES = {
    1: ['u8', Uint8Array, 1], 2: ['i8', Int8Array, 1], 3: ['u16', Uint16Array, 2], 4: ['i16', Int16Array, 2],
    5: ['u32', Uint32Array, 4], 6: ['i32', Int32Array, 4], 7: ['u64', BigUint64Array, 8], 8: ['i64', BigInt64Array, 8],
    9: ['f32', Float32Array, 4], 10: ['f64', Float64Array, 8], 11: ['raw', Uint8Array, 0],
  };

  class CompanionError extends Error {}

  const int64 = (view, at) => {
    const value = view.getBigInt64(at, true);
    if (value > BigInt(Number.MAX_SAFE_INTEGER) || value < -BigInt(Number.MAX_SAFE_INTEGER)) return NaN;
    return Number(value);
  };

  // XXH3-64 (seed 0) of `bytes`, as a BigInt, by the module.
  function checksum(wasm, bytes) {
    const at = wasm._malloc(bytes.length + 8);
    if (!at) throw new Error(`cannot hold ${bytes.length} bytes in the decoder module`);
    try {
      wasm.HEAPU8.set(bytes, at);
      wasm._zulweb_xxh3(at, bytes.length, at + bytes.length);
      return new DataView(wasm.HEAPU8.buffer, at + bytes.length, 8).getBigUint64(0, true);
    } finally {
      wasm._free(at);
    }
  }

  // The size of the head from its first 112 bytes: one read of that many bytes holds the index.
  function headSize(bytes, name) {
    if (bytes.length < HEADER_SIZE) throw new CompanionError(`${name}: truncated (${bytes.length} bytes, its header needs ${HEADER_SIZE})`);
    if (MAGIC.some((b, i) => bytes[i] !== b)) throw new CompanionError(`${name}: not a companion file (bad signature)`);
    const view = new DataView(bytes.buffer, bytes.byteOffset, HEADER_SIZE);
    if (view.getUint16(8, true) !== 1) throw new CompanionError(`${name}: unknown companion version ${view.getUint16(8, true)}`);
    const numFields = view.getUint32(12, true);
    const numChunks = view.getBigUint64(16, true);
    const size = HEADER_SIZE + Number(numChunks) * CHUNK_ENTRY + numFields * FIELD_ENTRY;
    if ((view.getUint16(10, true) & ~1) || numFields > MAX_FIELDS || numChunks > 2n ** 40n || int64(view, 72) !== size) {
      throw new CompanionError(`${name}: corrupt data in its header`);
    }
    return size;
  }

  // A companion's head, checked as the native reader checks it, for a file of `fileSize` bytes.
  class Companion {
    constructor(wasm, bytes, fileSize, name) {
      this.name = name;
      this.fileSize = fileSize;
      this.wasm = wasm;
      const size = headSize(bytes, name);
      const corrupt = (what) => new CompanionError(`${name}: corrupt data (${what})`);
      if (size > fileSize || bytes.length < size) throw new CompanionError(`${name}: truncated inside its head (${size} bytes)`);
      const head = bytes.slice(0, size);
      const view = new DataView(head.buffer);
      const stored = view.getBigUint64(104, true);
      head.fill(0, 104, 112);
      if (checksum(wasm, head) !== stored) throw corrupt('the head\'s checksum differs');
      this.headSize = size;
      this.hasOrder = (view.getUint16(10, true) & 1) === 1;
      this.marker = head.slice(32, 48);
      this.numPoints = int64(view, 24);
      this.streamHeadSize = int64(view, 48);
      this.streamSize = int64(view, 64);
      const metaOffset = int64(view, 80);
      const metaSize = int64(view, 88);
      if (this.streamHeadSize !== 36 && this.streamHeadSize !== 172) throw corrupt('stream head size');
      const numChunks = Number(view.getBigUint64(16, true));
      const numFields = view.getUint32(12, true);
      this.chunks = new Array(numChunks);
      let streamAt = this.streamHeadSize;
      let blockAt = size;
      let points = 0;
      const segments = numFields + (this.hasOrder ? 1 : 0);
      for (let c = 0; c < numChunks; ++c) {
        const e = HEADER_SIZE + c * CHUNK_ENTRY;
        const chunk = {
          index: c, offset: int64(view, e), size: int64(view, e + 8), numPoints: view.getUint32(e + 16, true),
          checksum: view.getBigUint64(e + 24, true),
          gridMin: [0, 1, 2].map((a) => int64(view, e + 32 + 8 * a)), gridMax: [0, 1, 2].map((a) => int64(view, e + 56 + 8 * a)),
          min: [0, 1, 2].map((a) => view.getFloat64(e + 80 + 8 * a, true)), max: [0, 1, 2].map((a) => view.getFloat64(e + 104 + 8 * a, true)),
          blockOffset: int64(view, e + 128), blockSize: int64(view, e + 136), blockChecksum: view.getBigUint64(e + 144, true),
        };
        if (chunk.offset !== streamAt || !(chunk.size >= 16) || chunk.numPoints < 1 || chunk.numPoints > MAX_CHUNK_POINTS ||
            view.getUint32(e + 20, true) !== 0) throw corrupt(`chunk ${c} of its index`);
        for (let a = 0; a < 3; ++a) {
          if (!(chunk.gridMin[a] <= chunk.gridMax[a]) || !(chunk.min[a] <= chunk.max[a])) throw corrupt(`chunk ${c}'s box`);
        }
        if (chunk.blockOffset !== blockAt || !(chunk.blockSize >= SEGMENT_HEADER * segments)) throw corrupt(`chunk ${c}'s block`);
        if (chunk.blockSize > fileSize - blockAt) throw new CompanionError(`${name}: truncated (chunk ${c}'s block ends past its end)`);
        streamAt += chunk.size;
        blockAt += chunk.blockSize;
        points += chunk.numPoints;
        this.chunks[c] = chunk;
      }
      if (points !== this.numPoints || streamAt !== this.streamSize || metaOffset !== blockAt || !(metaSize >= 0)) throw corrupt('its counts');
      if (metaSize > fileSize - blockAt) throw new CompanionError(`${name}: truncated (its metadata ends past its end)`);
      if (metaSize !== fileSize - blockAt) throw corrupt('bytes after its metadata');
      this.blocksEnd = blockAt;
      this.fields = [];
      const decoder = new TextDecoder('utf-8', { fatal: true });
      for (let f = 0; f < numFields; ++f) {
        const e = HEADER_SIZE + numChunks * CHUNK_ENTRY + f * FIELD_ENTRY;
        let length = 0;
        while (length < 48 && head[e + length] !== 0) length += 1;
        const type = head[e + 48];
        const width = view.getUint16(e + 50, true);
        let reservedClear = true;
        for (let k = length; k < FIELD_ENTRY; ++k) if (head[e + k] !== 0 && k !== 48 && k !== 50 && k !== 51) reservedClear = false;
        let fieldName = null;
        try { fieldName = decoder.decode(head.subarray(e, e + length)); } catch (error) { /* named below */ }
        const known = TYPES[type];
        if (length === 0 || length > 47 || !reservedClear || fieldName === null || !known ||
            (type === 11 ? width < 1 : width !== known[2]) || this.fields.some((g) => g.name === fieldName)) {
          throw corrupt(`field ${f} of its directory`);
        }
        this.fields.push({ name: fieldName, type, typeName: known[0], width });
      }
    }

    // Null when the stream's head (its sync marker, the offset of its first chunk) and size are
    // those this companion was made for, else what differs. `streamSize` may be null (unknown).
    mismatchOfHead(marker, firstChunk, streamSize) {
      if (marker.some((b, i) => b !== this.marker[i])) return 'another sync marker';
      if (firstChunk !== this.streamHeadSize) return `a stream head of ${firstChunk} bytes, not ${this.streamHeadSize}`;
      if (streamSize !== null && streamSize !== undefined && streamSize !== this.streamSize) {
        return `a stream of ${streamSize} bytes, not ${this.streamSize}`;
      }
      return null;
    }

    // Null when a chunk of the stream (its listing: offset, size, count, grid box) is the one
    // the companion holds at that number, else what differs.
    mismatchOfChunk(listing) {
      const c = this.chunks[listing.index];
      if (!c) return `chunk ${listing.index}, beyond its ${this.chunks.length} chunks`;
      for (const key of ['offset', 'size', 'numPoints']) {
        if (listing[key] !== c[key]) return `chunk ${listing.index}: ${key} ${listing[key]}, not ${c[key]}`;
      }
      for (let a = 0; a < 3; ++a) {
        if (listing.gridMin[a] !== c.gridMin[a] || listing.gridMax[a] !== c.gridMax[a]) return `chunk ${listing.index}: another box`;
      }
      return null;
    }

    // The fields of chunk `index` from its block's bytes: {name: typed array} in the chunk's stored
    // order (u64 and i64 as BigUint64Array and BigInt64Array, raw fields as Uint8Array of width
    // bytes a point). Throws a CompanionError naming the chunk for a damaged block.
    decodeBlock(index, block) {
      const entry = this.chunks[index];
      const where = `${this.name}: chunk ${index}'s block at byte ${entry.blockOffset}`;
      if (block.length !== entry.blockSize) throw new CompanionError(`${where}: truncated`);
      if (checksum(this.wasm, block) !== entry.blockChecksum) throw new CompanionError(`${where}: corrupt data (checksum)`);
      const count = entry.numPoints;
      let total = 0;
      for (const f of this.fields) total += count * f.width;
      if (total > MAX_BLOCK_BYTES) throw new CompanionError(`${where}: ${total} bytes of fields, more than this reader decodes in one chunk`);
      const parts = [];
      for (let at = 0; at < block.length;) {
        if (block.length - at < SEGMENT_HEADER) throw new CompanionError(`${where}: corrupt data (a segment header)`);
        const size = new DataView(block.buffer, block.byteOffset + at + 4, 4).getUint32(0, true);
        if (block[at + 1] || block[at + 2] || block[at + 3] || size > block.length - at - SEGMENT_HEADER) {
          throw new CompanionError(`${where}: corrupt data (segment ${parts.length})`);
        }
        parts.push({ coding: block[at], bytes: block.subarray(at + SEGMENT_HEADER, at + SEGMENT_HEADER + size) });
        at += SEGMENT_HEADER + size;
      }
      if (parts.length !== this.fields.length + (this.hasOrder ? 1 : 0)) throw new CompanionError(`${where}: corrupt data (${parts.length} segments)`);
      let order = null;
      const fields = {};
      try {
        this.fields.forEach((f, k) => {
          const part = parts[k];
          if ((part.coding & INPUT_ORDER) && this.hasOrder && !order) {
            const last = parts[parts.length - 1];
            order = inputOrder(new BigUint64Array(decodeSegment(last.coding, last.bytes, count, 8, null).buffer));
          }
          const raw = decodeSegment(part.coding, part.bytes, count, f.width, order);
          fields[f.name] = f.type === 11 ? raw : new TYPES[f.type][1](raw.buffer, 0, count);
        });
      } catch (error) {
        if (!(error instanceof CompanionError)) throw error;
        throw new CompanionError(`${where}: corrupt data (${error.message})`);
      }
      return fields;
    }
  }

  // The declared content size of the zstd frame at the start of `bytes`, or -1.
  function frameContentSize(bytes) {
    if (bytes.length < 5 || bytes[0] !== 0x28 || bytes[1] !== 0xb5 || bytes[2] !== 0x2f || bytes[3] !== 0xfd) return -1;
    const fhd = bytes[4];
    if (fhd & 8) return -1;
    const single = (fhd >> 5) & 1;
    const at = 5 + (single ? 0 : 1) + [0, 1, 2, 4][fhd & 3];
    const size = [single ? 1 : 0, 2, 4, 8][fhd >> 6];
    if (size === 0 || bytes.length < at + size) return -1;
    const view = new DataView(bytes.buffer, bytes.byteOffset + at, size);
    if (size === 1) return view.getUint8(0);
    if (size === 2) return view.getUint16(0, true) + 256;
    if (size === 4) return view.getUint32(0, true);
    const value = view.getBigUint64(0, true);
    return value > BigInt(MAX_BLOCK_BYTES) ? Infinity : Number(value);
  }

  // The positions of the stored values in the input's order: sorted by index, ties in stored order.
  function inputOrder(indices) {
    const positions = Array.from({ length: indices.length }, (_, i) => i);
    positions.sort((a, b) => (indices[a] < indices[b] ? -1 : indices[a] > indices[b] ? 1 : a - b));
    return Uint32Array.from(positions);
  }

  // A segment's coded bytes back to `count` values of `width` bytes, in a buffer of their own.
  function decodeSegment(coding, stored, count, width, order) {
    const raw = count * width;
    if (coding & INPUT_ORDER) {
      if (!order || order.length !== count) throw new CompanionError('input order without an order segment');
      const permuted = decodeSegment(coding & ~INPUT_ORDER, stored, count, width, null);
      const out = new Uint8Array(raw);
      for (let k = 0; k < count; ++k) out.set(permuted.subarray(k * width, (k + 1) * width), order[k] * width);
      return out;
    }
    const how = coding & 3;
    if ((coding & ~31) || how === 3 || (how && ![1, 2, 4, 8].includes(width))) throw new CompanionError(`coding ${coding}`);
    let first;
    if (coding & ZSTD) {
      if (frameContentSize(stored) !== raw) throw new CompanionError('a zstd frame of another size');
      first = new Uint8Array(raw);
      let made;
      try { made = fzstd.decompress(stored, first); } catch (error) { throw new CompanionError(`zstd: ${error.message}`); }
      if (made.length !== raw) throw new CompanionError('a zstd frame of another size');
      if (made.buffer !== first.buffer) first.set(made);
    } else {
      if (stored.length !== raw) throw new CompanionError('a segment of another size');
      first = stored.slice();
    }
    let out = first;
    if (coding & PLANES) {
      out = new Uint8Array(raw);
      for (let j = 0; j < width; ++j) for (let i = 0, k = j * count; i < count; ++i, ++k) out[i * width + j] = first[k];
    }
    if (how) untransform(out, count, width, how);
    return out;
  }

  // Undoes the difference (modulo 2^(8 width)) or XOR with the value before, in place.
  function untransform(bytes, count, width, how) {
    if (width === 8) {
      const words = new Uint32Array(bytes.buffer, 0, 2 * count);
      let lo = 0, hi = 0;
      for (let i = 0; i < 2 * count; i += 2) {
        if (how === DELTA) {
          const sum = (lo + words[i]) >>> 0;
          hi = (hi + words[i + 1] + (sum < lo ? 1 : 0)) >>> 0;
          lo = sum;
        } else {
          lo = (lo ^ words[i]) >>> 0;
          hi = (hi ^ words[i + 1]) >>> 0;
        }
        words[i] = lo;
        words[i + 1] = hi;
      }
      return;
    }
    const values = width === 1 ? bytes : width === 2 ? new Uint16Array(bytes.buffer, 0, count) : new Uint32Array(bytes.buffer, 0, count);
    let previous = 0;
    for (let i = 0; i < count; ++i) {
      previous = how === DELTA ? (previous + values[i]) % 2 ** (8 * width) : (previous ^ values[i]) >>> 0;
      values[i] = previous;
    }
  }

  if (new Uint8Array(new Uint16Array([1]).buffer)[0] !== 1) throw new Error('the companion reader needs a little-endian host');

  const api = { Companion, CompanionError, headSize, checksum, HEADER_SIZE, TYPES };
  if (typeof module === 'object' && module.exports) module.exports = api;
  else root.ZulCompanion = api;
})(typeof self !== 'undefined' ? self : this);
