// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <variant>

namespace orvane {

/// Why an exchange with a calendar service produced nothing usable. Every case carries the text the user is shown.
class RemoteHTTPError : public std::exception {
public:
    /// The service answered with a status the caller cannot use.
    struct UnexpectedStatus {
        int statusCode = 0;
        std::optional<QString> message;
        friend bool operator==(const UnexpectedStatus&, const UnexpectedStatus&) = default;
    };
    /// The answer was not an HTTP response.
    struct NonHTTPResponse {
        friend bool operator==(const NonHTTPResponse&, const NonHTTPResponse&) = default;
    };
    /// The request's URL could not be built, or has no origin.
    struct InvalidURL {
        friend bool operator==(const InvalidURL&, const InvalidURL&) = default;
    };
    /// The answer's body could not be read.
    struct InvalidResponse {
        friend bool operator==(const InvalidResponse&, const InvalidResponse&) = default;
    };
    /// The service tried to send a protected request to another origin; the request was stopped there.
    struct CrossOriginRedirect {
        friend bool operator==(const CrossOriginRedirect&, const CrossOriginRedirect&) = default;
    };
    /// The request never got an answer: no network, a refused connection, a timeout, a TLS failure. The detail is
    /// the network layer's own wording.
    struct TransportFailure {
        QString detail;
        bool timedOut = false;
        friend bool operator==(const TransportFailure&, const TransportFailure&) = default;
    };

    using Case = std::variant<UnexpectedStatus, NonHTTPResponse, InvalidURL, InvalidResponse, CrossOriginRedirect,
                              TransportFailure>;

    explicit RemoteHTTPError(Case value);

    const Case& value() const { return m_value; }
    /// A plain English description for the user.
    QString description() const;
    const char* what() const noexcept override;

    friend bool operator==(const RemoteHTTPError& lhs, const RemoteHTTPError& rhs)
    {
        return lhs.m_value == rhs.m_value;
    }

private:
    Case m_value;
    QByteArray m_what;
};

} // namespace orvane
