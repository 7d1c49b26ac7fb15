// Provider: a content source (a folder, a volume list, favorites, a camera-card format, a
// project format). It answers: can I show this path and how well, what items are in it,
// which fields do my items have, and what is an item's thumbnail. Providers work in UTF-8;
// the ProviderWrapper that owns each one converts from and to the host's UTF-16.
//
// GetContent, CanProvideFor, GetThumbnail and GetHasPossibleDirectoryContent run on the
// request executors, possibly on several threads at once; a provider must be safe for
// that and should test the abort predicate or request between units of work.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <tessel/foundation/AnyRegular.h>
#include <tessel/foundation/Directory.h>
#include <tessel/framework/ContentRecord.h>
#include <tessel/framework/DirectoryContents.h>
#include <tessel/media/PelPix.h>
#include <tessel/platform/Export.h>

namespace Tessel {

class ProviderRequest;

using ContentProgressCallback = std::function<void(const std::u16string& path, double progress)>;
using ContentUnavailableCallback = std::function<void(const std::u16string& path)>;

class TESSEL_API Provider {
public:
    // A byte count, stored in records as its own type so views can tell a size from any
    // other number.
    class TESSEL_API ByteSize_t {
    public:
        ByteSize_t() = default;
        ByteSize_t(std::uint64_t count) : mCount(count) {}  // NOLINT: a size is a count
        ByteSize_t(const ByteSize_t&) = default;
        ByteSize_t& operator=(const ByteSize_t&) = default;
        virtual ~ByteSize_t();
        std::uint64_t GetCount() const { return mCount; }
        friend bool operator==(const ByteSize_t& a, const ByteSize_t& b) {
            return a.mCount == b.mCount;
        }
        friend bool operator!=(const ByteSize_t& a, const ByteSize_t& b) { return !(a == b); }

    private:
        std::uint64_t mCount = 0;
    };

    Provider();
    virtual ~Provider();
    Provider(const Provider&) = delete;
    Provider& operator=(const Provider&) = delete;

    virtual SDKContentMap GetContent(const std::string& path, const any_regular_t& state,
                                     const SDKFieldSet& fields, ProviderRequest* request) = 0;
    // The same listing made straight into the host's records, for a provider whose listings
    // run to a hundred thousand items: the host then never holds a second copy while it
    // converts one. The default makes none (std::nullopt), and the host converts what
    // GetContent answers.
    virtual std::optional<ContentMap> GetHostContent(const std::u16string& path,
                                                     const any_regular_t& state,
                                                     const FieldSet& fields,
                                                     ProviderRequest* request);
    virtual bool GetHasPossibleDirectoryContent(const std::string& path,
                                                const any_regular_t& state);
    virtual SDKFieldSet GetFieldList() = 0;
    virtual std::vector<std::string> GetDefaultFieldList() = 0;
    virtual std::map<std::u16string, std::u16string> GetFieldLabelList() = 0;
    // A score above 0 claims the path; higher is better; 0 or less means "cannot".
    virtual int CanProvideFor(const std::string& path, const any_regular_t& state,
                              DirectoryContents& contents, const AbortPredicate& abort) = 0;
    virtual bool IsDefaultDirectoryAssetProvider();
    virtual std::string GetIdentification() = 0;
    virtual std::string GetUIString() = 0;
    virtual std::uint32_t GetMaximumThumbnailHeight(std::uint32_t requestedHeight) = 0;
    // A new buffer owned by the caller, or null.
    virtual PelPixHandle GetThumbnail(const std::string& itemPath, const std::string& extraPath,
                                      const any_regular_t& state, std::uint32_t width,
                                      std::uint32_t height, ProviderRequest* request) = 0;
    virtual bool ShouldCheckFilter() = 0;
    virtual bool IsSelectable() = 0;
    virtual bool IsProjectBasedProvider();
    virtual bool IsRestrictedToMediaOnlyViews();
    virtual bool PathHasAccessPermission(const std::string& path);
    virtual bool ShouldMonitorPath(const std::u16string& path);
    virtual bool IsCurrentOrDescendentDirectory(const std::u16string& directory,
                                                const std::u16string& candidate);
    virtual void MonitorPath(const std::u16string& path, const any_regular_t& state);
    virtual void StopMonitoringPath(const std::u16string& path, const any_regular_t& state);
    virtual void AddProviderManagedPaths(const std::list<std::u16string>& paths);
    virtual void RemoveProviderManagedPaths(const std::list<std::u16string>& paths);
    virtual void GetProviderManagedPaths(std::list<std::u16string>& paths);
    virtual void SetGetContentProgressCallback(std::shared_ptr<ContentProgressCallback> callback);
    virtual void SetGetContentUnavailableCallback(
        std::shared_ptr<ContentUnavailableCallback> callback);
    virtual bool IsCloudStorageType();
    virtual bool IsUserLoggedIn();
    virtual void Login();

protected:
    // For subclasses while they list: report progress (0..1) or that PATH cannot be listed.
    // Calling through an empty function object inside a set pointer throws
    // std::bad_function_call, as calling any empty std::function does.
    void NotifyGetContentProgress(const std::u16string& path, double progress);
    void NotifyGetContentUnavailable(const std::u16string& path);

private:
    // The managed paths (the favorites live here) may be changed from any thread.
    std::mutex mManagedPathsMutex;
    std::set<std::u16string> mManagedPaths;
    std::recursive_mutex mCallbackMutex;
    std::shared_ptr<ContentProgressCallback> mProgressCallback;
    std::shared_ptr<ContentUnavailableCallback> mUnavailableCallback;
};

// True when REQUEST is set and has been aborted (consumes the abort flag as GetAbort does).
TESSEL_API bool IsRequestAborted(ProviderRequest* request);

// The abort predicate of calls that no request stands behind: it never aborts. Providers
// always receive a callable predicate, so they may call it without testing it first.
TESSEL_API const AbortPredicate& NeverAbort();

}  // namespace Tessel
