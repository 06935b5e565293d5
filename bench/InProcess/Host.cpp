#include "Host.h"

#include "Core/NamespaceMap.h"

#include <chrono>
#include <stdexcept>

namespace Bench {

void Arrivals::Expect(std::size_t count)
{
    const std::scoped_lock lock(mutex);
    missing += count;
}

void Arrivals::Add()
{
    {
        const std::scoped_lock lock(mutex);
        if (--missing > allowed)
            return;
    }
    enough.notify_one();
}

void Arrivals::Wait(std::size_t mayBeMissing)
{
    constexpr std::chrono::minutes limit{10};
    std::unique_lock lock(mutex);
    allowed = mayBeMissing;
    if (!enough.wait_for(lock, limit, [this] { return missing <= allowed; }))
        throw std::runtime_error(std::to_string(missing) + " answers are missing");
    allowed = 0;
}

Host::Host()
{
    runtime.LoadInformationModel(TALVENSOR_MODEL);
    runtime.LoadModule(TALVENSOR_MODULE);
    const int index = Core::NamespaceMap::GetNamespaceIndex("urn:Talvensor:FileSystem");
    files = runtime.CreateObject({.type = {index, 1}, .browseName = {index, "Files"}});
    session = runtime.OpenSession("bench");
    subscription = runtime.Subscribe(files, [this](const auto&) { events.Add(); });
}

Host::~Host() = default;

Values Host::Call(const std::string& method, const Values& inputs)
{
    auto result = runtime.Call(session, files, method, inputs);
    if (!result.taken)
        throw std::runtime_error(method + " was refused");
    return std::move(result.outputs);
}

Bytes MakeContent(std::size_t size)
{
    Bytes bytes(size);
    unsigned int state = 1;
    for (auto& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<unsigned char>(state >> 24U);
    }
    return bytes;
}

} // namespace Bench
