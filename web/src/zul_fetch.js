// Reading by fetch for the loader: requests with or without a byte range, bodies read slice by
// slice and given up when the server stalls, requests and bytes counted. A classic script.
(function (root) {
  'use strict';
  const STALL_MS = 15000;        // a response that sends nothing for this long is given up

  class Counter {
    constructor(stallMs) {
      this.requests = 0;
      this.bytes = 0;
      this.headerRequests = 0;
      this.chunkRequests = 0;
      this.stallMs = stallMs || STALL_MS;
    }
  }

  // Reads a response body slice by slice into `push`, giving up when it stalls.
  async function readBody(response, push, controller, counter) {
    const reader = response.body.getReader();
    const stallMs = counter.stallMs;
    for (;;) {
      let timer;
      const stalled = new Promise((_, reject) => {
        timer = setTimeout(() => {
          reject(new Error(`${response.url}: the server sent nothing for ${stallMs / 1000} s`));
          controller.abort();
        }, stallMs);
      });
      let part;
      try {
        part = await Promise.race([reader.read(), stalled]);
      } finally {
        clearTimeout(timer);
      }
      if (part.done) return;
      counter.bytes += part.value.length;
      push(part.value);
    }
  }

  async function request(url, range, counter, anyStatus = false) {
    const controller = new AbortController();
    const headers = range ? { Range: `bytes=${range[0]}-${range[1] === undefined ? '' : range[1]}` } : {};
    counter.requests += 1;
    const response = await fetch(url, { headers, signal: controller.signal, cache: 'no-store' });
    if (response.status !== 200 && response.status !== 206 && !anyStatus) {
      throw new Error(`${url}: the server answered ${response.status} ${response.statusText}`);
    }
    let total = null;
    const contentRange = response.headers.get('Content-Range');
    if (response.status === 206) {
      const match = /\/(\d+)\s*$/.exec(contentRange || '');
      if (match) total = Number(match[1]);
    } else if (response.headers.get('Content-Length')) {
      total = Number(response.headers.get('Content-Length'));
    }
    return { response, controller, total, partial: response.status === 206 };
  }

  function concat(parts) {
    const out = new Uint8Array(parts.reduce((n, p) => n + p.length, 0));
    let at = 0;
    for (const p of parts) { out.set(p, at); at += p.length; }
    return out;
  }

  // Bytes [from, to) of the file by a range request.
  async function fetchRange(url, from, to, counter) {
    const answer = await request(url, [from, to - 1], counter);
    if (!answer.partial) {
      answer.controller.abort();
      throw new Error(`${url}: the server stopped answering range requests`);
    }
    const parts = [];
    await readBody(answer.response, (b) => parts.push(b), answer.controller, counter);
    return concat(parts);
  }

  // The last part of a URL or path, for messages.
  const baseName = (text) => decodeURIComponent(String(text).split(/[?#]/)[0].split('/').pop() || String(text));

  const api = { Counter, readBody, request, fetchRange, concat, baseName, STALL_MS };
  if (typeof module === 'object' && module.exports) module.exports = api;
  else root.ZulFetch = api;
})(typeof self !== 'undefined' ? self : this);
