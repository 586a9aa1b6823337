#pragma once

#include "hpack/Generic32.h"
#include "hpack/qtPackDiet.h"
#include "hpack/qtPtrLight.h"

template <class Stream>
class Hio;

/// Puts packed integers and strings on a stream, and takes integers from it.
///
///     Hio<Generic32> io;
///     io.stream = qtPtrLight<Generic32>(new Hmemory);
///     io << "one" << "two";                        // 4-byte length, bytes, twice
///
/// It adds no checks of its own: what the stream throws passes through, and a string may then be
/// partly written. For one thread at a time.
template <>
class VANTRY_EXPORT Hio<Generic32> {
public:
    /// Returns what is written in place of a string; `context` is the hookContext.
    using StringHook = qtString (*)(const qtString& text, void* context);

    /// Writes the length of `text` as a packed u32, then its bytes. With a stringHook set it writes
    /// the hook's result instead.
    Hio& operator<<(const qtString& text);

    /// Writes one packed integer.
    template <class T>
    void Put(T value) {
        const int size = qtPackUssDiet(value, scratch);
        stream->Write(scratch, static_cast<unsigned int>(size));
    }

    /// Reads one packed integer.
    template <class T>
    T Get() {
        T value;
        stream->Read(scratch, static_cast<unsigned int>(qtPackedSize<T>));
        qtUnpackUssDiet(value, scratch);
        return value;
    }

    qtPtrLight<Generic32> stream;     ///< the stream, shared
    char scratch[8] = {};             ///< one packed integer on its way
    StringHook stringHook = nullptr;  ///< null: strings are written as they are
    void* hookContext = nullptr;      ///< handed to stringHook, not owned
    qtString hookedString;            ///< stringHook's latest result
};
