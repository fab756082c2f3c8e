#pragma once

#include <QIcon>
#include <QString>
#include <QStringList>

namespace quirepad {

// Applications are named by desktop-entry ID ("org.gnome.Evince.desktop",
// the suffix may be left out). Two values stand for the default PDF viewer:
// an empty appid and "com.apple.Preview", which older settings and the
// built-in "Open in Preview" destination keep.

// The desktop-entry ID appid stands for: the default PDF viewer for the two
// values above, the installed entry's ID when appid names one, otherwise a
// null string (the files are then opened with their default handlers).
QString resolveAppId(const QString& appid);

// The localized Name of the application; null when there is none.
QString app_name(const QString& appid);

// The application's icon: its Icon from the icon theme, or the image file
// when Icon is an absolute path. A null icon when nothing fits.
QIcon app_icon(const QString& appid);

// The icon the desktop shows for the file or folder at path; the generic
// folder icon when nothing is there.
QIcon file_icon(const QString& path);

// Starts the application (one process per file when it takes one file at a
// time) with the files, detached from this process. When appid stands for no
// application, every file is opened with its default handler instead. True
// when everything started; false as well when there was nothing to start.
bool open_with_app(const QString& appid, const QStringList& files);

} // namespace quirepad
