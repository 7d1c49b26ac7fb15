#include "Format.h"

#include <ctime>

#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ContentRecord.h>
#include <tessel/framework/Provider.h>

namespace Tessel::Tool {

namespace {

std::string WithThousands(std::uint64_t n) {
    std::string digits = std::to_string(n);
    std::string out;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) out.push_back(',');
        out.push_back(digits[i]);
    }
    return out;
}

std::string LocalTime(const DateTime& when) {
    const std::time_t seconds = static_cast<std::time_t>(
        when.microsecondsSinceEpoch >= 0 ? when.microsecondsSinceEpoch / 1000000
                                         : (when.microsecondsSinceEpoch - 999999) / 1000000);
    std::tm local{};
#if defined(_WIN32)
    if (localtime_s(&local, &seconds) != 0) return when.ToIso8601();
#else
    if (!localtime_r(&seconds, &local)) return when.ToIso8601();
#endif
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &local);
    return buffer;
}

const char* IconName(IconType icon) {
    switch (icon) {
        case IconType::None: return "none";
        case IconType::Folder: return "folder";
        case IconType::Drive: return "drive";
        case IconType::RemovableDrive: return "removable-drive";
        case IconType::OpticalDrive: return "optical-drive";
        case IconType::NetworkShare: return "network-share";
        case IconType::CloudFolder: return "cloud-folder";
        case IconType::Card: return "card";
        case IconType::Video: return "video";
        case IconType::Audio: return "audio";
        case IconType::Image: return "image";
        case IconType::Sequence: return "sequence";
        case IconType::Project: return "project";
        case IconType::Bin: return "bin";
        case IconType::Document: return "document";
        case IconType::File: return "file";
    }
    return "unknown";
}

}  // namespace

std::string ValueToText(const any_regular_t& value) {
    if (value.empty()) return {};
    if (const auto* s = value.get_if<std::u16string>()) return Utf16ToUtf8(ToDisplayUtf16(*s));
    if (const auto* s = value.get_if<std::string>()) return ToDisplayUtf8(*s);
    if (const auto* b = value.get_if<bool>()) return *b ? "yes" : "no";
    if (const auto* i = value.get_if<std::int64_t>()) return std::to_string(*i);
    if (const auto* d = value.get_if<double>()) {
        std::string text = std::to_string(*d);
        while (text.size() > 1 && text.back() == '0') text.pop_back();
        if (!text.empty() && text.back() == '.') text.pop_back();
        return text;
    }
    if (const auto* size = value.get_if<Provider::ByteSize_t>()) return WithThousands(size->GetCount());
    if (const auto* date = value.get_if<DateTime>()) return LocalTime(*date);
    if (const auto* icon = value.get_if<IconType>()) return IconName(*icon);
    if (const auto* list = value.get_if<any_regular_t::array_t>()) {
        std::string out;
        for (const auto& element : *list) {
            if (!out.empty()) out += ", ";
            out += ValueToText(element);
        }
        return out;
    }
    if (const auto* dict = value.get_if<any_regular_t::dictionary_t>()) {
        std::string out;
        for (const auto& [key, element] : *dict) {
            if (!out.empty()) out += ", ";
            out += key + "=" + ValueToText(element);
        }
        return out;
    }
    return "?";
}

nlohmann::ordered_json ValueToJson(const any_regular_t& value) {
    if (value.empty()) return nullptr;
    if (const auto* s = value.get_if<std::u16string>()) return Utf16ToUtf8(ToDisplayUtf16(*s));
    if (const auto* s = value.get_if<std::string>()) return ToDisplayUtf8(*s);
    if (const auto* b = value.get_if<bool>()) return *b;
    if (const auto* i = value.get_if<std::int64_t>()) return *i;
    if (const auto* d = value.get_if<double>()) return *d;
    if (const auto* size = value.get_if<Provider::ByteSize_t>()) return size->GetCount();
    if (const auto* date = value.get_if<DateTime>()) return date->ToIso8601();
    if (const auto* icon = value.get_if<IconType>()) return IconName(*icon);
    if (const auto* list = value.get_if<any_regular_t::array_t>()) {
        nlohmann::ordered_json array = nlohmann::ordered_json::array();
        for (const auto& element : *list) array.push_back(ValueToJson(element));
        return array;
    }
    if (const auto* dict = value.get_if<any_regular_t::dictionary_t>()) {
        nlohmann::ordered_json object = nlohmann::ordered_json::object();
        for (const auto& [key, element] : *dict) object[ToDisplayUtf8(key)] = ValueToJson(element);
        return object;
    }
    return nullptr;
}

std::size_t DisplayWidth(const std::string& utf8) {
    std::size_t width = 0;
    for (unsigned char c : utf8) {
        if ((c & 0xC0) != 0x80) ++width;
    }
    return width;
}

std::string FormatTable(const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        if (widths.size() < row.size()) widths.resize(row.size(), 0);
        for (std::size_t c = 0; c < row.size(); ++c) {
            widths[c] = std::max(widths[c], DisplayWidth(row[c]));
        }
    }
    std::string out;
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t c = 0; c < row.size(); ++c) {
            line += row[c];
            if (c + 1 < row.size()) line.append(widths[c] - DisplayWidth(row[c]) + 2, ' ');
        }
        while (!line.empty() && line.back() == ' ') line.pop_back();
        out += line + "\n";
    }
    return out;
}

}  // namespace Tessel::Tool
