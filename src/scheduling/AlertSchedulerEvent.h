// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/AlertBatch.h"
#include "persistence/PersistenceComponent.h"

#include <QString>

#include <exception>
#include <optional>
#include <variant>
#include <vector>

namespace orvane {

/// The scheduler's published state at one instant.
struct AlertSchedulerSnapshot {
    std::vector<MeetingOccurrence> upcoming;
    std::vector<AlertBatch> activeBatches;
    std::optional<Date> nextTriggerDate;
    bool isRefreshing = false;

    friend bool operator==(const AlertSchedulerSnapshot&, const AlertSchedulerSnapshot&) = default;
};

/// A background operation of the scheduler that failed. The scheduler never throws these; it reports them.
struct AlertSchedulerFailure {
    enum class Operation {
        readingPersistence,
        fetchingMeetings,
        reconcilingPersistence,
        recordingDelivery,
        pruningHistory,
    };

    Operation operation = Operation::fetchingMeetings;
    /// The underlying error's description.
    QString underlyingError;
    /// The unreadable record, for `readingPersistence`.
    std::optional<PersistenceIssue> persistenceIssue;
    /// The underlying error itself, for callers that need its type.
    std::exception_ptr error;

    /// Builds a failure from the exception being handled.
    static AlertSchedulerFailure fromCurrentException(Operation operation);
};

/// What the scheduler tells its owner.
struct AlertSchedulerEvent {
    /// The published state changed.
    struct StateChanged {
        AlertSchedulerSnapshot snapshot;
    };
    /// A batch has fallen due and must be shown.
    struct AlertsDue {
        AlertBatch batch;
    };
    /// An operation failed.
    struct Failed {
        AlertSchedulerFailure failure;
    };
    /// A refresh completed without a fetch error.
    struct RefreshSucceeded {};
    /// A background operation that had failed succeeded again: its failure no longer applies.
    struct Recovered {
        AlertSchedulerFailure::Operation operation = AlertSchedulerFailure::Operation::fetchingMeetings;
    };

    std::variant<StateChanged, AlertsDue, Failed, RefreshSucceeded, Recovered> value;
};

/// Why a user action on an alert was refused. Thrown to the caller.
class AlertSchedulerActionError : public std::exception {
public:
    /// Unreadable stored records: nothing is recorded until the user reviews them.
    struct PersistenceRecoveryRequired {
        std::vector<PersistenceIssue> issues;
        friend bool operator==(const PersistenceRecoveryRequired&, const PersistenceRecoveryRequired&) = default;
    };
    /// The action names a meeting that is not on any active alert.
    struct OccurrenceIsNotActive {
        friend bool operator==(const OccurrenceIsNotActive&, const OccurrenceIsNotActive&) = default;
    };
    /// A snooze must end after now.
    struct SnoozeMustBeInTheFuture {
        friend bool operator==(const SnoozeMustBeInTheFuture&, const SnoozeMustBeInTheFuture&) = default;
    };

    using Case = std::variant<PersistenceRecoveryRequired, OccurrenceIsNotActive, SnoozeMustBeInTheFuture>;

    explicit AlertSchedulerActionError(Case value);

    const Case& value() const { return m_value; }
    QString description() const;
    const char* what() const noexcept override;

private:
    Case m_value;
    QByteArray m_what;
};

} // namespace orvane
