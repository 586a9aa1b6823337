// Random sequences of operations against a model that knows where every byte must lie: after every
// close the buffer and the file hold just the bytes that the model holds.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "hpack/Hpack.h"
#include "hpack/HpackFormat.h"
#include "tests/support/Bytes.h"
#include "tests/support/TempFolder.h"

namespace {

using namespace HpackFormat;

qtString Packed(std::size_t value) {
    char word[wordSize];
    PutWord(word, static_cast<std::uint32_t>(value));
    return qtString(word, wordSize);
}

class Model {
public:
    struct Item {
        std::uint32_t offset;
        qtString body;
    };

    void Create() {
        bytes = Packed(PackMagic) + qtString(headerSize - wordSize, '\0');
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
        Put(at, Packed(ItemMagic) + Packed(key.size()) + key + Packed(body.size()) + body);
        items[key] = {static_cast<std::uint32_t>(at), body};
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
        if (IndexSize() > indexSpace) {
            indexSpace = IndexSize();
            indexOffset = bytes.size();
        } else if (indexOffset == 0) {
            // The first save of a package that was created by an object used before: the former
            // reservation covers the block, which goes to the end all the same.
            indexOffset = bytes.size();
        }
        qtString block = Packed(IndexMagic) + Packed(items.size());
        for (const auto& [key, item] : items) {
            block += Packed(key.size()) + key + Packed(item.offset);
        }
        Put(indexOffset, block);
        Put(indexOffsetAt, Packed(indexOffset));
        modified = false;
    }

    std::size_t IndexSize() const {
        std::size_t size = indexOverhead;
        for (const auto& [key, item] : items) {
            size += entryOverhead + key.size();
        }
        return size;
    }

    std::size_t Dead() const {
        std::size_t live = headerSize + IndexSize();
        for (const auto& [key, item] : items) {
            live += recordOverhead + key.size() + item.body.size();
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
    HpackModel() : buffer(NewBuffer()) {}
    ~HpackModel() noexcept override = default;

    void Open(char mode) {
        if (GetParam()) {
            package.Open(file, mode);
        } else {
            package.Open(buffer, mode);
        }
    }
    qtString Stored() const { return GetParam() ? FileBytes(file) : Bytes(*buffer); }

    qtString RandomKey() {
        const auto length = random() % 6;
        qtString key;
        for (auto i = length; i-- > 0;) {
            key.push_back("ab\0\xff"[random() % 4]);
        }
        return key;
    }
    qtString RandomBody() {
        const auto length = random() % 20 == 0 ? random() % 40000 : random() % 30;
        return qtString(length, static_cast<char>(random()));
    }
    qtString ExistingKey() const {
        const auto at = static_cast<std::ptrdiff_t>(random() % model.items.size());
        return std::next(model.items.begin(), at)->first;
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
        unsigned int offset = 0;
        unsigned int size = 0;
        package.GetKeyInfo(key, offset, size);
        EXPECT_EQ(offset, found->second.offset);
        EXPECT_EQ(size, body.size());
    }

    void ExpectKeys() {
        std::vector<qtString> keys;
        package.GetIndex(keys);
        std::vector<qtString> expected;
        for (const auto& [key, item] : model.items) {
            expected.push_back(key);
        }
        EXPECT_EQ(keys, expected);
        EXPECT_EQ(package.GetIndexSpace(), model.IndexSize());
    }

    void ChangeOrLook() {
        const qtString key = RandomKey();
        const qtString body = RandomBody();
        switch (random() % 10) {
            case 0:
                package.Delete(key);
                model.Delete(key);
                break;
            case 1:
            case 2:
                if (!model.items.empty()) {
                    const qtString old = ExistingKey();
                    package.Rename(old, key);
                    model.Rename(old, key);
                }
                break;
            case 3:
                package.AddAtOffset(key, *NewBuffer(body), 0);
                model.Add(key, body, 0);
                break;
            case 4:
                ExpectKeys();
                break;
            case 5: {
                unsigned int size = 0;
                unsigned int dead = 0;
                package.CalculateDeadSpace(size, dead);
                model.Save();
                EXPECT_EQ(size, model.bytes.size());
                EXPECT_EQ(dead, model.Dead());
                break;
            }
            case 6:
                ExpectItem(key);
                break;
            default:
                package.AddOrUpdate(key, body);
                model.AddOrUpdate(key, body);
        }
    }

    TempFolder folder;
    qtString file = folder / "package";
    qtPtr<qtBuffer> buffer;
    Hpack package;
    Model model;
    mutable std::mt19937 random{2024};
};

TEST_P(HpackModel, HoldsJustTheBytesOfTheModel) {
    for (int life = 0; life < 12; ++life) {
        Open('w');
        model.Create();
        for (auto count = random() % 40; count-- > 0;) {
            const qtString key = RandomKey();
            if (model.items.count(key) == 0) {
                const qtString body = RandomBody();
                package.AddOrUpdate(key, body);
                model.AddOrUpdate(key, body);
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
    std::vector<unsigned int> numbers(20000);
    for (unsigned int i = 0; i < numbers.size(); ++i) {
        numbers[i] = i;
    }
    std::shuffle(numbers.begin(), numbers.end(), random);
    Open('w');
    for (const unsigned int number : numbers) {
        package.AddAtOffset(Hpack::MakeStringKey(number), qtString(std::to_string(number)), 0);
    }
    package.Close();
    Open('u');
    for (int round = 0; round < 3; ++round) {
        std::vector<qtString> keys;
        package.GetIndex(keys);
        ASSERT_EQ(keys.size(), numbers.size());
        EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
        for (const unsigned int number : numbers) {
            qtString body;
            package.GetItem(Hpack::MakeStringKey(number), body);
            ASSERT_EQ(body, std::to_string(number));
        }
        // Delete a third, save or not, and let them come back.
        for (std::size_t i = 0; i < numbers.size(); i += 3) {
            package.Delete(Hpack::MakeStringKey(numbers[i]));
        }
        if (round == 1) {
            package.SaveIndex();
        }
        for (std::size_t i = 0; i < numbers.size(); i += 3) {
            package.AddOrUpdate(Hpack::MakeStringKey(numbers[i]), std::to_string(numbers[i]));
        }
    }
    package.Close();
}

INSTANTIATE_TEST_SUITE_P(Streams, HpackModel, testing::Bool(), [](const auto& parameter) {
    return std::string(parameter.param ? "File" : "Buffer");
});

}  // namespace
