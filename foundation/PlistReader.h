#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <optional>

namespace quirepad {

// Reads XML or binary property lists (libplist) into Qt values:
// dict -> QVariantMap, array -> QVariantList, string -> QString,
// boolean -> bool, integer -> qint64/quint64, real -> double,
// date -> QDateTime (UTC), data -> QByteArray.
class PlistReader
{
public:
    static std::optional<QVariant> fromData(const QByteArray& data);
    static std::optional<QVariant> fromFile(const QString& path);
    // The top-level dictionary of a file, or an empty map when the file is
    // missing, unreadable or holds something else.
    static QVariantMap dictionaryFromFile(const QString& path);
};

} // namespace quirepad
