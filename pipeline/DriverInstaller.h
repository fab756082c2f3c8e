#pragma once

#include "foundation/ProcessRunner.h"

#include <QString>

namespace quirepad {

// The print driver: the backend and PPD CUPS uses, compared with the ones
// this application ships in ${APP_RESOURCES}/driver, and the installer that
// puts them in place (as root, through pkexec from a desktop session).
class DriverInstaller
{
public:
    struct Paths {
        QString installedBackend = QStringLiteral("/usr/lib/cups/backend/quirepad");
        QString installedPpd = QStringLiteral("/usr/share/ppd/quirepad/quirepad.ppd");
        QString shippedDriverFolder; // empty: ${APP_RESOURCES}/driver
    };

    DriverInstaller();
    explicit DriverInstaller(Paths paths);

    QString shippedBackend() const;
    QString installerScript() const;

    // Current when the installed backend has the size of the shipped one
    // and the PPD is in place.
    bool isCurrent() const;

    // Runs the installer with the given options: directly as root,
    // otherwise through pkexec (none there: not started). The shared
    // folder this program uses is named to it (pkexec clears the
    // environment). Its output is captured.
    ProcessRunner::Result run(const QStringList& options = {}) const;

    // run() without options: its exit status, -1 when it could not start
    // or did not finish; its messages are logged.
    int install() const;

private:
    Paths m_paths;
};

} // namespace quirepad
