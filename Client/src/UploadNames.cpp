#include "UploadNames.h"

#include "LocalFiles.h"
#include "ObjectCaller.h"
#include "Stamp.h"
#include "StatusWords.h"

#include <algorithm>
#include <map>
#include <memory>
#include <numeric>
#include <utility>

namespace Client {

namespace {

constexpr std::uint32_t readableForAll = 0444;
constexpr std::uint32_t writableForAll = 0222;
constexpr std::uint32_t usableForOwner = 0600;
constexpr std::uint32_t ordinary = 0644;
constexpr std::uint32_t onlyForOwner = 0700;
constexpr std::uint32_t openFailed = 1; // of an acknowledgement

/// Returns the mode that a file gets: a new one that of its source, unless that is ordinary: then
/// none, and the server's umask decides. In place of another one it keeps that one's, but for being
/// read-only or executable: nobody may read it who could not before.
std::optional<std::uint32_t> GetMode(const UploadFile& file) noexcept
{
    if (!file.modeBefore)
        return file.mode == ordinary ? std::nullopt : file.mode;
    std::uint32_t mode = *file.modeBefore;
    if (file.permissions.executable)
        mode |= (mode & readableForAll) >> 2U; // for those who may read
    if (file.permissions.readOnly)
        mode &= ~writableForAll;
    return mode;
}

/// The file objects cannot rename in a directory that they do not see, such as one that a link
/// leads to in another folder; nor a path that leads upwards.
bool CanRename(const EntryState& state, const EntryState& parent) noexcept
{
    const bool isKnown = state.status == 0 || state.status == UA_STATUSCODE_BADNOTFOUND;
    return isKnown && !state.isSpecial && parent.kind == Kind::Directory;
}

/// Returns false when the file cannot be written.
bool Choose(Transfer& transfer, const EntryState& state, const EntryState& parent, UploadFile& file)
{
    if (state.kind == Kind::Directory) {
        transfer.tally.FailFile(file.remote,
                                MakeReasonFailure(file.remote, Step::Open, "is a directory"), "");
        return false;
    }
    if (!CanRename(state, parent))
        return true;
    file.written = MakeRemotePartName(file.remote);
    if (state.kind != Kind::Missing)
        file.modeBefore = state.permissions;
    return true;
}

/// Returns the states of the files, and behind them those of their directories, each once:
/// `parents` says where.
std::vector<EntryState> AskStates(const Transfer& transfer, const std::vector<UploadFile>& files,
                                  std::map<std::string, std::size_t>& parents)
{
    std::vector<std::string> paths;
    paths.reserve(files.size());
    for (const auto& file : files)
        paths.push_back(file.remote);
    for (const auto& file : files)
        if (const auto parent = GetDirectory(Normalize(file.remote));
            parents.emplace(parent, paths.size()).second)
            paths.push_back(parent);
    return transfer.node.MakeObjectCaller(transfer.options.cancellation).GetStates(paths);
}

void ChooseNames(Transfer& transfer, std::vector<UploadFile>& files)
{
    std::map<std::string, std::size_t> parents;
    const auto states = AskStates(transfer, files, parents);
    std::size_t next = 0;
    std::erase_if(files, [&](UploadFile& file) {
        const EntryState& state = states[next++];
        const EntryState& parent = states[parents.at(GetDirectory(Normalize(file.remote)))];
        return !file.isWhole && !Choose(transfer, state, parent, file);
    });
}

Failure MakeFailure(const std::string& path, Step step, const Result& result)
{
    const std::string subject = path + ": "; // the server may name it
    std::string cause = DescribeResult(result);
    if (cause.starts_with(subject))
        cause.erase(0, subject.size());
    return MakeReasonFailure(path, step, std::move(cause));
}

/// The files that are to be renamed, and what came of it.
class Renames
{
public:
    Renames(Transfer& transfer, std::span<const WrittenFile> files)
        : caller(transfer.node.MakeObjectCaller(transfer.options.cancellation))
        , files(files)
        , left(files.size())
        , failures(files.size())
    {
        std::iota(left.begin(), left.end(), std::size_t{0});
    }

    std::vector<std::optional<Failure>> Run()
    {
        SetModes();
        for (unsigned int losses = 0; !left.empty();) {
            try {
                Move();
            } catch (const CallsLost&) {
                ForgetRenamed();
                if (++losses == mostLosses)
                    FailLeft(describeLosses);
            }
        }
        return std::move(failures);
    }

private:
    /// Before the file has its name: nobody sees it with other permissions.
    void SetModes()
    {
        std::vector<std::size_t> numbers;
        std::vector<std::string> paths;
        std::vector<std::uint32_t> modes;
        for (std::size_t i = 0; i < files.size(); ++i)
            if (const auto mode = GetMode(*files[i].file)) {
                numbers.push_back(i);
                paths.push_back(files[i].file->written);
                modes.push_back(*mode);
            }
        const auto results = caller.SetPermissions(paths, modes);
        for (std::size_t i = 0; i < numbers.size(); ++i)
            if (!results[i].IsGood())
                failures[numbers[i]] =
                    MakeFailure(files[numbers[i]].file->remote, Step::SetPermissions, results[i]);
        std::erase_if(left, [&](std::size_t number) { return failures[number].has_value(); });
    }

    void Move()
    {
        std::vector<Renaming> renamings;
        for (const std::size_t number : left)
            renamings.push_back({files[number].file->written, files[number].file->remote});
        const auto results = caller.Move(renamings, true);
        for (std::size_t i = 0; i < left.size(); ++i)
            if (!results[i].IsGood())
                failures[left[i]] =
                    MakeFailure(files[left[i]].file->remote, Step::Rename, results[i]);
        left.clear();
    }

    /// After a lost connection: a file that is not there under the name that it was written to has
    /// its own, if what is there is as it was written.
    void ForgetRenamed()
    {
        std::vector<std::string> paths;
        for (const std::size_t number : left) {
            paths.push_back(files[number].file->written);
            paths.push_back(files[number].file->remote);
        }
        const auto states = caller.GetStates(paths);
        std::size_t next = 0;
        std::erase_if(left, [&](std::size_t number) {
            const std::size_t first = std::exchange(next, next + 2);
            return states[first].kind == Kind::Missing && IsIt(states[first + 1], files[number]);
        });
    }

    static bool IsIt(const EntryState& state, const WrittenFile& written)
    {
        return state.kind == Kind::File && state.size == written.size &&
               (!written.hasTime || state.time == written.file->time);
    }

    void FailLeft(const char* cause)
    {
        for (const std::size_t number : left)
            failures[number] = MakeReasonFailure(files[number].file->remote, Step::Rename, cause);
        left.clear();
    }

    ObjectCaller caller;
    std::span<const WrittenFile> files;
    std::vector<std::size_t> left;
    std::vector<std::optional<Failure>> failures;
};

/// A file that the host makes has the permissions that its umask leaves, and who opens it then
/// reads all that comes into it later. So parts are made in directories that are closed to others,
/// one in each directory that they go to, and moved there with their permissions.
class PartMaker
{
public:
    PartMaker(Transfer& transfer, Caller& caller, std::span<const UploadFile* const> files)
        : caller(caller)
        , objects(transfer.node.MakeObjectCaller(transfer.options.cancellation))
        , failures(files.size())
    {
        for (std::size_t i = 0; i < files.size(); ++i) {
            const UploadFile& file = *files[i];
            const auto directory = directories.emplace(GetDirectory(file.written), Closed{}).first;
            if (directory->second.path.empty())
                directory->second.path = GetClosedName(file);
            parts.push_back(
                {i, &file, &directory->second, Join(directory->second.path, std::to_string(i))});
        }
    }

    std::vector<std::optional<Failure>> Run()
    {
        try {
            MakeDirectories();
            MakeFiles();
            SetModes();
            Move();
        } catch (...) {
            caller.DeleteAnyway(GetDirectories());
            throw;
        }
        caller.Delete(GetDirectories());
        return std::move(failures);
    }

private:
    struct Closed
    {
        std::string path;
        std::optional<std::string> obstacle = std::string(); // empty: the server does not tell
    };
    struct Part
    {
        std::size_t number;
        const UploadFile* file;
        const Closed* directory;
        std::string path; // until it is moved
    };

    [[nodiscard]] std::vector<std::string> GetDirectories() const
    {
        std::vector<std::string> paths;
        for (const auto& [target, directory] : directories)
            paths.push_back(directory.path);
        return paths;
    }

    void MakeDirectories()
    {
        std::vector<std::string> old; // of an earlier transfer, or before a loss
        for (const auto& part : parts) {
            old.push_back(part.file->written);
            old.push_back(GetClosedName(*part.file));
        }
        caller.Delete(old);
        std::vector<CallPointer> checks;
        for (const auto& path : GetDirectories()) {
            caller.CreateDirectory(path);
            checks.push_back(caller.Exists(AsDirectory(path)));
        }
        std::vector<Closed*> made;
        std::vector<std::string> paths;
        for (auto check = checks.begin(); auto& [target, directory] : directories) {
            caller.AwaitEvent(*check);
            if ((*check++)->outcome.exists) {
                made.push_back(&directory);
                paths.push_back(directory.path);
            }
        }
        const auto results =
            objects.SetPermissions(paths, std::vector<std::uint32_t>(paths.size(), onlyForOwner));
        for (std::size_t i = 0; i < made.size(); ++i)
            made[i]->obstacle =
                results[i].IsGood() ? std::nullopt : std::optional(DescribeResult(results[i]));
        TakeOut([](const Part& part) -> std::optional<Failure> {
            if (!part.directory->obstacle)
                return std::nullopt;
            if (part.directory->obstacle->empty())
                return MakeRemoteFailure(part.file->remote, Step::Open, openFailed);
            return MakeReasonFailure(part.file->remote, Step::Open, *part.directory->obstacle);
        });
    }

    void MakeFiles()
    {
        std::vector<CallPointer> creations;
        for (const auto& part : parts)
            creations.push_back(caller.UploadFile(
                part.path, std::make_shared<std::vector<unsigned char>>(), 0, UA_Byte{0}));
        caller.AwaitEvent(caller.Barrier());
        std::size_t next = 0;
        TakeOut([&](const Part& part) -> std::optional<Failure> {
            const auto& creation = creations[next++];
            try {
                caller.AwaitAnswer(creation);
            } catch (const CallRefusedException& refused) {
                auto failure = MakeUnknownFailure(part.file->remote, Step::Open, refused.what());
                failure.kind = FailureKind::Refused;
                failure.remoteResult = refused.GetStatus();
                return failure;
            }
            if (const auto result = creation->outcome.opened->GetFailure(); result != 0)
                return MakeRemoteFailure(part.file->remote, Step::Open, result);
            return std::nullopt;
        });
    }

    void SetModes()
    {
        std::vector<std::string> paths;
        std::vector<std::uint32_t> modes;
        for (const auto& part : parts) {
            const UploadFile& file = *part.file;
            paths.push_back(part.path);
            modes.push_back(file.modeBefore.value_or(file.mode.value_or(0)) | usableForOwner);
        }
        TakeResults(objects.SetPermissions(paths, modes));
    }

    void Move()
    {
        std::vector<Renaming> renamings;
        for (const auto& part : parts)
            renamings.push_back({part.path, part.file->written});
        TakeResults(objects.Move(renamings, false));
    }

    void TakeResults(const std::vector<Result>& results)
    {
        std::size_t next = 0;
        TakeOut([&](const Part& part) -> std::optional<Failure> {
            const Result& result = results[next++];
            if (result.IsGood())
                return std::nullopt;
            return MakeReasonFailure(part.file->remote, Step::Open, DescribeResult(result));
        });
    }

    /// Takes the parts out that have failed. `find` is asked for each, in their order.
    template <typename Find>
    void TakeOut(const Find& find)
    {
        std::vector<Part> left;
        for (auto& part : parts) {
            failures[part.number] = find(part);
            if (!failures[part.number])
                left.push_back(std::move(part));
        }
        parts = std::move(left);
    }

    Caller& caller;
    ObjectCaller objects;
    std::map<std::string, Closed> directories; // by that which the parts go to
    std::vector<Part> parts;                   // that have not failed
    std::vector<std::optional<Failure>> failures;
};

} // namespace

void ChooseNames(Transfer& transfer, UploadPlan& plan)
{
    if (transfer.options.isInPlace || !transfer.node.OffersObjects())
        return;
    ChooseNames(transfer, plan.small);
    ChooseNames(transfer, plan.large);
}

UA_Byte MakeFlags(const UploadFile& file) noexcept
{
    return file.IsInPlace() ? MakePermissions(file.permissions) : UA_Byte{0};
}

std::vector<std::optional<Failure>> GiveNames(Transfer& transfer,
                                              std::span<const WrittenFile> files)
{
    return Renames(transfer, files).Run();
}

void GiveName(Transfer& transfer, const WrittenFile& file)
{
    if (const auto failure = GiveNames(transfer, std::span(&file, 1)).front())
        throw FileFailed(*failure);
}

bool IsProtected(const UploadFile& file) noexcept
{
    if (file.IsInPlace())
        return false;
    const auto mode = file.modeBefore ? file.modeBefore : file.mode;
    return mode && (*mode & readableForAll) != readableForAll;
}

std::string GetClosedName(const UploadFile& file)
{
    return GetRemotePartName(file.remote, file.written, "closed");
}

std::vector<std::optional<Failure>> MakeParts(Transfer& transfer, Caller& caller,
                                              std::span<const UploadFile* const> files)
{
    return PartMaker(transfer, caller, files).Run();
}

std::function<void()> MakePreparation(Transfer& transfer, Caller& caller, const UploadFile& file)
{
    if (!IsProtected(file))
        return {};
    return [&transfer, &caller, &file] {
        const UploadFile* const only = &file;
        if (const auto failure = MakeParts(transfer, caller, std::span(&only, 1)).front())
            throw FileFailed(*failure);
    };
}

} // namespace Client
