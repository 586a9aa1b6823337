#include "hpack/Hio.h"

Hio<Generic32>& Hio<Generic32>::operator<<(const qtString& text) {
    const qtString* written = &text;
    if (stringHook != nullptr) {
        hookedString = stringHook(text, hookContext);
        written = &hookedString;
    }
    const auto length = static_cast<unsigned int>(written->size());
    Put(length);
    if (length != 0) {
        stream->Write(const_cast<char*>(written->data()), length);
    }
    return *this;
}
