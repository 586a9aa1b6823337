#pragma once

#include <gtest/gtest.h>

#include <map>

#include "basekit/UnixRegistry.h"
#include "tests/support/Bytes.h"
#include "tests/support/TempFolder.h"

/// A test with a registry of its own, in a folder that is removed with the test.
class TemporaryRegistry : public ::testing::Test {
protected:
    TemporaryRegistry() { Use(folder / "store/registry"); }

    /// Makes `path`, which has no suffix, the registry.
    void Use(const std::filesystem::path& path) {
        setenv("BASEKIT_REGISTRY", path.c_str(), 1);
        database = path.string() + ".db";
    }

    using Records = std::map<std::string, std::string>;

    /// All records of the registry. @return false if it cannot be read to its end
    static bool ReadAll(Records& records, UnixRegistry& store) {
        return store.ForEach([&](const qtString& key, const char* data, unsigned length) {
            EXPECT_TRUE(records.emplace(key, std::string(data, length)).second);
        });
    }

    static Records ReadAll() {
        Records records;
        UnixRegistry store;
        EXPECT_TRUE(store.Open(false) && ReadAll(records, store)) << UnixRegistry::LastError();
        return records;
    }

    static bool Set(UnixRegistry& store, const std::string& key, const std::string& value) {
        return store.SetKey(key, value.data(), static_cast<unsigned>(value.size()));
    }

    static bool Set(const std::string& key, const std::string& value) {
        UnixRegistry store;
        return store.Open(true) && Set(store, key, value);
    }

    TempFolder scratch;
    std::filesystem::path folder = scratch.Path();
    std::filesystem::path database;
};
