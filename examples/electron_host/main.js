// @ts-check
// The main process of an Electron program: starts the service, passes events to the window, and quits cleanly.
const { app, BrowserWindow } = require('electron');
const { Session } = require('sonvia-pc-audio');

/** @type {Session | null} */
let session = null;

async function startAudio(/** @type {BrowserWindow} */ window) {
    session = await Session.open({ logFolder: app.getPath('logs') });
    session.on('event', (event) => window.isDestroyed() || window.webContents.send('audio', event));
    session.on('error', (error) => console.error(`${error.code}: ${error.message}`));
    await session.connect({ pcName: require('node:os').hostname() });
}

app.whenReady().then(() => {
    const window = new BrowserWindow();
    window.loadFile('index.html');
    startAudio(window).catch((error) => console.error(`${error.code}: ${error.message}`));
});

// Electron does not wait for promises when it quits: hold it back until the service has ended, then quit again.
app.on('before-quit', (event) => {
    if (session !== null) {
        const closing = session;
        session = null;
        event.preventDefault();
        closing.close().finally(() => app.quit());
    }
});

app.on('window-all-closed', () => app.quit());
