// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "support/EdsTestSession.h"

#include <gtest/gtest.h>

#include <exception>

/// Runs a whole test program inside one private Evolution Data Server session (see EdsTestSession).
///
/// Register it from the test file, so that it is set up before any test touches GLib:
///     const auto* const environment = ::testing::AddGlobalTestEnvironment(new EdsTestEnvironment);
class EdsTestEnvironment : public ::testing::Environment {
public:
    void SetUp() override
    {
        try {
            session().start();
        } catch (const std::exception& error) {
            FAIL() << error.what();
        }
    }

    void TearDown() override { session().stop(); }

    /// The running session, for tests that look at or kill its processes.
    static EdsTestSession& session()
    {
        // Static, so that a program leaving without TearDown still stops the bus on exit.
        static EdsTestSession instance;
        return instance;
    }
};
