#include "NodeSetDocument.h"

#include "Core/Exception.h"
#include "Core/Guid.h"
#include "Core/NamespaceMap.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <fmt/format.h>
#include <fstream>
#include <system_error>

namespace Core::Embedding {

namespace {

constexpr std::string_view nodeSetNamespace = "http://opcfoundation.org/UA/2011/03/UANodeSet.xsd";
constexpr std::string_view whiteSpace = " \t\r\n";

std::string ReadFile(const std::filesystem::path& file)
{
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    std::string content;
    std::array<char, 65536> block{};
    while (stream.read(block.data(), block.size()) || stream.gcount() > 0)
        content.append(block.data(), static_cast<std::size_t>(stream.gcount()));
    if (!stream.is_open() || stream.bad())
        throw SystemException(fmt::format("Cannot read the information model '{}': {}",
                                          file.string(), std::generic_category().message(errno)));
    return content;
}

std::string_view Trim(std::string_view text)
{
    const auto first = text.find_first_not_of(whiteSpace);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(whiteSpace) - first + 1);
}

/// Takes "name=value;" off the front of a text and returns the value; empty when the text does not
/// begin with it.
std::string_view TakePrefix(std::string_view& text, std::string_view name)
{
    const auto end = text.find(';');
    if (!text.starts_with(name) || end == std::string_view::npos)
        return {};
    const auto value = text.substr(name.size(), end - name.size());
    text.remove_prefix(end + 1);
    return value;
}

/// Returns the name of the node to which an element belongs, for failure texts; empty outside of
/// nodes.
std::string DescribeNode(pugi::xml_node element)
{
    while (element && !element.attribute("NodeId"))
        element = element.parent();
    if (!element)
        return {};
    return fmt::format("node '{}' ({})", element.attribute("NodeId").value(),
                       element.attribute("BrowseName").value());
}

} // namespace

std::string_view GetLocalName(const pugi::xml_node& element)
{
    const std::string_view name = element.name();
    return name.substr(name.find(':') + 1); // npos + 1 is 0: no prefix
}

std::string GetXmlNamespace(const pugi::xml_node& element)
{
    const std::string_view name = element.name();
    const auto colon = name.find(':');
    const std::string declaration =
        colon == std::string_view::npos ? "xmlns" : fmt::format("xmlns:{}", name.substr(0, colon));
    for (auto scope = element; scope; scope = scope.parent())
        if (const auto attribute = scope.attribute(declaration.c_str()))
            return attribute.value();
    return {};
}

std::vector<pugi::xml_node> GetChildren(const pugi::xml_node& parent, std::string_view localName)
{
    std::vector<pugi::xml_node> children;
    for (const auto& child : parent.children())
        if (child.type() == pugi::node_element &&
            (localName.empty() || GetLocalName(child) == localName))
            children.push_back(child);
    return children;
}

pugi::xml_node GetChild(const pugi::xml_node& parent, std::string_view localName)
{
    const auto children = GetChildren(parent, localName);
    return children.empty() ? pugi::xml_node() : children.front();
}

std::string GetText(const pugi::xml_node& element)
{
    std::string text;
    for (const auto& piece : element.children())
        if (piece.type() == pugi::node_pcdata || piece.type() == pugi::node_cdata)
            text += piece.value();
    return std::string(Trim(text));
}

NodeSetDocument::NodeSetDocument(const std::filesystem::path& file)
    : file(file)
    , content(ReadFile(file))
{
    const auto result =
        xml.load_buffer(content.data(), content.size(), pugi::parse_default, pugi::encoding_utf8);
    if (!result)
        FailAt(GetLine(result.offset), {},
               fmt::format("it is not well-formed XML: {}", result.description()));
    root = xml.document_element();
    CheckRoot();
}

void NodeSetDocument::CheckRoot() const
{
    if (GetLocalName(root) != "UANodeSet" || GetXmlNamespace(root) != nodeSetNamespace)
        Fail(root,
             fmt::format("the root element is '{}' of the XML namespace '{}', not 'UANodeSet' "
                         "of '{}'",
                         root.name(), GetXmlNamespace(root), nodeSetNamespace));
}

void NodeSetDocument::ReadTables()
{
    ReadNamespaces();
    ReadAliases();
}

void NodeSetDocument::ReadNamespaces()
{
    namespaceIndexes = {0};
    for (const auto& element : GetChildren(GetChild(root, "NamespaceUris"), "Uri")) {
        const auto uri = GetText(element);
        if (uri.empty())
            Fail(element, "the URI of a namespace is empty");
        namespaceIndexes.push_back(NamespaceMap::Register(uri));
    }
}

void NodeSetDocument::ReadAliases()
{
    std::unordered_map<std::string, NodeId> read;
    for (const auto& element : GetChildren(GetChild(root, "Aliases"), "Alias")) {
        const std::string name = element.attribute("Alias").value();
        if (name.empty())
            Fail(element, "an alias has no name");
        if (!read.emplace(name, ParseNodeId(element, GetText(element))).second)
            Fail(element, fmt::format("the alias '{}' is given twice", name));
    }
    aliases = std::move(read);
}

NodeId NodeSetDocument::ParseNodeId(const pugi::xml_node& where, const std::string& text) const
{
    const std::string trimmed{Trim(text)};
    if (const auto alias = aliases.find(trimmed); alias != aliases.end())
        return alias->second;
    std::string_view identifier = trimmed;
    const std::string index{TakePrefix(identifier, "ns=")};
    const int namespaceIndex = index.empty() ? 0 : MapNamespace(where, index);
    return ParseIdentifier(where, trimmed, namespaceIndex, identifier);
}

NodeId NodeSetDocument::ParseIdentifier(const pugi::xml_node& where, const std::string& text,
                                        int namespaceIndex, std::string_view identifier) const
{
    const auto form = identifier.substr(0, 2);
    std::string value{identifier.substr(form.size())};
    if (form == "i=")
        return {namespaceIndex, ParseNumber<unsigned int>(where, value, "the number of a node")};
    if (form == "s=" && !value.empty())
        return {namespaceIndex, std::move(value)};
    if (form == "g=") {
        std::erase(value, '-');
        try {
            return {namespaceIndex, Guid(value.c_str())};
        } catch (const InvalidArgumentException& failure) {
            Fail(where, fmt::format("'{}' is no node identifier: {}", text, failure.GetMessage()));
        }
    }
    Fail(where, fmt::format("'{}' is neither a node identifier with a number, a text or a Guid nor "
                            "an alias of one",
                            text));
}

QualifiedName NodeSetDocument::ParseQualifiedName(const pugi::xml_node& where,
                                                  const std::string& text) const
{
    const auto colon = text.find(':');
    const bool hasIndex =
        colon != std::string::npos && colon > 0 && text.find_first_not_of("0123456789") == colon;
    std::string name = hasIndex ? text.substr(colon + 1) : text;
    if (name.empty())
        Fail(where, "a name is empty");
    return {hasIndex ? MapNamespace(where, text.substr(0, colon)) : 0, std::move(name)};
}

int NodeSetDocument::MapNamespace(const pugi::xml_node& where, const std::string& index) const
{
    const auto number = ParseNumber<unsigned int>(where, index, "a namespace index");
    if (number >= namespaceIndexes.size())
        Fail(where, fmt::format("the namespace index {} is not in the file's table of namespaces",
                                number));
    return namespaceIndexes[number];
}

template <typename Number>
Number NodeSetDocument::ParseNumber(const pugi::xml_node& where, const std::string& text,
                                    const std::string& what) const
{
    Number number{};
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (result.ec == std::errc::result_out_of_range)
        Fail(where, fmt::format("{} is out of range: '{}'", what, text));
    if (result.ec != std::errc() || result.ptr != end)
        Fail(where, fmt::format("{} is not a number: '{}'", what, text));
    return number;
}

template int NodeSetDocument::ParseNumber(const pugi::xml_node&, const std::string&,
                                          const std::string&) const;
template unsigned int NodeSetDocument::ParseNumber(const pugi::xml_node&, const std::string&,
                                                   const std::string&) const;

bool NodeSetDocument::ParseFlag(const pugi::xml_node& where, const char* attribute) const
{
    const std::string_view text = where.attribute(attribute).as_string("false");
    if (text != "true" && text != "false" && text != "1" && text != "0")
        Fail(where, fmt::format("'{}' is neither true nor false: '{}'", attribute, text));
    return text == "true" || text == "1";
}

void NodeSetDocument::Fail(const pugi::xml_node& where, const std::string& reason) const
{
    FailAt(GetLine(where.offset_debug()), DescribeNode(where), reason);
}

std::size_t NodeSetDocument::GetLine(std::ptrdiff_t offset) const
{
    const auto known = std::clamp<std::ptrdiff_t>(offset, 0, std::ssize(content));
    return 1 + static_cast<std::size_t>(std::count(content.begin(), content.begin() + known, '\n'));
}

void NodeSetDocument::FailAt(std::size_t line, const std::string& node,
                             const std::string& reason) const
{
    throw InvalidModelException(fmt::format("Cannot load the information model '{}', line {}{}{}: "
                                            "{}",
                                            file.string(), line, node.empty() ? "" : ", ", node,
                                            reason));
}

} // namespace Core::Embedding
