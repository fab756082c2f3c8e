#include "foundation/DesktopEntry.h"

#include "foundation/Log.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QSet>
#include <QStandardPaths>

#include <algorithm>
#include <utility>

namespace quirepad {

namespace {

const QString kDesktopEntryGroup = QStringLiteral("Desktop Entry");
const QString kDesktopSuffix = QStringLiteral(".desktop");

// ---------------------------------------------------------------------------
// Key files: "[Group]" headers, "Key=Value" lines, "#" comments.

using KeyFileGroup = QHash<QString, QString>;
using KeyFileGroups = QHash<QString, KeyFileGroup>;

KeyFileGroups parseKeyFile(const QByteArray& contents)
{
    KeyFileGroups groups;
    KeyFileGroup* current = nullptr;
    const QString text = QString::fromUtf8(contents);
    for (QStringView line : QStringView(text).split(u'\n')) {
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith(u'#'))
            continue;
        if (line.startsWith(u'[')) {
            const qsizetype close = line.indexOf(u']');
            current = close > 1 ? &groups[line.mid(1, close - 1).toString()] : nullptr;
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        // Lines before the first group and lines without a key are not part of any entry.
        if (!current || equals <= 0)
            continue;
        const QString key = line.left(equals).trimmed().toString();
        if (!key.isEmpty())
            current->insert(key, line.mid(equals + 1).trimmed().toString());
    }
    return groups;
}

std::optional<KeyFileGroups> readKeyFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return parseKeyFile(file.readAll());
}

// \s \n \t \r \\ become what they stand for; any other backslash stays, so
// the quoting of Exec can still see it.
QString unescapeValue(QStringView raw)
{
    QString result;
    result.reserve(raw.size());
    for (qsizetype i = 0; i < raw.size(); ++i) {
        const QChar c = raw[i];
        if (c != u'\\' || i + 1 == raw.size()) {
            result += c;
            continue;
        }
        const QChar next = raw[++i];
        switch (next.unicode()) {
        case 's':
            result += u' ';
            break;
        case 'n':
            result += u'\n';
            break;
        case 't':
            result += u'\t';
            break;
        case 'r':
            result += u'\r';
            break;
        case '\\':
            result += u'\\';
            break;
        default:
            result += c;
            result += next;
        }
    }
    return result;
}

// A ";"-separated list; "\;" is a semicolon inside an element. Empty
// elements are dropped.
QStringList unescapeList(QStringView raw)
{
    QStringList items;
    QString piece;
    const auto finishPiece = [&] {
        QString item = unescapeValue(piece);
        if (!item.isEmpty())
            items.append(std::move(item));
        piece.clear();
    };
    for (qsizetype i = 0; i < raw.size(); ++i) {
        const QChar c = raw[i];
        if (c == u'\\' && i + 1 < raw.size()) {
            const QChar next = raw[++i];
            if (next == u';') {
                piece += next;
            } else {
                piece += c;
                piece += next;
            }
        } else if (c == u';') {
            finishPiece();
        } else {
            piece += c;
        }
    }
    finishPiece();
    return items;
}

// ---------------------------------------------------------------------------
// XDG base directories. Relative paths in the variables are ignored.

QString absoluteDirFromEnv(const char* variable, const QString& fallback)
{
    const QString value = qEnvironmentVariable(variable);
    return QDir::isAbsolutePath(value) ? QDir::cleanPath(value) : fallback;
}

QStringList absoluteDirsFromEnv(const char* variable, const QStringList& fallback)
{
    QStringList dirs;
    const QStringList values = qEnvironmentVariable(variable).split(u':', Qt::SkipEmptyParts);
    for (const QString& value : values) {
        if (!QDir::isAbsolutePath(value))
            continue;
        const QString dir = QDir::cleanPath(value);
        if (!dirs.contains(dir))
            dirs.append(dir);
    }
    return dirs.isEmpty() ? fallback : dirs;
}

QStringList dataDirs()
{
    QStringList dirs { absoluteDirFromEnv("XDG_DATA_HOME", QDir::homePath() + QStringLiteral("/.local/share")) };
    for (const QString& dir :
        absoluteDirsFromEnv("XDG_DATA_DIRS", { QStringLiteral("/usr/local/share"), QStringLiteral("/usr/share") })) {
        if (!dirs.contains(dir))
            dirs.append(dir);
    }
    return dirs;
}

QStringList configDirs()
{
    QStringList dirs { absoluteDirFromEnv("XDG_CONFIG_HOME", QDir::homePath() + QStringLiteral("/.config")) };
    for (const QString& dir : absoluteDirsFromEnv("XDG_CONFIG_DIRS", { QStringLiteral("/etc/xdg") })) {
        if (!dirs.contains(dir))
            dirs.append(dir);
    }
    return dirs;
}

// The names of the running desktop, lowercase, in the order given.
QStringList currentDesktops()
{
    QStringList desktops;
    const QStringList names = qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(u':', Qt::SkipEmptyParts);
    for (const QString& name : names) {
        const QString lower = name.trimmed().toLower();
        if (!lower.isEmpty() && !lower.contains(u'/') && !desktops.contains(lower))
            desktops.append(lower);
    }
    return desktops;
}

// ---------------------------------------------------------------------------
// Desktop-entry IDs.

QString normalizedId(const QString& id)
{
    const QString trimmed = id.trimmed();
    if (trimmed.isEmpty() || trimmed.contains(u'/'))
        return QString();
    const QString withSuffix = trimmed.endsWith(kDesktopSuffix) ? trimmed : trimmed + kDesktopSuffix;
    return withSuffix.size() > kDesktopSuffix.size() ? withSuffix : QString();
}

// The file for relativeId below dir: "a-b-c.desktop" may be a-b-c.desktop,
// a/b-c.desktop, a-b/c.desktop or a/b/c.desktop. Only folders that exist are
// descended into.
QString locateBelow(const QString& dir, const QString& relativeId)
{
    const QString direct = dir + u'/' + relativeId;
    if (QFileInfo(direct).isFile())
        return direct;
    for (qsizetype dash = relativeId.indexOf(u'-'); dash > 0; dash = relativeId.indexOf(u'-', dash + 1)) {
        const QString subdir = dir + u'/' + relativeId.left(dash);
        if (!QFileInfo(subdir).isDir())
            continue;
        const QString found = locateBelow(subdir, relativeId.mid(dash + 1));
        if (!found.isEmpty())
            return found;
    }
    return QString();
}

// The ID of the file at path: its place below an applications folder, else
// its name.
QString idForPath(const QString& path)
{
    const QString absolute = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    for (const QString& dir : DesktopEntry::applicationDirs()) {
        const QString prefix = dir + u'/';
        if (absolute.startsWith(prefix))
            return absolute.mid(prefix.size()).replace(u'/', u'-');
    }
    return QFileInfo(absolute).fileName();
}

// Every desktop-entry ID below one applications folder, sorted.
QStringList idsBelow(const QString& dir)
{
    QStringList ids;
    const QString prefix = dir + u'/';
    QDirIterator it(dir, { QStringLiteral("*.desktop") }, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        ids.append(path.mid(prefix.size()).replace(u'/', u'-'));
    }
    ids.sort();
    return ids;
}

std::optional<DesktopEntry> installedEntry(const QString& id)
{
    std::optional<DesktopEntry> entry = DesktopEntry::find(id);
    if (entry && entry->isLaunchable())
        return entry;
    return std::nullopt;
}

// ---------------------------------------------------------------------------
// Locale names: lang_COUNTRY.ENCODING@MODIFIER.

QStringList localeCandidates(const QString& localeName)
{
    QString rest = localeName.trimmed();
    QString modifier;
    if (const qsizetype at = rest.indexOf(u'@'); at >= 0) {
        modifier = rest.mid(at + 1);
        rest.truncate(at);
    }
    if (const qsizetype dot = rest.indexOf(u'.'); dot >= 0)
        rest.truncate(dot);
    rest.replace(u'-', u'_');
    QString lang = rest;
    QString country;
    if (const qsizetype underscore = rest.indexOf(u'_'); underscore >= 0) {
        lang = rest.left(underscore);
        country = rest.mid(underscore + 1);
    }
    if (lang.isEmpty() || lang == u"C" || lang == u"POSIX")
        return {};

    QStringList candidates;
    if (!country.isEmpty() && !modifier.isEmpty())
        candidates.append(lang + u'_' + country + u'@' + modifier);
    if (!country.isEmpty())
        candidates.append(lang + u'_' + country);
    if (!modifier.isEmpty())
        candidates.append(lang + u'@' + modifier);
    candidates.append(lang);
    return candidates;
}

// ---------------------------------------------------------------------------
// Exec lines.

// One piece of an Exec argument: literal text, or a field code.
struct ExecPiece {
    QChar code; // null for text
    QString text;
};
using ExecArgument = QList<ExecPiece>;

// Splits an (unescaped) Exec value into arguments the way a shell does:
// blanks separate, '...' keeps everything, "..." keeps everything except
// that \" \` \$ \\ stand for the character, a backslash elsewhere quotes the
// next character. "%x" is a field code wherever it stands. Nothing when a
// quote is not closed.
std::optional<QList<ExecArgument>> splitExec(const QString& exec)
{
    enum class Quote { None, Single, Double };
    QList<ExecArgument> arguments;
    ExecArgument current;
    bool inArgument = false;
    Quote quote = Quote::None;
    const auto appendText = [&](QChar c) {
        if (current.isEmpty() || !current.constLast().code.isNull())
            current.append(ExecPiece {});
        current.last().text += c;
    };

    for (qsizetype i = 0; i < exec.size(); ++i) {
        const QChar c = exec[i];
        const bool hasNext = i + 1 < exec.size();
        if (c == u'%' && hasNext) {
            const QChar code = exec[++i];
            if (code == u'%')
                appendText(code);
            else
                current.append(ExecPiece { code, QString() });
            inArgument = true;
            continue;
        }
        switch (quote) {
        case Quote::Single:
            if (c == u'\'')
                quote = Quote::None;
            else
                appendText(c);
            continue;
        case Quote::Double:
            if (c == u'"') {
                quote = Quote::None;
            } else if (c == u'\\' && hasNext && QStringView(u"\"`$\\").contains(exec[i + 1])) {
                appendText(exec[++i]);
            } else {
                appendText(c);
            }
            continue;
        case Quote::None:
            break;
        }
        if (c == u' ' || c == u'\t' || c == u'\n') {
            if (inArgument)
                arguments.append(std::exchange(current, {}));
            inArgument = false;
            continue;
        }
        inArgument = true;
        if (c == u'\'')
            quote = Quote::Single;
        else if (c == u'"')
            quote = Quote::Double;
        else if (c == u'\\' && hasNext)
            appendText(exec[++i]);
        else
            appendText(c);
    }
    if (quote != Quote::None)
        return std::nullopt;
    if (inArgument)
        arguments.append(std::move(current));
    return arguments;
}

bool isMultiFileCode(QChar code)
{
    return code == u'F' || code == u'U';
}

bool isSingleFileCode(QChar code)
{
    return code == u'f' || code == u'u';
}

bool usesCode(const QList<ExecArgument>& arguments, bool (*predicate)(QChar))
{
    return std::any_of(arguments.cbegin(), arguments.cend(), [predicate](const ExecArgument& argument) {
        return std::any_of(argument.cbegin(), argument.cend(),
            [predicate](const ExecPiece& piece) { return !piece.code.isNull() && predicate(piece.code); });
    });
}

// One argument vector: the files are all files for %F/%U and at most one
// for %f/%u.
QStringList expandExec(const QList<ExecArgument>& arguments, const QStringList& files, const DesktopEntry& entry)
{
    QStringList argv;
    for (const ExecArgument& argument : arguments) {
        if (argument.size() == 1 && !argument.constFirst().code.isNull()) {
            // A field code standing alone may give several arguments or none.
            const QChar code = argument.constFirst().code;
            if (isMultiFileCode(code)) {
                argv += files;
            } else if (isSingleFileCode(code)) {
                if (!files.isEmpty())
                    argv.append(files.constFirst());
            } else if (code == u'i') {
                const QString icon = entry.iconName();
                if (!icon.isEmpty())
                    argv << QStringLiteral("--icon") << icon;
            } else if (code == u'c') {
                const QString name = entry.name();
                if (!name.isEmpty())
                    argv.append(name);
            } else if (code == u'k') {
                if (!entry.path().isEmpty())
                    argv.append(entry.path());
            }
            continue;
        }
        QString text;
        for (const ExecPiece& piece : argument) {
            if (piece.code.isNull())
                text += piece.text;
            else if (isMultiFileCode(piece.code))
                text += files.join(u' ');
            else if (isSingleFileCode(piece.code))
                text += files.value(0);
            else if (piece.code == u'i')
                text += entry.iconName();
            else if (piece.code == u'c')
                text += entry.name();
            else if (piece.code == u'k')
                text += entry.path();
        }
        // "" is an empty argument; codes that expanded to nothing leave none.
        const bool onlyCodes = !argument.isEmpty()
            && std::all_of(
                argument.cbegin(), argument.cend(), [](const ExecPiece& piece) { return !piece.code.isNull(); });
        if (!(onlyCodes && text.isEmpty()))
            argv.append(text);
    }
    return argv;
}

// ---------------------------------------------------------------------------
// MIME associations.

// One mimeapps.list, reduced to the lists for one MIME type.
struct MimeAppsLists {
    QStringList defaults;
    QStringList added;
    QStringList removed;
};

QStringList listForType(const KeyFileGroups& groups, const QString& group, const QString& mimeType)
{
    const auto found = groups.constFind(group);
    if (found == groups.constEnd())
        return {};
    for (auto it = found->constBegin(); it != found->constEnd(); ++it) {
        if (it.key().compare(mimeType, Qt::CaseInsensitive) == 0)
            return unescapeList(it.value());
    }
    return {};
}

// The mimeapps.list files that exist, most important first, each with
// whether it is one for a particular desktop (those only name defaults).
QList<std::pair<QString, bool>> mimeAppsFiles()
{
    QStringList dirs = configDirs();
    for (const QString& dataDir : dataDirs())
        dirs.append(dataDir + QStringLiteral("/applications"));
    const QStringList desktops = currentDesktops();

    QList<std::pair<QString, bool>> files;
    for (const QString& dir : dirs) {
        for (const QString& desktop : desktops) {
            const QString path = dir + u'/' + desktop + QStringLiteral("-mimeapps.list");
            if (QFileInfo(path).isFile())
                files.append({ path, true });
        }
        const QString path = dir + QStringLiteral("/mimeapps.list");
        if (QFileInfo(path).isFile())
            files.append({ path, false });
    }
    return files;
}

} // namespace

// ---------------------------------------------------------------------------

std::optional<DesktopEntry> DesktopEntry::fromFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qCDebug(lcDesktop).noquote() << "cannot read desktop entry" << path << file.errorString();
        return std::nullopt;
    }
    return fromData(file.readAll(), path);
}

std::optional<DesktopEntry> DesktopEntry::fromData(const QByteArray& contents, const QString& path, const QString& id)
{
    KeyFileGroups groups = parseKeyFile(contents);
    const auto group = groups.find(kDesktopEntryGroup);
    if (group == groups.end()) {
        qCDebug(lcDesktop).noquote() << "no [Desktop Entry] group in" << path;
        return std::nullopt;
    }
    DesktopEntry entry;
    entry.m_values = std::move(*group);
    entry.m_path = path.isEmpty() ? QString() : QFileInfo(path).absoluteFilePath();
    entry.m_id = !id.isEmpty() ? id : (path.isEmpty() ? QString() : idForPath(path));
    return entry;
}

std::optional<DesktopEntry> DesktopEntry::find(const QString& id)
{
    const QString desktopId = normalizedId(id);
    if (desktopId.isEmpty())
        return std::nullopt;
    for (const QString& dir : applicationDirs()) {
        const QString path = locateBelow(dir, desktopId);
        if (path.isEmpty())
            continue;
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            continue;
        std::optional<DesktopEntry> entry = fromData(file.readAll(), path, desktopId);
        if (!entry)
            continue;
        if (entry->isHidden()) {
            qCDebug(lcDesktop).noquote() << desktopId << "is deleted by" << path;
            return std::nullopt;
        }
        return entry;
    }
    return std::nullopt;
}

std::optional<DesktopEntry> DesktopEntry::defaultFor(const QString& mimeType)
{
    const QString type = mimeType.trimmed().toLower();
    if (type.isEmpty())
        return std::nullopt;

    // Removals apply to the files after the one that makes them.
    QSet<QString> removed;
    QStringList added;
    for (const auto& [path, perDesktop] : mimeAppsFiles()) {
        const std::optional<KeyFileGroups> groups = readKeyFile(path);
        if (!groups)
            continue;
        for (const QString& id : listForType(*groups, QStringLiteral("Default Applications"), type)) {
            const QString desktopId = normalizedId(id);
            if (desktopId.isEmpty() || removed.contains(desktopId))
                continue;
            if (std::optional<DesktopEntry> entry = installedEntry(desktopId)) {
                qCDebug(lcDesktop).noquote() << "default for" << type << "is" << desktopId << "from" << path;
                return entry;
            }
        }
        if (perDesktop)
            continue;
        for (const QString& id : listForType(*groups, QStringLiteral("Added Associations"), type)) {
            const QString desktopId = normalizedId(id);
            if (!desktopId.isEmpty() && !removed.contains(desktopId) && !added.contains(desktopId))
                added.append(desktopId);
        }
        for (const QString& id : listForType(*groups, QStringLiteral("Removed Associations"), type))
            removed.insert(normalizedId(id));
    }

    for (const QString& id : std::as_const(added)) {
        if (std::optional<DesktopEntry> entry = installedEntry(id))
            return entry;
    }

    // What the entries declare: first as the caches list it, then by reading them.
    const QStringList appDirs = applicationDirs();
    for (const QString& dir : appDirs) {
        const std::optional<KeyFileGroups> cache = readKeyFile(dir + QStringLiteral("/mimeinfo.cache"));
        if (!cache)
            continue;
        for (const QString& id : listForType(*cache, QStringLiteral("MIME Cache"), type)) {
            const QString desktopId = normalizedId(id);
            if (desktopId.isEmpty() || removed.contains(desktopId))
                continue;
            std::optional<DesktopEntry> entry = installedEntry(desktopId);
            if (entry && entry->handlesMimeType(type))
                return entry;
        }
    }
    QSet<QString> seen;
    for (const QString& dir : appDirs) {
        for (const QString& id : idsBelow(dir)) {
            if (removed.contains(id) || seen.contains(id))
                continue;
            seen.insert(id);
            std::optional<DesktopEntry> entry = installedEntry(id);
            if (entry && entry->handlesMimeType(type))
                return entry;
        }
    }
    qCDebug(lcDesktop).noquote() << "no application for" << type;
    return std::nullopt;
}

QStringList DesktopEntry::applicationDirs()
{
    QStringList dirs;
    for (const QString& dir : dataDirs())
        dirs.append(dir + QStringLiteral("/applications"));
    return dirs;
}

QString DesktopEntry::name() const
{
    return name(QLocale().name());
}

QString DesktopEntry::name(const QString& localeName) const
{
    return localizedValue(QStringLiteral("Name"), localeName);
}

QString DesktopEntry::iconName() const
{
    return value(QStringLiteral("Icon"));
}

QString DesktopEntry::exec() const
{
    return value(QStringLiteral("Exec"));
}

QString DesktopEntry::tryExec() const
{
    return value(QStringLiteral("TryExec"));
}

QString DesktopEntry::type() const
{
    return value(QStringLiteral("Type"));
}

QString DesktopEntry::workingDirectory() const
{
    return value(QStringLiteral("Path"));
}

QStringList DesktopEntry::mimeTypes() const
{
    return listValue(QStringLiteral("MimeType"));
}

bool DesktopEntry::isHidden() const
{
    return boolValue(QStringLiteral("Hidden"));
}

bool DesktopEntry::noDisplay() const
{
    return boolValue(QStringLiteral("NoDisplay"));
}

bool DesktopEntry::runsInTerminal() const
{
    return boolValue(QStringLiteral("Terminal"));
}

QString DesktopEntry::value(const QString& key) const
{
    const auto found = m_values.constFind(key);
    return found == m_values.constEnd() ? QString() : unescapeValue(*found);
}

QString DesktopEntry::localizedValue(const QString& key, const QString& localeName) const
{
    for (const QString& locale : localeCandidates(localeName)) {
        const auto found = m_values.constFind(key + u'[' + locale + u']');
        if (found != m_values.constEnd())
            return unescapeValue(*found);
    }
    return value(key);
}

QStringList DesktopEntry::listValue(const QString& key) const
{
    const auto found = m_values.constFind(key);
    return found == m_values.constEnd() ? QStringList() : unescapeList(*found);
}

bool DesktopEntry::boolValue(const QString& key) const
{
    // "1" is what entries written before the boolean type was fixed use.
    const QString text = value(key);
    return text == u"true" || text == u"1";
}

bool DesktopEntry::isLaunchable() const
{
    if (isHidden() || type() != u"Application" || exec().trimmed().isEmpty())
        return false;
    const QString program = tryExec();
    return program.isEmpty() || !QStandardPaths::findExecutable(program).isEmpty();
}

bool DesktopEntry::handlesMimeType(const QString& mimeType) const
{
    return mimeTypes().contains(mimeType.trimmed(), Qt::CaseInsensitive);
}

QList<QStringList> DesktopEntry::commandsFor(const QStringList& files) const
{
    const std::optional<QList<ExecArgument>> arguments = splitExec(exec());
    if (!arguments || arguments->isEmpty()) {
        qCInfo(lcDesktop).noquote() << "unusable Exec line in" << (m_path.isEmpty() ? m_id : m_path);
        return {};
    }
    if (files.isEmpty() || usesCode(*arguments, isMultiFileCode))
        return { expandExec(*arguments, files, *this) };

    const bool takesOneFile = usesCode(*arguments, isSingleFileCode);
    QList<QStringList> commands;
    for (const QString& file : files) {
        QStringList command = expandExec(*arguments, { file }, *this);
        if (!takesOneFile)
            command.append(file);
        commands.append(std::move(command));
    }
    return commands;
}

QStringList DesktopEntry::commandFor(const QStringList& files) const
{
    const std::optional<QList<ExecArgument>> arguments = splitExec(exec());
    const bool takesAllFiles = arguments && usesCode(*arguments, isMultiFileCode);
    return commandsFor(takesAllFiles ? files : files.mid(0, 1)).value(0);
}

} // namespace quirepad
