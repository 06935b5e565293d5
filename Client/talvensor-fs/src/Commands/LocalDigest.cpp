#include "Commands/LocalDigest.h"

#include <Support/Descriptor.h>

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>
#include <system_error>
#include <vector>

namespace Cli {

namespace {

struct DigestDeleter
{
    void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
};

[[noreturn]] void Fail(const std::string& path, int error)
{
    throw Client::OperationFailedException(path + ": " + std::generic_category().message(error));
}

} // namespace

Client::Sha256 DigestFile(const std::string& path, const Client::Cancellation& cancellation)
{
    constexpr std::size_t blockSize = std::size_t{1} << 20U;
    const Support::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.IsOpen())
        Fail(path, errno);
    const std::unique_ptr<EVP_MD_CTX, DigestDeleter> context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1)
        throw std::bad_alloc();
    std::vector<unsigned char> block(blockSize);
    for (;;) {
        if (cancellation.IsCancelled())
            throw Client::CancelledException();
        const auto count = read(file.Get(), block.data(), block.size());
        if (count < 0 && errno != EINTR)
            Fail(path, errno);
        if (count == 0)
            break;
        if (count > 0)
            EVP_DigestUpdate(context.get(), block.data(), static_cast<std::size_t>(count));
    }
    Client::Sha256 digest{};
    EVP_DigestFinal_ex(context.get(), digest.data(), nullptr);
    return digest;
}

} // namespace Cli
