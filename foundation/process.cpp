#include "foundation/process.h"

#include "foundation/Log.h"
#include "foundation/fileutil.h"
#include "foundation/pathvars.h"

namespace quirepad {

namespace {
QString applicationFolder()
{
    const QString appPath = get_env(QStringLiteral("APP_PATH"));
    if (directory_exists(appPath))
        return appPath;
    qCWarning(lcProcess).noquote() << "application folder" << appPath << "is missing; running in the current folder";
    return {};
}
} // namespace

QString eval_shell(const QString& command, std::chrono::milliseconds timeout)
{
    const QStringList arguments =
        file_exists(command) ? QStringList{command} : QStringList{QStringLiteral("-c"), command};
    const ProcessRunner::Result result = ProcessRunner(QStringLiteral("/bin/ksh"), arguments)
                                             .setWorkingDirectory(applicationFolder())
                                             .setTimeout(timeout)
                                             .run();
    if (result.standardOutput.isEmpty() || !result.succeeded())
        return {};
    QString text = QString::fromUtf8(result.standardOutput);
    if (text.endsWith(u'\n'))
        text.chop(1);
    return text;
}

int exec_command(const QString& path, const QStringList& arguments, std::chrono::milliseconds timeout)
{
    const ProcessRunner::Result result =
        ProcessRunner(path, arguments).setWorkingDirectory(applicationFolder()).setTimeout(timeout).run();
    if (!result.standardOutput.isEmpty())
        qCInfo(lcProcess).noquote() << QStringLiteral(">>>%1").arg(QString::fromUtf8(result.standardOutput));
    if (!result.started || result.crashed || result.timedOut)
        return -1;
    return result.exitCode;
}

} // namespace quirepad
