// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/ExclusionScope.h"
#include "domain/MeetingOccurrence.h"
#include "domain/RawValue.h"

#include <QString>

#include <variant>
#include <vector>

namespace orvane {

/// When the user asked to be reminded again; the scheduler turns it into a time.
enum class FullScreenAlertSnooze {
    oneMinute,
    fiveMinutes,
    untilStart,
};

template <>
struct RawValues<FullScreenAlertSnooze> {
    static constexpr std::string_view name = "FullScreenAlertSnooze";
    static constexpr std::array cases = {
        std::pair{FullScreenAlertSnooze::oneMinute, std::string_view("oneMinute")},
        std::pair{FullScreenAlertSnooze::fiveMinutes, std::string_view("fiveMinutes")},
        std::pair{FullScreenAlertSnooze::untilStart, std::string_view("untilStart")},
    };
};

/// One choice the exclusion menu of a recurring meeting offers.
struct AlertExclusionOption {
    QString title;
    ExclusionScope scope = ExclusionScope::occurrence;

    /// "Only this occurrence", then "Entire series".
    static std::vector<AlertExclusionOption> recurringOptions();

    friend bool operator==(const AlertExclusionOption&, const AlertExclusionOption&) = default;
};

/// The single answer a full-screen alert yields per presentation.
struct FullScreenAlertAction {
    /// Join this meeting through its link.
    struct Join {
        MeetingOccurrence meeting;
        friend bool operator==(const Join&, const Join&) = default;
    };
    /// Closed without another choice (the button or Escape); carries every meeting of the alert.
    struct Dismiss {
        std::vector<MeetingIdentity> meetingIDs;
        friend bool operator==(const Dismiss&, const Dismiss&) = default;
    };
    /// No more full-screen alerts for this occurrence or its whole series.
    struct Exclude {
        MeetingOccurrence meeting;
        ExclusionScope scope = ExclusionScope::occurrence;
        friend bool operator==(const Exclude&, const Exclude&) = default;
    };
    /// Remind again later.
    struct Snooze {
        std::vector<MeetingIdentity> meetingIDs;
        FullScreenAlertSnooze option = FullScreenAlertSnooze::oneMinute;
        friend bool operator==(const Snooze&, const Snooze&) = default;
    };
    /// Nobody answered before the alert's safety time.
    struct Expired {
        std::vector<MeetingIdentity> meetingIDs;
        friend bool operator==(const Expired&, const Expired&) = default;
    };

    std::variant<Join, Dismiss, Exclude, Snooze, Expired> value;

    friend bool operator==(const FullScreenAlertAction&, const FullScreenAlertAction&) = default;
};

std::size_t hash(const FullScreenAlertAction& action);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::FullScreenAlertAction);
