#include "pipeline/DriverInstaller.h"

#include "foundation/ProcessRunner.h"
#include "foundation/fileutil.h"
#include "foundation/pathvars.h"

#include "pipeline/jobinfo.h"

#include <QFileInfo>
#include <QLoggingCategory>
#include <QStandardPaths>

#include <unistd.h>

namespace quirepad {

Q_LOGGING_CATEGORY(lcInstaller, "quirepad.driver", QtInfoMsg)

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

ProcessRunner::Result DriverInstaller::run(const QStringList& options) const
{
    QStringList arguments = options;
    if (!qEnvironmentVariableIsEmpty("QUIREPAD_SHARED_DIR")) {
        QString shared = SpoolLocations::sharedDirectory();
        shared.chop(1); // the trailing slash
        arguments = QStringList{QStringLiteral("--shared-dir"), shared} + arguments;
    }
    QString program = installerScript();
    if (::geteuid() != 0) {
        const QString pkexec = QStandardPaths::findExecutable(QStringLiteral("pkexec"));
        if (pkexec.isEmpty()) {
            ProcessRunner::Result notStarted;
            notStarted.errorString = QStringLiteral("installing the print driver needs root: run %1 as root").arg(program);
            return notStarted;
        }
        arguments.prepend(program);
        program = pkexec;
    }
    return ProcessRunner(program, arguments)
        .setErrorOutput(ProcessRunner::ErrorOutput::Captured)
        .setTimeout(std::chrono::minutes(5))
        .run();
}

int DriverInstaller::install() const
{
    const ProcessRunner::Result result = run();
    for (const QByteArray& line : (result.standardOutput + result.standardError).split('\n'))
        if (!line.trimmed().isEmpty())
            qCInfo(lcInstaller).noquote() << QString::fromLocal8Bit(line);
    if (!result.started || result.crashed || result.timedOut || result.interrupted)
        return -1;
    return result.exitCode;
}

} // namespace quirepad
