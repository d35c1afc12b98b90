// SPDX-License-Identifier: GPL-3.0-or-later
#include "oauth/OAuthPKCE.h"

#include "oauth/OAuthError.h"

#include <QByteArray>
#include <QCryptographicHash>

#include <cerrno>
#include <sys/random.h>

namespace orvane {

namespace {

constexpr int verifierByteCount = 48;
constexpr int stateByteCount = 32;
constexpr int nonceByteCount = 32;

QString base64URL(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

} // namespace

QString secureRandomString(int byteCount)
{
    QByteArray bytes(byteCount, Qt::Uninitialized);
    qsizetype filled = 0;
    while (filled < bytes.size()) {
        // getrandom may return fewer bytes than asked (beyond 256 bytes, or when a signal arrives), so keep asking.
        const ssize_t count = getrandom(bytes.data() + filled, std::size_t(bytes.size() - filled), 0);
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw OAuthError(OAuthError::Keychain{-errno});
        }
        filled += count;
    }
    return base64URL(bytes);
}

QString OAuthPKCE::makeVerifier()
{
    return secureRandomString(verifierByteCount);
}

QString OAuthPKCE::makeChallenge(const QString& verifier)
{
    return base64URL(QCryptographicHash::hash(verifier.toUtf8(), QCryptographicHash::Sha256));
}

QString OAuthPKCE::makeState()
{
    return secureRandomString(stateByteCount);
}

QString OAuthPKCE::makeNonce()
{
    return secureRandomString(nonceByteCount);
}

} // namespace orvane
