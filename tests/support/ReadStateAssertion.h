// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "persistence/PersistenceReadState.h"

#include <gtest/gtest.h>

#include <string>

/// Read states compared and described without a gtest printer: a printer seen by only some test files would break
/// the one definition rule, since gtest's printing templates are shared by every file of an executable.
inline ::testing::AssertionResult isState(const orvane::PersistenceReadState& actual,
                                          const orvane::PersistenceReadState& expected)
{
    const auto describe = [](const orvane::PersistenceReadState& state) {
        if (const auto* loaded = std::get_if<orvane::PersistenceReadState::Loaded>(&state.value)) {
            return "loaded(" + std::to_string(loaded->schemaVersion) + ')';
        }
        if (const auto failure = state.failure()) {
            return "unreadable(" + failure->message().toStdString() + ')';
        }
        return std::string("absent");
    };
    if (actual == expected) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "the state is " << describe(actual) << ", not " << describe(expected);
}
