import { EventEmitter } from 'events';
import { ErrorKindName, EventKindName, FailureName, Identity, LogLevelName } from './lib/declarations';

export * from './lib/declarations';

export interface OpenOptions {
    /** Created if it is missing. A path that the service cannot be given is replaced by its short name. */
    logFolder: string;
    /** 'info' if left out. */
    logLevel?: LogLevelName;
    /** Milliseconds in which a service that starts slowly is asked again; 5000 if left out. */
    connectTime?: number;
    /** Where SonviaPCAudioDll.dll is; the folder of the running executable if left out. */
    libraryFolder?: string;
}

export interface SonviaEvent {
    name: EventKindName | 'unknown';
    code: number;
    /** The new mode for modeChanged, otherwise 0. */
    value: number;
}

export class SonviaError extends Error {
    readonly code: FailureName | ErrorKindName;
    /** libuv's error code; 0 if no connection was made. */
    readonly value?: number;
    readonly cause?: unknown;
}

/**
 * One session with the service. Listeners run on JavaScript's thread and may call everything, close too.
 * Without a listener for 'error' a lost connection is an uncaught exception, as with every EventEmitter.
 */
export class Session extends EventEmitter {
    private constructor();
    /** Starts the service, which has to be next to the running executable. */
    static open(options: OpenOptions): Promise<Session>;

    /** Connects and sends the identity; later calls send the new one. Texts that are left out stay as they are. */
    connect(identity?: Identity): Promise<void>;
    /** '' if nobody is signed in. */
    setAccount(accountID: string): Promise<void>;
    /** Asks the service to end the projection. */
    exitProjection(): Promise<void>;
    /** Stops the service and releases everything. May be called again: it gives the same promise. */
    close(): Promise<void>;

    /** The player state as the service sent it; stateUnknown before its first report. */
    readonly state: number;
    /** The name of the phone; 'phone' while none is known. */
    readonly phone: string;
    readonly isOpen: boolean;

    on(event: 'event', listener: (event: SonviaEvent) => void): this;
    on(event: EventKindName, listener: (value: number) => void): this;
    on(event: 'error', listener: (error: SonviaError) => void): this;
    once(event: 'event', listener: (event: SonviaEvent) => void): this;
    once(event: EventKindName, listener: (value: number) => void): this;
    once(event: 'error', listener: (error: SonviaError) => void): this;
}

// `await using` needs Symbol.asyncDispose, which older libraries of TypeScript do not declare.
declare global {
    interface SymbolConstructor {
        readonly asyncDispose: unique symbol;
    }
}
export interface Session {
    [Symbol.asyncDispose](): Promise<void>;
}
