#include <tessel/providers/cards/XMLUtils.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <sstream>

#include <xercesc/dom/DOMNamedNodeMap.hpp>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Trace.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/platform/AtomicFile.h>
#include <tessel/platform/DynamicLibrary.h>
#include <tessel/platform/FileSystem.h>
#include <tessel/platform/ModulePath.h>
#include <tessel/providers/cards/xml/XercesModule.h>

namespace Tessel::XMLUtils {

namespace X = xercesc;

namespace {

// The XML module, opened on the first parse after StartXMLParsing and never closed (a
// parser made by it may outlive every other use). Xerces is initialised at that first parse
// and terminated by StopXMLParsing.
struct ModuleState {
    std::mutex mutex;
    bool started = false;                             // between StartXMLParsing and StopXMLParsing
    bool opened = false;                              // the module was looked for
    Platform::DynamicLibrary* library = nullptr;      // open for the rest of the process
    const XercesModule* module = nullptr;             // once opened and of the right version
    bool xercesReady = false;                         // initialised, to be terminated
    std::atomic<const XercesModule*> ready{nullptr};  // module, while Xerces is ready
};

ModuleState& State() {
    static ModuleState state;
    return state;
}

const XercesModule* OpenModule() {
    // Beside the library, where the build and the installation put it; else wherever the
    // system looks for libraries.
    const std::string beside =
        Path::FromNativeUtf8(Platform::LibraryDirectory()) + "/" + TESSEL_XML_MODULE;
    for (const std::string& name : {beside, std::string(TESSEL_XML_MODULE)}) {
        auto library = std::make_unique<Platform::DynamicLibrary>(name.c_str());
        if (!library->IsOpen())
            continue;
        using Entry = const XercesModule*();
        auto* entry = reinterpret_cast<Entry*>(library->FindSymbol(kXercesModuleEntry));
        const XercesModule* module = entry ? entry() : nullptr;
        if (module && module->version == kXercesModuleVersion) {
            State().library = library.release();  // never closed, even at exit
            return module;
        }
    }
    Trace::Write("ProviderHost", std::string("the XML module could not be loaded: ") + beside +
                                     "; camera cards whose clips are described in XML are "
                                     "listed as plain folders");
    return nullptr;
}

// The module while Xerces is ready, opening and initialising both on first use; null before
// StartXMLParsing, after StopXMLParsing, or when the module cannot be loaded.
const XercesModule* Ready() {
    ModuleState& state = State();
    if (const XercesModule* module = state.ready.load(std::memory_order_acquire))
        return module;
    std::lock_guard lock(state.mutex);
    if (!state.started)
        return nullptr;
    if (!state.opened) {
        state.opened = true;
        state.module = OpenModule();
    }
    if (state.module && !state.xercesReady) {
        state.xercesReady = state.module->initialize();
        if (!state.xercesReady) {
            Trace::Write("ProviderHost", "the XML parser could not be initialised");
            state.started = false;  // not tried again until the next start
        }
    }
    if (state.xercesReady)
        state.ready.store(state.module, std::memory_order_release);
    return state.ready.load(std::memory_order_relaxed);
}

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
    // A parser exists only if the module was opened, and the module is never closed.
    if (parser)
        State().module->deleteParser(parser);
}

OwnedXMLParser NewXMLParser() {
    const XercesModule* module = Ready();
    return OwnedXMLParser(module ? module->newParser() : nullptr);
}

void ConfigureXMLParser(X::XercesDOMParser& parser) {
    if (const XercesModule* module = Ready())
        module->configureParser(parser);
}

bool ParseXMLBytes(X::XercesDOMParser& parser, const std::string& bytes, const std::u16string& name,
                   X::DOMDocument*& document) {
    const XercesModule* module = Ready();
    document = module ? module->parse(parser, bytes.data(), bytes.size(), name.c_str(),
                                      kEntityExpansionLimit)
                      : nullptr;
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
    const XercesModule* module = Ready();
    if (!node || !module)
        return {StatusCode::kInvalidArgument, "no XML node to write"};
    static_assert(
        static_cast<int>(XMLTarget::Kind::File) == static_cast<int>(XercesWriteTarget::File) &&
        static_cast<int>(XMLTarget::Kind::StandardOutput) ==
            static_cast<int>(XercesWriteTarget::StandardOutput) &&
        static_cast<int>(XMLTarget::Kind::Memory) == static_cast<int>(XercesWriteTarget::Memory));
    switch (module->write(node, static_cast<XercesWriteTarget>(target.kind), target.path.c_str(),
                          out)) {
        case XercesWriteResult::Written:
            return Status::Ok();
        case XercesWriteResult::NoSerializer:
            return {StatusCode::kIOError, "no XML serializer"};
        case XercesWriteResult::Failed:
            break;
    }
    return {StatusCode::kIOError, "the XML document could not be written"};
}

}  // namespace Tessel::XMLUtils

namespace Tessel {

void StartXMLParsing() {
    XMLUtils::ModuleState& state = XMLUtils::State();
    std::lock_guard lock(state.mutex);
    state.started = true;
}

void StopXMLParsing() {
    XMLUtils::ModuleState& state = XMLUtils::State();
    std::lock_guard lock(state.mutex);
    state.started = false;
    state.ready.store(nullptr, std::memory_order_release);
    // Xerces' own count pairs this with the initialisation of the first parse.
    if (state.xercesReady)
        state.module->terminate();
    state.xercesReady = false;
}

}  // namespace Tessel
