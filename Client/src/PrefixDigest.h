#pragma once

#include <openssl/types.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace Client {

/// The SHA-256 of the first bytes of a file, gathered as they are read. One thread.
class PrefixDigest
{
public:
    /// Throws std::bad_alloc.
    PrefixDigest();

    /// Takes bytes that begin at a position: those that it has not had yet. Bytes that leave a gap
    /// end it: it covers what was before them.
    void Add(std::uint64_t position, std::span<const unsigned char> bytes);

    /// Returns how many bytes it covers.
    [[nodiscard]] std::uint64_t GetLength() const noexcept { return length; }
    /// Returns its hexadecimal digits. More can be added afterwards.
    [[nodiscard]] std::string Get() const;

private:
    struct Deleter
    {
        void operator()(EVP_MD_CTX* context) const noexcept;
    };
    std::unique_ptr<EVP_MD_CTX, Deleter> context;
    std::uint64_t length = 0;
};

} // namespace Client
