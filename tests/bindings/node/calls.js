// What the package takes and refuses.
const assert = require('node:assert');
const fs = require('node:fs');
const { Session, SonviaError, stateUnknown } = require('sonvia-pc-audio');

const refused = (promise, code) =>
    assert.rejects(promise, (error) => error instanceof SonviaError && error.code === code && error.message !== code);

async function main() {
    fs.writeFileSync('file', '');
    await refused(Session.open({ logFolder: 'file/logs' }), 'folderNotMade');
    await refused(Session.open({ logFolder: 'logs', libraryFolder: 'no folder' }), 'libraryNotLoaded');
    await assert.rejects(Session.open({ logFolder: 'logs', logLevel: 'loud' }), RangeError);
    await assert.rejects(Session.open(), TypeError);

    fs.renameSync('QuPCAudio.exe', 'other.exe');
    await refused(Session.open({ logFolder: 'logs' }), 'serviceNotStarted');
    fs.renameSync('other.exe', 'QuPCAudio.exe');

    const opening = Session.open({ logFolder: 'logs', connectTime: 60000 });
    await refused(Session.open({ logFolder: 'logs' }), 'sessionOpen');
    const session = await opening;
    await refused(session.connect({ pcName: 'x'.repeat(256) }), 'textTooLong');
    await refused(session.connect({ pcName: 'ü'.repeat(128) }), 'textTooLong');
    await refused(session.connect({ pcName: 'a\0b' }), 'textHoldsNul');
    await refused(session.setAccount('\ud83c'), 'textNotUtf8');
    await assert.rejects(session.connect({ name: 'x' }), TypeError);
    const played = new Promise((resolve) => session.once('firstAudio', resolve));
    await session.connect({ accountID: 'abcdef', pcName: `${'x'.repeat(251)}🎧` });
    await played;
    assert.strictEqual(session.phone, 'Büro 中');
    await session.setAccount('abcdefgh');
    await session.setAccount('abc');
    await Promise.all([session.exitProjection(), session.close(), session.close()]);
    await refused(session.connect({}), 'notOpen');
    assert.deepStrictEqual([session.phone, session.state, session.isOpen], ['phone', stateUnknown, false]);

    fs.writeFileSync('scenario.txt', 'no-pipe\n');
    const lost = await Session.open({ logFolder: 'logs', connectTime: 300 });
    const error = new Promise((resolve) => lost.once('error', resolve));
    await lost.connect({});
    assert.strictEqual((await error).code, 'connection');
    await lost.close();
    console.log('all as it should be');
}

main().catch((error) => {
    console.error(error);
    process.exit(1); // a session that is open keeps Node.js running
});
