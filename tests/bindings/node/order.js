// 3,000 events, which must arrive in their order, and a close in the listener of the last one.
const assert = require('node:assert');
const { Session } = require('sonvia-pc-audio');

const count = 3000;

async function main() {
    const session = await Session.open({ logFolder: 'logs', logLevel: 'warning', connectTime: 60000 });
    const modes = [];
    const closed = new Promise((resolve, reject) => {
        session.on('error', reject);
        session.on('modeChanged', (mode) => {
            modes.push(mode);
            if (modes.length === count) {
                session.close().then(resolve, reject);
            }
        });
    });
    await session.connect({ pcName: 'Büro' });
    await closed;
    assert.deepStrictEqual(modes, Array.from({ length: count }, (_, index) => index));
    console.log('in order');
}

main().catch((error) => {
    console.error(error);
    process.exit(1); // a session that is open keeps Node.js running
});
