#pragma once

#include <sodium.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>

namespace vantry_tools {

/// Initializes libsodium. @throws ToolFailure if that fails
void StartSodium();

/// Bytes as lowercase hexadecimal digits.
std::string Hex(std::string_view bytes);
/// Bytes of hexadecimal digits in either case. @return false if `digits` is anything else
bool FromHex(std::string_view digits, std::string& bytes);

enum class DigestKind { sha256, blake2b };

/// The name of the kind as options and lists have it.
const char* DigestName(DigestKind kind);
/// The length of a digest in bytes.
std::size_t DigestSize(DigestKind kind);

/// The digest of bytes that come in pieces: SHA-256, or BLAKE2b with 64 bytes.
class Digest {
public:
    explicit Digest(DigestKind kind);

    void Add(std::string_view bytes);
    /// The digest of all that was added. Nothing may be added after it.
    std::string Finish();

private:
    std::variant<crypto_hash_sha256_state, crypto_generichash_state> state;
};

}  // namespace vantry_tools
