#include "BlockSource.h"

#include "LocalFiles.h"

namespace Client {

std::size_t FileSource::Read(std::span<unsigned char> buffer, std::uint64_t position)
{
    const auto count = ReadAt(file, name, buffer, position);
    transfer.Add(position, buffer.first(count));
    return count;
}

std::size_t StreamSource::Read(std::span<unsigned char> buffer, std::uint64_t /*position*/)
{
    std::size_t done = 0;
    while (done < buffer.size() && !isOver) {
        const std::size_t count = source(buffer.subspan(done));
        isOver = count == 0;
        done += count;
    }
    return done;
}

} // namespace Client
