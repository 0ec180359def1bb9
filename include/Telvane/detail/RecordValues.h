/// \file
/// The types that members of a record may have, and how their values become JSON.
///
/// RecordTable.h includes this header. Applications need not name anything in it.
#pragma once

#include <Telvane/TelvaneDataTypeBase.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Telvane
{

/// The largest absolute value of an integer of more than 32 bits: 2^52. The JSON library prints each integer up to
/// here exactly. It rounds some larger ones to 15 digits.
constexpr std::int64_t kLargestInteger = 4503599627370496;

/// Access to a member of a type that has no FieldKind of its own.
struct ValueOperations
{
    /// Returns the value as a new tree; null if it cannot be written. Throws `std::bad_alloc`.
    cJSON* (*write)(const void* member);
    /// Sets the member; \p item is null if there is no such key. On failure the member is unchanged.
    bool (*read)(void* member, const cJSON* item);
    bool (*isAbsent)(const void* member); ///< returns whether the key is left out; null: never
    bool (*toNumber)(const void* member, double& number); ///< as write(), for numbers; null for other values
    bool (*fromNumber)(void* member, double number);      ///< as read(), for numbers; null for other values
    const void* reserved[3] = {};                         ///< null, for operations to come
};

namespace Detail
{

/// The library's part in writing and reading values.
class TELVANE_EXPORT JsonValue
{
public:
    /// Frees a tree.
    struct TELVANE_EXPORT Deleter
    {
        void operator()(cJSON* tree) const; ///< frees \p tree
    };
    /// A tree and its owner.
    using Tree = std::unique_ptr<cJSON, Deleter>;

    /// \name Writing
    /// Throws `std::bad_alloc`. record() returns null if the record cannot be written.
    /// @{

    /// Creates a tree, or adds to one.
    static Tree number(double value);
    static Tree flag(bool value);
    static Tree text(const std::string& value);
    static Tree record(const TelvaneDataTypeBase& value);
    static Tree list();
    static Tree map();
    static void append(cJSON* list, Tree element);
    static void add(cJSON* map, const std::string& key, Tree value);
    /// \return the number with the fewest digits that is \p value when it is read as a `float`
    static double shortest(float value);
    /// @}

    /// \name Reading
    /// \return false if \p item is null or has another type
    /// @{
    static bool read(const cJSON* item, double& value);
    static bool read(const cJSON* item, bool& value);
    static bool read(const cJSON* item, std::string& value);
    static bool read(const cJSON* item, TelvaneDataTypeBase& value);
    static bool isList(const cJSON* item);
    static bool isMap(const cJSON* item);
    static bool isMissing(const cJSON* item); ///< \return whether \p item is null or JSON's `null`
    /// @}
};

/// \cond

/// Writes and reads values of one type. This one is for types that are not supported.
template <class T, class = void>
struct Codec
{
    static constexpr bool kSupported = false; ///< whether a field may have the type
    static constexpr bool kNumber = false;    ///< whether there are toNumber() and fromNumber()
    static constexpr bool kOptional = false;  ///< whether the type is a `std::optional`
};

/// Characters are integers to the compiler, but have no obvious form in JSON.
template <class T>
inline constexpr bool kIsCharacter = std::is_same_v<T, char> || std::is_same_v<T, wchar_t> ||
                                     std::is_same_v<T, char16_t> || std::is_same_v<T, char32_t>;

/// The common part of numbers.
template <class T>
struct NumberCodec
{
    static constexpr bool kSupported = true;
    static constexpr bool kNumber = true;
    static constexpr bool kOptional = false;

    static JsonValue::Tree write(const T& value)
    {
        double number = 0.0;
        return Codec<T>::toNumber(value, number) ? JsonValue::number(number) : nullptr;
    }
    static bool read(T& value, const cJSON* item)
    {
        double number = 0.0;
        return JsonValue::read(item, number) && Codec<T>::fromNumber(value, number);
    }
};

/// Integers: whole numbers in the range of the type, at most kLargestInteger.
template <class T>
struct Codec<T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool> && !kIsCharacter<T> &&
                                 !std::is_const_v<T> && !std::is_volatile_v<T>>> : NumberCodec<T>
{
    static constexpr bool kIsLarge = std::numeric_limits<T>::digits > 52;

    static constexpr T most()
    {
        if constexpr (kIsLarge) {
            return static_cast<T>(kLargestInteger);
        }
        return std::numeric_limits<T>::max();
    }
    static constexpr T least()
    {
        if constexpr (kIsLarge && std::is_signed_v<T>) {
            return static_cast<T>(-kLargestInteger);
        }
        return std::numeric_limits<T>::min();
    }

    static bool toNumber(T value, double& number)
    {
        number = static_cast<double>(value);
        return value >= least() && value <= most();
    }
    static bool fromNumber(T& value, double number)
    {
        if (!(number >= static_cast<double>(least()) && number <= static_cast<double>(most())) ||
            number != std::trunc(number)) {
            return false;
        }
        value = static_cast<T>(number);
        return true;
    }
};

template <>
struct Codec<double> : NumberCodec<double>
{
    static bool toNumber(double value, double& number)
    {
        number = value;
        return true;
    }
    static bool fromNumber(double& value, double number) { return toNumber(number, value); }
};

template <>
struct Codec<float> : NumberCodec<float>
{
    static bool toNumber(float value, double& number)
    {
        number = JsonValue::shortest(value);
        return true;
    }
    static bool fromNumber(float& value, double number)
    {
        constexpr auto kMost = static_cast<double>(std::numeric_limits<float>::max());
        constexpr double kRoundsDown = 1.0 + 0x1p-26; // the largest float in few digits is a little more
        if (std::fabs(number) > kMost * kRoundsDown) {
            return false;
        }
        value = static_cast<float>(std::min(std::max(number, -kMost), kMost));
        return true;
    }
};

/// Enumerations: their numbers.
template <class T>
struct Codec<T, std::enable_if_t<std::is_enum_v<T> && !std::is_const_v<T> && !std::is_volatile_v<T>>>
    : NumberCodec<T>
{
    using Underlying = std::underlying_type_t<T>;
    /// An integer, also where the underlying type is `bool` or a character.
    using Number = std::conditional_t<std::is_same_v<Underlying, bool> || kIsCharacter<Underlying>,
                                      std::int64_t, Underlying>;

    static bool toNumber(T value, double& number)
    {
        return Codec<Number>::toNumber(static_cast<Number>(value), number);
    }
    static bool fromNumber(T& value, double number)
    {
        Number integer = 0;
        if (!Codec<Number>::fromNumber(integer, number) ||
            static_cast<Number>(static_cast<Underlying>(integer)) != integer) {
            return false;
        }
        value = static_cast<T>(integer);
        return true;
    }
};

/// The common part of flags, texts and records.
struct PlainCodec
{
    static constexpr bool kSupported = true;
    static constexpr bool kNumber = false;
    static constexpr bool kOptional = false;

    template <class T>
    static bool read(T& value, const cJSON* item)
    {
        return JsonValue::read(item, value);
    }
};

template <>
struct Codec<bool> : PlainCodec
{
    static JsonValue::Tree write(bool value) { return JsonValue::flag(value); }
};

template <>
struct Codec<std::string> : PlainCodec
{
    static JsonValue::Tree write(const std::string& value) { return JsonValue::text(value); }
};

template <class T>
struct Codec<T, std::enable_if_t<std::is_base_of_v<TelvaneDataTypeBase, T> && !std::is_abstract_v<T> &&
                                 !std::is_const_v<T>>> : PlainCodec
{
    static JsonValue::Tree write(const T& value) { return JsonValue::record(value); }
};

/// An optional value: its key is left out while it is empty; null is read as empty.
template <class T>
struct Codec<std::optional<T>>
{
    static constexpr bool kSupported = Codec<T>::kSupported && !Codec<T>::kOptional;
    static constexpr bool kNumber = false;
    static constexpr bool kOptional = true;

    static JsonValue::Tree write(const std::optional<T>& value) { return Codec<T>::write(*value); }
    static bool read(std::optional<T>& value, const cJSON* item)
    {
        std::optional<T> present;
        if (!JsonValue::isMissing(item) && !Codec<T>::read(present.emplace(), item)) {
            return false;
        }
        value = std::move(present);
        return true;
    }
};

template <class T, class Allocator>
struct Codec<std::vector<T, Allocator>>
{
    static constexpr bool kSupported = Codec<T>::kSupported && !Codec<T>::kOptional;
    static constexpr bool kNumber = false;
    static constexpr bool kOptional = false;

    static JsonValue::Tree write(const std::vector<T, Allocator>& values)
    {
        JsonValue::Tree list = JsonValue::list();
        for (const auto& value : values) {
            JsonValue::Tree element = Codec<T>::write(value);
            if (element == nullptr) {
                return nullptr;
            }
            JsonValue::append(list.get(), std::move(element));
        }
        return list;
    }
    static bool read(std::vector<T, Allocator>& values, const cJSON* item)
    {
        if (!JsonValue::isList(item)) {
            return false;
        }
        std::vector<T, Allocator> elements;
        for (const cJSON* element = item->child; element != nullptr; element = element->next) {
            T value{};
            if (!Codec<T>::read(value, element)) {
                return false;
            }
            elements.push_back(std::move(value));
        }
        values = std::move(elements);
        return true;
    }
};

/// Maps by text: objects.
template <class Map>
struct MapCodec
{
    using Value = typename Map::mapped_type;
    static constexpr bool kSupported = Codec<Value>::kSupported && !Codec<Value>::kOptional;
    static constexpr bool kNumber = false;
    static constexpr bool kOptional = false;

    static JsonValue::Tree write(const Map& values)
    {
        JsonValue::Tree map = JsonValue::map();
        for (const auto& [key, value] : values) {
            JsonValue::Tree member = Codec<Value>::write(value);
            if (member == nullptr) {
                return nullptr;
            }
            JsonValue::add(map.get(), key, std::move(member));
        }
        return map;
    }
    static bool read(Map& values, const cJSON* item)
    {
        if (!JsonValue::isMap(item)) {
            return false;
        }
        Map members;
        for (const cJSON* member = item->child; member != nullptr; member = member->next) {
            Value value{};
            if (!Codec<Value>::read(value, member)) {
                return false;
            }
            members.emplace(member->string, std::move(value));
        }
        values = std::move(members);
        return true;
    }
};

template <class T, class Less, class Allocator>
struct Codec<std::map<std::string, T, Less, Allocator>> : MapCodec<std::map<std::string, T, Less, Allocator>>
{};

template <class T, class Hash, class Equal, class Allocator>
struct Codec<std::unordered_map<std::string, T, Hash, Equal, Allocator>>
    : MapCodec<std::unordered_map<std::string, T, Hash, Equal, Allocator>>
{};

/// \return the operations of members of type \p T
template <class T>
const ValueOperations& valueOperations()
{
    static const ValueOperations operations = [] {
        ValueOperations made = {};
        made.write = [](const void* member) {
            return Codec<T>::write(*static_cast<const T*>(member)).release();
        };
        made.read = [](void* member, const cJSON* item) {
            return Codec<T>::read(*static_cast<T*>(member), item);
        };
        if constexpr (Codec<T>::kOptional) {
            made.isAbsent = [](const void* member) {
                return !static_cast<const T*>(member)->has_value();
            };
        }
        if constexpr (Codec<T>::kNumber) {
            made.toNumber = [](const void* member, double& number) {
                return Codec<T>::toNumber(*static_cast<const T*>(member), number);
            };
            made.fromNumber = [](void* member, double number) {
                return Codec<T>::fromNumber(*static_cast<T*>(member), number);
            };
        }
        return made;
    }();
    return operations;
}

/// Whether \p T is a record with a list of fields.
template <class T, class = void>
inline constexpr bool kIsListedRecord = false;
template <class T>
inline constexpr bool kIsListedRecord<T, std::void_t<decltype(T::recordTable())>> = Codec<T>::kSupported;

/// Whether \p T is a vector of them.
template <class T>
inline constexpr bool kIsVectorOfListedRecords = false;
template <class T>
inline constexpr bool kIsVectorOfListedRecords<std::vector<T>> = kIsListedRecord<T>;

/// Whether a member of a record may have the type \p T.
template <class T>
inline constexpr bool kIsField = Codec<T>::kSupported;
template <class T, std::size_t N>
inline constexpr bool kIsField<T[N]> =
    std::is_same_v<T, bool> || std::is_same_v<T, int> || kIsListedRecord<T>;

/// \endcond

} // namespace Detail

} // namespace Telvane
