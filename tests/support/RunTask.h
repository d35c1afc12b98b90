// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QEventLoop>
#include <qcoro/qcorotask.h>

#include <exception>
#include <optional>

/// Runs a task to its end in a nested event loop and returns its result, rethrowing what it threw. (QCoro's own
/// waitFor never returns when the task throws.)
template <class T>
T runTask(QCoro::Task<T> task)
{
    std::optional<T> result;
    std::exception_ptr error;
    bool done = false;
    QEventLoop loop;
    [](QCoro::Task<T> running, std::optional<T>& value, std::exception_ptr& failure, bool& finished,
       QEventLoop& waiting) -> QCoro::Task<> {
        try {
            value = co_await std::move(running);
        } catch (...) {
            failure = std::current_exception();
        }
        finished = true;
        waiting.quit();
    }(std::move(task), result, error, done, loop);
    if (!done) {
        loop.exec();
    }
    if (error) {
        std::rethrow_exception(error);
    }
    return std::move(*result);
}

/// Runs a task without a result to its end, rethrowing what it threw.
inline void runTask(QCoro::Task<> task)
{
    auto finishing = [](QCoro::Task<> running) -> QCoro::Task<bool> {
        co_await std::move(running);
        co_return true;
    }(std::move(task));
    runTask(std::move(finishing));
}
