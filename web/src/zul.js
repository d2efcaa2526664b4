// The page's side of the decoder: opens a cloud (bytes, a File, or a URL) in a Web Worker and
// hands each decoded chunk to a callback as typed arrays: positions Float32Array relative to
// `origin` (x, y, z a point), colors Uint8Array (r, g, b), reflections Int32Array, normals
// Float32Array (x, y, z), each null when the file has none; `fields` holds the companion file's
// fields by name (classification, ...), one typed array each.
//
//   const cloud = openCloud({ url }, { box, budget }, (event) => { ... });
//   cloud.done.then((stats) => ...); cloud.cancel();
//
// Events: header {info, fileSize}, chunk {listing, origin, numPoints, positions, colors,
// reflections, normals}, listed {chunks}, note {message, sampled}, damage {damage}, done {stats},
// error {message}.
export function openCloud(source, options, onEvent) {
  const worker = new Worker(new URL('./zul_worker.js', import.meta.url));
  let settle;
  const done = new Promise((resolve, reject) => { settle = { resolve, reject }; });
  worker.onmessage = (message) => {
    const event = message.data;
    onEvent(event);
    if (event.type === 'done') { settle.resolve(event.stats); worker.terminate(); }
    if (event.type === 'error') { settle.reject(new Error(event.message)); worker.terminate(); }
  };
  worker.onerror = (error) => {
    const event = { type: 'error', message: `the decoding worker failed: ${error.message || 'unknown error'}` };
    onEvent(event);
    settle.reject(new Error(event.message));
    worker.terminate();
  };
  worker.postMessage({ source, options });
  return { done, cancel: () => worker.terminate() };
}
