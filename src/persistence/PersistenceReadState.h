// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "persistence/PersistenceReadFailure.h"

#include <optional>
#include <variant>

namespace orvane {

/// What a store found under its key at launch, and what it has written since.
struct PersistenceReadState {
    /// Read (or last written) at this schema version.
    struct Loaded {
        qint64 schemaVersion = 0;
        friend bool operator==(const Loaded&, const Loaded&) = default;
    };
    /// Present but unreadable: writes are refused until the user resets the record.
    struct Unreadable {
        PersistenceReadFailure failure;
        friend bool operator==(const Unreadable&, const Unreadable&) = default;
    };
    /// Nothing stored under the key.
    struct Absent {
        friend bool operator==(const Absent&, const Absent&) = default;
    };

    std::variant<Loaded, Unreadable, Absent> value = Absent{};

    static PersistenceReadState loaded(qint64 schemaVersion) { return {Loaded{schemaVersion}}; }
    static PersistenceReadState unreadable(PersistenceReadFailure failure) { return {Unreadable{std::move(failure)}}; }
    static PersistenceReadState absent() { return {Absent{}}; }

    /// The failure, when unreadable.
    std::optional<PersistenceReadFailure> failure() const;
    bool isUnreadable() const { return std::holds_alternative<Unreadable>(value); }

    friend bool operator==(const PersistenceReadState&, const PersistenceReadState&) = default;
};

} // namespace orvane
