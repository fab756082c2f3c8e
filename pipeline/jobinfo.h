#pragma once

#include <QString>
#include <QVariantMap>

namespace quirepad {

// A job's ".info" companion: UTF-8 lines KEY=VALUE. A line without "=", or
// with "=" first, is skipped; key and value are trimmed of spaces and tabs
// and kept only when both are non-empty; only the first "=" splits; a later
// key replaces an earlier one. Keys are taken exactly as the backend writes
// them (letters, digits, "_", "-", "."): a line with any other key is
// skipped, and so is a value holding a control character (a NUL included).
QVariantMap parse_info(const QByteArray& text);
// The info file at path: opened without following a link or blocking, and
// read only when it is a regular file of this user's with one link. A
// missing, refused or oversized (over 1 MiB) file gives an empty map.
QVariantMap read_info(const QString& path);

// Where the print backend and the application meet.
struct SpoolLocations {
    // $QUIREPAD_SHARED_DIR, else /var/spool/quirepad (with a trailing slash).
    static QString sharedDirectory();
    static QString spoolDirectory();
    static QString startTrigger();
    static QString endTrigger();
};

} // namespace quirepad
