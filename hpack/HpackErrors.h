#pragma once

/// @file
/// The errors of packages.

/// The errors of packages, qtX<Hpack>: numbers and texts. The first argument, if there is one, is
/// the name of the stream: the file name, or "qtBuffer".
namespace HpackErrors {

/// The values of qtX<Hpack>::Number().
enum Number : int {
    noIndex = 0,          ///< opened for update, but has no index; argument: stream
    indexUnreadable = 1,  ///< the index cannot be read; argument: stream
    mode = 2,             ///< an open mode other than 'r', 'w', 'u'; no argument
    format = 3,           ///< not a package; argument: stream
    key = 4,              ///< an item is missing or damaged; arguments: stream, key
    notUpdating = 5,      ///< the package is not open in mode 'u'; argument: stream
    oldFormat = 6,        ///< an old header has no such field; argument: stream
    shard = 7,            ///< a set of shards is incomplete or mixed; argument: file
};

/// Number 0.
inline constexpr const char* inputHasNoIndex = "Input file does not have an index";
/// Number 1; the stream's name follows.
inline constexpr const char* cannotReadIndex = "Cannot read file index: ";
/// Number 2.
inline constexpr const char* invalidMode = "Invalid open mode";
/// Number 3; the stream's name follows.
inline constexpr const char* notExpectedFormat = "Input file is not in expected format: ";
/// Number 4; the key follows.
inline constexpr const char* missingKey = "Missing key in index: ";
/// Number 4; the key follows. The offset holds no record, or one with another key length.
inline constexpr const char* invalidItem = "Key points to invalid item: ";
/// Number 4; the key follows. The offset holds another key's record.
inline constexpr const char* wrongItem = "Key points to wrong item: ";
/// Number 5.
inline constexpr const char* notOpenForUpdate = "File is not open in update mode";
/// Number 6.
inline constexpr const char* oldFormatID = "Old file format - ID cannot be set";
/// Number 6.
inline constexpr const char* oldFormatState = "Old file format - state cannot be set";
/// Number 7; the set's name or pattern follows.
inline constexpr const char* noShards = "No shards: ";
/// Number 7; the file's name follows.
inline constexpr const char* missingShard = "Missing shard: ";
/// Number 7; the file's name follows: it belongs to another set or has another number.
inline constexpr const char* foreignShard = "Foreign shard: ";

}  // namespace HpackErrors
