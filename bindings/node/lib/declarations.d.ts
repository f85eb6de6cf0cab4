// Written by bindings/declarations.py from src/api/abi.json and bindings/texts.json: change those.

export type LogLevelName =
    | 'debug'
    | 'info'
    | 'warning'
    | 'error';
export declare const LogLevel: {
    /** every call and every packet */
    readonly debug: 0;
    /** the steps of a session */
    readonly info: 1;
    /** what a host may have done wrong */
    readonly warning: 3;
    /** what failed */
    readonly error: 4;
};

export type EventKindName =
    | 'bufferingStarted'
    | 'bufferingEnded'
    | 'firstAudio'
    | 'modeChanged';
export declare const EventKind: {
    /** buffering started */
    readonly bufferingStarted: 200001;
    /** buffering ended */
    readonly bufferingEnded: 200002;
    /** first audio */
    readonly firstAudio: 200003;
    /** mode changed */
    readonly modeChanged: 200006;
};

export type ErrorKindName =
    | 'connection'
    | 'stream';
export declare const ErrorKind: {
    /** no connection to the service, or the connection was lost */
    readonly connection: -2;
    /** the stream from the service failed */
    readonly stream: -3;
};

export type FailureName =
    | 'libraryNotLoaded'
    | 'notTheLibrary'
    | 'serviceNotStarted'
    | 'sessionOpen'
    | 'notOpen'
    | 'insideCallback'
    | 'textTooLong'
    | 'textNotUtf8'
    | 'textHoldsNul'
    | 'folderNotMade'
    | 'folderTooLong'
    | 'folderWithoutShortName'
    | 'refused';
export declare const Failure: {
    /** SonviaPCAudioDll.dll could not be loaded */
    readonly libraryNotLoaded: 1;
    /** SonviaPCAudioDll.dll lacks a function: it is another library or another version */
    readonly notTheLibrary: 2;
    /** QuPCAudio.exe did not start: it belongs next to the host's executable */
    readonly serviceNotStarted: 3;
    /** a session is open already in this process */
    readonly sessionOpen: 4;
    /** the session is not open */
    readonly notOpen: 5;
    /** a session is neither opened nor closed inside a callback */
    readonly insideCallback: 6;
    /** a text has more than 255 bytes of UTF-8 */
    readonly textTooLong: 7;
    /** a text is not valid UTF-8 */
    readonly textNotUtf8: 8;
    /** a text holds a NUL */
    readonly textHoldsNul: 9;
    /** the log folder could not be created */
    readonly folderNotMade: 10;
    /** the path of the log folder has more than 200 characters */
    readonly folderTooLong: 11;
    /** the service needs a log folder of ASCII without spaces, and this one has no short name */
    readonly folderWithoutShortName: 12;
    /** the library refused the call: a connection is still being made, or memory ran out */
    readonly refused: 13;
};

export declare const texts: {
    readonly LogLevel: {
        readonly debug: string;
        readonly info: string;
        readonly warning: string;
        readonly error: string;
    };
    readonly EventKind: {
        readonly bufferingStarted: string;
        readonly bufferingEnded: string;
        readonly firstAudio: string;
        readonly modeChanged: string;
    };
    readonly ErrorKind: {
        readonly connection: string;
        readonly stream: string;
    };
    readonly Failure: {
        readonly libraryNotLoaded: string;
        readonly notTheLibrary: string;
        readonly serviceNotStarted: string;
        readonly sessionOpen: string;
        readonly notOpen: string;
        readonly insideCallback: string;
        readonly textTooLong: string;
        readonly textNotUtf8: string;
        readonly textHoldsNul: string;
        readonly folderNotMade: string;
        readonly folderTooLong: string;
        readonly folderWithoutShortName: string;
        readonly refused: string;
    };
};

export interface Identity {
    accountID?: string;
    deviceID?: string;
    sn?: string;
    model?: string;
    bluetoothMac?: string;
    pcName?: string;
}

export declare const stateUnknown: 4;
export declare const textSize: 256;
export declare const version: '2.1.2110122';
