// SPDX-License-Identifier: GPL-3.0-or-later
// Link detection runs on every event a calendar source converts, so a busy calendar's refresh scans thousands of
// invitation bodies. The goal is at least 50 MB/s of invitation text.

#include "domain/MeetingLinkDetector.h"

#include <QString>
#include <QStringList>

#include <benchmark/benchmark.h>

#include <optional>
#include <random>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

struct Event {
    std::optional<QString> location;
    std::optional<QString> notes;
};

const QStringList agendaLines = {
    u"Agenda: review the Q3 roadmap, staffing for the Lisbon office, and the release checklist."_s,
    u"Please read the design document before the call: https://docs.example.com/d/1AbCdEfGh/edit?usp=sharing."_s,
    u"Notes from last week are in the wiki (https://wiki.example.org/teams/platform/weekly-sync)."_s,
    u"If you cannot attend, add your update to the tracker at <https://tracker.example.net/board/42>."_s,
    u"Bring your numbers; we will decide on the vendor shortlist and the timeline for the migration."_s,
    u"Reminder:\u00a0the meeting is recorded and the recording is shared with the whole department."_s,
    u"Dial-in numbers: +1 646 558 8656, +44 203 481 5237, +351 308 810 988 (toll charges may apply)."_s,
    u"Ana, Priya, Jonas and Mei will present; questions at the end, please keep them short!"_s,
    // "Meeting materials: <link>. Please check them beforehand." Japanese text runs into links with no spaces.
    u"\u4f1a\u8b70\u8cc7\u6599\uff1ahttps://docs.example.com/d/42\u3002"
    u"\u4e8b\u524d\u306b\u3054\u78ba\u8a8d\u304f\u3060\u3055\u3044\u3002"_s,
    u"Lunch will be provided for those joining in person in room 4.12 — let Mei know about dietary needs."_s,
};

QString zoomBlock(std::mt19937& random)
{
    const auto id = QString::number(80000000000ULL + random() % 9999999999ULL);
    return u"Ana Costa is inviting you to a scheduled Zoom meeting.\n\nJoin Zoom Meeting\nhttps://acme.zoom.us/j/"_s +
           id + u"?pwd=QWxhZGRpbjpvcGVuIHNlc2FtZQ.1\n\nMeeting ID: "_s + id +
           u"\nPasscode: 493021\n---\nOne tap mobile\n+351308810988,,"_s + id +
           u"#,,,,*493021# Portugal\nFind your local number: https://acme.zoom.us/u/kbXq\n"_s;
}

QString teamsBlock(std::mt19937& random)
{
    return u"________________________________________________________________________________\n"
           u"Microsoft Teams meeting\nJoin on your computer, mobile app or room device\n"
           u"Click here to join the meeting<https://teams.microsoft.com/l/meetup-join/19%3ameeting_"_s +
           QString::number(random(), 36) +
           u"%40thread.v2/0?context=%7b%22Tid%22%3a%2272f988bf%22%2c%22Oid%22%3a%22a1b2c3d4%22%7d>\n"
           u"Meeting ID: 254 889 301 712\nPasscode: Xk7Bq2\n"
           u"Download Teams<https://www.microsoft.com/en-us/microsoft-teams/download-app> | "
           u"Join on the web<https://www.microsoft.com/microsoft-teams/join-a-meeting>\n"
           u"________________________________________________________________________________\n"_s;
}

QString meetBlock(std::mt19937& random)
{
    const QString code = QString::number(random(), 36);
    return u"-::~:~::~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~:~::~:~::-\n"
           u"Join with Google Meet: https://meet.google.com/"_s +
           code + u"\nOr dial: (US) +1 650-555-0134 PIN: 123456789#\nMore phone numbers: https://tel.meet/"_s + code +
           u"?pin=123456789\nLearn more about Meet at: https://support.google.com/a/users/answer/9282720\n"_s;
}

QString webexBlock(std::mt19937& random)
{
    return u"Priya Raman is inviting you to this Webex meeting.\n\nJoin meeting: "
           u"https://acme.webex.com/acme/j.php?MTID=m"_s +
           QString::number(random(), 16) +
           u"\nMeeting number (access code): 2634 118 0472\nMeeting password: pS3wQ8mXr4z (77379826 from phones)\n"_s;
}

QString htmlBlock(std::mt19937& random)
{
    const auto id = QString::number(5000000000ULL + random() % 999999999ULL);
    return u"<b>Design review</b><br>Join: <a href=\"https://www.google.com/url?q=https://zoom.us/j/"_s + id +
           u"&amp;sa=D&amp;source=calendar&amp;usg=AOvVaw3\">https://zoom.us/j/"_s + id + u"</a><br>"_s;
}

/// An invitation of about 2 KB: agenda text with the conferencing block (if any) at the start, middle or end.
Event makeEvent(std::mt19937& random)
{
    using Block = QString (*)(std::mt19937&);
    static constexpr Block blocks[] = {zoomBlock, teamsBlock, meetBlock, webexBlock, htmlBlock};
    // One invitation in six has no recognised link, so the whole text is scanned.
    const auto kind = random() % 6;
    const QString block = kind < 5 ? blocks[kind](random) : QString();
    const auto blockLine = random() % 3;

    QString notes;
    bool placed = false;
    while (notes.size() < 2000 - block.size()) {
        if (!placed && ((blockLine == 0) || (blockLine == 1 && notes.size() > 800))) {
            notes += block;
            placed = true;
        }
        notes += agendaLines[static_cast<qsizetype>(random() % agendaLines.size())] + u'\n';
    }
    if (!placed) {
        notes += block;
    }

    std::optional<QString> location;
    switch (random() % 4) {
    case 0:
        break;
    case 1:
        location = u"Room 4.12 (Lisbon) / Microsoft Teams Meeting"_s;
        break;
    case 2:
        location = u"https://maps.example.com/place/rua-augusta-24"_s;
        break;
    default:
        location = u"Zoom"_s;
    }
    return {location, notes};
}

struct Corpus {
    std::vector<Event> events;
    qint64 bytes = 0;
};

/// Ten thousand invitations, the same on every run; built once, since Google Benchmark calls the body repeatedly.
const Corpus& corpus()
{
    static const Corpus built = [] {
        Corpus corpus;
        std::mt19937 random(20250304);
        corpus.events.reserve(10'000);
        for (int i = 0; i < 10'000; ++i) {
            const Event& event = corpus.events.emplace_back(makeEvent(random));
            corpus.bytes += event.notes->toUtf8().size() + (event.location ? event.location->toUtf8().size() : 0);
        }
        return corpus;
    }();
    return built;
}

void BM_DetectMeetingLink(benchmark::State& state)
{
    const Corpus& invitations = corpus();
    for (auto _ : state) {
        for (const Event& event : invitations.events) {
            benchmark::DoNotOptimize(orvane::MeetingLinkDetector::detect(std::nullopt, event.location, event.notes));
        }
    }
    state.SetBytesProcessed(state.iterations() * invitations.bytes);
    state.SetItemsProcessed(state.iterations() * static_cast<qint64>(invitations.events.size()));
}

BENCHMARK(BM_DetectMeetingLink)->Unit(benchmark::kMillisecond);

} // namespace
