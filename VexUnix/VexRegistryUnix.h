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
///     unsigned long length = sizeof buffer - 1;            // room for a NUL after the longest
///     if (GetPopRegParam(name, buffer, &length) == 0) ...  // "hello" and a NUL
///
/// Each call opens the registry, stores or reads one value and closes it again: it sees the values
/// of other programs. Thread-safe. A failure is traced (basekit/Trace.h, subsystem registry) with
/// its key. Only std::bad_alloc is thrown.

/// Stores a value as the section's parameter `name`.
/// @param name NUL-terminated; it becomes part of the key unchanged
/// @param ignored has no effect
/// @param data `length` bytes of any value, stored without a terminator
/// @return 0 once the value is on disk; -1 on failure, and the former value stays
VANTRY_EXPORT int SetDbMonitorRegParam(char* name, unsigned long ignored, unsigned char* data,
                                       unsigned long length);
/// As SetDbMonitorRegParam(), for the section "Trace".
VANTRY_EXPORT int SetTraceRegParam(char* name, unsigned long ignored, unsigned char* data,
                                   unsigned long length);
/// As SetDbMonitorRegParam(), for the section "Pop".
VANTRY_EXPORT int SetPopRegParam(char* name, unsigned long ignored, unsigned char* data,
                                 unsigned long length);

/// Copies the value of the section's parameter `name` to `buffer`, followed by a NUL if there is
/// room.
/// @param[in,out] length the buffer's size in bytes. It changes only if the value is longer: then
///        it becomes the value's length, the buffer is unchanged and the result is -1.
/// @return 0, or -1 if there is no such value or it does not fit
VANTRY_EXPORT int GetDbMonitorRegParam(char* name, unsigned char* buffer, unsigned long* length);
/// As GetDbMonitorRegParam(), for the section "Trace".
VANTRY_EXPORT int GetTraceRegParam(char* name, unsigned char* buffer, unsigned long* length);
/// As GetDbMonitorRegParam(), for the section "Pop".
VANTRY_EXPORT int GetPopRegParam(char* name, unsigned char* buffer, unsigned long* length);

/// An editor of the entire registry, by full key. Every operation leaves a text for people in
/// m_strMessage, on success and on failure:
///
///     CvexRegEdit editor;
///     editor.Set("Pop/Greeting", "hello");
///     puts(editor.m_strMessage.c_str());             // Value set
///
/// The registry is open, and created if missing, from construction to destruction. That blocks no
/// one, and the editor sees other programs' writes. If it could not be opened, every operation
/// returns false with "can't open DB". One editor serves one thread at a time. Arguments must not
/// be null unless stated otherwise. Only std::bad_alloc is thrown.
class VANTRY_EXPORT CvexRegEdit {
public:
    CvexRegEdit();

    /// The result of the last operation in words; empty before the first.
    qtString m_strMessage;

    /// Stores `value` up to its NUL under `key`.
    /// @return true with "Value set", or false with "Cannot set value"
    bool Set(const char* key, const char* value);

    /// Shows a value, NUL bytes included.
    /// @return true with "key: Pop/Greeting   Value: hello", or false with "Key not found"
    bool Get(const char* key);

    /// Encrypts the password for a database logon (basekit/qtEncryptor.h) and stores it. The plain
    /// password is wiped from the memory that the call used.
    /// @param keshName null or empty for the logon that belongs to no kesh; otherwise a kesh that
    ///        has a user name: without one, false with "Kesh NAME does not exist. Can not set
    ///        password"
    /// @return true with "Password set", or false with "Cannot set password" and the reason in
    ///         UnixRegistry::LastError(); the former password stays
    bool SetPassword(const char* password, const char* keshName);

    /// The key of a logon password: "LogonDatabaseParam" or, for the logon of a kesh,
    /// "Logon/Keshs/NAME/DatabaseParam".
    /// @param keshName null or empty for the logon that belongs to no kesh
    static qtString PasswordKey(const char* keshName);

    /// Whether Export() takes the value under a key for an encrypted password: the key ends in
    /// "DatabaseParam".
    static bool IsPasswordKey(std::string_view key);

    /// Writes every record except passwords as one line, key, space and value, in no particular
    /// order. Import() does not restore values with line ends, NUL or white space at an end, nor
    /// keys that are empty or contain white space or NUL. They may spoil other lines, too: all
    /// lines after a NUL, an empty key or a key that begins with white space are lost, and text
    /// after a line end can replace another key's value.
    /// @param file the path of a file to create or replace; null for standard output. A regular
    ///        file is replaced once all records are written, if the folder permits it.
    /// @return true with "exported 12 keys"; false with "can't open file PATH"; false with "can't
    ///         read DB" if the registry is damaged, and a regular file is then unchanged. Errors of
    ///         writing, such as a full disk, are not reported.
    bool Export(const char* file);

    /// Stores every line of a file as Export() writes it, up to a NUL. It also accepts lines that
    /// end in CR, blank lines, any white space between key and value and around the value; a line
    /// without white space is a key with an empty value. The lines are stored in one step.
    /// @return true with "Imported 12 lines"; false with "can't read file PATH" (also if it is
    ///         empty); false with "invalid line: " or "Cannot import line: " and the line: the
    ///         lines before it are stored, it and the following lines are not
    bool Import(const char* file);

private:
    VANTRY_LOCAL bool IsOpen();
    VANTRY_LOCAL bool Answer(bool result, qtString message);

    UnixRegistry store;
};
