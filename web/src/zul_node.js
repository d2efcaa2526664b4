// The decoder in Node: loads the WebAssembly module from dist/ beside this folder, and hands out
// the decoder of zul_core.js.
'use strict';
const fs = require('fs');
const path = require('path');
const core = require('./zul_core.js');

// Resolves to the module instance that Decoder and decodeBytes take.
async function loadWasm(dir = path.join(__dirname, '..', 'dist')) {
  const ZulWasm = require(path.join(dir, 'zul_wasm.js'));
  return ZulWasm({ wasmBinary: fs.readFileSync(path.join(dir, 'zul_wasm.wasm')) });
}

module.exports = Object.assign({ loadWasm }, core);
