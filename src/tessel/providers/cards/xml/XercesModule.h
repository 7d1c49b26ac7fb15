// The XML module: the part of the card XML support that calls Xerces' own functions (start-up,
// parsers, the hardened parse, the serializer). It is a separate shared library, opened the
// first time a card file is parsed, because Xerces brings a long chain of libraries (network,
// TLS and Unicode ones) whose loading would otherwise cost every program start, even one that
// never reads a card. The library itself reaches the parsed documents only through the DOM's
// virtual interfaces, which need no symbol of Xerces.
//
// The module exports one C function, kXercesModuleEntry, answering the table below. Both sides
// are built together from this header; kXercesModuleVersion guards against a stale module
// left beside a newer library.
#pragma once

#include <cstddef>
#include <string>

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/util/XercesDefs.hpp>

XERCES_CPP_NAMESPACE_BEGIN
class XercesDOMParser;
XERCES_CPP_NAMESPACE_END

namespace Tessel::XMLUtils {

inline constexpr int kXercesModuleVersion = 1;
inline constexpr const char* kXercesModuleEntry = "TesselXercesModule";

// Where a written document goes.
enum class XercesWriteTarget { File, StandardOutput, Memory };
// What a write ends with.
enum class XercesWriteResult { Written, NoSerializer, Failed };

struct XercesModule {
    int version;
    // XMLPlatformUtils::Initialize and Terminate; Initialize answers false when it throws.
    bool (*initialize)();
    void (*terminate)();
    // A parser with no validator, Xerces' global memory manager and no grammar pool; null
    // when it cannot be made. Deleting one deletes the documents it parsed.
    xercesc::XercesDOMParser* (*newParser)();
    void (*deleteParser)(xercesc::XercesDOMParser* parser);
    // The one configuration of the card readers (see XMLUtils.h).
    void (*configureParser)(xercesc::XercesDOMParser& parser);
    // Configures PARSER and parses SIZE bytes with entity expansion bounded by ENTITY_LIMIT,
    // no external entity resolved and errors counted instead of thrown. The document (owned
    // by PARSER) when the bytes are a well-formed document, otherwise null.
    xercesc::DOMDocument* (*parse)(xercesc::XercesDOMParser& parser, const char* bytes,
                                   std::size_t size, const char16_t* name, std::size_t entityLimit);
    // Writes NODE as pretty-printed UTF-8 to TARGET: a file at PATH (replaced), standard
    // output, or OUT.
    XercesWriteResult (*write)(const xercesc::DOMNode* node, XercesWriteTarget target,
                               const char16_t* path, std::string* out);
};

}  // namespace Tessel::XMLUtils
