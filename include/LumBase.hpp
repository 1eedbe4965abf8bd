/** @file LumBase.hpp — the C++ face of LumBase: references that cannot leak,
 * strings to and from std::string, range-for over collections, typed
 * access, numbers to and from C++ types, standard JSON with the error as a
 * value, and run-loop timers, sources and sockets whose callbacks are
 * lambdas. Header-only, C++17; works with -fno-exceptions -fno-rtti.
 * Part of LumBase; MIT licence.
 *
 * Everything here calls the C API and costs nothing beyond it: a lum::Ref
 * is one pointer, and its copy, move and destruction are LUMRetain, a
 * pointer move and LUMRelease. libLumBase.so.0 itself does not change and
 * needs no C++ run-time; this header uses the C++ standard library of the
 * program that includes it.
 *
 * Ownership, once for all: lum::adopt(p) takes over the reference a
 * Create or Copy function returned; lum::retain(p) takes a reference of
 * its own to what a Get function returned. Functions here that return a
 * lum::Ref hand over a reference; those that return a plain C reference
 * (lum::get, lum::at, lum::cast, the iterators) lend one, as Get does.
 *
 *     #include <LumBase.hpp>
 *     using namespace lum::literals;
 *
 *     auto config = lum::readJSON(R"({"name": "lamp", "ports": [80, 443]})");
 *     if (!config) { std::puts(config.message().c_str()); return 1; }
 *     auto settings = lum::cast<LUMDictionaryRef>(config.value.get());
 *     for (LUMTypeRef port : lum::values(lum::get<LUMArrayRef>(settings, "ports"_lum)))
 *         LUMPrint("port %@\n"_lum, port);
 *     auto greeting = lum::format("hello, %@", lum::get<LUMStringRef>(settings, "name"_lum));
 */
#ifndef LUMBASE_HPP
#define LUMBASE_HPP

#include <LumBase.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace lum {

/* ---- References ------------------------------------------------------------ */

/** An owning reference to a LumBase object of C type T (LUMStringRef,
 * LUMMutableArrayRef, LUMTypeRef, …): the size of a pointer; copying
 * retains, moving transfers, destruction releases. */
template <typename T>
class Ref {
    static_assert(std::is_pointer_v<T>, "Ref<T> holds a C reference type such as LUMStringRef");

public:
    using element_type = T; /**< The C reference type held. */

    constexpr Ref() noexcept = default;
    constexpr Ref(std::nullptr_t) noexcept {} /**< An empty Ref, as from nullptr. */
    /** Takes over the reference a Create or Copy function returned. */
    static Ref adopt(T object) noexcept
    {
        Ref ref;
        ref.object_ = object;
        return ref;
    }
    /** Takes a reference of its own (what a Get function returned). */
    static Ref retain(T object) noexcept
    {
        if (object != nullptr) LUMRetain(object);
        return adopt(object);
    }

    /** A copy: both hold a reference. */
    Ref(const Ref &other) noexcept : object_(other.object_)
    {
        if (object_ != nullptr) LUMRetain(object_);
    }
    Ref(Ref &&other) noexcept : object_(other.object_) { other.object_ = nullptr; } /**< Takes over other's reference; other is left empty. */
    /** From a reference to a type that converts (mutable to immutable, any
     * type to LUMTypeRef). */
    template <typename U, typename = std::enable_if_t<std::is_convertible_v<U, T>>>
    Ref(const Ref<U> &other) noexcept : object_(other.get())
    {
        if (object_ != nullptr) LUMRetain(object_);
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible_v<U, T>>>
    /** Takes over other's reference (the type converts); other is left empty. */
    Ref(Ref<U> &&other) noexcept : object_(other.release())
    {
    }
    ~Ref()
    {
        if (object_ != nullptr) LUMRelease(object_);
    }
    /** Holds what other holds (copy retains, move transfers); the old reference is released. */
    Ref &operator=(Ref other) noexcept
    {
        std::swap(object_, other.object_);
        return *this;
    }

    /** The C reference, lent: the Ref keeps its reference. */
    T get() const noexcept { return object_; }
    /** Hands the reference back to C: the caller releases it. */
    [[nodiscard]] T release() noexcept { return std::exchange(object_, nullptr); }
    void reset() noexcept { *this = Ref(); } /**< Releases the reference and leaves the Ref empty. */
    explicit operator bool() const noexcept { return object_ != nullptr; } /**< Whether the Ref holds an object. */

private:
    T object_ = nullptr;
};

static_assert(sizeof(Ref<LUMTypeRef>) == sizeof(void *), "a Ref is one pointer");
static_assert(sizeof(Ref<LUMMutableDictionaryRef>) == sizeof(void *), "a Ref is one pointer");

/** lum::adopt(LUMStringCreate…(…)): takes over a Create or Copy result. */
template <typename T>
Ref<T> adopt(T object) noexcept
{
    return Ref<T>::adopt(object);
}
/** lum::retain(LUMDictionaryGetValue(…)): a reference of its own to a Get result. */
template <typename T>
Ref<T> retain(T object) noexcept
{
    return Ref<T>::retain(object);
}

/** Equal as LUMEqual says (two empty references are equal). */
template <typename A, typename B>
bool operator==(const Ref<A> &a, const Ref<B> &b)
{
    if (a.get() == b.get()) return true;
    return a && b && LUMEqual(a.get(), b.get());
}
/** Not equal as LUMEqual says. */
template <typename A, typename B>
bool operator!=(const Ref<A> &a, const Ref<B> &b)
{
    return !(a == b);
}

/** The C reference of a Ref or of a plain C reference, lent. */
template <typename T>
T raw(const Ref<T> &ref) noexcept
{
    return ref.get();
}
/** A plain C reference, as it is. */
template <typename T, typename = std::enable_if_t<std::is_pointer_v<T>>>
T raw(T object) noexcept
{
    return object;
}

/* ---- Types ------------------------------------------------------------------- */

/** TypeOf<T>::id(): the type ID behind a C reference type. */
template <typename T>
struct TypeOf;
/// @cond specializations
#define LUM_CPP_TYPE(Reference, GetTypeID)               \
    template <>                                          \
    struct TypeOf<Reference> {                           \
        static LUMTypeID id() { return GetTypeID(); }    \
    }
LUM_CPP_TYPE(LUMStringRef, LUMStringGetTypeID);
LUM_CPP_TYPE(LUMMutableStringRef, LUMStringGetTypeID);
LUM_CPP_TYPE(LUMNumberRef, LUMNumberGetTypeID);
LUM_CPP_TYPE(LUMBooleanRef, LUMBooleanGetTypeID);
LUM_CPP_TYPE(LUMNullRef, LUMNullGetTypeID);
LUM_CPP_TYPE(LUMDataRef, LUMDataGetTypeID);
LUM_CPP_TYPE(LUMMutableDataRef, LUMDataGetTypeID);
LUM_CPP_TYPE(LUMArrayRef, LUMArrayGetTypeID);
LUM_CPP_TYPE(LUMMutableArrayRef, LUMArrayGetTypeID);
LUM_CPP_TYPE(LUMDictionaryRef, LUMDictionaryGetTypeID);
LUM_CPP_TYPE(LUMMutableDictionaryRef, LUMDictionaryGetTypeID);
LUM_CPP_TYPE(LUMSetRef, LUMSetGetTypeID);
LUM_CPP_TYPE(LUMMutableSetRef, LUMSetGetTypeID);
LUM_CPP_TYPE(LUMErrorRef, LUMErrorGetTypeID);
#undef LUM_CPP_TYPE
/// @endcond

/** object as a T when it is one (by type ID), else NULL; lent. The mutable
 * types answer for any object of their class: check before you edit. */
template <typename T>
T cast(LUMTypeRef object)
{
    if (object == nullptr || LUMGetTypeID(object) != TypeOf<T>::id()) return nullptr;
    return static_cast<T>(const_cast<void *>(object));
}

/** The value for key when it is a T, else NULL; lent. */
template <typename T, typename D>
T get(const D &dictionary, LUMTypeRef key)
{
    return cast<T>(LUMDictionaryGetValue(raw(dictionary), key));
}

/** The value at index (which must be in range) when it is a T, else NULL; lent. */
template <typename T, typename A>
T at(const A &array, LUMIndex index)
{
    return cast<T>(LUMArrayGetValueAtIndex(raw(array), index));
}

/* ---- Strings ------------------------------------------------------------------ */

/** A new string of UTF-8 text; bytes that are not UTF-8 become U+FFFD. */
inline Ref<LUMStringRef> string(std::string_view utf8)
{
    bool plain = true;
    for (char c : utf8) plain = plain && c != 0 && static_cast<unsigned char>(c) < 0x80;
    if (plain) {
        return adopt(LUMStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8 *>(utf8.data()), static_cast<LUMIndex>(utf8.size()),
                                              kLUMStringEncodingUTF8));
    }
    std::vector<UniChar> units;
    units.reserve(utf8.size());
    const auto *p = reinterpret_cast<const unsigned char *>(utf8.data());
    const unsigned char *end = p + utf8.size();
    auto continuation = [&](size_t i) { return p + i < end && (p[i] & 0xC0) == 0x80; };
    while (p < end) {
        unsigned lead = *p;
        uint32_t c = 0xFFFD;
        size_t length = 1;
        if (lead < 0x80) {
            c = lead;
        } else if (lead >= 0xC2 && lead <= 0xDF && continuation(1)) {
            c = ((lead & 0x1Fu) << 6) | (p[1] & 0x3Fu);
            length = 2;
        } else if (lead >= 0xE0 && lead <= 0xEF && continuation(1) && continuation(2)) {
            c = ((lead & 0x0Fu) << 12) | ((p[1] & 0x3Fu) << 6) | (p[2] & 0x3Fu);
            length = 3;
            if (c < 0x800 || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
        } else if (lead >= 0xF0 && lead <= 0xF4 && continuation(1) && continuation(2) && continuation(3)) {
            c = ((lead & 0x07u) << 18) | ((p[1] & 0x3Fu) << 12) | ((p[2] & 0x3Fu) << 6) | (p[3] & 0x3Fu);
            length = 4;
            if (c < 0x10000 || c > 0x10FFFF) c = 0xFFFD;
        }
        if (c >= 0x10000) {
            units.push_back(static_cast<UniChar>(0xD800 | ((c - 0x10000) >> 10)));
            units.push_back(static_cast<UniChar>(0xDC00 | ((c - 0x10000) & 0x3FF)));
        } else {
            units.push_back(static_cast<UniChar>(c));
        }
        p += length;
    }
    return adopt(LUMStringCreateWithCharacters(nullptr, units.data(), static_cast<LUMIndex>(units.size())));
}

/** The UTF-8 text of a string (NULL gives ""); unpaired surrogates become
 * U+FFFD. */
template <typename S>
std::string toString(const S &str)
{
    LUMStringRef s = raw(str);
    if (s == nullptr) return std::string();
    LUMIndex length = LUMStringGetLength(s);
    std::vector<UniChar> units(static_cast<size_t>(length) + 1);
    LUMStringGetCharacters(s, LUMRangeMake(0, length), units.data());
    std::string text;
    text.reserve(static_cast<size_t>(length));
    for (size_t i = 0; i < static_cast<size_t>(length); i++) {
        uint32_t c = units[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < static_cast<size_t>(length) && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF)
            c = 0x10000 + ((c - 0xD800) << 10) + (units[++i] - 0xDC00u);
        else if (c >= 0xD800 && c <= 0xDFFF)
            c = 0xFFFD;
        if (c < 0x80) {
            text += static_cast<char>(c);
        } else if (c < 0x800) {
            text += static_cast<char>(0xC0 | (c >> 6));
            text += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            text += static_cast<char>(0xE0 | (c >> 12));
            text += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            text += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            text += static_cast<char>(0xF0 | (c >> 18));
            text += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            text += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            text += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return text;
}

namespace literals {
/** "text"_lum: the constant string LUMSTR makes (never released; lent). */
inline LUMStringRef operator""_lum(const char *text, std::size_t) { return LUMSTR(text); }
} // namespace literals

namespace detail {
template <typename T>
struct IsRef : std::false_type {};
template <typename T>
struct IsRef<Ref<T>> : std::true_type {};

/** What a format argument is passed to C as: a Ref as its reference, a
 * std::string as its C string, anything else as it is. */
template <typename T>
auto formatArgument(const T &value)
{
    if constexpr (IsRef<T>::value) return value.get();
    else if constexpr (std::is_same_v<T, std::string>) return value.c_str();
    else if constexpr (std::is_array_v<T>) return static_cast<const std::remove_extent_t<T> *>(value);
    else return value;
}
} // namespace detail

/** A new string from a format (as LUMStringCreateWithFormat: %@ prints any
 * object); Refs and std::strings may be passed as they are. The format is
 * made a constant string with LUMSTR, which keeps each distinct text for
 * the life of the process: pass literals. */
template <typename... Args>
Ref<LUMStringRef> format(const char *format, const Args &...args)
{
    return adopt(LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR(format), detail::formatArgument(args)...));
}

/* ---- Numbers ------------------------------------------------------------------- */

namespace detail {
template <typename T>
constexpr LUMNumberType numberTypeFor()
{
    static_assert(std::is_arithmetic_v<T> && !std::is_same_v<T, bool>, "a C++ arithmetic type");
    if constexpr (std::is_floating_point_v<T>) return sizeof(T) == sizeof(float) ? kLUMNumberFloat32Type : kLUMNumberDoubleType;
    else if constexpr (sizeof(T) < 4 || (sizeof(T) == 4 && std::is_signed_v<T>)) return kLUMNumberSInt32Type;
    else return kLUMNumberSInt64Type;
}
} // namespace detail

/** A new number holding value: 32-bit integers for the smaller signed types,
 * 64-bit for the rest (unsigned 32-bit values included), Float32 for float,
 * Double for double and long double. */
template <typename T>
Ref<LUMNumberRef> number(T value)
{
    constexpr LUMNumberType type = detail::numberTypeFor<T>();
    if constexpr (type == kLUMNumberSInt32Type) {
        int32_t stored = static_cast<int32_t>(value);
        return adopt(LUMNumberCreate(nullptr, type, &stored));
    } else if constexpr (type == kLUMNumberSInt64Type) {
        int64_t stored = static_cast<int64_t>(value);
        return adopt(LUMNumberCreate(nullptr, type, &stored));
    } else if constexpr (type == kLUMNumberFloat32Type) {
        float stored = static_cast<float>(value);
        return adopt(LUMNumberCreate(nullptr, type, &stored));
    } else {
        double stored = static_cast<double>(value);
        return adopt(LUMNumberCreate(nullptr, type, &stored));
    }
}

/** The number's value as a T, or nothing when object is not a number or its
 * value does not fit a T exactly. */
template <typename T>
std::optional<T> value(LUMTypeRef object)
{
    LUMNumberRef n = cast<LUMNumberRef>(object);
    if (n == nullptr) return std::nullopt;
    if constexpr (std::is_floating_point_v<T>) {
        double stored = 0;
        if (!LUMNumberGetValue(n, kLUMNumberDoubleType, &stored)) return std::nullopt;
        if (LUMNumberIsFloatType(n) || static_cast<double>(static_cast<T>(stored)) == stored) return static_cast<T>(stored);
        return std::nullopt;
    } else {
        static_assert(std::is_integral_v<T> && !std::is_same_v<T, bool>, "a C++ arithmetic type");
        int64_t stored = 0;
        if (!LUMNumberGetValue(n, kLUMNumberSInt64Type, &stored)) return std::nullopt;
        if constexpr (std::is_unsigned_v<T>) {
            if (stored < 0) return std::nullopt;
        }
        if (static_cast<int64_t>(static_cast<T>(stored)) != stored) return std::nullopt;
        return static_cast<T>(stored);
    }
}

/* ---- Building property lists from C++ values ------------------------------------- */

/** Any property-list value: an object (a Ref or a C reference), nullptr for
 * kLUMNull, a bool, a C++ number or a text (UTF-8). */
class Value {
public:
    Value(std::nullptr_t) : object_(retain<LUMTypeRef>(kLUMNull)) {} /**< kLUMNull. */
    template <typename T>
    /** The object a Ref holds (retained). */
    Value(const Ref<T> &object) : object_(object)
    {
    }
    Value(LUMTypeRef object) : object_(retain(object)) {} /**< An object (retained). */
    Value(bool flag) : object_(retain<LUMTypeRef>(flag ? kLUMBooleanTrue : kLUMBooleanFalse)) {} /**< kLUMBooleanTrue or kLUMBooleanFalse. */
    template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T> && !std::is_same_v<T, bool>>>
    /** A number of the C++ type's kind. */
    Value(T number) : object_(lum::number(number))
    {
    }
    Value(const char *text) : object_(string(text)) {} /**< A string of UTF-8 text. */
    Value(std::string_view text) : object_(string(text)) {} /**< A string of UTF-8 text. */
    Value(const std::string &text) : object_(string(text)) {} /**< A string of UTF-8 text. */

    LUMTypeRef get() const noexcept { return object_.get(); } /**< The object, lent. */

private:
    Ref<LUMTypeRef> object_;
};

/** A {key, value} pair of lum::dictionary and lum::mutableDictionary. */
struct Entry {
    Value key; /**< the key (usually text) */
    Value value; /**< the value */
};

namespace detail {
inline std::vector<const void *> referencesOf(std::initializer_list<Value> values)
{
    std::vector<const void *> references;
    for (const Value &v : values) references.push_back(v.get());
    return references;
}
} // namespace detail

/** A new immutable array of the values, in order. */
inline Ref<LUMArrayRef> array(std::initializer_list<Value> values)
{
    std::vector<const void *> references = detail::referencesOf(values);
    return adopt(LUMArrayCreate(nullptr, references.data(), static_cast<LUMIndex>(references.size()), &kLUMTypeArrayCallBacks));
}

/** A new mutable array holding the values, in order. */
inline Ref<LUMMutableArrayRef> mutableArray(std::initializer_list<Value> values = {})
{
    auto made = adopt(LUMArrayCreateMutable(nullptr, 0, &kLUMTypeArrayCallBacks));
    for (const Value &v : values) LUMArrayAppendValue(made.get(), v.get());
    return made;
}

/** A new immutable dictionary of the entries ({key, value} pairs). */
inline Ref<LUMDictionaryRef> dictionary(std::initializer_list<Entry> entries)
{
    std::vector<const void *> keys, values;
    for (const Entry &e : entries) {
        keys.push_back(e.key.get());
        values.push_back(e.value.get());
    }
    return adopt(LUMDictionaryCreate(nullptr, keys.data(), values.data(), static_cast<LUMIndex>(keys.size()),
                                     &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks));
}

/** A new mutable dictionary holding the entries. */
inline Ref<LUMMutableDictionaryRef> mutableDictionary(std::initializer_list<Entry> entries = {})
{
    auto made = adopt(LUMDictionaryCreateMutable(nullptr, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks));
    for (const Entry &e : entries) LUMDictionarySetValue(made.get(), e.key.get(), e.value.get());
    return made;
}

/* ---- Range-for over collections ---------------------------------------------------- */

/** The values of an array, index by index, lent (the array may change
 * between steps: the count is read at every step). */
class ArrayValues {
public:
    /** Walks the array by index, reading the count as it goes. */
    class iterator {
    public:
        iterator(LUMArrayRef array, LUMIndex index) : array_(array), index_(index) {} /**< At index of array. */
        LUMTypeRef operator*() const { return LUMArrayGetValueAtIndex(array_, index_); } /**< The value at the index, lent. */
        /** The next index. */
        iterator &operator++()
        {
            index_++;
            return *this;
        }
        bool operator!=(const iterator &) const { return array_ != nullptr && index_ < LUMArrayGetCount(array_); } /**< Whether values remain. */

    private:
        LUMArrayRef array_;
        LUMIndex index_;
    };
    explicit ArrayValues(LUMArrayRef array) : array_(array) {} /**< The values of array (NULL: none). */
    iterator begin() const { return iterator(array_, 0); } /**< From the first value. */
    iterator end() const { return iterator(array_, 0); } /**< The end (the iterator itself knows when it is done). */

private:
    LUMArrayRef array_;
};

/** A snapshot of a dictionary's (key, value) pairs or of a set's values, lent:
 * the collection must outlive the loop. */
template <typename Item>
class Snapshot {
public:
    explicit Snapshot(std::vector<Item> items) : items_(std::move(items)) {} /**< Holds the items taken. */
    typename std::vector<Item>::const_iterator begin() const { return items_.begin(); } /**< The first item. */
    typename std::vector<Item>::const_iterator end() const { return items_.end(); } /**< Past the last item. */
    size_t size() const { return items_.size(); } /**< How many items. */

private:
    std::vector<Item> items_;
};

/** The values of an array (live, by index) or of a set (a snapshot), lent:
 * for (LUMTypeRef v : lum::values(collection)). NULL gives none. */
inline ArrayValues values(LUMArrayRef array) { return ArrayValues(array); }
template <typename T, typename = std::enable_if_t<std::is_convertible_v<T, LUMArrayRef>>>
/** The values of an array a Ref holds. */
ArrayValues values(const Ref<T> &array)
{
    return ArrayValues(array.get());
}

/** The members of a set, taken now. */
inline Snapshot<LUMTypeRef> values(LUMSetRef set)
{
    std::vector<LUMTypeRef> items(set != nullptr ? static_cast<size_t>(LUMSetGetCount(set)) : 0);
    if (!items.empty()) LUMSetGetValues(set, items.data());
    return Snapshot<LUMTypeRef>(std::move(items));
}
template <typename T, typename = std::enable_if_t<std::is_convertible_v<T, LUMSetRef>>, typename = void>
/** The members of a set a Ref holds, taken now. */
Snapshot<LUMTypeRef> values(const Ref<T> &set)
{
    return values(static_cast<LUMSetRef>(set.get()));
}

using KeyValue = std::pair<LUMTypeRef, LUMTypeRef>; /**< A key and its value, both lent. */

/** The (key, value) pairs of a dictionary, in its order: for (auto [k, v] : entries(d)). */
template <typename D>
Snapshot<KeyValue> entries(const D &dictionary)
{
    LUMDictionaryRef d = raw(dictionary);
    size_t count = d != nullptr ? static_cast<size_t>(LUMDictionaryGetCount(d)) : 0;
    std::vector<LUMTypeRef> keys(count), values(count);
    if (count > 0) LUMDictionaryGetKeysAndValues(d, keys.data(), values.data());
    std::vector<KeyValue> items;
    items.reserve(count);
    for (size_t i = 0; i < count; i++) items.emplace_back(keys[i], values[i]);
    return Snapshot<KeyValue>(std::move(items));
}

/** Range-for straight over a Ref to an array. */
template <typename T, typename = std::enable_if_t<std::is_convertible_v<T, LUMArrayRef>>>
ArrayValues::iterator begin(const Ref<T> &array)
{
    return ArrayValues(array.get()).begin();
}
template <typename T, typename = std::enable_if_t<std::is_convertible_v<T, LUMArrayRef>>>
/** The end of range-for over a Ref to an array. */
ArrayValues::iterator end(const Ref<T> &array)
{
    return ArrayValues(array.get()).end();
}

/* ---- Standard JSON, the error as a value --------------------------------------------- */

/** A result or the error that stands in its place. */
template <typename T>
struct Result {
    T value{}; /**< the result (empty when there is an error) */
    Ref<LUMErrorRef> error; /**< the error, or empty on success */

    explicit operator bool() const { return !error; } /**< Whether there is a result. */
    /** The error's sentence ("Unexpected character 'x' at line 3, column 7"),
     * or "" when there is none. */
    std::string message() const { return error ? toString(adopt(LUMErrorCopyDescription(error.get()))) : std::string(); }
    LUMIndex code() const { return error ? LUMErrorGetCode(error.get()) : 0; } /**< The error's code, 0 without an error. */
};

/** Reads JSON text (see LUMJSON.h): the tree, or the error. */
inline Result<Ref<LUMPropertyListRef>> readJSON(std::string_view text, LUMOptionFlags options = 0)
{
    auto data = adopt(LUMDataCreateWithBytesNoCopy(nullptr, reinterpret_cast<const UInt8 *>(text.data()), static_cast<LUMIndex>(text.size()),
                                                   kLUMAllocatorNull));
    LUMErrorRef error = nullptr;
    Result<Ref<LUMPropertyListRef>> result;
    result.value = adopt(LUMJSONCreateWithData(nullptr, data.get(), options, &error));
    result.error = adopt(error);
    return result;
}

/** Writes a property list as JSON text (see LUMJSON.h): the text, or the error. */
template <typename P>
Result<std::string> writeJSON(const P &plist, LUMOptionFlags options = 0)
{
    LUMErrorRef error = nullptr;
    auto data = adopt(LUMJSONCreateData(nullptr, raw(plist), options, &error));
    Result<std::string> result;
    if (data) result.value.assign(reinterpret_cast<const char *>(LUMDataGetBytePtr(data.get())), static_cast<size_t>(LUMDataGetLength(data.get())));
    result.error = adopt(error);
    return result;
}

/* ---- The run loop with lambdas ----------------------------------------------------------
 * The callable is moved into a block the timer, source or socket owns (its
 * context's info) and destroyed when that object is finalized. */

namespace detail {
template <typename F>
struct Held {
    F function;
};
template <typename F>
void destroyHeld(const void *info)
{
    delete static_cast<const Held<F> *>(info);
}
} // namespace detail

/** A new timer (add it with LUMRunLoopAddTimer) that calls onFire() or
 * onFire(timer) at fireDate and then every interval seconds (0: once). */
template <typename F>
Ref<LUMRunLoopTimerRef> timer(LUMAbsoluteTime fireDate, LUMTimeInterval interval, F &&onFire, LUMIndex order = 0)
{
    using Fn = std::decay_t<F>;
    auto *held = new detail::Held<Fn>{std::forward<F>(onFire)};
    LUMRunLoopTimerContext context = {0, held, nullptr, &detail::destroyHeld<Fn>, nullptr};
    auto call = [](LUMRunLoopTimerRef t, void *info) {
        Fn &function = static_cast<detail::Held<Fn> *>(info)->function;
        if constexpr (std::is_invocable_v<Fn &, LUMRunLoopTimerRef>) function(t);
        else function();
    };
    LUMRunLoopTimerRef made = LUMRunLoopTimerCreate(nullptr, fireDate, interval, 0, order, call, &context);
    if (made == nullptr) delete held;
    return adopt(made);
}

/** A new version 0 source whose work is perform(); signal it with
 * LUMRunLoopSourceSignal and add it with LUMRunLoopAddSource. */
template <typename F>
Ref<LUMRunLoopSourceRef> source(F &&perform, LUMIndex order = 0)
{
    using Fn = std::decay_t<F>;
    auto *held = new detail::Held<Fn>{std::forward<F>(perform)};
    LUMRunLoopSourceContext context = {};
    context.info = held;
    context.release = &detail::destroyHeld<Fn>;
    context.perform = [](void *info) { static_cast<detail::Held<Fn> *>(info)->function(); };
    LUMRunLoopSourceRef made = LUMRunLoopSourceCreate(nullptr, order, &context);
    if (made == nullptr) delete held;
    return adopt(made);
}

namespace detail {
template <typename Fn>
void socketCall(LUMSocketRef s, LUMSocketCallBackType type, LUMDataRef address, const void *data, void *info)
{
    static_cast<Held<Fn> *>(info)->function(s, type, address, data);
}
template <typename Fn>
LUMSocketContext socketContext(Held<Fn> *held)
{
    return {0, held, nullptr, &destroyHeld<Fn>, nullptr};
}
} // namespace detail

/** A socket over a descriptor you own (LUMSocketCreateWithNative) whose
 * callback is onEvent(socket, type, address, data). */
template <typename F>
Ref<LUMSocketRef> socket(LUMSocketNativeHandle native, LUMOptionFlags callBackTypes, F &&onEvent)
{
    using Fn = std::decay_t<F>;
    auto *held = new detail::Held<Fn>{std::forward<F>(onEvent)};
    LUMSocketContext context = detail::socketContext(held);
    LUMSocketRef made = LUMSocketCreateWithNative(nullptr, native, callBackTypes, &detail::socketCall<Fn>, &context);
    if (made == nullptr) delete held;
    return adopt(made);
}

/** A new socket (LUMSocketCreate: family, type, protocol) whose callback is
 * onEvent(socket, type, address, data). */
template <typename F>
Ref<LUMSocketRef> socket(int32_t family, int32_t type, int32_t protocol, LUMOptionFlags callBackTypes, F &&onEvent)
{
    using Fn = std::decay_t<F>;
    auto *held = new detail::Held<Fn>{std::forward<F>(onEvent)};
    LUMSocketContext context = detail::socketContext(held);
    LUMSocketRef made = LUMSocketCreate(nullptr, family, type, protocol, callBackTypes, &detail::socketCall<Fn>, &context);
    if (made == nullptr) delete held;
    return adopt(made);
}

/** Puts a socket on the current run loop in the common modes (its source
 * keeps it until it is invalidated) and returns it. */
template <typename S>
const S &watch(const S &socket)
{
    auto runLoopSource = adopt(LUMSocketCreateRunLoopSource(nullptr, raw(socket), 0));
    LUMRunLoopAddSource(LUMRunLoopGetCurrent(), runLoopSource.get(), kLUMRunLoopCommonModes);
    return socket;
}

} // namespace lum

namespace std {
/** Refs as keys of unordered containers: LUMHash, with == as LUMEqual. */
template <typename T>
struct hash<lum::Ref<T>> {
    size_t operator()(const lum::Ref<T> &ref) const noexcept { return ref ? static_cast<size_t>(LUMHash(ref.get())) : 0; } /**< LUMHash of the object, 0 for an empty Ref. */
};
} // namespace std

#endif
