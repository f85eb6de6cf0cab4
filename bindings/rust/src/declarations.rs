// Written by bindings/declarations.py from src/api/abi.json and bindings/texts.json: change those.
use std::os::raw::{c_char, c_int, c_void};

#[derive(Clone, Copy, Debug, Eq, PartialEq)]
#[repr(i32)]
pub enum LogLevel {
    /// every call and every packet
    Debug = 0,
    /// the steps of a session
    Info = 1,
    /// what a host may have done wrong
    Warning = 3,
    /// what failed
    Error = 4,
}

impl LogLevel {
    /// None for a value that this version does not know.
    pub fn of(value: i32) -> Option<Self> {
        match value {
            0 => Some(LogLevel::Debug),
            1 => Some(LogLevel::Info),
            3 => Some(LogLevel::Warning),
            4 => Some(LogLevel::Error),
            _ => None,
        }
    }

    pub fn name(self) -> &'static str {
        match self {
            LogLevel::Debug => "debug",
            LogLevel::Info => "info",
            LogLevel::Warning => "warning",
            LogLevel::Error => "error",
        }
    }

    pub fn text(self) -> &'static str {
        match self {
            LogLevel::Debug => "every call and every packet",
            LogLevel::Info => "the steps of a session",
            LogLevel::Warning => "what a host may have done wrong",
            LogLevel::Error => "what failed",
        }
    }
}

#[derive(Clone, Copy, Debug, Eq, PartialEq)]
#[repr(i32)]
pub enum EventKind {
    /// buffering started
    BufferingStarted = 200001,
    /// buffering ended
    BufferingEnded = 200002,
    /// first audio
    FirstAudio = 200003,
    /// mode changed
    ModeChanged = 200006,
}

impl EventKind {
    /// None for a value that this version does not know.
    pub fn of(value: i32) -> Option<Self> {
        match value {
            200001 => Some(EventKind::BufferingStarted),
            200002 => Some(EventKind::BufferingEnded),
            200003 => Some(EventKind::FirstAudio),
            200006 => Some(EventKind::ModeChanged),
            _ => None,
        }
    }

    pub fn name(self) -> &'static str {
        match self {
            EventKind::BufferingStarted => "bufferingStarted",
            EventKind::BufferingEnded => "bufferingEnded",
            EventKind::FirstAudio => "firstAudio",
            EventKind::ModeChanged => "modeChanged",
        }
    }

    pub fn text(self) -> &'static str {
        match self {
            EventKind::BufferingStarted => "buffering started",
            EventKind::BufferingEnded => "buffering ended",
            EventKind::FirstAudio => "first audio",
            EventKind::ModeChanged => "mode changed",
        }
    }
}

#[derive(Clone, Copy, Debug, Eq, PartialEq)]
#[repr(i32)]
pub enum ErrorKind {
    /// no connection to the service, or the connection was lost
    Connection = -2,
    /// the stream from the service failed
    Stream = -3,
}

impl ErrorKind {
    /// None for a value that this version does not know.
    pub fn of(value: i32) -> Option<Self> {
        match value {
            -2 => Some(ErrorKind::Connection),
            -3 => Some(ErrorKind::Stream),
            _ => None,
        }
    }

    pub fn name(self) -> &'static str {
        match self {
            ErrorKind::Connection => "connection",
            ErrorKind::Stream => "stream",
        }
    }

    pub fn text(self) -> &'static str {
        match self {
            ErrorKind::Connection => "no connection to the service, or the connection was lost",
            ErrorKind::Stream => "the stream from the service failed",
        }
    }
}

#[derive(Clone, Copy, Debug, Eq, PartialEq)]
#[repr(i32)]
pub enum Failure {
    /// SonviaPCAudioDll.dll could not be loaded
    LibraryNotLoaded = 1,
    /// SonviaPCAudioDll.dll lacks a function: it is another library or another version
    NotTheLibrary = 2,
    /// QuPCAudio.exe did not start: it belongs next to the host's executable
    ServiceNotStarted = 3,
    /// a session is open already in this process
    SessionOpen = 4,
    /// the session is not open
    NotOpen = 5,
    /// a session is neither opened nor closed inside a callback
    InsideCallback = 6,
    /// a text has more than 255 bytes of UTF-8
    TextTooLong = 7,
    /// a text is not valid UTF-8
    TextNotUtf8 = 8,
    /// a text holds a NUL
    TextHoldsNul = 9,
    /// the log folder could not be created
    FolderNotMade = 10,
    /// the path of the log folder has more than 200 characters
    FolderTooLong = 11,
    /// the service needs a log folder of ASCII without spaces, and this one has no short name
    FolderWithoutShortName = 12,
    /// the library refused the call: a connection is still being made, or memory ran out
    Refused = 13,
}

impl Failure {
    /// None for a value that this version does not know.
    pub fn of(value: i32) -> Option<Self> {
        match value {
            1 => Some(Failure::LibraryNotLoaded),
            2 => Some(Failure::NotTheLibrary),
            3 => Some(Failure::ServiceNotStarted),
            4 => Some(Failure::SessionOpen),
            5 => Some(Failure::NotOpen),
            6 => Some(Failure::InsideCallback),
            7 => Some(Failure::TextTooLong),
            8 => Some(Failure::TextNotUtf8),
            9 => Some(Failure::TextHoldsNul),
            10 => Some(Failure::FolderNotMade),
            11 => Some(Failure::FolderTooLong),
            12 => Some(Failure::FolderWithoutShortName),
            13 => Some(Failure::Refused),
            _ => None,
        }
    }

    pub fn name(self) -> &'static str {
        match self {
            Failure::LibraryNotLoaded => "libraryNotLoaded",
            Failure::NotTheLibrary => "notTheLibrary",
            Failure::ServiceNotStarted => "serviceNotStarted",
            Failure::SessionOpen => "sessionOpen",
            Failure::NotOpen => "notOpen",
            Failure::InsideCallback => "insideCallback",
            Failure::TextTooLong => "textTooLong",
            Failure::TextNotUtf8 => "textNotUtf8",
            Failure::TextHoldsNul => "textHoldsNul",
            Failure::FolderNotMade => "folderNotMade",
            Failure::FolderTooLong => "folderTooLong",
            Failure::FolderWithoutShortName => "folderWithoutShortName",
            Failure::Refused => "refused",
        }
    }

    pub fn text(self) -> &'static str {
        match self {
            Failure::LibraryNotLoaded => "SonviaPCAudioDll.dll could not be loaded",
            Failure::NotTheLibrary => "SonviaPCAudioDll.dll lacks a function: it is another library or another version",
            Failure::ServiceNotStarted => "QuPCAudio.exe did not start: it belongs next to the host's executable",
            Failure::SessionOpen => "a session is open already in this process",
            Failure::NotOpen => "the session is not open",
            Failure::InsideCallback => "a session is neither opened nor closed inside a callback",
            Failure::TextTooLong => "a text has more than 255 bytes of UTF-8",
            Failure::TextNotUtf8 => "a text is not valid UTF-8",
            Failure::TextHoldsNul => "a text holds a NUL",
            Failure::FolderNotMade => "the log folder could not be created",
            Failure::FolderTooLong => "the path of the log folder has more than 200 characters",
            Failure::FolderWithoutShortName => "the service needs a log folder of ASCII without spaces, and this one has no short name",
            Failure::Refused => "the library refused the call: a connection is still being made, or memory ran out",
        }
    }
}

pub const STATE_UNKNOWN: u32 = 4;
pub const TEXT_SIZE: usize = 256;
pub const VERSION: &str = "2.1.2110122";

pub type Callback = extern "C" fn(c_int, c_int);

/// The record for setParam.
#[repr(C)]
#[derive(Clone, Copy)]
#[allow(non_snake_case)]
pub struct AudioServiceParam {
    pub onEvent: Option<Callback>,
    pub onError: Option<Callback>,
    pub context: *mut c_void,
    pub accountID: [u8; 256],
    pub deviceID: [u8; 256],
    pub sn: [u8; 256],
    pub model: [u8; 256],
    pub bluetoothMac: [u8; 256],
    pub pcName: [u8; 256],
}

// A layout that differs does not compile.
const _: [(); 1560] = [(); std::mem::size_of::<AudioServiceParam>()];
const _: [(); 8] = [(); std::mem::align_of::<AudioServiceParam>()];

#[allow(non_snake_case)]
#[derive(Clone, Copy)]
pub struct Functions {
    pub exitAudioProjection: unsafe extern "C" fn(handle: *mut c_void) -> bool,
    pub getSourceName: unsafe extern "C" fn(handle: *mut c_void) -> *const c_char,
    pub getState: unsafe extern "C" fn(handle: *mut c_void) -> u32,
    pub getVersion: unsafe extern "C" fn() -> c_int,
    pub initSonviaAudioService: unsafe extern "C" fn(log_dir: *const c_char, log_level: c_int) -> *mut c_void,
    pub setAccountID: unsafe extern "C" fn(handle: *mut c_void, account_id: *const c_char) -> bool,
    pub setParam: unsafe extern "C" fn(handle: *mut c_void, param: *const AudioServiceParam) -> bool,
    pub uninitSonviaAudioService: unsafe extern "C" fn(handle: *mut c_void) -> bool,
}

impl Functions {
    /// Looks up each exported function; gives the name of one that is not there.
    ///
    /// # Safety
    ///
    /// `find` has to give the addresses of the functions of SonviaPCAudioDll.dll.
    pub unsafe fn find(
        mut find: impl FnMut(&'static str) -> *const c_void,
    ) -> Result<Self, &'static str> {
        let mut address = |name: &'static str| {
            let found = find(name);
            if found.is_null() {
                Err(name)
            } else {
                Ok(found)
            }
        };
        Ok(Functions {
            exitAudioProjection: std::mem::transmute(address("exitAudioProjection\0")?),
            getSourceName: std::mem::transmute(address("getSourceName\0")?),
            getState: std::mem::transmute(address("getState\0")?),
            getVersion: std::mem::transmute(address("getVersion\0")?),
            initSonviaAudioService: std::mem::transmute(address("initSonviaAudioService\0")?),
            setAccountID: std::mem::transmute(address("setAccountID\0")?),
            setParam: std::mem::transmute(address("setParam\0")?),
            uninitSonviaAudioService: std::mem::transmute(address("uninitSonviaAudioService\0")?),
        })
    }
}
