// Shows what the service reports until a phone plays its first audio, then quits.
const { Session } = require('sonvia-pc-audio');

async function main() {
    const session = await Session.open({ logFolder: process.argv[2] ?? 'C:\\ProgramData\\NodeHost' });
    try {
        session.on('event', ({ name, value }) => console.log(`${name} ${value}`));
        const firstAudio = new Promise((resolve, reject) => {
            session.once('firstAudio', resolve);
            session.on('error', reject);
        });
        await session.connect({ accountID: 'someone@example.com', pcName: 'Büro' });
        await firstAudio;
        console.log(`phone ${session.phone}, state ${session.state}`);
    } finally {
        await session.close();
    }
    console.log('closed');
}

main().catch((error) => {
    console.error(`${error.code}: ${error.message}`);
    process.exitCode = 1;
});
