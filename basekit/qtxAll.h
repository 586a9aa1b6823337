#pragma once

/// @file
/// The root of the exceptions.

#include <cstdint>

#include "basekit/Export.h"
#include "basekit/qtString.h"

/// The root of every exception that the libraries throw. Catch by reference: qtxAll for all of
/// them, a family base for one family, or the exact class.
///
/// An exception owns its texts; copies are independent of each other. The class does not derive
/// from std::exception, and `catch (const std::exception&)` does not catch it.
class VANTRY_EXPORT qtxAll {
public:
    /// @param code what kind of failure (unsigned 32-bit)
    /// @param text what happened; copied
    /// @param level how bad it is (unsigned 32-bit): 1 an operation failed; 2 caller error or
    ///        requested cancellation
    qtxAll(unsigned long code, const char* text, unsigned long level);
    qtxAll(const qtxAll& other);
    qtxAll& operator=(const qtxAll& other);
    virtual ~qtxAll();

    /// The values given at construction, until others are set.
    /// @{
    virtual void ErrorCode(unsigned long code);
    virtual unsigned long ErrorCode() const;
    virtual void ErrorLevel(unsigned long level);
    virtual unsigned long ErrorLevel() const;
    /// @}
    /// The name of the family of errors.
    virtual const char* BaseString() const;
    /// The level in words.
    virtual const char* LevelString() const;
    /// One line that a person can act on: family, code, level, text, the system's reason, and the
    /// file and line that SetFileInfo() recorded. What is not known is left out.
    ///
    ///     HioErr: error (number 0, code 2, level 1): Cannot open file: x: Permission denied
    virtual qtString ErrorString() const;
    /// The complete text given at construction.
    virtual const char* SpecificString() const;

    /// The error number (errno) of the system call that failed; 0 if none did, or none is known.
    int SystemNumber() const { return systemNumber; }
    /// Records the error number of the system call that failed.
    void SystemNumber(int number) { systemNumber = number; }

    /// Records where and when the throwing code was built; QT_FILE_INFO in basekit/FileInfo.h
    /// expands to all four.
    void SetFileInfo(const char* file, int line, const char* date, const char* time);

    /// The values that SetFileInfo() recorded; empty texts and 0 before it.
    /// @{
    const char* File() const { return fileName.c_str(); }
    int Line() const { return fileLine; }
    const char* Date() const { return buildDate.c_str(); }
    const char* Time() const { return buildTime.c_str(); }
    /// @}

protected:
    /// ErrorString() of a family that has more to identify an error by, such as "number 3".
    qtString ErrorLine(const qtString& identity) const;

private:
    std::uint32_t errorCode;
    std::uint32_t errorLevel;
    qtString specificText;
    qtString fileName;
    int fileLine = 0;
    int systemNumber = 0;
    qtString buildDate;
    qtString buildTime;
};
