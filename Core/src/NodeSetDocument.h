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

/// Returns the name of an element without its prefix.
[[nodiscard]] std::string_view GetLocalName(const pugi::xml_node& element);

/// Returns the XML namespace of an element, by the declarations around it; empty without one.
[[nodiscard]] std::string GetXmlNamespace(const pugi::xml_node& element);

/// Returns the child elements with a local name; all of them for an empty name.
[[nodiscard]] std::vector<pugi::xml_node> GetChildren(const pugi::xml_node& parent,
                                                      std::string_view localName = {});

/// Returns the first child element with a local name; a null node without one.
[[nodiscard]] pugi::xml_node GetChild(const pugi::xml_node& parent, std::string_view localName);

/// Returns the text of an element without the white space around it.
[[nodiscard]] std::string GetText(const pugi::xml_node& element);

/// A NodeSet2 file as XML. Knows the lines of its elements and the meaning of its names, namespace
/// indexes and aliases. Elements are valid as long as the document lives.
class NodeSetDocument
{
public:
    /// Throws SystemException when the file cannot be read, InvalidModelException when it is no
    /// NodeSet2 document.
    explicit NodeSetDocument(const std::filesystem::path& file);

    [[nodiscard]] pugi::xml_node GetRoot() const { return root; }

    /// Reads the namespaces and aliases of the document and registers the namespaces with the
    /// process. Comes before any parsing of identifiers and names.
    void ReadTables();

    /// Parses an identifier in the document's notation, or an alias of one.
    [[nodiscard]] NodeId ParseNodeId(const pugi::xml_node& where, const std::string& text) const;
    [[nodiscard]] QualifiedName ParseQualifiedName(const pugi::xml_node& where,
                                                   const std::string& text) const;

    /// Parses a decimal number; `what` names it in the text of a failure.
    template <typename Number>
    [[nodiscard]] Number ParseNumber(const pugi::xml_node& where, const std::string& text,
                                     const std::string& what) const;

    /// Parses "true", "false", "1" or "0"; returns false for a missing attribute.
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
