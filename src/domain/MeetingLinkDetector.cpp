// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/MeetingLinkDetector.h"

using namespace Qt::StringLiterals;

namespace orvane::MeetingLinkDetector {

namespace {

bool endsCandidate(QChar c)
{
    switch (c.unicode()) {
    case u'<':
    case u'>':
    case u'[':
    case u']':
    case u'{':
    case u'}':
    case u'"':
    case u'\'':
        return true;
    default:
        // QChar::isSpace covers ASCII white space, U+0085 and every Unicode separator (no-break space, the
        // typographic spaces, line and paragraph separators): mail clients put these right after pasted links.
        return c.isSpace();
    }
}

bool isTrimmed(QChar c)
{
    switch (c.unicode()) {
    case u'.':
    case u',':
    case u';':
    case u':':
    case u'!':
    case u'?':
    case u')':
    case u']':
    case u'}':
        return true;
    default:
        return false;
    }
}

/// The length of "http://" or "https://" at the start of `text`, or 0.
qsizetype schemePrefixLength(QStringView text)
{
    if (text.startsWith(u"http://")) {
        return 7;
    }
    if (text.startsWith(u"https://")) {
        return 8;
    }
    return 0;
}

/// Calls `visit` with each parsed candidate in order until it returns true; returns that URL.
template <class Visitor>
std::optional<QUrl> forEachLink(QStringView text, Visitor&& visit)
{
    qsizetype position = 0;
    while (position < text.size()) {
        const qsizetype start = text.indexOf(u"http", position);
        if (start < 0) {
            break;
        }
        const qsizetype prefix = schemePrefixLength(text.sliced(start));
        qsizetype end = start + prefix;
        while (prefix > 0 && end < text.size() && !endsCandidate(text[end])) {
            ++end;
        }
        if (prefix == 0 || end == start + prefix) {
            // No match starts here (the pattern needs at least one character after "://").
            position = start + 1;
            continue;
        }
        position = end;

        QStringView candidate = text.sliced(start, end - start);
        while (!candidate.isEmpty() && isTrimmed(candidate.front())) {
            candidate = candidate.sliced(1);
        }
        while (!candidate.isEmpty() && isTrimmed(candidate.back())) {
            candidate.chop(1);
        }
        QUrl url(candidate.toString(), QUrl::StrictMode);
        if (!url.isValid()) {
            continue;
        }
        if (visit(url)) {
            return url;
        }
    }
    return std::nullopt;
}

bool hasWebScheme(const QUrl& url)
{
    const QString scheme = url.scheme().toLower();
    return scheme == u"https"_s || scheme == u"http"_s;
}

} // namespace

bool isWebLink(const QUrl& url)
{
    // An unparseable URL can still report a scheme and host ("https://host:port-that-is-not/…"); it opens nothing.
    return url.isValid() && hasWebScheme(url) && !url.host().isEmpty();
}

bool isRecognizedMeetingLink(const QUrl& url)
{
    if (!isWebLink(url)) {
        return false;
    }
    const QString host = url.host().toLower();
    for (const auto& entry : recognizedHosts) {
        const QStringView recognized(entry.host);
        if (host == recognized || (host.size() > recognized.size() && host.endsWith(recognized) &&
                                   host[host.size() - recognized.size() - 1] == u'.')) {
            return true;
        }
    }
    return false;
}

std::vector<QUrl> extractLinks(QStringView text)
{
    std::vector<QUrl> links;
    forEachLink(text, [&links](const QUrl& url) {
        links.push_back(url);
        return false;
    });
    return links;
}

std::optional<QUrl> detect(const std::optional<QUrl>& structuredURL, const std::optional<QString>& location,
                           const std::optional<QString>& notes)
{
    if (structuredURL && isWebLink(*structuredURL)) {
        return structuredURL;
    }
    for (const auto* text : {&location, &notes}) {
        if (!*text) {
            continue;
        }
        if (auto link = forEachLink(**text, isRecognizedMeetingLink)) {
            return link;
        }
    }
    return std::nullopt;
}

} // namespace orvane::MeetingLinkDetector
