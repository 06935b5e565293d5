#include "PrefixDigest.h"

#include <openssl/evp.h>

#include <array>
#include <new>

namespace Client {

namespace {

void Require(bool isDone)
{
    if (!isDone)
        throw std::bad_alloc(); // the one thing that can fail
}

} // namespace

void PrefixDigest::Deleter::operator()(EVP_MD_CTX* context) const noexcept
{
    EVP_MD_CTX_free(context);
}

PrefixDigest::PrefixDigest()
    : context(EVP_MD_CTX_new())
{
    Require(context != nullptr && EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1);
}

void PrefixDigest::Add(std::uint64_t position, std::span<const unsigned char> bytes)
{
    if (position > length || position + bytes.size() <= length)
        return;
    const auto fresh = bytes.subspan(static_cast<std::size_t>(length - position));
    Require(EVP_DigestUpdate(context.get(), fresh.data(), fresh.size()) == 1);
    length += fresh.size();
}

std::string PrefixDigest::Get() const
{
    const std::unique_ptr<EVP_MD_CTX, Deleter> copy(EVP_MD_CTX_new());
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    Require(copy != nullptr && EVP_MD_CTX_copy_ex(copy.get(), context.get()) == 1 &&
            EVP_DigestFinal_ex(copy.get(), digest.data(), &size) == 1);
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : std::span(digest).first(size)) {
        text += digits[byte >> 4U];
        text += digits[byte & 0xFU];
    }
    return text;
}

} // namespace Client
