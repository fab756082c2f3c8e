#include "ui/AutostartEntry.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

namespace quirepad {

QString AutostartEntry::path()
{
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (!QDir::isAbsolutePath(config))
        config = QDir::homePath() + QStringLiteral("/.config");
    return QDir::cleanPath(config) + QStringLiteral("/autostart/com.halvern.Quirepad.desktop");
}

bool AutostartEntry::isEnabled()
{
    return QFileInfo(path()).isFile();
}

QString AutostartEntry::execLine(const QString& program)
{
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    const bool needsQuotes = std::any_of(program.begin(), program.end(), [](QChar c) { return reserved.contains(c); });
    QString escaped = program;
    escaped.replace(QLatin1Char('%'), QStringLiteral("%%"));
    if (!needsQuotes)
        return escaped;
    escaped.replace(QLatin1Char('\\'), QStringLiteral("\\\\"))
        .replace(QLatin1Char('"'), QStringLiteral("\\\""))
        .replace(QLatin1Char('`'), QStringLiteral("\\`"))
        .replace(QLatin1Char('$'), QStringLiteral("\\$"));
    return QLatin1Char('"') + escaped + QLatin1Char('"');
}

bool AutostartEntry::setEnabled(bool enabled, QString* error)
{
    const QString file = path();
    if (!enabled) {
        const QFileInfo info(file);
        if (!info.exists() && !info.isSymLink())
            return true;
        QFile entry(file); // a link is removed, never what it points to
        if (entry.remove())
            return true;
        *error = entry.errorString();
        return false;
    }
    if (!QDir().mkpath(QFileInfo(file).path())) {
        *error = QStringLiteral("%1 could not be made").arg(QFileInfo(file).path());
        return false;
    }
    const QString text = QStringLiteral("[Desktop Entry]\nType=Application\nName=Quirepad\n"
                                        "Comment=Turns printing into a choice of actions\n"
                                        "Exec=%1\nIcon=com.halvern.Quirepad\nTerminal=false\n"
                                        "X-GNOME-Autostart-enabled=true\n")
                             .arg(execLine(QCoreApplication::applicationFilePath()));
    // Written under a temporary name and renamed into place.
    QSaveFile entry(file);
    if (!entry.open(QIODevice::WriteOnly) || entry.write(text.toUtf8()) < 0 || !entry.commit()) {
        *error = entry.errorString();
        return false;
    }
    return true;
}

} // namespace quirepad
