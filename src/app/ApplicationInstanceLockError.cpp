// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/ApplicationInstanceLockError.h"

#include "domain/Overloaded.h"

#include <cstring>

using namespace Qt::StringLiterals;

namespace orvane {

ApplicationInstanceLockError::ApplicationInstanceLockError(Case value)
    : m_value(std::move(value))
    , m_what(description().toUtf8())
{
}

QString ApplicationInstanceLockError::description() const
{
    return std::visit(Overloaded{
                          [](const Posix& error) {
                              return u"The single-instance lock failed: "_s +
                                     QString::fromLocal8Bit(std::strerror(error.errorNumber)) + u" (errno "_s +
                                     QString::number(error.errorNumber) + u")."_s;
                          },
                          [](const UnsafeLockFile&) {
                              return u"The single-instance lock file is not a regular file owned by this user."_s;
                          },
                      },
                      m_value);
}

const char* ApplicationInstanceLockError::what() const noexcept
{
    return m_what.constData();
}

} // namespace orvane
