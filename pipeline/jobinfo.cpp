#include "pipeline/jobinfo.h"

#include "foundation/safefile.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>

#include <algorithm>

#include <fcntl.h>
#include <unistd.h>

namespace quirepad {

Q_LOGGING_CATEGORY(lcJobInfo, "quirepad.spool", QtInfoMsg)

namespace {

bool isBlank(QChar c)
{
    return c == u' ' || c == u'\t' || c == u'\r';
}

QString trimBlanks(QStringView text)
{
    qsizetype begin = 0, end = text.size();
    while (begin < end && isBlank(text[begin]))
        ++begin;
    while (end > begin && isBlank(text[end - 1]))
        --end;
    return text.mid(begin, end - begin).toString();
}

bool isKey(const QString& key)
{
    return !key.isEmpty() && std::all_of(key.begin(), key.end(), [](QChar c) {
        return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9') || c == u'_'
               || c == u'-' || c == u'.';
    });
}

bool hasControl(const QString& value)
{
    return std::any_of(value.begin(), value.end(), [](QChar c) {
        const char16_t u = c.unicode();
        return u < 0x20 || (u >= 0x7F && u <= 0x9F);
    });
}

} // namespace

QVariantMap parse_info(const QByteArray& bytes)
{
    QVariantMap info;
    const QString text = QString::fromUtf8(bytes);
    for (QStringView line : QStringView(text).split(u'\n')) {
        const qsizetype eq = line.indexOf(u'=');
        if (eq <= 0)
            continue;
        const QString key = trimBlanks(line.left(eq));
        const QString value = trimBlanks(line.mid(eq + 1));
        if (!isKey(key) || value.isEmpty())
            continue;
        if (hasControl(value)) {
            qCWarning(lcJobInfo).noquote() << "job info: the value of" << key << "holds a control character; ignored";
            continue;
        }
        info.insert(key, value);
    }
    return info;
}

QVariantMap read_info(const QString& path)
{
    constexpr qint64 limit = 1 << 20;
    struct stat st {};
    const UniqueFd fd =
        safefile::openFile(AT_FDCWD, QFile::encodeName(path), O_RDONLY, {::geteuid(), false}, nullptr, &st);
    if (!fd || st.st_size > limit)
        return {};
    const std::optional<QByteArray> text = safefile::readAll(fd.get(), limit);
    return text && text->size() <= limit ? parse_info(*text) : QVariantMap();
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
