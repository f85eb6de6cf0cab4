// Shows what the service reports until a phone plays its first audio, then quits.
use sonvia_pc_audio::{EventKind, Failure, Handlers, Identity, LogLevel, Options, Session};
use std::sync::mpsc;
use std::sync::Mutex;
use std::time::Duration;

fn main() -> Result<(), Failure> {
    let (done, first_audio) = mpsc::channel();
    let (done, failed) = (Mutex::new(done.clone()), Mutex::new(done));
    let handlers = Handlers {
        on_event: Box::new(move |code, value| {
            let kind = EventKind::of(code);
            println!("{} {}", kind.map_or("unknown", EventKind::name), value);
            if kind == Some(EventKind::FirstAudio) {
                let _ = done.lock().unwrap().send(());
            }
        }),
        on_error: Box::new(move |code, value| {
            eprintln!("error {} {}", code, value);
            let _ = failed.lock().unwrap().send(());
        }),
    };
    let options = Options {
        log_folder: "C:\\ProgramData\\RustHost".into(),
        log_level: LogLevel::Info,
        connect_time: Duration::from_secs(5),
    };
    let session = Session::open(None, options, handlers)?;
    session.connect(&Identity { pc_name: "Büro".into(), ..Identity::default() })?;
    let _ = first_audio.recv();
    println!("phone {}, state {}", session.phone(), session.state());
    session.close()?;
    println!("closed");
    Ok(())
}
