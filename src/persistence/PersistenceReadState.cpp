// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/PersistenceReadState.h"

namespace orvane {

std::optional<PersistenceReadFailure> PersistenceReadState::failure() const
{
    if (const auto* unreadable = std::get_if<Unreadable>(&value)) {
        return unreadable->failure;
    }
    return std::nullopt;
}

} // namespace orvane
