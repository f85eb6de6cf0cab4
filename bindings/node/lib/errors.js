'use strict';
const { texts } = require('./declarations');

/** `code` is a name of Failure or ErrorKind; `value` is libuv's error code, where there is one. */
class SonviaError extends Error {
    constructor(code, { value, cause } = {}) {
        super((texts.Failure[code] ?? texts.ErrorKind[code] ?? code) + (value ? ` (${value})` : ''));
        this.name = 'SonviaError';
        this.code = code;
        if (value !== undefined) {
            this.value = value;
        }
        if (cause !== undefined) {
            this.cause = cause;
        }
    }
}

module.exports = { SonviaError };
