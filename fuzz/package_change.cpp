// Any bytes as a package on which operations are done. Where nothing is wrong with the package, a
// map is the judge of every item; else each operation has to succeed or to give an error.
#include "fuzz/Fuzz.h"
#include "hpack/Hmemory.h"
#include "hpack/HpackCheck.h"
#include "hpack/HpackFormat.h"

static bool Good(qtBuffer& buffer) {
    Hmemory stream;
    stream.Open(buffer, 'r');
    return HpackCheck(stream).Good();
}

static qtString Key(FuzzedDataProvider& input) {
    const auto choice = input.ConsumeIntegral<unsigned char>();
    return qtString(choice % 4, static_cast<char>('a' + choice / 4 % 4));
}

static void Change(Hpack& package, Contents& model, FuzzedDataProvider& input) {
    const qtString key = Key(input);
    switch (input.ConsumeIntegralInRange(0, 4)) {
        case 0:
            package.Delete(key);
            model.erase(key);
            break;
        case 1: {
            const qtString other = Key(input);
            if (Succeeds([&] { package.Rename(key, other); })) {
                const qtString body = model[key];
                model.erase(key);
                model[other] = body;
            }
            break;
        }
        case 2:
            package.SaveIndex();
            break;
        case 3: {
            unsigned int size = 0;
            unsigned int dead = 0;
            Succeeds([&] { package.CalculateDeadSpace(size, dead); });
            break;
        }
        default: {
            const qtString body(input.ConsumeIntegral<unsigned short>() % 300, 'x');
            if (Succeeds([&] { package.AddOrUpdate(key, body); })) {
                model[key] = body;
            }
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);  // numbers come from its end
    const bool valid = input.ConsumeBool();
    const int changes = input.ConsumeIntegralInRange(0, 12);
    qtString numbers;
    for (int i = 0; i < 4 * changes; ++i) {
        numbers.push_back(static_cast<char>(input.ConsumeIntegral<unsigned char>()));
    }
    qtString bytes = input.ConsumeRemainingBytesAsString();
    if (valid && bytes.size() >= HpackFormat::headerSize) {
        HpackFormat::PutWord(bytes.data(), HpackFormat::PackMagic);
    }
    qtPtr<qtBuffer> buffer = NewBuffer(bytes);
    const bool good = Good(*buffer);
    Hpack package;
    if (!Succeeds([&] { package.Open(buffer, 'u'); })) {
        return 0;
    }
    Contents model = ReadableItems(package);
    FuzzedDataProvider script(reinterpret_cast<const std::uint8_t*>(numbers.data()),
                              numbers.size());
    for (int i = 0; i < changes; ++i) {
        Succeeds([&] { Change(package, model, script); });
        if (good) {
            REQUIRE(ReadableItems(package) == model);
        }
    }
    if (Succeeds([&] { package.Close(); }) && good) {
        REQUIRE(Good(*buffer));
        package.Open(buffer, 'r');
        REQUIRE(ReadableItems(package) == model);
    }
    return 0;
}
