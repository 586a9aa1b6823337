#pragma once

#include "hpack/Hfile32.h"

namespace vantry_python {

/// A file that errors report by the name that it will have.
class RenamedFile : public Hfile32 {
public:
    void OpenAs(const qtString& shown, const qtString& path, char mode) {
        try {
            Open(path, mode);
        } catch (const qtX<HioErr>& error) {
            throw qtX<HioErr>((HioErrors::cannotOpen + shown).c_str(), error.Number(), shown);
        }
        name = shown;
    }
};

}  // namespace vantry_python
