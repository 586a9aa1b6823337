#include "tools/hpk/SigningKey.h"

#include <sodium.h>
#include <sys/stat.h>

#include <cerrno>

#include "tools/common/Failures.h"
#include "tools/common/System.h"
#include "tools/hpk/Digest.h"

namespace vantry_tools {

static constexpr const char* secretTitle = "hpk secret key 1";
static constexpr const char* publicTitle = "hpk public key 1";
static constexpr const char* signatureTitle = "hpk signature 1";

static unsigned char* Bytes(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

static const unsigned char* Bytes(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

static void Wipe(std::string& text) {
    sodium_memzero(text.data(), text.size());
}

static void Save(const char* title, const std::string& bytes, const std::string& path, mode_t mode,
                 AtomicFile::Existing existing) {
    AtomicFile file(path, existing, mode);
    std::string text = std::string(title) + '\n' + Hex(bytes) + '\n';
    WriteAll(file.Descriptor(), text.data(), text.size(), path);
    Wipe(text);
    file.Commit();
}

static std::string Load(const FileDescriptor& file, const char* title, std::size_t size,
                        const std::string& path) {
    const std::string start = std::string(title) + '\n';
    std::string text(start.size() + 2 * size + 1, '\0');
    std::size_t length = 0;
    while (const std::size_t count =
               ReadSome(file.Get(), &text[length], text.size() - length, path)) {
        length += count;
    }
    std::string bytes;
    const bool isGood = text.compare(0, start.size(), start) == 0 && text.back() == '\n' &&
                        FromHex(std::string_view(text).substr(start.size(), 2 * size), bytes);
    Wipe(text);
    if (!isGood) {
        throw ToolFailure(path + ": no file that begins with \"" + title + "\" and has its digits");
    }
    return bytes;
}

SecretKey::SecretKey() : seed(crypto_sign_SEEDBYTES, '\0') {
    StartSodium();
    randombytes_buf(seed.data(), seed.size());
    Expand();
}

SecretKey::SecretKey(const std::string& path) {
    StartSodium();
    const FileDescriptor file = OpenRegular(path, O_RDONLY);
    struct stat status;
    if (fstat(file.Get(), &status) != 0) {
        throw SystemError(errno, "cannot read", path);
    }
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        throw ToolFailure(path + ": other users can read this secret key (see chmod 600)");
    }
    seed = Load(file, secretTitle, crypto_sign_SEEDBYTES, path);
    Expand();
}

SecretKey::~SecretKey() {
    Wipe(seed);
    Wipe(expanded);
}

void SecretKey::Expand() {
    expanded.resize(crypto_sign_SECRETKEYBYTES);
    publicKey.resize(crypto_sign_PUBLICKEYBYTES);
    crypto_sign_seed_keypair(Bytes(publicKey), Bytes(expanded), Bytes(seed));
}

void SecretKey::Save(const std::string& path) const {
    vantry_tools::Save(secretTitle, seed, path, 0600, AtomicFile::Existing::refuse);
}

std::string SecretKey::Sign(const std::string& message) const {
    std::string signature(crypto_sign_BYTES, '\0');
    crypto_sign_detached(Bytes(signature), nullptr, Bytes(message), message.size(),
                         Bytes(expanded));
    return signature;
}

void SavePublicKey(const std::string& key, const std::string& path) {
    Save(publicTitle, key, path, 0666, AtomicFile::Existing::refuse);
}

std::string LoadPublicKey(const std::string& path) {
    return Load(OpenRegular(path, O_RDONLY), publicTitle, crypto_sign_PUBLICKEYBYTES, path);
}

void SaveSignature(const std::string& signature, const std::string& path) {
    Save(signatureTitle, signature, path, 0666, AtomicFile::Existing::replace);
}

std::string LoadSignature(const std::string& path) {
    return Load(OpenRegular(path, O_RDONLY), signatureTitle, crypto_sign_BYTES, path);
}

bool IsSignedBy(const std::string& publicKey, const std::string& message,
                const std::string& signature) {
    StartSodium();
    return crypto_sign_verify_detached(Bytes(signature), Bytes(message), message.size(),
                                       Bytes(publicKey)) == 0;
}

}  // namespace vantry_tools
