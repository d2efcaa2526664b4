// The page's side of the decoder: opens a cloud (bytes, a File, or a URL) in a Web Worker and
// hands each decoded chunk to a callback as typed arrays: positions Float32Array relative to
// `origin` (x, y, z a point), colors Uint8Array (r, g, b), reflections Int32Array, normals
// Float32Array (x, y, z), each null when the file has none; `fields` holds the companion file's
// fields by name (classification, ...), one typed array each by the field's type (Uint8Array,
// Int16Array, Float64Array, BigUint64Array for u64, ...; raw fields as Uint8Array of their width
// a point), in the chunk's stored order like the positions. The companion NAME.zulx is looked for
// beside a URL (the URL and "x"); with a File or bytes it is passed as `source.companion` (a File
// picked or dropped together, or bytes); `companion: false` reads none.
//
//   const cloud = openCloud({ url }, { box, budget }, (event) => { ... });
//   cloud.done.then((stats) => ...); cloud.cancel();
//
// Events: header {info, fileSize}, chunk {listing, origin, numPoints, positions, colors,
// reflections, normals, fields}, listed {chunks}, note {message, sampled}, damage {damage},
// companion {name, headSize, chunks, fields: [{name, type, width}]} when one is opened, or
// companion {error, refused} when it is left out (refused: it belongs to another stream, every
// field is to be dropped) or a chunk's block is damaged, fields {index, fields} for a chunk
// delivered before its block was read (a URL's first chunks), done {stats}, error {message}.
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

// A zul file in a worker, for callers that choose chunks themselves:
//
//   const file = await ZulWorkerFile.open({ url });       // reads the file's head
//   const { chunks, damage } = await file.listChunks();  // offset, size, numPoints, min, max each
//   const [a, b] = await file.decodeChunks([4, 5]);       // {listing, numPoints, positions, ...}
//   file.close();
//
// Positions come as Float64Array, the decoder's exact values; the other arrays as openCloud's.
// A damaged chunk's entry holds `error` instead of arrays.
export class ZulWorkerFile {
  static async open(source, options = {}) {
    const file = new ZulWorkerFile();
    const opened = await file.call({ call: 'open', source, options });
    file.header = opened.header;
    file.fileSize = opened.fileSize;
    file.companion = opened.companion;
    file.companionErrors = opened.companionErrors;
    return file;
  }

  constructor() {
    this.worker = new Worker(new URL('./zul_worker.js', import.meta.url));
    this.pending = new Map();
    this.next = 0;
    this.requests = 0;
    this.worker.onmessage = (message) => {
      const { id, result, error, requests } = message.data;
      const waiting = this.pending.get(id);
      if (!waiting) return;
      this.pending.delete(id);
      this.requests = requests || this.requests;
      if (error) waiting.reject(new Error(error));
      else waiting.resolve(result);
    };
    this.worker.onerror = (event) => {
      for (const waiting of this.pending.values()) waiting.reject(new Error(`the decoding worker failed: ${event.message}`));
      this.pending.clear();
    };
  }

  call(message) {
    const id = this.next++;
    return new Promise((resolve, reject) => {
      this.pending.set(id, { resolve, reject });
      this.worker.postMessage(Object.assign({ id }, message));
    });
  }

  listChunks() { return this.call({ call: 'list' }); }

  decodeChunks(chunks) { return this.call({ call: 'decode', chunks }); }

  close() { this.worker.terminate(); }
}
