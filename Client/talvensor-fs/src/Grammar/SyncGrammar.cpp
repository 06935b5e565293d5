#include "Commands/PathArguments.h"
#include "Grammar/CommandGrammar.h"
#include "Output/Text.h"

#include <utility>

namespace Cli {

namespace {

constexpr const char* syncFooter =
    "Makes DST the same as SRC. One of them begins with remote: (remote:data), the other "
    "is a local directory; a local name that begins like this is written ./remote:x. The "
    "contents of SRC go into DST, with or without a slash at the end.\n"
    "\n"
    "Files are the same if they have the same size and time in whole seconds; others are "
    "sent. Nothing is deleted without --delete. With it, files that SRC does not have are "
    "deleted last, and only if SRC was listed completely and everything was sent. A file "
    "in the place of a directory, or the other way round, is an error without --delete. "
    "With it, the old one is renamed to .NAME.talvensor-part-0-NUMBER until the new one has "
    "come. What a run that was interrupted leaves under such a name is named by each later "
    "run with the same DST, and deleted by none.\n"
    "\n"
    "GLOB is for names at any depth; with a slash in it, for paths from the top; with a "
    "slash at the end, for directories. What is left out is neither sent nor deleted, nor "
    "are parts of interrupted transfers.\n"
    "\n"
    "Links and special files are skipped and named. Permissions are kept if the server "
    "has file objects. Without them sync is slower, since sizes are found by reading.";

} // namespace

void CommandGrammar::AddSync()
{
    auto* const command = Add("sync", "[-n] [--delete] [--exclude GLOB]... SRC DST",
                              "make a directory the same as one on the other side", syncFooter);
    auto* const paths = AddPaths(command);
    auto* const trial = AddFlag(*command, "-n,--dry-run", "only print what it would do");
    auto* const deletes = AddFlag(*command, "--delete", "delete what is in DST and not in SRC");
    auto* const exclude = command->add_option("--exclude")
                              ->type_name("GLOB")
                              ->description("leave these names out; can be repeated")
                              ->allow_extra_args(false)
                              ->expected(1)
                              ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    auto* const contents =
        AddFlag(*command, "--checksum", "compare contents, by SHA-256, instead of times");
    auto* const newer = AddFlag(*command, "--update", "keep files that are newer in DST");
    auto* const links =
        AddFlag(*command, "-L,--copy-links", "follow local links instead of skipping them");
    auto jobs = std::make_shared<std::size_t>(2);
    command->add_option("-j,--jobs", *jobs, "transfer this many large files at once, 1 to 64 (2)")
        ->type_name("COUNT")
        ->check(CLI::Range(1, 64).description(""));
    auto* const rate = AddRate(*command);
    makers[command] = [=] {
        auto texts = GetTexts(paths);
        if (texts.size() != 2)
            throw Client::InvalidArgumentException("sync: needs a source and a target");
        const bool isDownload = texts[0].starts_with(remotePrefix);
        const bool isUpload = texts[1].starts_with(remotePrefix);
        if (isDownload == isUpload)
            throw Client::InvalidArgumentException(
                "sync: one of SRC and DST must begin with remote:, not both");
        auto& remote = texts[isUpload ? 1 : 0];
        remote.erase(0, remotePrefix.size());
        if (remote.empty())
            remote = ".";
        return SyncCommand{.source = std::move(texts[0]),
                           .target = std::move(texts[1]),
                           .isUpload = isUpload,
                           .isTrial = IsSet(trial),
                           .deletes = IsSet(deletes),
                           .comparesContents = IsSet(contents),
                           .keepsNewer = IsSet(newer),
                           .followsLinks = IsSet(links),
                           .exclusions = GetTexts(exclude),
                           .jobs = *jobs,
                           .bytesPerSecond = ParseRate(GetText(rate).value_or("0"))};
    };
}

} // namespace Cli
