// SPDX-License-Identifier: GPL-3.0-or-later
#include "scheduling/AlertSchedulerEvent.h"

#include "domain/Json.h"
#include "domain/Overloaded.h"
#include "persistence/PersistenceStoreError.h"

using namespace Qt::StringLiterals;

namespace orvane {

AlertSchedulerFailure AlertSchedulerFailure::fromCurrentException(Operation operation)
{
    AlertSchedulerFailure failure{operation, {}, std::nullopt, std::current_exception()};
    try {
        throw;
    } catch (const PersistenceStoreError& error) {
        failure.underlyingError = error.description();
    } catch (const json::DecodingError& error) {
        failure.underlyingError = error.description();
    } catch (const std::exception& error) {
        failure.underlyingError = QString::fromUtf8(error.what());
    } catch (...) {
        failure.underlyingError = u"An unknown error occurred."_s;
    }
    return failure;
}

AlertSchedulerActionError::AlertSchedulerActionError(Case value)
    : m_value(std::move(value))
    , m_what(description().toUtf8())
{
}

QString AlertSchedulerActionError::description() const
{
    return std::visit(
        Overloaded{
            [](const PersistenceRecoveryRequired&) { return QString::fromUtf16(persistencePausedMessage); },
            [](const OccurrenceIsNotActive&) { return u"This meeting's alert is no longer active."_s; },
            [](const SnoozeMustBeInTheFuture&) { return u"A snooze must end in the future."_s; },
        },
        m_value);
}

const char* AlertSchedulerActionError::what() const noexcept
{
    return m_what.constData();
}

} // namespace orvane
