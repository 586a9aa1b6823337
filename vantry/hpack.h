#ifndef VANTRY_HPACK_H
#define VANTRY_HPACK_H

#include <stddef.h>

#include "basekit/Export.h"

/// @file
/// Packages for C and for every language that calls C.
///
///     vantry_hpack* letters = vantry_hpack_open("letters.hpk", 'r');
///     const void* body;
///     size_t length;
///     if (letters == NULL) {
///         fprintf(stderr, "%s\n", vantry_hpack_last_error()->text);
///     } else if (vantry_hpack_view(letters, "alpha", 5, &body, &length) == VANTRY_OK) {
///         fwrite(body, 1, length, stdout);
///     }
///     vantry_hpack_discard(letters);
///
/// Keys and bodies are any bytes: a pointer and a length. A pointer may be null if the length is 0.
/// Functions that can fail return a vantry_result, or null instead of a handle; what went wrong is
/// in vantry_hpack_last_error(). No exception leaves these functions.
///
/// A handle in mode 'r' may be used by any number of threads at once. In the other modes it serves
/// one thread at a time. Nothing may use a handle that is being closed or discarded.
///
/// A package in mode 'r' is mapped, not read: if another program truncates the file meanwhile, the
/// process ends with SIGBUS. Programs that replace the file by rename do no harm.

#ifdef __cplusplus
extern "C" {
#endif

/// An open package.
typedef struct vantry_hpack vantry_hpack;
/// A walk over keys.
typedef struct vantry_hpack_walk vantry_hpack_walk;

/// What a function returns.
typedef enum vantry_result {
    VANTRY_FAILED = -1,  ///< vantry_hpack_last_error() has the reason
    VANTRY_OK = 0,
    VANTRY_ABSENT = 1  ///< there is no such key, or no further one; not an error
} vantry_result;

/// What an error is about; its number belongs to this family.
typedef enum vantry_error_family {
    VANTRY_NO_ERROR = 0,
    VANTRY_PACKAGE_ERROR = 1,  ///< a package: numbers as in hpack/HpackErrors.h
    VANTRY_STREAM_ERROR = 2,   ///< a file or buffer: numbers as in hpack/HioErrors.h
    VANTRY_MEMORY_ERROR = 3,   ///< no memory; number 0
    VANTRY_CALLER_ERROR = 4,   ///< a null handle, or a function that the mode excludes; number 0
    VANTRY_OTHER_ERROR = 5     ///< anything else; number 0
} vantry_error_family;

/// An error.
typedef struct vantry_error {
    vantry_error_family family;
    int number;
    const char* text;  ///< for people, without a line end, cut at 4607 bytes; never null
} vantry_error;

/// The calling thread's latest error. Calls that succeed leave it as it is.
/// @return never null; its text is valid until this thread's next failing call
VANTRY_EXPORT const vantry_error* vantry_hpack_last_error(void);

/// Opens a package in a file.
/// @param path the file's name
/// @param mode 'r' an existing package for reading; 'u' an existing one for reading and changing;
///        'w' a new one, over an existing file, which can be read after it was saved
/// @return the handle, which vantry_hpack_close() or vantry_hpack_discard() releases, or null
VANTRY_EXPORT vantry_hpack* vantry_hpack_open(const char* path, char mode);

/// Opens a package in memory.
/// @param bytes the package. In mode 'r' it is not copied, must outlive the handle and stay
///        unchanged; in mode 'u' a copy is changed; in mode 'w' it is not looked at.
/// @param length its length in bytes
/// @param mode as for a file
/// @return the handle or null, as for a file
VANTRY_EXPORT vantry_hpack* vantry_hpack_open_memory(const void* bytes, size_t length, char mode);

/// Saves and returns the bytes of a package in memory.
/// @param[out] bytes the package, owned by the handle, valid until the next call that changes,
///             saves or releases it
/// @param[out] length its length in bytes
/// @return VANTRY_OK, or VANTRY_FAILED, also for a package in a file
VANTRY_EXPORT vantry_result vantry_hpack_bytes(vantry_hpack* package, const void** bytes,
                                               size_t* length);

/// The number of items; 0 for a null handle.
VANTRY_EXPORT size_t vantry_hpack_count(const vantry_hpack* package);

/// Reads an item.
/// @param[out] body a copy of the body followed by a NUL byte; to be released by
///             vantry_hpack_free()
/// @param[out] length the body's length in bytes, without the NUL byte
/// @return VANTRY_OK; VANTRY_ABSENT or VANTRY_FAILED, which leave both as they were
VANTRY_EXPORT vantry_result vantry_hpack_get(vantry_hpack* package, const void* key,
                                             size_t key_length, void** body, size_t* length);

/// Releases what vantry_hpack_get() returned; does nothing for null.
VANTRY_EXPORT void vantry_hpack_free(void* body);

/// Finds an item's body without copying it, in mode 'r'.
/// @param[out] body the body, valid until the package is closed or discarded
/// @param[out] length the body's length in bytes
/// @return as vantry_hpack_get(); in the other modes VANTRY_FAILED
VANTRY_EXPORT vantry_result vantry_hpack_view(const vantry_hpack* package, const void* key,
                                              size_t key_length, const void** body, size_t* length);

/// Adds an item or replaces it. The change is published by vantry_hpack_save() or
/// vantry_hpack_close().
/// @return VANTRY_OK or VANTRY_FAILED. After a failure the item has its former body, unless it was
///         being overwritten in place; it is then damaged, and the others are intact.
VANTRY_EXPORT vantry_result vantry_hpack_put(vantry_hpack* package, const void* key,
                                             size_t key_length, const void* body,
                                             size_t body_length);

/// Deletes an item, in mode 'u' or after the first save.
/// @return VANTRY_OK; VANTRY_ABSENT if there is no such item; VANTRY_FAILED
VANTRY_EXPORT vantry_result vantry_hpack_delete(vantry_hpack* package, const void* key,
                                                size_t key_length);

/// Renames an item, in mode 'u' or after the first save. An item that has the new key is lost.
/// @return VANTRY_OK; VANTRY_ABSENT if there is no item with the old key; VANTRY_FAILED, after
///         which the item has its old key
VANTRY_EXPORT vantry_result vantry_hpack_rename(vantry_hpack* package, const void* old_key,
                                                size_t old_key_length, const void* new_key,
                                                size_t new_key_length);

/// Starts a walk over the keys that start with a prefix, in order: ascending byte by byte,
/// unsigned. An empty prefix selects all keys. The walk sees the keys of this moment.
/// @return the walk, which vantry_hpack_walk_free() releases before the package is closed or
///         discarded, or null on failure
VANTRY_EXPORT vantry_hpack_walk* vantry_hpack_iterate(const vantry_hpack* package,
                                                      const void* prefix, size_t prefix_length);

/// Steps to the next key.
/// @param[out] key the key, valid until the walk is released
/// @param[out] key_length its length in bytes
/// @return VANTRY_OK; VANTRY_ABSENT after the last key; VANTRY_FAILED for a null walk
VANTRY_EXPORT vantry_result vantry_hpack_next(vantry_hpack_walk* walk, const void** key,
                                              size_t* key_length);

/// Releases a walk; does nothing for null.
VANTRY_EXPORT void vantry_hpack_walk_free(vantry_hpack_walk* walk);

/// Saves changes and stays open: the file then holds a complete package. From mode 'w' the handle
/// changes to mode 'u'. Nothing is synced to the disk.
/// @return VANTRY_OK, also if there was nothing to save; VANTRY_FAILED, in mode 'r' too
VANTRY_EXPORT vantry_result vantry_hpack_save(vantry_hpack* package);

/// Saves changes and releases the handle; does nothing for null.
/// @return VANTRY_OK; VANTRY_FAILED, after which the handle is still open and can be closed again
///         or discarded
VANTRY_EXPORT vantry_result vantry_hpack_close(vantry_hpack* package);

/// Releases the handle without saving; does nothing for null. Changes since the last save are lost,
/// but for bodies that were overwritten in place.
VANTRY_EXPORT void vantry_hpack_discard(vantry_hpack* package);

#ifdef __cplusplus
}
#endif

#endif
