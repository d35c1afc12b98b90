// SPDX-License-Identifier: GPL-3.0-or-later
// Any local program can send the sign-in receiver anything. Whatever it sends, the receiver must answer without
// crashing, and must accept only a GET of its own path that carries the expected state, naming the loopback host.
// (Spaces before the method are tolerated, as many servers do.)
#include "oauth/LoopbackOAuthReceiver.h"

#include <QUrlQuery>

#include <cstdint>
#include <cstdlib>

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const orvane::LoopbackOAuthReceiver receiver(u"expected-state"_s, u"127.0.0.1"_s, u"/"_s);
    const QByteArray request(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto verdict = receiver.evaluateRequest(request);
    if (verdict.status.isEmpty() || verdict.message.isEmpty()) {
        std::abort();
    }
    if (verdict.callback) {
        const QUrl& url = *verdict.callback;
        if (url.host() != u"127.0.0.1"_s || url.path() != u"/"_s || !url.userInfo().isEmpty() ||
            QUrlQuery(url).queryItemValue(u"state"_s, QUrl::FullyDecoded) != u"expected-state"_s ||
            !request.mid(request.indexOf("GET")).startsWith("GET ") ||
            !request.left(request.indexOf("GET")).trimmed().isEmpty()) {
            std::abort();
        }
    }
    return 0;
}
