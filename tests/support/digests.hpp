// What digests are compared with: OpenSSL's, and published ones.
#pragma once

#include <openssl/evp.h>

#include "bytes.hpp"
#include "vectors.hpp"

namespace zx::test {

inline std::string openssl_digest(const EVP_MD* kind, const void* message, std::size_t size) {
    std::uint8_t digest[EVP_MAX_MD_SIZE];
    unsigned digest_size = 0;
    EVP_Digest(message, size, digest, &digest_size, kind, nullptr);
    return to_hex(digest, digest_size);
}

// How many messages of a response file there are; all of them are given to `digest`.
template <typename Digest>
std::size_t check_published(const std::string& file, Digest digest) {
    const std::vector<Record> records = read_records(file);
    for (const Record& record : records) {
        Bytes message = from_hex(record.at("Msg"));
        message.resize(std::stoul(record.at("Len")) / 8);  // the empty one is written as "00"
        EXPECT_EQ(digest(message.data(), message.size()), record.at("MD"));
    }
    return records.size();
}

}  // namespace zx::test
