'use strict';
const fs = require('node:fs');
const path = require('node:path');
const koffi = require('koffi');
const { textSize } = require('./declarations');
const { SonviaError } = require('./errors');

const longestFolder = 200;
const plain = (text) => /^[\x21-\x7e]*$/.test(text);

/** A text of the record: UTF-8 with its NUL, in bytes of its own. */
function textOf(text) {
    if (typeof text !== 'string') {
        throw new TypeError('a text is a string');
    }
    if (text.includes('\0')) {
        throw new SonviaError('textHoldsNul');
    }
    // A lone surrogate has no UTF-8.
    if (/[\ud800-\udbff](?![\udc00-\udfff])|(?<![\ud800-\udbff])[\udc00-\udfff]/.test(text)) {
        throw new SonviaError('textNotUtf8');
    }
    const bytes = new Uint8Array(textSize);
    if (Buffer.byteLength(text) >= textSize) {
        throw new SonviaError('textTooLong');
    }
    bytes.set(Buffer.from(text));
    return bytes;
}

function shortPath(folder) {
    const getShortPathName = koffi
        .load('kernel32.dll')
        .func('uint32_t __stdcall GetShortPathNameW(const char16_t *path, _Out_ uint8_t *buffer, uint32_t size)');
    const buffer = Buffer.alloc(65536);
    const length = getShortPathName(folder, buffer, buffer.length / 2);
    return buffer.toString('utf16le', 0, length * 2);
}

/** The folder as the service understands it: absolute, created, ASCII without spaces. */
function folderForService(folder) {
    if (typeof folder !== 'string') {
        throw new TypeError('logFolder is a string');
    }
    let given = path.resolve(folder);
    try {
        fs.mkdirSync(given, { recursive: true });
    } catch (cause) {
        throw new SonviaError('folderNotMade', { cause });
    }
    if (!plain(given)) {
        given = shortPath(given);
        if (given === '' || !plain(given)) {
            throw new SonviaError('folderWithoutShortName');
        }
    }
    if (given.length > longestFolder) {
        throw new SonviaError('folderTooLong');
    }
    return given;
}

module.exports = { textOf, folderForService };
