// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QFuture>
#include <QPromise>
#include <QTimer>
#include <qcoro/qcorofuture.h>
#include <qcoro/qcorotask.h>

#include <chrono>
#include <memory>
#include <stdexcept>

namespace orvane {

/// A task took longer than it was allowed to.
class TimeLimitExceeded : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The result of `task`, or TimeLimitExceeded (with `message`) once `limit` has passed. The task itself keeps
/// running to its end; a late result is dropped. Lets one slow source not hold up the others.
template <class T>
QCoro::Task<T> withinTimeLimit(QCoro::Task<T> task, std::chrono::milliseconds limit, std::string message)
{
    struct Outcome {
        QPromise<T> promise;
        bool settled = false;

        void settle(std::optional<T> value, std::exception_ptr error)
        {
            if (settled) {
                return;
            }
            settled = true;
            if (value) {
                promise.addResult(std::move(*value));
            } else {
                promise.setException(error);
            }
            promise.finish();
        }
    };
    auto outcome = std::make_shared<Outcome>();
    outcome->promise.start();
    QFuture<T> future = outcome->promise.future();

    // Started at once and left to finish on its own; it reports into the shared outcome.
    [](QCoro::Task<T> running, std::shared_ptr<Outcome> target) -> QCoro::Task<> {
        try {
            target->settle(co_await std::move(running), nullptr);
        } catch (...) {
            target->settle(std::nullopt, std::current_exception());
        }
    }(std::move(task), outcome);
    QTimer::singleShot(limit, [outcome, message = std::move(message)] {
        outcome->settle(std::nullopt, std::make_exception_ptr(TimeLimitExceeded(message)));
    });

    co_await future;
    co_return future.result();
}

} // namespace orvane
