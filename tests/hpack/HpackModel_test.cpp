// Random sequences of operations against a model that knows where every byte must lie: after every
// close the buffer and the file hold just the bytes that the model holds.
#include <gtest/gtest.h>

#include <random>

#include "tests/hpack/PackageModel.h"
#include "tests/support/Items.h"
#include "tests/support/TempFolder.h"

namespace {

class HpackModel : public testing::TestWithParam<bool> {
protected:
    ~HpackModel() noexcept override = default;

    void Open(char mode) {
        if (GetParam()) {
            package.Open(file, mode);
        } else {
            package.Open(buffer, mode);
        }
    }
    qtString Stored() const { return GetParam() ? FileBytes(file) : Bytes(*buffer); }

    qtString RandomBody() {
        const auto length = random() % 100 == 0 ? random() % 40000 : random() % 30;
        return qtString(length, static_cast<char>(random()));
    }

    void ExpectItem(const qtString& key) {
        qtString body;
        const auto found = model.Items().find(key);
        if (found == model.Items().end()) {
            EXPECT_THROW(package.GetItem(key, body), qtX<Hpack>);
            return;
        }
        package.GetItem(key, body);
        EXPECT_EQ(body, model.Records().at(found->second).body);
        EXPECT_EQ(Place(package, key), Extent(found->second, body.size()));
    }

    void ExpectKeys() {
        std::vector<qtString> expected;
        for (const auto& [key, item] : model.Items()) {
            expected.push_back(key);
        }
        EXPECT_EQ(Keys(package), expected);
        EXPECT_EQ(package.GetIndexSpace(), model.IndexSpace());
    }

    void Do(const Change& change) {
        change.Do(package);
        change.Do(model);
    }

    void ChangeOrLook() {
        const qtString key = RandomKey(random) + RandomKey(random);
        switch (random() % 10) {
            case 0: {
                const auto space = DeadSpace(package);
                model.Save();
                EXPECT_EQ(space, Extent(model.Bytes().size(), model.Dead()));
                break;
            }
            case 1: {
                const qtString body = RandomBody();
                package.AddAtOffset(key, *NewBuffer(body), 0);
                model.Put(key, body, 0);
                break;
            }
            case 2:
                ExpectKeys();
                break;
            case 3:
                ExpectItem(key);
                break;
            default:
                Do(RandomChange(random, model.Items(), [&] { return RandomBody(); }));
        }
    }

    TempFolder folder;
    qtString file = folder / "package";
    qtPtr<qtBuffer> buffer = NewBuffer();
    Hpack package;
    PackageModel model;
    std::mt19937 random{2024};
};

// Few keys that meet, and in the first life many, so that every way of looking one up is taken.
TEST_P(HpackModel, HoldsJustTheBytesOfTheModel) {
    for (int life = 0; life < 12; ++life) {
        Open('w');
        model = PackageModel();
        for (auto count = life == 0 ? 20000 : random() % 40; count-- > 0;) {
            const qtString key = life == 0 ? Word(random()) : RandomKey(random) + RandomKey(random);
            if (model.Items().count(key) == 0) {
                Do({Change::adding, key, RandomBody()});
            }
        }
        package.Close();
        model.Save();
        ASSERT_EQ(Stored(), model.Bytes()) << "life " << life;
        for (int session = 0; session < (life == 0 ? 3 : 12); ++session) {
            Open('u');
            model.OpenForUpdate();
            for (auto count = random() % 60; count-- > 0;) {
                ChangeOrLook();
            }
            Contents gone;
            for (const auto& item : model.Items()) {
                if (random() % 4 < (session == 0 ? 3u : 1u)) {
                    gone[item.first] = RandomBody();
                }
            }
            for (const auto& item : gone) {
                Do({Change::removing, item.first, ""});
            }
            for (const auto& [key, body] : gone) {
                if (session % 3 != 0) {
                    Do({Change::adding, key, body});
                }
            }
            package.Close();
            model.Save();
            ASSERT_EQ(Stored(), model.Bytes()) << "life " << life << ", session " << session;
        }
        Open('r');
        ExpectKeys();
        for (const auto& [key, item] : model.Items()) {
            ExpectItem(key);
        }
        package.Close();
    }
}

INSTANTIATE_TEST_SUITE_P(Streams, HpackModel, testing::Bool(), [](const auto& parameter) {
    return std::string(parameter.param ? "File" : "Buffer");
});

}  // namespace
