#include <tessel/foundation/Messaging.h>

#include <atomic>
#include <map>
#include <mutex>
#include <vector>

#include <tessel/foundation/Trace.h>

namespace Tessel {

MessageBase::~MessageBase() = default;

namespace {

const std::string_view kTraceCategory = Trace::DeclareCategory("Messaging");

void TraceDropped(const ImmutableString& station, const char* why) noexcept {
    try {
        if (Trace::IsEnabled(kTraceCategory)) {
            Trace::Write(kTraceCategory,
                         "message to the station \"" + station.str() + "\" dropped: " + why);
        }
    } catch (...) {
        // Out of memory for the line: the message is dropped all the same.
    }
}

struct Listener {
    Messaging::ListenerId id;
    ImmutableString station;
    std::type_index name;
    std::function<void(const MessageBase&)> call;
    std::shared_ptr<std::atomic<bool>> active;
};

struct Registry {
    std::mutex mutex;
    // Station -> generation; a station registered again gets a new generation, so messages
    // posted before a dispose are not delivered after the new registration.
    std::map<ImmutableString, std::uint64_t> stations;
    std::uint64_t nextGeneration = 1;
    std::vector<Listener> listeners;
    Messaging::ListenerId nextId = 1;
};

Registry& TheRegistry() {
    static auto* registry = new Registry();  // outlives statics that may still send
    return *registry;
}

std::uint64_t GenerationOf(Registry& r, const ImmutableString& station) {
    auto it = r.stations.find(station);
    return it == r.stations.end() ? 0 : it->second;
}

void DeliverIfCurrent(const ImmutableString& station, std::uint64_t generation,
                      std::type_index name, const MessageBase& message) {
    std::vector<
        std::pair<std::function<void(const MessageBase&)>, std::shared_ptr<std::atomic<bool>>>>
        targets;
    const char* dropped = nullptr;
    {
        Registry& r = TheRegistry();
        std::lock_guard lock(r.mutex);
        const std::uint64_t current = GenerationOf(r, station);
        if (generation != 0 && generation != current) {
            dropped = "the station was disposed after the message was sent";
        } else if (current == 0) {
            dropped = "the station is not registered";
        } else {
            for (const Listener& l : r.listeners) {
                if (l.station == station && l.name == name) {
                    targets.emplace_back(l.call, l.active);
                }
            }
        }
    }
    if (dropped) {
        TraceDropped(station, dropped);
        return;
    }
    // Listeners run without the lock so they may listen, remove or broadcast themselves.
    for (auto& [call, active] : targets) {
        if (active->load())
            call(message);
    }
}

}  // namespace

void Messaging::RegisterStation(const ImmutableString& station) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    if (r.stations.count(station) == 0)
        r.stations[station] = r.nextGeneration++;
}

void Messaging::DisposeStation(const ImmutableString& station) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    r.stations.erase(station);
}

bool Messaging::IsStationRegistered(const ImmutableString& station) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    return r.stations.count(station) != 0;
}

Messaging::ListenerId Messaging::AddListener(const ImmutableString& station, std::type_index name,
                                             std::function<void(const MessageBase&)> listener) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    const ListenerId id = r.nextId++;
    r.listeners.push_back(Listener{id, station, name, std::move(listener),
                                   std::make_shared<std::atomic<bool>>(true)});
    return id;
}

void Messaging::RemoveListener(ListenerId id) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    for (auto it = r.listeners.begin(); it != r.listeners.end(); ++it) {
        if (it->id == id) {
            it->active->store(false);
            r.listeners.erase(it);
            return;
        }
    }
}

void Messaging::Deliver(const ImmutableString& station, std::type_index name,
                        const MessageBase& message) {
    DeliverIfCurrent(station, 0, name, message);
}

void Messaging::Post(const ImmutableString& station, std::type_index name,
                     std::shared_ptr<const MessageBase> message) {
    std::uint64_t generation;
    {
        Registry& r = TheRegistry();
        std::lock_guard lock(r.mutex);
        generation = GenerationOf(r, station);
    }
    if (generation == 0) {  // nobody can ever receive it
        TraceDropped(station, "the station is not registered");
        return;
    }
    MainThread::Post([station, generation, name, message = std::move(message)] {
        DeliverIfCurrent(station, generation, name, *message);
    });
}

ScopedListener& ScopedListener::operator=(ScopedListener&& other) noexcept {
    if (this != &other) {
        Reset();
        mId = other.mId;
        other.mId = 0;
    }
    return *this;
}

ScopedListener::~ScopedListener() {
    Reset();
}

void ScopedListener::Reset() {
    if (mId != 0)
        Messaging::RemoveListener(mId);
    mId = 0;
}

}  // namespace Tessel
