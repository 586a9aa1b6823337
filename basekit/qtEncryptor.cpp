#include "basekit/qtEncryptor.h"

#include <fcntl.h>
#include <sodium.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "basekit/registryFiles.h"

using registryFiles::File;

qtxEncryptor::qtxEncryptor(const qtxEncryptor& other) = default;
qtxEncryptor& qtxEncryptor::operator=(const qtxEncryptor& other) = default;
qtxEncryptor::~qtxEncryptor() = default;

const char* qtxEncryptor::BaseString() const {
    return "qtxEncryptor";
}

[[noreturn]] static void Throw(const std::string& text) {
    registryFiles::LastError() = text;
    qtxEncryptor error(11, text.c_str(), 1);
    error.SetFileInfo(QT_FILE_INFO);
    throw error;
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
    int Read(const std::string& file);
    int Make(const std::string& path, const std::string& file);

    std::array<unsigned char, crypto_secretbox_KEYBYTES> bytes{};
};

Key::Key(bool makeMissing) {
    if (sodium_init() < 0) {
        Throw("No source of random numbers");
    }
    const std::string path = registryFiles::Path();
    if (path.empty()) {
        Throw("No place for the key file: BASEKIT_REGISTRY, XDG_DATA_HOME and HOME are not set");
    }
    const std::string file = path + ".key";
    int error = Read(file);
    if (error == ENOENT && makeMissing) {
        error = Make(path, file);
    }
    if (error != 0) {
        Throw("Cannot use key file " + file + ": " + registryFiles::Lock::Message(error));
    }
}

int Key::Read(const std::string& file) {
    const File opened(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (!opened) {
        return errno;
    }
    const ssize_t count = read(opened.Get(), bytes.data(), bytes.size());
    if (count < 0) {
        return errno;
    }
    char excess;
    const bool whole = static_cast<std::size_t>(count) == bytes.size();
    return whole && read(opened.Get(), &excess, 1) == 0 ? 0 : EBADMSG;
}

// The first process to come makes the key for all.
int Key::Make(const std::string& path, const std::string& file) {
    registryFiles::Lock lock;
    if (const int error = lock.Take(path + ".db")) {
        return error;
    }
    if (const int error = Read(file); error != ENOENT) {
        return error;
    }
    randombytes_buf(bytes.data(), bytes.size());
    const File written = registryFiles::CreateNew(file, 0600);
    if (!written) {
        return errno;
    }
    const ssize_t count = write(written.Get(), bytes.data(), bytes.size());
    int error = count < 0 ? errno : ENOSPC;
    if (static_cast<std::size_t>(count) == bytes.size()) {
        error = registryFiles::Publish(written, file);
    }
    if (error != 0) {
        registryFiles::Discard(file);
    }
    return error;
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
