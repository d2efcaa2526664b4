// Loading a cloud for display: from bytes, a File or a URL, deciding which chunks to decode (all,
// those meeting a box, or a sample when the cloud exceeds the point budget) and reading as few
// bytes as that needs. From a URL: one range request for the head and the first chunks; then the
// rest as one stream, or, for a box or a sample, the chunk headers one by one and the chosen
// chunks by range. A server that answers a range request with the whole file (200) is read as
// a stream and decoded as it arrives. Events go to `emit` (see load). A classic script, beside
// zul_core.js.
(function (root) {
  'use strict';
  const core = root.ZulCore || (typeof require === 'function' ? require('./zul_core.js') : null);
  const companions = root.ZulCompanion || (typeof require === 'function' ? require('./zul_companion.js') : null);
  const { Decoder, StreamWalker, ZulError, boxesMeet } = core;
  const { Companion, CompanionError } = companions;
  const net = root.ZulFetch || (typeof require === 'function' ? require('./zul_fetch.js') : null);
  const { Counter, readBody, request, fetchRange, concat, baseName } = net;

  const FIRST_RANGE = 1 << 20;   // bytes of the first request
  const COMPANION_RANGE = 1 << 16;  // bytes of the first request for a companion's head
  const BLOCK_GAP = 1 << 16;        // blocks this near are read in one request, the gap with them

  // Decides which chunks to decode: those meeting the box, within the point budget; once a
  // first chunk tells how many points a byte holds, a file estimated beyond the budget is
  // sampled, one chunk in `stride`.
  class Chooser {
    constructor(options, emit) {
      this.box = options.box || null;
      this.budget = options.budget || Infinity;
      this.emit = emit;
      this.points = 0;
      this.stride = 1;
      this.fileSize = null;
      this.skippedForBudget = 0;
    }

    estimate(listing) {
      if (this.fileSize === null || this.strideSet) return;
      this.strideSet = true;
      const estimated = (this.fileSize * listing.numPoints) / listing.size;
      if (estimated > this.budget && !this.box) {
        this.stride = Math.ceil(estimated / this.budget);
        this.emit({ type: 'note', sampled: true,
          message: `about ${Math.round(estimated).toLocaleString('en')} points, beyond the budget of ` +
                   `${this.budget.toLocaleString('en')}: showing one chunk in ${this.stride}` });
      }
    }

    wants(listing) {
      this.estimate(listing);
      if (this.box && !boxesMeet(listing.min, listing.max, this.box.min, this.box.max)) return false;
      if (listing.index % this.stride !== 0) return false;
      if (this.points + listing.numPoints > this.budget) {
        this.skippedForBudget += 1;
        return false;
      }
      this.points += listing.numPoints;
      return true;
    }
  }


  // Finds and opens the companion of a stream: source.companion is its bytes (with {bytes}), a
  // File (with {file}: picked or dropped together) or a URL (with {url}: by default the stream's
  // URL and "x"); `companion: false` reads none. From a URL: one range request for the first
  // 64 KiB, a second for the rest of the head when it is longer. Resolves to {companion, read,
  // name} (read(from, to) gives the companion's bytes), or null when there is none; a companion
  // that cannot be read is named by an event and left out.
  async function openCompanion(wasm, source, counter, emit) {
    if (source.companion === false) return null;
    let name = null;
    let read;
    let size;
    let first;
    let whole = null;  // the whole companion, when it is at hand
    try {
      if (source.bytes) {
        if (!source.companion) return null;
        const bytes = whole = source.companion;
        name = source.companionName || 'the companion';
        size = bytes.length;
        read = async (from, to) => bytes.subarray(from, Math.min(to, size));
      } else if (source.file) {
        if (!source.companion) return null;
        // Read whole: a picked file is at hand, and its size bounds what is held.
        const bytes = whole = new Uint8Array(await source.companion.arrayBuffer());
        name = source.companion.name;
        size = bytes.length;
        read = async (from, to) => bytes.subarray(from, Math.min(to, size));
      } else {
        const url = source.companion || source.url + 'x';
        name = baseName(url);
        const answer = await request(url, [0, COMPANION_RANGE - 1], counter, true);
        if (answer.response.status === 404) { answer.controller.abort(); return null; }
        if (answer.response.status !== 200 && answer.response.status !== 206) {
          answer.controller.abort();
          throw new Error(`the server answered ${answer.response.status} ${answer.response.statusText}`);
        }
        const parts = [];
        await readBody(answer.response, (b) => parts.push(b), answer.controller, counter);
        first = concat(parts);
        if (!answer.partial) {
          size = first.length;
          const bytes = whole = first;
          read = async (from, to) => bytes.subarray(from, Math.min(to, size));
        } else if (answer.total === null) {
          throw new Error('the range answer does not tell its size (Content-Range not exposed)');
        } else {
          size = answer.total;
          read = (from, to) => fetchRange(url, from, Math.min(to, size), counter);
        }
      }
      if (!first) first = await read(0, Math.min(COMPANION_RANGE, size));
      const headSize = companions.headSize(first, name);
      if (headSize > first.length) {
        if (headSize > size) throw new CompanionError(`${name}: truncated inside its head (${headSize} bytes)`);
        first = concat([first, await read(first.length, headSize)]);
      }
      const companion = new Companion(wasm, first, size, name);
      return { companion, read, name, whole };
    } catch (error) {
      if (error instanceof CompanionError || !(error instanceof ZulError)) {
        const message = error instanceof CompanionError ? error.message : `${name}: ${error.message}`;
        emit({ type: 'companion', error: `${message}; its fields are left out` });
        return null;
      }
      throw error;
    }
  }

  // A stream's companion while it loads: the binding compared (its head, then each chunk listed),
  // the blocks of the chunks decoded. Until the companion is open (a URL's head may still be on
  // its way), chunks go by and are compared once it is.
  class CompanionLink {
    constructor(emit, streamName) {
      this.emit = emit;
      this.streamName = streamName;
      this.opened = null;
      this.refused = false;
      this.blocks = new Map();   // chunk index: block bytes fetched, not yet decoded
      this.waiting = [];         // listings seen before the companion was open
      this.missing = [];         // chunks delivered without their fields
      this.streamHead = null;
    }

    get active() { return this.opened !== null && !this.refused; }

    open(opened) {
      this.opened = opened;
      if (!opened) return;
      const c = opened.companion;
      this.emit({ type: 'companion', name: opened.name, headSize: c.headSize, chunks: c.chunks.length,
        fields: c.fields.map((f) => ({ name: f.name, type: f.typeName, width: f.width })) });
      if (this.streamHead) this.checkHead(...this.streamHead);
      for (const listing of this.waiting.splice(0)) this.checkChunk(listing);
    }

    refuse(reason) {
      if (this.refused) return;
      this.refused = true;
      this.blocks.clear();
      this.emit({ type: 'companion', refused: true,
        error: `${this.opened.name} does not belong to ${this.streamName}: ${reason}; its fields are left out` });
    }

    checkHead(marker, firstChunk, fileSize) {
      this.streamHead = [marker, firstChunk, fileSize];
      if (!this.active) return;
      const reason = this.opened.companion.mismatchOfHead(marker, firstChunk, fileSize);
      if (reason) this.refuse(reason);
    }

    // False when the chunk is not the companion's (which is then refused).
    checkChunk(listing) {
      if (this.opened === null) { this.waiting.push(listing); return false; }
      if (!this.active) return false;
      const reason = this.opened.companion.mismatchOfChunk(listing);
      if (reason) this.refuse(reason);
      return !reason;
    }

    // Fetches the blocks of these chunks (ascending), in one read where they lie less than
    // BLOCK_GAP bytes apart (a sample's blocks, every other chunk's).
    async fetchBlocks(indices) {
      const chunks = this.opened.companion.chunks;
      for (let i = 0; i < indices.length;) {
        let end = i + 1;
        while (end < indices.length && chunks[indices[end]].blockOffset -
               (chunks[indices[end - 1]].blockOffset + chunks[indices[end - 1]].blockSize) <= BLOCK_GAP) end += 1;
        const from = chunks[indices[i]].blockOffset;
        const last = chunks[indices[end - 1]];
        const bytes = await this.opened.read(from, last.blockOffset + last.blockSize);
        for (let j = i; j < end; ++j) {
          const c = chunks[indices[j]];
          this.blocks.set(c.index, bytes.subarray(Math.min(c.blockOffset - from, bytes.length), Math.min(c.blockOffset - from + c.blockSize, bytes.length)));
        }
        i = end;
      }
    }

    // The fields of a delivered chunk from its fetched block, or null (noted as missing when the
    // block is still to be fetched); a damaged block is named, the chunk's points kept.
    fieldsOf(listing) {
      if (this.opened === null) {
        this.waiting.push(listing);
        this.missing.push(listing.index);
        return null;
      }
      if (!this.active || !this.checkChunk(listing)) return null;
      const c = this.opened.companion.chunks[listing.index];
      const whole = this.opened.whole;
      const block = this.blocks.get(listing.index) || (whole && whole.subarray(c.blockOffset, c.blockOffset + c.blockSize));
      if (!block) { this.missing.push(listing.index); return null; }
      this.blocks.delete(listing.index);
      try {
        return this.opened.companion.decodeBlock(listing.index, block);
      } catch (error) {
        if (!(error instanceof CompanionError)) throw error;
        this.emit({ type: 'companion', error: `${error.message}; the chunk is shown without its fields` });
        return null;
      }
    }

    // Once the stream is read: the fields of the chunks delivered without them, as `fields` events.
    async finish(listed) {
      if (this.opened === null) return;
      for (const listing of this.waiting.splice(0)) this.checkChunk(listing);
      const missing = [...new Set(this.missing.splice(0))].filter((k) => listed[k]).sort((a, b) => a - b);
      if (!this.active || missing.length === 0) return;
      await this.fetchBlocks(missing);
      for (const index of missing) {
        const fields = this.fieldsOf(listed[index]);
        if (fields) this.emit({ type: 'fields', index, fields });
      }
    }
  }

  // Loads a cloud. `source` is {bytes}, {file} or {url}, with `companion` as openCompanion takes
  // it; its fields come in the chunk events, or, for chunks delivered before their blocks were
  // read, in `fields` events. Options: box {min, max}, budget
  // (points), maxChunkPoints, firstRange (bytes), stallMs, views (a chunk event's arrays are views
  // into the decoder's memory, valid during the event only). Events: header {info, fileSize}, chunk {listing,
  // points}, listed {chunks} (the whole index, when it was walked), note {message}, damage
  // {damage}, done {stats}. Resolves when everything chosen is decoded; rejects for a file that
  // cannot be read at all (its head is damaged, the server fails).
  async function load(wasm, source, options, emit) {
    const decoder = new Decoder(wasm, options);
    const counter = new Counter(options.stallMs);
    const link = new CompanionLink(emit, source.file ? source.file.name : source.url ? baseName(source.url) : (source.name || 'the stream'));
    // From a URL the companion's head is read while the stream's first bytes arrive.
    const companionCounter = new Counter(options.stallMs);
    const companionOpened = openCompanion(wasm, source, companionCounter, emit);
    if (!source.url) link.open(await companionOpened);
    const chooser = new Chooser(options, emit);
    const stats = { requests: 0, bytes: 0, firstPoints: null, mode: null };
    const listed = [];
    let header = null;

    const deliver = (listing, bytes) => {
      listed[listing.index] = Object.assign({}, listing);
      if (!bytes) {
        link.checkChunk(listing);
        return;
      }
      let points;
      try {
        points = decoder.decodeChunk(bytes, `chunk ${listing.index} at byte ${listing.offset}`, listing.numPoints, !options.views);
      } catch (error) {
        if (!(error instanceof ZulError)) throw error;
        emit({ type: 'damage', damage: { status: error.status, message: error.message, chunk: listing.index, offset: listing.offset } });
        return;
      }
      if (!stats.firstPoints) {
        stats.firstPoints = { requests: counter.requests, bytes: counter.bytes, companionRequests: companionCounter.requests };
      }
      points.fields = link.fieldsOf(listing) || {};
      emit({ type: 'chunk', listing, points });
    };
    const walker = new StreamWalker(decoder, {
      onHeader: (info, firstChunk) => {
        header = info;
        emit({ type: 'header', info, fileSize: chooser.fileSize });
        link.checkHead(decoder.syncMarker, firstChunk, chooser.fileSize);
      },
      wantBody: (listing) => chooser.wants(listing),
      onChunk: deliver,
      onDamage: (damage) => emit({ type: 'damage', damage }),
      resync: true,
    });
    const finishWalk = () => {
      if (walker.fileError) throw walker.fileError;
    };

    try {
      if (source.bytes) {
        stats.mode = 'bytes';
        chooser.fileSize = source.bytes.length;
        walker.push(source.bytes);
        walker.end();
        finishWalk();
      } else if (source.file) {
        stats.mode = 'file';
        chooser.fileSize = source.file.size;
        const reader = source.file.stream().getReader();
        for (;;) {
          const part = await reader.read();
          if (part.done || walker.stopped) break;
          walker.push(part.value);
        }
        walker.end();
        finishWalk();
      } else {
        await loadUrl(source.url, options, walker, chooser, counter, stats, emit, deliver, decoder, listed, link, companionOpened);
        finishWalk();
      }
      await link.finish(listed);
      if (chooser.skippedForBudget > 0) {
        emit({ type: 'note', sampled: true, message: `${chooser.skippedForBudget} chunks left out: the point budget of ${chooser.budget.toLocaleString('en')} is reached` });
      }
    } finally {
      decoder.close();
      stats.requests = counter.requests + companionCounter.requests;
      stats.companionRequests = companionCounter.requests;
      stats.headerRequests = counter.headerRequests;
      stats.chunkRequests = counter.chunkRequests;
      stats.bytes = counter.bytes + companionCounter.bytes;
      stats.header = header;
    }
    emit({ type: 'done', stats });
    return stats;
  }

  async function loadUrl(url, options, walker, chooser, counter, stats, emit, deliver, decoder, listed, link, companionOpened) {
    const firstRange = options.firstRange || FIRST_RANGE;
    const first = await request(url, [0, firstRange - 1], counter);
    chooser.fileSize = first.total;
    const openLink = async () => { if (link.opened === null) link.open(await companionOpened); };
    if (!first.partial) {
      stats.mode = 'stream';
      emit({ type: 'note', message: 'the server sends the whole file (no range support): reading it as it arrives' });
      await readBody(first.response, (b) => walker.push(b), first.controller, counter);
      walker.end();
      await openLink();
      return;
    }
    stats.mode = 'range';
    await readBody(first.response, (b) => walker.push(b), first.controller, counter);
    const fileSize = first.total;
    await openLink();
    if (walker.stopped) return;
    const reached = walker.position;
    const received = counter.bytes;
    if (fileSize === null ? received < firstRange : reached >= fileSize) {
      walker.end();
      return;
    }
    // Without the file's size (another origin that does not expose Content-Range) the chunk
    // headers cannot be walked to the end: the rest is read as one stream, the choice made on it.
    // After damage the walk has no chunk boundary to go on from by offset: also one stream.
    if (fileSize === null || walker.state === 'resync' || (!chooser.box && chooser.stride === 1)) {
      // Everything is wanted: the rest of the file in one request, walked as it arrives.
      const rest = await request(url, [reached], counter);
      if (!rest.partial) throw new Error(`${url}: the server answered a range request with the whole file`);
      await readBody(rest.response, (b) => walker.push(b), rest.controller, counter);
      walker.end();
      return;
    }
    // A box or a sample: the chunk headers one by one from the first chunk not wholly read, then
    // the chosen chunks by range, runs of neighbours in one request.
    let next = walker.state === 'body' || walker.skipping > 0 ? walker.listing.index : walker.chunkIndex;
    let offset = walker.state === 'body' || walker.skipping > 0 ? walker.listing.offset : walker.offset;
    const headSize = 16 + decoder.info.chunkHeaderSize;
    const wanted = [];
    if (walker.state === 'body') {
      listed[next] = Object.assign({}, walker.listing);
      wanted.push(walker.listing);
    }
    let damage = null;
    // With a companion bound to the stream, its index lists the chunks: no header is read.
    const index = link.active ? link.opened.companion.chunks : null;
    while (offset < fileSize && !damage) {
      let listing = listed[next] && listed[next].offset === offset ? listed[next] : null;
      if (!listing && index && link.active && index[next] && index[next].offset === offset) {
        const c = index[next];
        listing = { index: next, offset: c.offset, size: c.size, numPoints: c.numPoints, bodySize: c.size - headSize,
          gridMin: c.gridMin.slice(), gridMax: c.gridMax.slice(), min: c.min.slice(), max: c.max.slice(), fromCompanion: true };
        listed[next] = Object.assign({}, listing);
        if (chooser.wants(listing)) wanted.push(listing);
      } else if (!listing) {
        const head = await fetchRange(url, offset, Math.min(offset + headSize, fileSize), counter);
        counter.headerRequests += 1;
        ({ listing, damage } = listHead(decoder, head, next, offset, fileSize));
        if (damage) break;
        listed[next] = Object.assign({}, listing);
        if (chooser.wants(listing)) wanted.push(listing);
      }
      offset += listing.size;
      next += 1;
    }
    emit({ type: 'listed', chunks: listed.filter(Boolean) });
    // The blocks of every chosen chunk first: near each other, they come in one or few reads.
    if (link.active) await link.fetchBlocks(wanted.map((c) => c.index));
    for (let k = 0; k < wanted.length;) {
      let end = k + 1;
      while (end < wanted.length && wanted[end].offset === wanted[end - 1].offset + wanted[end - 1].size) end += 1;
      const from = wanted[k].offset;
      const to = wanted[end - 1].offset + wanted[end - 1].size;
      const bytes = await fetchRange(url, from, to, counter);
      counter.chunkRequests += 1;
      for (let j = k; j < end; ++j) {
        const c = wanted[j];
        if (c.offset + c.size - from > bytes.length) {
          emit({ type: 'damage', damage: { status: 3, message: `chunk ${c.index} at byte ${c.offset}: truncated (the file shrank)`, chunk: c.index, offset: c.offset } });
          break;
        }
        const chunkBytes = bytes.subarray(c.offset - from, c.offset - from + c.size);
        if (c.fromCompanion) confirmListing(decoder, c, chunkBytes, link);
        deliver(c, chunkBytes);
      }
      k = end;
    }
    if (damage) emit({ type: 'damage', damage });
  }

  // A listing taken from the companion's index, compared with the chunk's own header once its
  // bytes are read: a chunk of another box or count refuses the companion (the chunk is then
  // decoded by its own header).
  function confirmListing(decoder, listing, bytes, link) {
    let head;
    try {
      head = decoder.chunkHead(bytes.subarray(0, 16 + decoder.info.chunkHeaderSize), 'header');
    } catch (error) {
      if (!(error instanceof ZulError)) throw error;
      return;  // the decode names the damage
    }
    const own = Object.assign({}, listing, { numPoints: head.numPoints, gridMin: head.gridMin, gridMax: head.gridMax });
    if (!link.checkChunk(own)) Object.assign(listing, { numPoints: head.numPoints, min: head.min, max: head.max });
  }

  // The listing of chunk `index` from its head bytes (marker and header, or what the file holds of
  // them) at `offset`, or the damage that stops the walk there, judged as the native index judges.
  function listHead(decoder, head, index, offset, fileSize) {
    const headSize = 16 + decoder.info.chunkHeaderSize;
    try {
      if (head.length < 16 || !decoder.markerMatches(head)) throw new ZulError(head.length < 16 ? 3 : 7, 'marker');
      if (head.length < headSize) throw new ZulError(3, 'header');
      const h = decoder.chunkHead(head, 'header');
      const listing = Object.assign(h, { index, offset, size: headSize + h.bodySize });
      if (offset + listing.size > fileSize) throw new ZulError(3, 'body');
      return { listing, damage: null };
    } catch (error) {
      if (!(error instanceof ZulError)) throw error;
      const message = new ZulError(error.status, `chunk ${index} at byte ${offset}`).message;
      return { listing: null, damage: { status: error.status, message, chunk: index, offset } };
    }
  }

  // A zul file read by offset, for callers that choose chunks themselves: its head at open (one
  // read), its chunk list by walking the chunk headers (one small read each) or from its
  // companion's index, and the chunks asked for, decoded, neighbours in one read, with their
  // companion fields. Source: {bytes}, {file} or {url}, and `companion` as load takes it; a
  // server without range support gives the whole file at open, which is then read from memory.
  // `companion` holds what the companion's head says ({name, fields, ...}) and
  // `companionErrors` why it was left out.
  class ZulFile {
    static async open(wasm, source, options = {}) {
      const file = new ZulFile(wasm, options);
      try {
        await file.openSource(source);
      } catch (error) {
        file.close();
        throw error;
      }
      return file;
    }

    constructor(wasm, options) {
      this.wasm = wasm;
      this.companion = null;
      this.companionErrors = [];
      this.decoder = new Decoder(wasm, options);
      this.counter = new Counter(options.stallMs);
      this.listing = null;
    }

    async openSource(source) {
      const headBytes = 8 + 164;  // the signature and the largest file header
      let first;
      if (source.bytes) {
        this.useBytes(source.bytes);
      } else if (source.file) {
        this.size = source.file.size;
        this.read = async (from, to) => new Uint8Array(await source.file.slice(from, to).arrayBuffer());
      } else {
        const answer = await request(source.url, [0, headBytes - 1], this.counter);
        const parts = [];
        await readBody(answer.response, (b) => parts.push(b), answer.controller, this.counter);
        first = concat(parts);
        if (answer.partial && answer.total !== null) {
          this.size = answer.total;
          this.read = (from, to) => fetchRange(source.url, from, Math.min(to, this.size), this.counter);
        } else if (!answer.partial) {
          this.useBytes(first);
        } else {
          throw new Error(`${source.url}: the range answer does not tell the file's size (Content-Range not exposed)`);
        }
      }
      if (!first) first = await this.read(0, Math.min(headBytes, this.size));
      if (first.length < 8) throw new ZulError(3, 'signature');
      const headerSize = this.decoder.head(first.subarray(0, 8));
      if (first.length < 8 + headerSize) throw new ZulError(3, 'file header');
      this.header = this.decoder.fileHeader(first.subarray(8, 8 + headerSize));
      this.firstChunk = 8 + headerSize;
      const name = source.file ? source.file.name : source.url ? baseName(source.url) : (source.name || 'the stream');
      const emit = (event) => {
        if (event.error) this.companionErrors.push(event.error);
        else if (event.type === 'companion') this.companion = event;
      };
      this.link = new CompanionLink(emit, name);
      this.link.open(await openCompanion(this.wasm, source, this.counter, emit));
      this.link.checkHead(this.decoder.syncMarker, this.firstChunk, this.size);
    }

    useBytes(bytes) {
      this.size = bytes.length;
      this.read = async (from, to) => bytes.subarray(from, Math.min(to, bytes.length));
    }

    // Resolves to {chunks, damage}: every chunk listed up to the first that cannot be, and why;
    // from the companion's index when one is bound (no read; damage is then found at decoding).
    async listChunks() {
      if (this.listing) return this.listing;
      if (this.link.active) {
        const bodyFrom = 16 + this.header.chunkHeaderSize;
        const chunks = this.link.opened.companion.chunks.map((c) => ({ index: c.index, offset: c.offset, size: c.size,
          numPoints: c.numPoints, bodySize: c.size - bodyFrom, gridMin: c.gridMin.slice(), gridMax: c.gridMax.slice(),
          min: c.min.slice(), max: c.max.slice(), fromCompanion: true }));
        this.listing = { chunks, damage: null };
        return this.listing;
      }
      const chunks = [];
      const headSize = 16 + this.header.chunkHeaderSize;
      let damage = null;
      for (let offset = this.firstChunk; offset < this.size;) {
        const head = await this.read(offset, Math.min(offset + headSize, this.size));
        let listing;
        ({ listing, damage } = listHead(this.decoder, head, chunks.length, offset, this.size));
        if (damage) break;
        chunks.push(listing);
        offset += listing.size;
      }
      this.listing = { chunks, damage };
      return this.listing;
    }

    // Resolves to one entry a listed chunk number, in the order given: the listing and the points
    // (numPoints, positions Float64Array, colors, reflections, normals, fields), or the listing
    // and an `error` naming the damage.
    async decodeChunks(indices) {
      const { chunks } = await this.listChunks();
      for (const k of indices) {
        if (!Number.isInteger(k) || k < 0 || k >= chunks.length) throw new RangeError(`no chunk ${k} (${chunks.length} listed)`);
      }
      const out = [];
      for (let i = 0; i < indices.length;) {
        let end = i + 1;
        while (end < indices.length && indices[end] === indices[end - 1] + 1) end += 1;
        const from = chunks[indices[i]].offset;
        const last = chunks[indices[end - 1]];
        const bytes = await this.read(from, last.offset + last.size);
        if (this.link.active) await this.link.fetchBlocks(indices.slice(i, end));
        for (let j = i; j < end; ++j) {
          const c = chunks[indices[j]];
          const where = `chunk ${c.index} at byte ${c.offset}`;
          try {
            if (c.offset + c.size - from > bytes.length) throw new ZulError(3, where);
            const chunkBytes = bytes.subarray(c.offset - from, c.offset - from + c.size);
            if (c.fromCompanion) confirmListing(this.decoder, c, chunkBytes, this.link);
            const points = this.decoder.decodeChunk(chunkBytes, where, c.numPoints);
            points.fields = this.link.fieldsOf(c) || {};
            out.push(Object.assign({ listing: c }, points));
          } catch (error) {
            if (!(error instanceof ZulError)) throw error;
            out.push({ listing: c, error: error.message });
          }
        }
        i = end;
      }
      return out;
    }

    get requests() { return this.counter.requests; }

    close() { this.decoder.close(); }
  }

  const api = { load, ZulFile, FIRST_RANGE };
  if (typeof module === 'object' && module.exports) module.exports = api;
  else root.ZulLoader = api;
})(typeof self !== 'undefined' ? self : this);
