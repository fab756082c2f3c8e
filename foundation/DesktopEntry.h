#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace quirepad {

// One application as the desktop knows it: the [Desktop Entry] group of a
// .desktop file, found by its desktop-entry ID in the XDG data folders.
//
// Values are kept as written and unescaped when read (\s \n \t \r \\;
// in lists also \;). Other groups, comments and unknown keys are ignored.
class DesktopEntry
{
public:
    // Reads the file. Nothing when it cannot be read or has no
    // [Desktop Entry] group. The ID is the path below one of the
    // applicationDirs() with "/" turned into "-", otherwise the file name.
    static std::optional<DesktopEntry> fromFile(const QString& path);
    // Parses the contents of a .desktop file that lives (or would live) at
    // path; the ID is derived as for fromFile() unless given.
    static std::optional<DesktopEntry> fromData(
        const QByteArray& contents, const QString& path = QString(), const QString& id = QString());

    // The entry with this desktop-entry ID ("org.example.App.desktop"; the
    // suffix is added when missing). The first applicationDirs() folder that
    // has it wins; "kde-foo.desktop" is also found as kde/foo.desktop. An
    // entry marked Hidden there counts as deleted and hides those in later
    // folders too.
    static std::optional<DesktopEntry> find(const QString& id);

    // The application that opens files of this MIME type: the first
    // installed one named under [Default Applications] in the mimeapps.list
    // files (user, then system configuration, then data folders; the
    // $XDG_CURRENT_DESKTOP variants before each plain file) that a file of
    // higher precedence does not remove under [Removed Associations]; then
    // those under [Added Associations]; then the first installed one listed
    // in a mimeinfo.cache; then any installed entry declaring the type.
    static std::optional<DesktopEntry> defaultFor(const QString& mimeType);

    // The folders searched for entries, most important first:
    // $XDG_DATA_HOME/applications, then each of $XDG_DATA_DIRS + /applications.
    static QStringList applicationDirs();

    const QString& id() const { return m_id; }
    const QString& path() const { return m_path; }

    // Name in the current locale (QLocale()), or in the given one
    // ("de_CH", "sr_RS@latin", "pt_BR.UTF-8"), with the usual fallbacks
    // down to the untranslated value.
    QString name() const;
    QString name(const QString& localeName) const;
    QString iconName() const;
    QString exec() const;
    QString tryExec() const;
    QString type() const;
    // The Path key: the folder the application wants to start in.
    QString workingDirectory() const;
    QStringList mimeTypes() const;
    bool isHidden() const;
    bool noDisplay() const;
    bool runsInTerminal() const;

    // Any key of the group, unescaped; null when absent.
    QString value(const QString& key) const;
    QString localizedValue(const QString& key, const QString& localeName) const;
    QStringList listValue(const QString& key) const;
    bool boolValue(const QString& key) const;

    // Whether this entry can be started: an Application with an Exec line,
    // not Hidden, and whose TryExec program (if any) exists and is executable.
    bool isLaunchable() const;
    bool handlesMimeType(const QString& mimeType) const;

    // The argument vectors that open the files. Exec is split into
    // arguments by the shell's quoting rules (double and single quotes,
    // backslash), then field codes are expanded: %F/%U give every file,
    // %f/%u one file, which makes one command per file; %i gives
    // "--icon <Icon>", %c the Name, %k the entry's path, %% a percent sign;
    // %d %D %n %N %v %m and unknown codes vanish. Without any file code each
    // file is appended and gets a command of its own. Files are passed as
    // given. Nothing when Exec is empty or its quoting is broken.
    QList<QStringList> commandsFor(const QStringList& files) const;
    // The single command for these files; an entry taking one file at a time
    // gets the first of them only (commandsFor() covers all).
    QStringList commandFor(const QStringList& files) const;

private:
    DesktopEntry() = default;

    QString m_id;
    QString m_path;
    // Keys of the [Desktop Entry] group, "Name[de]" included, as written.
    QHash<QString, QString> m_values;
};

} // namespace quirepad
