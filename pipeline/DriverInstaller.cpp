#include "pipeline/DriverInstaller.h"

#include "foundation/ProcessRunner.h"
#include "foundation/fileutil.h"
#include "foundation/pathvars.h"

#include <QFileInfo>
#include <QStandardPaths>

#include <unistd.h>

namespace quirepad {

DriverInstaller::DriverInstaller()
    : DriverInstaller(Paths{})
{
}

DriverInstaller::DriverInstaller(Paths paths)
    : m_paths(std::move(paths))
{
    if (m_paths.shippedDriverFolder.isEmpty())
        m_paths.shippedDriverFolder = f(QStringLiteral("${APP_RESOURCES}/driver"));
}

QString DriverInstaller::shippedBackend() const
{
    return m_paths.shippedDriverFolder + QStringLiteral("/quirepad");
}

QString DriverInstaller::installerScript() const
{
    return m_paths.shippedDriverFolder + QStringLiteral("/install-driver.sh");
}

bool DriverInstaller::isCurrent() const
{
    const QFileInfo installed(m_paths.installedBackend);
    const QFileInfo shipped(shippedBackend());
    return installed.exists() && shipped.exists() && installed.size() == shipped.size()
           && QFileInfo::exists(m_paths.installedPpd);
}

int DriverInstaller::install() const
{
    QString program = installerScript();
    QStringList arguments;
    if (::geteuid() != 0) {
        const QString pkexec = QStandardPaths::findExecutable(QStringLiteral("pkexec"));
        if (pkexec.isEmpty())
            return -1;
        arguments << program;
        program = pkexec;
    }
    const ProcessRunner::Result result =
        ProcessRunner(program, arguments).setTimeout(std::chrono::minutes(5)).run();
    if (!result.started || result.crashed || result.timedOut)
        return -1;
    return result.exitCode;
}

} // namespace quirepad
