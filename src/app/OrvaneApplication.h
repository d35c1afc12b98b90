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
    /// Unless the session started Orvane at login (`atLogin`), a desktop without a tray gets the settings window
    /// on its menu.
    QCoro::Task<> start(bool atLogin = false);

    AppModel& model();

    /// The second launch or the desktop's launcher asked Orvane to come forward.
    void reopen(const QString& activationToken);

private:
    /// Opens settings on the menu once the desktop is known to have no tray, if it has none.
    void openMenuWithoutTray();

    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

} // namespace orvane
