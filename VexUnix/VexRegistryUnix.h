#pragma once

/// @file
/// Registry parameters by section and name, and an editor of the whole registry.

#include <string_view>

#include "basekit/Export.h"
#include "basekit/UnixRegistry.h"
#include "basekit/qtString.h"

/// Parameters in three fixed sections of the registry (basekit/UnixRegistry.h):
///
///     char name[] = "Greeting";
///     unsigned char data[] = "hello";
///     SetPopRegParam(name, 0, data, 5);              // key "Pop/Greeting"
///
///     unsigned char buffer[64] = {};
///     unsigned long length = sizeof buffer - 1;            // room for a NUL behind the longest
///     if (GetPopRegParam(name, buffer, &length) == 0) ...  // "hello" and a NUL
///
/// Each call opens the registry, stores or reads one value and closes it again: any thread may call
/// at any time, and values of other programs are seen. A failure is traced (basekit/Trace.h,
/// subsystem registry) with the key in question. Nothing is thrown but std::bad_alloc.

/// Stores the `length` bytes at `data`, any bytes and no terminator, as the value of the section's
/// parameter `name`, a NUL-terminated text that goes into the key as it is. The second argument has
/// no effect.
/// @return 0 when the value is on disk; -1 otherwise: the former value stays
VANTRY_EXPORT int SetDbMonitorRegParam(char* name, unsigned long ignored, unsigned char* data,
                                       unsigned long length);
/// As SetDbMonitorRegParam(), for the section "Trace".
VANTRY_EXPORT int SetTraceRegParam(char* name, unsigned long ignored, unsigned char* data,
                                   unsigned long length);
/// As SetDbMonitorRegParam(), for the section "Pop".
VANTRY_EXPORT int SetPopRegParam(char* name, unsigned long ignored, unsigned char* data,
                                 unsigned long length);

/// Copies the value of the section's parameter `name` to `buffer`, with one NUL behind it where
/// there is room.
/// @param[in,out] length the buffer's size in bytes. It changes only when the value is longer: it
///        then becomes the value's length, the buffer stays as it was and the result is -1.
/// @return 0, or -1 when there is no such value or it does not fit
VANTRY_EXPORT int GetDbMonitorRegParam(char* name, unsigned char* buffer, unsigned long* length);
/// As GetDbMonitorRegParam(), for the section "Trace".
VANTRY_EXPORT int GetTraceRegParam(char* name, unsigned char* buffer, unsigned long* length);
/// As GetDbMonitorRegParam(), for the section "Pop".
VANTRY_EXPORT int GetPopRegParam(char* name, unsigned char* buffer, unsigned long* length);

/// An editor of the whole registry, by full key. Every operation leaves a text for people in
/// m_strMessage, whether it succeeds or not:
///
///     CvexRegEdit editor;
///     editor.Set("Pop/Greeting", "hello");
///     puts(editor.m_strMessage.c_str());             // Value set
///
/// The registry is open, and created when missing, from construction to destruction. That keeps
/// nobody out, and the editor sees what others store meanwhile. When it could not be opened every
/// operation answers false and "can't open DB". One editor serves one thread at a time. Arguments
/// must not be null unless it says so. Nothing is thrown but std::bad_alloc.
class VANTRY_EXPORT CvexRegEdit {
public:
    CvexRegEdit();

    /// The result of the last operation in words; empty before the first.
    qtString m_strMessage;

    /// Stores `value` up to its NUL under `key`: "Value set", or false and "Cannot set value".
    bool Set(const char* key, const char* value);

    /// Shows a value, NUL bytes included: "key: Pop/Greeting   Value: hello", or false and "Key not
    /// found".
    bool Get(const char* key);

    /// Encrypts the password for a database logon (basekit/qtEncryptor.h) and stores it.
    /// @param keshName null or empty for the logon that is not of a kesh; otherwise a kesh that has
    ///        a user name: where it has none, false and "Kesh NAME does not exist. Can not set
    ///        password"
    /// @return true and "Password set", or false and "Cannot set password", and the cause in
    ///         UnixRegistry::LastError(): the former password stays. The plain password is wiped
    ///         from the memory that the call itself used.
    bool SetPassword(const char* password, const char* keshName);

    /// The key of a logon password: "LogonDatabaseParam" or, for the logon of a kesh,
    /// "Logon/Keshs/NAME/DatabaseParam".
    /// @param keshName null or empty for the logon that belongs to no kesh
    static qtString PasswordKey(const char* keshName);

    /// Whether Export() takes the value under a key for an encrypted password: the key ends in
    /// "DatabaseParam".
    static bool IsPasswordKey(std::string_view key);

    /// Writes every record but the passwords as one line, key, blank and value, in no particular
    /// order: "exported 12 keys". A value with line ends or NUL in it, or with white space at its
    /// ends, and a key that is empty or has white space or NUL in it, do not come back the same by
    /// Import(), and may spoil others: all lines behind a NUL, an empty key, or a key that starts
    /// with white space are lost, and what follows a line end can replace another key's value.
    /// @param file the path of a file to create or overwrite; null for the standard output
    /// @return false and "can't open file PATH" when that fails; an error later, as of a full disk
    ///         or a damaged registry, is not noticed
    bool Export(const char* file);

    /// Stores every line of a file as Export() writes it, up to a NUL: "Imported 12 lines". It also
    /// takes lines that end in CR, blank lines, any white space between key and value and around
    /// the value; a line without white space is a key with an empty value.
    /// @return false and "can't read file PATH" (also when it is empty); or "invalid line: " or
    ///         "Cannot import line: " and the line: it and what follows is then not stored, the
    ///         lines before it are. All lines are stored in one step.
    bool Import(const char* file);

private:
    VANTRY_LOCAL bool IsOpen();
    VANTRY_LOCAL bool Answer(bool result, qtString message);

    UnixRegistry store;
};
