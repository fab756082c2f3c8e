#include "foundation/UserFolders.h"

#include <QDir>

namespace quirepad {

namespace {

// HOME as the program was given it; "(null)" when it was not given at all,
// as the path table has always shown it.
QString home(const QProcessEnvironment& environment)
{
    return environment.contains(QStringLiteral("HOME")) ? environment.value(QStringLiteral("HOME"))
                                                        : QStringLiteral("(null)");
}

QString absoluteOrEmpty(const QProcessEnvironment& environment, const QString& variable)
{
    const QString value = environment.value(variable);
    return !value.isEmpty() && QDir::isAbsolutePath(value) ? QDir::cleanPath(value) : QString();
}

QString baseDir(const QProcessEnvironment& environment, const QString& variable, const QString& underHome)
{
    const QString value = absoluteOrEmpty(environment, variable);
    return value.isEmpty() ? home(environment) + underHome : value;
}

} // namespace

UserFolders UserFolders::fromEnvironment(const QProcessEnvironment& environment)
{
    return {baseDir(environment, QStringLiteral("XDG_DATA_HOME"), QStringLiteral("/.local/share")),
            baseDir(environment, QStringLiteral("XDG_CACHE_HOME"), QStringLiteral("/.cache")),
            absoluteOrEmpty(environment, QStringLiteral("XDG_RUNTIME_DIR"))};
}

} // namespace quirepad
