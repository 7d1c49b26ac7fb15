// Message stations. A station is a named channel (an ImmutableString); listeners subscribe
// to one message type on one station. A message type is a class derived from MessageBase
// with a nested `Name` tag type (the tag types are named MessageNameFor...).
//
// Broadcasting on the main thread calls the listeners at once; from any other thread the
// message is kept with shared ownership and delivered later on the main thread, in the
// order of sending. A station that is disposed delivers nothing more, also not the
// messages already on their way; registering it again starts afresh.
//
// A message is delivered only through a registered station. One sent to a station that
// nobody registered (or that was disposed) is dropped without an error to the sender, who
// cannot tell a slow receiver from an absent one; each such message is traced in the
// category "Messaging" with the station's name, so a host that forgot to register its
// station can see why it hears nothing.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <typeindex>
#include <typeinfo>

#include <tessel/foundation/ImmutableString.h>
#include <tessel/foundation/MainThread.h>
#include <tessel/platform/Export.h>

namespace Tessel {

class TESSEL_API MessageBase {
public:
    virtual ~MessageBase();
};

class TESSEL_API Messaging {
public:
    using ListenerId = std::uint64_t;

    static void RegisterStation(const ImmutableString& station);
    static void DisposeStation(const ImmutableString& station);
    static bool IsStationRegistered(const ImmutableString& station);

    // Calls LISTENER on the main thread for every message of type Msg sent to STATION.
    template <class Msg>
    static ListenerId Listen(const ImmutableString& station,
                             std::function<void(const Msg&)> listener) {
        return AddListener(station, typeid(typename Msg::Name),
                           [listener = std::move(listener)](const MessageBase& message) {
                               listener(static_cast<const Msg&>(message));
                           });
    }
    // After this returns the listener is not called again (also not by a delivery in
    // progress on another thread that has not reached it yet).
    static void RemoveListener(ListenerId id);

    // Delivers at once, on the calling thread; meant for the main thread. Dropped (and
    // traced) when STATION is not registered.
    template <class Msg>
    static void BroadcastOnMainThread(const ImmutableString& station, const Msg& message) {
        Deliver(station, typeid(typename Msg::Name), message);
    }
    // Delivers later on the main thread. Dropped (and traced) when STATION is not
    // registered now, or is disposed before the message arrives.
    template <class Msg>
    static void BroadcastAsync(const ImmutableString& station, std::shared_ptr<const Msg> message) {
        Post(station, typeid(typename Msg::Name), std::move(message));
    }
    // On the main thread at once, otherwise later on the main thread.
    template <class Msg>
    static void Broadcast(const ImmutableString& station, std::shared_ptr<const Msg> message) {
        if (MainThread::IsCurrent()) {
            BroadcastOnMainThread(station, *message);
        } else {
            BroadcastAsync(station, std::move(message));
        }
    }

    static ListenerId AddListener(const ImmutableString& station, std::type_index name,
                                  std::function<void(const MessageBase&)> listener);
    static void Deliver(const ImmutableString& station, std::type_index name,
                        const MessageBase& message);
    static void Post(const ImmutableString& station, std::type_index name,
                     std::shared_ptr<const MessageBase> message);
};

// Removes its listener when destroyed.
class TESSEL_API ScopedListener {
public:
    ScopedListener() = default;
    explicit ScopedListener(Messaging::ListenerId id) : mId(id) {}
    ScopedListener(ScopedListener&& other) noexcept : mId(other.mId) { other.mId = 0; }
    ScopedListener& operator=(ScopedListener&& other) noexcept;
    ScopedListener(const ScopedListener&) = delete;
    ScopedListener& operator=(const ScopedListener&) = delete;
    ~ScopedListener();
    void Reset();

private:
    Messaging::ListenerId mId = 0;
};

}  // namespace Tessel
