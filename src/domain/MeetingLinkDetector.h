// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <QStringView>
#include <QUrl>

#include <array>
#include <optional>
#include <vector>

/// Picks the join link of a calendar event. Pure functions, no state.
namespace orvane::MeetingLinkDetector {

/// One conferencing service whose links Orvane recognises in free text.
struct RecognizedMeetingHost {
    const char16_t* service;
    const char16_t* host;
};

/// The recognised hosts, in the order they are tried. A host matches itself and any of its subdomains.
inline constexpr std::array<RecognizedMeetingHost, 6> recognizedHosts = {{
    {u"Zoom", u"zoom.us"},
    {u"Zoom for Government", u"zoomgov.com"},
    {u"Google Meet", u"meet.google.com"},
    {u"Microsoft Teams", u"teams.microsoft.com"},
    {u"Microsoft Teams (free)", u"teams.live.com"},
    {u"Webex", u"webex.com"},
}};

/// The join link of an event: its own URL field when that is a web link, whatever the host; otherwise the first
/// recognised meeting link in the location, then in the notes.
std::optional<QUrl> detect(const std::optional<QUrl>& structuredURL, const std::optional<QString>& location,
                           const std::optional<QString>& notes);

/// The links in one text, in order of appearance: every lower-case "http://" or "https://" followed by characters
/// other than white space (Unicode spaces included), angle or square brackets, braces and quotes, with the
/// punctuation ".,;:!?)]}" trimmed from both ends; candidates that do not parse as URLs are dropped.
std::vector<QUrl> extractLinks(QStringView text);

/// A valid http or https URL (scheme in any case) with a host.
bool isWebLink(const QUrl& url);

/// A web link whose host, lower-cased, is one of the recognised hosts or a subdomain of one.
bool isRecognizedMeetingLink(const QUrl& url);

} // namespace orvane::MeetingLinkDetector
