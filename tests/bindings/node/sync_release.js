// What must hang: the release on JavaScript's own thread, for which the callback waits that the release waits for.
const path = require('node:path');
const koffi = require('koffi');
const declarations = require('sonvia-pc-audio/lib/declarations');

const library = koffi.load(path.join(path.dirname(process.execPath), declarations.library));
const callback = koffi.proto('void SonviaCallback(int code, int value)');
declarations.record(koffi, callback);
const functions = Object.fromEntries(
    Object.entries(declarations.functions).map(([name, types]) => [name, library.func(name, ...types)]),
);

let events = 0;
const onEvent = koffi.register(() => {
    if (++events === 10) {
        setImmediate(() => {
            console.log('releasing');
            functions.uninitSonviaAudioService(handle);
            console.log('released');
            process.exit(0);
        });
    }
}, koffi.pointer(callback));
const onError = koffi.register(() => setTimeout(connect, 100), koffi.pointer(callback));
const handle = functions.initSonviaAudioService('logs', declarations.LogLevel.warning);
const texts = Object.fromEntries(declarations.textFields.map((name) => [name, new Uint8Array(declarations.textSize)]));

function connect() {
    functions.setParam(handle, { onEvent, onError, context: onEvent, ...texts });
}

connect();
setInterval(() => {}, 1000);
