// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace orvane {

/// Combines lambdas into one visitor for std::visit.
template <class... Ts>
struct Overloaded : Ts... {
    using Ts::operator()...;
};

} // namespace orvane
