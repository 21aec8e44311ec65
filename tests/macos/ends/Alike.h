#pragma once

#import <Foundation/Foundation.h>

#include <cstddef>
#include <type_traits>

namespace fake {

// Whether two types are the same to compiled code: numbers by kind, size and sign, functions and blocks by
// what they take and give, objects when one may stand for the other, pointers to anything by what they point
// to. Constants are as variables.
template <typename A, typename B>
struct IsAlike;

template <typename A, typename B>
inline constexpr bool Alike = IsAlike<std::remove_cv_t<A>, std::remove_cv_t<B>>::value;

namespace detail {

template <typename T>
inline constexpr bool isNumber = std::is_arithmetic_v<T> || std::is_enum_v<T>;

template <typename T>
inline constexpr bool isObject = std::is_convertible_v<T, id> && !std::is_same_v<T, std::nullptr_t>;

template <typename T, bool = std::is_enum_v<T>>
struct Number {
    using type = T;
};
template <typename T>
struct Number<T, true> {
    using type = std::underlying_type_t<T>;
};

template <typename A, typename B>
constexpr bool alikeNumbers() {
    using NumberA = typename Number<A>::type;
    using NumberB = typename Number<B>::type;
    const bool isTruth = std::is_same_v<NumberA, bool> || std::is_same_v<NumberB, bool>;
    return sizeof(NumberA) == sizeof(NumberB) &&
           std::is_floating_point_v<NumberA> == std::is_floating_point_v<NumberB> &&
           (isTruth || std::is_signed_v<NumberA> == std::is_signed_v<NumberB>);
}

template <typename A, typename B>
constexpr bool alikePointers() {
    using PointeeA = std::remove_cv_t<std::remove_pointer_t<A>>;
    using PointeeB = std::remove_cv_t<std::remove_pointer_t<B>>;
    if constexpr (std::is_void_v<PointeeA> || std::is_void_v<PointeeB>) {
        return true;  // callbacks in structures, and what is published as any pointer
    } else {
        return Alike<PointeeA, PointeeB>;
    }
}

template <typename A, typename B>
constexpr bool alike() {
    if constexpr (std::is_same_v<A, B>) {
        return true;
    } else if constexpr (isNumber<A> && isNumber<B>) {
        return alikeNumbers<A, B>();
    } else if constexpr (isObject<A> && isObject<B>) {
        return std::is_convertible_v<A, B> || std::is_convertible_v<B, A>;
    } else if constexpr (std::is_pointer_v<A> && std::is_pointer_v<B>) {
        return alikePointers<A, B>();
    } else {
        return false;
    }
}

}  // namespace detail

template <typename A, typename B>
struct IsAlike : std::bool_constant<detail::alike<A, B>()> {};

template <typename ResultA, typename... A, typename ResultB, typename... B>
struct IsAlike<ResultA(A...), ResultB(B...)> {
    static constexpr bool same() {
        if constexpr (sizeof...(A) == sizeof...(B)) {
            return Alike<ResultA, ResultB> && (Alike<A, B> && ...);
        } else {
            return false;
        }
    }
    static constexpr bool value = same();
};
template <typename ResultA, typename... A, typename ResultB, typename... B>
struct IsAlike<ResultA(A..., ...), ResultB(B..., ...)> : IsAlike<ResultA(A...), ResultB(B...)> {};
template <typename ResultA, typename... A, typename ResultB, typename... B>
struct IsAlike<ResultA (^)(A...), ResultB (^)(B...)> : IsAlike<ResultA(A...), ResultB(B...)> {};
template <typename A, typename B, std::size_t N>
struct IsAlike<A[N], B[N]> : IsAlike<A, B> {};

// An argument for a parameter of a type that is alike, and for no other.
template <typename T>
struct Exactly {
    template <typename Parameter, typename = std::enable_if_t<Alike<Parameter, T>>>
    operator Parameter() const;  // NOLINT(google-explicit-constructor)
};

// It tells what it is for.
static_assert(Alike<long, NSInteger> && Alike<int, const int> && !Alike<int, long> && !Alike<int, unsigned>);
static_assert(!Alike<float, double> && !Alike<int(long), int(long, long)> && !Alike<int(long), int(int)>);
static_assert(Alike<void (^)(NSError*), void (^)(NSError*)> && !Alike<void (^)(NSError*), void (^)(void)>);
static_assert(Alike<NSString*, id> && !Alike<NSString*, NSNumber*> && !Alike<NSString*, int>);
static_assert(std::is_convertible_v<Exactly<long>, long> && !std::is_convertible_v<Exactly<long>, int>);

}  // namespace fake
