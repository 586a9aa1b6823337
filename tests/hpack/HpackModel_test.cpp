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
        // The first save of a package that was created by an object used before goes to the end
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
        const auto length = random() % 20 == 0 ? random() % 40000 : random() % 30;
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
            default: {
                const Change change =
                    RandomChange(random, model.items, [&] { return RandomBody(); });
                change.Do(package);
                change.Do(model);
            }
        }
    }

    TempFolder folder;
    qtString file = folder / "package";
    qtPtr<qtBuffer> buffer = NewBuffer();
    Hpack package;
    Model model;
    std::mt19937 random{2024};
};

TEST_P(HpackModel, HoldsJustTheBytesOfTheModel) {
    for (int life = 0; life < 12; ++life) {
        Open('w');
        model.Create();
        for (auto count = random() % 40; count-- > 0;) {
            const qtString key = RandomKey(random) + RandomKey(random);
            if (model.items.count(key) == 0) {
                const Change change{Change::add, key, RandomBody()};
                change.Do(package);
                change.Do(model);
            }
        }
        package.Close();
        model.Save();
        ASSERT_EQ(Stored(), model.bytes) << "life " << life;
        for (int session = 0; session < 12; ++session) {
            Open('u');
            model.OpenForUpdate();
            for (auto count = random() % 60; count-- > 0;) {
                ChangeOrLook();
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

// Many keys, added out of order, so that every way of looking one up is taken.
TEST_P(HpackModel, ManyKeysInRandomOrder) {
    std::vector<qtString> numbers(20000);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        numbers[i] = Word(i);
    }
    const std::vector<qtString> sorted = numbers;
    std::shuffle(numbers.begin(), numbers.end(), random);
    Open('w');
    for (const qtString& key : numbers) {
        package.AddAtOffset(key, key, 0);
    }
    package.Close();
    Open('u');
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(Keys(package), sorted);
        for (const qtString& key : numbers) {
            qtString body;
            package.GetItem(key, body);
            ASSERT_EQ(body, key);
        }
        // Delete a third, save or not, and let them come back.
        for (std::size_t i = 0; i < numbers.size(); i += 3) {
            package.Delete(numbers[i]);
        }
        if (round == 1) {
            package.SaveIndex();
        }
        for (std::size_t i = 0; i < numbers.size(); i += 3) {
            package.AddOrUpdate(numbers[i], numbers[i]);
        }
    }
    package.Close();
}

INSTANTIATE_TEST_SUITE_P(Streams, HpackModel, testing::Bool(), [](const auto& parameter) {
    return std::string(parameter.param ? "File" : "Buffer");
});

}  // namespace
