// any_regular_t: the type-erased value of every item property and provider state.
//
// It holds nothing (empty) or one value of a regular type (copyable, equality-comparable).
// Arithmetic values are normalised so that records compare and serialise predictably:
// bool stays bool, every other integer type is stored as std::int64_t, every floating
// type as double. Text is std::u16string (the host's strings) or std::string (UTF-8).
// Lists are any_regular_t::array_t, dictionaries any_regular_t::dictionary_t.
//
// Serialisation: values of registered types round-trip through JSON (ToJson/FromJson).
// Built in: empty (null), bool, integers, doubles, both string types, arrays,
// dictionaries and DateTime. Other layers register their own value types with
// RegisterValueType (the framework registers Provider::ByteSize_t and IconType).
#pragma once

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <typeindex>
#include <typeinfo>
#include <utility>
#include <vector>

#include <tessel/foundation/DateTime.h>
#include <tessel/platform/Export.h>

namespace Tessel {

class any_regular_t;

namespace detail {
template <class T>
struct StoredType {
    using type = T;
};
template <>
struct StoredType<bool> {
    using type = bool;
};
template <>
struct StoredType<const char*> {
    using type = std::string;
};
template <>
struct StoredType<char*> {
    using type = std::string;
};
template <>
struct StoredType<const char16_t*> {
    using type = std::u16string;
};
template <>
struct StoredType<char16_t*> {
    using type = std::u16string;
};
template <class T>
using stored_t = typename std::conditional_t<
    std::is_same_v<T, bool>, StoredType<bool>,
    std::conditional_t<
        std::is_integral_v<T>, StoredType<std::int64_t>,
        std::conditional_t<std::is_floating_point_v<T>, StoredType<double>, StoredType<T>>>>::type;
// A type values are held as (std::int64_t, not int).
template <class T>
concept HeldType = std::is_same_v<T, stored_t<T>>;

// Whether converting D to the arithmetic type T is defined: for integers, D (without its
// fraction) lies in T's range; for float, D is not finite or not beyond float's range.
template <class T>
bool DoubleFits(double d) {
    if constexpr (std::is_integral_v<T>) {
        // The bounds are 0 or powers of two, exact as doubles: lower <= trunc(d) < upper.
        constexpr double kUpper = 2.0 * static_cast<double>(std::numeric_limits<T>::max() / 2 + 1);
        constexpr double kLower = static_cast<double>(std::numeric_limits<T>::min());
        const double whole = std::trunc(d);  // NaN fails both comparisons
        return whole >= kLower && whole < kUpper;
    } else if constexpr (std::is_same_v<T, float>) {
        return !std::isfinite(d) || std::fabs(d) <= std::numeric_limits<float>::max();
    } else {
        return true;
    }
}
}  // namespace detail

class TESSEL_API any_regular_t {
public:
    using array_t = std::vector<any_regular_t>;
    using dictionary_t = std::map<std::string, any_regular_t>;

    any_regular_t() noexcept {}
    any_regular_t(const any_regular_t& other);
    any_regular_t(any_regular_t&& other) noexcept {
        if (other.mOps) {
            other.mOps->move(other.mStorage, mStorage);
            mOps = std::exchange(other.mOps, nullptr);
        }
    }
    any_regular_t& operator=(const any_regular_t& other);
    any_regular_t& operator=(any_regular_t&& other) noexcept {
        if (this != &other) {
            // Moved aside first, so that assigning a value that lives inside this one works.
            any_regular_t taken(std::move(other));
            Reset();
            if (taken.mOps) {
                taken.mOps->move(taken.mStorage, mStorage);
                mOps = std::exchange(taken.mOps, nullptr);
            }
        }
        return *this;
    }
    ~any_regular_t() { Reset(); }

    template <class T, class = std::enable_if_t<!std::is_same_v<std::decay_t<T>, any_regular_t>>>
    any_regular_t(T&& value) {  // NOLINT: implicit by design, like the values it holds
        using Stored = detail::stored_t<std::decay_t<T>>;
        if constexpr (kInline<Stored>) {
            ::new (static_cast<void*>(mStorage)) Stored(std::forward<T>(value));
        } else {
            Stored* held = new Stored(std::forward<T>(value));
            ::new (static_cast<void*>(mStorage)) Stored*(held);
        }
        mOps = OpsOf<Stored>();
    }

    bool empty() const { return !mOps; }
    // The type held, typeid(void) when empty.
    const std::type_info& type() const;

    // Whether the value is held as T, and a pointer to it (null otherwise). Both take only
    // the types values are held as: std::int64_t, not int; double, not float; std::string,
    // not const char*. Asking for another (`is<int>`) does not compile, rather than answering
    // false for every value made from an int.
    template <detail::HeldType T>
    bool is() const {
        return mOps && mOps->type() == typeid(T);
    }
    template <detail::HeldType T>
    const T* get_if() const {
        return is<T>() ? static_cast<const T*>(RawPointer()) : nullptr;
    }
    template <detail::HeldType T>
    T* get_if() {
        return is<T>() ? static_cast<T*>(mOps->pointer(mStorage)) : nullptr;
    }

    // Copies the value into `out` and returns true when it can be had as a T. Arithmetic
    // targets accept any held number whose value T can represent (bool only from bool):
    // integers within T's range, doubles within T's range (an integer target drops the
    // fraction, as a cast does), and to float any double up to float's largest value (NaN
    // and infinities too). Other numbers (300 as a std::uint8_t, 1e300 or NaN as an int)
    // leave `out` alone and answer false. Other types must match exactly.
    template <class T>
    bool cast(T& out) const {
        if constexpr (std::is_same_v<T, bool>) {
            if (const bool* b = get_if<bool>()) {
                out = *b;
                return true;
            }
            return false;
        } else if constexpr (std::is_arithmetic_v<T>) {
            if (const std::int64_t* i = get_if<std::int64_t>()) {
                if constexpr (std::is_integral_v<T>) {
                    if (!std::in_range<T>(*i))
                        return false;
                }
                out = static_cast<T>(*i);
                return true;
            }
            if (const double* d = get_if<double>()) {
                if (!detail::DoubleFits<T>(*d))
                    return false;
                out = static_cast<T>(*d);
                return true;
            }
            return false;
        } else {
            if (const T* p = get_if<T>()) {
                out = *p;
                return true;
            }
            return false;
        }
    }
    // The value as T, or `fallback` when it cannot be had as one.
    template <class T>
    T value_or(T fallback) const {
        T out{};
        return cast(out) ? out : fallback;
    }

    friend TESSEL_API bool operator==(const any_regular_t& a, const any_regular_t& b);
    friend bool operator!=(const any_regular_t& a, const any_regular_t& b) { return !(a == b); }

    // JSON text of the value; std::nullopt when it (or something inside it) is of a type
    // that was never registered.
    std::optional<std::string> ToJson() const;
    // Parses JSON made by ToJson (or plain JSON: strings become std::u16string, numbers
    // std::int64_t or double). std::nullopt on malformed text or an unknown type tag.
    static std::optional<any_regular_t> FromJson(std::string_view json);

    // Type-erased access used by the registry; not needed by ordinary callers.
    const void* RawPointer() const {
        return mOps ? mOps->pointer(const_cast<unsigned char*>(mStorage)) : nullptr;
    }

private:
    // A value lives inside the object when it is small and moves without throwing (texts,
    // numbers, dates, sizes: nearly every value of a record), so that holding it costs no
    // allocation of its own; a larger one lives on the heap, its pointer inside. The
    // operations of the held type know which, and copy, move, compare and destroy it.
    static constexpr std::size_t kInlineSize = 32;
    template <class T>
    static constexpr bool kInline =
        sizeof(T) <= kInlineSize &&
        alignof(T) <= alignof(void*) && std::is_nothrow_move_constructible_v<T>;

    struct Ops {
        const std::type_info& (*type)();
        void* (*pointer)(void* storage);
        void (*copy)(const void* from, void* to);
        void (*move)(void* from, void* to) noexcept;  // leaves FROM destroyed
        void (*destroy)(void* storage) noexcept;
        bool (*equals)(const void* a, const void* b);
    };

    template <class T>
    static T* Held(void* storage) {
        if constexpr (kInline<T>)
            return static_cast<T*>(storage);
        else
            return *static_cast<T**>(storage);
    }
    template <class T>
    static const Ops* OpsOf() {
        static constexpr Ops kOps = {
            []() -> const std::type_info& { return typeid(T); },
            [](void* storage) -> void* { return Held<T>(storage); },
            [](const void* from, void* to) {
                const T& value = *Held<T>(const_cast<void*>(from));
                if constexpr (kInline<T>)
                    ::new (to) T(value);
                else
                    ::new (to) T*(new T(value));
            },
            [](void* from, void* to) noexcept {
                if constexpr (kInline<T>) {
                    ::new (to) T(std::move(*static_cast<T*>(from)));
                    static_cast<T*>(from)->~T();
                } else {
                    ::new (to) T*(*static_cast<T**>(from));
                }
            },
            [](void* storage) noexcept {
                if constexpr (kInline<T>)
                    static_cast<T*>(storage)->~T();
                else
                    delete *static_cast<T**>(storage);
            },
            [](const void* a, const void* b) {
                return static_cast<bool>(*Held<T>(const_cast<void*>(a)) ==
                                         *Held<T>(const_cast<void*>(b)));
            },
        };
        return &kOps;
    }
    void Reset() noexcept {
        if (mOps)
            std::exchange(mOps, nullptr)->destroy(mStorage);
    }

    alignas(void*) unsigned char mStorage[kInlineSize];
    const Ops* mOps = nullptr;
};

// JSON conversion of one registered value type. `toJson` receives a pointer to the held
// value and returns its JSON text (std::nullopt when it cannot); `fromJson` parses that
// text back (std::nullopt when malformed).
struct ValueTypeCodec {
    std::string name;  // the type tag written into JSON, unique
    std::function<std::optional<std::string>(const void* value)> toJson;
    std::function<std::optional<any_regular_t>(std::string_view json)> fromJson;
};

// Registers a value type for serialisation; a later registration of the same C++ type or
// name replaces the earlier one. Thread-safe.
TESSEL_API void RegisterValueType(const std::type_info& type, ValueTypeCodec codec);
TESSEL_API bool IsValueTypeRegistered(const std::type_info& type);
// Forgets a registration, for a module that is about to be unloaded: its codec's functions
// must not outlive it. Stored entries not yet read stay as text and are written back
// unchanged; values already decoded can no longer be written.
TESSEL_API void UnregisterValueType(const std::type_info& type);

}  // namespace Tessel
