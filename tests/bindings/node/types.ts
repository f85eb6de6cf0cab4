// Compiled, not run: what the declarations allow, and what they refuse.
import { EventKind, Failure, Session, SonviaError, stateUnknown, texts } from 'sonvia-pc-audio';

export async function host(): Promise<string> {
    const session: Session = await Session.open({ logFolder: 'C:\\logs', logLevel: 'warning', connectTime: 1000 });
    session.on('event', ({ name, code, value }) => console.log(name === 'firstAudio', code === EventKind.firstAudio, value));
    session.once('modeChanged', (mode: number) => console.log(mode));
    session.on('error', (error: SonviaError) => console.log(error.code === 'connection', error.value));
    await session.connect({ accountID: 'a', deviceID: 'b', sn: 'c', model: 'd', bluetoothMac: 'e', pcName: 'f' });
    await session.setAccount('');
    await session.exitProjection();
    console.log(session.state === stateUnknown, texts.Failure.refused, Failure.refused);
    await session[Symbol.asyncDispose]();
    await session.close();

    // @ts-expect-error: the log folder is needed
    Session.open({});
    // @ts-expect-error: no such level
    Session.open({ logFolder: '', logLevel: 'loud' });
    // @ts-expect-error: sessions come from Session.open
    new Session();
    // @ts-expect-error: no such text
    session.connect({ name: 'x' });
    // @ts-expect-error: no such event
    session.on('audio', () => {});
    return session.phone;
}
