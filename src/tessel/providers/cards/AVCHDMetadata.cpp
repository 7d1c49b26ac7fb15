#include <tessel/providers/cards/AVCHDMetadata.h>

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include <tessel/foundation/Unicode.h>
#include <tessel/metadata/Timecode.h>
#include <tessel/providers/cards/AVCHDUtils.h>

namespace Tessel {

namespace {

// A window on a file's bytes. Offsets are relative to the window; every read is checked, and a
// read outside answers 0 (callers test Has first where the difference matters).
class Bytes {
public:
    Bytes() = default;
    explicit Bytes(std::span<const std::uint8_t> bytes) : mBytes(bytes) {}

    std::uint64_t Size() const { return mBytes.size(); }
    bool Has(std::uint64_t offset, std::uint64_t count) const {
        return offset <= mBytes.size() && count <= mBytes.size() - offset;
    }
    std::uint32_t Get(std::uint64_t offset, int count) const {
        if (!Has(offset, static_cast<std::uint64_t>(count)))
            return 0;
        std::uint32_t value = 0;
        for (int i = 0; i < count; ++i)
            value =
                value << 8 | mBytes[static_cast<std::size_t>(offset) + static_cast<std::size_t>(i)];
        return value;
    }
    std::uint32_t U8(std::uint64_t offset) const { return Get(offset, 1); }
    std::uint32_t U16(std::uint64_t offset) const { return Get(offset, 2); }
    std::uint32_t U32(std::uint64_t offset) const { return Get(offset, 4); }
    bool Text(std::uint64_t offset, std::string_view text) const {
        if (!Has(offset, text.size()))
            return false;
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (mBytes[static_cast<std::size_t>(offset) + i] != static_cast<std::uint8_t>(text[i]))
                return false;
        }
        return true;
    }
    // The COUNT bytes at OFFSET, or an empty window when they are not all inside.
    Bytes Window(std::uint64_t offset, std::uint64_t count) const {
        return Has(offset, count) ? Bytes(mBytes.subspan(static_cast<std::size_t>(offset),
                                                         static_cast<std::size_t>(count)))
                                  : Bytes();
    }
    // From OFFSET to the end (empty when OFFSET is outside).
    Bytes From(std::uint64_t offset) const {
        return offset <= Size() ? Window(offset, Size() - offset) : Bytes();
    }
    std::span<const std::uint8_t> Span() const { return mBytes; }

private:
    std::span<const std::uint8_t> mBytes;
};

constexpr std::uint16_t kAVCHDExtensionID = 0x1000;
constexpr std::uint16_t kPanasonic = 0x0103;
constexpr std::uint16_t kSony = 0x0108;
constexpr std::uint16_t kCanon = 0x1011;
constexpr int kEntryMark = 1;
constexpr std::size_t kMarkSize = 14;
constexpr std::size_t kMarkExtensionSize = 66;
constexpr AVCHDTimecode kNoTimecode = {0xFF, 0xFF, 0xFF, 0xFF};
constexpr std::uint8_t kDropFrameFlag = 0x40;
// Character set codes of the names: UTF-16 big-endian; everything else is read as UTF-8.
constexpr std::uint32_t kUTF16Names = 0x02;

// The block of the AVCHD entry of an ExtensionData at OFFSET (0: none), bounded by the
// ExtensionData's own length.
Bytes AVCHDExtension(const Bytes& file, std::uint64_t offset, std::string_view type) {
    if (offset == 0 || !file.Has(offset, 12))
        return {};
    const Bytes extension = file.Window(offset, std::uint64_t{file.U32(offset)} + 4);
    const std::uint32_t entries = extension.U8(11);
    for (std::uint32_t i = 0; i < entries; ++i) {
        const std::uint64_t entry = 12 + std::uint64_t{i} * 12;
        if (!extension.Has(entry, 12))
            break;
        if (extension.U16(entry) != kAVCHDExtensionID)
            continue;
        const Bytes block = extension.Window(extension.U32(entry + 4), extension.U32(entry + 8));
        return block.Text(0, type) ? block : Bytes();
    }
    return {};
}

std::optional<AVCHDTimecode> TimecodeAt(const Bytes& bytes, std::uint64_t offset) {
    if (!bytes.Has(offset, 4))
        return std::nullopt;
    AVCHDTimecode timecode{};
    for (std::size_t i = 0; i < timecode.size(); ++i)
        timecode[i] = static_cast<std::uint8_t>(bytes.U8(offset + i));
    if (timecode == kNoTimecode)
        return std::nullopt;
    return timecode;
}

// Two BCD digits; -1 when either is not a decimal digit.
int Bcd(std::uint32_t byte) {
    return (byte >> 4) > 9 || (byte & 0xF) > 9 ? -1
                                               : static_cast<int>((byte >> 4) * 10 + (byte & 0xF));
}

// A BCD date and time, YYYY MM DD hh mm ss, as "2015-07-04 18:30:00"; empty when it is none.
std::string DateAt(const Bytes& bytes, std::uint64_t offset) {
    if (!bytes.Has(offset, 7))
        return {};
    std::array<int, 7> parts{};
    for (std::size_t i = 0; i < parts.size(); ++i) {
        parts[i] = Bcd(bytes.U8(offset + i));
        if (parts[i] < 0)
            return {};
    }
    const auto& [century, year, month, day, hour, minute, second] = parts;
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 59)
        return {};
    return fmt::format("{:02}{:02}-{:02}-{:02} {:02}:{:02}:{:02}", century, year, month, day, hour,
                       minute, second);
}

// A name of at most CAPACITY bytes whose length is at LENGTH_OFFSET and character set just
// before it, the text following.
std::string NameAt(const Bytes& bytes, std::uint64_t lengthOffset, std::uint32_t capacity) {
    if (!bytes.Has(lengthOffset - 1, 2 + std::uint64_t{capacity}))
        return {};
    const std::uint32_t characterSet = bytes.U8(lengthOffset - 1);
    std::uint32_t length = bytes.U8(lengthOffset);
    const std::span<const std::uint8_t> text =
        bytes.Span().subspan(static_cast<std::size_t>(lengthOffset + 1), capacity);
    std::string name;
    if (characterSet == kUTF16Names) {
        std::u16string wide;
        length = std::min(length, capacity / 2);
        for (std::uint32_t i = 0; i < length; ++i)
            wide.push_back(static_cast<char16_t>(text[2 * i] << 8 | text[2 * i + 1]));
        name = Utf16ToDisplayUtf8(wide);
    } else {
        length = std::min(length, capacity);
        name = ToDisplayUtf8(std::string(reinterpret_cast<const char*>(text.data()), length));
    }
    name.resize(std::min(name.size(), name.find('\0')));
    while (!name.empty() && name.back() == ' ')
        name.pop_back();
    return name;
}

// Panasonic's blocks of one entry mark (from its global clip ID on), after the mark type.
void ReadPanasonicMark(const Bytes& mark, AVCHDMark& into) {
    into.makerTimecode = TimecodeAt(mark, 33);
    for (std::uint64_t at = 52; mark.Has(at, 4);) {
        const Bytes block = mark.Window(at + 4, mark.U16(at + 2));
        switch (mark.U8(at)) {
            case 0x20:
                if (block.Has(0, 1))
                    into.good = block.U8(0) != 0;
                break;
            case 0x21:
                into.creator = NameAt(block, 1, 32);
                break;
            case 0x22:
                into.serialNumber = NameAt(block, 5, 24);
                break;
            case 0x23:
                into.shootDate = DateAt(block, 35);
                break;
            case 0x24:
                into.location = NameAt(block, 42, 64);
                break;
            default:
                break;
        }
        at += 4 + std::uint64_t{mark.U16(at + 2)};
    }
}

// The Panasonic tagged blocks at DATA: the clip's (0xE2) into CLIP, the marks' (0xF0) into
// MARKS.
void ReadPanasonicBlocks(const Bytes& data, AVCHDClipInfo* clip, std::vector<AVCHDMark>* marks) {
    const std::uint32_t count = data.U16(0);
    std::uint64_t at = 4;
    for (std::uint32_t i = 0; i < count && data.Has(at, 4); ++i) {
        const std::uint32_t tag = data.U8(at);
        if (tag == 0xE0 || tag == 0xE2) {
            const Bytes block = data.Window(at + 4, data.U16(at + 2));
            if (tag == 0xE2 && clip && block.Has(0, 32)) {
                // In upper case, as cameras show a global clip ID.
                clip->globalClipID =
                    BytesToHex(std::string(reinterpret_cast<const char*>(block.Span().data()), 32));
                for (char& c : clip->globalClipID)
                    c = c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c;
                clip->startTimecode = TimecodeAt(block, 32);
            }
            at += 4 + std::uint64_t{data.U16(at + 2)};
        } else if (tag == 0xF0) {
            const Bytes list = data.Window(at + 8, data.U32(at + 4));
            std::uint64_t mark = 4;
            for (std::uint32_t m = 0; m < list.U16(0) && list.Has(mark, 4); ++m) {
                const Bytes body = list.Window(mark + 4, list.U16(mark + 2));
                if (marks && m < marks->size() && list.U8(mark) == 0x40 && body.U8(0) == kEntryMark)
                    ReadPanasonicMark(body, (*marks)[m]);
                mark += 4 + std::uint64_t{list.U16(mark + 2)};
            }
            at += 8 + std::uint64_t{data.U32(at + 4)};
        } else {
            return;  // a block whose size is not known ends the walk
        }
    }
}

// The maker's private data whose table is at OFFSET in BLOCK (0: none).
void ReadMakersPrivateData(const Bytes& block, std::uint64_t offset, AVCHDClipInfo* clip,
                           std::vector<AVCHDMark>* marks) {
    if (offset == 0 || !block.Has(offset, 12))
        return;
    const Bytes table = block.Window(offset, std::uint64_t{block.U32(offset)} + 4);
    for (std::uint32_t i = 0; i < table.U8(11); ++i) {
        const std::uint64_t entry = 12 + std::uint64_t{i} * 12;
        if (!table.Has(entry, 12))
            return;
        if (table.U16(entry) == kPanasonic)
            ReadPanasonicBlocks(table.Window(table.U32(entry + 4), table.U32(entry + 8)), clip,
                                marks);
    }
}

class PlayItemCollector final : public AVCHDUtils::PlayItemVisitor {
public:
    explicit PlayItemCollector(std::vector<AVCHDPlaylistInfo::Item>* items) : mItems(items) {}
    bool Visit(std::span<const std::uint8_t> item) override {
        AVCHDPlaylistInfo::Item& read = mItems->emplace_back();
        read.clip = AVCHDUtils::PlayItemClipName(item);
        read.connection = AVCHDUtils::PlayItemConnection(item);
        const Bytes bytes(item);
        read.timed = bytes.Has(14, 8);
        read.inTime = bytes.U32(14);
        read.outTime = bytes.U32(18);
        return true;
    }

private:
    std::vector<AVCHDPlaylistInfo::Item>* mItems;
};

std::string FrameRateText(int format, int rate, int pulldown) {
    const bool interlaced = format == 1 || format == 2 || format == 4;
    const bool twoTwo = pulldown == 1, twoThree = pulldown == 2;
    switch (rate) {
        case 1:
            return "23.98p";
        case 2:
            return "24p";
        case 3:
            return interlaced && !twoTwo ? "50i" : "25p";
        case 4:
            if (!interlaced || twoTwo)
                return "29.97p";
            return twoThree ? "23.98p" : "59.94i";
        case 6:
            return twoTwo ? "25p" : "50p";
        case 7:
            if (twoTwo)
                return "29.97p";
            return twoThree ? "23.98p" : "59.94p";
        default:
            return {};
    }
}

std::string FrameSizeText(int format) {
    switch (format) {
        case 1:
        case 3:
            return "720 x 480";
        case 2:
        case 7:
            return "720 x 576";
        case 4:
        case 6:
            return "1920 x 1080";
        case 5:
            return "1280 x 720";
        default:
            return {};
    }
}

std::string TimecodeText(const AVCHDTimecode& timecode, const std::optional<FrameRate>& rate) {
    constexpr std::array<std::uint32_t, 4> kDigitMasks = {0x3F, 0x7F, 0x7F, 0x3F};
    constexpr std::array<int, 4> kLimits = {60, 60, 60, 24};  // frames, seconds, minutes, hours
    std::array<int, 4> parts{};
    for (std::size_t i = 0; i < parts.size(); ++i) {
        parts[i] = Bcd(timecode[i] & kDigitMasks[i]);
        if (parts[i] < 0 || parts[i] >= kLimits[i])
            return {};
    }
    const bool dropFlag = (timecode[0] & kDropFrameFlag) != 0;
    const bool dropFrame = rate ? dropFlag && rate->dropFrame : dropFlag;
    return fmt::format("{:02}:{:02}:{:02}{}{:02}", parts[3], parts[2], parts[1],
                       dropFrame ? ';' : ':', parts[0]);
}

std::string MakerText(std::uint16_t maker) {
    switch (maker) {
        case kPanasonic:
            return "Panasonic";
        case kSony:
            return "Sony";
        case kCanon:
            return "Canon";
        default:
            return fmt::format("0x{:04X}", maker);
    }
}

void SetText(SDKPropertyMap& values, const char* field, const std::string& text) {
    if (!text.empty() && !values.count(field))
        values[field] = Utf8ToUtf16(text);
}

}  // namespace

bool ReadAVCHDClipInfo(std::span<const std::uint8_t> bytes, AVCHDClipInfo& info) {
    info = AVCHDClipInfo();
    const Bytes file(bytes);
    if (!file.Text(0, "HDMV") || !file.Has(0, 40) ||
        !(file.Text(4, "0100") || file.Text(4, "0200") || file.Text(4, "0300")))
        return false;
    // The first program sequence: its streams, each a PID and a coding info of its own length.
    const Bytes program = file.From(file.U32(12));
    const Bytes programInfo = program.Window(0, std::uint64_t{program.U32(0)} + 4);
    if (programInfo.U8(5) > 0) {
        // Reserved, the count of sequences, the first one's start and map PID, its streams.
        std::uint64_t at = 14;
        for (std::uint32_t i = 0; i < programInfo.U8(12) && programInfo.Has(at, 3); ++i) {
            const Bytes coding = programInfo.Window(at + 3, programInfo.U8(at + 2));
            const std::uint32_t type = coding.U8(0);
            const bool video = type == 0x02 || type == 0x1B || type == 0xEA || type == 0x24;
            const bool audio = (type >= 0x80 && type <= 0x86) || type == 0xA1 || type == 0xA2;
            if (video && info.videoFormat == 0 && coding.Has(1, 1)) {
                info.videoFormat = static_cast<int>(coding.U8(1) >> 4);
                info.videoRate = static_cast<int>(coding.U8(1) & 0xF);
            } else if (audio && info.audioPresentation == 0 && coding.Has(1, 1)) {
                info.audioPresentation = static_cast<int>(coding.U8(1) >> 4);
                info.audioSampling = static_cast<int>(coding.U8(1) & 0xF);
            }
            at += 3 + std::uint64_t{programInfo.U8(at + 2)};
        }
    }
    const Bytes clex = AVCHDExtension(file, file.U32(24), "CLEX");
    if (clex.Has(44, 4)) {
        info.makerID = static_cast<std::uint16_t>(clex.U16(44));
        info.modelCode = static_cast<std::uint16_t>(clex.U16(46));
    }
    ReadMakersPrivateData(clex, clex.U32(12), &info, nullptr);
    return true;
}

bool ReadAVCHDPlaylistInfo(std::span<const std::uint8_t> bytes, AVCHDPlaylistInfo& info) {
    info = AVCHDPlaylistInfo();
    const Bytes file(bytes);
    if (!file.Text(0, "MPLS") || !file.Text(4, "0100") || !file.Has(0, 20))
        return false;
    PlayItemCollector collector(&info.items);
    AVCHDUtils::VisitPlayItemsInBytes(bytes, collector);

    // Lists: a 32-bit length of what follows, a 16-bit count, the entries.
    const auto list = [](const Bytes& bytes, std::uint32_t offset) {
        const Bytes at = offset == 0 ? Bytes() : bytes.From(offset);
        const std::uint64_t length = at.U32(0);
        return std::make_pair(at.Window(6, length - std::min<std::uint64_t>(length, 2)), at.U16(4));
    };
    const auto [marks, markCount] = list(file, file.U32(12));
    for (std::uint32_t i = 0; i < markCount && marks.Has(std::uint64_t{i} * kMarkSize, kMarkSize);
         ++i) {
        AVCHDMark& mark = info.marks.emplace_back();
        mark.type = static_cast<int>(marks.U8(i * kMarkSize + 1));
        mark.playItem = marks.U16(i * kMarkSize + 2);
    }

    const Bytes plex = AVCHDExtension(file, file.U32(16), "PLEX");
    const auto [records, recordCount] = list(plex, plex.U32(8));
    for (std::size_t i = 0; i < info.marks.size() && i < recordCount; ++i) {
        const Bytes record = records.Window(i * kMarkExtensionSize, kMarkExtensionSize);
        if (!record.Has(0, kMarkExtensionSize))
            break;
        AVCHDMark& mark = info.marks[i];
        mark.extended = true;
        mark.makerID = static_cast<std::uint16_t>(record.U16(0));
        mark.modelCode = static_cast<std::uint16_t>(record.U16(2));
        mark.pulldown = static_cast<int>(record.U8(7) >> 1 & 0x3);
        mark.recorded = DateAt(record, 11);
        mark.name = NameAt(record, 19, 24);
        mark.timecode = TimecodeAt(record, 60);
    }
    ReadMakersPrivateData(plex, plex.U32(12), nullptr, &info.marks);
    return true;
}

SDKPropertyMap AVCHDShotValues(const AVCHDPlaylistInfo* playlist, std::size_t head,
                               const AVCHDClipInfo* clip) {
    SDKPropertyMap values;
    const AVCHDMark* mark = nullptr;
    // The shot's length in 45 kHz ticks; unknown when a PlayItem has no usable times.
    std::uint64_t ticks = 0;
    bool ticksKnown = false;
    if (playlist && head < playlist->items.size()) {
        for (const AVCHDMark& candidate : playlist->marks) {
            if (candidate.type == kEntryMark && candidate.playItem == head) {
                mark = &candidate;
                break;
            }
        }
        for (std::size_t i = head; i < playlist->items.size(); ++i) {
            const AVCHDPlaylistInfo::Item& item = playlist->items[i];
            if (i > head && item.connection != AVCHDUtils::kSeamlessConnection)
                break;
            if (!item.timed || item.outTime < item.inTime) {
                ticksKnown = false;
                break;
            }
            ticks += item.outTime - item.inTime;
            ticksKnown = true;
        }
    }
    const std::string rateText =
        clip ? FrameRateText(clip->videoFormat, clip->videoRate, mark ? mark->pulldown : 0) : "";
    std::optional<AVCHDTimecode> start;
    if (mark)
        start = mark->timecode ? mark->timecode : mark->makerTimecode;
    if (!start && clip)
        start = clip->startTimecode;
    const bool dropFlag = start && ((*start)[0] & kDropFrameFlag) != 0;
    const std::optional<FrameRate> rate = ParseFrameRate(rateText, dropFlag);

    if (ticksKnown) {
        constexpr double kClock = 45000.0;
        const double seconds = static_cast<double>(ticks) / kClock;
        SetText(values, "duration",
                rate ? FormatTimecode(std::llround(seconds * rate->FramesPerSecond()), *rate)
                     : FormatClockTime(seconds));
    }
    if (start)
        SetText(values, "startTimecode", TimecodeText(*start, rate));
    SetText(values, "videoFrameRate", rateText);
    if (clip) {
        SetText(values, "videoFrameSize", FrameSizeText(clip->videoFormat));
        const int channels = clip->audioPresentation;
        SetText(values, "audioChannelType",
                channels == 1   ? "Mono"
                : channels == 3 ? "Stereo"
                : channels == 6 ? "5.1"
                                : "");
        const int sampling = clip->audioSampling;
        SetText(values, "audioSampleRate",
                sampling == 1   ? "48000"
                : sampling == 4 ? "96000"
                : sampling == 5 ? "192000"
                                : "");
        SetText(values, "identifier", clip->globalClipID);
    }
    std::uint16_t maker = clip ? clip->makerID : 0;
    std::uint16_t model = clip ? clip->modelCode : 0;
    if (maker == 0 && mark && mark->extended)
        maker = mark->makerID, model = mark->modelCode;
    if (maker != 0) {
        SetText(values, "Make", MakerText(maker));
        SetText(values, "Model", fmt::format("0x{:04X}", model));
    }
    if (mark) {
        SetText(values, "shotDate", mark->recorded.empty() ? mark->shootDate : mark->recorded);
        SetText(values, "shotName", mark->name);
        SetText(values, "creator", mark->creator);
        SetText(values, "SerialNumber", mark->serialNumber);
        SetText(values, "shotLocation", mark->location);
        if (mark->good)
            values["good"] = *mark->good;
    }
    return values;
}

}  // namespace Tessel
