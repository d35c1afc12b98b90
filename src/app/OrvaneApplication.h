// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>
#include <qcoro/qcorotask.h>

#include <memory>

namespace orvane {

class AppModel;
class BundleInfo;

/// The composition root: builds every collaborator of the running application once, wires them together and owns
/// them for the life of the process. Nothing else creates long-lived objects.
class OrvaneApplication final : public QObject {
    Q_OBJECT

public:
    explicit OrvaneApplication(const BundleInfo& bundle, QObject* parent = nullptr);
    ~OrvaneApplication() override;

    /// Claims the bus names, shows the tray item (and onboarding when it is not finished) and starts the model.
    QCoro::Task<> start();

    AppModel& model();

    /// The second launch or the desktop's launcher asked Orvane to come forward.
    void reopen(const QString& activationToken);

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

} // namespace orvane
