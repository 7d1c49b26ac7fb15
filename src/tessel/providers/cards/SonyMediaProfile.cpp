#include <tessel/providers/cards/SonyMediaProfile.h>

#include <string_view>

#include <tessel/providers/cards/XMLUtils.h>

namespace Tessel {

namespace {

namespace X = XMLUtils;

bool ReadFromDocument(xercesc::DOMDocument* document, SonyMediaProfile& profile) {
    const xercesc::DOMElement* root = document ? document->getDocumentElement() : nullptr;
    if (!root || std::u16string_view(root->getTagName()) != u"MediaProfile")
        return false;
    const xercesc::DOMElement* contents = X::FindChildElement(root, u"Contents");
    for (auto* material = X::FindChildElement(contents, u"Material"); material;
         material = X::FindNextSiblingElement(material, u"Material")) {
        SonyMediaMaterial& entry = profile.materials.emplace_back();
        X::GetAttributeString(material, u"uri", entry.uri);
        X::GetAttributeUInt(material, u"dur", entry.duration);
        X::GetAttributeString(material, u"title", entry.title);
        for (auto* component = X::FindChildElement(material, u"Component"); component;
             component = X::FindNextSiblingElement(component, u"Component"))
            X::GetAttributeString(component, u"uri", entry.components.emplace_back());
    }
    return true;
}

}  // namespace

bool ReadSonyMediaProfile(const std::u16string& path, SonyMediaProfile& profile) {
    profile = SonyMediaProfile();
    X::OwnedXMLParser parser = X::NewXMLParser();
    xercesc::DOMDocument* document = nullptr;
    if (parser && X::ParseXMLDocument(*parser, path, document) &&
        ReadFromDocument(document, profile))
        return true;
    profile = SonyMediaProfile();
    return false;
}

bool ReadSonyMediaProfileFromBytes(const std::string& bytes, const std::u16string& path,
                                   SonyMediaProfile& profile) {
    profile = SonyMediaProfile();
    X::OwnedXMLParser parser = X::NewXMLParser();
    xercesc::DOMDocument* document = nullptr;
    if (parser && X::ParseXMLBytes(*parser, bytes, path, document) &&
        ReadFromDocument(document, profile))
        return true;
    profile = SonyMediaProfile();
    return false;
}

std::vector<std::u16string> SonyMediaFolders(const std::u16string& uri) {
    std::vector<std::u16string> parts;
    std::u16string part;
    for (char16_t c : uri) {
        if (c == u'/' || c == u'\\') {
            if (!part.empty() && part != u".")
                parts.push_back(part);
            part.clear();
        } else {
            part.push_back(c);
        }
    }
    return parts;  // the last part, the file, is left out
}

}  // namespace Tessel
