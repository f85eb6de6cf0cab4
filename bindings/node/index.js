'use strict';
/**
 * The session with the audio service for Node.js and Electron: events, promises for everything that blocks, UTF-8.
 *
 * The library calls back on a thread of its own, and koffi lets that thread wait until JavaScript has run the callback.
 * A release that blocks JavaScript's thread would therefore wait for ever. So whatever blocks runs on a worker thread
 * here, and callbacks only put events into a queue.
 */
const { EventEmitter } = require('node:events');
const path = require('node:path');
const declarations = require('./lib/declarations');
const { SonviaError } = require('./lib/errors');
const { textOf, folderForService } = require('./lib/texts');
const { loadLibrary } = require('./lib/library');

const pauseBetweenConnects = 100;

const nameOf = (group, value) =>
    Object.keys(declarations[group]).find((name) => declarations[group][name] === value) ?? 'unknown';

/** One session at a time in a process, as the service is one for the machine. */
let openSession = null;

class Session extends EventEmitter {
    #library;
    #handle;
    #param;
    #callbacks = [];
    #connectTime;
    #retriesEnd = 0;
    #retry = null;
    #queue = Promise.resolve();
    #closing = null;
    #closed = false;
    #alive = null;

    /** Use Session.open. */
    constructor(library, connectTime) {
        super();
        this.#library = library;
        this.#connectTime = connectTime;
        this.#callbacks = [
            library.register((event, value) => this.#later(() => this.#onEvent(event, value))),
            library.register((code, value) => this.#later(() => this.#onError(code, value))),
        ];
        this.#param = {
            onEvent: this.#callbacks[0],
            onError: this.#callbacks[1],
            context: this.#callbacks[0], // anything but null
            ...Object.fromEntries(declarations.textFields.map((name) => [name, textOf('')])),
        };
        // Nothing else keeps Node.js running while only the library's thread is at work.
        this.#alive = setInterval(() => {}, 0x7fffffff);
    }

    static async open({ logFolder, logLevel = 'info', connectTime = 5000, libraryFolder } = {}) {
        if (openSession !== null) {
            throw new SonviaError('sessionOpen');
        }
        if (!(logLevel in declarations.LogLevel)) {
            throw new RangeError(`logLevel is one of ${Object.keys(declarations.LogLevel).join(', ')}`);
        }
        openSession = 'opening';
        let session = null;
        try {
            const folder = folderForService(logFolder);
            const library = loadLibrary(path.resolve(libraryFolder ?? path.dirname(process.execPath)));
            session = new Session(library, connectTime);
            session.#handle = await library.initSonviaAudioService(folder, declarations.LogLevel[logLevel]);
            if (session.#handle === null) {
                throw new SonviaError('serviceNotStarted');
            }
        } catch (error) {
            session?.#forget();
            openSession = null;
            throw error;
        }
        openSession = session;
        return session;
    }

    async connect(identity = {}) {
        const texts = Object.entries(identity).map(([name, text]) => {
            if (!declarations.textFields.includes(name)) {
                throw new TypeError(`an identity has no ${name}`);
            }
            return [name, textOf(text)];
        });
        this.#retriesEnd = Date.now() + this.#connectTime;
        await this.#inTurn(() => {
            Object.assign(this.#param, Object.fromEntries(texts));
            return this.#library.setParam(this.#handle, this.#param);
        });
    }

    async setAccount(accountID) {
        const text = textOf(accountID);
        await this.#inTurn(() => {
            const length = (bytes) => bytes.indexOf(0);
            const shorter = length(text) === 0 || length(text) < length(this.#param.accountID);
            this.#param.accountID = text;
            // The library's setAccountID keeps the tail of a longer id.
            return shorter
                ? this.#library.setParam(this.#handle, this.#param)
                : this.#library.setAccountID(this.#handle, accountID);
        });
    }

    async exitProjection() {
        await this.#inTurn(() => this.#library.exitAudioProjection(this.#handle));
    }

    get state() {
        return this.isOpen ? this.#library.getState(this.#handle) : declarations.stateUnknown;
    }

    get phone() {
        return this.isOpen ? this.#library.getSourceName(this.#handle) : 'phone';
    }

    get isOpen() {
        return this.#closing === null;
    }

    close() {
        this.#closing ??= this.#close();
        return this.#closing;
    }

    async #close() {
        clearTimeout(this.#retry);
        await this.#queue; // no call may run beside the release
        await this.#library.uninitSonviaAudioService(this.#handle);
        this.#closed = true;
        this.#forget();
        openSession = null;
    }

    #forget() {
        this.#callbacks.forEach((callback) => this.#library.unregister(callback));
        clearInterval(this.#alive);
    }

    /** Calls run one after another, so that packets leave in the order of the calls. */
    async #inTurn(call) {
        if (!this.isOpen) {
            throw new SonviaError('notOpen');
        }
        const done = this.#queue.then(call);
        this.#queue = done.catch(() => {});
        if (!(await done)) {
            throw new SonviaError('refused');
        }
    }

    /** Outside of the callback, for which the library's thread waits: a listener may then do anything, close too. */
    #later(report) {
        setImmediate(() => this.#closed || report());
    }

    #onEvent(code, value) {
        const name = nameOf('EventKind', code);
        this.emit('event', { name, code, value });
        this.emit(name, value);
    }

    #onError(code, value) {
        const kind = nameOf('ErrorKind', code);
        if (kind === 'stream' && value === 0) {
            return; // a frame came in several pieces
        }
        if (kind === 'connection' && value === 0 && this.#connectAgain()) {
            return;
        }
        this.emit('error', new SonviaError(kind, { value }));
    }

    /** A service that starts slowly is asked again until the connect time is over. */
    #connectAgain() {
        if (!this.isOpen) {
            return true; // close breaks off what was being connected
        }
        if (Date.now() >= this.#retriesEnd) {
            return false;
        }
        clearTimeout(this.#retry);
        this.#retry = setTimeout(() => {
            this.#inTurn(() => this.#library.setParam(this.#handle, this.#param)).catch((error) => {
                if (error.code !== 'notOpen') {
                    this.emit('error', error);
                }
            });
        }, pauseBetweenConnects);
        return true;
    }
}

// Node.js before 18.18 has no such symbol, and `await using` needs it.
if (Symbol.asyncDispose !== undefined) {
    Session.prototype[Symbol.asyncDispose] = function dispose() {
        return this.close();
    };
}

module.exports = { Session, SonviaError, ...declarations };
