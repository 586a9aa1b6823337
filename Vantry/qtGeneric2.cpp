#include "Vantry/qtGeneric2.h"

#include <cstdlib>

#include "basekit/FileInfo.h"
#include "basekit/files.h"

qtxGeneric::qtxGeneric(const qtxGeneric& other) = default;
qtxGeneric& qtxGeneric::operator=(const qtxGeneric& other) = default;
qtxGeneric::~qtxGeneric() = default;

const char* qtxGeneric::BaseString() const {
    return "qtxGeneric";
}

// Empty until the directory is decided. Never destroyed: static destructors may ask, too.
static qtString& get_s_tempdir() {
    static qtString& s_tempdir = *new qtString;
    return s_tempdir;
}

const qtString& generic_get_tempdir() {
    qtString& tempdir = get_s_tempdir();
    if (!tempdir.empty()) {
        return tempdir;
    }
    const char* const variable = std::getenv("TMPDIR");
    if (variable != nullptr && *variable != '\0') {
        tempdir = variable;
    } else if (IsFileOrDirectory("/tmp") == 2) {
        tempdir = "/tmp";
    } else {
        qtxGeneric error(9, "Cannot get temporary path", 2);
        error.SetFileInfo(QT_FILE_INFO);
        throw error;
    }
    return tempdir;
}

void generic_set_tempdir(const qtString& path) {
    if (path.empty() || path.size() >= 1024) {
        qtxGeneric error(9, "Invalid path size", 2);
        error.SetFileInfo(QT_FILE_INFO);
        throw error;
    }
    get_s_tempdir() = path;
}
