// Random sequences of operations against a model that knows where every byte must lie: after every
// close the buffer and the file hold just the bytes that the model holds.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/support/Items.h"
#include "tests/support/TempFolder.h"

namespace {

using namespace HpackFormat;

class Model {
public:
    struct Item {
        std::size_t offset;
        qtString body;
    };

    void Create() {
        bytes = Word(PackMagic) + qtString(headerSize - wordSize, '\0');
        items.clear();
        indexOffset = 0;
        modified = true;
    }

    void OpenForUpdate() {
        indexSpace = IndexSize();
        modified = false;
    }

    void Add(const qtString& key, const qtString& body, std::size_t offset) {
        const std::size_t at = offset == 0 ? bytes.size() : offset;
        Put(at, Record(key, body));
        items[key] = {at, body};
        modified = true;
    }

    void AddOrUpdate(const qtString& key, const qtString& body) {
        const auto found = items.find(key);
        const bool fits = found != items.end() && body.size() <= found->second.body.size();
        Add(key, body, fits ? found->second.offset : 0);
    }

    void Rename(const qtString& oldKey, const qtString& newKey) {
        const Item item = items.at(oldKey);
        items.erase(oldKey);
        Add(newKey, item.body, newKey.size() <= oldKey.size() ? item.offset : 0);
    }

    void Delete(const qtString& key) {
        items.erase(key);
        modified = true;
    }

    void Save() {
        if (!modified) {
            return;
        }
        // The first save of a package that was created by an object used before is appended
        // even if the former reservation covers the block.
        if (IndexSize() > indexSpace || indexOffset == 0) {
            indexSpace = std::max(indexSpace, IndexSize());
            indexOffset = bytes.size();
        }
        Put(indexOffset, IndexBlock());
        Put(indexOffsetAt, Word(indexOffset));
        modified = false;
    }

    qtString IndexBlock() const {
        qtString block = Word(IndexMagic) + Word(items.size());
        for (const auto& [key, item] : items) {
            block += Word(key.size()) + key + Word(item.offset);
        }
        return block;
    }
    std::size_t IndexSize() const { return IndexBlock().size(); }

    std::size_t Dead() const {
        std::size_t live = headerSize + IndexSize();
        for (const auto& [key, item] : items) {
            live += Record(key, item.body).size();
        }
        return bytes.size() - live;
    }

    qtString bytes;
    std::map<qtString, Item> items;

private:
    void Put(std::size_t at, const qtString& written) {
        bytes.resize(std::max(bytes.size(), at + written.size()), '\0');
        bytes.replace(at, written.size(), written);
    }

    std::size_t indexOffset = 0;
    std::size_t indexSpace = 0;
    bool modified = false;
};

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
        const auto found = model.items.find(key);
        if (found == model.items.end()) {
            EXPECT_THROW(package.GetItem(key, body), qtX<Hpack>);
            return;
        }
        package.GetItem(key, body);
        EXPECT_EQ(body, found->second.body);
        EXPECT_EQ(Place(package, key), Extent(found->second.offset, body.size()));
    }

    void ExpectKeys() {
        std::vector<qtString> expected;
        for (const auto& [key, item] : model.items) {
            expected.push_back(key);
        }
        EXPECT_EQ(Keys(package), expected);
        EXPECT_EQ(package.GetIndexSpace(), model.IndexSize());
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
                EXPECT_EQ(space, Extent(model.bytes.size(), model.Dead()));
                break;
            }
            case 1: {
                const qtString body = RandomBody();
                package.AddAtOffset(key, *NewBuffer(body), 0);
                model.Add(key, body, 0);
                break;
            }
            case 2:
                ExpectKeys();
                break;
            case 3:
                ExpectItem(key);
                break;
            default:
                Do(RandomChange(random, model.items, [&] { return RandomBody(); }));
        }
    }

    TempFolder folder;
    qtString file = folder / "package";
    qtPtr<qtBuffer> buffer = NewBuffer();
    Hpack package;
    Model model;
    std::mt19937 random{2024};
};

// Few keys that meet, and in the first life many, so that every way of looking one up is taken.
TEST_P(HpackModel, HoldsJustTheBytesOfTheModel) {
    for (int life = 0; life < 12; ++life) {
        Open('w');
        model.Create();
        for (auto count = life == 0 ? 20000 : random() % 40; count-- > 0;) {
            const qtString key = life == 0 ? Word(random()) : RandomKey(random) + RandomKey(random);
            if (model.items.count(key) == 0) {
                Do({Change::adding, key, RandomBody()});
            }
        }
        package.Close();
        model.Save();
        ASSERT_EQ(Stored(), model.bytes) << "life " << life;
        for (int session = 0; session < (life == 0 ? 3 : 12); ++session) {
            Open('u');
            model.OpenForUpdate();
            for (auto count = random() % 60; count-- > 0;) {
                ChangeOrLook();
            }
            Contents gone;
            for (const auto& item : model.items) {
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
            ASSERT_EQ(Stored(), model.bytes) << "life " << life << ", session " << session;
        }
        Open('r');
        ExpectKeys();
        for (const auto& [key, item] : model.items) {
            ExpectItem(key);
        }
        package.Close();
    }
}

INSTANTIATE_TEST_SUITE_P(Streams, HpackModel, testing::Bool(), [](const auto& parameter) {
    return std::string(parameter.param ? "File" : "Buffer");
});

}  // namespace
