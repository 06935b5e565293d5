#include "KeptKey.h"

#include "Support/PrivateFiles.h"
#include "Support/TemporaryFolder.h"

#include <map>

namespace ClientTest {

namespace fs = std::filesystem;

namespace {

constexpr const char* ownName = "own";

fs::path MakeNext(const std::string& role)
{
    static std::map<std::string, int> numbers;
    return fs::path(TALVENSOR_KEPT_KEYS) / (role + std::to_string(numbers[role]++));
}

} // namespace

KeptKey::KeptKey(const std::string& role)
    : kept(MakeNext(role))
{}

void KeptKey::GiveTo(const fs::path& keys) const
{
    if (!fs::exists(kept) || fs::exists(keys / ownName))
        return;
    Support::MakePrivateFolder(keys);
    fs::copy(kept, keys / ownName, fs::copy_options::recursive);
}

void KeptKey::TakeFrom(const fs::path& keys) const
{
    if (fs::exists(kept) || !fs::exists(keys / ownName / "certificate.der"))
        return;
    fs::create_directories(kept.parent_path());
    const Support::TemporaryFolder whole(kept.parent_path());
    fs::copy(keys / ownName, whole.GetPath() / ownName, fs::copy_options::recursive);
    std::error_code another; // process was sooner
    fs::rename(whole.GetPath() / ownName, kept, another);
}

} // namespace ClientTest
