// The WebAssembly decoder against the native library, on the shared clouds compressed by the tool:
// every array bit for bit, the chunk listing (offsets, sizes, counts, boxes) value for value, the
// same result whatever slices the bytes arrive in, and damaged streams cut where the native index
// cuts them.
// Environment: ZUL_TOOL (the zul program), ZUL_REFERENCE (reference_dump), ZUL_WEB_ROOT (the built
// web folder), ZUL_DATA (the shared clouds), ZUL_WEB_SCRATCH (a folder for the files made).
'use strict';
const assert = require('assert');
const { execFileSync } = require('child_process');
const fs = require('fs');
const http = require('http');
const path = require('path');

const env = (name) => { if (!process.env[name]) throw new Error(`${name} is not set`); return process.env[name]; };
const tool = env('ZUL_TOOL');
const reference = env('ZUL_REFERENCE');
const root = env('ZUL_WEB_ROOT');
const data = env('ZUL_DATA');
const scratch = fs.mkdtempSync(path.join(env('ZUL_WEB_SCRATCH'), 'decoder-'));
const zul = require(path.join(root, 'src', 'zul_node.js'));
const { ZulFile } = require(path.join(root, 'src', 'zul_loader.js'));

// Each cloud with the options that give it every attribute it has, in several chunks.
const CASES = [
  ['sample_c.las', ['--chunk', '1500']],                                  // colour, reflection, scaled + translated
  ['1.2-with-color.las', ['--chunk', '300', '--color', 'rgb565']],
  ['4_6_crop.las', ['--chunk', '4000']],
  ['colored_cloud.pcd', ['--normals', '--chunk', '200']],                  // colour, normals
  ['bun0.pcd', ['--normals', '--chunk', '150']],                           // normals
  ['cturtle.pcd', ['--chunk', '5000', '--rotate', '0', '-1', '0', '1', '0', '0', '0', '0', '1',
                   '--translate', '10.5', '-3', '7']],                     // reflection, rotated
  ['table_scene_mug_stereo_textured.pcd', ['--chunk', '20000']],
];
const ARRAYS = [['positions', 8], ['colors', 1], ['reflections', 4], ['normals', 4]];

function nativeDecode(file) {
  const prefix = path.join(scratch, path.basename(file));
  const listing = JSON.parse(execFileSync(reference, [file, prefix], { encoding: 'utf8' }));
  for (const [name] of ARRAYS) {
    const raw = prefix + '.' + name;
    listing[name] = fs.existsSync(raw) ? fs.readFileSync(raw) : null;
  }
  return listing;
}

// The concatenated bytes of one array over the decoded chunks.
function joined(chunks, name) {
  const parts = chunks.filter((c) => c[name]).map((c) => Buffer.from(c[name].buffer, c[name].byteOffset, c[name].byteLength));
  return parts.length ? Buffer.concat(parts) : null;
}

function checkAgainst(native, result, file) {
  const decoded = result.chunks.filter((c) => c.positions);
  for (const [name] of ARRAYS) {
    const ours = joined(decoded, name);
    if (native[name] === null) assert.strictEqual(ours, null, `${file}: ${name} present`);
    else assert.ok(native[name].equals(ours), `${file}: ${name} differ`);
  }
  assert.strictEqual(result.chunks.length, native.chunks.length, `${file}: chunk count`);
  result.chunks.forEach((c, k) => {
    const n = native.chunks[k];
    for (const key of ['offset', 'size', 'numPoints']) assert.strictEqual(c[key], n[key], `${file}: chunk ${k} ${key}`);
    assert.deepStrictEqual([c.min, c.max], [n.min, n.max], `${file}: chunk ${k} box`);
  });
}

function pieces(bytes, seed) {
  const out = [];
  let state = seed;
  for (let at = 0; at < bytes.length;) {
    state = (state * 1103515245 + 12345) % 2147483648;
    const size = 1 + (state % 3000);
    out.push(bytes.subarray(at, at + size));
    at += size;
  }
  return out;
}

// The companion reader against the C library's: companions written by companion_make (every
// column type with the input's order kept, or a LAS-like set), read by ZulFile from bytes and by
// range requests, every field bit for bit what zul_xin_readColumn gives; and companions that
// must be refused or named as damaged.
const COMPANIONS = [
  // stream, its options, companion kind, head requests by URL (the second when the head is long)
  ['sample_c.las', ['--chunk', '1500'], 'all', 1],
  ['colored_cloud.pcd', ['--chunk', '200'], 'las', 1],
  ['4_6_crop.las', ['--chunk', '50'], 'las', 2],
];
const TYPED = { 1: 1, 2: 1, 3: 2, 4: 2, 5: 4, 6: 4, 7: 8, 8: 8, 9: 4, 10: 8 };
async function companionRows(wasm, server) {
  const port = server.address().port;
  const made = {};
  for (const [name, options, kind, headRequests] of COMPANIONS) {
    const stream = path.join(scratch, `x-${name}.zul`);
    execFileSync(tool, ['compress', '-q', '-f', '--no-companion', ...options, path.join(data, name), stream]);
    const prefix = path.join(scratch, `x-${name}`);
    const native = JSON.parse(execFileSync(env('ZUL_COMPANION'), [stream, stream + 'x', prefix, kind], { encoding: 'utf8' }));
    made[name] = stream;
    const sources = [['bytes', { bytes: new Uint8Array(fs.readFileSync(stream)), companion: new Uint8Array(fs.readFileSync(stream + 'x')) }],
      ['url', { url: `http://127.0.0.1:${port}/x-${name}.zul` }]];
    for (const [how, source] of sources) {
      const opened = await ZulFile.open(wasm, source);
      assert.deepStrictEqual(opened.companionErrors, [], `${name} by ${how}`);
      assert.deepStrictEqual(opened.companion.fields.map((f) => f.name), native.fields.map((f) => f.name));
      const { chunks } = await opened.listChunks();
      assert.strictEqual(chunks.length, native.chunks);
      const decoded = await opened.decodeChunks(chunks.map((c) => c.index));
      for (const f of native.fields) {
        const parts = decoded.map((d) => d.fields[f.name]);
        parts.forEach((p) => assert.ok(f.type === 11 ? p instanceof Uint8Array : p.BYTES_PER_ELEMENT === TYPED[f.type], `${name}: ${f.name} type`));
        const ours = Buffer.concat(parts.map((p) => Buffer.from(p.buffer, p.byteOffset, p.byteLength)));
        assert.ok(ours.equals(fs.readFileSync(`${prefix}.${f.name}`)), `${name} by ${how}: ${f.name} differs`);
      }
      // By URL: the stream's head, the companion's head, then one read of the chunks and one of
      // their blocks; no chunk header read.
      if (how === 'url') assert.strictEqual(opened.requests, 1 + headRequests + 2, `${name}: requests`);
      opened.close();
    }
  }
  // Refused or damaged: [what, stream, companion bytes (changed), the message expected, by
  // ZulFile's open (head) or at a chunk's decoding (block)].
  const companionOf = (name) => new Uint8Array(fs.readFileSync(made[name] + 'x'));
  const flip = (bytes, at) => { const b = bytes.slice(); b[at] ^= 0x10; return b; };
  const sampleX = companionOf('sample_c.las');
  const firstBlock = Number(new DataView(sampleX.buffer).getBigInt64(112 + 128, true));
  const BAD = [
    ['another stream', '4_6_crop.las', sampleX, /^x-4_6_crop\.las\.zulx? does not belong to x-4_6_crop\.las\.zul: another sync marker/, 'head'],
    ['a truncated stream', 'cut', sampleX, /does not belong to .*: a stream of \d+ bytes, not \d+/, 'head'],
    ['a truncated companion', 'sample_c.las', sampleX.slice(0, sampleX.length - 40), /truncated/, 'head'],
    ['a damaged head', 'sample_c.las', flip(sampleX, 300), /corrupt data \(the head's checksum differs\)/, 'head'],
    ['a damaged block', 'sample_c.las', flip(sampleX, firstBlock + 20), /chunk 0's block at byte \d+: corrupt data \(checksum\)/, 'block'],
    ['not a companion', 'sample_c.las', new Uint8Array(fs.readFileSync(made['4_6_crop.las'])), /not a companion file/, 'head'],
  ];
  const cutStream = fs.readFileSync(made['sample_c.las']);
  for (const [what, streamName, companion, pattern, where] of BAD) {
    const bytes = streamName === 'cut' ? new Uint8Array(cutStream.subarray(0, cutStream.length - 7)) : new Uint8Array(fs.readFileSync(made[streamName]));
    const opened = await ZulFile.open(wasm, { bytes, companion, name: path.basename(made[streamName === 'cut' ? 'sample_c.las' : streamName]),
      companionName: path.basename(made[streamName === 'cut' ? 'sample_c.las' : streamName]) + 'x' });
    const { chunks } = await opened.listChunks();
    const decoded = await opened.decodeChunks([0, 1]);
    const errors = opened.companionErrors;
    assert.strictEqual(errors.length, 1, `${what}: ${errors.join('; ')}`);
    assert.match(errors[0], pattern, what);
    // The points are there all the same; the fields of the damaged or refused part are not.
    assert.ok(chunks.length > 1 && decoded.every((d) => d.positions), `${what}: points`);
    assert.deepStrictEqual(Object.keys(decoded[0].fields), [], `${what}: fields of chunk 0`);
    assert.strictEqual(Object.keys(decoded[1].fields).length, where === 'block' ? 12 : 0, `${what}: fields of chunk 1`);
    opened.close();
  }
  // Every prefix of a companion, and a bit flipped in every byte: a CompanionError naming the
  // file, or (a flip in a block) the block named when it is decoded; never another error.
  const { Companion, CompanionError } = require(path.join(root, 'src', 'zul_companion.js'));
  const small = companionOf('colored_cloud.pcd');
  const tryAll = (bytes) => {
    try {
      const c = new Companion(wasm, bytes, bytes.length, 'c.zulx');
      c.chunks.forEach((k) => c.decodeBlock(k.index, bytes.subarray(k.blockOffset, k.blockOffset + k.blockSize)));
      return 'read';
    } catch (error) {
      if (!(error instanceof CompanionError) || !error.message.startsWith('c.zulx: ')) throw error;
      return 'refused';
    }
  };
  for (let n = 0; n < small.length; ++n) assert.strictEqual(tryAll(small.subarray(0, n)), 'refused', `prefix of ${n} bytes`);
  for (let at = 0; at < small.length; ++at) {
    const flipped = small.slice();
    flipped[at] ^= 1 << (at % 8);
    // Only the metadata, which the page does not read, may change unnoticed.
    if (tryAll(flipped) === 'read') assert.ok(at >= Number(new DataView(small.buffer).getBigInt64(80, true)), `a flip at byte ${at} unnoticed`);
  }
  return `${COMPANIONS.length} companions read field for field as the C library reads them, ${BAD.length} refused or named as damaged`;
}

(async () => {
  const wasm = await zul.loadWasm();
  let checked = 0;
  for (const [name, options] of CASES) {
    const source = path.join(data, name);
    const file = path.join(scratch, name + '.zul');
    execFileSync(tool, ['compress', '-q', '-f', '--no-companion', ...options, source, file]);
    const bytes = new Uint8Array(fs.readFileSync(file));
    const native = nativeDecode(file);
    assert.ok(native.chunks.length > 1, `${name}: one chunk only`);
    const whole = zul.decodeBytes(wasm, bytes);
    assert.strictEqual(whole.damage, null, `${name}: damage ${JSON.stringify(whole.damage)}`);
    checkAgainst(native, whole, name);

    // The same stream in slices of 1 to 3000 bytes, as a download hands them over.
    const decoder = new zul.Decoder(wasm);
    const chunks = [];
    const walker = new zul.StreamWalker(decoder, {
      onChunk: (listing, b) => chunks.push(Object.assign(listing, decoder.decodeChunk(b, 'chunk'))),
    });
    for (const piece of pieces(bytes, checked + 7)) walker.push(piece);
    walker.end();
    decoder.close();
    assert.strictEqual(walker.damage, null);
    checkAgainst(native, { chunks }, name + ' in slices');
    checked += 1;

    // Cut inside the last chunk, and a sync marker broken in chunk 1: the intact chunks before
    // the damage, as the native bulk decoder delivers them, and the damage named at that chunk.
    const last = native.chunks[native.chunks.length - 1];
    const damaged = [
      ['truncated', bytes.slice(0, last.offset + Math.floor(last.size / 2)), 3, native.chunks.length - 1],
      ['bad marker', (() => { const b = bytes.slice(); b[native.chunks[1].offset + 5] ^= 0xff; return b; })(), 7, 1],
      ['cut in a header', bytes.slice(0, native.chunks[2].offset + 20), 3, 2],
    ];
    for (const [kind, broken, status, chunk] of damaged) {
      const brokenFile = file + '.' + kind.replace(/ /g, '_');
      fs.writeFileSync(brokenFile, broken);
      const nativeBroken = nativeDecode(brokenFile);
      assert.strictEqual(nativeBroken.status, status, `${name} ${kind}: native status`);
      const result = zul.decodeBytes(wasm, broken);
      assert.ok(result.damage, `${name} ${kind}: no damage found`);
      assert.strictEqual(result.damage.status, status, `${name} ${kind}: ${result.damage.message}`);
      assert.strictEqual(result.damage.chunk, chunk, `${name} ${kind}: damaged chunk`);
      assert.match(result.damage.message, new RegExp(`chunk ${chunk} at byte ${native.chunks[chunk].offset}`));
      checkAgainst(nativeBroken, result, `${name} ${kind}`);
    }
    // With resync, a broken marker costs its chunk alone: every other chunk as the native decoder
    // gives it, numbered as the walk counts them.
    const broken = damaged[1][1];
    const resynced = zul.decodeBytes(wasm, broken, { resync: true });
    assert.strictEqual(resynced.damages.length, 1);
    assert.match(resynced.damage.message, new RegExp(`chunk 1 at byte ${native.chunks[1].offset}: corrupt data; read on from the next chunk found, at byte ${native.chunks[2].offset}`));
    const kept = native.chunks.filter((c, k) => k !== 1);
    const first = [0];
    native.chunks.forEach((c) => first.push(first[first.length - 1] + c.numPoints));
    const without = {};
    for (const [array, bytesPerValue] of ARRAYS) {
      const width = (array === 'reflections' ? 1 : 3) * bytesPerValue;
      without[array] = native[array] && Buffer.concat([native[array].subarray(0, first[1] * width), native[array].subarray(first[2] * width)]);
    }
    checkAgainst(Object.assign(without, { chunks: kept }),
      resynced, `${name} resynced`);
  }
  // ZulFile: the chunk list by walking headers, and chosen chunks decoded, from bytes and by
  // range requests, whole and truncated.
  const served = [];
  const server = http.createServer((req, res) => {
    const name = path.join(scratch, decodeURIComponent(req.url.slice(1)));
    served.push(req.url);
    if (!fs.existsSync(name)) { res.writeHead(404); res.end(); return; }
    const bytes = fs.readFileSync(name);
    const [, from, to] = /^bytes=(\d+)-(\d+)$/.exec(req.headers.range);
    const last = Math.min(Number(to), bytes.length - 1);
    res.writeHead(206, { 'Content-Range': `bytes ${from}-${last}/${bytes.length}` });
    res.end(bytes.subarray(Number(from), last + 1));
  });
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  for (const name of ['sample_c.las.zul', 'sample_c.las.zul.truncated', 'colored_cloud.pcd.zul']) {
    const file = path.join(scratch, name);
    const native = nativeDecode(file);
    const sources = [['bytes', { bytes: new Uint8Array(fs.readFileSync(file)) }], ['url', { url: `http://127.0.0.1:${server.address().port}/${name}` }]];
    for (const [kind, source] of sources) {
      const opened = await ZulFile.open(wasm, source);
      const { chunks, damage } = await opened.listChunks();
      assert.strictEqual(damage === null, native.status === 0, `${name} by ${kind}: damage ${JSON.stringify(damage)}`);
      if (damage) assert.strictEqual(damage.chunk, native.failedChunk, `${name} by ${kind}: damaged chunk`);
      const listed = damage ? native.chunks.slice(0, native.failedChunk) : native.chunks;
      checkAgainst({ chunks: listed, positions: null, colors: null, reflections: null, normals: null }, { chunks }, `${name} by ${kind}`);
      const pick = [chunks.length - 1, 0, 1, 2, 4];
      const decoded = await opened.decodeChunks(pick);
      const first = [0];
      listed.forEach((c) => first.push(first[first.length - 1] + c.numPoints));
      pick.forEach((k, i) => {
        for (const [array, bytesPerValue, perPoint] of [['positions', 8, 3], ['colors', 1, 3], ['reflections', 4, 1], ['normals', 4, 3]]) {
          if (!native[array]) continue;
          const width = bytesPerValue * perPoint;
          const expected = native[array].subarray(first[k] * width, first[k + 1] * width);
          const got = decoded[i][array];
          assert.ok(expected.equals(Buffer.from(got.buffer, got.byteOffset, got.byteLength)), `${name} by ${kind}: chunk ${k} ${array}`);
        }
      });
      if (kind === 'url') {
        // The head, the companion looked for (none), the headers one by one, three runs.
        assert.strictEqual(opened.requests, 2 + chunks.length + (damage ? 1 : 0) + 3, `${name}: requests`);
      }
      opened.close();
    }
  }
  const companionSummary = await companionRows(wasm, server);
  server.close();

  // Not a zul file, and one cut inside its file header: refused, nothing listed.
  for (const [bytes, pattern] of [[fs.readFileSync(path.join(data, 'bun0.pcd')), /bad signature/],
    [fs.readFileSync(path.join(scratch, 'bun0.pcd.zul')).subarray(0, 20), /file header: truncated/]]) {
    assert.throws(() => zul.decodeBytes(wasm, new Uint8Array(bytes)), pattern);
  }
  // A chunk of more points than the decoder is allowed is refused before anything is allocated.
  const small = new Uint8Array(fs.readFileSync(path.join(scratch, 'bun0.pcd.zul')));
  assert.throws(() => zul.decodeBytes(wasm, small, { maxChunkPoints: 100 }), /more than the 100/);
  console.log(`decoder: ${checked} clouds bit-identical to the native decoder, damage and slices checked; ${companionSummary}`);
  fs.rmSync(scratch, { recursive: true, force: true });
})().catch((error) => { console.error(error); process.exit(1); });
