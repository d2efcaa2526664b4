// The viewer page in headless Chromium (Debian's, driven by playwright-core), against a test server
// that serves the page and the files with or without range support and logs every request: the
// page's window.zulView is checked against `zul info` and the native index, request by request.
// Environment: as decoder.test.js, and ZUL_CHROMIUM (the browser).
'use strict';
const assert = require('assert');
const { execFileSync, spawn } = require('child_process');
const fs = require('fs');
const http = require('http');
const os = require('os');
const path = require('path');
const { chromium } = require('playwright-core');

const env = (name) => { if (!process.env[name]) throw new Error(`${name} is not set`); return process.env[name]; };
const tool = env('ZUL_TOOL');
const root = env('ZUL_WEB_ROOT');
const data = env('ZUL_DATA');
const scratch = fs.mkdtempSync(path.join(env('ZUL_WEB_SCRATCH'), 'page-'));

// ---- the files ----
const sample = path.join(scratch, 'sample.zul');
execFileSync(tool, ['compress', '-q', '-f', '--no-companion', '--chunk', '500', path.join(data, 'sample_c.las'), sample]);
const info = JSON.parse(execFileSync(tool, ['info', '--json', sample], { encoding: 'utf8' }));
const listing = JSON.parse(execFileSync(env('ZUL_REFERENCE'), [sample, path.join(scratch, 'dump')], { encoding: 'utf8' })).chunks;
const cut = listing[Math.floor(listing.length / 2)];
fs.writeFileSync(path.join(scratch, 'cut.zul'), fs.readFileSync(sample).subarray(0, cut.offset + 100));
fs.copyFileSync(path.join(data, 'bun0.pcd'), path.join(scratch, 'bun0.pcd'));
const marked = fs.readFileSync(sample);
marked[cut.offset + 3] ^= 0xff;  // the sync marker of the middle chunk
fs.writeFileSync(path.join(scratch, 'marker.zul'), marked);
// Companions (classification, gps_time, return_number) by the C library: one that belongs to its
// stream, one beside another stream (another cutting of the same points: the same sync marker, as
// compress draws it from the points, but other chunks), one with a damaged block (chunk 2's).
const withx = path.join(scratch, 'withx.zul');
fs.copyFileSync(sample, withx);
const companionFields = JSON.parse(execFileSync(env('ZUL_COMPANION'), [withx, withx + 'x', path.join(scratch, 'withx'), 'las'], { encoding: 'utf8' })).fields;
const fieldDump = (name) => fs.readFileSync(path.join(scratch, `withx.${name}`));
execFileSync(tool, ['compress', '-q', '-f', '--no-companion', '--chunk', '700', path.join(data, 'sample_c.las'), path.join(scratch, 'other.zul')]);
fs.copyFileSync(withx + 'x', path.join(scratch, 'other.zulx'));
fs.copyFileSync(sample, path.join(scratch, 'damagedx.zul'));
const damagedX = fs.readFileSync(withx + 'x');
const block2 = Number(damagedX.readBigInt64LE(112 + 2 * 152 + 128));
damagedX[block2 + 12] ^= 0x40;
fs.writeFileSync(path.join(scratch, 'damagedx.zulx'), damagedX);

// ---- the test server: /web/ the page, /range/ files with ranges, /plain/ files without ----
const log = [];
const stalled = [];
const TYPES = { '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.wasm': 'application/wasm' };
const server = http.createServer((req, res) => {
  const url = new URL(req.url, 'http://x');
  const [, kind, ...rest] = url.pathname.split('/');
  const base = kind === 'web' ? root : scratch;
  const file = path.join(base, ...rest.map(decodeURIComponent));
  if (!file.startsWith(base) || !fs.existsSync(file) || !fs.statSync(file).isFile()) { res.writeHead(404); res.end(); return; }
  const bytes = fs.readFileSync(file);
  const type = TYPES[path.extname(file)] || 'application/octet-stream';
  const range = /^bytes=(\d+)-(\d*)$/.exec(req.headers.range || '');
  if (kind !== 'web') log.push({ path: url.pathname, range: req.headers.range || null });
  if (kind === 'error') { res.writeHead(500); res.end(); return; }
  if (kind === 'stall') {  // half the file, then nothing
    res.writeHead(200, { 'Content-Type': type, 'Content-Length': bytes.length });
    res.write(bytes.subarray(0, bytes.length >> 1));
    stalled.push(res);
    return;
  }
  if ((kind === 'range' || kind === 'sizeless') && range) {
    const from = Number(range[1]);
    const to = Math.min(range[2] ? Number(range[2]) : bytes.length - 1, bytes.length - 1);
    if (from >= bytes.length) { res.writeHead(416, { 'Content-Range': `bytes */${bytes.length}` }); res.end(); return; }
    // 'sizeless': what a page sees of another origin that does not expose Content-Range
    const size = kind === 'range' ? { 'Content-Range': `bytes ${from}-${to}/${bytes.length}` } : {};
    res.writeHead(206, { 'Content-Type': type, ...size, 'Accept-Ranges': 'bytes', 'Content-Length': to - from + 1 });
    res.end(bytes.subarray(from, to + 1));
    return;
  }
  res.writeHead(200, { 'Content-Type': type, 'Content-Length': bytes.length });
  res.end(bytes);
});

const near = (a, b, tolerance) => Math.abs(a - b) <= tolerance;
function checkBounds(bounds, min, max, what) {
  for (let a = 0; a < 3; ++a) {
    assert.ok(near(bounds.min[a], min[a], info.step / 2), `${what}: min ${bounds.min} against ${min}`);
    assert.ok(near(bounds.max[a], max[a], info.step / 2), `${what}: max ${bounds.max} against ${max}`);
  }
}

// The rows: a page address, and what window.zulView and the server's log must show.
const total = listing.reduce((s, c) => s + c.numPoints, 0);
const firstCut = listing.length / 2 | 0;
const pick = listing[Math.floor(listing.length * 0.7)];
const centre = pick.min.map((v, a) => (v + pick.max[a]) / 2);
const box = { min: centre.map((v) => v - 0.05), max: centre.map((v) => v + 0.05) };
const inBox = listing.filter((c) => [0, 1, 2].every((a) => c.max[a] >= box.min[a] && c.min[a] <= box.max[a]));
const boxQuery = `&first=1024&box=${[...box.min, ...box.max].join(',')}`;
let boxRequests = null;  // requests of the box load without a companion

// The companion's fields as the page loaded them: named and typed, one value a point, bit for bit
// the C library's; with `colour=classification` each class drawn in a colour of its own.
function checkFields(v, points) {
  assert.strictEqual(v.companion.name, 'withx.zulx');
  assert.deepStrictEqual(v.companion.fields.map((f) => [f.name, f.type, f.count]), [['classification', 'u8', points], ['gps_time', 'f64', points], ['return_number', 'u8', points]]);
  for (const f of companionFields) {
    if (points === info.points) assert.ok(Buffer.from(v.decoded.fields[f.name], 'base64').equals(fieldDump(f.name)), `${f.name} differs`);
  }
  assert.ok(v.fields.includes('classification') && v.fields.includes('gps_time'), v.fields.join());
}
function checkClassColours(v) {
  const classes = Buffer.from(v.decoded.fields.classification, 'base64');
  const drawn = Buffer.from(v.decoded.drawnColours, 'base64');
  const colourOf = new Map();
  classes.forEach((k, i) => {
    const colour = drawn.readUIntBE(3 * i, 3);
    if (!colourOf.has(k)) colourOf.set(k, colour);
    assert.strictEqual(colourOf.get(k), colour, `point ${i} of class ${k}`);
  });
  assert.ok(colourOf.size >= 3 && new Set(colourOf.values()).size === colourOf.size, `classes ${[...colourOf.keys()]}`);
  assert.strictEqual(colourOf.get(2), 0xa6703c, 'ground is drawn in the LAS palette\'s brown');
}
const ROWS = [
  ['whole file by ranges', '/range/sample.zul', '&first=4096&exact', (v, requests) => {
    // The arrays the worker decoded, bit for bit the native decoder's.
    for (const name of ['positions', 'colors', 'reflections']) {
      assert.ok(Buffer.from(v.decoded[name], 'base64').equals(fs.readFileSync(path.join(scratch, 'dump.' + name))), `${name} differ`);
    }
    assert.strictEqual(v.decoded.normals, undefined);
    assert.strictEqual(v.points, info.points);
    assert.strictEqual(v.chunksLoaded, info.chunks);
    checkBounds(v.bounds, info.bounds.min, info.bounds.max, 'bounds');
    assert.strictEqual(v.step, info.step);
    assert.deepStrictEqual(v.fields, ['position', 'colour', 'intensity']);
    assert.deepStrictEqual(v.errors, []);
    assert.strictEqual(v.stats.mode, 'range');
    assert.ok(v.stats.firstPoints.requests === 1, `first points after ${v.stats.firstPoints.requests} requests`);
    assert.deepStrictEqual(requests.map((r) => r.range), ['bytes=0-4095', `bytes=${requests.length > 1 ? /^bytes=(\d+)-$/.exec(requests[1].range)[1] : ''}-`]);
  }],
  ['a box', '/range/sample.zul', boxQuery, (v, requests) => {
    boxRequests = requests.length;
    assert.ok(inBox.length >= 1 && inBox.length < listing.length / 2, `${inBox.length} chunks meet the box`);
    assert.deepStrictEqual(v.chunks.slice().sort((a, b) => a - b), inBox.map((c) => listing.indexOf(c)));
    assert.strictEqual(v.points, inBox.reduce((s, c) => s + c.numPoints, 0));
    assert.strictEqual(v.chunksListed, listing.length);
    // After the first request: chunk headers alone, and the chosen chunks in runs of neighbours.
    const bodies = requests.slice(1).map((r) => /^bytes=(\d+)-(\d+)$/.exec(r.range)).map((m) => [Number(m[1]), Number(m[2]) + 1])
      .filter(([from, to]) => to - from !== 16 + v.chunkHeaderSize);
    const fetched = new Set();
    for (const [from, to] of bodies) {
      const run = listing.filter((c) => c.offset >= from && c.offset + c.size <= to);
      assert.strictEqual(run.reduce((s, c) => s + c.size, 0), to - from, `request ${from}-${to} is not a run of chunks`);
      run.forEach((c) => fetched.add(c));
    }
    assert.deepStrictEqual([...fetched].filter((c) => !inBox.includes(c)), [], 'a chunk outside the box was read');
    assert.ok(v.stats.chunkRequests === bodies.length && bodies.length >= 1);
  }],
  ['a companion by ranges', '/range/withx.zul', '&first=4096&colour=classification', (v, requests, companion) => {
    assert.deepStrictEqual(v.errors, []);
    assert.strictEqual(v.points, info.points);
    checkFields(v, info.points);
    checkClassColours(v);
    // Its head in one request (while the stream's first bytes arrive), then its blocks in one.
    assert.deepStrictEqual(companion.map((r) => r.range), ['bytes=0-65535', companion.length > 1 ? companion[1].range : null]);
    assert.strictEqual(v.stats.firstPoints.requests, 1);
  }],
  ['a box with a companion', '/range/withx.zul', boxQuery + '&colour=gps_time', (v, requests, companion) => {
    assert.deepStrictEqual(v.chunks.slice().sort((a, b) => a - b), inBox.map((c) => listing.indexOf(c)));
    checkFields(v, inBox.reduce((s, c) => s + c.numPoints, 0));
    // The chunk index is the companion's: no chunk header read; the first request, the runs of
    // chunks, the companion's head and the blocks of the chosen chunks in one read.
    assert.strictEqual(companion.length, 2);
    assert.ok(requests.length + companion.length < boxRequests, `${requests.length} + ${companion.length} requests, ${boxRequests} without the companion`);
    console.log(`page: a box: ${boxRequests} requests without the companion, ${requests.length} + ${companion.length} with it`);
  }],
  ['a sample with a companion', '/range/withx.zul', '&first=4096&budget=4000', (v, requests, companion) => {
    assert.ok(v.sampled && v.points <= 4000 && v.chunks.length >= 2, `${v.points} points`);
    assert.deepStrictEqual(v.companion.fields.map((f) => f.count), [v.points, v.points, v.points]);
    assert.ok(!requests.some((r) => /^bytes=(\d+)-(\d+)$/.exec(r.range) && Number(RegExp.$2) + 1 - Number(RegExp.$1) === 16 + v.chunkHeaderSize), 'a chunk header read');
    // The head, the blocks of the sample's chunks of the first request, those of the others:
    // near each other, they are read together.
    assert.strictEqual(companion.length, 3, JSON.stringify(companion));
  }],
  ['a companion of another stream', '/range/other.zul', '', (v) => {
    assert.ok(v.errors.some((e) => /^other\.zulx does not belong to other\.zul: .+; its fields are left out$/.test(e)), v.errors.join('; '));
    assert.ok(v.points === info.points && v.companion === null);
    assert.deepStrictEqual(v.fields, ['position', 'colour', 'intensity']);
  }],
  ['a damaged companion', '/range/damagedx.zul', '', (v) => {
    assert.strictEqual(v.points, info.points);
    assert.ok(v.errors.some((e) => /^damagedx\.zulx: chunk 2's block at byte \d+: corrupt data \(checksum\); the chunk is shown without its fields$/.test(e)), v.errors.join('; '));
    assert.deepStrictEqual(v.companion.fields.map((f) => f.count), [1, 2, 3].map(() => info.points - listing[2].numPoints));
  }],
  ['a server without ranges', '/plain/sample.zul', '', (v, requests) => {
    assert.strictEqual(v.points, info.points);
    assert.strictEqual(v.chunksLoaded, info.chunks);
    assert.strictEqual(v.stats.mode, 'stream');
    assert.strictEqual(requests.length, 1);
    assert.ok(v.notes.some((n) => /no range support/.test(n)), v.notes.join('; '));
    assert.deepStrictEqual(v.errors, []);
  }],
  ...['range', 'plain'].map((kind) => [`a truncated file (${kind})`, `/${kind}/cut.zul`, '&first=2048', (v) => {
    assert.strictEqual(v.chunksLoaded, firstCut);
    assert.strictEqual(v.points, listing.slice(0, firstCut).reduce((s, c) => s + c.numPoints, 0));
    assert.strictEqual(v.damage.chunk, firstCut);
    assert.ok(v.errors.some((e) => e.includes(`chunk ${firstCut} at byte ${cut.offset}: truncated`)), v.errors.join('; '));
    assert.match(v.statusText, /intact chunks/);
  }]),
  ['a broken chunk in the middle', '/range/marker.zul', '&first=2048', (v) => {
    assert.strictEqual(v.chunksLoaded, listing.length - 1);
    assert.strictEqual(v.points, total - cut.numPoints);
    assert.strictEqual(v.damage.offset, cut.offset);
    const next = listing[firstCut + 1].offset;
    assert.ok(v.errors.some((e) => e.includes(`at byte ${cut.offset}: corrupt data; read on from the next chunk found, at byte ${next}`)), v.errors.join('; '));
  }],
  ['range answers without the size', '/sizeless/sample.zul', '&first=4096', (v, requests) => {
    assert.strictEqual(v.points, info.points);
    assert.deepStrictEqual(v.errors, []);
    assert.deepStrictEqual(requests.map((r) => r.range), ['bytes=0-4095', requests[1].range]);
  }],
  ['a server that errs', '/error/sample.zul', '', (v) => {
    assert.strictEqual(v.points, 0);
    assert.ok(v.errors.some((e) => /answered 500/.test(e)), v.errors.join('; '));
  }],
  ['a server that stalls', '/stall/sample.zul', '&stall=1500', (v) => {
    assert.ok(v.points > 0 && v.points < info.points, `${v.points} points`);
    assert.ok(v.errors.some((e) => /sent nothing for 1.5 s/.test(e)), v.errors.join('; '));
  }],
  ['not a zul file', '/range/bun0.pcd', '', (v) => {
    assert.strictEqual(v.points, 0);
    assert.ok(v.errors.some((e) => /bad signature/.test(e)), v.errors.join('; '));
  }],
  ['beyond the point budget', '/range/sample.zul', '&first=4096&budget=4000', (v) => {
    assert.ok(v.sampled);
    assert.ok(v.points <= 4000 && v.points > 0, `${v.points} points`);
    assert.ok(v.notes.some((n) => /budget/.test(n)), v.notes.join('; '));
    assert.ok(v.chunks.length >= 2, 'a sample of one chunk');
  }],
];

async function loadPage(page, address) {
  await page.goto(address);
  await page.waitForFunction(() => window.zulView && window.zulView.done, null, { timeout: 60000 });
  return page.evaluate(() => Object.assign({}, window.zulView, { decoded: window.zulView.arrays(), statusText: document.getElementById('status').textContent + ' ' + document.getElementById('errors').textContent }));
}

// Fraction of the canvas's pixels that differ from the background, and the count of distinct
// colours, read from a PNG screenshot decoded by the page.
async function screenshotContent(page) {
  const png = await page.locator('#view canvas').screenshot();
  if (process.env.ZUL_WEB_SCREENSHOT) fs.writeFileSync(process.env.ZUL_WEB_SCREENSHOT, png);
  return page.evaluate(async (b64) => {
    const image = new Image();
    image.src = 'data:image/png;base64,' + b64;
    await image.decode();
    const canvas = Object.assign(document.createElement('canvas'), { width: image.width, height: image.height });
    const context = canvas.getContext('2d');
    context.drawImage(image, 0, 0);
    const pixels = context.getImageData(0, 0, image.width, image.height).data;
    let drawn = 0;
    let digest = 0;
    const colours = new Set();
    for (let i = 0; i < pixels.length; i += 4) {
      if (pixels[i] !== 0x11 || pixels[i + 1] !== 0x11 || pixels[i + 2] !== 0x11) drawn += 1;
      colours.add((pixels[i] << 16) | (pixels[i + 1] << 8) | pixels[i + 2]);
      digest = (Math.imul(digest, 31) + ((pixels[i] << 16) | (pixels[i + 1] << 8) | pixels[i + 2])) | 0;
    }
    return { drawn: drawn / (pixels.length / 4), colours: colours.size, digest };
  }, png.toString('base64'));
}

(async () => {
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  const origin = `http://127.0.0.1:${server.address().port}`;
  const profile = fs.mkdtempSync(path.join(os.tmpdir(), 'zul-chromium-'));
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: env('ZUL_CHROMIUM'), headless: true, viewport: { width: 800, height: 600 },
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-background-networking',
      '--disable-component-update', '--disable-sync', '--no-first-run', '--disable-quic'],
  });
  let failed = 0;
  try {
    const page = await context.newPage();
    const pageErrors = [];
    page.on('pageerror', (e) => pageErrors.push(e.message));
    for (const [name, file, extra, check] of ROWS) {
      log.length = 0;
      try {
        const v = await loadPage(page, `${origin}/web/page/index.html?url=${encodeURIComponent(file)}${extra}`);
        check(v, log.filter((r) => r.path === file), log.filter((r) => r.path === file + 'x'));
        if (name === 'whole file by ranges') {
          const shot = await screenshotContent(page);
          assert.ok(shot.drawn > 0.005 && shot.colours > 20, `blank screenshot: ${JSON.stringify(shot)}`);
          // Another colouring, an orbit by the mouse, and Fit: each changes the picture.
          const shots = [shot];
          await page.selectOption('#colour', 'height');
          shots.push(await screenshotContent(page));
          const box = await page.locator('#view canvas').boundingBox();
          await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
          await page.mouse.down();
          await page.mouse.move(box.x + box.width / 2 + 120, box.y + box.height / 2 + 40, { steps: 5 });
          await page.mouse.up();
          shots.push(await screenshotContent(page));
          await page.click('#fit');
          shots.push(await screenshotContent(page));
          for (let k = 1; k < shots.length; ++k) {
            assert.notStrictEqual(shots[k].digest, shots[k - 1].digest, `picture ${k} unchanged`);
            assert.ok(shots[k].drawn > 0.005, `picture ${k} blank`);
          }
        }
        assert.deepStrictEqual(pageErrors, []);
        console.log(`page: ${name}: ok`);
      } catch (error) {
        failed += 1;
        console.error(`page: ${name}: FAILED\n${error.stack}`);
      }
    }
    // A file from the picker and one dropped on the view: read from the File as a stream.
    const ways = [
      ['the picker', () => page.setInputFiles('#picker', sample)],
      ['the picker with a companion', () => page.setInputFiles('#picker', [withx, withx + 'x'])],
      ['drag and drop', async () => {
        const transfer = await page.evaluateHandle((b64) => {
          const t = new DataTransfer();
          t.items.add(new File([Uint8Array.from(atob(b64), (c) => c.charCodeAt(0))], 'dropped.zul'));
          return t;
        }, fs.readFileSync(sample).toString('base64'));
        await page.dispatchEvent('#view', 'drop', { dataTransfer: transfer });
      }],
    ];
    for (const [name, action] of ways) {
      try {
        await page.goto(`${origin}/web/page/index.html`);
        await action();
        await page.waitForFunction(() => window.zulView.done, null, { timeout: 60000 });
        const v = await page.evaluate(() => Object.assign({}, window.zulView, { decoded: window.zulView.arrays() }));
        if (name.includes('companion')) checkFields(v, info.points);
        assert.strictEqual(v.points, info.points);
        assert.strictEqual(v.chunksLoaded, info.chunks);
        assert.strictEqual(v.stats.mode, 'file');
        assert.deepStrictEqual(v.errors, []);
        console.log(`page: ${name}: ok`);
      } catch (error) {
        failed += 1;
        console.error(`page: ${name}: FAILED\n${error.stack}`);
      }
    }
    // The module's own calls in the page: list the chunks, decode a few, in the worker.
    try {
      log.length = 0;
      await page.goto(`${origin}/web/page/index.html`);
      const r = await page.evaluate(async () => {
        const { ZulWorkerFile } = await import('/web/src/zul.js');
        const file = await ZulWorkerFile.open({ url: '/range/sample.zul' });
        const { chunks, damage } = await file.listChunks();
        const decoded = await file.decodeChunks([3, 4, 9]);
        file.close();
        const bytes = decoded.map((d) => new Uint8Array(d.positions.buffer, d.positions.byteOffset, d.positions.byteLength));
        return { chunks, damage, positions: btoa(bytes.map((b) => String.fromCharCode(...b)).join('')) };
      });
      assert.strictEqual(r.damage, null);
      assert.deepStrictEqual(r.chunks.map((c) => [c.offset, c.size, c.numPoints, c.min, c.max]),
        listing.map((c) => [c.offset, c.size, c.numPoints, c.min, c.max]));
      const first = [0];
      listing.forEach((c) => first.push(first[first.length - 1] + c.numPoints));
      const native = fs.readFileSync(path.join(scratch, 'dump.positions'));
      const expected = Buffer.concat([3, 4, 9].map((k) => native.subarray(first[k] * 24, first[k + 1] * 24)));
      assert.ok(Buffer.from(r.positions, 'base64').equals(expected), 'decoded positions differ');
      assert.strictEqual(log.filter((q) => q.path === '/range/sample.zul').length, 1 + listing.length + 2);
      console.log('page: the module listing and decoding chunks: ok');
    } catch (error) {
      failed += 1;
      console.error(`page: the module listing and decoding chunks: FAILED\n${error.stack}`);
    }
    // zul view: its own server, the page and the file from the build tree.
    try {
      const viewer = spawn(tool, ['view', '--no-open', '--port', '0', sample], { stdio: ['ignore', 'pipe', 'inherit'] });
      try {
        const address = await new Promise((resolve, reject) => {
          let text = '';
          viewer.stdout.on('data', (d) => { text += d; const m = /(http:\/\/127\.0\.0\.1:\d+\/\S*)/.exec(text); if (m) resolve(m[1]); });
          viewer.on('exit', (code) => reject(new Error(`zul view exited with ${code}: ${text}`)));
        });
        const v = await loadPage(page, address);
        assert.strictEqual(v.points, info.points);
        assert.strictEqual(v.chunksLoaded, info.chunks);
        assert.strictEqual(v.stats.mode, 'range');
        assert.deepStrictEqual(v.errors, []);
        // Its server's answers, byte for byte.
        const base = new URL(address).origin;
        const bytes = fs.readFileSync(sample);
        const file = new URL(address).searchParams.get('url');
        for (const [range, status, from, to] of [['bytes=-10', 206, bytes.length - 10, bytes.length], ['bytes=5-9', 206, 5, 10],
          ['bytes=100-', 206, 100, bytes.length], [`bytes=${bytes.length}-`, 416], ['bytes=9-5', 200, 0, bytes.length], [null, 200, 0, bytes.length]]) {
          const answer = await fetch(base + file, { headers: range ? { Range: range } : {} });
          assert.strictEqual(answer.status, status, `${range}`);
          const body = Buffer.from(await answer.arrayBuffer());
          if (from !== undefined) assert.ok(body.equals(bytes.subarray(from, to)), `${range}: wrong bytes`);
          if (status === 206) assert.strictEqual(answer.headers.get('content-range'), `bytes ${from}-${to - 1}/${bytes.length}`);
        }
        for (const [p, status] of [['/', 302], ['/page/../../etc/passwd', 404], ['/files/1/sample.zul', 404], ['/files/0/other.zul', 404], ['/nothing', 404]]) {
          const answer = await fetch(base + p, { redirect: 'manual' });
          assert.strictEqual(answer.status, status, p);
        }
        assert.strictEqual((await fetch(base + file, { method: 'HEAD' })).headers.get('content-length'), String(bytes.length));
        console.log('page: zul view: ok');
      } finally {
        viewer.kill();
      }
    } catch (error) {
      failed += 1;
      console.error(`page: zul view: FAILED\n${error.stack}`);
    }
  } finally {
    await context.close();
    stalled.forEach((res) => res.destroy());
    server.close();
    fs.rmSync(profile, { recursive: true, force: true });
    fs.rmSync(scratch, { recursive: true, force: true });
  }
  process.exit(failed ? 1 : 0);
})().catch((error) => { console.error(error); process.exit(1); });
