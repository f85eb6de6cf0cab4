// 20 sessions that are closed while 200 events arrive in a second; prints how many milliseconds each close took.
const { Session } = require('sonvia-pc-audio');

async function main() {
    for (let round = 0; round < 20; ++round) {
        const session = await Session.open({ logFolder: 'logs', logLevel: 'warning', connectTime: 60000 });
        let events = 0;
        const flooded = new Promise((resolve, reject) => {
            session.on('error', reject);
            session.on('event', () => ++events === 10 && resolve());
        });
        await session.connect({ pcName: 'Büro' });
        await flooded;
        const start = Date.now();
        await session.close();
        console.log(`closed ${Date.now() - start}`);
    }
}

main().catch((error) => {
    console.error(error);
    process.exit(1); // a session that is open keeps Node.js running
});
