// SPDX-License-Identifier: GPL-3.0-or-later
#include "oauth/OAuthTokenClient.h"

#include "cloud/RemoteHTTPTransport.h"
#include "domain/Json.h"
#include "oauth/OAuthError.h"

#include <cmath>
#include <optional>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace orvane {
namespace {

constexpr auto tokenRequestTimeout = 60s;
constexpr auto revocationTimeout = 10s;

/// The provider's explanation of a refusal ({"error": …, "error_description": …}); both absent when the body is
/// not such an object.
struct EndpointError {
    std::optional<QString> error;
    std::optional<QString> description;
};

EndpointError decodeEndpointError(const QByteArray& body)
{
    try {
        const json::Decoder decoder(json::parse(body));
        decoder.expectType(QJsonValue::Object, "an object");
        auto error = decoder.decode<QString>(u"error");
        auto description = decoder.decodeIfPresent<QString>(u"error_description");
        return {std::move(error), std::move(description)};
    } catch (const json::DecodingError&) {
        return {};
    }
}

bool isSuccess(int statusCode)
{
    return statusCode >= 200 && statusCode < 300;
}

RemoteHTTPRequest formRequest(const QUrl& url, const std::map<QString, QString>& fields,
                              std::chrono::milliseconds timeout)
{
    RemoteHTTPRequest request;
    request.url = url;
    request.method = QByteArrayLiteral("POST");
    request.setHeader(QByteArrayLiteral("Content-Type"), QByteArrayLiteral("application/x-www-form-urlencoded"));
    request.body = OAuthTokenClient::formBody(fields);
    request.timeout = timeout;
    return request;
}

/// Posts a token request and turns the answer into tokens or an OAuthError. Everything is taken by value: the
/// client may be gone when the answer arrives.
QCoro::Task<OAuthTokenSet> requestTokens(RemoteHTTPTransport& transport, OAuthTokenClient::Now now,
                                         OAuthProviderConfiguration configuration, std::map<QString, QString> fields)
{
    auto sending = transport.send(formRequest(configuration.tokenEndpoint, fields, tokenRequestTimeout));
    const RemoteHTTPResponse response = co_await std::move(sending);
    if (!isSuccess(response.statusCode)) {
        EndpointError refusal = decodeEndpointError(response.data);
        // Google's desktop clients need their (not really secret) secret; without it Google answers with this
        // generic error, which only the build can fix.
        const bool googleWantsSecret = configuration.service == OAuthService::google && !configuration.clientSecret &&
                                       refusal.error == u"invalid_request"_s && refusal.description &&
                                       refusal.description->contains(u"client_secret"_s, Qt::CaseInsensitive);
        if (googleWantsSecret) {
            throw OAuthError(OAuthError::MissingGoogleClientSecret{});
        }
        throw OAuthError(OAuthError::TokenExchangeFailed{response.statusCode, std::move(refusal.error),
                                                         std::move(refusal.description)});
    }
    co_return OAuthTokenClient::decodeTokenResponse(response.data, now());
}

void addClientSecret(std::map<QString, QString>& fields, const OAuthProviderConfiguration& configuration)
{
    if (configuration.clientSecret) {
        fields.emplace(u"client_secret"_s, *configuration.clientSecret);
    }
}

} // namespace

OAuthTokenClient::OAuthTokenClient(RemoteHTTPTransport& transport, Now now, QUrl revocationEndpoint)
    : m_transport(transport)
    , m_now(std::move(now))
    , m_revocationEndpoint(std::move(revocationEndpoint))
{
}

QCoro::Task<OAuthTokenSet> OAuthTokenClient::exchange(OAuthAuthorizationGrant grant)
{
    std::map<QString, QString> fields{
        {u"client_id"_s, grant.configuration.clientID}, {u"code"_s, grant.code},
        {u"code_verifier"_s, grant.codeVerifier},       {u"redirect_uri"_s, grant.redirectURI},
        {u"grant_type"_s, u"authorization_code"_s},
    };
    addClientSecret(fields, grant.configuration);
    auto requesting = requestTokens(m_transport, m_now, std::move(grant.configuration), std::move(fields));
    co_return co_await std::move(requesting);
}

QCoro::Task<OAuthTokenSet> OAuthTokenClient::refresh(OAuthProviderConfiguration configuration, QString refreshToken)
{
    std::map<QString, QString> fields{
        {u"client_id"_s, configuration.clientID},
        {u"refresh_token"_s, refreshToken},
        {u"grant_type"_s, u"refresh_token"_s},
    };
    // Microsoft issues a token for the scopes named in the refresh; Google keeps the original grant's.
    if (configuration.service == OAuthService::microsoft) {
        fields.emplace(u"scope"_s, configuration.scopes.join(u' '));
    }
    addClientSecret(fields, configuration);
    auto requesting = requestTokens(m_transport, m_now, std::move(configuration), std::move(fields));
    OAuthTokenSet tokens = co_await std::move(requesting);
    if (!tokens.refreshToken) {
        tokens.refreshToken = std::move(refreshToken);
    }
    co_return tokens;
}

QCoro::Task<> OAuthTokenClient::revokeGoogleToken(QString token)
{
    auto sending = m_transport.send(formRequest(m_revocationEndpoint, {{u"token"_s, token}}, revocationTimeout));
    const RemoteHTTPResponse response = co_await std::move(sending);
    if (isSuccess(response.statusCode)) {
        co_return;
    }
    EndpointError refusal = decodeEndpointError(response.data);
    // A token that is already invalid is as revoked as it can be.
    if (response.statusCode == 400 && refusal.error == u"invalid_token"_s) {
        co_return;
    }
    throw OAuthError(OAuthError::TokenRevocationFailed{response.statusCode, std::move(refusal.error)});
}

QByteArray OAuthTokenClient::formBody(const std::map<QString, QString>& fields)
{
    const auto encode = [](const QString& text) {
        static constexpr char hexDigits[] = "0123456789ABCDEF";
        QByteArray encoded;
        for (const char byte : text.toUtf8()) {
            const auto value = static_cast<unsigned char>(byte);
            const bool unreserved = (value >= 'A' && value <= 'Z') || (value >= 'a' && value <= 'z') ||
                                    (value >= '0' && value <= '9') || value == '-' || value == '.' || value == '_' ||
                                    value == '~';
            if (unreserved) {
                encoded.append(byte);
            } else {
                encoded.append('%');
                encoded.append(hexDigits[value >> 4]);
                encoded.append(hexDigits[value & 0x0F]);
            }
        }
        return encoded;
    };
    QByteArray body;
    // std::map already holds the fields in name order.
    for (const auto& [name, value] : fields) {
        if (!body.isEmpty()) {
            body.append('&');
        }
        body.append(encode(name));
        body.append('=');
        body.append(encode(value));
    }
    return body;
}

OAuthTokenSet OAuthTokenClient::decodeTokenResponse(const QByteArray& body, Date receivedAt)
{
    try {
        const json::Decoder decoder(json::parse(body));
        decoder.expectType(QJsonValue::Object, "an object");
        OAuthTokenSet tokens;
        tokens.accessToken = decoder.decode<QString>(u"access_token");
        const double expiresIn = decoder.decode<double>(u"expires_in");
        tokens.refreshToken = decoder.decodeIfPresent<QString>(u"refresh_token");
        const auto scope = decoder.decodeIfPresent<QString>(u"scope");
        tokens.idToken = decoder.decodeIfPresent<QString>(u"id_token");
        if (tokens.accessToken.isEmpty() || !(expiresIn > 0) || !std::isfinite(expiresIn)) {
            throw OAuthError(OAuthError::InvalidTokenResponse{});
        }
        tokens.expirationDate = receivedAt + expiresIn;
        if (scope) {
            for (const QString& granted : scope->split(u' ', Qt::SkipEmptyParts)) {
                tokens.grantedScopes.insert(granted);
            }
        }
        return tokens;
    } catch (const json::DecodingError&) {
        throw OAuthError(OAuthError::InvalidTokenResponse{});
    }
}

} // namespace orvane
