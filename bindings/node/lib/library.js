'use strict';
const path = require('node:path');
const koffi = require('koffi');
const declarations = require('./declarations');
const { SonviaError } = require('./errors');

// These never block, so they are called where they stand; everything else runs on a worker thread.
const neverBlocking = ['getState', 'getSourceName', 'getVersion'];
const searchSystemFolderAlone = 0x800;

const callback = koffi.proto('void SonviaCallback(int code, int value)');
const record = declarations.record(koffi, callback);
if (koffi.sizeof(record) !== declarations.recordSize) {
    throw new Error(`the record has ${koffi.sizeof(record)} bytes: this process is not for x64`);
}

let loaded = null;

/** What the DLL needs is looked for in the system's folder alone, and never in the current one. */
function loadSafely(file) {
    const loadLibraryEx = koffi
        .load('kernel32.dll')
        .func('void *__stdcall LoadLibraryExW(const char16_t *file, void *reserved, uint32_t flags)');
    if (loadLibraryEx(file, null, searchSystemFolderAlone) === null) {
        throw new SonviaError('libraryNotLoaded', { cause: new Error(`${file} could not be loaded`) });
    }
    return koffi.load(file); // the same module once more
}

const asPromise = (native) => (...values) =>
    new Promise((resolve, reject) => {
        native.async(...values, (error, result) => (error ? reject(error) : resolve(result)));
    });

/** The exported functions by name, and the life of callbacks. The library stays in the process once it is loaded. */
function loadLibrary(folder) {
    const file = path.join(folder, declarations.library);
    if (loaded !== null) {
        return loaded;
    }
    const module = loadSafely(file);
    const functions = {};
    for (const [name, [returns, values]] of Object.entries(declarations.functions)) {
        let native;
        try {
            native = module.func(name, returns, values);
        } catch (cause) {
            throw new SonviaError('notTheLibrary', { cause });
        }
        functions[name] = neverBlocking.includes(name) ? native : asPromise(native);
    }
    functions.register = (listener) => koffi.register(listener, koffi.pointer(callback));
    functions.unregister = (pointer) => koffi.unregister(pointer);
    loaded = functions;
    return loaded;
}

module.exports = { loadLibrary };
