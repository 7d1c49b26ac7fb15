#include <tessel/foundation/Trace.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <set>
#include <shared_mutex>

#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>

#include <tessel/platform/StandardErrorCapture.h>

namespace Tessel {

namespace {

constexpr std::string_view kAllCategories = "all";

struct Categories {
    std::shared_mutex mutex;
    bool all = false;
    std::set<std::string, std::less<>> enabled;
    std::set<std::string, std::less<>> disabled;  // exceptions to "all"
    std::set<std::string, std::less<>> declared;
    std::shared_ptr<const Trace::Sink> sink;  // null: standard error
    // False while nothing at all is enabled, which is almost always: IsEnabled then answers
    // without taking the lock.
    std::atomic<bool> anyEnabled{false};

    void Update() { anyEnabled.store(all || !enabled.empty(), std::memory_order_release); }
};

Categories& GetCategories() {
    static Categories* categories = new Categories;  // never destroyed: tracing at exit works
    return *categories;
}

// Standard error as the platform writes it: the real one even during a capture.
class StandardErrorSink final : public spdlog::sinks::base_sink<std::mutex> {
protected:
    void sink_it_(const spdlog::details::log_msg& message) override {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        Platform::WriteStandardError(std::string_view(line.data(), line.size()));
    }
    void flush_() override {}
};

spdlog::logger& GetLogger() {
    // A private logger, not registered with spdlog's global registry, so a host that uses
    // spdlog itself keeps its own names and settings.
    static spdlog::logger* logger = [] {
        auto* created = new spdlog::logger("tessel", std::make_shared<StandardErrorSink>());
        created->set_pattern("[%H:%M:%S.%e] %v");
        created->set_level(spdlog::level::info);
        created->flush_on(spdlog::level::info);
        return created;
    }();
    return *logger;
}

}  // namespace

void Trace::Enable(std::string_view category) {
    Categories& categories = GetCategories();
    std::unique_lock lock(categories.mutex);
    if (category == kAllCategories) {
        categories.all = true;
        categories.disabled.clear();
    } else {
        categories.enabled.emplace(category);
        if (auto it = categories.disabled.find(category); it != categories.disabled.end()) {
            categories.disabled.erase(it);
        }
    }
    categories.Update();
}

void Trace::Disable(std::string_view category) {
    Categories& categories = GetCategories();
    std::unique_lock lock(categories.mutex);
    if (category == kAllCategories) {
        categories.all = false;
        categories.enabled.clear();
        categories.disabled.clear();
    } else {
        if (auto it = categories.enabled.find(category); it != categories.enabled.end()) {
            categories.enabled.erase(it);
        }
        if (categories.all)
            categories.disabled.emplace(category);
    }
    categories.Update();
}

std::string_view Trace::DeclareCategory(std::string_view category) {
    Categories& categories = GetCategories();
    std::unique_lock lock(categories.mutex);
    categories.declared.emplace(category);
    return category;
}

std::vector<std::string> Trace::DeclaredCategories() {
    Categories& categories = GetCategories();
    std::shared_lock lock(categories.mutex);
    return {categories.declared.begin(), categories.declared.end()};
}

void Trace::EnableFromEnvironment() {
    const char* value = std::getenv("TESSEL_TRACE");
    if (!value)
        return;
    std::string_view list(value);
    while (!list.empty()) {
        const std::size_t comma = list.find(',');
        std::string_view item = list.substr(0, comma);
        list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);
        while (!item.empty() && item.front() == ' ')
            item.remove_prefix(1);
        while (!item.empty() && item.back() == ' ')
            item.remove_suffix(1);
        if (!item.empty())
            Enable(item);
    }
}

bool Trace::IsEnabled(std::string_view category) {
    Categories& categories = GetCategories();
    if (!categories.anyEnabled.load(std::memory_order_acquire))
        return false;
    std::shared_lock lock(categories.mutex);
    if (categories.enabled.find(category) != categories.enabled.end())
        return true;
    return categories.all && categories.disabled.find(category) == categories.disabled.end();
}

void Trace::Write(std::string_view category, std::string_view text) {
    if (!IsEnabled(category))
        return;
    try {
        std::shared_ptr<const Sink> sink;
        {
            std::shared_lock lock(GetCategories().mutex);
            sink = GetCategories().sink;
        }
        if (sink)
            (*sink)(category, text);
        else
            GetLogger().info("[{}] {}", category, text);
    } catch (...) {
        // Tracing must never take the library down (a closed stderr, a formatting failure).
    }
}

void Trace::SetSink(Sink sink) {
    auto shared = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
    Categories& categories = GetCategories();
    std::unique_lock lock(categories.mutex);
    categories.sink = std::move(shared);
}

}  // namespace Tessel
