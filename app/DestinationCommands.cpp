#include "DestinationCommands.h"

#include "AppSession.h"
#include "CommandLine.h"

#include "store/DestinationSchema.h"
#include "store/DestinationTemplates.h"
#include "store/listorder.h"

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>
#include <QUrl>

namespace quirepad {

namespace {

const QString kEntity = QString::fromLatin1(DestinationSchema::entityName);

// What each type letter does, in words.
struct TypeLetter {
    QChar letter;
    const char* word; // in the table of destinations
    const char* explanation; // in the usage
};
constexpr TypeLetter kTypes[] = {
    { u'F', "folder", "copy into a folder under a name pattern" },
    { u'O', "open", "open with an application" },
    { u'B', "e-book library", "add to the e-book library (calibre, else a Books folder)" },
    { u'I', "media library", "the e-book library too, with an author; its own notice" },
    { u'D', "sync folder", "copy into a sync folder, its link on the clipboard" },
    { u'K', "e-reader", "send to an e-reader over USB or by mail" },
    { u'X', "workflow", "run a plugin workflow" },
};

const TypeLetter* typeLetter(const QString& type)
{
    for (const TypeLetter& t : kTypes)
        if (type.size() == 1 && type.at(0) == t.letter)
            return &t;
    return nullptr;
}

QString typeLetters()
{
    QStringList letters;
    for (const TypeLetter& t : kTypes)
        letters << QString(t.letter);
    return letters.join(u' ');
}

// A folder kept as a file URL, shown as a path.
QString shownFolder(const QString& text)
{
    const QUrl url(text);
    return url.isLocalFile() ? url.toLocalFile() : text;
}

// Where jobs sent to the destination go, in a few words.
QString goesTo(DestinationItem& item)
{
    const QVariantMap config = item.config();
    const QString type = item.value(QStringLiteral("type")).toString();
    if (type == QLatin1String("O"))
        return config.value(QStringLiteral("appid")).toString();
    if (type == QLatin1String("X"))
        return config.value(QStringLiteral("plugin_name")).toString();
    if (type == QLatin1String("B") || type == QLatin1String("I")) {
        const QString library = config.value(QStringLiteral("library_path")).toString();
        return library.isEmpty() ? QStringLiteral("(the e-book library)") : shownFolder(library);
    }
    if (type == QLatin1String("K"))
        return QStringLiteral("(the connected e-reader)");
    return shownFolder(config.value(QStringLiteral("output_dir")).toString());
}

// Text cut to width characters: at the end, or for a path at its start,
// keeping the folder names nearest the file.
QString fitted(const QString& text, int width, bool path)
{
    if (text.size() <= width)
        return text;
    if (width <= 1)
        return QString(width, u'\u2026');
    return path ? QStringLiteral("\u2026") + text.right(width - 1) : text.left(width - 1) + QStringLiteral("\u2026");
}

QString describeValue(AttributeKind kind, const QVariant& value)
{
    switch (kind) {
    case AttributeKind::Boolean:
        return value.toBool() ? QStringLiteral("yes") : QStringLiteral("no");
    case AttributeKind::Image:
        return QStringLiteral("<PNG image, %1 bytes>").arg(value.toByteArray().size());
    case AttributeKind::Opaque: {
        const QByteArray bytes = value.toByteArray();
        const QString text = QString::fromUtf8(bytes);
        if (text.toUtf8() == bytes && !text.contains(QChar(0)))
            return text;
        return QStringLiteral("<%1 bytes>").arg(bytes.size());
    }
    default:
        return value.toString();
    }
}

QJsonValue jsonValue(AttributeKind kind, const QVariant& value)
{
    switch (kind) {
    case AttributeKind::Boolean:
        return value.toBool();
    case AttributeKind::Integer:
        return value.toLongLong();
    case AttributeKind::Dictionary:
        return QJsonObject::fromVariantMap(value.toMap());
    case AttributeKind::Image:
    case AttributeKind::Opaque:
        return QString::fromLatin1(value.toByteArray().toBase64()); // bytes travel as base64
    default:
        return value.toString();
    }
}

QList<DestinationItem*> allByOrder(ManagedObjectContext& context)
{
    return context.entities(kEntity, Predicate::always(), { { "order", true }, { "name", true } })
        .value_or(QList<DestinationItem*>());
}

// A recid first, then a name, exactly as written.
DestinationItem* findDestination(ManagedObjectContext& context, const QString& id)
{
    if (DestinationItem* byId = context.firstEntity(kEntity, Predicate::equals("recid", id)))
        return byId;
    return context.firstEntity(kEntity, Predicate::equals("name", id));
}

class DestinationCommand
{
public:
    DestinationCommand(AppSession& session, const CommandInvocation& call)
        : m_session(session)
        , m_call(call)
    {
    }

    int run()
    {
        const QStringList& args = m_call.arguments;
        if (args.isEmpty())
            return usage(QStringLiteral("destinations needs a subcommand"));
        m_context = m_session.context();
        if (!m_context)
            return fail(QStringLiteral("the destination store is not available"));
        const QString sub = args.first();
        const QStringList rest = args.mid(1);
        if (sub == QLatin1String("list"))
            return list(rest);
        if (sub == QLatin1String("add"))
            return add(rest);
        if (sub == QLatin1String("add-app"))
            return addApp(rest);
        if (sub == QLatin1String("add-workflow"))
            return addWorkflow(rest);
        if (sub == QLatin1String("add-path"))
            return addPath(rest);
        if (sub == QLatin1String("set"))
            return set(rest);
        if (sub == QLatin1String("remove"))
            return remove(rest);
        if (sub == QLatin1String("move"))
            return move(rest);
        if (sub == QLatin1String("export"))
            return exportFile(rest);
        if (sub == QLatin1String("import"))
            return importFile(rest);
        return usage(QStringLiteral("unknown subcommand '%1'").arg(sub));
    }

private:
    int fail(const QString& message, int status = 1) { return m_call.fail(message, status); }
    int usage(const QString& message)
    {
        return fail(message + QStringLiteral(" (see quirepad destinations --help)"), 2);
    }

    int saved(int status = 0)
    {
        if (!m_session.delegate().saveAction())
            return fail(QStringLiteral("the destinations could not be saved"));
        return status;
    }

    DestinationItem* lookup(const QString& id)
    {
        DestinationItem* item = findDestination(*m_context, id);
        if (!item)
            fail(QStringLiteral("no destination with id or name '%1'").arg(id));
        return item;
    }

    int created(DestinationItem* item)
    {
        if (!item)
            return fail(QStringLiteral("nothing was created"));
        m_call.out << item->recid() << '\n';
        return saved();
    }

    int list(const QStringList& arguments)
    {
        QStringList args = arguments;
        int width = 80;
        const qsizetype widthAt = args.indexOf(QStringLiteral("--width"));
        if (widthAt >= 0) {
            bool ok = false;
            width = args.value(widthAt + 1).toInt(&ok);
            if (!ok || width < 20 || width > 1000)
                return usage(QStringLiteral("--width takes a number of columns from 20 to 1000"));
            args.remove(widthAt, 2);
        }
        const QString mode = args.value(0);
        if (args.size() > 1
            || (args.size() == 1 && mode != QLatin1String("--json") && mode != QLatin1String("--long")
                && mode != QLatin1String("--names")))
            return usage(QStringLiteral("destinations list takes one of --long, --json, --names"));
        const QList<DestinationItem*> items = allByOrder(*m_context);
        if (mode == QLatin1String("--json"))
            listJson(items);
        else if (mode == QLatin1String("--long"))
            listLong(items);
        else if (mode == QLatin1String("--names"))
            for (DestinationItem* item : items)
                m_call.out << item->name() << '\n';
        else
            listTable(items, width);
        return 0;
    }

    void listJson(const QList<DestinationItem*>& items)
    {
        QJsonArray array;
        for (DestinationItem* item : items) {
            QJsonObject object;
            for (const AttributeDefinition& attribute : DestinationSchema::attributes()) {
                const QVariant value = item->value(attribute.name);
                if (value.isValid())
                    object.insert(attribute.name, jsonValue(attribute.kind, value));
            }
            array.append(object);
        }
        m_call.out << QJsonDocument(array).toJson(QJsonDocument::Indented);
    }

    void listLong(const QList<DestinationItem*>& items)
    {
        for (DestinationItem* item : items) {
            m_call.out << item->name() << "  [" << item->recid() << "]\n";
            QStringList fields;
            for (const AttributeDefinition& attribute : DestinationSchema::attributes()) {
                if (attribute.name == QLatin1String("name") || attribute.name == QLatin1String("recid")
                    || attribute.name == QLatin1String("config"))
                    continue;
                const QVariant value = item->value(attribute.name);
                if (value.isValid())
                    fields << attribute.name + QLatin1Char('=') + describeValue(attribute.kind, value);
            }
            m_call.out << "  " << fields.join(QStringLiteral("  ")) << '\n';
            const QVariantMap config = item->config();
            for (auto it = config.cbegin(); it != config.cend(); ++it)
                m_call.out << "  config." << it.key() << '=' << it.value().toString() << '\n';
        }
    }

    // One line a destination: order, name, type, where it goes, flags;
    // the name and the place share what the width leaves.
    void listTable(const QList<DestinationItem*>& items, int width)
    {
        QList<QStringList> rows { { QStringLiteral("#"), QStringLiteral("NAME"), QStringLiteral("TYPE"),
            QStringLiteral("GOES TO"), QStringLiteral("FLAGS") } };
        for (DestinationItem* item : items) {
            const QString type = item->value(QStringLiteral("type")).toString();
            const TypeLetter* letter = typeLetter(type);
            QStringList flags;
            if (item->boolForKey(QStringLiteral("in_menu")))
                flags << QStringLiteral("menu");
            if (item->boolForKey(QStringLiteral("is_system")))
                flags << QStringLiteral("built-in");
            rows.append({ item->value(QStringLiteral("order")).toString(), item->name().simplified(),
                letter ? QString::fromLatin1(letter->word) : QStringLiteral("%1 (folder)").arg(type),
                goesTo(*item).simplified(), flags.join(u',') });
        }
        int widths[5] = {};
        for (const QStringList& row : rows)
            for (int c = 0; c < 5; ++c)
                widths[c] = qMax(widths[c], int(row.at(c).size()));
        const int room = width - widths[0] - widths[2] - widths[4] - 2 * 4;
        if (widths[1] + widths[3] > room) {
            widths[1] = qMin(widths[1], qMax(8, room * 2 / 5));
            widths[3] = qMax(8, room - widths[1]);
        }
        for (const QStringList& row : rows) {
            QString line = row.at(0).rightJustified(widths[0]) + QStringLiteral("  ")
                + fitted(row.at(1), widths[1], false).leftJustified(widths[1]) + QStringLiteral("  ")
                + row.at(2).leftJustified(widths[2]) + QStringLiteral("  ")
                + fitted(row.at(3), widths[3], true).leftJustified(widths[3]) + QStringLiteral("  ") + row.at(4);
            while (line.endsWith(u' '))
                line.chop(1);
            m_call.out << line << '\n';
        }
    }

    // A name another destination has already (names pick destinations).
    bool nameTaken(const QString& name)
    {
        const QString wanted = name.trimmed();
        for (DestinationItem* item : allByOrder(*m_context))
            if (item->name().trimmed().compare(wanted, Qt::CaseInsensitive) == 0)
                return true;
        return false;
    }

    int refuseTakenName(const QString& name)
    {
        return fail(QStringLiteral("a destination named '%1' exists already").arg(name.trimmed()));
    }

    int add(const QStringList& args)
    {
        if (args.size() != 2)
            return usage(QStringLiteral("usage: destinations add TYPE NAME"));
        const QString type = args.at(0);
        if (!typeLetter(type))
            return usage(QStringLiteral("TYPE is one of the letters %1, not '%2'").arg(typeLetters(), type));
        if (args.at(1).trimmed().isEmpty())
            return fail(QStringLiteral("NAME is empty"));
        if (nameTaken(args.at(1)))
            return refuseTakenName(args.at(1));
        return created(DestinationTemplates(*m_context).createDestination(type, args.at(1)));
    }

    int addApp(const QStringList& args)
    {
        if (args.size() != 2)
            return usage(QStringLiteral("usage: destinations add-app NAME APPID"));
        if (args.at(0).trimmed().isEmpty())
            return fail(QStringLiteral("NAME is empty"));
        if (nameTaken(args.at(0)))
            return refuseTakenName(args.at(0));
        return created(
            DestinationTemplates(*m_context).addApplication(1, args.at(0), { { "appid", args.at(1) } }, nullptr));
    }

    int addWorkflow(const QStringList& args)
    {
        if (args.size() != 1)
            return usage(QStringLiteral("usage: destinations add-workflow NAME"));
        if (args.at(0).trimmed().isEmpty())
            return fail(QStringLiteral("NAME is empty"));
        if (nameTaken(args.at(0)))
            return refuseTakenName(args.at(0));
        return created(DestinationTemplates(*m_context).addWorkflow(args.at(0)));
    }

    int addPath(const QStringList& args)
    {
        if (args.size() != 1)
            return usage(QStringLiteral("usage: destinations add-path PATH"));
        const QString path = m_call.absolutePath(args.at(0));
        DestinationItem* item = DestinationTemplates(*m_context).readObjectsFromPasteboard({ path });
        if (!item)
            return fail(QStringLiteral("%1 is not an application entry (.desktop), a workflow or a folder").arg(path));
        return created(item);
    }

    // Parses every KEY=VALUE before anything changes.
    int set(const QStringList& args)
    {
        if (args.size() < 2)
            return usage(QStringLiteral("usage: destinations set ID KEY=VALUE..."));
        DestinationItem* item = lookup(args.at(0));
        if (!item)
            return 1;
        QList<QPair<QString, QVariant>> changes;
        for (const QString& assignment : args.mid(1)) {
            const qsizetype eq = assignment.indexOf(u'=');
            if (eq <= 0)
                return fail(QStringLiteral("malformed KEY=VALUE: '%1'").arg(assignment), 2);
            const QString key = assignment.left(eq);
            const QString text = assignment.mid(eq + 1);
            if (key.startsWith(QLatin1String("config."))) {
                if (key.size() == 7)
                    return fail(QStringLiteral("malformed KEY=VALUE: '%1'").arg(assignment), 2);
                changes.append({ key, text.isEmpty() ? QVariant() : QVariant(text) });
                continue;
            }
            const std::optional<AttributeKind> kind = DestinationSchema::kindOf(key);
            if (!kind)
                return fail(QStringLiteral("destinations have no attribute '%1'").arg(key), 2);
            if (text.isEmpty()) {
                changes.append({ key, QVariant() });
                continue;
            }
            QVariant value;
            switch (*kind) {
            case AttributeKind::Boolean:
                if (QStringList { "yes", "no", "true", "false", "1", "0" }.contains(text.toLower()))
                    value = DestinationSchema::normalized(*kind, text);
                break;
            case AttributeKind::Integer: {
                bool ok = false;
                const qint64 n = text.toLongLong(&ok);
                if (ok)
                    value = n;
                break;
            }
            case AttributeKind::Dictionary: {
                const QJsonDocument doc = QJsonDocument::fromJson(text.toUtf8());
                if (doc.isObject())
                    value = doc.object().toVariantMap();
                break;
            }
            case AttributeKind::Image: {
                QImage image(m_call.absolutePath(text));
                if (!image.isNull())
                    value = DestinationSchema::normalized(*kind, image);
                break;
            }
            default:
                value = DestinationSchema::normalized(*kind, text);
            }
            if (!value.isValid()) {
                const QString expected = *kind == AttributeKind::Boolean ? QStringLiteral("yes or no")
                    : *kind == AttributeKind::Integer                    ? QStringLiteral("a whole number")
                    : *kind == AttributeKind::Image                      ? QStringLiteral("the path of an image file")
                                                                         : QStringLiteral("a JSON object");
                return fail(QStringLiteral("%1 takes %2, not '%3'").arg(key, expected, text), 2);
            }
            changes.append({ key, value });
        }
        for (const auto& [key, value] : changes)
            item->setValue(key, value);
        return saved();
    }

    int remove(const QStringList& args)
    {
        if (args.size() != 1)
            return usage(QStringLiteral("usage: destinations remove ID"));
        DestinationItem* item = lookup(args.at(0));
        if (!item)
            return 1;
        m_context->deleteObject(item);
        return saved();
    }

    int move(const QStringList& args)
    {
        if (args.size() != 3 || (args.at(1) != QLatin1String("--after") && args.at(1) != QLatin1String("--before")))
            return usage(QStringLiteral("usage: destinations move ID --after ID|--before ID"));
        DestinationItem* item = lookup(args.at(0));
        if (!item)
            return 1;
        DestinationItem* anchor = lookup(args.at(2));
        if (!anchor)
            return 1;
        if (anchor == item)
            return fail(QStringLiteral("a destination cannot move next to itself"), 2);
        const SortDescriptor byOrder { QStringLiteral("order"), true };
        QList<DestinationItem*> list = listPrepareReorder(allByOrder(*m_context), { item }, byOrder);
        if (args.at(1) == QLatin1String("--after"))
            listInsertObjectAfter(list, { item }, anchor);
        else
            listInsertObjectBefore(list, { item }, anchor);
        listStoreOrder(list, QStringLiteral("order"));
        return saved();
    }

    int exportFile(const QStringList& args)
    {
        if (args.isEmpty() || args.size() > 2)
            return usage(QStringLiteral("usage: destinations export FILE [ID]"));
        const QString path = m_call.absolutePath(args.at(0));
        QString error;
        bool ok = false;
        if (args.size() == 2) {
            DestinationItem* item = lookup(args.at(1));
            if (!item)
                return 1;
            ok = m_session.delegate().exportItemTo(*item, path, &error);
        } else {
            ok = m_session.delegate().exportTo(path, &error);
        }
        return ok ? 0 : fail(error);
    }

    int importFile(const QStringList& args)
    {
        if (args.size() != 1)
            return usage(QStringLiteral("usage: destinations import FILE"));
        QString error;
        if (!m_session.delegate().importFrom(m_call.absolutePath(args.at(0)), &error))
            return fail(error);
        return saved();
    }

    AppSession& m_session;
    const CommandInvocation& m_call;
    ManagedObjectContext* m_context = nullptr;
};

} // namespace

QString destinationsHelp()
{
    QString types;
    for (const TypeLetter& t : kTypes)
        types += QStringLiteral("\n  %1  %2").arg(t.letter).arg(QString::fromLatin1(t.explanation));
    return QStringLiteral("manage the destinations (ID is a recid or a name)\n"
                          "  list [--long|--json|--names] [--width N]\n"
                          "                        a table (cut to the terminal's width, else 80),\n"
                          "                        every attribute, JSON, or the names one a line\n"
                          "  add TYPE NAME         a new destination of the type letter TYPE\n"
                          "  add-app NAME APPID    open with a desktop entry, e.g. org.gnome.Evince.desktop\n"
                          "  add-workflow NAME     run the plugin workflow NAME\n"
                          "  add-path PATH         from a folder, a .workflow or a .desktop entry\n"
                          "  set ID KEY=VALUE...   attributes by name, config.KEY=VALUE; yes/no booleans\n"
                          "  remove ID             delete the destination\n"
                          "  move ID --after ID|--before ID\n"
                          "                        put it after or before another one\n"
                          "  export FILE [ID]      into a .quirepad-settings file (all, or one)\n"
                          "  import FILE           merge a .quirepad-settings file\n"
                          "The add commands refuse a NAME another destination has (status 1).\n"
                          "Type letters:")
        + types;
}

void addDestinationCommands(CommandLine& commandLine, AppSession& session)
{
    commandLine.addCommand({ QStringLiteral("destinations"), QStringLiteral("SUBCOMMAND [ARGS...]"), destinationsHelp(),
        [&session](const CommandInvocation& call) { return DestinationCommand(session, call).run(); },
        { QStringLiteral("list"), QStringLiteral("add"), QStringLiteral("add-app"), QStringLiteral("add-workflow"),
            QStringLiteral("add-path"), QStringLiteral("set"), QStringLiteral("remove"), QStringLiteral("move"),
            QStringLiteral("export"), QStringLiteral("import") },
        QStringList { QStringLiteral("--long"), QStringLiteral("--json"), QStringLiteral("--names"),
            QStringLiteral("--width="), QStringLiteral("--after="), QStringLiteral("--before=") } });
}

} // namespace quirepad
