#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <QVariant>

class QObject;
class QWidget;

namespace quirepad {

// Opens the file with its preferred application. False for an empty path.
bool open_file(const QString& path);

// Opens a URL: a QUrl, a path text beginning with "/", or a URL text; for a
// list, its first element. False when the value holds no URL.
bool open_url(const QVariant& value);

// Shows a location: a file in the file manager, any other URL opened as by
// open_url(). Takes the same values as open_url(). True when something was
// shown.
bool reveal_url(const QVariant& value);

// A URL kept as bytes (settings, saved state) and back. An empty URL gives a
// null array; bytes that are no URL give an empty QUrl.
QByteArray url2bookmark(const QUrl& url);
QUrl bookmark2url(const QByteArray& bookmark);

// Documents are never kept in a cloud container here; these only log so.
void share_icloud(const QUrl& url, const QVariant& ignored = {});
void unshare_icloud(const QUrl& url, const QVariant& ignored = {});

// Keeps the machine from idling into sleep for the given time (logind
// inhibitor on the system bus). False when that is not possible.
bool disable_app_nap(double seconds);

// Development aids: the widget with keyboard focus, and the chain of parents
// from object (the focus widget when null) up to its window, in the log.
QWidget* first_responder();
void dump_responder_chain(QObject* object = nullptr);

} // namespace quirepad
