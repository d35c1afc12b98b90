// SPDX-License-Identifier: GPL-3.0-or-later
#include "oauth/OAuthPKCE.h"

#include "../support/QtPrinters.h"

#include <QRegularExpression>
#include <QSet>

#include <gtest/gtest.h>

#include <functional>

using namespace Qt::StringLiterals;
using orvane::OAuthPKCE;
using orvane::secureRandomString;

TEST(OAuthPKCE, ChallengeMatchesTheRFC7636Example)
{
    EXPECT_EQ(OAuthPKCE::makeChallenge(u"dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"_s),
              u"E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"_s);
}

TEST(OAuthPKCE, ValuesHaveTheirLengthUseOnlyURLSafeCharactersAndNeverRepeat)
{
    const QRegularExpression urlSafe(u"^[A-Za-z0-9_-]*$"_s);
    const struct {
        const char* name;
        std::function<QString()> make;
        qsizetype length;
    } cases[] = {
        {"verifier", OAuthPKCE::makeVerifier, 64},
        {"state", OAuthPKCE::makeState, 43},
        {"nonce", OAuthPKCE::makeNonce, 43},
        {"challenge", [] { return OAuthPKCE::makeChallenge(OAuthPKCE::makeVerifier()); }, 43},
        // Beyond 256 bytes getrandom may answer in parts.
        {"1000 bytes", [] { return secureRandomString(1000); }, 1334},
    };
    for (const auto& entry : cases) {
        SCOPED_TRACE(entry.name);
        QSet<QString> seen;
        for (int run = 0; run < 500; ++run) {
            const QString value = entry.make();
            ASSERT_EQ(value.size(), entry.length) << value.toStdString();
            ASSERT_TRUE(urlSafe.match(value).hasMatch()) << value.toStdString();
            seen.insert(value);
        }
        EXPECT_EQ(seen.size(), 500);
    }
    EXPECT_EQ(secureRandomString(1).size(), 2);
    EXPECT_EQ(secureRandomString(0), QString());
}
