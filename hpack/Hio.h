#pragma once

#include "hpack/Generic32.h"
#include "hpack/qtPackDiet.h"
#include "hpack/qtPtrLight.h"

template <class Stream>
class Hio;

/// Writes packed integers and strings to a stream, and reads integers.
///
///     Hio<Generic32> io;
///     io.stream = qtPtrLight<Generic32>(new Hmemory);
///     io << "one" << "two";                        // 4-byte length, bytes, twice
///
/// It adds no checks: what the stream throws passes through, and a string may then be written in
/// part. `stream` must not be empty. Serves one thread at a time.
template <>
class VANTRY_EXPORT Hio<Generic32> {
public:
    /// Returns what is written instead of `text`; `context` is the hookContext.
    using StringHook = qtString (*)(const qtString& text, void* context);

    /// Writes the length of `text` as a packed u32, then its bytes; if a stringHook is set, those
    /// of its result. @return this object
    /// @throws what the stream and the hook throw
    Hio& operator<<(const qtString& text);

    /// Writes one packed integer. @throws what the stream throws
    template <class T>
    void Put(T value) {
        const int size = qtPackUssDiet(value, scratch);
        stream->Write(scratch, static_cast<unsigned int>(size));
    }

    /// Reads one packed integer. @throws what the stream throws
    template <class T>
    T Get() {
        T value;
        stream->Read(scratch, static_cast<unsigned int>(qtPackedSize<T>));
        qtUnpackUssDiet(value, scratch);
        return value;
    }

    qtPtrLight<Generic32> stream;     ///< the stream, shared
    char scratch[8] = {};             ///< one packed integer in transit
    StringHook stringHook = nullptr;  ///< null: strings are written unchanged
    void* hookContext = nullptr;      ///< passed to stringHook, not owned
    qtString hookedString;            ///< stringHook's latest result
};
