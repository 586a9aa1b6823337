#pragma once

/// @file
/// The directory for temporary files.
///
///     const qtString path = generic_get_tempdir() + "/work.hpk";

#include "basekit/Export.h"
#include "basekit/qtxAll.h"

/// The temporary directory cannot be determined or set: code 9, level 2.
class VANTRY_EXPORT qtxGeneric : public qtxAll {
public:
    using qtxAll::qtxAll;
    qtxGeneric(const qtxGeneric& other);
    qtxGeneric& operator=(const qtxGeneric& other);
    ~qtxGeneric() override;

    /// Returns "qtxGeneric".
    const char* BaseString() const override;
};

/// Returns the directory for temporary files of this process: the one set by generic_set_tempdir,
/// else the value of the environment variable TMPDIR, else "/tmp".
///
/// The first answer is kept; later changes of the environment have no effect. The text is used as
/// given. Neither it nor TMPDIR is tested for existence.
/// @return a reference that stays valid until the library is unloaded, and always refers to the
///         current directory
/// @throws qtxGeneric "Cannot get temporary path" if TMPDIR is unset or empty and /tmp is not a
///         directory; nothing is kept, and the next call tries again
///
/// Takes no lock: the first call, and any call of generic_set_tempdir, must not run at the same
/// time as another call of either function.
VANTRY_EXPORT const qtString& generic_get_tempdir();

/// Sets the directory for temporary files.
/// @param path 1 to 1023 bytes, copied, not tested for existence
/// @throws qtxGeneric "Invalid path size" if it is empty or longer; the directory is unchanged
VANTRY_EXPORT void generic_set_tempdir(const qtString& path);
