// Shell links read through the shell's own link object (IShellLinkW loaded by IPersistFile).
#include <tessel/platform/ShellLinks.h>

#include "FindFiles.h"

#include <objbase.h>
#include <objidl.h>
#include <shlobj.h>

#include <algorithm>
#include <string>

namespace Tessel::Platform {

namespace {

// The longest path Windows handles, with its terminating null.
constexpr int kTargetBufferLength = 32768;

// Joins COM's multithreaded apartment for the object's life when the thread has not joined
// an apartment yet. A thread in one already (a worker, or a host's single-threaded main
// thread) keeps it: the shell-link object works in either kind.
class ComScope {
public:
    ComScope() {
        const HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        mUninitialize = SUCCEEDED(result);  // S_FALSE too: it counts and must be balanced
        mUsable = mUninitialize || result == RPC_E_CHANGED_MODE;
    }
    ~ComScope() {
        if (mUninitialize)
            CoUninitialize();
    }
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;

    bool Usable() const { return mUsable; }

private:
    bool mUninitialize = false;
    bool mUsable = false;
};

// Releases the COM object it holds.
template <class Interface>
class ComPointer {
public:
    ComPointer() = default;
    ~ComPointer() {
        if (mPointer != nullptr)
            mPointer->Release();
    }
    ComPointer(const ComPointer&) = delete;
    ComPointer& operator=(const ComPointer&) = delete;

    void** Out() { return reinterpret_cast<void**>(&mPointer); }
    Interface* operator->() const { return mPointer; }

private:
    Interface* mPointer = nullptr;
};

wchar_t AsciiLower(wchar_t c) {
    return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + 32) : c;
}

bool IsDriveLetter(wchar_t c) {
    return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z');
}

// The long-path form of a link target, in which paths of any length open.
NativeString ToLongPathForm(const NativeString& target) {
    if (target.size() >= 2 && target[0] == L'\\' && target[1] == L'\\') {
        // "\\?\..." and "\\.\..." are long-path or device forms already.
        if (target.size() >= 3 && (target[2] == L'?' || target[2] == L'.'))
            return target;
        return L"\\\\?\\UNC\\" + target.substr(2);
    }
    if (target.size() >= 3 && IsDriveLetter(target[0]) && target[1] == L':' && target[2] == L'\\')
        return L"\\\\?\\" + target;
    return target;
}

}  // namespace

bool IsShellLinkName(const NativeString& name) {
    static constexpr wchar_t kExtension[] = L".lnk";
    constexpr std::size_t kLength = 4;
    if (name.size() <= kLength)
        return false;
    for (std::size_t i = 0; i < kLength; ++i) {
        if (AsciiLower(name[name.size() - kLength + i]) != kExtension[i])
            return false;
    }
    return true;
}

std::optional<NativeString> ReadShellLinkTarget(const NativeString& linkPath) {
    if (linkPath.empty())
        return std::nullopt;
    const ComScope com;
    if (!com.Usable())
        return std::nullopt;
    ComPointer<IShellLinkW> link;
    if (FAILED(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                                link.Out())))
        return std::nullopt;
    ComPointer<IPersistFile> file;
    if (FAILED(link->QueryInterface(IID_IPersistFile, file.Out())))
        return std::nullopt;
    Win32::CriticalErrorDialogsOff dialogsOff;
    if (FAILED(file->Load(linkPath.c_str(), STGM_READ)))
        return std::nullopt;
    std::wstring target(kTargetBufferLength, L'\0');
    // S_FALSE, with an empty buffer, for a link to something that is not a file-system path.
    if (link->GetPath(target.data(), kTargetBufferLength, nullptr, 0) != S_OK)
        return std::nullopt;
    target.resize(std::min(target.find(L'\0'), target.size()));
    if (target.empty())
        return std::nullopt;
    return ToLongPathForm(target);
}

}  // namespace Tessel::Platform
