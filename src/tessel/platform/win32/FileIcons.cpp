// Windows file icons: the shell's own, from the system image lists.
#include <tessel/platform/FileIcons.h>

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <commctrl.h>
#include <commoncontrols.h>
#include <objbase.h>
#include <shellapi.h>

#include <cstring>
#include <string>

namespace Tessel::Platform {

namespace {

constexpr std::wstring_view kLongPathPrefix = L"\\\\?\\";
constexpr std::wstring_view kLongUncPrefix = L"\\\\?\\UNC\\";

bool StartsWithNoCase(std::wstring_view text, std::wstring_view prefix) {
    return text.size() >= prefix.size() &&
           CompareStringOrdinal(text.data(), static_cast<int>(prefix.size()), prefix.data(),
                                static_cast<int>(prefix.size()), TRUE) == CSTR_EQUAL;
}

// "\\?\C:\x" becomes "C:\x" and "\\?\UNC\server\share" "\\server\share"; other paths stay.
std::wstring WithoutLongPathPrefix(const std::wstring& path) {
    if (StartsWithNoCase(path, kLongUncPrefix))
        return L"\\\\" + path.substr(kLongUncPrefix.size());
    if (StartsWithNoCase(path, kLongPathPrefix))
        return path.substr(kLongPathPrefix.size());
    return path;
}

// The path as the shell wants it: no long-path prefix, separators and "." and ".." resolved.
std::wstring ShellPath(const NativeString& path) {
    const std::wstring plain = WithoutLongPathPrefix(path);
    const DWORD needed = GetFullPathNameW(plain.c_str(), 0, nullptr, nullptr);
    if (needed == 0)
        return plain;
    std::wstring full(needed, L'\0');
    const DWORD written = GetFullPathNameW(plain.c_str(), needed, full.data(), nullptr);
    if (written == 0 || written >= needed)
        return plain;
    full.resize(written);
    return full;
}

bool IsExistingDirectory(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

// The system image list of an icon size: small, large, extra large and jumbo.
int ImageListFor(std::uint32_t size) {
    switch (size) {
        case 16:
            return SHIL_SMALL;
        case 32:
            return SHIL_LARGE;
        case 48:
            return SHIL_EXTRALARGE;
        case 256:
            return SHIL_JUMBO;
        default:
            return -1;
    }
}

// The shell asks for COM on the calling thread. Initialisation is balanced here; a thread
// already in another apartment keeps it.
class ComScope {
public:
    ComScope() : mResult(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
    ~ComScope() {
        if (SUCCEEDED(mResult))
            CoUninitialize();
    }
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;

private:
    HRESULT mResult;
};

// A 32-bit device-independent section of SIZE x SIZE, bottom-up, selected into a memory
// device context; everything is released on destruction.
class DrawingSurface {
public:
    explicit DrawingSurface(std::uint32_t size) : mSize(size) {
        mContext = CreateCompatibleDC(nullptr);
        if (!mContext)
            return;
        BITMAPINFO info{};
        info.bmiHeader.biSize = sizeof info.bmiHeader;
        info.bmiHeader.biWidth = static_cast<LONG>(size);
        info.bmiHeader.biHeight = static_cast<LONG>(size);  // positive: bottom-up
        info.bmiHeader.biPlanes = 1;
        info.bmiHeader.biBitCount = 32;
        info.bmiHeader.biCompression = BI_RGB;
        mBitmap = CreateDIBSection(mContext, &info, DIB_RGB_COLORS, &mBits, nullptr, 0);
        if (!mBitmap || !mBits)
            return;
        std::memset(mBits, 0, std::size_t{size} * size * 4);
        mPrevious = SelectObject(mContext, mBitmap);
    }
    ~DrawingSurface() {
        if (mPrevious)
            SelectObject(mContext, mPrevious);
        if (mBitmap)
            DeleteObject(mBitmap);
        if (mContext)
            DeleteDC(mContext);
    }
    DrawingSurface(const DrawingSurface&) = delete;
    DrawingSurface& operator=(const DrawingSurface&) = delete;

    bool Ready() const { return mPrevious != nullptr; }
    HDC Context() const { return mContext; }
    std::vector<std::uint8_t> Pixels() const {
        GdiFlush();
        const auto* bits = static_cast<const std::uint8_t*>(mBits);
        return std::vector<std::uint8_t>(bits, bits + std::size_t{mSize} * mSize * 4);
    }

private:
    std::uint32_t mSize;
    HDC mContext = nullptr;
    HBITMAP mBitmap = nullptr;
    void* mBits = nullptr;
    HGDIOBJ mPrevious = nullptr;
};

}  // namespace

FileIconKind ClassifyFileIcon(const NativeString& path, const MountTableFiles&) {
    if (path.empty())
        return FileIconKind::File;
    const std::wstring plain = ShellPath(path);
    if (IsExistingDirectory(plain)) {
        std::wstring root(MAX_PATH + 1, L'\0');
        if (GetVolumePathNameW(plain.c_str(), root.data(), static_cast<DWORD>(root.size()))) {
            root.resize(std::wcslen(root.c_str()));
            std::wstring folder = plain;
            if (!folder.empty() && folder.back() != L'\\')
                folder += L'\\';
            if (CompareStringOrdinal(root.c_str(), -1, folder.c_str(), -1, TRUE) == CSTR_EQUAL) {
                switch (GetDriveTypeW(root.c_str())) {
                    case DRIVE_REMOTE:
                        return FileIconKind::NetworkShare;
                    case DRIVE_REMOVABLE:
                    case DRIVE_CDROM:
                        return FileIconKind::RemovableDrive;
                    default:
                        return folder.rfind(L"\\\\", 0) == 0 ? FileIconKind::NetworkShare
                                                             : FileIconKind::Drive;
                }
            }
        }
        return FileIconKind::Folder;
    }
    const std::size_t separator = plain.find_last_of(L"\\/");
    const std::wstring leaf = separator == std::wstring::npos ? plain : plain.substr(separator + 1);
    // Only the extension matters, so a lossy conversion of the rest does no harm.
    const int length = WideCharToMultiByte(CP_UTF8, 0, leaf.c_str(), static_cast<int>(leaf.size()),
                                           nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(length > 0 ? length : 0), '\0');
    if (length > 0)
        WideCharToMultiByte(CP_UTF8, 0, leaf.c_str(), static_cast<int>(leaf.size()), utf8.data(),
                            length, nullptr, nullptr);
    return FileIconKindForName(utf8);
}

std::optional<ShellIcon> DrawShellIcon(const NativeString& path, std::uint32_t listSize,
                                       std::uint32_t canvasSize) {
    const int list = ImageListFor(listSize);
    if (list < 0 || canvasSize == 0 || canvasSize > kLargestShellIconCanvas || path.empty() ||
        path.find(L'\0') != NativeString::npos)
        return std::nullopt;
    const std::wstring shellPath = ShellPath(path);
    ComScope com;

    SHFILEINFOW info{};
    if (!SHGetFileInfoW(shellPath.c_str(), 0, &info, sizeof info, SHGFI_SYSICONINDEX)) {
        // Not a path the shell can look at (missing, or offline): the icon of its kind.
        const DWORD attributes =
            IsExistingDirectory(shellPath) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
        info = SHFILEINFOW{};
        if (!SHGetFileInfoW(shellPath.c_str(), attributes, &info, sizeof info,
                            SHGFI_SYSICONINDEX | SHGFI_USEFILEATTRIBUTES))
            return std::nullopt;
    }

    IImageList* images = nullptr;
    if (FAILED(SHGetImageList(list, __uuidof(IImageList), reinterpret_cast<void**>(&images))) ||
        !images)
        return std::nullopt;
    std::optional<ShellIcon> icon;
    {
        // The icon keeps its own size, at the top left of the canvas (GDI's origin).
        DrawingSurface surface(canvasSize);
        if (surface.Ready()) {
            IMAGELISTDRAWPARAMS draw{};
            draw.cbSize = sizeof draw;
            draw.himl = reinterpret_cast<HIMAGELIST>(images);
            draw.i = info.iIcon;
            draw.hdcDst = surface.Context();
            draw.x = 0;
            draw.y = 0;
            draw.rgbBk = CLR_NONE;
            draw.rgbFg = CLR_NONE;
            draw.fStyle = ILD_TRANSPARENT;
            if (SUCCEEDED(images->Draw(&draw)))
                icon = ShellIcon{canvasSize, surface.Pixels()};
        }
    }
    images->Release();
    return icon;
}

}  // namespace Tessel::Platform
