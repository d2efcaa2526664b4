// The decoding worker: loads a cloud with zul_loader.js and posts each decoded chunk to the page,
// its arrays transferred, not copied. Positions go out in single precision relative to an origin
// (the first chunk's lower corner, posted with them), which keeps them exact to the float's
// precision near the cloud; `exact: true` in the options adds the decoder's Float64Array.
/* global ZulWasm, ZulCore, ZulLoader */
'use strict';
importScripts('../dist/zul_wasm.js', '../vendor/fzstd.js', 'zul_core.js', 'zul_companion.js', 'zul_fetch.js',
              'zul_loader.js');

const wasmReady = ZulWasm({ locateFile: (name) => '../dist/' + name });

// Calls of a ZulWorkerFile (zul.js): open, list, decode, close; each answered {id, result} or
// {id, error}. One file a worker.
let file = null;
let calls = Promise.resolve();
async function answerCall(data) {
  const { id, call } = data;
  try {
    let result;
    const transfer = [];
    if (call === 'open') {
      file = await ZulLoader.ZulFile.open(await wasmReady, data.source, data.options || {});
      result = { header: file.header, fileSize: file.size, companion: file.companion, companionErrors: file.companionErrors };
    } else if (call === 'list') {
      result = await file.listChunks();
    } else if (call === 'decode') {
      result = await file.decodeChunks(data.chunks);
      for (const entry of result) {
        for (const name of ['positions', 'colors', 'reflections', 'normals']) if (entry[name]) transfer.push(entry[name].buffer);
        for (const array of Object.values(entry.fields || {})) transfer.push(array.buffer);
      }
    } else if (call === 'close') {
      if (file) file.close();
      file = null;
    }
    self.postMessage({ id, result, requests: file ? file.requests : 0 }, transfer);
  } catch (error) {
    self.postMessage({ id, error: error && error.message ? error.message : String(error) });
  }
}

self.onmessage = async (message) => {
  if (message.data.call) {
    // One call at a time: a listing walks once, decodes do not interleave on the decoder.
    calls = calls.then(() => answerCall(message.data));
    return;
  }
  const source = message.data.source;
  const options = message.data.options || {};
  let origin = null;
  const emit = (event) => {
    if (event.type === 'fields') {
      self.postMessage(event, Object.values(event.fields).map((array) => array.buffer));
      return;
    }
    if (event.type !== 'chunk') {
      self.postMessage(event);
      return;
    }
    const { listing, points } = event;
    if (!origin) origin = listing.min.map(Math.floor);
    // The arrays are views into the decoder's memory: copied once here, into what is transferred.
    const copy = (array) => (array ? array.slice() : null);
    const out = {
      type: 'chunk', listing, origin, numPoints: points.numPoints,
      positions: ZulCore.relativePositions(points.positions, origin),
      colors: copy(points.colors), reflections: copy(points.reflections), normals: copy(points.normals),
      fields: points.fields,
      exact: options.exact ? copy(points.positions) : null,
    };
    const transfer = [out.positions.buffer];
    for (const name of ['colors', 'reflections', 'normals', 'exact']) if (out[name]) transfer.push(out[name].buffer);
    for (const array of Object.values(out.fields)) transfer.push(array.buffer);
    self.postMessage(out, transfer);
  };
  try {
    const wasm = await wasmReady;
    await ZulLoader.load(wasm, source, Object.assign({}, options, { views: true }), emit);
  } catch (error) {
    self.postMessage({ type: 'error', message: error && error.message ? error.message : String(error) });
  }
};
