#pragma once

#include "Core/NodeId.h"
#include "Core/QualifiedName.h"

#include <filesystem>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Core::Embedding {

/// The name of an element without its prefix.
[[nodiscard]] std::string_view GetLocalName(const pugi::xml_node& element);

/// The XML namespace of an element, by the declarations around it; empty without one.
[[nodiscard]] std::string GetXmlNamespace(const pugi::xml_node& element);

/// The child elements; of one local name, unless that is empty.
[[nodiscard]] std::vector<pugi::xml_node> GetChildren(const pugi::xml_node& parent,
                                                      std::string_view localName = {});

/// The first child element with a local name; a null node without one.
[[nodiscard]] pugi::xml_node GetChild(const pugi::xml_node& parent, std::string_view localName);

/// The text of an element without the white space around it.
[[nodiscard]] std::string GetText(const pugi::xml_node& element);

/// A NodeSet2 file as XML: knows where its elements stand, and what the names, namespace indexes
/// and aliases in it mean. Elements are valid as long as the document lives.
class NodeSetDocument
{
public:
    /// Throws SystemException when the file cannot be read, InvalidModelException when it is no
    /// NodeSet2 document.
    explicit NodeSetDocument(const std::filesystem::path& file);

    [[nodiscard]] pugi::xml_node GetRoot() const { return root; }

    /// The namespaces and aliases of the document; read before any identifier or name is parsed.
    /// Registers the namespaces with the process.
    void ReadTables();

    /// An identifier in the document's writing or an alias of one.
    [[nodiscard]] NodeId ParseNodeId(const pugi::xml_node& where, const std::string& text) const;
    [[nodiscard]] QualifiedName ParseQualifiedName(const pugi::xml_node& where,
                                                   const std::string& text) const;

    /// A number in decimal; `what` names it in the failure's text.
    template <typename Number>
    [[nodiscard]] Number ParseNumber(const pugi::xml_node& where, const std::string& text,
                                     const std::string& what) const;

    /// "true", "false", "1" or "0"; false for an attribute that is not there.
    [[nodiscard]] bool ParseFlag(const pugi::xml_node& where, const char* attribute) const;

    /// Throws InvalidModelException with the file, the line and the node around `where`.
    [[noreturn]] void Fail(const pugi::xml_node& where, const std::string& reason) const;

private:
    void CheckRoot() const;
    void ReadNamespaces();
    void ReadAliases();
    [[nodiscard]] int MapNamespace(const pugi::xml_node& where, const std::string& index) const;
    [[nodiscard]] NodeId ParseIdentifier(const pugi::xml_node& where, const std::string& text,
                                         int namespaceIndex, std::string_view identifier) const;
    [[nodiscard]] std::size_t GetLine(std::ptrdiff_t offset) const;
    [[noreturn]] void FailAt(std::size_t line, const std::string& node,
                             const std::string& reason) const;

    std::filesystem::path file;
    std::string content;
    pugi::xml_document xml;
    pugi::xml_node root;
    std::vector<int> namespaceIndexes; // by the document's index
    std::unordered_map<std::string, NodeId> aliases;
};

} // namespace Core::Embedding
