#pragma once

#include "basekit/Export.h"
#include "basekit/qtString.h"
#include "basekit/qtxAll.h"

/// Encryption or decryption failed: the text says why and names the key file where that is at
/// fault. Code 11, level 1. UnixRegistry::LastError() keeps the text.
class VANTRY_EXPORT qtxEncryptor : public qtxAll {
public:
    using qtxAll::qtxAll;
    qtxEncryptor(const qtxEncryptor& other);
    qtxEncryptor& operator=(const qtxEncryptor& other);
    ~qtxEncryptor() override;
    const char* BaseString() const override;
};

/// Encrypts short secrets with the key of this user's registry, so that nobody reads or alters them
/// who has the database alone.
///
///     qtString secret = qtEncryptor().Encrypt(password);
///     qtString plain = qtEncryptor().Decrypt(secret);
///     ...
///     qtEncryptor::Wipe(plain);
///
/// The key is 32 random bytes in the file beside the registry's database whose name ends in ".key"
/// instead of ".db", mode 0600, made on first use. Without that file what was encrypted is lost:
/// keep it, and keep it apart from copies of the database.
///
/// An object holds no state; any number of threads and processes may encrypt at once.
class VANTRY_EXPORT qtEncryptor {
public:
    qtEncryptor() = default;

    /// Encrypts any bytes. The same text gives another result each time: 24 random bytes, then the
    /// bytes encrypted and authenticated, 40 bytes longer in all than the text.
    /// @throws qtxEncryptor when the key can be neither read nor made
    qtString Encrypt(const qtString& plain) const;

    /// Gives back what Encrypt() was given. The result is a secret: the caller wipes it.
    /// @throws qtxEncryptor when `encrypted` is not, to the bit, a result of Encrypt() with this
    ///         key, and when there is no key
    qtString Decrypt(const qtString& encrypted) const;

    /// Overwrites the text in memory and leaves it empty.
    static void Wipe(qtString& text);
};
