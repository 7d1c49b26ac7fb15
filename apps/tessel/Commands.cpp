#include "Commands.h"

#include <algorithm>
#include <cstdio>
#include <mutex>

#include <nlohmann/json.hpp>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/media/PngEncoding.h>
#include <tessel/platform/Terminal.h>
#include <tessel/thumbnails/RenderThumbnail.h>

#include "Format.h"
#include "Interrupt.h"
#include "Requests.h"

namespace Tessel::Tool {

namespace {

constexpr int kExitOk = 0;
constexpr int kExitNotFound = 1;
constexpr int kExitUsage = 2;
constexpr int kExitInterrupted = 3;

std::string Display(const std::u16string& text) { return Utf16ToUtf8(ToDisplayUtf16(text)); }

bool IsFileSystemLocation(const std::u16string& path) {
    return !path.empty() && path.back() != u':' && path.find(u"://") == std::u16string::npos;
}

// Explains why nothing can show PATH.
int ReportNoProvider(const std::u16string& path, std::ostream& err) {
    if (path.empty()) {
        err << "tessel: an empty path names no location\n";
    } else if (IsFileSystemLocation(path) && !Path::FileOrDirectoryExists(path)) {
        err << "tessel: " << Display(path) << ": no such file or folder\n";
    } else {
        err << "tessel: no provider can show " << Display(path) << "\n";
    }
    return kExitNotFound;
}

int ReportInterrupted(std::ostream& err) {
    err << "tessel: interrupted\n";
    return kExitInterrupted;
}

// The provider named by ID, or else the best one for PATH. Null, with STATUS set and the
// reason printed, when there is none.
ProviderWrapper* ChooseProvider(const std::u16string& path, const std::string& id,
                                std::ostream& err, int& status) {
    if (!id.empty()) {
        ProviderWrapper* wrapper = ProviderHost::FindProvider(Utf8ToUtf16(id));
        if (!wrapper) {
            err << "tessel: no provider is called '" << id << "' (see 'tessel providers --all')\n";
            status = kExitUsage;
        }
        return wrapper;
    }
    std::optional<GetProviderListMessage> answer;
    if (!path.empty()) answer = RunProviderList(path);
    if (answer && answer->result == kResultAborted) {
        status = ReportInterrupted(err);
        return nullptr;
    }
    if (!answer || answer->providers.empty()) {
        status = ReportNoProvider(path, err);
        return nullptr;
    }
    return answer->providers.front();
}

std::vector<std::u16string> SplitFields(const std::string& list) {
    std::vector<std::u16string> fields;
    std::size_t start = 0;
    while (start <= list.size()) {
        std::size_t comma = list.find(',', start);
        if (comma == std::string::npos) comma = list.size();
        std::string field = list.substr(start, comma - start);
        while (!field.empty() && field.front() == ' ') field.erase(field.begin());
        while (!field.empty() && field.back() == ' ') field.pop_back();
        if (!field.empty()) fields.push_back(Utf8ToUtf16(field));
        start = comma + 1;
    }
    return fields;
}

// The columns to show, in order: the provider's defaults, all its fields (defaults first),
// or the caller's list.
std::vector<std::u16string> ChooseFields(const ProviderWrapper& wrapper, const std::string& fields) {
    std::vector<std::u16string> chosen;
    if (fields.empty() || fields == "all") {
        chosen = wrapper.GetDefaultFieldList();
        if (fields == "all") {
            for (const auto& field : wrapper.GetFieldList()) {
                if (std::find(chosen.begin(), chosen.end(), field) == chosen.end()) {
                    chosen.push_back(field);
                }
            }
        }
    } else {
        chosen = SplitFields(fields);
    }
    if (chosen.empty()) chosen.push_back(kNameField);
    return chosen;
}

// Shows "Listing... 42%" on a terminal while a long listing runs.
class ProgressLine {
public:
    explicit ProgressLine(ProviderWrapper& wrapper) : mWrapper(wrapper) {
        if (!Platform::StandardErrorIsTerminal()) return;
        mActive = true;
        mWrapper.SetGetContentProgressCallback(std::make_shared<ContentProgressCallback>(
            [](const std::u16string&, double progress) {
                std::fprintf(stderr, "\rListing... %3d%%", static_cast<int>(progress * 100));
                std::fflush(stderr);
            }));
    }
    ~ProgressLine() {
        if (!mActive) return;
        mWrapper.SetGetContentProgressCallback(nullptr);
        std::fprintf(stderr, "\r%20s\r", "");
        std::fflush(stderr);
    }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

private:
    ProviderWrapper& mWrapper;
    bool mActive = false;
};

}  // namespace

std::u16string NormalizeLocation(const std::string& argument) {
    std::u16string path = Utf8ToUtf16(argument);
    if (path.empty()) return path;
    if (path.find(u"://") != std::u16string::npos) return path;       // scheme paths
    if (path.back() == u':' && path.find(u'/') == std::u16string::npos &&
        path.find(u'\\') == std::u16string::npos && path.size() > 2) {
        return path;  // list paths ("volumes:"); "C:" is a drive, not a list
    }
    if (path.rfind(u"\\\\?\\", 0) == 0) return path;                   // long-path forms
    // Windows: "C:\x" and "\\server\share" in the long-path form the library takes.
    return Path::ToLongPath(Path::MakeAbsolute(path));
}

int PrintListing(const std::u16string& path, const std::u16string& providerID, ResultCode code,
                 const ContentMap& content, const std::vector<std::u16string>& fields,
                 const std::map<std::u16string, std::u16string>& labels, bool json,
                 std::ostream& out, std::ostream& err) {
    if (code == kResultAborted) return ReportInterrupted(err);
    if (json) {
        nlohmann::ordered_json doc;
        doc["path"] = Display(path);
        doc["provider"] = Display(providerID);
        doc["code"] = code;
        nlohmann::ordered_json items = nlohmann::ordered_json::array();
        for (const auto& [key, record] : content) {
            nlohmann::ordered_json item;
            item["key"] = Display(key);
            nlohmann::ordered_json values = nlohmann::ordered_json::object();
            for (const auto& field : fields) {
                auto it = record.find(field);
                if (it != record.end()) values[Display(field)] = ValueToJson(it->second);
            }
            item["fields"] = std::move(values);
            items.push_back(std::move(item));
        }
        doc["items"] = std::move(items);
        out << doc.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << "\n";
        return kExitOk;
    }
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> header;
    for (const auto& field : fields) {
        auto label = labels.find(field);
        header.push_back(label != labels.end() ? Localize(Display(label->second)) : Display(field));
    }
    rows.push_back(std::move(header));
    for (const auto& [key, record] : content) {
        std::vector<std::string> row;
        for (const auto& field : fields) {
            auto it = record.find(field);
            row.push_back(it != record.end() ? ValueToText(it->second) : std::string());
        }
        rows.push_back(std::move(row));
    }
    out << FormatTable(rows);
    if (content.empty()) err << "tessel: " << Display(path) << " is empty\n";
    return kExitOk;
}

int RunProviders(const CommandOptions& options, std::ostream& out, std::ostream& err) {
    if (options.all) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        std::vector<std::vector<std::string>> rows{{"ID", "NAME"}};
        for (const auto& wrapper : ProviderHost::GetAllProviders()) {
            if (!wrapper) continue;
            list.push_back({{"id", Display(wrapper->GetIdentification())},
                            {"name", Display(wrapper->GetUIString())}});
            rows.push_back({Display(wrapper->GetIdentification()), Display(wrapper->GetUIString())});
        }
        if (options.json) {
            nlohmann::ordered_json doc;
            doc["providers"] = std::move(list);
            out << doc.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << "\n";
        } else if (rows.size() == 1) {
            err << "tessel: no providers are registered\n";
        } else {
            out << FormatTable(rows);
        }
        return kExitOk;
    }
    const std::u16string path = NormalizeLocation(options.path);
    std::optional<GetProviderListMessage> answer;
    if (!path.empty()) answer = RunProviderList(path);
    if (answer && answer->result == kResultAborted) return ReportInterrupted(err);
    const bool found = answer && !answer->providers.empty();
    if (options.json) {
        nlohmann::ordered_json doc;
        doc["path"] = Display(path);
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        if (found) {
            for (std::size_t i = 0; i < answer->providers.size(); ++i) {
                list.push_back({{"id", Display(answer->providers[i]->GetIdentification())},
                                {"name", Display(answer->providers[i]->GetUIString())},
                                {"score", answer->scores.at(i)}});
            }
        }
        doc["providers"] = std::move(list);
        out << doc.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << "\n";
    } else if (found) {
        std::vector<std::vector<std::string>> rows{{"SCORE", "ID", "NAME"}};
        for (std::size_t i = 0; i < answer->providers.size(); ++i) {
            rows.push_back({std::to_string(answer->scores.at(i)),
                            Display(answer->providers[i]->GetIdentification()),
                            Display(answer->providers[i]->GetUIString())});
        }
        out << FormatTable(rows);
    }
    return found ? kExitOk : ReportNoProvider(path, err);
}

int RunList(const CommandOptions& options, std::ostream& out, std::ostream& err) {
    const std::u16string path = NormalizeLocation(options.path);
    int status = kExitOk;
    ProviderWrapper* wrapper = ChooseProvider(path, options.provider, err, status);
    if (!wrapper) return status;
    const std::vector<std::u16string> fields = ChooseFields(*wrapper, options.fields);
    std::optional<ProgressLine> progress(std::in_place, *wrapper);
    const bool answered = RunContent(
        *wrapper, path, FieldSet(fields.begin(), fields.end()), [&](const GetContentMessage& m) {
            progress.reset();  // the progress line is cleared before the listing is printed
            status = PrintListing(path, wrapper->GetIdentification(), m.result, m.content, fields,
                                  wrapper->GetFieldLabelList(), options.json, out, err);
        });
    if (!answered) return ReportNoProvider(path, err);
    return status;
}

int RunDefault(const CommandOptions& options, std::ostream& out, std::ostream& err) {
    const std::u16string path = NormalizeLocation(options.path);
    if (path.empty()) return ReportNoProvider(path, err);
    auto data = std::make_shared<DefaultContentRequestData>(
        path, any_regular_t(), Utf8ToUtf16(options.provider), options.mediaOnly);
    std::optional<GetDefaultContentMessage> answer = RunDefaultContent(data);
    if (answer && answer->result == kResultAborted) return ReportInterrupted(err);
    if (!answer || answer->result == kResultNothingFound || !answer->wrapper) {
        return ReportNoProvider(path, err);
    }
    const std::vector<std::u16string> fields{kNameField, kPathField};
    return PrintListing(path, answer->wrapper->GetIdentification(), answer->result,
                        answer->content, fields, answer->wrapper->GetFieldLabelList(),
                        options.json, out, err);
}

std::optional<std::pair<std::uint32_t, std::uint32_t>> ParseThumbnailSize(const std::string& text) {
    // Larger boxes than this are no thumbnails, and would only cost memory.
    constexpr unsigned long kLargestSide = 16384;
    const std::size_t x = text.find_first_of("xX");
    if (x == std::string::npos || x == 0 || x + 1 == text.size()) return std::nullopt;
    const auto side = [&](const std::string& digits) -> std::optional<std::uint32_t> {
        if (digits.empty() || digits.size() > 5 ||
            digits.find_first_not_of("0123456789") != std::string::npos) {
            return std::nullopt;
        }
        const unsigned long value = std::stoul(digits);
        if (value > kLargestSide) return std::nullopt;
        return static_cast<std::uint32_t>(value);
    };
    const auto width = side(text.substr(0, x));
    const auto height = side(text.substr(x + 1));
    if (!width || !height) return std::nullopt;
    return std::make_pair(*width, *height);
}

namespace {

// One thumbnail of PATH into the PNG file OUTPUT.
int WriteThumbnail(const std::string& argument, const std::string& output,
                   std::pair<std::uint32_t, std::uint32_t> size, const CommandOptions& options,
                   std::ostream& out, std::ostream& err) {
    const std::u16string path = NormalizeLocation(argument);
    if (path.empty()) return ReportNoProvider(path, err);

    MF::IVideoFrameRef frame;
    std::u16string providerID;
    if (options.imageOnly) {
        PelPixHandle buffer = RenderThumbnail(Utf16ToUtf8(path), size.first, size.second);
        frame = MF::CreateVideoFrameFromPelPix(buffer);
        pelpixDispose(buffer);
        if (!frame) {
            if (!Path::FileOrDirectoryExists(path)) return ReportNoProvider(path, err);
            err << "tessel: " << Display(path)
                << ": not an image that can be read (JPEG, PNG, BMP, GIF or TGA)\n";
            return kExitNotFound;
        }
    } else {
        int status = kExitOk;
        ProviderWrapper* wrapper = ChooseProvider(path, options.provider, err, status);
        if (!wrapper) return status;
        providerID = wrapper->GetIdentification();
        auto data = std::make_shared<ProviderThumbnailRequestData>(
            path, options.extraPath.empty() ? std::u16string() : NormalizeLocation(options.extraPath),
            any_regular_t(), static_cast<std::int32_t>(size.first),
            static_cast<std::int32_t>(size.second));
        std::optional<GetThumbnailMessage> answer = RunThumbnail(*wrapper, data);
        if (answer && answer->result == kResultAborted) return ReportInterrupted(err);
        if (!answer || !answer->frame) {
            err << "tessel: " << Display(providerID) << " has no thumbnail for " << Display(path)
                << "\n";
            return kExitNotFound;
        }
        frame = answer->frame;
    }

    if (const Status written = WritePngFile(*frame, output); !written.IsOk()) {
        err << "tessel: cannot write " << output << ": " << written.Message() << "\n";
        return kExitNotFound;
    }
    out << output << ": " << frame->GetWidth() << "x" << frame->GetHeight();
    if (!providerID.empty()) out << " from " << Display(providerID);
    out << "\n";
    return kExitOk;
}

}  // namespace

int RunThumbnail(const CommandOptions& options, std::ostream& out, std::ostream& err) {
    const auto size = ParseThumbnailSize(options.size);
    if (!size) {
        err << "tessel: --size expects WIDTHxHEIGHT (each 0 to 16384, 0 keeps the image's own), "
               "not '"
            << options.size << "'\n";
        return kExitUsage;
    }
    if (options.paths.size() == 1) {
        return WriteThumbnail(options.paths.front(), options.output, *size, options, out, err);
    }
    // Several items: -o names a folder, and each picture is named after its item.
    if (!Path::DirectoryExists(Utf8ToUtf16(options.output))) {
        err << "tessel: with several items, -o must name an existing folder, not '"
            << options.output << "'\n";
        return kExitUsage;
    }
    int status = kExitOk;
    for (const std::string& argument : options.paths) {
        if (InterruptRequested()) return ReportInterrupted(err);
        const std::string leaf = Utf16ToUtf8(Path::LeafDisplayString(NormalizeLocation(argument)));
        const std::string output = options.output + "/" + (leaf.empty() ? "item" : leaf) + ".png";
        const int one = WriteThumbnail(argument, output, *size, options, out, err);
        if (one == kExitInterrupted || one == kExitUsage) return one;
        status = std::max(status, one);
    }
    return status;
}

}  // namespace Tessel::Tool
