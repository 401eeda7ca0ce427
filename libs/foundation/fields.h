#pragma once
#include <cstddef>
#include <span>
#include <string_view>
#include <type_traits>

/// Names of the fields of structures and of the enumerators of enumerations, for whoever writes them as text or maps.

namespace fn {

template <typename E> struct Enumerator {
    std::string_view name;
    E value;
};

/// Whether `FN_FIELDS` names the fields of T.
template <typename T>
concept HasFields = requires(const T* type)
{
    fnFieldCount(type);
};

/// Whether `FN_ENUM` names the enumerators of T.
template <typename T>
concept HasEnumerators = std::is_enum_v<T> && requires(const T* type)
{
    fnEnumerators(type);
};

} // namespace fn

// --- The macro that applies another one to each of its arguments, up to 256 of them.

#define FN_PARENTHESES ()
#define FN_SCAN(...) FN_SCAN4(FN_SCAN4(FN_SCAN4(FN_SCAN4(__VA_ARGS__))))
#define FN_SCAN4(...) FN_SCAN3(FN_SCAN3(FN_SCAN3(FN_SCAN3(__VA_ARGS__))))
#define FN_SCAN3(...) FN_SCAN2(FN_SCAN2(FN_SCAN2(FN_SCAN2(__VA_ARGS__))))
#define FN_SCAN2(...) FN_SCAN1(FN_SCAN1(FN_SCAN1(FN_SCAN1(__VA_ARGS__))))
#define FN_SCAN1(...) __VA_ARGS__
#define FN_FOR_EACH(macro, ...) __VA_OPT__(FN_SCAN(FN_FOR_EACH_STEP(macro, __VA_ARGS__)))
#define FN_FOR_EACH_STEP(macro, first, ...) \
    macro(first) __VA_OPT__(FN_FOR_EACH_AGAIN FN_PARENTHESES(macro, __VA_ARGS__))
#define FN_FOR_EACH_AGAIN() FN_FOR_EACH_STEP

#define FN_VISIT_FIELD(field) visitor(#field, object.field);
#define FN_COUNT_FIELD(field) +1

/// Names the fields of a structure that stands in the same namespace: FN_FIELDS(Thumbnail, width, height, pixels)
#define FN_FIELDS(Type, ...) \
    template <typename Visitor> inline void fnVisitFields(Type& object, Visitor&& visitor) \
    { \
        FN_FOR_EACH(FN_VISIT_FIELD, __VA_ARGS__) \
    } \
    template <typename Visitor> inline void fnVisitFields(const Type& object, Visitor&& visitor) \
    { \
        FN_FOR_EACH(FN_VISIT_FIELD, __VA_ARGS__) \
    } \
    constexpr std::size_t fnFieldCount(const Type*) { return 0 FN_FOR_EACH(FN_COUNT_FIELD, __VA_ARGS__); } \
    constexpr std::string_view fnTypeName(const Type*) { return #Type; }

#define FN_NAME_ENUMERATOR(enumerator) { #enumerator, Enumeration::enumerator },

/// Names the enumerators of an enumeration that stands in the same namespace: FN_ENUM(Colour, red, green)
#define FN_ENUM(Type, ...) \
    inline std::span<const ::fn::Enumerator<Type>> fnEnumerators(const Type*) \
    { \
        using Enumeration = Type; \
        static constexpr ::fn::Enumerator<Type> all[] { FN_FOR_EACH(FN_NAME_ENUMERATOR, __VA_ARGS__) }; \
        return all; \
    } \
    constexpr std::string_view fnTypeName(const Type*) { return #Type; }
