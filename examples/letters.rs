//! A package from beginning to end, in Rust.
//!
//!     rustc letters.rs -L /usr/lib -l vantry

use std::ffi::{c_char, c_int, c_void, CStr, CString};

#[repr(C)]
struct Error {
    family: c_int,
    number: c_int,
    text: *const c_char,
}

#[link(name = "vantry")]
extern "C" {
    fn vantry_hpack_last_error() -> *const Error;
    fn vantry_hpack_open(path: *const c_char, mode: c_char) -> *mut c_void;
    fn vantry_hpack_put(package: *mut c_void, key: *const u8, key_length: usize,
                        body: *const u8, body_length: usize) -> c_int;
    fn vantry_hpack_rename(package: *mut c_void, old_key: *const u8, old_key_length: usize,
                           new_key: *const u8, new_key_length: usize) -> c_int;
    fn vantry_hpack_view(package: *const c_void, key: *const u8, key_length: usize,
                         body: *mut *const u8, length: *mut usize) -> c_int;
    fn vantry_hpack_iterate(package: *const c_void, prefix: *const u8, prefix_length: usize)
                            -> *mut c_void;
    fn vantry_hpack_next(walk: *mut c_void, key: *mut *const u8, key_length: *mut usize) -> c_int;
    fn vantry_hpack_walk_free(walk: *mut c_void);
    fn vantry_hpack_save(package: *mut c_void) -> c_int;
    fn vantry_hpack_discard(package: *mut c_void);
}

const OK: c_int = 0;

/// An open package, released when it is dropped. Changes count from the next save on.
struct Package(*mut c_void);

fn failure() -> String {
    unsafe {
        let error = &*vantry_hpack_last_error();
        let text = CStr::from_ptr(error.text).to_string_lossy();
        format!("{} (family {}, number {})", text, error.family, error.number)
    }
}

fn check(result: c_int) -> Result<(), String> {
    if result == OK { Ok(()) } else { Err(failure()) }
}

impl Package {
    fn open(path: &str, mode: char) -> Result<Package, String> {
        let path = CString::new(path).map_err(|error| error.to_string())?;
        let handle = unsafe { vantry_hpack_open(path.as_ptr(), mode as c_char) };
        if handle.is_null() { Err(failure()) } else { Ok(Package(handle)) }
    }

    fn put(&mut self, key: &[u8], body: &[u8]) -> Result<(), String> {
        check(unsafe {
            vantry_hpack_put(self.0, key.as_ptr(), key.len(), body.as_ptr(), body.len())
        })
    }

    fn rename(&mut self, old: &[u8], new: &[u8]) -> Result<(), String> {
        check(unsafe {
            vantry_hpack_rename(self.0, old.as_ptr(), old.len(), new.as_ptr(), new.len())
        })
    }

    fn save(&mut self) -> Result<(), String> {
        check(unsafe { vantry_hpack_save(self.0) })
    }

    /// The bytes of an item of a package in mode 'r', which live as long as it.
    fn view(&self, key: &[u8]) -> Option<&[u8]> {
        let (mut body, mut length) = (std::ptr::null(), 0);
        unsafe {
            let found = vantry_hpack_view(self.0, key.as_ptr(), key.len(), &mut body, &mut length);
            (found == OK).then(|| std::slice::from_raw_parts(body, length))
        }
    }

    fn keys(&self, prefix: &[u8]) -> Vec<Vec<u8>> {
        let mut keys = Vec::new();
        let (mut key, mut length) = (std::ptr::null(), 0);
        unsafe {
            let walk = vantry_hpack_iterate(self.0, prefix.as_ptr(), prefix.len());
            while vantry_hpack_next(walk, &mut key, &mut length) == OK {
                keys.push(std::slice::from_raw_parts(key, length).to_vec());
            }
            vantry_hpack_walk_free(walk);
        }
        keys
    }
}

impl Drop for Package {
    fn drop(&mut self) {
        unsafe { vantry_hpack_discard(self.0) }
    }
}

fn main() -> Result<(), String> {
    let mut package = Package::open("letters.hpk", 'w')?;
    package.put(b"alpha", b"the first letter")?;
    package.put(b"beta", b"the second letter")?;
    package.save()?;
    package.put(b"alpha", b"first")?;
    package.rename(b"beta", b"b")?;
    package.save()?;

    let package = Package::open("letters.hpk", 'r')?;
    for key in package.keys(b"") {
        let body = package.view(&key).ok_or_else(failure)?;
        println!("{}: {}", String::from_utf8_lossy(&key), String::from_utf8_lossy(body));
    }
    Ok(())
}
