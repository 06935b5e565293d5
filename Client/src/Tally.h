#pragma once

#include "Client/Exceptions.h"
#include "Client/Transfer.h"

#include <Support/Mutex.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Client {

/// Ends the transfer of one file. Never leaves the library.
class FileFailed
{
public:
    explicit FileFailed(Failure failure)
        : failure(std::move(failure))
    {}

    [[nodiscard]] const Failure& GetFailure() const noexcept { return failure; }

private:
    Failure failure;
};

/// Throws FileFailed with errno's text.
[[noreturn]] void FailLocally(const std::string& path, Step step);
/// Likewise, for what errno does not say.
[[noreturn]] void FailLocally(const std::string& path, Step step, int error);

/// Throws OperationFailedException, in the words of Describe: "PATH (remote): cannot VERB: CAUSE".
[[noreturn]] void FailRemotely(const std::string& path, const std::string& verb,
                               const std::string& cause);
[[noreturn]] void FailRemotely(const std::string& path, Step step, const std::string& cause);

/// Counts the work that a transfer has done so far. Any thread.
class Tally
{
public:
    explicit Tally(const TransferOptions& options)
        : options(options)
    {}

    /// More is to be moved. Without a size the whole amount is not known.
    void Find(std::uint64_t files, std::optional<std::uint64_t> bytes);
    /// The amount found is all there is.
    void EndFinding();

    /// Some of a file was moved, or found to have been.
    void Move(const std::string& remote, std::uint64_t done, std::optional<std::uint64_t> size,
              std::uint64_t moved);
    void Resume(std::uint64_t bytes);
    /// So much of a file was found to be the same on both sides.
    void Verify(const std::string& remote, std::uint64_t done, std::optional<std::uint64_t> size);
    void FinishFile(const std::string& remote, std::uint64_t size, bool wasWhole = false);
    /// `unfinished` is the target that was begun; empty when none was.
    void FailFile(const std::string& remote, Failure failure, const std::string& unfinished);
    void AddDirectory();
    void AddFailure(Failure failure);
    void AddNote(Failure note);
    void AddUnfinished(const std::string& target);
    void SetCancelled();
    void SetConnectionLost();

    [[nodiscard]] TransferResult Take();

private:
    void Show(const std::string& remote, std::uint64_t done, std::optional<std::uint64_t> size,
              bool isFinished, bool isVerifying = false) REQUIRES(mutex);

    const TransferOptions& options;
    const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    /// Held during the callback, which is never called twice at the same time.
    Support::Mutex mutex;
    TransferResult result GUARDED_BY(mutex);
    std::uint64_t finished GUARDED_BY(mutex) = 0;
    std::uint64_t allFiles GUARDED_BY(mutex) = 0;
    std::uint64_t allBytes GUARDED_BY(mutex) = 0;
    std::uint64_t bytes GUARDED_BY(mutex) = 0;
    bool knowsSizes GUARDED_BY(mutex) = true;
    bool isAllFound GUARDED_BY(mutex) = false;
};

} // namespace Client
