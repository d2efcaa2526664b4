// Figures of the web decoder, printed, never asserted:
//  1. WebAssembly decode in Node (one thread) against the native bulk decoder on one thread, on
//     the same file (the tool's demo scan: colour, intensity, normals), runs alternated.
//  2. Requests and bytes read before the first points, from a loopback server with and without
//     range support (the loader in Node, as the worker runs it).
//  2b. A box load (one chunk's box) with and without the companion NAME.zulx (classification,
//     gps_time, return_number by the test's companion writer): requests and bytes.
//  3. With chromium: milliseconds from opening the page to the first chunk on screen.
// Usage: node web/bench/bench.js BUILD_DIR [--points N] [--repeats R] [--no-browser]
'use strict';
const { execFileSync } = require('child_process');
const fs = require('fs');
const http = require('http');
const os = require('os');
const path = require('path');

const args = process.argv.slice(2);
const build = path.resolve(args[0] || 'build');
const option = (name, fallback) => { const at = args.indexOf(name); return at >= 0 ? Number(args[at + 1]) : fallback; };
const numPoints = option('--points', 2000000);
const repeats = option('--repeats', 5);
const tool = path.join(build, 'tools', 'zul');
const reference = path.join(build, 'web', 'zul_web_reference');
const root = path.join(build, 'share', 'zul', 'web');
const zul = require(path.join(root, 'src', 'zul_node.js'));
const { load, ZulFile } = require(path.join(root, 'src', 'zul_loader.js'));

const scratch = fs.mkdtempSync(path.join(os.tmpdir(), 'zul-web-bench-'));
const file = path.join(scratch, 'scan.zul');
const median = (v) => v.slice().sort((a, b) => a - b)[v.length >> 1];

// Serves `files` (path: bytes) and /web/ (the built web folder), with or without range support.
function serve(files, ranges) {
  const server = http.createServer((req, res) => {
    const url = new URL(req.url, 'http://x');
    if (url.pathname.startsWith('/web/')) {
      const f = path.join(root, url.pathname.slice(5));
      if (!f.startsWith(root) || !fs.existsSync(f)) { res.writeHead(404); res.end(); return; }
      const types = { '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.wasm': 'application/wasm' };
      res.writeHead(200, { 'Content-Type': types[path.extname(f)] || 'application/octet-stream' });
      res.end(fs.readFileSync(f));
      return;
    }
    const bytes = files[url.pathname];
    if (!bytes) { res.writeHead(404); res.end(); return; }
    const m = /^bytes=(\d+)-(\d*)$/.exec(req.headers.range || '');
    if (ranges && m) {
      const from = Number(m[1]);
      const to = Math.min(m[2] ? Number(m[2]) : bytes.length - 1, bytes.length - 1);
      res.writeHead(206, { 'Content-Range': `bytes ${from}-${to}/${bytes.length}`, 'Content-Length': to - from + 1 });
      res.end(bytes.subarray(from, to + 1));
    } else {
      res.writeHead(200, { 'Content-Length': bytes.length });
      res.end(bytes);
    }
  });
  return new Promise((resolve) => server.listen(0, '127.0.0.1', () => resolve(server)));
}

(async () => {
  console.log(`machine load (1, 5, 15 min): ${os.loadavg().map((l) => l.toFixed(2)).join(' ')} on ${os.cpus().length} cores`);
  execFileSync(tool, ['demo', '-q', '--points', String(numPoints), '--keep', file], { stdio: 'ignore' });
  const bytes = new Uint8Array(fs.readFileSync(file));
  console.log(`file: the demo scan, ${numPoints.toLocaleString('en')} points, ${bytes.length.toLocaleString('en')} bytes`);

  // 1. decode speed, native and WebAssembly alternated
  const wasm = await zul.loadWasm(path.join(root, 'dist'));
  const nativeTimes = [];
  const wasmTimes = [];
  for (let r = 0; r < repeats; ++r) {
    nativeTimes.push(JSON.parse(execFileSync(reference, [file, '--time', '1'], { encoding: 'utf8' })).seconds);
    const start = process.hrtime.bigint();
    const result = zul.decodeBytes(wasm, bytes);
    wasmTimes.push(Number(process.hrtime.bigint() - start) / 1e9);
    if (result.damage || result.chunks.reduce((s, c) => s + c.numPoints, 0) !== numPoints) throw new Error('the wasm decode lost points');
  }
  const mpps = (s) => (numPoints / s / 1e6).toFixed(2);
  const n = median(nativeTimes);
  const w = median(wasmTimes);
  console.log(`decode, one thread, median of ${repeats}: native ${n.toFixed(3)} s (${mpps(n)} Mpoints/s), ` +
              `WebAssembly in Node ${w.toFixed(3)} s (${mpps(w)} Mpoints/s, arrays copied out included): ` +
              `${(n / w).toFixed(2)} of native speed`);

  // 2. before the first points
  for (const ranges of [true, false]) {
    const server = await serve({ '/scan.zul': bytes }, ranges);
    const url = `http://127.0.0.1:${server.address().port}/scan.zul`;
    const start = process.hrtime.bigint();
    let firstMs = null;
    const stats = await load(wasm, { url }, {}, (e) => {
      if (e.type === 'chunk' && firstMs === null) firstMs = Number(process.hrtime.bigint() - start) / 1e6;
    });
    const total = Number(process.hrtime.bigint() - start) / 1e6;
    console.log(`${ranges ? 'range server' : 'server without ranges'}: first points after ${stats.firstPoints.requests} ` +
                `request(s), ${stats.firstPoints.bytes.toLocaleString('en')} bytes, ${firstMs.toFixed(0)} ms; ` +
                `whole file in ${stats.requests} requests, ${total.toFixed(0)} ms (Node, loopback)`);
    server.close();
  }

  // 2b. a box load, with and without the companion
  execFileSync(path.join(build, 'web', 'zul_web_companion'), [file, file + 'x', path.join(scratch, 'fields'), 'las'], { stdio: 'ignore' });
  const companion = new Uint8Array(fs.readFileSync(file + 'x'));
  const opened = await ZulFile.open(wasm, { bytes, companion: false });
  const { chunks } = await opened.listChunks();
  opened.close();
  const pick = chunks[Math.floor(chunks.length * 0.7)];
  const box = { min: pick.min.map((v, a) => (v + pick.max[a]) / 2 - 1e-3), max: pick.min.map((v, a) => (v + pick.max[a]) / 2 + 1e-3) };
  for (const files of [{ '/scan.zul': bytes }, { '/scan.zul': bytes, '/scan.zulx': companion }]) {
    const server = await serve(files, true);
    let points = 0;
    let withFields = 0;
    const stats = await load(wasm, { url: `http://127.0.0.1:${server.address().port}/scan.zul` }, { box, firstRange: 65536 }, (e) => {
      if (e.type === 'chunk') { points += e.points.numPoints; if (Object.keys(e.points.fields).length) withFields += e.points.numPoints; }
      if (e.type === 'fields') withFields += e.fields.classification.length;
    });
    console.log(`a box load (${points.toLocaleString('en')} points of ${chunks.length} chunks) ${files['/scan.zulx'] ? `with the companion (${companion.length.toLocaleString('en')} bytes; ${withFields.toLocaleString('en')} points with fields)` : 'without a companion'}: ` +
                `${stats.requests} requests (${stats.companionRequests} to the companion), ${stats.bytes.toLocaleString('en')} bytes`);
    server.close();
  }

  // 3. in the browser
  if (!args.includes('--no-browser') && fs.existsSync('/usr/bin/chromium')) {
    const { chromium } = require(path.join(__dirname, '..', 'node_modules', 'playwright-core'));
    const server = await serve({ '/scan.zul': bytes }, true);
    const profile = fs.mkdtempSync(path.join(os.tmpdir(), 'zul-chromium-'));
    const context = await chromium.launchPersistentContext(profile, {
      executablePath: '/usr/bin/chromium', headless: true,
      args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-background-networking',
        '--disable-component-update', '--disable-sync', '--no-first-run', '--disable-quic'],
    });
    const page = await context.newPage();
    const base = `http://127.0.0.1:${server.address().port}`;
    await page.goto(`${base}/web/page/index.html?url=/scan.zul`);
    await page.waitForFunction(() => window.zulView.done, null, { timeout: 600000 });
    const v = await page.evaluate(() => window.zulView);
    console.log(`Chromium (headless, software WebGL): first chunk on screen ${v.firstPointsMs.toFixed(0)} ms after ` +
                `the page started loading the file; ${v.points.toLocaleString('en')} points in ${v.chunksLoaded} chunks` +
                `${v.sampled ? ' (a sample: beyond the budget)' : ''}`);
    await context.close();
    server.close();
    fs.rmSync(profile, { recursive: true, force: true });
  }
  fs.rmSync(scratch, { recursive: true, force: true });
})().catch((error) => { console.error(error); process.exit(1); });
