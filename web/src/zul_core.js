// The decoder over the WebAssembly module: a stream read piece by piece from bytes that arrive in
// any slices (a whole buffer, a download still running, range reads), its chunks listed from their
// headers and decoded one call a chunk into typed arrays. A classic script: Node requires it, a
// worker imports it with importScripts, and it needs nothing but the module (zul_wasm.js).
(function (root) {
  'use strict';

  const STATUS_NAMES = {
    0: 'ok', 1: 'end of file', 2: 'read error', 3: 'truncated', 4: 'write error',
    5: 'not a zul file (bad signature)', 6: 'unknown zul version', 7: 'corrupt data',
    1000: 'invalid argument', 1001: 'invalid state',
  };
  const TRUNCATED = 3;
  const CORRUPT = 7;
  // Points a chunk may hold before this decoder refuses to allocate for it (the format allows up
  // to 2^30 - 1 in a few bytes); a caller may raise it.
  const DEFAULT_MAX_CHUNK_POINTS = 1 << 22;

  class ZulError extends Error {
    constructor(status, where) {
      super(`${where}: ${STATUS_NAMES[status] || 'status ' + status}`);
      this.status = status;
      this.where = where;
    }
  }

  // One stream's decoder inside the module. Calls follow the stream: head, fileHeader, then per
  // chunk chunkHead and, if wanted, chunkBody (chunkHead may come again for any chunk).
  class Decoder {
    constructor(wasm, options = {}) {
      this.wasm = wasm;
      const apply = options.applyTransformation === undefined ? 1 : options.applyTransformation;
      this.handle = wasm._zulweb_new(apply ? 1 : 0);
      if (!this.handle) throw new Error('out of memory in the decoder module');
      this.scratch = 0;
      this.scratchSize = 0;
      this.maxChunkPoints = options.maxChunkPoints || DEFAULT_MAX_CHUNK_POINTS;
      this.info = null;
    }

    close() {
      if (this.scratch) this.wasm._free(this.scratch);
      if (this.handle) this.wasm._zulweb_free(this.handle);
      this.scratch = this.handle = 0;
    }

    // Copies bytes into the module and returns their address there.
    put(bytes) {
      if (bytes.length > this.scratchSize) {
        if (this.scratch) this.wasm._free(this.scratch);
        this.scratchSize = Math.max(bytes.length, 2 * this.scratchSize, 4096);
        this.scratch = this.wasm._malloc(this.scratchSize);
        if (!this.scratch) throw new Error(`cannot hold ${bytes.length} bytes in the decoder module`);
      }
      this.wasm.HEAPU8.set(bytes, this.scratch);
      return this.scratch;
    }

    record(count) {
      const at = this.wasm._zulweb_record(this.handle);
      return new Float64Array(this.wasm.HEAPU8.buffer, at, count).slice();
    }

    // The 8 signature bytes: returns the size of the file header.
    head(signature) {
      const status = this.wasm._zulweb_open(this.handle, this.put(signature));
      if (status !== 0) throw new ZulError(status, 'signature');
      return this.record(1)[0];
    }

    fileHeader(bytes) {
      const status = this.wasm._zulweb_fileHeader(this.handle, this.put(bytes));
      if (status !== 0) throw new ZulError(status, 'file header');
      const r = this.record(23);
      const markerAt = this.wasm._zulweb_syncMarker(this.handle);
      this.syncMarker = this.wasm.HEAPU8.slice(markerAt, markerAt + 16);
      this.info = {
        step: r[0], colorMode: r[1], reflectionMode: r[2], maxReflection: r[3], normalMode: r[4],
        chunkHeaderSize: r[5], version: r[6] ? 2 : 1, matrix: r[6] ? Array.from(r.subarray(7, 23)) : null,
        hasColors: r[1] !== 0, hasReflections: r[2] !== 0, hasNormals: r[4] !== 0,
      };
      // The spacing of decoded positions: the stored step (a float, written as its shortest
      // decimal), times the matrix's scale for a version 2 stream.
      let step = r[0];
      for (let digits = 1; digits <= 9; ++digits) {
        const decimal = Number(r[0].toPrecision(digits));
        if (Math.fround(decimal) === r[0]) { step = decimal; break; }
      }
      const scale = r[6] ? Math.hypot(r[7], r[8], r[9]) : 1;
      this.info.outputStep = scale === 1 ? step : r[0] * scale;
      return this.info;
    }

    markerMatches(bytes) {
      for (let i = 0; i < 16; ++i) if (bytes[i] !== this.syncMarker[i]) return false;
      return true;
    }

    // The sync marker and chunk header: the chunk's count, body size and boxes.
    chunkHead(bytes, where) {
      const status = this.wasm._zulweb_chunkHead(this.handle, this.put(bytes));
      if (status !== 0) throw new ZulError(status, where);
      const r = this.record(14);
      return {
        numPoints: r[0], bodySize: r[1],
        gridMin: Array.from(r.subarray(2, 5)), gridMax: Array.from(r.subarray(5, 8)),
        min: Array.from(r.subarray(8, 11)), max: Array.from(r.subarray(11, 14)),
      };
    }

    // A whole chunk (marker, header, body): its points as typed arrays of its own, positions as
    // Float64Array (the decoder's exact values). `expected` is the count its listing gave. With
    // `copy` false the arrays are views into the module's memory, valid until the next call.
    decodeChunk(bytes, where, expected, copy = true) {
      const headSize = 16 + this.info.chunkHeaderSize;
      const head = this.chunkHead(bytes.subarray(0, headSize), where);
      if (expected !== undefined && head.numPoints !== expected) throw new ZulError(CORRUPT, where);
      if (head.bodySize !== bytes.length - headSize) throw new ZulError(TRUNCATED, where);
      if (head.numPoints > this.maxChunkPoints) {
        throw new Error(`${where}: ${head.numPoints} points, more than the ${this.maxChunkPoints} ` +
                        'this viewer decodes in one chunk');
      }
      const w = this.wasm;
      const status = w._zulweb_chunkBody(this.handle, this.put(bytes) + headSize);
      if (status !== 0) throw new ZulError(status, where);
      const n = head.numPoints;
      const buffer = w.HEAPU8.buffer;
      const info = this.info;
      const array = (Type, at, count) => {
        const view = new Type(buffer, at, count);
        return copy ? view.slice() : view;
      };
      return {
        numPoints: n,
        positions: array(Float64Array, w._zulweb_positions(this.handle), 3 * n),
        colors: info.hasColors ? array(Uint8Array, w._zulweb_colors(this.handle), 3 * n) : null,
        reflections: info.hasReflections ? array(Int32Array, w._zulweb_reflections(this.handle), n) : null,
        normals: info.hasNormals ? array(Float32Array, w._zulweb_normals(this.handle), 3 * n) : null,
        // The companion file's fields of this chunk (classification, GPS time, ...), one typed
        // array each by name, in the chunk's stored order: filled by the companion reader when a
        // companion is opened beside the stream; empty without one.
        fields: {},
      };
    }
  }

  // Walks a stream whose bytes arrive in order, in slices of any size. For each complete chunk it
  // calls onChunk(listing, bytes) where `bytes` is the whole chunk, or with null bytes if
  // wantBody(listing) said no (the body is then skipped, not kept). It keeps at most one chunk.
  // A damaged chunk stops the walk, as it stops the native index; with `resync`, the walk goes on
  // from the next place the stream's sync marker appears, and every damage is reported to
  // onDamage (chunks are then numbered as this walk counts them).
  class StreamWalker {
    constructor(decoder, handlers) {
      this.decoder = decoder;
      this.onHeader = handlers.onHeader || (() => {});
      this.onChunk = handlers.onChunk || (() => {});
      this.wantBody = handlers.wantBody || (() => true);
      this.onDamage = handlers.onDamage || (() => {});
      this.resync = Boolean(handlers.resync);
      this.damages = [];
      this.halted = false;
      this.buffer = new Uint8Array(0);
      this.length = 0;      // bytes held in buffer
      this.offset = 0;      // stream offset of buffer[0]
      this.state = 'signature';
      this.need = 8;
      this.chunkIndex = 0;
      this.fileError = null;
      this.skipping = 0;
    }

    // Goes on from a chunk boundary of a stream whose head this walker's decoder already read.
    resumeAt(offset, chunkIndex) {
      this.state = 'chunk';
      this.need = 16 + this.decoder.info.chunkHeaderSize;
      this.offset = offset;
      this.length = 0;
      this.chunkIndex = chunkIndex;
    }

    // The stream offset of the next byte the walker expects.
    get position() { return this.offset + this.length; }
    get stopped() { return this.halted || this.fileError !== null; }
    // The first damage: {status, message, chunk, offset}, or null.
    get damage() { return this.damages[0] || null; }

    push(bytes) {
      let at = 0;
      while (at < bytes.length && !this.stopped) {
        if (this.state === 'resync') {
          const take = Math.min(1 << 16, bytes.length - at);
          this.hold(bytes.subarray(at, at + take));
          at += take;
          this.searchMarker();
          continue;
        }
        if (this.skipping > 0) {
          const take = Math.min(this.skipping, bytes.length - at);
          this.skipping -= take;
          at += take;
          this.offset += take;
          if (this.skipping === 0) this.nextChunk();
          continue;
        }
        const take = Math.min(this.need - this.length, bytes.length - at);
        this.hold(bytes.subarray(at, at + take));
        at += take;
        if (this.length === this.need) this.step();
        else if (this.state === 'chunk' && this.length >= 16 && !this.markerChecked) this.checkMarker();
      }
    }

    hold(bytes) {
      if (this.length + bytes.length > this.buffer.length) {
        const grown = new Uint8Array(Math.max(this.length + bytes.length, 2 * this.buffer.length));
        grown.set(this.buffer.subarray(0, this.length));
        this.buffer = grown;
      }
      this.buffer.set(bytes, this.length);
      this.length += bytes.length;
    }

    fail(status, where) {
      if (this.state === 'signature' || this.state === 'fileHeader') {
        this.fileError = new ZulError(status, where);
        return;
      }
      const error = new ZulError(status, `chunk ${this.chunkIndex} at byte ${this.offset}`);
      const damage = { status, message: error.message, chunk: this.chunkIndex, offset: this.offset };
      this.damages.push(damage);
      if (this.resync && status === CORRUPT && this.state === 'chunk') {
        // Reported when the walk finds where to go on, or at the end.
        this.state = 'resync';
        this.searchFrom = 1;
        this.searchMarker();
      } else {
        this.halted = true;
        this.onDamage(damage);
      }
    }

    // Looks for the sync marker in the bytes held; found, the walk goes on from there.
    searchMarker() {
      const marker = this.decoder.syncMarker;
      const held = this.buffer;
      for (let i = this.searchFrom; i + 16 <= this.length; ++i) {
        if (held[i] !== marker[0] || !this.decoder.markerMatches(held.subarray(i, i + 16))) continue;
        const rest = held.slice(i, this.length);
        const damage = this.damages[this.damages.length - 1];
        damage.resumedAt = this.offset + i;
        damage.message += `; read on from the next chunk found, at byte ${damage.resumedAt}`;
        this.onDamage(damage);
        this.offset += i;
        this.length = 0;
        this.nextChunk();
        this.push(rest);
        return;
      }
      // Keep the last 15 bytes: a marker may begin among them.
      const keep = Math.min(15, this.length);
      held.copyWithin(0, this.length - keep, this.length);
      this.offset += this.length - keep;
      this.length = keep;
      this.searchFrom = 0;
    }

    // False after a wrong marker, which is reported.
    checkMarker() {
      this.markerChecked = true;
      if (this.decoder.markerMatches(this.buffer)) return true;
      this.fail(CORRUPT);
      return false;
    }

    step() {
      const bytes = this.buffer.subarray(0, this.length);
      try {
        if (this.state === 'signature') {
          this.need = this.decoder.head(bytes);
          this.consume('fileHeader');
        } else if (this.state === 'fileHeader') {
          const info = this.decoder.fileHeader(bytes);
          this.consume('chunk');
          this.need = 16 + info.chunkHeaderSize;
          this.onHeader(info, this.offset);
        } else if (this.state === 'chunk') {
          if (!this.markerChecked && !this.checkMarker()) return;
          const head = this.decoder.chunkHead(bytes, `chunk ${this.chunkIndex}`);
          this.listing = Object.assign(head, {
            index: this.chunkIndex, offset: this.offset, size: this.need + head.bodySize,
          });
          if (this.wantBody(this.listing)) {
            this.state = 'body';
            this.need = this.listing.size;
          } else {
            this.onChunk(this.listing, null);
            this.offset += this.length;
            this.length = 0;
            this.skipping = head.bodySize;
            if (this.skipping === 0) this.nextChunk();
          }
        } else if (this.state === 'body') {
          this.onChunk(this.listing, bytes);
          this.offset += this.length;
          this.length = 0;
          this.nextChunk();
        }
      } catch (error) {
        if (!(error instanceof ZulError)) throw error;
        this.fail(error.status, error.where);
      }
    }

    consume(next) {
      this.offset += this.length;
      this.length = 0;
      this.state = next;
    }

    nextChunk() {
      this.state = 'chunk';
      this.need = 16 + this.decoder.info.chunkHeaderSize;
      this.markerChecked = false;
      this.chunkIndex += 1;
    }

    // The stream ended: a clean end only at a chunk boundary.
    end() {
      if (this.state === 'resync') {
        const damage = this.damages[this.damages.length - 1];
        damage.message += '; no chunk found after it';
        this.onDamage(damage);
        return;
      }
      if (this.stopped) return;
      if (this.state === 'signature' || this.state === 'fileHeader') {
        this.fail(TRUNCATED, this.state === 'signature' ? 'signature' : 'file header');
      } else if (this.length > 0 || this.skipping > 0 || this.state === 'body') {
        this.fail(TRUNCATED);
      }
    }
  }

  // Everything of a stream held in `bytes`: its header, its chunk listing, and the points of every
  // intact chunk in stream order (or only those `select(listing)` wants); with `resync`, also
  // the chunks after a damaged one (see StreamWalker); `damages` lists every damage.
  function decodeBytes(wasm, bytes, options = {}) {
    const decoder = new Decoder(wasm, options);
    const chunks = [];
    let header = null;
    try {
      const walker = new StreamWalker(decoder, {
        onHeader: (info) => { header = info; },
        wantBody: options.select || (() => true),
        resync: options.resync,
        onChunk: (listing, chunkBytes) => {
          const entry = Object.assign({}, listing);
          if (chunkBytes) Object.assign(entry, decoder.decodeChunk(chunkBytes, `chunk ${listing.index}`));
          chunks.push(entry);
        },
      });
      walker.push(bytes);
      walker.end();
      if (walker.fileError) throw walker.fileError;
      return { header, chunks, damage: walker.damage, damages: walker.damages };
    } finally {
      decoder.close();
    }
  }

  // Positions relative to `origin` in single precision, for drawing.
  function relativePositions(positions, origin) {
    const out = new Float32Array(positions.length);
    for (let i = 0; i < positions.length; i += 3) {
      out[i] = positions[i] - origin[0];
      out[i + 1] = positions[i + 1] - origin[1];
      out[i + 2] = positions[i + 2] - origin[2];
    }
    return out;
  }

  function boxesMeet(min, max, boxMin, boxMax) {
    for (let a = 0; a < 3; ++a) if (max[a] < boxMin[a] || min[a] > boxMax[a]) return false;
    return true;
  }

  const api = {
    Decoder, StreamWalker, ZulError, decodeBytes, relativePositions, boxesMeet,
    STATUS_NAMES, DEFAULT_MAX_CHUNK_POINTS,
  };
  if (typeof module === 'object' && module.exports) module.exports = api;
  else root.ZulCore = api;
})(typeof self !== 'undefined' ? self : this);
