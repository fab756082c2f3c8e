#include "foundation/apps.h"

#include "foundation/DesktopEntry.h"
#include "foundation/Log.h"
#include "foundation/Workspace.h"

#include <QDir>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QImageReader>
#include <QProcess>
#include <QUrl>

#include <optional>

namespace quirepad {

namespace {

const QString kPreviewAppId = QStringLiteral("com.apple.Preview");
const QString kPdfMimeType = QStringLiteral("application/pdf");

std::optional<DesktopEntry> entryFor(const QString& appid)
{
    const QString id = resolveAppId(appid);
    return id.isNull() ? std::nullopt : DesktopEntry::find(id);
}

// Icon names are meant without extension, but some entries name the file.
QString themeIconName(const QString& icon)
{
    for (const char* extension : { ".png", ".svg", ".xpm" }) {
        if (icon.endsWith(QLatin1String(extension), Qt::CaseInsensitive))
            return icon.chopped(int(qstrlen(extension)));
    }
    return icon;
}

bool openWithDefaultHandlers(const QStringList& files)
{
    if (files.isEmpty())
        return false;
    bool allOpened = true;
    for (const QString& file : files) {
        if (!Workspace::current().openUrl(QUrl::fromLocalFile(file)))
            allOpened = false;
    }
    return allOpened;
}

} // namespace

QString resolveAppId(const QString& appid)
{
    const QString trimmed = appid.trimmed();
    if (trimmed.isEmpty() || trimmed == kPreviewAppId) {
        const std::optional<DesktopEntry> viewer = DesktopEntry::defaultFor(kPdfMimeType);
        return viewer ? viewer->id() : QString();
    }
    const std::optional<DesktopEntry> entry = DesktopEntry::find(trimmed);
    return entry && entry->isLaunchable() ? entry->id() : QString();
}

QString app_name(const QString& appid)
{
    const std::optional<DesktopEntry> entry = entryFor(appid);
    if (!entry)
        return QString();
    const QString name = entry->name();
    return name.isEmpty() ? QString() : name;
}

QIcon app_icon(const QString& appid)
{
    const std::optional<DesktopEntry> entry = entryFor(appid);
    const QString icon = entry ? entry->iconName() : QString();
    if (icon.isEmpty())
        return QIcon();
    if (QDir::isAbsolutePath(icon)) {
        if (!QFileInfo(icon).isFile() || !QImageReader(icon).canRead()) {
            qCDebug(lcDesktop).noquote() << "unreadable icon" << icon << "for" << entry->id();
            return QIcon();
        }
        return QIcon(icon);
    }
    QIcon themed = QIcon::fromTheme(themeIconName(icon));
    return themed.isNull() ? QIcon() : themed;
}

QIcon file_icon(const QString& path)
{
    QFileIconProvider provider;
    const QFileInfo info(path);
    if (!path.isEmpty() && info.exists()) {
        const QIcon icon = provider.icon(info);
        if (!icon.isNull())
            return icon;
    }
    const QIcon folder = QIcon::fromTheme(QStringLiteral("folder"));
    return folder.isNull() ? provider.icon(QFileIconProvider::Folder) : folder;
}

bool open_with_app(const QString& appid, const QStringList& files)
{
    const QString id = resolveAppId(appid);
    if (id.isNull()) {
        if (!appid.isEmpty() && appid != kPreviewAppId)
            qCInfo(lcDesktop).noquote() << "no application" << appid << "- opening with default handlers";
        return openWithDefaultHandlers(files);
    }
    const std::optional<DesktopEntry> entry = DesktopEntry::find(id);
    if (!entry)
        return openWithDefaultHandlers(files);
    if (entry->runsInTerminal())
        qCInfo(lcDesktop).noquote() << id << "wants a terminal; starting it without one";

    const QList<QStringList> commands = entry->commandsFor(files);
    if (commands.isEmpty())
        return false;
    const QString workingDirectory = entry->workingDirectory();
    bool allStarted = true;
    for (const QStringList& command : commands) {
        if (command.isEmpty()) {
            allStarted = false;
            continue;
        }
        qint64 pid = 0;
        if (QProcess::startDetached(command.constFirst(), command.mid(1), workingDirectory, &pid)) {
            qCDebug(lcProcess).noquote() << "started" << id << "as" << pid << command;
        } else {
            qCInfo(lcDesktop).noquote() << "could not start" << id << command;
            allStarted = false;
        }
    }
    return allStarted;
}

} // namespace quirepad
