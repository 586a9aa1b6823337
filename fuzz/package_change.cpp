// Any bytes as a package on which operations are done. Where nothing is wrong with the package, a
// map is the judge of every item; else each operation has to succeed or to give an error.
#include "fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    qtString numbers;
    for (auto changes = input() % 12; changes-- > 0;) {
        numbers += Word(input()) + Word(input()) + Word(input());
    }
    Input script(reinterpret_cast<const std::uint8_t*>(numbers.data()), numbers.size());
    const bool good = Check(input.rest).Good();
    qtPtr<qtBuffer> buffer = NewBuffer(input.rest);
    Hpack package;
    if (!Succeeds([&] { package.Open(buffer, 'u'); })) {
        return 0;
    }
    Contents model = ReadableItems(package, size);
    while (!script.rest.empty()) {
        const auto save = script() % 8;
        const Change change =
            RandomChange(script, model, [&] { return qtString(script() % 300, 'x'); });
        if (Succeeds([&] { change.Do(package); })) {
            change.Do(model);
        }
        Succeeds([&] { save == 0 ? package.SaveIndex() : void(); });
        Succeeds([&] { save == 1 ? DeadSpace(package) : Extent(); });
        REQUIRE(!good || ReadableItems(package, buffer->Length()) == model);
    }
    if (Succeeds([&] { package.Close(); }) && good) {
        REQUIRE(Check(Bytes(*buffer)).Good());
        package.Open(buffer, 'r');
        REQUIRE(Items(package) == model);
    }
    return 0;
}
