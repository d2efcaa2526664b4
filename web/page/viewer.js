// The viewer page: opens a zul file (picker, drag and drop, ?url=), draws its chunks with three.js
// as they are decoded, and tells what it loaded, on the page and in window.zulView.
import * as THREE from 'three';
import { OrbitControls } from 'three/addons/OrbitControls.js';
import { openCloud } from '../src/zul.js';

const params = new URLSearchParams(location.search);
const DEFAULT_BUDGET = 20000000;
const $ = (id) => document.getElementById(id);

// What the page loaded, for people (the panel) and for scripts and tests (window.zulView).
const view = window.zulView = {
  source: null, done: false, points: 0, chunksLoaded: 0, chunks: [], chunksListed: null,
  bounds: null, step: null, fields: [], version: null, box: null, budget: DEFAULT_BUDGET,
  sampled: false, notes: [], errors: [], damage: null, stats: null, firstPointsMs: null,
  companion: null,  // {name, fields: [{name, type, width, count}]}: the companion's fields loaded
};

const container = $('view');
const renderer = new THREE.WebGLRenderer({ antialias: false, preserveDrawingBuffer: true });
renderer.setPixelRatio(window.devicePixelRatio);
container.appendChild(renderer.domElement);
const scene = new THREE.Scene();
scene.background = new THREE.Color(0x111111);
const camera = new THREE.PerspectiveCamera(60, 1, 0.01, 1e7);
camera.up.set(0, 0, 1);
camera.position.set(10, -10, 10);
const controls = new OrbitControls(camera, renderer.domElement);
controls.screenSpacePanning = true;
let cloud = new THREE.Group();
scene.add(cloud);
const material = new THREE.PointsMaterial({ size: 2, sizeAttenuation: false, vertexColors: true });

function resize() {
  const { clientWidth: w, clientHeight: h } = container;
  renderer.setSize(w, h);
  camera.aspect = w / Math.max(h, 1);
  camera.updateProjectionMatrix();
  requestRender();
}
let renderPending = false;
function requestRender() {
  if (renderPending) return;
  renderPending = true;
  requestAnimationFrame(() => { renderPending = false; renderer.render(scene, camera); });
}
controls.addEventListener('change', requestRender);
window.addEventListener('resize', resize);
resize();

// ---- colours ----
let origin = null;
let header = null;
let reflectionMax = 1;
const fieldRanges = {};  // smallest and largest value of each companion field loaded

// The LAS classes (0 to 18), each a colour of its own; other values grey.
const CLASS_COLOURS = [
  [150, 150, 150], [200, 200, 200], [166, 112, 60], [140, 220, 90], [60, 180, 60], [20, 110, 30],
  [230, 60, 50], [255, 0, 255], [120, 120, 120], [40, 110, 240], [120, 80, 40], [90, 90, 90],
  [255, 220, 120], [255, 255, 0], [255, 160, 0], [200, 120, 255], [0, 255, 255], [180, 160, 140],
  [255, 100, 200],
];
const OTHER_CLASS = [90, 90, 90];

function ramp(t, out, i) {
  // blue, cyan, green, yellow, red
  const stops = [[0, 0, 255], [0, 255, 255], [0, 255, 0], [255, 255, 0], [255, 0, 0]];
  const x = Math.min(Math.max(t, 0), 1) * 4;
  const k = Math.min(Math.floor(x), 3);
  const f = x - k;
  for (let c = 0; c < 3; ++c) out[i + c] = stops[k][c] + (stops[k + 1][c] - stops[k][c]) * f;
}

function colours(chunk, mode) {
  const n = chunk.numPoints;
  const out = new Uint8Array(3 * n);
  if (mode === 'color' && chunk.colors) return chunk.colors;
  if (mode === 'normal' && chunk.normals) {
    for (let i = 0; i < 3 * n; ++i) out[i] = (chunk.normals[i] * 0.5 + 0.5) * 255;
    return out;
  }
  if (mode === 'intensity' && chunk.reflections) {
    for (let i = 0; i < n; ++i) {
      const v = 255 * Math.sqrt(chunk.reflections[i] / reflectionMax);
      out[3 * i] = out[3 * i + 1] = out[3 * i + 2] = v;
    }
    return out;
  }
  // a companion field: classification by the LAS classes' colours, any other over the ramp
  const field = chunk.fields && chunk.fields[mode];
  if (field && mode === 'classification') {
    for (let i = 0; i < n; ++i) out.set(CLASS_COLOURS[field[i]] || OTHER_CLASS, 3 * i);
    return out;
  }
  if (field) {
    const range = fieldRanges[mode] || { min: 0, max: 1 };
    const span = Math.max(range.max - range.min, 1e-9);
    const big = typeof field[0] === 'bigint';
    for (let i = 0; i < n; ++i) ramp(((big ? Number(field[i]) : field[i]) - range.min) / span, out, 3 * i);
    return out;
  }
  // height, and any mode the file has no field for
  const low = view.bounds ? view.bounds.min[2] - origin[2] : 0;
  const span = view.bounds ? Math.max(view.bounds.max[2] - view.bounds.min[2], 1e-9) : 1;
  for (let i = 0; i < n; ++i) ramp((chunk.positions[3 * i + 2] - low) / span, out, 3 * i);
  return out;
}

function recolour() {
  const mode = $('colour').value;
  for (const points of cloud.children) {
    points.geometry.setAttribute('color', new THREE.BufferAttribute(colours(points.userData, mode), 3, true));
  }
  requestRender();
}
$('colour').addEventListener('change', recolour);

// ---- the facts panel ----
const fmt = (x) => Number(x).toLocaleString('en', { maximumFractionDigits: 6 });
function showFacts() {
  const facts = [
    ['file', view.source],
    ['points', view.points.toLocaleString('en')],
    ['chunks', `${view.chunksLoaded}${view.chunksListed !== null ? ' of ' + view.chunksListed : ''}`],
    ['step', view.step === null ? '' : fmt(view.step)],
    ['fields', view.fields.join(', ')],
    ['companion', view.companion ? `${view.companion.name}: ${view.companion.fields.map((f) => `${f.name} (${f.type})`).join(', ')}` : ''],
    ['version', view.version || ''],
    ['min', view.bounds ? view.bounds.min.map(fmt).join(' ') : ''],
    ['max', view.bounds ? view.bounds.max.map(fmt).join(' ') : ''],
  ];
  if (view.box) facts.push(['box', [...view.box.min, ...view.box.max].map(fmt).join(',')]);
  if (view.stats) facts.push(['read', `${view.stats.bytes.toLocaleString('en')} bytes, ${view.stats.requests} requests (${view.stats.mode})`]);
  $('facts').replaceChildren(...facts.flatMap(([k, v]) => {
    const dt = document.createElement('dt'); dt.textContent = k;
    const dd = document.createElement('dd'); dd.textContent = v; dd.id = 'fact-' + k;
    return [dt, dd];
  }));
  $('notes').replaceChildren(...view.notes.map((t) => Object.assign(document.createElement('div'), { textContent: t })));
  $('errors').replaceChildren(...view.errors.map((t) => Object.assign(document.createElement('div'), { textContent: t })));
}

function fit() {
  if (!view.bounds || !origin) return;
  const min = new THREE.Vector3(...view.bounds.min.map((v, a) => v - origin[a]));
  const max = new THREE.Vector3(...view.bounds.max.map((v, a) => v - origin[a]));
  const centre = min.clone().add(max).multiplyScalar(0.5);
  const radius = Math.max(max.distanceTo(min) / 2, 1e-6);
  const distance = radius / Math.sin((camera.fov * Math.PI) / 360);
  camera.position.copy(centre).add(new THREE.Vector3(0.6, -0.8, 0.5).normalize().multiplyScalar(distance));
  camera.near = distance / 1000;
  camera.far = distance * 10;
  camera.updateProjectionMatrix();
  controls.target.copy(centre);
  controls.update();
  requestRender();
}
$('fit').addEventListener('click', fit);

// ---- loading ----
let current = null;
let currentSource = null;

function open(source, name) {
  if (current) current.cancel();
  scene.remove(cloud);
  cloud.traverse((o) => { if (o.geometry) o.geometry.dispose(); });
  cloud = new THREE.Group();
  scene.add(cloud);
  origin = null;
  header = null;
  currentSource = source;
  for (const name of Object.keys(fieldRanges)) delete fieldRanges[name];
  for (const o of [...$('colour').options].slice(4)) o.remove();
  const started = performance.now();
  Object.assign(view, {
    source: name, done: false, points: 0, chunksLoaded: 0, chunks: [], chunksListed: null,
    bounds: null, step: null, fields: [], version: null, sampled: false, notes: [], errors: [],
    damage: null, stats: null, firstPointsMs: null, companion: null,
  });
  $('drop').classList.add('hidden');
  $('status').textContent = `Loading ${name}…`;
  showFacts();
  const options = { budget: view.budget, box: view.box, exact: params.has('exact'), firstRange: Number(params.get('first')) || undefined,
    stallMs: Number(params.get('stall')) || undefined };
  current = openCloud(source, options, (event) => {
    if (event.type === 'header') {
      header = event.info;
      reflectionMax = Math.max(header.maxReflection, 1);
      view.step = header.outputStep;
      view.version = header.version;
      view.chunkHeaderSize = header.chunkHeaderSize;
      view.fields = ['position'];
      if (header.hasColors) view.fields.push('colour');
      if (header.hasReflections) view.fields.push('intensity');
      if (header.hasNormals) view.fields.push('normal');
      if (view.companion) view.fields.push(...view.companion.fields.map((f) => f.name));
    } else if (event.type === 'chunk') {
      addChunk(event);
      if (view.chunksLoaded === 1) { view.firstPointsMs = performance.now() - started; fit(); }
    } else if (event.type === 'companion') {
      companionEvent(event);
    } else if (event.type === 'fields') {
      const points = cloud.children.find((p) => p.userData.index === event.index);
      if (points && view.companion) {
        points.userData.fields = event.fields;
        takeFields(event.fields);
        points.geometry.setAttribute('color', new THREE.BufferAttribute(colours(points.userData, $('colour').value), 3, true));
        requestRender();
      }
    } else if (event.type === 'listed') {
      view.chunksListed = event.chunks.length;
    } else if (event.type === 'note') {
      view.notes.push(event.message);
      if (event.sampled) view.sampled = true;
    } else if (event.type === 'damage') {
      if (!view.damage) view.damage = event.damage;
      view.errors.push(`Damaged file: ${event.damage.message}; the intact chunks are shown`);
    } else if (event.type === 'error') {
      view.errors.push(event.message);
      $('status').textContent = view.points > 0 ? `Stopped: the chunks read from ${name} are shown` : `Failed: ${name}`;
      view.done = true;
    } else if (event.type === 'done') {
      view.stats = event.stats;
      if (view.chunksListed === null && !view.box && !view.sampled && !view.damage) {
        view.chunksListed = view.chunksLoaded;
      }
      finish();
    }
    showFacts();
  });
  current.done.catch(() => {});
}

function addChunk(event) {
  if (!origin) origin = event.origin;
  if (event.origin.some((v, a) => v !== origin[a])) throw new Error('chunks of one load share an origin');
  const { listing } = event;
  if (!view.bounds) view.bounds = { min: listing.min.slice(), max: listing.max.slice() };
  for (let a = 0; a < 3; ++a) {
    view.bounds.min[a] = Math.min(view.bounds.min[a], listing.min[a]);
    view.bounds.max[a] = Math.max(view.bounds.max[a], listing.max[a]);
  }
  const geometry = new THREE.BufferGeometry();
  geometry.setAttribute('position', new THREE.BufferAttribute(event.positions, 3));
  geometry.setAttribute('color', new THREE.BufferAttribute(colours(event, $('colour').value), 3, true));
  geometry.boundingBox = new THREE.Box3(
    new THREE.Vector3(...listing.min.map((v, a) => v - origin[a])),
    new THREE.Vector3(...listing.max.map((v, a) => v - origin[a])));
  geometry.computeBoundingSphere();
  const points = new THREE.Points(geometry, material);
  points.userData = { index: listing.index, exact: event.exact, numPoints: event.numPoints, positions: event.positions, colors: event.colors, reflections: event.reflections, normals: event.normals, fields: event.fields || {} };
  takeFields(points.userData.fields);
  cloud.add(points);
  view.points += event.numPoints;
  view.chunksLoaded += 1;
  view.chunks.push(listing.index);
  requestRender();
}

// The companion opened (its fields listed, those with numbers offered as colourings), or left out:
// a companion of another stream takes every field it gave back.
function companionEvent(event) {
  if (event.error) {
    view.errors.push(event.error);
    if (!event.refused) return;
    view.companion = null;
    for (const points of cloud.children) points.userData.fields = {};
    view.fields = view.fields.filter((f) => ['position', 'colour', 'intensity', 'normal'].includes(f));
    for (const o of [...$('colour').options].slice(4)) o.remove();
    recolour();
    return;
  }
  view.companion = { name: event.name, fields: event.fields.map((f) => Object.assign({ count: 0 }, f)) };
  for (const f of event.fields) {
    if (!view.fields.includes(f.name)) view.fields.push(f.name);
    if (f.type !== 'raw') $('colour').append(new Option(f.name, f.name));
  }
  if (params.get('colour') && event.fields.some((f) => f.name === params.get('colour'))) $('colour').value = params.get('colour');
  else if (event.fields.some((f) => f.name === 'classification') && header && !header.hasColors) $('colour').value = 'classification';
}

// A chunk's fields: counted, and their ranges widened for the ramp.
function takeFields(fields) {
  for (const [name, values] of Object.entries(fields)) {
    const field = view.companion && view.companion.fields.find((f) => f.name === name);
    if (!field) continue;
    field.count += values.length / (field.type === 'raw' ? field.width : 1);
    if (field.type === 'raw') continue;
    const range = fieldRanges[name] || (fieldRanges[name] = { min: Infinity, max: -Infinity });
    const big = typeof values[0] === 'bigint';
    for (let i = 0; i < values.length; ++i) {
      const v = big ? Number(values[i]) : values[i];
      if (v < range.min) range.min = v;
      if (v > range.max) range.max = v;
    }
  }
}

function finish() {
  view.done = true;
  let max = 1;
  for (const p of cloud.children) {
    const r = p.userData.reflections;
    if (r) for (let i = 0; i < r.length; ++i) if (r[i] > max) max = r[i];
  }
  reflectionMax = max;
  recolour();
  fit();
  const what = view.damage ? 'Loaded the intact chunks of' : view.sampled ? 'Loaded a sample of' : 'Loaded';
  $('status').textContent = `${what} ${view.source}`;
}

// The decoded arrays of the loaded chunks in stream order, base64 each (positions as the
// decoder's doubles when the page was opened with ?exact), the companion's fields by name, and
// the colours drawn, for scripts that check them.
function base64(parts) {
  let text = '';
  for (const part of parts) {
    const bytes = new Uint8Array(part.buffer, part.byteOffset, part.byteLength);
    for (let i = 0; i < bytes.length; i += 0x8000) text += String.fromCharCode.apply(null, bytes.subarray(i, i + 0x8000));
  }
  return btoa(text);
}
view.arrays = () => {
  const drawn = cloud.children.slice().sort((a, b) => a.userData.index - b.userData.index);
  const chunks = drawn.map((p) => p.userData);
  const out = { fields: {} };
  for (const [name, key] of [['positions', 'exact'], ['colors', 'colors'], ['reflections', 'reflections'], ['normals', 'normals']]) {
    const parts = chunks.map((c) => c[key]).filter(Boolean);
    if (parts.length > 0) out[name] = base64(parts);
  }
  for (const f of view.companion ? view.companion.fields : []) out.fields[f.name] = base64(chunks.map((c) => c.fields[f.name]).filter(Boolean));
  out.drawnColours = base64(drawn.map((p) => p.geometry.getAttribute('color').array));
  return out;
};

// ---- the ways in ----
// Of files picked or dropped together: the stream (.zul) and its companion (the stream's name and
// "x", or the one .zulx among them).
function openFiles(files) {
  const list = [...files];
  const file = list.find((f) => !/\.zulx$/i.test(f.name)) || list[0];
  if (!file) return;
  const companions = list.filter((f) => f !== file && /\.zulx$/i.test(f.name));
  const companion = companions.find((f) => f.name === file.name + 'x') || (companions.length === 1 ? companions[0] : null);
  open(companion ? { file, companion } : { file }, file.name);
}
$('picker').addEventListener('change', (e) => openFiles(e.target.files));
$('url-form').addEventListener('submit', (e) => {
  e.preventDefault();
  const url = $('url').value.trim();
  if (url) open({ url: new URL(url, location.href).href }, url);
});
container.addEventListener('dragover', (e) => { e.preventDefault(); container.classList.add('dragging'); });
container.addEventListener('dragleave', () => container.classList.remove('dragging'));
container.addEventListener('drop', (e) => {
  e.preventDefault();
  container.classList.remove('dragging');
  openFiles(e.dataTransfer.files);
});

function parseBox(text) {
  const words = text.split(',').map((w) => w.trim());
  const v = words.map(Number);
  if (v.length !== 6 || words.some((w) => w === '') || v.some((x) => Number.isNaN(x))) return null;
  for (let a = 0; a < 3; ++a) if (v[a] > v[a + 3]) return null;
  return { min: v.slice(0, 3), max: v.slice(3) };
}
$('box-form').addEventListener('submit', (e) => {
  e.preventDefault();
  const box = parseBox($('box').value);
  if (!box) { view.errors = ['The box needs six numbers minx,miny,minz,maxx,maxy,maxz, each min below its max']; showFacts(); return; }
  view.box = box;
  if (currentSource) open(currentSource, view.source);
});
$('box-clear').addEventListener('click', () => { view.box = null; $('box').value = ''; if (currentSource) open(currentSource, view.source); });

if (params.get('budget')) view.budget = Number(params.get('budget'));
if (params.get('colour')) $('colour').value = params.get('colour');
if (params.get('box')) {
  view.box = parseBox(params.get('box'));
  $('box').value = params.get('box');
  if (!view.box) view.errors.push(`?box=${params.get('box')}: six numbers minx,miny,minz,maxx,maxy,maxz`);
}
if (params.get('url')) {
  const url = params.get('url');
  $('url').value = url;
  open({ url: new URL(url, location.href).href }, url);
}
showFacts();
