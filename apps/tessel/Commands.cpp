#include "Commands.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <set>

#include <nlohmann/json.hpp>

#include <tessel/foundation/Directory.h>
#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/platform/Terminal.h>

#include "Format.h"
#include "Interrupt.h"
#include "Requests.h"

namespace Tessel::Tool {

namespace {

constexpr int kExitOk = 0;
constexpr int kExitNotFound = 1;
constexpr int kExitUsage = 2;
constexpr int kExitInterrupted = 3;

std::string Display(const std::u16string& text) {
    return Utf16ToDisplayUtf8(text);
}

std::string DumpJson(const nlohmann::ordered_json& doc) {
    return doc.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

bool IsFileSystemLocation(const std::u16string& path) {
    return !path.empty() && path.back() != u':' && path.find(u"://") == std::u16string::npos;
}

}  // namespace

int ReportNoProvider(const std::u16string& path, std::ostream& err) {
    namespace fs = std::filesystem;
    std::error_code error;
    // A status only: a FIFO or a device is never opened.
    const fs::file_type kind = IsFileSystemLocation(path)
                                   ? fs::status(fs::path(Path::ToNative(path)), error).type()
                                   : fs::file_type::unknown;
    if (path.empty()) {
        err << "tessel: an empty path names no location\n";
    } else if (kind == fs::file_type::not_found) {
        err << "tessel: " << Display(path) << ": no such file or folder\n";
    } else if (kind == fs::file_type::regular) {
        err << "tessel: " << Display(path) << " is a file, not a folder\n";
    } else if (kind == fs::file_type::fifo || kind == fs::file_type::socket ||
               kind == fs::file_type::block || kind == fs::file_type::character) {
        err << "tessel: " << Display(path) << " is a device, FIFO or socket, not a folder\n";
    } else {
        err << "tessel: no provider can show " << Display(path) << "\n";
    }
    return kExitNotFound;
}

int ReportInterrupted(std::ostream& err) {
    err << "tessel: interrupted\n";
    return kExitInterrupted;
}

namespace {

// Why a listing failed, when it did: "tessel: cannot read /x: Permission denied".
int ReportUnreadable(const Status& why, std::ostream& err) {
    err << "tessel: " << ToDisplayUtf8(why.Message()) << "\n";
    return kExitNotFound;
}

}  // namespace

ProviderWrapper* ChooseProvider(const std::u16string& path, const std::string& id,
                                std::ostream& err, int& status) {
    ProviderWrapper* named = nullptr;
    if (!id.empty()) {
        named = ProviderHost::FindProvider(Utf8ToUtf16(id));
        if (!named) {
            err << "tessel: no provider is called '" << id << "' (see 'tessel providers --all')\n";
            status = kExitUsage;
            return nullptr;
        }
    }
    std::optional<GetProviderListMessage> answer;
    if (!path.empty())
        answer = RunProviderList(path);
    if (answer && answer->result == kResultAborted) {
        status = ReportInterrupted(err);
        return nullptr;
    }
    if (!answer || answer->providers.empty()) {
        status = ReportNoProvider(path, err);
        return nullptr;
    }
    if (!named)
        return answer->providers.front();
    // A host asks only a provider that claims the path; so does the tool.
    const auto& ranked = answer->providers;
    if (std::find(ranked.begin(), ranked.end(), named) == ranked.end()) {
        err << "tessel: " << id << " cannot show " << Display(path) << " (see 'tessel providers "
            << Display(path) << "')\n";
        status = kExitNotFound;
        return nullptr;
    }
    return named;
}

namespace {

std::vector<std::string> SplitFields(const std::string& list) {
    std::vector<std::string> fields;
    std::size_t start = 0;
    while (start <= list.size()) {
        std::size_t comma = list.find(',', start);
        if (comma == std::string::npos)
            comma = list.size();
        std::string field = list.substr(start, comma - start);
        while (!field.empty() && field.front() == ' ')
            field.erase(field.begin());
        while (!field.empty() && field.back() == ' ')
            field.pop_back();
        if (!field.empty())
            fields.push_back(field);
        start = comma + 1;
    }
    return fields;
}

// The label the tool shows for FIELD (its key when the provider gives none).
std::string FieldLabel(const std::map<std::u16string, std::u16string>& labels,
                       const std::u16string& field) {
    auto label = labels.find(field);
    if (label == labels.end() && field == kExtraPathField)
        return "Related Files";  // a provider's list of the files of an item
    return label != labels.end() ? Localize(Display(label->second)) : Display(field);
}

// The columns to show, in order: the provider's defaults, all its fields (defaults first),
// or the caller's list of labels as the tool shows them (in any case) or field keys. An
// unknown name is a usage error that lists the names there are.
std::optional<std::vector<std::u16string>> ChooseFields(const ProviderWrapper& wrapper,
                                                        const std::optional<std::string>& fields,
                                                        std::ostream& err) {
    std::vector<std::u16string> chosen = wrapper.GetDefaultFieldList();
    const FieldSet known = wrapper.GetFieldList();
    if (!fields || *fields == "all") {
        if (fields) {
            for (const auto& field : known) {
                if (std::find(chosen.begin(), chosen.end(), field) == chosen.end())
                    chosen.push_back(field);
            }
        }
        if (chosen.empty())
            chosen.push_back(kNameField);
        return chosen;
    }
    const auto labels = wrapper.GetFieldLabelList();
    std::vector<std::u16string> all = chosen;
    for (const auto& field : known) {
        if (std::find(all.begin(), all.end(), field) == all.end())
            all.push_back(field);
    }
    const auto find = [&](const std::string& name) -> std::optional<std::u16string> {
        const std::string wanted = AsciiLower(name);
        for (const auto& field : all) {
            if (AsciiLower(FieldLabel(labels, field)) == wanted)
                return field;
        }
        for (const auto& field : all) {
            if (AsciiLower(Display(field)) == wanted)
                return field;
        }
        return std::nullopt;
    };
    chosen.clear();
    const std::vector<std::string> names = SplitFields(*fields);
    for (const std::string& name : names) {
        if (auto field = find(name)) {
            chosen.push_back(*field);
            continue;
        }
        err << "tessel: " << Display(wrapper.GetIdentification()) << " has no field '" << name
            << "'; its fields are:";
        for (const auto& field : all) {
            const std::string label = FieldLabel(labels, field);
            err << "\n  " << label;
            if (label != Display(field))
                err << " (" << Display(field) << ")";
        }
        err << "\n";
        return std::nullopt;
    }
    if (chosen.empty()) {
        err << "tessel: --fields needs 'all' or at least one field name\n";
        return std::nullopt;
    }
    return chosen;
}

// Shows "Listing... 42%" on a terminal while a long listing runs.
class ProgressLine {
public:
    explicit ProgressLine(ProviderWrapper& wrapper) : mWrapper(wrapper) {
        if (!Platform::StandardErrorIsTerminal())
            return;
        mActive = true;
        mWrapper.SetGetContentProgressCallback(
            std::make_shared<ContentProgressCallback>([](const std::u16string&, double progress) {
                std::fprintf(stderr, "\rListing... %3d%%", static_cast<int>(progress * 100));
                std::fflush(stderr);
            }));
    }
    ~ProgressLine() {
        if (!mActive)
            return;
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

// A provider answers a folder it cannot read with an empty listing, as the system's API has
// it; the tool reads the folder itself through the same directory walk to learn why.
Status CheckFolderReadable(const std::u16string& path) {
    if (!IsFileSystemLocation(path) || Path::FileExists(path))
        return Status::Ok();
    std::vector<std::u16string> files;
    std::vector<Directory> directories;
    return Directory(path).GetContainedFileAndDirectoryPaths(files, directories,
                                                             [] { return InterruptRequested(); });
}

std::u16string NormalizeLocation(const std::string& argument) {
    std::u16string path = Utf8ToUtf16(argument);
    if (path.empty())
        return path;
    if (path.find(u"://") != std::u16string::npos)
        return path;  // scheme paths
    if (path.back() == u':' && path.find(u'/') == std::u16string::npos &&
        path.find(u'\\') == std::u16string::npos && path.size() > 2) {
        return path;  // list paths ("volumes:"); "C:" is a drive, not a list
    }
    if (path.rfind(u"\\\\?\\", 0) == 0)
        return path;  // long-path forms
    // Windows: "C:\x" and "\\server\share" in the long-path form the library takes.
    return Path::ToLongPath(Path::MakeAbsolute(path));
}

namespace {

// Fields the tool knows across providers: the folder provider's size and last-write columns,
// and the dates of the card providers' metadata, in the order a date is looked for.
const std::u16string kSizeField = u"26";
const std::u16string kDateFields[] = {u"21", u"ModifyDate", kCreationDateField, u"CreateDate"};

const any_regular_t* FindValue(const PropertyMap& record, const std::u16string& field) {
    auto it = record.find(field);
    return it != record.end() ? &it->second : nullptr;
}

// A text value as the host's string, whichever string type the provider used; else empty.
std::u16string TextOf(const any_regular_t& value) {
    if (const auto* wide = value.get_if<std::u16string>())
        return *wide;
    if (const auto* narrow = value.get_if<std::string>())
        return Utf8ToUtf16(*narrow);
    return {};
}

// Finds the values of the fields of a listing's columns in one walk of each record (records
// are ordered by field, as the columns, sorted, are).
class ColumnValues {
public:
    explicit ColumnValues(const std::vector<std::u16string>& fields) {
        for (std::size_t i = 0; i < fields.size(); ++i)
            mSorted.emplace_back(&fields[i], i);
        std::sort(mSorted.begin(), mSorted.end(),
                  [](const auto& a, const auto& b) { return *a.first < *b.first; });
    }
    // The value of each column in RECORD, null where it has none.
    const std::vector<const any_regular_t*>& Of(const PropertyMap& record) {
        mValues.assign(mSorted.size(), nullptr);
        auto it = record.begin();
        for (const auto& [field, column] : mSorted) {
            while (it != record.end() && it->first < *field)
                ++it;
            if (it == record.end())
                break;
            if (it->first == *field)
                mValues[column] = &it->second;
        }
        return mValues;
    }

private:
    std::vector<std::pair<const std::u16string*, std::size_t>> mSorted;
    std::vector<const any_regular_t*> mValues;
};

const any_regular_t* FindDate(const PropertyMap& record) {
    for (const auto& field : kDateFields) {
        if (const any_regular_t* value = FindValue(record, field))
            return value;
    }
    return nullptr;
}

std::string ItemName(const ContentMap::value_type& entry) {
    const any_regular_t* name = FindValue(entry.second, kNameField);
    std::string text = name ? ValueToText(*name) : std::string();
    return text.empty() ? Display(Path::LeafDisplayString(entry.first)) : text;
}

// The entries in the order STYLE asks for: by name (letter case aside), newest first, or
// largest first, as ls sorts them; ties and values that are missing keep the answer's order.
std::vector<const ContentMap::value_type*> SortedEntries(const ContentMap& content,
                                                         const ListingStyle& style) {
    std::vector<const ContentMap::value_type*> entries;
    entries.reserve(content.size());
    for (const auto& entry : content)
        entries.push_back(&entry);
    if (style.sortBy == "name") {
        std::vector<std::pair<std::string, const ContentMap::value_type*>> named;
        named.reserve(entries.size());
        for (const auto* entry : entries)
            named.emplace_back(AsciiLower(ItemName(*entry)), entry);
        std::stable_sort(named.begin(), named.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        for (std::size_t i = 0; i < named.size(); ++i)
            entries[i] = named[i].second;
    } else if (style.sortBy == "date" || style.sortBy == "size") {
        const bool bySize = style.sortBy == "size";
        const auto value = [&](const ContentMap::value_type* entry) -> const any_regular_t* {
            return bySize ? FindValue(entry->second, kSizeField) : FindDate(entry->second);
        };
        std::stable_sort(entries.begin(), entries.end(), [&](const auto* a, const auto* b) {
            const any_regular_t* x = value(a);
            const any_regular_t* y = value(b);
            if (!x || !y)
                return x && !y;
            return CompareValues(*x, *y) > 0;
        });
    }
    if (style.reverse)
        std::reverse(entries.begin(), entries.end());
    return entries;
}

// A date as a long listing shows it: to the second.
std::string ShortDate(const any_regular_t* value) {
    if (!value)
        return {};
    std::string text = ValueToText(*value);
    const std::size_t dot = text.find('.', 17);
    if (text.size() > 19 && text[4] == '-' && dot == 19)
        text.resize(19);
    return text;
}

std::string SizeText(const any_regular_t* value, bool human) {
    if (!value)
        return {};
    if (const auto* size = value->get_if<Provider::ByteSize_t>())
        return human ? HumanSize(size->GetCount()) : std::to_string(size->GetCount());
    return ValueToText(*value);
}

}  // namespace

std::vector<std::u16string> ListingStyleFields(const ListingStyle& style,
                                               const FieldSet& providerFields) {
    std::vector<std::u16string> wanted;
    const auto add = [&](const std::u16string& field) {
        if (providerFields.count(field) &&
            std::find(wanted.begin(), wanted.end(), field) == wanted.end())
            wanted.push_back(field);
    };
    if (style.longListing || style.sortBy == "name")
        add(kNameField);
    if (style.longListing)
        add(kDirectoryFlagField);
    if (style.longListing || style.sortBy == "size")
        add(kSizeField);
    if (style.longListing || style.sortBy == "date") {
        for (const auto& field : kDateFields) {
            if (providerFields.count(field)) {
                add(field);
                break;
            }
        }
    }
    return wanted;
}

std::string ItemKind(const std::u16string& providerID, const PropertyMap& record) {
    // The folder flag is a boolean, or the folder provider's "D" column (empty for files).
    bool folder = false;
    if (const any_regular_t* flag = FindValue(record, kDirectoryFlagField)) {
        if (const auto* set = flag->get_if<bool>())
            folder = *set;
        else if (const auto* wide = flag->get_if<std::u16string>())
            folder = !wide->empty();
        else if (const auto* narrow = flag->get_if<std::string>())
            folder = !narrow->empty();
    }
    const std::string id = Utf16ToUtf8(providerID);
    const auto is = [&](const char* className) {
        return id == kProviderIDPrefix + std::string(className);
    };
    if (is("WinProviderVolume") || is("WinProviderNetworkVolume"))
        return "volume";
    if (folder || is("ProviderFavorites") || is("ProviderCloudSync"))
        return "folder";
    return id == kProviderDirectoryID ? "file" : "item";
}

int PrintListing(const std::u16string& path, const std::u16string& providerID, ResultCode code,
                 const ContentMap& content, const std::vector<std::u16string>& fields,
                 const std::map<std::u16string, std::u16string>& labels, const ListingStyle& style,
                 std::ostream& out, std::ostream& err) {
    if (code == kResultAborted)
        return ReportInterrupted(err);
    if (code == kResultFailed) {
        err << "tessel: " << Display(providerID) << " failed while listing " << Display(path)
            << " (--trace Requests says why)\n";
        return kExitNotFound;
    }
    if (content.empty()) {
        if (Status why = CheckFolderReadable(path); !why.IsOk())
            return ReportUnreadable(why, err);
    }
    const std::vector<const ContentMap::value_type*> entries = SortedEntries(content, style);
    if (style.json) {
        // Written item by item, so that a listing of a hundred thousand items is never held
        // a second time as one JSON document.
        nlohmann::ordered_json head;
        head["path"] = Display(path);
        head["provider"] = Display(providerID);
        head["code"] = code;
        nlohmann::ordered_json columns = nlohmann::ordered_json::array();
        for (const auto& field : fields)
            columns.push_back({{"key", Display(field)}, {"label", FieldLabel(labels, field)}});
        head["columns"] = std::move(columns);
        head["items"] = nlohmann::ordered_json::array();
        std::string text = DumpJson(head);
        if (entries.empty()) {
            out << text << "\n";
            return kExitOk;
        }
        text.resize(text.size() - 4);  // the items' "[]\n}"
        out << text << "[\n";
        std::string lines;
        ColumnValues columnValues(fields);
        std::vector<std::string> fieldNames;
        for (const auto& field : fields)
            fieldNames.push_back(Display(field));
        for (std::size_t i = 0; i < entries.size(); ++i) {
            const auto& [key, record] = *entries[i];
            nlohmann::ordered_json item;
            item["key"] = Display(key);
            // A path that is no valid text also comes as its bytes, so it can be opened.
            const std::string bytes = Utf16ToUtf8(key);
            if (bytes != item["key"].get_ref<const std::string&>())
                item["key_bytes"] = BytesToHex(bytes);
            nlohmann::ordered_json values = nlohmann::ordered_json::object();
            const auto& found = columnValues.Of(record);
            for (std::size_t c = 0; c < fields.size(); ++c) {
                if (found[c])
                    values[fieldNames[c]] = ValueToJson(*found[c]);
            }
            item["fields"] = std::move(values);
            // Indented as an element of the document's "items".
            lines.assign("    ");
            for (const char c : DumpJson(item)) {
                lines.push_back(c);
                if (c == '\n')
                    lines.append("    ");
            }
            lines.append(i + 1 < entries.size() ? ",\n" : "\n");
            out << lines;
        }
        out << "  ]\n}\n";
        return kExitOk;
    }
    const std::set<std::size_t> rightAligned =
        style.longListing ? std::set<std::size_t>{1} : std::set<std::size_t>{};
    ColumnValues columnValues(fields);
    WriteTable(
        out, entries.size() + 1,
        [&](std::size_t i, std::vector<std::string>& cells) {
            if (style.longListing && i == 0) {
                cells = {"Kind", "Size", "Date", "Name"};
            } else if (style.longListing) {
                const PropertyMap& record = entries[i - 1]->second;
                std::string kind = ItemKind(providerID, record);
                // A folder's size is that of no content: left blank, where ls shows a block
                // size.
                std::string size = kind == "folder"
                                       ? std::string()
                                       : SizeText(FindValue(record, kSizeField), style.humanSizes);
                cells = {std::move(kind), std::move(size), ShortDate(FindDate(record)),
                         ItemName(*entries[i - 1])};
            } else if (i == 0) {
                for (const auto& field : fields)
                    cells.push_back(FieldLabel(labels, field));
            } else {
                for (const any_regular_t* value : columnValues.Of(entries[i - 1]->second))
                    cells.push_back(value ? ValueToText(*value) : std::string());
            }
        },
        rightAligned);
    if (content.empty())
        err << "tessel: " << Display(path) << " is empty\n";
    return kExitOk;
}

int RunProviders(const CommandOptions& options, std::ostream& out, std::ostream& err) {
    if (options.all) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        std::vector<std::vector<std::string>> rows{{"ID", "NAME"}};
        for (const auto& wrapper : ProviderHost::GetAllProviders()) {
            if (!wrapper)
                continue;
            list.push_back({{"id", Display(wrapper->GetIdentification())},
                            {"name", Display(wrapper->GetUIString())}});
            rows.push_back(
                {Display(wrapper->GetIdentification()), Display(wrapper->GetUIString())});
        }
        if (options.json) {
            nlohmann::ordered_json doc;
            doc["providers"] = std::move(list);
            out << doc.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
                << "\n";
        } else if (rows.size() == 1) {
            err << "tessel: no providers are registered\n";
        } else {
            out << FormatTable(rows);
        }
        return kExitOk;
    }
    const std::u16string path = NormalizeLocation(options.path);
    std::optional<GetProviderListMessage> answer;
    if (!path.empty())
        answer = RunProviderList(path);
    if (answer && answer->result == kResultAborted)
        return ReportInterrupted(err);
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
    if (!wrapper)
        return status;
    const ListingStyle style{options.json, options.longListing, options.humanSizes, options.sortBy,
                             options.reverse};
    if (options.longListing && options.fields) {
        err << "tessel: --long and --fields both choose the columns; give one of them\n";
        return kExitUsage;
    }
    const FieldSet known = wrapper->GetFieldList();
    const std::vector<std::u16string> styleFields = ListingStyleFields(style, known);
    std::vector<std::u16string> fields;
    if (options.longListing) {
        fields = styleFields;
    } else {
        const auto chosen = ChooseFields(*wrapper, options.fields, err);
        if (!chosen)
            return kExitUsage;
        fields = *chosen;
    }
    // A sort may need a field that is not shown.
    FieldSet requested(fields.begin(), fields.end());
    requested.insert(styleFields.begin(), styleFields.end());
    std::optional<ProgressLine> progress(std::in_place, *wrapper);
    // A provider that could not read the folder says so through this callback (on a worker).
    auto unavailable = std::make_shared<std::atomic<bool>>(false);
    wrapper->SetGetContentUnavailableCallback(std::make_shared<ContentUnavailableCallback>(
        [unavailable](const std::u16string&) { unavailable->store(true); }));
    const bool answered = RunContent(*wrapper, path, requested, [&](const GetContentMessage& m) {
        progress.reset();  // the progress line is cleared before the listing is printed
        if (m.result != kResultAborted && m.content.empty() && unavailable->load()) {
            // Readable again by now: the folder changed while it was being read.
            Status why = CheckFolderReadable(path);
            status = ReportUnreadable(
                why.IsOk()
                    ? Status(StatusCode::kIOError, "cannot read " + Utf16ToUtf8(path) +
                                                       ": it changed while it was being read")
                    : why,
                err);
            return;
        }
        status = PrintListing(path, wrapper->GetIdentification(), m.result, m.content, fields,
                              wrapper->GetFieldLabelList(), style, out, err);
    });
    wrapper->SetGetContentUnavailableCallback(nullptr);
    if (!answered)
        return ReportNoProvider(path, err);
    return status;
}

int RunDefault(const CommandOptions& options, std::ostream& out, std::ostream& err) {
    const std::u16string path = NormalizeLocation(options.path);
    if (path.empty())
        return ReportNoProvider(path, err);
    if (!options.provider.empty()) {
        int status = kExitOk;
        if (!ChooseProvider(path, options.provider, err, status))
            return status;
    }
    auto data = std::make_shared<DefaultContentRequestData>(
        path, any_regular_t(), Utf8ToUtf16(options.provider), options.mediaOnly);
    std::optional<GetDefaultContentMessage> answer = RunDefaultContent(data);
    if (answer && answer->result == kResultAborted)
        return ReportInterrupted(err);
    if (!answer || answer->result == kResultNothingFound || !answer->wrapper) {
        return ReportNoProvider(path, err);
    }
    const std::vector<std::u16string> fields{kNameField, kPathField};
    return PrintListing(path, answer->wrapper->GetIdentification(), answer->result, answer->content,
                        fields, answer->wrapper->GetFieldLabelList(), ListingStyle{options.json},
                        out, err);
}

std::u16string ItemExtraPath(const PropertyMap& record) {
    const any_regular_t* value = FindValue(record, kExtraPathField);
    if (!value)
        return {};
    const auto* list = value->get_if<any_regular_t::array_t>();
    return TextOf(list ? (list->empty() ? any_regular_t() : list->front()) : *value);
}

std::u16string ItemPath(const std::u16string& key, const PropertyMap& record) {
    const any_regular_t* value = FindValue(record, kPathField);
    std::u16string path = value ? TextOf(*value) : std::u16string();
    return path.empty() ? key : path;
}

std::optional<ListedItem> FindListedItem(const std::u16string& path, const std::string& id,
                                         std::ostream& err, int& status) {
    const auto list = [&](ProviderWrapper* wrapper,
                          const std::u16string& container) -> std::optional<ListedItem> {
        ListedItem found{wrapper, container, *ChooseFields(*wrapper, "all", err), {}, {}};
        std::optional<GetContentMessage> listing =
            RunContent(*wrapper, container, FieldSet(found.fields.begin(), found.fields.end()));
        if (!listing || listing->result == kResultAborted) {
            status = listing ? ReportInterrupted(err) : kExitNotFound;
            return std::nullopt;
        }
        auto item = listing->content.find(path);
        if (item == listing->content.end()) {
            item = std::find_if(listing->content.begin(), listing->content.end(),
                                [&](const ContentMap::value_type& entry) {
                                    return ItemPath(entry.first, entry.second) == path;
                                });
        }
        if (item == listing->content.end())
            return std::nullopt;
        found.key = item->first;
        found.record = item->second;
        // Fields the record has beyond the provider's columns (a clip's related files) too.
        for (const auto& [field, value] : found.record) {
            if (std::find(found.fields.begin(), found.fields.end(), field) == found.fields.end())
                found.fields.push_back(field);
        }
        return found;
    };
    constexpr int kLevels = 4;  // a clip folder inside a card's clip root: BPAV/CLPR/<clip>/<file>
    std::u16string container = path;
    std::u16string folder;  // PATH's own folder
    for (int level = 0; level < kLevels; ++level) {
        const std::u16string parent = Path::GetParent(container);
        if (parent.empty() || parent == container)
            break;
        container = parent;
        if (folder.empty())
            folder = container;
        std::optional<GetProviderListMessage> ranked = RunProviderList(container);
        if (ranked && ranked->result == kResultAborted) {
            status = ReportInterrupted(err);
            return std::nullopt;
        }
        if (!ranked || ranked->providers.empty())
            continue;
        ProviderWrapper* wrapper = ranked->providers.front();
        if (!id.empty()) {
            wrapper = ProviderHost::FindProvider(Utf8ToUtf16(id));
            const auto& all = ranked->providers;
            if (!wrapper || std::find(all.begin(), all.end(), wrapper) == all.end())
                continue;
        } else if (Utf16ToUtf8(wrapper->GetIdentification()) == kProviderDirectoryID) {
            continue;
        }
        if (auto found = list(wrapper, container))
            return found;
        if (status != kExitOk)
            return std::nullopt;
    }
    if (!folder.empty() && id.empty()) {
        int ignored = kExitOk;
        if (ProviderWrapper* wrapper = ChooseProvider(folder, {}, err, ignored)) {
            if (auto found = list(wrapper, folder))
                return found;
            if (status != kExitOk)
                return std::nullopt;
        }
    }
    if (!id.empty() && !ProviderHost::FindProvider(Utf8ToUtf16(id))) {
        err << "tessel: no provider is called '" << id << "' (see 'tessel providers --all')\n";
        status = kExitUsage;
    } else if (Path::FileOrDirectoryExists(path)) {
        err << "tessel: " << (id.empty() ? std::string("no provider") : id) << " shows "
            << Display(path) << " as no item\n";
        status = kExitNotFound;
    } else {
        status = ReportNoProvider(path, err);
    }
    return std::nullopt;
}

int RunInfo(const CommandOptions& options, std::ostream& out, std::ostream& err) {
    const std::u16string path = NormalizeLocation(options.path);
    if (!IsFileSystemLocation(path)) {
        err << "tessel: info needs an item of a folder, not "
            << (path.empty() ? "an empty path" : Display(path)) << "\n";
        return kExitUsage;
    }
    int status = kExitOk;
    const std::optional<ListedItem> item = FindListedItem(path, options.provider, err, status);
    if (!item)
        return status;
    const auto labels = item->wrapper->GetFieldLabelList();
    const std::string kind = ItemKind(item->wrapper->GetIdentification(), item->record);
    if (options.json) {
        nlohmann::ordered_json doc;
        doc["path"] = Display(item->key);
        const std::string bytes = Utf16ToUtf8(item->key);
        if (bytes != Display(item->key))
            doc["key_bytes"] = BytesToHex(bytes);
        doc["container"] = Display(item->container);
        doc["provider"] = Display(item->wrapper->GetIdentification());
        doc["kind"] = kind;
        nlohmann::ordered_json columns = nlohmann::ordered_json::array();
        nlohmann::ordered_json values = nlohmann::ordered_json::object();
        for (const auto& field : item->fields) {
            columns.push_back({{"key", Display(field)}, {"label", FieldLabel(labels, field)}});
            if (const any_regular_t* value = FindValue(item->record, field))
                values[Display(field)] = ValueToJson(*value);
        }
        doc["columns"] = std::move(columns);
        doc["fields"] = std::move(values);
        out << DumpJson(doc) << "\n";
        return kExitOk;
    }
    // People are shown the fields that have a value; JSON has every field as given.
    std::vector<std::vector<std::string>> rows{{"Kind", kind},
                                               {"Provider", Display(item->wrapper->GetUIString())}};
    for (const auto& field : item->fields) {
        const any_regular_t* value = FindValue(item->record, field);
        if (!value)
            continue;
        // A list (the related files of a clip) shows an element a line.
        const auto* list = value->get_if<any_regular_t::array_t>();
        std::string label = FieldLabel(labels, field);
        for (const any_regular_t& element : list ? *list : any_regular_t::array_t{*value}) {
            if (std::string text = ValueToText(element); !text.empty())
                rows.push_back({std::exchange(label, std::string()), std::move(text)});
        }
    }
    out << FormatTable(rows);
    return kExitOk;
}

}  // namespace Tessel::Tool
