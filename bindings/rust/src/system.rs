//! The few calls of Windows that a session needs.
use crate::declarations::Functions;
use crate::Failure;
use std::ffi::{c_void, OsStr, OsString};
use std::os::windows::ffi::{OsStrExt, OsStringExt};
use std::path::Path;

const SEARCH_SYSTEM_FOLDER_ALONE: u32 = 0x800;
const LONGEST_FOLDER: usize = 200;

#[link(name = "kernel32")]
extern "system" {
    fn LoadLibraryExW(file: *const u16, reserved: *mut c_void, flags: u32) -> *mut c_void;
    fn GetProcAddress(module: *mut c_void, name: *const u8) -> *const c_void;
    fn GetShortPathNameW(path: *const u16, buffer: *mut u16, size: u32) -> u32;
}

fn wide(text: &OsStr) -> Vec<u16> {
    text.encode_wide().chain(Some(0)).collect()
}

/// The DLL from this folder and nowhere else, and what it needs from the system's folder alone.
pub fn load(folder: Option<&Path>) -> Result<Functions, Failure> {
    let program = std::env::current_exe().map_err(|_| Failure::LibraryNotLoaded)?;
    let own = program.parent().unwrap_or_else(|| Path::new("."));
    let file = std::env::current_dir()
        .map_err(|_| Failure::LibraryNotLoaded)?
        .join(folder.unwrap_or(own))
        .join("SonviaPCAudioDll.dll");
    unsafe {
        let module =
            LoadLibraryExW(wide(file.as_os_str()).as_ptr(), std::ptr::null_mut(), SEARCH_SYSTEM_FOLDER_ALONE);
        if module.is_null() {
            return Err(Failure::LibraryNotLoaded);
        }
        Functions::find(|name| GetProcAddress(module, name.as_ptr())).map_err(|_| Failure::NotTheLibrary)
    }
}

fn plain(text: &OsStr) -> bool {
    text.encode_wide().all(|letter| letter > 0x20 && letter < 0x7f)
}

/// The folder as the service understands it: absolute, created, ASCII without spaces.
pub fn folder_for_service(folder: &Path) -> Result<Vec<u8>, Failure> {
    let absolute = std::env::current_dir().map_err(|_| Failure::FolderNotMade)?.join(folder);
    std::fs::create_dir_all(&absolute).map_err(|_| Failure::FolderNotMade)?;
    let mut given = absolute.into_os_string();
    if !plain(&given) {
        let mut buffer = vec![0u16; 32768];
        let length = unsafe { GetShortPathNameW(wide(&given).as_ptr(), buffer.as_mut_ptr(), buffer.len() as u32) };
        given = OsString::from_wide(&buffer[..length as usize]);
        if given.is_empty() || !plain(&given) {
            return Err(Failure::FolderWithoutShortName);
        }
    }
    let bytes: Vec<u8> = given.encode_wide().map(|letter| letter as u8).collect();
    if bytes.len() > LONGEST_FOLDER {
        return Err(Failure::FolderTooLong);
    }
    Ok(bytes)
}
