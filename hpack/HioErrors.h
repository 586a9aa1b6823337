#pragma once

#include "basekit/qtString.h"

/// The errors of the streams, qtX<HioErr>: numbers and texts. Each carries one argument, the name
/// of the stream: the file name, or "qtBuffer". Texts that end in a blank are followed by it.
namespace HioErrors {

enum Number : int {
    open = 0,      ///< a file can not be opened
    close = 1,     ///< closing failed: what was written may not all have arrived
    position = 2,  ///< an offset that can not be reached
    read = 3,      ///< fewer bytes there than asked for
    write = 4,     ///< not all bytes could be written, or the stream does not take any
    mode = 5,      ///< an open mode other than 'r', 'w', 'u'
};

inline constexpr const char* cannotOpen = "Cannot open file: ";
inline constexpr const char* closeFailed = "Close error in file ";
inline constexpr const char* seekFailed = "Invalid file offset in file ";
inline constexpr const char* seekEndFailed = "SeekEnd error in file ";
inline constexpr const char* readFailed = "Read error in file ";
inline constexpr const char* writeFailed = "Write error in file ";
inline constexpr const char* notOpenForReading = "File is not open for reading";
inline constexpr const char* notOpenForWriting = "File is not open for writing";
inline constexpr const char* bufferSeekFailed = "Invalid seek in Hio buffer";
inline constexpr const char* bufferReadFailed = "Read error in Hio buffer";
inline constexpr const char* bufferNotWritable = "Hio buffer is not open for writing";
inline constexpr const char* invalidMode = "Invalid open mode";

}  // namespace HioErrors
