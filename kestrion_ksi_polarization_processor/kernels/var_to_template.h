// Turns run-time booleans into compile-time types, one per level, and at the
// end calls the callback with the complete type list.
#pragma once

#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

template <class Callback, std::size_t N, class Chosen>
struct var_to_template;

template <class Callback, std::size_t N, class... Chosen>
struct var_to_template<Callback, N, std::tuple<Chosen...>> {
    template <class... Rest>
    static void impl(bool first, Rest&&... rest)
    {
        if (first)
            var_to_template<Callback, N - 1, std::tuple<Chosen..., std::true_type>>::impl(std::forward<Rest>(rest)...);
        else
            var_to_template<Callback, N - 1, std::tuple<Chosen..., std::false_type>>::impl(
                std::forward<Rest>(rest)...);
    }
};

template <class Callback, class... Chosen>
struct var_to_template<Callback, 0, std::tuple<Chosen...>> {
    template <class... Arguments>
    static void impl(Arguments&&... arguments)
    {
        Callback{}.template operator()<Chosen...>(std::forward<Arguments>(arguments)...);
    }
};
