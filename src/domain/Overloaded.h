// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace orvane {

/// Combines lambdas into one visitor for std::visit.
template <class... Ts>
struct Overloaded : Ts... {
    using Ts::operator()...;
};

// Spelt out for clang 14 (the fuzzing compiler), which does not deduce aggregate template arguments on its own.
template <class... Ts>
Overloaded(Ts...) -> Overloaded<Ts...>;

} // namespace orvane
