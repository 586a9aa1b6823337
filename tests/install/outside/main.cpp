#include <cstdio>

#include "Vantry/VantryVersion.h"
#include "Vantry/qtGeneric2.h"
#include "hpack/Hpack.h"
#include "lpstring/LpString.h"
#include "lpstring/LpStringHash.h"

bool HasOwnNames();

namespace {

// A stream of this program, which the library calls, and which throws through it.
class Refusing : public Generic32 {
public:
    void Write(char* data, unsigned int count) override {
        throw qtX<HioErr>("refused", HioErrors::write, qtString(data, count));
    }
};

template <class Work>
void Report(Work work) {
    try {
        work();
    } catch (const qtXbase& error) {
        const auto* stream = dynamic_cast<const qtX<HioErr>*>(&error);
        const auto* package = dynamic_cast<const qtX<Hpack>*>(&error);
        std::printf("%s: %s %d\n", error.BaseString(), error.Text(),
                    stream != nullptr ? stream->Number() : package->Number());
    } catch (const qtxAll& error) {
        std::printf("%s: %s\n", error.BaseString(), error.SpecificString());
    }
}

}  // namespace

// What the libraries throw is caught here by its bases: both have to agree on the types.
int main() {
    char version[11];
    GetVantryVersion(version);
    std::printf("%s\n", version);
    Report([] { generic_set_tempdir(""); });
    Report([] { Hpack().Open("", 'r'); });
    Report([] { Hpack().Delete(""); });
    Report([] { Hpack().Open(qtPtrLight<Generic32>(new Refusing), 'w'); });

    // These select code for the processor, with names that this program has, too.
    const qtString text = qtString(5000, 'x') + " y z";
    std::vector<LpCString> tokens;
    LpTokenize(text, tokens);
    std::printf("%x %x %zu\n", LpStringHash::s_polyHash.Hash("hello world"),
                LpStringHash::s_polyHash.Hash(text), tokens.size());
    return HasOwnNames() ? 0 : 1;
}
