#pragma once

#include <string>

namespace vantry_tools {

// Keys and signatures of Ed25519, in files of two lines: what it is, and hexadecimal digits.

/// A secret key, which is wiped from memory with the object.
class SecretKey {
public:
    /// Makes a new key.
    SecretKey();
    /// Reads a key. @throws ToolFailure if the file holds none, or other users can read it
    explicit SecretKey(const std::string& path);
    ~SecretKey();
    SecretKey(const SecretKey&) = delete;
    SecretKey& operator=(const SecretKey&) = delete;

    /// Writes a new file that the owner alone can read.
    void Save(const std::string& path) const;
    const std::string& PublicKey() const { return publicKey; }
    std::string Sign(const std::string& message) const;

private:
    void Expand();

    std::string seed;
    std::string expanded;
    std::string publicKey;
};

/// Writes a new file. An existing one is an error, as it is for a secret key.
void SavePublicKey(const std::string& key, const std::string& path);
std::string LoadPublicKey(const std::string& path);

/// Writes a file, or replaces it.
void SaveSignature(const std::string& signature, const std::string& path);
std::string LoadSignature(const std::string& path);

/// Whether the signature is that of this key's owner for the message.
bool IsSignedBy(const std::string& publicKey, const std::string& message,
                const std::string& signature);

}  // namespace vantry_tools
