#pragma once

/// @file
/// The errors of streams.

#include "basekit/qtString.h"

/// The errors of the streams, qtX<HioErr>: numbers and texts. Each has one argument, the name of
/// the stream: the file name, or "qtBuffer". Texts ending in a space are followed by that name.
namespace HioErrors {

/// The values of qtX<HioErr>::Number().
enum Number : int {
    open = 0,      ///< a file cannot be opened
    close = 1,     ///< closing failed: some written bytes may be lost
    position = 2,  ///< an offset cannot be reached
    read = 3,      ///< fewer bytes can be read than asked for
    write = 4,     ///< not all bytes can be written, or the stream refuses writes
    mode = 5,      ///< an open mode other than 'r', 'w', 'u'
};

/// Number 0; the name follows.
inline constexpr const char* cannotOpen = "Cannot open file: ";
/// Number 1; the name follows.
inline constexpr const char* closeFailed = "Close error in file ";
/// Number 2, of a file; the name follows.
inline constexpr const char* seekFailed = "Invalid file offset in file ";
/// Number 2, of a file; the name follows.
inline constexpr const char* seekEndFailed = "SeekEnd error in file ";
/// Number 3, of a file; the name follows.
inline constexpr const char* readFailed = "Read error in file ";
/// Number 4, of a file; the name follows.
inline constexpr const char* writeFailed = "Write error in file ";
/// Number 3.
inline constexpr const char* notOpenForReading = "File is not open for reading";
/// Number 4, of a file.
inline constexpr const char* notOpenForWriting = "File is not open for writing";
/// Number 2, of a buffer.
inline constexpr const char* bufferSeekFailed = "Invalid seek in Hio buffer";
/// Number 3, of a buffer.
inline constexpr const char* bufferReadFailed = "Read error in Hio buffer";
/// Number 4, of a buffer.
inline constexpr const char* bufferNotWritable = "Hio buffer is not open for writing";
/// Number 5.
inline constexpr const char* invalidMode = "Invalid open mode";

}  // namespace HioErrors
