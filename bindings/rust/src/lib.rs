//! The session with the audio service for Rust on Windows x64. The handlers run on the library's thread; a panic in one
//! is caught and does not cross the library's frames.
mod declarations;

pub use declarations::{ErrorKind, EventKind, Failure, LogLevel, STATE_UNKNOWN, TEXT_SIZE, VERSION};

use declarations::{AudioServiceParam, Functions};
use std::cell::Cell;
use std::ffi::{CStr, CString};
use std::os::raw::{c_char, c_int, c_void};
use std::panic::{catch_unwind, AssertUnwindSafe};
use std::path::Path;
use std::sync::{Arc, Condvar, Mutex, MutexGuard};
use std::time::{Duration, Instant};

mod system;

const PAUSE_BETWEEN_CONNECTS: Duration = Duration::from_millis(100);

/// All texts have at most 255 bytes and no NUL.
#[derive(Clone, Default)]
pub struct Identity {
    pub account_id: String,
    pub device_id: String,
    /// Serial number of the computer.
    pub sn: String,
    pub model: String,
    pub bluetooth_mac: String,
    pub pc_name: String,
}

pub struct Options {
    /// Created if it is missing; replaced by its short name where the service could not be given it.
    pub log_folder: std::path::PathBuf,
    pub log_level: LogLevel,
    /// A service that starts slowly is asked again for so long; then on_error reports it.
    pub connect_time: Duration,
}

type Handler = Box<dyn Fn(i32, i32) + Send + Sync>;

/// The arguments are the code (an EventKind, an ErrorKind) and the value. They must return soon.
pub struct Handlers {
    pub on_event: Handler,
    pub on_error: Handler,
}

struct State {
    param: AudioServiceParam,
    retries_end: Instant,
    calls: usize,
    closing: bool,
    closed: bool,
}

struct Life {
    functions: Functions,
    handle: *mut c_void,
    handlers: Handlers,
    connect_time: Duration,
    state: Mutex<State>,
    changed: Condvar,
}

// The handle may be used by every thread; `calls` keeps all of them away from the release.
unsafe impl Send for Life {}
unsafe impl Sync for Life {}

enum Place {
    Free,
    Taken,
    Open(Arc<Life>),
}

// The library's callbacks carry no pointer of the host's.
static CURRENT: Mutex<Place> = Mutex::new(Place::Free);

thread_local! {
    static INSIDE: Cell<bool> = Cell::new(false);
}

// A handler that panicked leaves no lock poisoned, and what these locks guard is whole at any time.
fn lock<T>(mutex: &Mutex<T>) -> MutexGuard<'_, T> {
    mutex.lock().unwrap_or_else(|poisoned| poisoned.into_inner())
}

fn deliver(function: impl FnOnce(&Life)) {
    let life = match &*lock(&CURRENT) {
        Place::Open(life) => life.clone(),
        _ => return,
    };
    INSIDE.with(|inside| inside.set(true));
    // The panic's message has been printed by its hook already.
    let _ = catch_unwind(AssertUnwindSafe(|| function(&life)));
    INSIDE.with(|inside| inside.set(false));
}

extern "C" fn on_event(event: c_int, value: c_int) {
    deliver(|life| (life.handlers.on_event)(event, value));
}

extern "C" fn on_error(code: c_int, value: c_int) {
    deliver(|life| {
        let no_error = code == ErrorKind::Stream as i32 && value == 0; // a frame came in several pieces
        let never_connected = code == ErrorKind::Connection as i32 && value == 0;
        if !no_error && !(never_connected && life.connect_again()) {
            (life.handlers.on_error)(code, value);
        }
    });
}

fn put(text: &str, field: &mut [u8; TEXT_SIZE]) -> Result<(), Failure> {
    if text.contains('\0') {
        return Err(Failure::TextHoldsNul);
    }
    if text.len() >= TEXT_SIZE {
        return Err(Failure::TextTooLong);
    }
    *field = [0; TEXT_SIZE];
    field[..text.len()].copy_from_slice(text.as_bytes());
    Ok(())
}

impl Life {
    /// A call that may not overlap the release.
    fn enter<T>(&self, function: impl FnOnce() -> T) -> Result<T, Failure> {
        {
            let mut state = lock(&self.state);
            if state.closing {
                return Err(Failure::NotOpen);
            }
            state.calls += 1;
        }
        let result = function();
        lock(&self.state).calls -= 1;
        self.changed.notify_all();
        Ok(result)
    }

    fn call(&self, function: impl FnOnce() -> bool) -> Result<(), Failure> {
        if self.enter(function)? {
            Ok(())
        } else {
            Err(Failure::Refused)
        }
    }

    fn send_param(&self) -> Result<(), Failure> {
        self.call(|| {
            let copy = lock(&self.state).param;
            unsafe { (self.functions.setParam)(self.handle, &copy) }
        })
    }

    /// On the library's thread. No event can come while there is no connection, so the pause delays none.
    fn connect_again(&self) -> bool {
        {
            let state = lock(&self.state);
            if !state.closing && Instant::now() >= state.retries_end {
                return false;
            }
            let waited = self.changed.wait_timeout_while(state, PAUSE_BETWEEN_CONNECTS, |state| !state.closing);
            if waited.map(|(state, _)| state.closing).unwrap_or(true) {
                return true;
            }
        }
        !matches!(self.send_param(), Err(Failure::Refused))
    }

    fn release(&self) {
        let mut state = lock(&self.state);
        if state.closing {
            let _closed = self.changed.wait_while(state, |state| !state.closed);
            return;
        }
        state.closing = true;
        self.changed.notify_all();
        drop(self.changed.wait_while(state, |state| state.calls != 0));
        unsafe { (self.functions.uninitSonviaAudioService)(self.handle) };
        *lock(&CURRENT) = Place::Free;
        lock(&self.state).closed = true;
        self.changed.notify_all();
    }
}

/// One session at a time in a process. Dropping it closes it; inside a handler on a thread of its own.
pub struct Session {
    life: Arc<Life>,
}

impl Session {
    /// Starts the service, which has to be next to the running program. `library_folder` is where the DLL is; None for
    /// the program's folder. Blocks while running services are ended, plus 200 ms.
    pub fn open(library_folder: Option<&Path>, options: Options, handlers: Handlers) -> Result<Session, Failure> {
        if INSIDE.with(Cell::get) {
            return Err(Failure::InsideCallback);
        }
        let functions = system::load(library_folder)?;
        let folder = CString::new(system::folder_for_service(&options.log_folder)?).map_err(|_| Failure::TextHoldsNul)?;
        {
            let mut current = lock(&CURRENT);
            if !matches!(*current, Place::Free) {
                return Err(Failure::SessionOpen);
            }
            *current = Place::Taken;
        }
        let handle = unsafe { (functions.initSonviaAudioService)(folder.as_ptr(), options.log_level as c_int) };
        if handle.is_null() {
            *lock(&CURRENT) = Place::Free;
            return Err(Failure::ServiceNotStarted);
        }
        let empty = [0; TEXT_SIZE];
        let life = Arc::new(Life {
            functions,
            handle,
            handlers,
            connect_time: options.connect_time,
            state: Mutex::new(State {
                param: AudioServiceParam {
                    onEvent: Some(on_event),
                    onError: Some(on_error),
                    context: handle, // anything but null
                    accountID: empty,
                    deviceID: empty,
                    sn: empty,
                    model: empty,
                    bluetoothMac: empty,
                    pcName: empty,
                },
                retries_end: Instant::now(),
                calls: 0,
                closing: false,
                closed: false,
            }),
            changed: Condvar::new(),
        });
        *lock(&CURRENT) = Place::Open(life.clone());
        Ok(Session { life })
    }

    /// Connects and sends the identity; again to change it.
    pub fn connect(&self, identity: &Identity) -> Result<(), Failure> {
        {
            let mut state = lock(&self.life.state);
            let mut next = state.param;
            put(&identity.account_id, &mut next.accountID)?;
            put(&identity.device_id, &mut next.deviceID)?;
            put(&identity.sn, &mut next.sn)?;
            put(&identity.model, &mut next.model)?;
            put(&identity.bluetooth_mac, &mut next.bluetoothMac)?;
            put(&identity.pc_name, &mut next.pcName)?;
            state.param = next;
            state.retries_end = Instant::now() + self.life.connect_time;
        }
        self.life.send_param()
    }

    /// Empty if nobody is signed in.
    pub fn set_account(&self, account: &str) -> Result<(), Failure> {
        let mut field = [0; TEXT_SIZE];
        put(account, &mut field)?;
        let shorter = {
            let mut state = lock(&self.life.state);
            let before = state.param.accountID.iter().take_while(|&&byte| byte != 0).count();
            state.param.accountID = field;
            account.is_empty() || account.len() < before
        };
        if shorter {
            return self.life.send_param(); // the library's setAccountID keeps the tail of a longer id
        }
        let life = &self.life;
        life.call(|| unsafe { (life.functions.setAccountID)(life.handle, field.as_ptr() as *const c_char) })
    }

    /// Asks the service to end the projection.
    pub fn exit_projection(&self) -> Result<(), Failure> {
        let life = &self.life;
        life.call(|| unsafe { (life.functions.exitAudioProjection)(life.handle) })
    }

    /// The player state as the service sent it.
    pub fn state(&self) -> u32 {
        let life = &self.life;
        life.enter(|| unsafe { (life.functions.getState)(life.handle) }).unwrap_or(STATE_UNKNOWN)
    }

    /// The name of the phone, copied at once: the library owns its text.
    pub fn phone(&self) -> String {
        let life = &self.life;
        life.enter(|| unsafe { CStr::from_ptr((life.functions.getSourceName)(life.handle)).to_string_lossy().into_owned() })
            .unwrap_or_else(|_| "phone".to_string())
    }

    /// Stops the service; does nothing the second time. Not inside a handler.
    pub fn close(&self) -> Result<(), Failure> {
        if INSIDE.with(Cell::get) {
            return Err(Failure::InsideCallback);
        }
        self.life.release();
        Ok(())
    }
}

impl Drop for Session {
    fn drop(&mut self) {
        if self.close().is_err() {
            let life = self.life.clone();
            std::thread::spawn(move || life.release());
        }
    }
}
