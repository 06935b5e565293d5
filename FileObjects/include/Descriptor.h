#pragma once

#include <unistd.h>
#include <utility>

namespace FileObjects {

/// Owns a file descriptor.
class Descriptor
{
public:
    Descriptor() noexcept = default;
    explicit Descriptor(int number) noexcept
        : number(number)
    {}
    Descriptor(Descriptor&& other) noexcept
        : number(std::exchange(other.number, -1))
    {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (number >= 0)
            close(number);
    }

    [[nodiscard]] int Get() const noexcept { return number; }
    [[nodiscard]] bool IsOpen() const noexcept { return number >= 0; }
    /// Gives the descriptor away, unclosed.
    [[nodiscard]] int Release() noexcept { return std::exchange(number, -1); }

private:
    int number = -1;
};

} // namespace FileObjects
