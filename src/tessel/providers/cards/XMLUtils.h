// Reading the small XML files camera cards describe their clips in (per-clip XML on P2
// cards, disc and clip tables on XDCAM media): every card provider parses a whole file into
// a Xerces DOM through ParseXMLDocument and walks it with the name-based lookups here, which
// never use namespaces, XPath or schemas. Names and values are UTF-16 (XMLCh is char16_t).
//
// Card files come from removable media anyone can write, so a parse is made harmless: no
// external DTD or entity is ever fetched (nothing is opened by name, there is no network
// access; a document that names one is refused), entity expansion is bounded, files that are
// not regular files or are unreasonably large are not read, and a malformed or truncated file
// is refused as a whole. Callers skip a file ParseXMLDocument refuses.
//
// Parsing is allowed between ProviderHost::Initialize and ProviderHost::Shutdown; Xerces lives
// in a module of its own that the first parse opens and initialises (xml/XercesModule.h),
// so a program that reads no card never loads it. Outside that span, or when the module
// cannot be loaded, every parse is refused. The helpers keep no
// state between calls and may run on several threads at once, one parser per parse.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/util/XercesDefs.hpp>

#include <tessel/platform/Export.h>
#include <tessel/platform/Status.h>

// Declared only: parsers are reached through the functions here, which run in the XML
// module's copy of Xerces (on Windows a static copy inside the module's DLL).
XERCES_CPP_NAMESPACE_BEGIN
class XercesDOMParser;
XERCES_CPP_NAMESPACE_END

namespace Tessel::XMLUtils {

// Deletes a parser, and with it the document it parsed, in the module's copy of Xerces.
struct TESSEL_API XMLParserDeleter {
    void operator()(xercesc::XercesDOMParser* parser) const;
};
using OwnedXMLParser = std::unique_ptr<xercesc::XercesDOMParser, XMLParserDeleter>;

// A fresh parser as every card reader makes one for each file: no validator, Xerces' global
// memory manager, no grammar pool. Null when Xerces is not initialised.
TESSEL_API OwnedXMLParser NewXMLParser();

// Configures PARSER (ConfigureXMLParser), parses the file at PATH (native form, UTF-16) and
// stores the parser's document in DOCUMENT. False, with DOCUMENT null, when the file cannot be
// read, is no regular file, exceeds kLargestXMLFile, is not well-formed (truncated included)
// or exceeds the entity-expansion bound. The document belongs to PARSER.
TESSEL_API bool ParseXMLDocument(xercesc::XercesDOMParser& parser, const std::u16string& path,
                                 xercesc::DOMDocument*& document);
// The same for a file's bytes held in memory; NAME only names the document in errors.
TESSEL_API bool ParseXMLBytes(xercesc::XercesDOMParser& parser, const std::string& bytes,
                              const std::u16string& name, xercesc::DOMDocument*& document);

// The one parser configuration of the card readers, in this order: validation scheme "auto",
// namespaces off, schemas off, full schema checking off, entity-reference nodes created (the
// default, set explicitly), default entity resolution off; then the hardening above (no
// external DTD loaded, an entity resolver that opens nothing).
TESSEL_API void ConfigureXMLParser(xercesc::XercesDOMParser& parser);

inline constexpr std::uint64_t kLargestXMLFile = 16 * 1024 * 1024;
// Entity expansions allowed in one document; a deliberate expansion bomb stops here.
inline constexpr unsigned int kEntityExpansionLimit = 10000;

// The first direct child element of PARENT named NAME (exact, case-sensitive, no namespace
// handling), in document order; null when PARENT is null or no child matches.
TESSEL_API xercesc::DOMElement* FindChildElement(const xercesc::DOMNode* parent,
                                                 const std::u16string& name);
// The first element named NAME among the siblings following NODE; null when NODE is null or
// none follows. With FindChildElement it steps through repeated elements.
TESSEL_API xercesc::DOMElement* FindNextSiblingElement(const xercesc::DOMNode* node,
                                                       const std::u16string& name);

// Attribute getters: when ELEMENT is null, the attribute is absent or its value is null, OUT
// is left unchanged. Numbers are read as a wide input stream reads them (leading blanks
// skipped, the longest number prefix taken, the rest ignored); text that does not start with a
// number gives 0. A bool is true exactly for the text "true".
TESSEL_API void GetAttributeString(const xercesc::DOMElement* element, const std::u16string& name,
                                   std::u16string& out);
TESSEL_API void GetAttributeInt(const xercesc::DOMElement* element, const std::u16string& name,
                                std::int32_t& out);
TESSEL_API void GetAttributeUInt(const xercesc::DOMElement* element, const std::u16string& name,
                                 std::uint32_t& out);
TESSEL_API void GetAttributeBool(const xercesc::DOMElement* element, const std::u16string& name,
                                 bool& out);

// Child-text getters: the text of PARENT's child element NAME is the value of that element's
// first child node only (an empty element counts as absent). GetChildString clears OUT when
// there is no text; the others leave OUT as it was (callers preset defaults), except
// GetChildBoolOrFalse, for which absent means false.
TESSEL_API void GetChildString(const xercesc::DOMElement* parent, const std::u16string& name,
                               std::u16string& out);
TESSEL_API void GetChildInt(const xercesc::DOMElement* parent, const std::u16string& name,
                            std::int32_t& out);
TESSEL_API void GetChildUInt(const xercesc::DOMElement* parent, const std::u16string& name,
                             std::uint32_t& out);
TESSEL_API void GetChildLong(const xercesc::DOMElement* parent, const std::u16string& name,
                             std::int32_t& out);
TESSEL_API void GetChildFloat(const xercesc::DOMElement* parent, const std::u16string& name,
                              float& out);
TESSEL_API void GetChildInt64(const xercesc::DOMElement* parent, const std::u16string& name,
                              std::int64_t& out);
TESSEL_API void GetChildBool(const xercesc::DOMElement* parent, const std::u16string& name,
                             bool& out);
TESSEL_API void GetChildBoolOrFalse(const xercesc::DOMElement* parent, const std::u16string& name,
                                    bool& out);
// Copies the text, terminated, into BUFFER of CAPACITY characters (cut to fit); the empty
// string when there is none.
TESSEL_API void GetChildText(const xercesc::DOMElement* parent, const std::u16string& name,
                             char16_t* buffer, std::size_t capacity);
template <std::size_t N>
void GetChildText(const xercesc::DOMElement* parent, const std::u16string& name,
                  char16_t (&buffer)[N]) {
    GetChildText(parent, name, buffer, N);
}

// Where WriteXMLDocument puts a document.
struct XMLTarget {
    enum class Kind { File, StandardOutput, Memory };
    Kind kind = Kind::Memory;
    std::u16string path;  // for File: replaced if it exists
};

// Serialises NODE through Xerces' load-and-save serializer ("LS"): UTF-8, "\n" line ends,
// split CDATA sections, default content discarded and pretty printing, each where the
// serializer can set it. For Memory, OUT receives the bytes (empty when nothing was written).
TESSEL_API Status WriteXMLDocument(const xercesc::DOMNode* node, const XMLTarget& target,
                                   std::string* out = nullptr);

}  // namespace Tessel::XMLUtils
