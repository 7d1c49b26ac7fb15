#include <tessel/providers/cards/XMLUtils.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <system_error>

#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/LocalFileFormatTarget.hpp>
#include <xercesc/framework/MemBufFormatTarget.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/StdOutFormatTarget.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/EntityResolver.hpp>
#include <xercesc/sax/ErrorHandler.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <tessel/foundation/Path.h>
#include <tessel/platform/AtomicFile.h>
#include <tessel/platform/FileSystem.h>

namespace Tessel::XMLUtils {

namespace X = xercesc;

namespace {

// Xerces keeps its memory manager from Initialize to Terminate; without it nothing may run.
bool XercesReady() {
    return X::XMLPlatformUtils::fgMemoryManager != nullptr;
}

// No external entity or DTD is ever opened: the resolver answers none, and with the
// parser's default resolution off a document that names one is refused as a whole. (An
// empty source instead would read as empty text, but Xerces 3.2.4 never frees the source
// it gets for a DOCTYPE's external subset.) Card files name no external entities.
class EmptyEntityResolver final : public X::EntityResolver {
public:
    X::InputSource* resolveEntity(const XMLCh* const, const XMLCh* const) override {
        return nullptr;
    }
};

EmptyEntityResolver& Resolver() {
    static EmptyEntityResolver resolver;  // stateless: shared by every parser and thread
    return resolver;
}

// Counts fatal errors instead of throwing them, so a malformed file ends the parse quietly.
class FatalErrorCounter final : public X::ErrorHandler {
public:
    void warning(const X::SAXParseException&) override {}
    void error(const X::SAXParseException&) override {}
    void fatalError(const X::SAXParseException&) override { ++mFatalErrors; }
    void resetErrors() override { mFatalErrors = 0; }
    int FatalErrors() const { return mFatalErrors; }

private:
    int mFatalErrors = 0;
};

const XMLCh* ValueOf(const X::DOMNode* node) {
    return node ? node->getNodeValue() : nullptr;
}

const XMLCh* AttributeValue(const X::DOMElement* element, const std::u16string& name) {
    if (!element)
        return nullptr;
    const X::DOMNamedNodeMap* attributes = element->getAttributes();
    return attributes ? ValueOf(attributes->getNamedItem(name.c_str())) : nullptr;
}

// The value of the first child node of PARENT's child element NAME, or null.
const XMLCh* ChildText(const X::DOMElement* parent, const std::u16string& name) {
    const X::DOMElement* child = FindChildElement(parent, name);
    return child ? ValueOf(child->getFirstChild()) : nullptr;
}

// A wide input stream's reading of TEXT as a T: 0 when the text does not start with one.
template <class T>
T Extract(const XMLCh* text) {
    std::wstring wide;
    for (const XMLCh* c = text; *c; ++c)
        wide.push_back(static_cast<wchar_t>(*c));
    std::wistringstream stream(wide);
    T value{};
    stream >> value;
    return stream.fail() ? T{} : value;
}

template <class T>
void AttributeNumber(const X::DOMElement* element, const std::u16string& name, T& out) {
    if (const XMLCh* value = AttributeValue(element, name))
        out = Extract<T>(value);
}

template <class T>
void ChildNumber(const X::DOMElement* parent, const std::u16string& name, T& out) {
    if (const XMLCh* text = ChildText(parent, name))
        out = Extract<T>(text);
}

bool IsTrue(const XMLCh* text) {
    return std::u16string_view(text) == u"true";
}

}  // namespace

void XMLParserDeleter::operator()(X::XercesDOMParser* parser) const {
    delete parser;
}

OwnedXMLParser NewXMLParser() {
    if (!XercesReady())
        return nullptr;
    try {
        return OwnedXMLParser(
            new X::XercesDOMParser(nullptr, X::XMLPlatformUtils::fgMemoryManager, nullptr));
    } catch (...) {
        return nullptr;
    }
}

void ConfigureXMLParser(X::XercesDOMParser& parser) {
    parser.setValidationScheme(X::XercesDOMParser::Val_Auto);
    parser.setDoNamespaces(false);
    parser.setDoSchema(false);
    parser.setValidationSchemaFullChecking(false);
    parser.setCreateEntityReferenceNodes(true);
    parser.setDisableDefaultEntityResolution(true);
    parser.setLoadExternalDTD(false);
    parser.setEntityResolver(&Resolver());
}

bool ParseXMLBytes(X::XercesDOMParser& parser, const std::string& bytes, const std::u16string& name,
                   X::DOMDocument*& document) {
    document = nullptr;
    if (!XercesReady())
        return false;
    ConfigureXMLParser(parser);
    X::SecurityManager security;
    security.setEntityExpansionLimit(kEntityExpansionLimit);
    FatalErrorCounter errors;
    parser.setSecurityManager(&security);
    parser.setErrorHandler(&errors);
    bool parsed = false;
    try {
        const X::MemBufInputSource source(reinterpret_cast<const XMLByte*>(bytes.data()),
                                          bytes.size(), name.c_str(), false);
        parser.parse(source);
        parsed = errors.FatalErrors() == 0;
    } catch (...) {
        parsed = false;  // Xerces' own exceptions, and running out of memory: unreadable
    }
    // The handlers live on this stack; the parser must not keep them.
    parser.setSecurityManager(nullptr);
    parser.setErrorHandler(nullptr);
    if (parsed)
        document = parser.getDocument();
    return document != nullptr;
}

bool ParseXMLDocument(X::XercesDOMParser& parser, const std::u16string& path,
                      X::DOMDocument*& document) {
    document = nullptr;
    // Only regular files: a FIFO or device on a card must never block a listing.
    const Platform::NativeString native = Path::ToNative(path);
    if (Platform::GetPathKind(native) != Platform::PathKind::File)
        return false;
    std::string bytes, error;
    if (Platform::ReadWholeFile(native, bytes, error, kLargestXMLFile) !=
        Platform::ReadFileStatus::Ok)
        return false;
    return ParseXMLBytes(parser, bytes, path, document);
}

X::DOMElement* FindChildElement(const X::DOMNode* parent, const std::u16string& name) {
    if (!parent)
        return nullptr;
    for (X::DOMNode* child = parent->getFirstChild(); child; child = child->getNextSibling()) {
        if (child->getNodeType() == X::DOMNode::ELEMENT_NODE && child->getNodeName() == name)
            return static_cast<X::DOMElement*>(child);
    }
    return nullptr;
}

X::DOMElement* FindNextSiblingElement(const X::DOMNode* node, const std::u16string& name) {
    if (!node)
        return nullptr;
    for (X::DOMNode* next = node->getNextSibling(); next; next = next->getNextSibling()) {
        if (next->getNodeType() == X::DOMNode::ELEMENT_NODE && next->getNodeName() == name)
            return static_cast<X::DOMElement*>(next);
    }
    return nullptr;
}

void GetAttributeString(const X::DOMElement* element, const std::u16string& name,
                        std::u16string& out) {
    if (const XMLCh* value = AttributeValue(element, name))
        out = value;
}

void GetAttributeInt(const X::DOMElement* element, const std::u16string& name, std::int32_t& out) {
    AttributeNumber(element, name, out);
}

void GetAttributeUInt(const X::DOMElement* element, const std::u16string& name,
                      std::uint32_t& out) {
    AttributeNumber(element, name, out);
}

void GetAttributeBool(const X::DOMElement* element, const std::u16string& name, bool& out) {
    if (const XMLCh* value = AttributeValue(element, name))
        out = IsTrue(value);
}

void GetChildString(const X::DOMElement* parent, const std::u16string& name, std::u16string& out) {
    const XMLCh* text = ChildText(parent, name);
    if (text)
        out = text;
    else
        out.clear();
}

void GetChildInt(const X::DOMElement* parent, const std::u16string& name, std::int32_t& out) {
    ChildNumber(parent, name, out);
}

void GetChildUInt(const X::DOMElement* parent, const std::u16string& name, std::uint32_t& out) {
    ChildNumber(parent, name, out);
}

void GetChildLong(const X::DOMElement* parent, const std::u16string& name, std::int32_t& out) {
    // Read as a 32-bit number everywhere, as a long is on Windows.
    ChildNumber(parent, name, out);
}

void GetChildFloat(const X::DOMElement* parent, const std::u16string& name, float& out) {
    ChildNumber(parent, name, out);
}

void GetChildInt64(const X::DOMElement* parent, const std::u16string& name, std::int64_t& out) {
    long long value = out;
    ChildNumber(parent, name, value);
    out = value;
}

void GetChildBool(const X::DOMElement* parent, const std::u16string& name, bool& out) {
    if (const XMLCh* text = ChildText(parent, name))
        out = IsTrue(text);
}

void GetChildBoolOrFalse(const X::DOMElement* parent, const std::u16string& name, bool& out) {
    out = false;
    GetChildBool(parent, name, out);
}

void GetChildText(const X::DOMElement* parent, const std::u16string& name, char16_t* buffer,
                  std::size_t capacity) {
    if (!buffer || capacity == 0)
        return;
    const std::u16string_view text = ChildText(parent, name) ? ChildText(parent, name) : u"";
    const std::size_t length = std::min(text.size(), capacity - 1);
    std::copy_n(text.data(), length, buffer);
    buffer[length] = u'\0';
}

Status WriteXMLDocument(const X::DOMNode* node, const XMLTarget& target, std::string* out) {
    if (out)
        out->clear();
    if (!node || !XercesReady())
        return {StatusCode::kInvalidArgument, "no XML node to write"};
    try {
        auto* implementation = dynamic_cast<X::DOMImplementationLS*>(
            X::DOMImplementationRegistry::getDOMImplementation(u"LS"));
        if (!implementation)
            return {StatusCode::kIOError, "no XML serializer"};
        std::unique_ptr<X::DOMLSSerializer, void (*)(X::DOMLSSerializer*)> serializer(
            implementation->createLSSerializer(), [](X::DOMLSSerializer* s) { s->release(); });
        std::unique_ptr<X::DOMLSOutput, void (*)(X::DOMLSOutput*)> output(
            implementation->createLSOutput(), [](X::DOMLSOutput* o) { o->release(); });
        X::DOMConfiguration* config = serializer->getDomConfig();
        for (const XMLCh* parameter :
             {X::XMLUni::fgDOMWRTSplitCdataSections, X::XMLUni::fgDOMWRTDiscardDefaultContent,
              X::XMLUni::fgDOMWRTFormatPrettyPrint}) {
            if (config->canSetParameter(parameter, true))
                config->setParameter(parameter, true);
        }
        serializer->setNewLine(u"\n");
        output->setEncoding(u"UTF-8");

        std::unique_ptr<X::XMLFormatTarget> formatTarget;
        X::MemBufFormatTarget* memory = nullptr;
        switch (target.kind) {
            case XMLTarget::Kind::File: {
                std::error_code ignored;
                std::filesystem::remove(std::filesystem::path(target.path), ignored);
                formatTarget = std::make_unique<X::LocalFileFormatTarget>(target.path.c_str());
                break;
            }
            case XMLTarget::Kind::StandardOutput:
                formatTarget = std::make_unique<X::StdOutFormatTarget>();
                break;
            case XMLTarget::Kind::Memory:
                formatTarget = std::make_unique<X::MemBufFormatTarget>(1023);
                memory = static_cast<X::MemBufFormatTarget*>(formatTarget.get());
                break;
        }
        output->setByteStream(formatTarget.get());
        if (!serializer->write(node, output.get()))
            return {StatusCode::kIOError, "the XML document could not be written"};
        formatTarget->flush();
        if (memory && out)
            out->assign(reinterpret_cast<const char*>(memory->getRawBuffer()), memory->getLen());
        return Status::Ok();
    } catch (...) {
        return {StatusCode::kIOError, "the XML document could not be written"};
    }
}

}  // namespace Tessel::XMLUtils
