// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/MeetingLinkDetector.h"

#include "support/QtPrinters.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
namespace detector = orvane::MeetingLinkDetector;

namespace {

std::optional<QUrl> url(const std::optional<QString>& text)
{
    return text ? std::optional(QUrl(*text)) : std::nullopt;
}

// ---- Recognised hosts ---------------------------------------------------------------------------------------------

TEST(RecognizedMeetingLink, DependsOnSchemeAndHostOnly)
{
    const struct {
        QString link;
        bool recognized;
    } cases[] = {
        {u"https://zoom.us/j/81234567890"_s, true},
        {u"https://zoomgov.com/j/1610012345"_s, true},
        {u"https://meet.google.com/abc-defg-hij"_s, true},
        {u"https://teams.microsoft.com/l/meetup-join/19%3ameeting_x%40thread.v2/0"_s, true},
        {u"https://teams.live.com/meet/9388374651302"_s, true},
        {u"https://webex.com/meet/priya"_s, true},
        {u"http://zoom.us/j/1"_s, true},
        {u"https://acme.zoom.us/j/1"_s, true},
        {u"https://eu01web.acme.webex.com/wbxmjs/joinservice"_s, true},
        {u"https://ACME.Zoom.US/j/1"_s, true},
        {u"HTTPS://MEET.GOOGLE.COM/abc-defg-hij"_s, true},
        // A browser maps the ideographic full stop to a dot too, so this link really opens zoom.us.
        {u"https://zoom\u3002us/j/1"_s, true},
        {u"https://notzoom.us/j/1"_s, false},
        {u"https://xwebex.com/meet/priya"_s, false},
        {u"https://zoom.us.evil.com/j/1"_s, false},
        {u"https://teams.microsoft.com.mcas.ms/l/meetup-join/x"_s, false},
        {u"https://zoom.us@evil.com/j/1"_s, false},
        {u"https://evil.com/zoom.us/j/1?next=https://zoom.us"_s, false},
        {u"ftp://zoom.us/j/1"_s, false},
        {u"mailto:host@zoom.us"_s, false},
        {u"zoommtg://zoom.us/join?confno=1"_s, false},
    };
    for (const auto& [link, recognized] : cases) {
        EXPECT_EQ(detector::isRecognizedMeetingLink(QUrl(link)), recognized) << link.toStdString();
    }
}

// ---- Extraction from one text -------------------------------------------------------------------------------------

struct ExtractionCase {
    const char* name;
    QString text;
    QStringList links;
};

class LinkExtraction : public ::testing::TestWithParam<ExtractionCase> {};

TEST_P(LinkExtraction, FindsCandidatesInOrder)
{
    QStringList found;
    for (const QUrl& link : detector::extractLinks(GetParam().text)) {
        found.append(link.toString());
    }
    EXPECT_EQ(found, GetParam().links);
}

const ExtractionCase extractionCases[] = {
    {"SentenceEnd", u"Join at https://zoom.us/j/1."_s, {u"https://zoom.us/j/1"_s}},
    {"ParenthesisThenFullStop", u"(dial-in on https://zoom.us/j/1)."_s, {u"https://zoom.us/j/1"_s}},
    {"AllTrimmedPunctuation", u"https://zoom.us/j/1?pwd=x!?;:,.)"_s, {u"https://zoom.us/j/1?pwd=x"_s}},
    {"PunctuationInsideKept", u"https://zoom.us/j/1?a=b,c;d:e"_s, {u"https://zoom.us/j/1?a=b,c;d:e"_s}},
    {"GluedToPrecedingWord", u"Link:https://zoom.us/j/1"_s, {u"https://zoom.us/j/1"_s}},
    {"OnlyLowerCaseSchemes", u"HTTPS://zoom.us/j/1 Http://zoom.us/j/2 hTTp://zoom.us/j/3"_s, {}},
    {"AngleBrackets", u"Join<https://zoom.us/j/1>"_s, {u"https://zoom.us/j/1"_s}},
    {"Quotes",
     u"href=\"https://zoom.us/j/1\" or 'https://zoom.us/j/2'"_s,
     {u"https://zoom.us/j/1"_s, u"https://zoom.us/j/2"_s}},
    {"SquareBracketsAndBraces",
     u"[https://zoom.us/j/1]{https://zoom.us/j/2}"_s,
     {u"https://zoom.us/j/1"_s, u"https://zoom.us/j/2"_s}},
    {"NoBreakSpace", u"https://zoom.us/j/1\u00a0Passcode"_s, {u"https://zoom.us/j/1"_s}},
    {"ThinSpace", u"https://zoom.us/j/1\u2009(ID 1)"_s, {u"https://zoom.us/j/1"_s}},
    {"IdeographicSpace", u"\u4f1a\u8b70https://zoom.us/j/1\u3000\u30d1\u30b9"_s, {u"https://zoom.us/j/1"_s}},
    {"LineSeparator", u"https://zoom.us/j/1\u2028Meeting ID"_s, {u"https://zoom.us/j/1"_s}},
    {"TabAndCarriageReturn",
     u"https://a.example.com/x\thttps://b.example.com/y\r\n"_s,
     {u"https://a.example.com/x"_s, u"https://b.example.com/y"_s}},
    {"OrderOfAppearance",
     u"Agenda http://docs.example.com/a then https://meet.google.com/abc"_s,
     {u"http://docs.example.com/a"_s, u"https://meet.google.com/abc"_s}},
    {"SchemeWithoutRest", u"https:// http://\nhttps://<x>"_s, {}},
    // A stray percent sign, an invalid port and a backslash before "@" make the candidate unparsable; the
    // last one matters, since browsers read it as a path separator and would open evil.com, not zoom.us.
    {"UnparsableDropped",
     u"https://zoom.us/j/1%zz https://zoom.us:99999/j/2 https://evil.com\\@zoom.us/ https://zoom.us/j/3"_s,
     {u"https://zoom.us/j/3"_s}},
};

INSTANTIATE_TEST_SUITE_P(Texts, LinkExtraction, ::testing::ValuesIn(extractionCases),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- Detection ----------------------------------------------------------------------------------------------------

struct DetectionCase {
    const char* name;
    std::optional<QString> structuredURL;
    std::optional<QString> location;
    std::optional<QString> notes;
    std::optional<QString> expected;
};

class LinkDetection : public ::testing::TestWithParam<DetectionCase> {};

TEST_P(LinkDetection, PicksTheJoinLink)
{
    const DetectionCase& c = GetParam();
    EXPECT_EQ(detector::detect(url(c.structuredURL), c.location, c.notes), url(c.expected));
}

const QString zoomInLocation = u"https://zoom.us/j/111"_s;
const QString meetInNotes = u"Join with Google Meet: https://meet.google.com/abc-defg-hij"_s;

const DetectionCase orderCases[] = {
    {.name = "UrlFieldAnyHostWins",
     .structuredURL = u"https://intranet.example.com/standup"_s,
     .location = zoomInLocation,
     .notes = meetInNotes,
     .expected = u"https://intranet.example.com/standup"_s},
    {.name = "UrlFieldUpperCaseScheme",
     .structuredURL = u"HTTPS://intranet.example.com/standup"_s,
     .location = zoomInLocation,
     .expected = u"https://intranet.example.com/standup"_s},
    {.name = "UrlFieldMailFallsThrough",
     .structuredURL = u"mailto:organiser@example.com"_s,
     .location = zoomInLocation,
     .expected = zoomInLocation},
    {.name = "UrlFieldFtpFallsThrough",
     .structuredURL = u"ftp://files.example.com/agenda.pdf"_s,
     .notes = meetInNotes,
     .expected = u"https://meet.google.com/abc-defg-hij"_s},
    {.name = "UrlFieldWithoutHostFallsThrough",
     .structuredURL = u"https:/standup"_s,
     .location = zoomInLocation,
     .expected = zoomInLocation},
    {.name = "UrlFieldWithoutSchemeFallsThrough",
     .structuredURL = u"//intranet.example.com/standup"_s,
     .location = zoomInLocation,
     .expected = zoomInLocation},
    // A calendar service's conference link that does not parse (an invalid port) is no link at all.
    {.name = "UnparsableUrlFieldFallsThrough",
     .structuredURL = u"https://teams.microsoft:.com/l/meetup-join/1"_s,
     .location = zoomInLocation,
     .expected = zoomInLocation},
    {.name = "LocationBeforeNotes", .location = zoomInLocation, .notes = meetInNotes, .expected = zoomInLocation},
    {.name = "UnrecognisedLocationFallsToNotes",
     .location = u"https://maps.example.com/room-4"_s,
     .notes = meetInNotes,
     .expected = u"https://meet.google.com/abc-defg-hij"_s},
    {.name = "FirstRecognisedAfterUnrecognised",
     .notes = u"Docs: https://notzoom.us/j/1, join: https://acme.zoom.us/j/2, backup: https://webex.com/m"_s,
     .expected = u"https://acme.zoom.us/j/2"_s},
    {.name = "UnparsableRecognisedSkipped",
     .notes = u"https://zoom.us/j/1%zz https://webex.com/meet/x"_s,
     .expected = u"https://webex.com/meet/x"_s},
    {.name = "UpperCaseHostInText",
     .location = u"Room 4 / https://ZOOM.US/j/1"_s,
     .expected = u"https://zoom.us/j/1"_s},
    {.name = "UpperCaseSchemeInText", .location = u"HTTPS://zoom.us/j/1"_s, .notes = u"HTTP://meet.google.com/x"_s},
    // Word processors turn quotes into curly ones, which do not end a candidate; the link is still recognised.
    {.name = "CurlyQuotes",
     .notes = u"Use \u201chttps://zoom.us/j/1\u201d today"_s,
     .expected = u"https://zoom.us/j/1\u201d"_s},
    {.name = "HostWithoutScheme", .location = u"zoom.us/j/1"_s, .notes = u"meet.google.com/abc-defg-hij"_s},
    {.name = "NothingAtAll"},
    {.name = "EmptyTexts", .location = u""_s, .notes = u""_s},
};

INSTANTIATE_TEST_SUITE_P(Order, LinkDetection, ::testing::ValuesIn(orderCases),
                         [](const auto& info) { return std::string(info.param.name); });

const DetectionCase invitationCases[] = {
    {.name = "Zoom",
     .location = u"Zoom"_s,
     .notes = uR"(Ana Costa is inviting you to a scheduled Zoom meeting.

Topic: Quarterly planning

Join Zoom Meeting
https://acme.zoom.us/j/81234567890?pwd=QWxhZGRpbjpvcGVuIHNlc2FtZQ.1

Meeting ID: 812 3456 7890
Passcode: 493021
---
One tap mobile
+351308810988,,81234567890#,,,,*493021# Portugal
Find your local number: https://acme.zoom.us/u/kbXq2rT9)"_s,
     .expected = u"https://acme.zoom.us/j/81234567890?pwd=QWxhZGRpbjpvcGVuIHNlc2FtZQ.1"_s},
    {.name = "TeamsFromOutlook",
     .location = u"Microsoft Teams Meeting"_s,
     .notes = u"________________________________________________________________________________\n"
              u"Microsoft Teams meeting\n"
              u"Join on your computer, mobile app or room device\n"
              u"Click here to join the meeting<"
              u"https://teams.microsoft.com/l/meetup-join/19%3ameeting_NjM1ZDk0YTgtYzE3%40thread.v2/0"
              u"?context=%7b%22Tid%22%3a%2272f988bf%22%2c%22Oid%22%3a%22a1b2c3d4%22%7d>\n"
              u"Meeting ID: 254 889 301 712\n"
              u"Passcode: Xk7Bq2\n"
              u"Download Teams<https://www.microsoft.com/en-us/microsoft-teams/download-app> | "
              u"Join on the web<https://www.microsoft.com/microsoft-teams/join-a-meeting>\n"
              u"Learn More<https://aka.ms/JoinTeamsMeeting> | "
              u"Meeting options<https://teams.microsoft.com/meetingOptions/?organizerId=a1b2>\n"
              u"________________________________________________________________________________"_s,
     .expected = u"https://teams.microsoft.com/l/meetup-join/19%3ameeting_NjM1ZDk0YTgtYzE3%40thread.v2/0"
                 u"?context=%7b%22Tid%22%3a%2272f988bf%22%2c%22Oid%22%3a%22a1b2c3d4%22%7d"_s},
    {.name = "GoogleMeet",
     .notes = uR"(Please read https://docs.google.com/document/d/1AbCdE/edit before we start.

-::~:~::~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~::~:~::-
Join with Google Meet: https://meet.google.com/xyz-abcd-efg
Or dial: (US) +1 650-555-0134 PIN: 123456789#
More phone numbers: https://tel.meet/xyz-abcd-efg?pin=123456789
Learn more about Meet at: https://support.google.com/a/users/answer/9282720
-::~:~::~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~::~:~::-)"_s,
     .expected = u"https://meet.google.com/xyz-abcd-efg"_s},
    {.name = "Webex",
     .notes = uR"(Hello,

Priya Raman is inviting you to this Webex meeting.

Join meeting: https://acme.webex.com/acme/j.php?MTID=m3f1c2a9b8e7d6c5b4a39281706f5e4d3
Meeting number (access code): 2634 118 0472
Meeting password: pS3wQ8mXr4z (77379826 from phones)

Tap to join from a mobile device (attendees only)
+1-415-655-0001,,26341180472## US Toll)"_s,
     .expected = u"https://acme.webex.com/acme/j.php?MTID=m3f1c2a9b8e7d6c5b4a39281706f5e4d3"_s},
    // The redirect wrapper comes first and carries the meeting link only in its query; the link text follows.
    {.name = "GoogleCalendarHtml",
     .notes =
         u"<b>Design review</b><br>Please read the <a href=\"https://www.google.com/url"
         u"?q=https://docs.example.com/rfc-42&amp;sa=D&amp;source=calendar\">RFC</a> first.<br><br>Join: <a href=\""
         u"https://www.google.com/url?q=https://zoom.us/j/5551234567?pwd%3DabcDEF&amp;sa=D&amp;source=calendar&amp;"
         u"usg=AOvVaw3\">https://zoom.us/j/5551234567?pwd=abcDEF</a><br>"_s,
     .expected = u"https://zoom.us/j/5551234567?pwd=abcDEF"_s},
    {.name = "OtherServiceOnly",
     .location = u"Online"_s,
     .notes = u"Join at https://meet.jit.si/OrvaneStandup (no account needed). Zoom: zoom.us/j/1"_s},
};

INSTANTIATE_TEST_SUITE_P(Invitations, LinkDetection, ::testing::ValuesIn(invitationCases),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- A real calendar export ---------------------------------------------------------------------------------------

/// The value of the first `name` property of an iCalendar text, unfolded and with text escapes resolved.
QString icalendarText(QString content, QStringView name)
{
    content.remove(QRegularExpression(u"\r?\n[ \t]"_s));
    const QRegularExpression line(u"^"_s + name.toString() + u"(;[^:\r\n]*)?:([^\r\n]*)"_s,
                                  QRegularExpression::MultilineOption);
    const QString escaped = line.match(content).captured(2);
    QString value;
    for (qsizetype i = 0; i < escaped.size(); ++i) {
        if (escaped[i] == u'\\' && i + 1 < escaped.size()) {
            ++i;
            value.append(escaped[i] == u'n' || escaped[i] == u'N' ? QChar(u'\n') : escaped[i]);
        } else {
            value.append(escaped[i]);
        }
    }
    return value;
}

TEST(LinkDetectionFixture, GoogleExportWithLinkFoldedAcrossLines)
{
    const QDir fixtures(QStringLiteral(ORVANE_SHARED_FIXTURES_DIR));
    if (!fixtures.exists()) {
        GTEST_SKIP() << "shared fixtures not found at " << fixtures.absolutePath().toStdString();
    }
    QFile file(fixtures.filePath(u"ics/rie_google_export_folded_zoom_vanity_url.ics"_s));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << file.fileName().toStdString();
    const QString content = QString::fromUtf8(file.readAll());

    EXPECT_EQ(
        detector::detect(std::nullopt, icalendarText(content, u"LOCATION"), icalendarText(content, u"DESCRIPTION")),
        QUrl(u"https://videoconf-colibri.zoom.us/j/93800310242?pwd=K3FBUVJUV2hrTm1OR2RWb0ZabTJkZz09"_s));
}

} // namespace
