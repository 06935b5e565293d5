#include "Properties.h"

#include "Attributes.h"
#include "Files.h"
#include "Statuses.h"
#include "Times.h"

#include <algorithm>
#include <limits>

namespace FileObjects {

namespace {

constexpr unsigned int KindBit(NodeKind kind)
{
    return 1U << static_cast<unsigned int>(kind);
}

constexpr unsigned int filesOnly = KindBit(NodeKind::File);
constexpr unsigned int allFiles = filesOnly | KindBit(NodeKind::Temporary);
constexpr unsigned int directories = KindBit(NodeKind::Directory);

/// Data types of namespace 0.
namespace DataType {
constexpr unsigned int boolean = 1;
constexpr unsigned int uint16 = 5;
constexpr unsigned int uint32 = 7;
constexpr unsigned int uint64 = 9;
constexpr unsigned int string = 12;
constexpr unsigned int dateTime = 13;
constexpr unsigned int duration = 290;
} // namespace DataType

} // namespace

struct Properties::Property
{
    const char* name;
    unsigned int kinds; ///< bits of NodeKind
    unsigned int dataType;
    bool isOurs;
    Core::Value (*read)(const Properties& self, const Key& node);
};

const std::vector<Properties::Property>& Properties::GetAll()
{
    static const std::vector<Property> all = {
        {"Size", allFiles, DataType::uint64, false,
         [](const Properties& self, const Key& node) {
             return Core::Value(static_cast<unsigned long>(self.GetState(node).st_size));
         }},
        {"Writable", allFiles, DataType::boolean, false,
         [](const Properties& self, const Key& node) {
             return Core::Value(self.IsWritable(node));
         }},
        {"UserWritable", allFiles, DataType::boolean, false,
         [](const Properties& self, const Key& node) {
             return Core::Value(self.IsWritable(node));
         }},
        {"OpenCount", allFiles, DataType::uint16, false,
         [](const Properties& self, const Key& node) {
             const auto count = self.openFiles.Count(ToIdentity(self.GetState(node)));
             constexpr std::size_t most = std::numeric_limits<unsigned short>::max();
             return Core::Value(static_cast<unsigned short>(std::min(count, most)));
         }},
        {"MimeType", filesOnly, DataType::string, false,
         [](const Properties& self, const Key& node) {
             return Core::Value(self.mimeTypes.Find(GetName(node.place.path)));
         }},
        {"MaxByteStringLength", allFiles, DataType::uint32, false,
         [](const Properties&, const Key&) {
             return Core::Value(Files::maximumBlock);
         }},
        {"LastModifiedTime", allFiles, DataType::dateTime, false,
         [](const Properties& self, const Key& node) {
             return Core::Value(ToDateTime(self.GetState(node).st_mtim));
         }},
        {"LastModifiedTime", directories, DataType::dateTime, true,
         [](const Properties& self, const Key& node) {
             return Core::Value(ToDateTime(self.GetState(node).st_mtim));
         }},
        {"Permissions", filesOnly | directories, DataType::uint32, true,
         [](const Properties& self, const Key& node) {
             constexpr unsigned int bits = 07777;
             return Core::Value(self.GetState(node).st_mode & bits);
         }},
        {"ClientProcessingTimeout", KindBit(NodeKind::Transfer), DataType::duration, false,
         [](const Properties& self, const Key&) {
             return Core::Value(static_cast<double>(self.processingTimeout.count()));
         }},
    };
    return all;
}

Properties::Properties(const Folders& folders, const MimeTypes& mimeTypes, OpenFiles& openFiles,
                       std::chrono::milliseconds processingTimeout)
    : folders(folders)
    , mimeTypes(mimeTypes)
    , openFiles(openFiles)
    , processingTimeout(processingTimeout)
{}

std::vector<std::string> Properties::GetNames(NodeKind kind)
{
    std::vector<std::string> names;
    for (const auto& property : GetAll())
        if ((property.kinds & KindBit(kind)) != 0)
            names.emplace_back(property.name);
    return names;
}

std::optional<Core::ProvidedNode> Properties::Describe(NodeKind kind, const std::string& name,
                                                       int namespaceIndex)
{
    const Property* const property = Find(kind, name);
    if (property == nullptr)
        return std::nullopt;
    Core::ProvidedNode node;
    node.kind = Core::ProvidedNode::Kind::Property;
    node.browseName = {property->isOurs ? namespaceIndex : 0, name};
    node.type = Core::NodeId(0, property->dataType);
    return node;
}

Core::Value Properties::Read(const Key& node) const
{
    const Property* const property = Find(node.kind, node.property);
    if (property == nullptr)
        Refuse(Status::notFound, node.property, "there is no such property");
    return property->read(*this, node);
}

const Properties::Property* Properties::Find(NodeKind kind, const std::string& name)
{
    const auto& all = GetAll();
    const auto found = std::ranges::find_if(all, [&](const Property& each) {
        return (each.kinds & KindBit(kind)) != 0 && name == each.name;
    });
    return found == all.end() ? nullptr : &*found;
}

struct stat Properties::GetState(const Key& node) const
{
    if (node.kind != NodeKind::Temporary)
        return folders.GetState(node.kind, node.place);
    const auto file = RequireTemporary(node);
    const std::lock_guard lock(file->mutex);
    return FileObjects::GetState(file->descriptor, file->subject);
}

bool Properties::IsWritable(const Key& node) const
{
    if (node.kind == NodeKind::Temporary)
        return RequireTemporary(node)->isWritable;
    return FileObjects::IsWritable(folders, node);
}

OpenFiles::FilePointer Properties::RequireTemporary(const Key& node) const
{
    Key object = node;
    object.property.clear();
    auto file = openFiles.FindNode(object);
    if (file == nullptr)
        Refuse(Status::notFound, "", "there is no such temporary file");
    return file;
}

} // namespace FileObjects
