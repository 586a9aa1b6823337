#include "tools/hpk/Digest.h"

#include "tools/common/Failures.h"

namespace vantry_tools {

static constexpr std::size_t blake2bSize = crypto_generichash_BYTES_MAX;

static unsigned char* Bytes(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

static const unsigned char* Bytes(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

void StartSodium() {
    if (sodium_init() < 0) {
        throw ToolFailure("libsodium does not start");
    }
}

std::string Hex(std::string_view bytes) {
    std::string digits(bytes.size() * 2 + 1, '\0');
    sodium_bin2hex(digits.data(), digits.size(), Bytes(bytes), bytes.size());
    digits.pop_back();
    return digits;
}

bool FromHex(std::string_view digits, std::string& bytes) {
    bytes.resize(digits.size() / 2);
    std::size_t length = 0;
    return digits.size() % 2 == 0 &&
           sodium_hex2bin(Bytes(bytes), bytes.size(), digits.data(), digits.size(), nullptr,
                          &length, nullptr) == 0 &&
           length == bytes.size();
}

const char* DigestName(DigestKind kind) {
    return kind == DigestKind::sha256 ? "sha256" : "blake2b";
}

std::size_t DigestSize(DigestKind kind) {
    return kind == DigestKind::sha256 ? std::size_t{crypto_hash_sha256_BYTES} : blake2bSize;
}

Digest::Digest(DigestKind kind) {
    StartSodium();
    if (kind == DigestKind::sha256) {
        crypto_hash_sha256_init(&state.emplace<crypto_hash_sha256_state>());
    } else {
        crypto_generichash_init(&state.emplace<crypto_generichash_state>(), nullptr, 0,
                                blake2bSize);
    }
}

void Digest::Add(std::string_view bytes) {
    if (auto* const sha256 = std::get_if<crypto_hash_sha256_state>(&state)) {
        crypto_hash_sha256_update(sha256, Bytes(bytes), bytes.size());
    } else {
        crypto_generichash_update(&std::get<crypto_generichash_state>(state), Bytes(bytes),
                                  bytes.size());
    }
}

std::string Digest::Finish() {
    std::string digest;
    if (auto* const sha256 = std::get_if<crypto_hash_sha256_state>(&state)) {
        digest.resize(crypto_hash_sha256_BYTES);
        crypto_hash_sha256_final(sha256, Bytes(digest));
    } else {
        digest.resize(blake2bSize);
        crypto_generichash_final(&std::get<crypto_generichash_state>(state), Bytes(digest),
                                 digest.size());
    }
    return digest;
}

}  // namespace vantry_tools
