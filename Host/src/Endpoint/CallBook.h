#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

namespace Host {

/// Tells the calls in flight apart, by numbers that are never used again.
///
/// The server knows a call by an address. It frees a call that its client cancels, and may give the
/// address to the next call at once, also to one of another session. A call that enters under an
/// address therefore orphans the one that entered under it before: the answer of that one must not
/// go anywhere. Not thread-safe.
class CallBook
{
public:
    using Number = std::uint64_t;

    /// Enters a call that the server knows by `context`.
    [[nodiscard]] Number Enter(const void* context);

    /// Takes a call out. Returns false if it was orphaned or is not in the book.
    [[nodiscard]] bool Remove(const void* context, Number number);

    /// Returns the number of calls in the book that were not orphaned.
    [[nodiscard]] std::size_t Count() const noexcept { return newest.size(); }

private:
    std::unordered_map<const void*, Number> newest; // by context
    Number last = 0;
};

} // namespace Host
