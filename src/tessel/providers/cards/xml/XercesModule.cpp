// The XML module (see XercesModule.h), built as its own shared library beside libtessel.
#include "XercesModule.h"

#include <filesystem>
#include <memory>
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

#include <tessel/platform/Export.h>

namespace Tessel::XMLUtils {

namespace {

namespace X = xercesc;

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

bool Initialize() {
    try {
        X::XMLPlatformUtils::Initialize();
        return true;
    } catch (...) {
        return false;
    }
}

void Terminate() {
    X::XMLPlatformUtils::Terminate();
}

X::XercesDOMParser* NewParser() {
    try {
        return new X::XercesDOMParser(nullptr, X::XMLPlatformUtils::fgMemoryManager, nullptr);
    } catch (...) {
        return nullptr;
    }
}

void DeleteParser(X::XercesDOMParser* parser) {
    delete parser;
}

void ConfigureParser(X::XercesDOMParser& parser) {
    parser.setValidationScheme(X::XercesDOMParser::Val_Auto);
    parser.setDoNamespaces(false);
    parser.setDoSchema(false);
    parser.setValidationSchemaFullChecking(false);
    parser.setCreateEntityReferenceNodes(true);
    parser.setDisableDefaultEntityResolution(true);
    parser.setLoadExternalDTD(false);
    parser.setEntityResolver(&Resolver());
}

X::DOMDocument* Parse(X::XercesDOMParser& parser, const char* bytes, std::size_t size,
                      const char16_t* name, std::size_t entityLimit) {
    ConfigureParser(parser);
    X::SecurityManager security;
    security.setEntityExpansionLimit(static_cast<XMLSize_t>(entityLimit));
    FatalErrorCounter errors;
    parser.setSecurityManager(&security);
    parser.setErrorHandler(&errors);
    bool parsed = false;
    try {
        const X::MemBufInputSource source(reinterpret_cast<const XMLByte*>(bytes), size, name,
                                          false);
        parser.parse(source);
        parsed = errors.FatalErrors() == 0;
    } catch (...) {
        parsed = false;  // Xerces' own exceptions, and running out of memory: unreadable
    }
    // The handlers live on this stack; the parser must not keep them.
    parser.setSecurityManager(nullptr);
    parser.setErrorHandler(nullptr);
    return parsed ? parser.getDocument() : nullptr;
}

XercesWriteResult Write(const X::DOMNode* node, XercesWriteTarget target, const char16_t* path,
                        std::string* out) {
    try {
        auto* implementation = dynamic_cast<X::DOMImplementationLS*>(
            X::DOMImplementationRegistry::getDOMImplementation(u"LS"));
        if (!implementation)
            return XercesWriteResult::NoSerializer;
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
        switch (target) {
            case XercesWriteTarget::File: {
                std::error_code ignored;
                std::filesystem::remove(std::filesystem::path(path), ignored);
                formatTarget = std::make_unique<X::LocalFileFormatTarget>(path);
                break;
            }
            case XercesWriteTarget::StandardOutput:
                formatTarget = std::make_unique<X::StdOutFormatTarget>();
                break;
            case XercesWriteTarget::Memory:
                formatTarget = std::make_unique<X::MemBufFormatTarget>(1023);
                memory = static_cast<X::MemBufFormatTarget*>(formatTarget.get());
                break;
        }
        output->setByteStream(formatTarget.get());
        if (!serializer->write(node, output.get()))
            return XercesWriteResult::Failed;
        formatTarget->flush();
        if (memory && out)
            out->assign(reinterpret_cast<const char*>(memory->getRawBuffer()), memory->getLen());
        return XercesWriteResult::Written;
    } catch (...) {
        return XercesWriteResult::Failed;
    }
}

const XercesModule kModule = {
    kXercesModuleVersion, Initialize,      Terminate, NewParser,
    DeleteParser,         ConfigureParser, Parse,     Write,
};

}  // namespace

}  // namespace Tessel::XMLUtils

TESSEL_MODULE_ENTRY const Tessel::XMLUtils::XercesModule* TesselXercesModule() {
    return &Tessel::XMLUtils::kModule;
}
