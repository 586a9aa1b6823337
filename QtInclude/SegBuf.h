#pragma once

#include <vector>

#include "basekit/qtxAll.h"

/// "Locate error in SegBuf", code 9, level 2.
class VANTRY_EXPORT qtxSegBuf : public qtxAll {
public:
    using qtxAll::qtxAll;
    qtxSegBuf(const qtxSegBuf& other);
    qtxSegBuf& operator=(const qtxSegBuf& other);
    ~qtxSegBuf() override;
    const char* BaseString() const override;
};

/// A long sequence of bytes in segments of 16360: no item needs one block of its whole size, and
/// growing copies nothing.
///
///     SegBuf body;
///     package.GetItem(key, body);
///     for (unsigned int at = 0, length; at < body.size; at += length) {
///         char* run;
///         body.Locate(at, body.size, run, length);     // length bytes at run
///     }
///
/// The buffer owns its segments, which never move while it lives. Locate() may run on several
/// threads at once; everything else is for one thread.
class VANTRY_EXPORT SegBuf {
public:
    /// The length of every segment in bytes.
    static constexpr unsigned int segmentSize = 16360;

    SegBuf() = default;
    ~SegBuf();
    SegBuf(const SegBuf&) = delete;
    SegBuf& operator=(const SegBuf&) = delete;

    /// Finds the run of [offset, end) that starts at `offset`: it ends at the end of the segment or
    /// at `end`. `end` must be greater than `offset` and at most `size`.
    /// @throws qtxSegBuf "Locate error in SegBuf" when `offset` is not below `size`
    void Locate(unsigned int offset, unsigned int end, char*& where, unsigned int& length) const;

    /// Makes room for `length` + `reserve` bytes and raises `size` to that if it is smaller. New
    /// bytes are not initialised.
    /// @throws std::bad_alloc when there is no memory, and when the sum passes 2^32 - 1; segments
    ///         added so far stay, `size` is unchanged
    void Grow(unsigned int length);

    std::vector<char*> segments;  ///< arrays of segmentSize bytes in logical order
    unsigned int reserve = 0;     ///< added to the length of an item that is read into the buffer
    unsigned int size = 0;        ///< number of bytes, at most segments.size() * segmentSize
};
