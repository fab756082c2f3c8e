#include "pipeline/jobinfo.h"

#include <QDir>
#include <QFile>

namespace quirepad {

QVariantMap read_info(const QString& path)
{
    constexpr qint64 limit = 1 << 20;
    QVariantMap info;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > limit)
        return info;
    const QString text = QString::fromUtf8(file.read(limit + 1));
    for (const QString& line : text.split(u'\n')) {
        const qsizetype eq = line.indexOf(u'=');
        if (eq <= 0)
            continue;
        const QString key = line.left(eq).trimmed();
        const QString value = line.mid(eq + 1).trimmed();
        if (!key.isEmpty() && !value.isEmpty())
            info.insert(key, value);
    }
    return info;
}

QString SpoolLocations::sharedDirectory()
{
    QString dir = qEnvironmentVariable("QUIREPAD_SHARED_DIR");
    if (dir.isEmpty())
        dir = QStringLiteral("/var/spool/quirepad/");
    if (!dir.endsWith(u'/'))
        dir += u'/';
    return dir;
}

QString SpoolLocations::spoolDirectory()
{
    return sharedDirectory() + QStringLiteral("quirepad_spool/");
}

QString SpoolLocations::startTrigger()
{
    return sharedDirectory() + QStringLiteral(".quirepad_trigger_file_start");
}

QString SpoolLocations::endTrigger()
{
    return sharedDirectory() + QStringLiteral(".quirepad_trigger_file_end");
}

} // namespace quirepad
