#include "ui/DestinationValidator.h"

#include "foundation/DesktopEntry.h"
#include "foundation/pathvars.h"
#include "pipeline/filters.h"
#include "store/DestinationItem.h"
#include "store/DestinationSchema.h"
#include "store/DestinationTemplates.h"
#include "store/ManagedObjectContext.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <unistd.h>

namespace quirepad {

namespace {

QString tr(const char* text)
{
    return QCoreApplication::translate("DestinationValidator", text);
}

bool canWrite(const QString& folder)
{
    return ::access(QFile::encodeName(folder).constData(), W_OK | X_OK) == 0;
}

} // namespace

QString DestinationValidator::checkName(const QString& name, const DestinationItem* item, ManagedObjectContext& context)
{
    const QString trimmed = name.trimmed();
    if (trimmed.isEmpty())
        return tr("A destination needs a name.");
    const auto records = context.entities(QString::fromLatin1(DestinationSchema::entityName), Predicate::always());
    for (const DestinationItem* other : records.value_or(QList<DestinationItem*>()))
        if (other != item && other->name().trimmed().compare(trimmed, Qt::CaseInsensitive) == 0)
            return tr("Another destination is called \u201c%1\u201d.").arg(other->name());
    return {};
}

QString DestinationValidator::checkFolder(const QString& path)
{
    const QString trimmed = path.trimmed();
    if (trimmed.isEmpty())
        return tr("Choose the folder the files go to.");
    const QString expanded = expandTilde(trimmed);
    if (!QDir::isAbsolutePath(expanded))
        return tr("Give the full path of the folder (starting with / or ~).");
    const QFileInfo info(expanded);
    if (info.exists()) {
        if (!info.isDir())
            return tr("\u201c%1\u201d is a file, not a folder.").arg(trimmed);
        if (!canWrite(info.absoluteFilePath()))
            return tr("You cannot write into \u201c%1\u201d.").arg(trimmed);
        return {};
    }
    // The folder is made at the first delivery: its nearest existing
    // parent must allow that.
    QString parent = QDir::cleanPath(expanded);
    while (!QFileInfo::exists(parent) && parent != QLatin1String("/"))
        parent = QFileInfo(parent).path();
    const QFileInfo parentInfo(parent);
    if (!parentInfo.isDir() || !canWrite(parent))
        return tr("The folder cannot be created: \u201c%1\u201d cannot be written.").arg(parent);
    return {};
}

QString DestinationValidator::checkPattern(const QString& pattern)
{
    for (qsizetype at = pattern.indexOf(u'%'); at >= 0; at = pattern.indexOf(u'%', at + 2)) {
        const QChar code = at + 1 < pattern.size() ? pattern.at(at + 1) : QChar();
        if (code != u't' && code != u'u' && code != u'h')
            return code.isNull()
                ? tr("A % at the end stands for nothing: use %t, %u or %h.")
                : tr("%%1 is not a code the name knows: use %t (title), %u (user) or %h (computer).").arg(code);
    }
    return {};
}

QString DestinationValidator::checkFilter(const QString& name)
{
    if (name.isEmpty() || name == QLatin1String("none"))
        return {};
    return filter_url(name).isEmpty() ? tr("No filter called \u201c%1\u201d is installed.").arg(name) : QString();
}

QString DestinationValidator::checkWorkflow(const QString& name)
{
    if (name.trimmed().isEmpty())
        return tr("Choose the workflow the files go to.");
    return plugin_url(name).isEmpty() ? tr("No workflow called \u201c%1\u201d is installed.").arg(name) : QString();
}

QString DestinationValidator::checkApplication(const QString& appid)
{
    if (appid.isEmpty() || appid == QLatin1String(DestinationTemplates::previewAppId))
        return {};
    const std::optional<DesktopEntry> entry = DesktopEntry::find(appid);
    if (!entry || !entry->isLaunchable())
        return tr("The application \u201c%1\u201d is not installed.").arg(appid);
    return {};
}

QString DestinationValidator::checkEmail(const QString& address)
{
    const QString trimmed = address.trimmed();
    if (trimmed.isEmpty())
        return tr("Give the reader's e-mail address.");
    const qsizetype at = trimmed.indexOf(u'@');
    if (trimmed.startsWith(u'-') || at <= 0 || at == trimmed.size() - 1 || trimmed.contains(u' '))
        return tr("\u201c%1\u201d is not an e-mail address.").arg(trimmed);
    return {};
}

} // namespace quirepad
