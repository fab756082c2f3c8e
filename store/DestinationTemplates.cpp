#include "store/DestinationTemplates.h"

#include "foundation/DesktopEntry.h"
#include "foundation/apps.h"
#include "foundation/dialogs.h"
#include "foundation/fileutil.h"
#include "foundation/identifiers.h"
#include "foundation/pathvars.h"
#include "store/DestinationSchema.h"
#include "store/ManagedObjectContext.h"

#include <QFileDialog>
#include <QUrl>

namespace quirepad {

namespace {
const QString kEntity = QString::fromLatin1(DestinationSchema::entityName);
}

DestinationTemplates::DestinationTemplates(ManagedObjectContext& context)
    : m_context(context)
{
}

QString DestinationTemplates::folderUrlText(const QString& path)
{
    QString expanded = f(path);
    if (expanded.isEmpty())
        return {};
    if (!expanded.endsWith(u'/'))
        expanded += u'/';
    return QUrl::fromLocalFile(expanded).toString(QUrl::FullyEncoded);
}

bool DestinationTemplates::ensureBuiltins()
{
    if (m_context.containsEntity(kEntity, Predicate::equals(QStringLiteral("recid"), QStringLiteral("copy_to_desktop"))))
        return false;
    DestinationItem* desktop = m_context.insertNewEntity(kEntity);
    DestinationItem* preview = m_context.insertNewEntity(kEntity);
    if (!desktop || !preview)
        return false;
    desktop->setValue("name", QStringLiteral("Copy to Desktop"));
    desktop->setValue("type", QStringLiteral("F"));
    desktop->setValue("recid", QStringLiteral("copy_to_desktop"));
    desktop->setValue("name_pattern", QStringLiteral("%t.pdf"));
    desktop->setInteger(2, "order");
    desktop->setBool(true, "in_menu");
    desktop->setBool(true, "is_system");
    desktop->setValue("config", QVariantMap{{"output_dir", folderUrlText(QStringLiteral("~/Desktop"))}});

    preview->setValue("name", QStringLiteral("Open in Preview"));
    preview->setValue("type", QStringLiteral("O"));
    preview->setValue("recid", QStringLiteral("open_in_preview"));
    preview->setValue("name_pattern", QStringLiteral("%t.pdf"));
    preview->setInteger(1, "order");
    preview->setBool(true, "in_menu");
    preview->setValue("config", QVariantMap{{"appid", QString::fromLatin1(previewAppId)}});
    return true;
}

DestinationItem* DestinationTemplates::insertCommon(const QString& name, const QString& type)
{
    const QString trimmed = name.trimmed();
    if (trimmed.isEmpty())
        return nullptr;
    DestinationItem* item = m_context.insertNewEntity(kEntity);
    if (!item)
        return nullptr;
    item->setValue("name", trimmed);
    item->setValue("recid", generateUUID());
    item->setValue("type", type);
    item->setBool(true, "in_menu");
    item->setInteger(0, "order");
    item->setValue("config", QVariantMap());
    return item;
}

DestinationItem* DestinationTemplates::addDestination(const QString& typeLetter)
{
    const QString name = MYDisplayPrompt(QStringLiteral("Create new destination with name:\n"), QString(),
                                         QStringLiteral("Create"), QStringLiteral("Cancel"));
    return createDestination(typeLetter, name);
}

DestinationItem* DestinationTemplates::createDestination(const QString& typeLetter, const QString& name)
{
    DestinationItem* item = insertCommon(name, typeLetter);
    if (!item)
        return nullptr;
    QVariantMap config;
    if (typeLetter == QLatin1String("F")) {
        item->setValue("name_pattern", QStringLiteral("Output-%t.pdf"));
        config.insert("output_dir", folderUrlText(QStringLiteral("~/Desktop")));
    } else if (typeLetter == QLatin1String("D")) {
        item->setBool(true, "do_compress");
        item->setValue("name_pattern", QStringLiteral("Output-%t.pdf"));
        config.insert("output_dir", folderUrlText(QStringLiteral("~/Dropbox/Public")));
    } else if (typeLetter == QLatin1String("I")) {
        item->setValue("name_pattern", QStringLiteral("%t.pdf"));
        config.insert("author_name", QStringLiteral("Quirepad"));
    } else if (typeLetter == QLatin1String("K") || typeLetter == QLatin1String("B")) {
        item->setBool(true, "do_compress");
        item->setValue("name_pattern", QStringLiteral("%t.pdf"));
    } else if (typeLetter == QLatin1String("O")) {
        item->setBool(false, "do_compress");
        item->setValue("name_pattern", QStringLiteral("%t.pdf"));
        config.insert("appid", QString::fromLatin1(previewAppId));
    }
    item->setValue("config", config);
    return item;
}

DestinationItem* DestinationTemplates::addWorkflow(const QString& pluginTitle)
{
    DestinationItem* item = insertCommon(pluginTitle, QStringLiteral("X"));
    if (!item)
        return nullptr;
    item->setValue("name_pattern", QStringLiteral("%t.pdf"));
    item->setValue("config.plugin_name", pluginTitle); // untrimmed, as listed
    return item;
}

DestinationItem* DestinationTemplates::addApplication(int tag, const QString& title,
                                                      const QVariantMap& representedObject,
                                                      DestinationItem* selected)
{
    QString appid = representedObject.value(QStringLiteral("appid")).toString();
    if (appid.isEmpty())
        appid = QString::fromLatin1(previewAppId);
    DestinationItem* item = tag == 1 ? insertCommon(title, QStringLiteral("O")) : selected;
    if (!item)
        return nullptr;
    item->setValue("config.appid", appid);
    item->setValue("name_pattern", QStringLiteral("%t.pdf"));
    return item;
}

DestinationItem* DestinationTemplates::browseApplication(int tag, DestinationItem* selected, const QString& chosenEntry)
{
    QString path = chosenEntry;
    if (path.isEmpty())
        path = QFileDialog::getOpenFileName(nullptr, QString(), QStringLiteral("/usr/share/applications"),
                                            QStringLiteral("Applications (*.desktop)"));
    if (path.isEmpty())
        return nullptr;
    const std::optional<DesktopEntry> entry = DesktopEntry::fromFile(path);
    const QString name = entry ? entry->name() : path_basename_noext(path);
    const QString appid = entry ? path_basename(path) : QString();
    DestinationItem* item = tag == 1 ? insertCommon(name.isEmpty() ? path_basename_noext(path) : name, QStringLiteral("O"))
                                     : selected;
    if (!item)
        return nullptr;
    // No name pattern here, unlike addApplication: kept as it always was.
    if (!appid.isEmpty())
        item->setValue("config.appid", appid);
    return item;
}

DestinationItem* DestinationTemplates::readObjectsFromPasteboard(const QStringList& files)
{
    if (files.isEmpty())
        return nullptr;
    const QString file = files.first();
    const QString ext = path_extension(file);
    DestinationItem* item = nullptr;
    if (ext == QLatin1String("desktop")) {
        // A desktop entry stands for an application.
        const std::optional<DesktopEntry> entry = DesktopEntry::fromFile(file);
        if (!entry)
            return nullptr;
        item = insertCommon(entry->name(), QStringLiteral("O"));
        if (!item)
            return nullptr;
        item->setValue("config.appid", path_basename(file));
        item->setBool(false, "do_compress");
    } else if (ext == QLatin1String("workflow")) {
        item = insertCommon(path_basename_noext(file), QStringLiteral("X"));
        if (!item)
            return nullptr;
        item->setValue("config.plugin_name", path_basename_noext(file));
        item->setBool(false, "do_compress");
    } else if (directory_exists(file)) {
        item = insertCommon(path_basename(file), QStringLiteral("F"));
        if (!item)
            return nullptr;
        item->setValue("config.output_dir", folderUrlText(file));
        item->setBool(true, "do_compress");
    } else {
        return nullptr;
    }
    item->setValue("name_pattern", QStringLiteral("Output-%t.pdf"));
    return item;
}

} // namespace quirepad
