#pragma once

#include <vector>

#include "basekit/qtxAll.h"

/// Thrown by SegBuf::Locate: "Locate error in SegBuf", code 9, level 2.
class VANTRY_EXPORT qtxSegBuf : public qtxAll {
public:
    using qtxAll::qtxAll;
    qtxSegBuf(const qtxSegBuf& other);
    qtxSegBuf& operator=(const qtxSegBuf& other);
    ~qtxSegBuf() override;
    const char* BaseString() const override;
};

/// A long byte sequence in segments of 16360 bytes. No item needs one block of its full size, and
/// growing copies nothing.
///
///     SegBuf body;
///     package.GetItem(key, body);
///     for (unsigned int at = 0, length; at < body.size; at += length) {
///         char* run;
///         body.Locate(at, body.size, run, length);     // length bytes at run
///     }
///
/// The buffer owns its segments, which never move during its lifetime.
///
/// Threads: several may call Locate() at once; everything else is not thread-safe.
class VANTRY_EXPORT SegBuf {
public:
    /// The length of every segment in bytes.
    static constexpr unsigned int segmentSize = 16360;

    SegBuf() = default;
    ~SegBuf();
    SegBuf(const SegBuf&) = delete;
    SegBuf& operator=(const SegBuf&) = delete;

    /// Finds the contiguous run of [offset, end) that starts at `offset`. It ends at the end of its
    /// segment or at `end`.
    /// @param offset in bytes
    /// @param end greater than `offset` and at most `size`; not checked
    /// @param where receives a pointer to the run, which the buffer owns
    /// @param length receives the run's length in bytes
    /// @throws qtxSegBuf "Locate error in SegBuf" if `offset` is not below `size`
    void Locate(unsigned int offset, unsigned int end, char*& where, unsigned int& length) const;

    /// Makes room for `length` + `reserve` bytes, and raises `size` to that if it is smaller. New
    /// bytes are uninitialized.
    /// @throws std::bad_alloc if memory runs out or the sum exceeds 2^32 - 1; segments added so far
    ///         stay, `size` is unchanged
    void Grow(unsigned int length);

    std::vector<char*> segments;  ///< arrays of segmentSize bytes in logical order
    unsigned int reserve = 0;     ///< added to the length of an item that is read into the buffer
    unsigned int size = 0;        ///< number of bytes, at most segments.size() * segmentSize
};
