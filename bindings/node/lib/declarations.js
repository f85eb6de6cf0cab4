// Written by bindings/declarations.py from src/api/abi.json and bindings/texts.json: change those.
'use strict';

exports.LogLevel = Object.freeze({
    debug: 0,
    info: 1,
    warning: 3,
    error: 4,
});

exports.EventKind = Object.freeze({
    bufferingStarted: 200001,
    bufferingEnded: 200002,
    firstAudio: 200003,
    modeChanged: 200006,
});

exports.ErrorKind = Object.freeze({
    connection: -2,
    stream: -3,
});

exports.Failure = Object.freeze({
    libraryNotLoaded: 1,
    notTheLibrary: 2,
    serviceNotStarted: 3,
    sessionOpen: 4,
    notOpen: 5,
    insideCallback: 6,
    textTooLong: 7,
    textNotUtf8: 8,
    textHoldsNul: 9,
    folderNotMade: 10,
    folderTooLong: 11,
    folderWithoutShortName: 12,
    refused: 13,
});

exports.texts = Object.freeze({
    LogLevel: Object.freeze({
        debug: 'every call and every packet',
        info: 'the steps of a session',
        warning: 'what a host may have done wrong',
        error: 'what failed',
    }),
    EventKind: Object.freeze({
        bufferingStarted: 'buffering started',
        bufferingEnded: 'buffering ended',
        firstAudio: 'first audio',
        modeChanged: 'mode changed',
    }),
    ErrorKind: Object.freeze({
        connection: 'no connection to the service, or the connection was lost',
        stream: 'the stream from the service failed',
    }),
    Failure: Object.freeze({
        libraryNotLoaded: 'SonviaPCAudioDll.dll could not be loaded',
        notTheLibrary: 'SonviaPCAudioDll.dll lacks a function: it is another library or another version',
        serviceNotStarted: 'QuPCAudio.exe did not start: it belongs next to the host\'s executable',
        sessionOpen: 'a session is open already in this process',
        notOpen: 'the session is not open',
        insideCallback: 'a session is neither opened nor closed inside a callback',
        textTooLong: 'a text has more than 255 bytes of UTF-8',
        textNotUtf8: 'a text is not valid UTF-8',
        textHoldsNul: 'a text holds a NUL',
        folderNotMade: 'the log folder could not be created',
        folderTooLong: 'the path of the log folder has more than 200 characters',
        folderWithoutShortName: 'the service needs a log folder of ASCII without spaces, and this one has no short name',
        refused: 'the library refused the call: a connection is still being made, or memory ran out',
    }),
});

exports.stateUnknown = 4;
exports.textSize = 256;
exports.version = '2.1.2110122';
exports.library = 'SonviaPCAudioDll.dll';
exports.recordSize = 1560;
exports.textFields = Object.freeze(['accountID', 'deviceID', 'sn', 'model', 'bluetoothMac', 'pcName']);

// Each text is an array of bytes: text marshalling would go through UTF-16 or the code page.
exports.record = (koffi, callback) => koffi.struct('AudioServiceParam', {
    onEvent: koffi.pointer(callback),
    onError: koffi.pointer(callback),
    context: 'void *',
    accountID: koffi.array('uint8_t', 256, 'Typed'),
    deviceID: koffi.array('uint8_t', 256, 'Typed'),
    sn: koffi.array('uint8_t', 256, 'Typed'),
    model: koffi.array('uint8_t', 256, 'Typed'),
    bluetoothMac: koffi.array('uint8_t', 256, 'Typed'),
    pcName: koffi.array('uint8_t', 256, 'Typed'),
});

exports.functions = Object.freeze({
    exitAudioProjection: ['bool', ['void *']],
    getSourceName: ['const char *', ['void *']],
    getState: ['uint32_t', ['void *']],
    getVersion: ['int', []],
    initSonviaAudioService: ['void *', ['const char *', 'int']],
    setAccountID: ['bool', ['void *', 'const char *']],
    setParam: ['bool', ['void *', 'const AudioServiceParam *']],
    uninitSonviaAudioService: ['bool', ['void *']],
});
