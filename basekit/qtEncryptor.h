#pragma once

#include "basekit/Export.h"
#include "basekit/qtString.h"
#include "basekit/qtxAll.h"

/// Encryption or decryption failed. The text has the reason, and the key file if that is at fault.
/// Code 11, level 1. UnixRegistry::LastError() returns the same text.
class VANTRY_EXPORT qtxEncryptor : public qtxAll {
public:
    using qtxAll::qtxAll;
    qtxEncryptor(const qtxEncryptor& other);
    qtxEncryptor& operator=(const qtxEncryptor& other);
    ~qtxEncryptor() override;
    const char* BaseString() const override;
};

/// Encrypts short secrets with the key of this user's registry: the database alone is not enough to
/// read or alter them.
///
///     qtString secret = qtEncryptor().Encrypt(password);
///     qtString plain = qtEncryptor().Decrypt(secret);
///     ...
///     qtEncryptor::Wipe(plain);
///
/// The key is 32 random bytes in a file next to the registry's database, with ".key" in place of
/// ".db", mode 0600, created on first use. Without that file, encrypted secrets are lost: keep it,
/// and keep it apart from copies of the database. A key file that belongs to another user, or that
/// others may read or write, is refused; root may use the key of the database's owner.
///
/// Objects have no state; any number of threads and processes may encrypt at once.
class VANTRY_EXPORT qtEncryptor {
public:
    qtEncryptor() = default;

    /// Encrypts any bytes. The result is 40 bytes longer than the text: 24 random bytes, so it
    /// differs each time, then the encrypted bytes with their authentication.
    /// @throws qtxEncryptor if the key can be neither read nor created
    qtString Encrypt(const qtString& plain) const;

    /// Decrypts a result of Encrypt(). The result is a secret: the caller should wipe it.
    /// @throws qtxEncryptor if `encrypted` was altered or encrypted with another key, and if there
    ///         is no key
    qtString Decrypt(const qtString& encrypted) const;

    /// Overwrites the text in memory, up to its capacity, and leaves it empty.
    static void Wipe(qtString& text);
};
