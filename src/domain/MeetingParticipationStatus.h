// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/RawValue.h"

namespace orvane {

/// The current user's answer to a meeting invitation. Only `declined` keeps a meeting from alerting.
enum class MeetingParticipationStatus {
    unknown,
    pending,
    accepted,
    declined,
    tentative,
    delegated,
    completed,
    inProcess,
};

template <>
struct RawValues<MeetingParticipationStatus> {
    static constexpr std::string_view name = "MeetingParticipationStatus";
    static constexpr std::array cases = {
        std::pair{MeetingParticipationStatus::unknown, std::string_view("unknown")},
        std::pair{MeetingParticipationStatus::pending, std::string_view("pending")},
        std::pair{MeetingParticipationStatus::accepted, std::string_view("accepted")},
        std::pair{MeetingParticipationStatus::declined, std::string_view("declined")},
        std::pair{MeetingParticipationStatus::tentative, std::string_view("tentative")},
        std::pair{MeetingParticipationStatus::delegated, std::string_view("delegated")},
        std::pair{MeetingParticipationStatus::completed, std::string_view("completed")},
        std::pair{MeetingParticipationStatus::inProcess, std::string_view("inProcess")},
    };
};

} // namespace orvane
