#pragma once

/// @file
/// The directory for temporary files.
///
///     const qtString path = generic_get_tempdir() + "/work.hpk";

#include "basekit/Export.h"
#include "basekit/qtxAll.h"

/// The temporary directory can not be told or set: code 9, level 2.
class VANTRY_EXPORT qtxGeneric : public qtxAll {
public:
    using qtxAll::qtxAll;
    qtxGeneric(const qtxGeneric& other);
    qtxGeneric& operator=(const qtxGeneric& other);
    ~qtxGeneric() override;

    /// "qtxGeneric"
    const char* BaseString() const override;
};

/// The directory for temporary files of this process: what generic_set_tempdir set; else what the
/// environment variable TMPDIR names; else "/tmp".
///
/// The first answer stands: later changes of the environment do not matter. The text is used as it
/// was given, and neither it nor TMPDIR is tested for existence. No lock is taken: the first call,
/// and any call of generic_set_tempdir, must not run beside another call of either.
/// @return a reference that stays valid, with the directory of the latest call, until the library
///         is unloaded
/// @throws qtxGeneric "Cannot get temporary path" when TMPDIR is unset or empty and /tmp is no
///         directory; nothing is decided then, and the next call tries again.
VANTRY_EXPORT const qtString& generic_get_tempdir();

/// From now on `path`, of 1 to 1023 bytes, is the directory for temporary files.
/// @throws qtxGeneric "Invalid path size" when it is empty or longer; nothing is changed then.
VANTRY_EXPORT void generic_set_tempdir(const qtString& path);
