#include "StreamLease.h"

#include "FileSystemBehaviour.h"

#include <utility>

namespace FileSystem {

StreamLease::StreamLease(FileSystemBehaviour& behaviour, std::shared_ptr<StreamUsers> users,
                         FileInfo info) noexcept
    : behaviour(&behaviour)
    , users(std::move(users))
    , info(std::move(info))
{}

StreamLease::StreamLease(StreamLease&&) noexcept = default;

StreamLease::~StreamLease()
{
    Release();
}

void StreamLease::Release()
{
    info.file = nullptr;
    if (const auto left = std::exchange(users, nullptr))
        behaviour->EndStreamUse(*left);
}

} // namespace FileSystem
