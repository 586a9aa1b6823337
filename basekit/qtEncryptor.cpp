#include "basekit/qtEncryptor.h"

#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "basekit/FileInfo.h"
#include "basekit/RegistryLocation.h"
#include "system/AtomicFile.h"

using vantry_internal::AtomicFile;
using vantry_internal::FileDescriptor;
using vantry_internal::SystemError;

qtxEncryptor::qtxEncryptor(const qtxEncryptor& other) = default;
qtxEncryptor& qtxEncryptor::operator=(const qtxEncryptor& other) = default;
qtxEncryptor::~qtxEncryptor() = default;

const char* qtxEncryptor::BaseString() const {
    return "qtxEncryptor";
}

[[noreturn]] static void Throw(const std::string& text) {
    vantry_internal::SetRegistryError(text);
    qtxEncryptor error(11, text.c_str(), 1);
    error.SetFileInfo(QT_FILE_INFO);
    throw error;
}

[[noreturn]] static void Refuse(const std::string& file, const std::string& reason) {
    Throw("Cannot use key file " + file + ": " + reason);
}

namespace {

class Key {
public:
    explicit Key(bool makeMissing);
    ~Key() { sodium_memzero(bytes.data(), bytes.size()); }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    const unsigned char* Bytes() const { return bytes.data(); }

private:
    bool Read();
    void Check(const FileDescriptor& opened) const;
    void Make();

    std::string database;
    std::string file;
    std::array<unsigned char, crypto_secretbox_KEYBYTES> bytes{};
};

Key::Key(bool makeMissing) {
    if (sodium_init() < 0) {
        Throw("No source of random numbers");
    }
    const std::string path = vantry_internal::RegistryPath();
    if (path.empty()) {
        Throw("No place for the key file: BASEKIT_REGISTRY, XDG_DATA_HOME and HOME are not set");
    }
    database = path + ".db";
    file = path + ".key";
    try {
        if (!Read()) {
            if (!makeMissing) {
                Refuse(file, std::generic_category().message(ENOENT));
            }
            Make();
        }
    } catch (const SystemError& error) {
        Refuse(file, error.Reason());
    }
}

// @return false when there is no key
bool Key::Read() {
    FileDescriptor opened;
    try {
        opened = vantry_internal::OpenRegular(file, O_RDONLY);
    } catch (const SystemError& error) {
        if (error.Number() == ENOENT) {
            return false;
        }
        throw;
    }
    Check(opened);
    const std::size_t count = vantry_internal::ReadSome(
        opened.Get(), reinterpret_cast<char*>(bytes.data()), bytes.size(), file);
    char excess;
    if (count != bytes.size() || vantry_internal::ReadSome(opened.Get(), &excess, 1, file) != 0) {
        Refuse(file, "it is not a key of 32 bytes");
    }
    return true;
}

// Nobody but its user may know the key, or choose it.
void Key::Check(const FileDescriptor& opened) const {
    struct stat key;
    if (fstat(opened.Get(), &key) != 0) {
        throw SystemError(errno, "cannot read", file);
    }
    struct stat store;
    const bool ownersRegistry =
        geteuid() == 0 && stat(database.c_str(), &store) == 0 && store.st_uid == key.st_uid;
    if (key.st_uid != geteuid() && !ownersRegistry) {
        Refuse(file, "it belongs to another user");
    }
    if ((key.st_mode & 077) != 0) {
        Refuse(file, "others may read or write it; its mode must be 0600");
    }
}

// The first process to come makes the key for all.
void Key::Make() {
    const auto lock = vantry_internal::LockRegistry(database);
    if (Read()) {
        return;
    }
    randombytes_buf(bytes.data(), bytes.size());
    AtomicFile written(file, AtomicFile::Existing::refuse, 0600);
    vantry_internal::WriteAll(written.Descriptor(), reinterpret_cast<const char*>(bytes.data()),
                              bytes.size(), file);
    vantry_internal::GiveToOwnerOf(database, written.Descriptor());
    written.Commit();
}

}  // namespace

static unsigned char* Bytes(qtString& text, std::size_t offset = 0) {
    return reinterpret_cast<unsigned char*>(text.data()) + offset;
}

static const unsigned char* Bytes(const qtString& text, std::size_t offset = 0) {
    return reinterpret_cast<const unsigned char*>(text.data()) + offset;
}

static constexpr std::size_t nonceLength = crypto_secretbox_NONCEBYTES;
static constexpr std::size_t overhead = nonceLength + crypto_secretbox_MACBYTES;

qtString qtEncryptor::Encrypt(const qtString& plain) const {
    const Key key(true);
    qtString encrypted(overhead + plain.size(), '\0');
    randombytes_buf(Bytes(encrypted), nonceLength);
    crypto_secretbox_easy(Bytes(encrypted, nonceLength), Bytes(plain), plain.size(),
                          Bytes(encrypted), key.Bytes());
    return encrypted;
}

qtString qtEncryptor::Decrypt(const qtString& encrypted) const {
    const Key key(false);
    if (encrypted.size() >= overhead) {
        qtString plain(encrypted.size() - overhead, '\0');
        if (crypto_secretbox_open_easy(Bytes(plain), Bytes(encrypted, nonceLength),
                                       encrypted.size() - nonceLength, Bytes(encrypted),
                                       key.Bytes()) == 0) {
            return plain;
        }
    }
    Throw("The encrypted text was altered, or made with another key");
}

void qtEncryptor::Wipe(qtString& text) {
    text.resize(text.capacity());
    sodium_memzero(text.data(), text.size());
    text.clear();
}
