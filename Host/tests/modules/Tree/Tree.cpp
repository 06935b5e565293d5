// A module that provides the nodes of a tree. Its one object takes commands in texts, by which a
// test adds and removes nodes, lets look-ups hang, and asks what was looked up.
//
// Keys: "a/b/" is a branch, "a/b/c" a leaf in it; the empty key is the trunk. Members have a bar:
// "a/b/|Count" is a property and "a/b/|Info" a leaf of the branch, "a/b/c|Size" and "a/b/c|Text"
// are properties of the leaf. Look-ups below the branch "lane1/" of the trunk have a lane of their
// own.

#include <Core/Behaviour.h>
#include <Core/CoreContext.h>
#include <Core/Exception.h>
#include <Core/Module.h>
#include <Core/NamespaceMap.h>
#include <Core/NodeProvider.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr std::uint32_t badUserAccessDenied = 0x801F0000;
constexpr std::uint32_t badNotFound = 0x803E0000;

constexpr unsigned int branchType = 2;
constexpr unsigned int leafType = 3;

/// The base types of values.
constexpr unsigned int number = 9;
constexpr unsigned int text = 12;

struct Parts
{
    std::string owner;  ///< without the member
    std::string member; ///< empty: the node is no member
};

Parts Split(const std::string& key)
{
    const auto bar = key.find('|');
    return bar == std::string::npos ? Parts{key, ""}
                                    : Parts{key.substr(0, bar), key.substr(bar + 1)};
}

bool IsBranch(const std::string& key)
{
    return key.empty() || key.back() == '/';
}

/// Returns the key of the branch in which a node is.
std::string ParentOf(const std::string& key)
{
    if (key.size() < 2)
        return {};
    const auto slash = key.rfind('/', key.size() - 2);
    return slash == std::string::npos ? std::string() : key.substr(0, slash + 1);
}

std::string NameOf(const std::string& key)
{
    std::string name = key.substr(ParentOf(key).size());
    if (IsBranch(name))
        name.pop_back();
    return name;
}

/// The nodes that there are at this moment, and the knobs. Any thread.
class Contents
{
public:
    std::string Run(const std::string& command)
    {
        std::istringstream words(command);
        std::string verb;
        std::string key;
        int count = 0;
        words >> verb >> key >> count;
        const std::unique_lock lock(mutex);
        if (verb == "add")
            Add(key);
        else if (verb == "remove")
            Remove(key);
        else if (verb == "fill")
            Fill(key, count);
        else if (verb == "hang" || verb == "deny")
            knobs.insert_or_assign(key, verb);
        else if (verb == "slow")
            delays.insert_or_assign(key, std::chrono::milliseconds(count));
        else if (verb == "release")
            Release();
        else if (verb == "count")
            return std::to_string(counts[key]);
        else
            throw Core::StatusException(badNotFound, "No such command: " + verb);
        return {};
    }

    [[nodiscard]] bool Has(const std::string& key)
    {
        const std::unique_lock lock(mutex);
        return nodes.contains(Split(key).owner);
    }

    /// Makes a look-up wait as the knobs say, and counts it.
    void Begin(const std::string& operation, const std::string& key)
    {
        std::unique_lock lock(mutex);
        ++counts[operation];
        ++counts[operation + ':' + key];
        const std::string owner = Split(key).owner;
        const auto delay = delays.find(owner);
        const auto wait = delay == delays.end() ? std::chrono::milliseconds(0) : delay->second;
        released.wait(lock, [&] {
            const auto knob = knobs.find(owner);
            return knob == knobs.end() || knob->second != "hang";
        });
        const auto knob = knobs.find(owner);
        const bool isDenied = knob != knobs.end() && knob->second == "deny";
        lock.unlock();
        std::this_thread::sleep_for(wait); // a disk that takes its time
        if (isDenied)
            throw Core::StatusException(badUserAccessDenied, "Permission denied");
    }

    [[nodiscard]] std::pair<std::uint64_t, std::vector<std::string>> List(const std::string& key)
    {
        const std::unique_lock lock(mutex);
        if (!nodes.contains(key))
            throw Core::StatusException(badNotFound, "No such branch");
        return {versions[key], children[key]};
    }

    void Add(const std::string& key)
    {
        if (!nodes.insert(key).second)
            return;
        const std::string parent = ParentOf(key);
        children[parent].push_back(key);
        ++versions[parent];
    }

    /// REQUIRES: no other thread uses it.
    void AddFromCall(const std::string& key)
    {
        const std::unique_lock lock(mutex);
        Add(key);
    }

private:
    void Remove(const std::string& key)
    {
        if (nodes.erase(key) == 0)
            return;
        const std::string parent = ParentOf(key);
        auto& siblings = children[parent];
        siblings.erase(std::find(siblings.begin(), siblings.end(), key));
        ++versions[parent];
        if (IsBranch(key))
            for (const std::string& child : std::vector(children[key]))
                Remove(child);
    }

    void Fill(const std::string& key, int count)
    {
        for (int i = 0; i < count; ++i) {
            std::string name = std::to_string(i);
            name.insert(0, 6 - std::min<std::size_t>(name.size(), 6), '0');
            Add(key + "leaf" + name);
        }
    }

    void Release()
    {
        knobs.clear();
        delays.clear();
        released.notify_all();
    }

    std::mutex mutex;
    std::condition_variable released;
    std::set<std::string> nodes{""};
    std::map<std::string, std::vector<std::string>> children;
    std::map<std::string, std::uint64_t> versions;
    std::map<std::string, std::string> knobs;
    std::map<std::string, std::chrono::milliseconds> delays;
    std::map<std::string, int> counts;
};

class Tree final : public Core::IExecutableBehaviour, public Core::INodeProvider
{
public:
    void OnStart() override {}
    void OnStop() override {}

    bool OnExecuteMethod(const std::shared_ptr<Core::INode>& node, const std::string& method,
                         const std::vector<Core::Value>& inputs,
                         std::vector<Core::Value>& outputs) override
    {
        const std::string* key = node->GetNodeId().GetText();
        const std::string place = key == nullptr ? std::string() : *key;
        if (method == "Control") {
            outputs.emplace_back(contents.Run(inputs.at(0).Get<std::string>()));
            return true;
        }
        if (!contents.Has(place))
            throw Core::StatusException(badNotFound, "No such file or directory");
        if (method == "Echo") {
            outputs.emplace_back(place + ' ' + inputs.at(0).Get<std::string>());
        } else if (method == "Open") {
            outputs.emplace_back(inputs.at(0).Get<unsigned int>() + 40U);
        } else if (method == "CreateDirectory") {
            const std::string made = place + inputs.at(0).Get<std::string>() + '/';
            contents.AddFromCall(made);
            outputs.emplace_back(Core::NodeId(index, made));
        } else {
            return false;
        }
        return true;
    }

    [[nodiscard]] std::optional<Core::ProvidedNode> Describe(const std::string& key) const override
    {
        const auto [owner, member] = Split(key);
        if (owner.find("//") != std::string::npos || (!owner.empty() && owner.front() == '/'))
            return std::nullopt;
        Core::ProvidedNode node;
        node.lane = owner.rfind("lane1/", 0) == 0 ? 1 : 0;
        node.parent = member.empty() ? ParentOf(owner) : owner;
        if (!member.empty())
            return DescribeMember(std::move(node), owner, member);
        if (owner.empty())
            return std::nullopt; // the trunk is a node of the host
        node.browseName = Core::QualifiedName(index, NameOf(owner));
        node.type = Core::NodeId(index, IsBranch(owner) ? branchType : leafType);
        return node;
    }

    [[nodiscard]] std::vector<std::string> GetMembers(const std::string& key) const override
    {
        const auto [owner, member] = Split(key);
        if (!member.empty())
            return {};
        if (IsBranch(owner))
            return {owner + "|Count", owner + "|Info"};
        return {owner + "|Size", owner + "|Text"};
    }

    [[nodiscard]] bool Exists(const std::string& key) override
    {
        contents.Begin("exists", key);
        return contents.Has(key);
    }

    void List(const std::string& key, Core::IEntryList& entries) override
    {
        contents.Begin("look", key);
        if (!IsBranch(key) || key.find('|') != std::string::npos) {
            if (!contents.Has(key))
                throw Core::StatusException(badNotFound, "No such leaf");
            return;
        }
        auto [version, keys] = contents.List(key);
        if (!entries.IsNeeded(version))
            return;
        contents.Begin("list", key);
        constexpr std::size_t portion = 256;
        for (std::size_t i = 0; i < keys.size(); i += portion) {
            const auto begin = keys.begin() + static_cast<std::ptrdiff_t>(i);
            const auto count = std::min(portion, keys.size() - i);
            entries.Append({begin, begin + static_cast<std::ptrdiff_t>(count)});
        }
    }

    [[nodiscard]] Core::Value Read(const std::string& key) override
    {
        contents.Begin("read", key);
        const auto [owner, member] = Split(key);
        if (!contents.Has(key))
            throw Core::StatusException(badNotFound, "No such node");
        if (member == "Count")
            return Core::Value(static_cast<unsigned long>(contents.List(owner).second.size()));
        if (member == "Text")
            return Core::Value("text of " + owner);
        return Core::Value(static_cast<unsigned long>(owner.size()));
    }

private:
    [[nodiscard]] std::optional<Core::ProvidedNode> DescribeMember(Core::ProvidedNode node,
                                                                   const std::string& owner,
                                                                   const std::string& member) const
    {
        node.browseName = Core::QualifiedName(0, member);
        if (IsBranch(owner) && member == "Info") {
            node.browseName = Core::QualifiedName(index, member);
            node.type = Core::NodeId(index, leafType);
            return node;
        }
        node.kind = Core::ProvidedNode::Kind::Property;
        node.type = Core::NodeId(0, member == "Text" ? text : number);
        const bool isThere =
            IsBranch(owner) ? member == "Count" : member == "Size" || member == "Text";
        return isThere ? std::optional(node) : std::nullopt;
    }

    const int index = Core::NamespaceMap::GetNamespaceIndex("urn:Talvensor:Test:Tree");
    Contents contents;
};

class Factory final : public Core::IBehaviourFactory
{
public:
    std::shared_ptr<Core::IBehaviour> MakeBehaviour(Core::INode& /*node*/) const override
    {
        return std::make_shared<Tree>();
    }
};

} // namespace

int RegisterFactories(Core::CoreContext& context)
{
    context.GetNodeFactory().RegisterBehaviourFactory(
        Core::Guid("54726565000000000000000000000001"), std::make_shared<Factory>());
    return 1;
}
