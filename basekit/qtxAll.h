#pragma once

/// @file
/// The root of the exceptions.

#include <cstdint>

#include "basekit/Export.h"
#include "basekit/qtString.h"

/// The root of every exception that the libraries throw. Catch by reference: qtxAll for all of
/// them, a family base for one family, or the exact class.
///
/// An exception owns its texts; copies are independent of each other.
class VANTRY_EXPORT qtxAll {
public:
    /// @param code what kind of failure (unsigned 32-bit)
    /// @param text what happened; copied
    /// @param level how bad it is (unsigned 32-bit): 1 an operation failed, 2 the caller went wrong
    ///        or asked for it
    qtxAll(unsigned long code, const char* text, unsigned long level);
    qtxAll(const qtxAll& other);
    qtxAll& operator=(const qtxAll& other);
    virtual ~qtxAll();

    /// As given at construction, until they are set to something else.
    /// @{
    virtual void ErrorCode(unsigned long code);
    virtual unsigned long ErrorCode() const;
    virtual void ErrorLevel(unsigned long level);
    virtual unsigned long ErrorLevel() const;
    /// @}
    /// The name of the family of errors.
    virtual const char* BaseString() const;
    /// A word for the level.
    virtual const char* LevelString() const;
    /// One line that a person can act on: family, code, level, text, and file and line where
    /// SetFileInfo recorded them.
    virtual qtString ErrorString() const;
    /// The text given at construction, whole.
    virtual const char* SpecificString() const;

    /// Records where and when the throwing code was built; QT_FILE_INFO in basekit/FileInfo.h
    /// expands to all four.
    void SetFileInfo(const char* file, int line, const char* date, const char* time);

    /// What SetFileInfo recorded: empty texts and 0 before it.
    /// @{
    const char* File() const { return fileName.c_str(); }
    int Line() const { return fileLine; }
    const char* Date() const { return buildDate.c_str(); }
    const char* Time() const { return buildTime.c_str(); }
    /// @}

private:
    std::uint32_t errorCode;
    std::uint32_t errorLevel;
    qtString specificText;
    qtString fileName;
    int fileLine = 0;
    qtString buildDate;
    qtString buildTime;
};
