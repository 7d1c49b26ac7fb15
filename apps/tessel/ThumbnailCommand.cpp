#include "ThumbnailCommand.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <set>
#include <sstream>
#include <vector>

#include <tessel/foundation/Executor.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderWrapper.h>
#include <tessel/media/PngEncoding.h>
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

std::string Display(const std::u16string& text) {
    return Utf16ToUtf8(ToDisplayUtf16(text));
}

}  // namespace

std::optional<std::pair<std::uint32_t, std::uint32_t>> ParseThumbnailSize(const std::string& text) {
    // Larger boxes than this are no thumbnails, and would only cost memory.
    constexpr unsigned long kLargestSide = 16384;
    const std::size_t x = text.find_first_of("xX");
    if (x == std::string::npos || x == 0 || x + 1 == text.size())
        return std::nullopt;
    const auto side = [&](const std::string& digits) -> std::optional<std::uint32_t> {
        if (digits.empty() || digits.size() > 5 ||
            digits.find_first_not_of("0123456789") != std::string::npos) {
            return std::nullopt;
        }
        const unsigned long value = std::stoul(digits);
        if (value > kLargestSide)
            return std::nullopt;
        return static_cast<std::uint32_t>(value);
    };
    const auto width = side(text.substr(0, x));
    const auto height = side(text.substr(x + 1));
    if (!width || !height)
        return std::nullopt;
    return std::make_pair(*width, *height);
}

namespace {

// One thumbnail of PATH into the PNG file OUTPUT.
int WriteThumbnail(const std::string& argument, const std::string& output,
                   std::pair<std::uint32_t, std::uint32_t> size, const CommandOptions& options,
                   std::ostream& out, std::ostream& err) {
    const std::u16string path = NormalizeLocation(argument);
    if (path.empty())
        return ReportNoProvider(path, err);

    MF::IVideoFrameRef frame;
    std::u16string providerID;
    // A file item is shown as a host shows it: an image by its picture, anything else by
    // what the provider of its folder draws for it. --image asks for the picture only, and
    // --provider for that provider's answer only.
    const bool isFile = Path::FileExists(path);
    const auto draw = [&](std::uint32_t width, std::uint32_t height) -> int {
        frame = nullptr;
        if (options.imageOnly || (isFile && options.provider.empty())) {
            OwnedPelPix buffer(RenderThumbnail(Utf16ToUtf8(path), width, height));
            frame = MF::CreateVideoFrameFromPelPix(buffer.get());
            if (!frame && options.imageOnly) {
                if (!Path::FileOrDirectoryExists(path))
                    return ReportNoProvider(path, err);
                err << "tessel: " << Display(path)
                    << ": not an image that can be read (JPEG, PNG, BMP, GIF or TGA)\n";
                return kExitNotFound;
            }
        }
        if (frame)
            return kExitOk;
        int status = kExitOk;
        // A file is drawn by the provider that lists it (a card's, for a file of a clip), with
        // the item's second path when it has one.
        std::optional<ListedItem> item;
        if (isFile && !(item = FindListedItem(path, options.provider, err, status)))
            return status;
        ProviderWrapper* wrapper =
            item ? item->wrapper : ChooseProvider(path, options.provider, err, status);
        if (!wrapper)
            return status;
        providerID = wrapper->GetIdentification();
        const std::u16string extraPath = !options.extraPath.empty()
                                             ? NormalizeLocation(options.extraPath)
                                         : item ? ItemExtraPath(item->record)
                                                : std::u16string();
        auto data = std::make_shared<ProviderThumbnailRequestData>(
            item ? item->key : path, extraPath, any_regular_t(), static_cast<std::int32_t>(width),
            static_cast<std::int32_t>(height));
        std::optional<GetThumbnailMessage> answer = RunThumbnail(*wrapper, data);
        if (answer && answer->result == kResultAborted)
            return ReportInterrupted(err);
        if (!answer || !answer->frame) {
            const bool failed = answer && answer->result == kResultFailed;
            err << "tessel: " << Display(providerID)
                << (failed ? " failed while drawing the thumbnail of " : " has no thumbnail for ")
                << Display(path) << "\n";
            return kExitNotFound;
        }
        frame = answer->frame;
        return kExitOk;
    };
    // WIDTHx0 or 0xHEIGHT: the other side keeps the picture's proportions, so the picture is
    // drawn once at its own size to learn them. (0 alone, in the library, means the picture's
    // own size on that side.)
    if ((size.first == 0) != (size.second == 0)) {
        if (const int status = draw(0, 0); status != kExitOk)
            return status;
        const std::uint64_t naturalWidth = std::max<std::uint32_t>(1, frame->GetWidth());
        const std::uint64_t naturalHeight = std::max<std::uint32_t>(1, frame->GetHeight());
        if (size.second == 0)
            size.second = static_cast<std::uint32_t>(std::max<std::uint64_t>(
                1, (size.first * naturalHeight + naturalWidth / 2) / naturalWidth));
        else
            size.first = static_cast<std::uint32_t>(std::max<std::uint64_t>(
                1, (size.second * naturalWidth + naturalHeight / 2) / naturalHeight));
    }
    if (const int status = draw(size.first, size.second); status != kExitOk)
        return status;

    // Ctrl-C while the picture was drawn (drawing itself cannot be stopped): nothing is written.
    if (InterruptRequested())
        return ReportInterrupted(err);
    if (output == "-") {  // the picture itself is the standard output
        const std::vector<std::uint8_t> png = EncodePng(*frame);
        if (png.empty()) {
            err << "tessel: cannot encode the thumbnail of " << Display(path) << "\n";
            return kExitNotFound;
        }
        out.write(reinterpret_cast<const char*>(png.data()),
                  static_cast<std::streamsize>(png.size()));
        return kExitOk;
    }
    if (const Status written = WritePngFile(*frame, output); !written.IsOk()) {
        err << "tessel: cannot write " << output << ": " << written.Message() << "\n";
        return kExitNotFound;
    }
    out << output << ": " << frame->GetWidth() << "x" << frame->GetHeight();
    if (!providerID.empty())
        out << " from " << Display(providerID);
    out << "\n";
    return kExitOk;
}

// One argument of a command writing into a folder: its output file and the line that says
// the name was taken, if it was.
struct FolderItem {
    const std::string* argument;
    std::string output;
    std::string notice;
};

// WriteThumbnail for each of ITEMS on a pool of workers, as many as the library's
// high-priority executor has. What each one prints is kept and printed in argument order,
// as if they had been drawn one after the other. Ctrl-C stops the command at the next item
// to be reported: pictures not yet started are never drawn, and files are only ever
// written whole.
int WriteThumbnailsSideBySide(const std::vector<FolderItem>& items,
                              std::pair<std::uint32_t, std::uint32_t> size,
                              const CommandOptions& options, std::ostream& out, std::ostream& err) {
    struct Result {
        bool done = false;
        int status = kExitOk;
        std::string out;
        std::string err;
    };
    std::vector<Result> results(items.size());
    std::mutex mutex;
    std::condition_variable finished;
    // Declared after what its tasks use, so that it is stopped and joined before they go.
    Executor workers("Thumbnails",
                     static_cast<int>(Settings::GetInt(kSettingContentHighPriorityThreads, -1)));
    for (std::size_t i = 0; i < items.size(); ++i) {
        workers.Post([&, i] {
            Result result;
            try {
                std::ostringstream itemOut, itemErr;
                result.status = InterruptRequested()
                                    ? kExitInterrupted
                                    : WriteThumbnail(*items[i].argument, items[i].output, size,
                                                     options, itemOut, itemErr);
                result.out = itemOut.str();
                result.err = itemErr.str();
            } catch (const std::exception&) {  // memory ran short: this item has failed
                result.status = kExitNotFound;
                result.out.clear();
                result.err = "tessel: cannot draw the thumbnail of " + *items[i].argument + "\n";
            }
            result.done = true;
            const std::lock_guard lock(mutex);
            results[i] = std::move(result);
            finished.notify_all();
        });
    }
    int status = kExitOk;
    for (std::size_t i = 0; i < items.size(); ++i) {
        std::unique_lock lock(mutex);
        // A signal does not wake a waiting thread, so the flag is looked at now and then.
        while (!results[i].done && !InterruptRequested())
            finished.wait_for(lock, std::chrono::milliseconds(20));
        if (InterruptRequested() || results[i].status == kExitInterrupted) {
            lock.unlock();
            workers.Stop();
            return ReportInterrupted(err);
        }
        const Result result = std::move(results[i]);
        lock.unlock();
        out << items[i].notice << result.out;
        err << result.err;
        if (result.status == kExitUsage) {
            workers.Stop();
            return result.status;
        }
        status = std::max(status, result.status);
    }
    return status;
}

}  // namespace

int RunThumbnail(const CommandOptions& options, std::ostream& out, std::ostream& err) {
    const auto size = ParseThumbnailSize(options.size);
    if (!size) {
        err << "tessel: --size expects WIDTHxHEIGHT (each 0 to 16384; Wx0 or 0xH keeps the "
               "proportions), not '"
            << options.size << "'\n";
        return kExitUsage;
    }
    const bool toFolder = Path::DirectoryExists(Utf8ToUtf16(options.output));
    const bool toStandardOutput = options.output == "-";
    if (!toFolder && !toStandardOutput) {
        const std::string extension =
            Utf16ToUtf8(Path::GetExtensionLower(Utf8ToUtf16(options.output)));
        if (extension != ".png") {
            err << "tessel: -o names a PNG file (NAME.png), an existing folder or - (standard "
                   "output), not '"
                << options.output << "'\n";
            return kExitUsage;
        }
    }
    if (options.paths.size() == 1 && !toFolder) {
        return WriteThumbnail(options.paths.front(), options.output, *size, options, out, err);
    }
    // Into a folder: each picture is named after its item; items whose names collide get
    // "-2", "-3", ... so that none replaces another, and the line written says so.
    if (!toFolder) {
        err << "tessel: with several items, -o must name an existing folder, not '"
            << options.output << "'\n";
        return kExitUsage;
    }
    // Names are chosen in argument order before anything is drawn, so that they never depend
    // on which picture is finished first.
    std::vector<FolderItem> items;
    std::set<std::string> taken;
    for (const std::string& argument : options.paths) {
        std::string leaf = Utf16ToUtf8(Path::LeafDisplayString(NormalizeLocation(argument)));
        if (leaf.empty())
            leaf = "item";
        std::string name = leaf + ".png";
        for (int n = 2; !taken.insert(AsciiLower(name)).second; ++n)
            name = leaf + "-" + std::to_string(n) + ".png";
        std::string notice;
        if (name != leaf + ".png")
            notice = argument + ": " + leaf + ".png is taken by an earlier item, written as " +
                     name + "\n";
        items.push_back({&argument, options.output + "/" + name, std::move(notice)});
    }
    // Pictures alone need no provider, and so no main thread: they are drawn side by side.
    if (options.imageOnly && items.size() > 1)
        return WriteThumbnailsSideBySide(items, *size, options, out, err);
    int status = kExitOk;
    for (const FolderItem& item : items) {
        if (InterruptRequested())
            return ReportInterrupted(err);
        out << item.notice;
        const int one = WriteThumbnail(*item.argument, item.output, *size, options, out, err);
        if (one == kExitInterrupted || one == kExitUsage)
            return one;
        status = std::max(status, one);
    }
    return status;
}

}  // namespace Tessel::Tool
