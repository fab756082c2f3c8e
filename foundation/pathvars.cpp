#include "foundation/pathvars.h"

#include "foundation/GlobalEnv.h"
#include "foundation/Log.h"
#include "foundation/cocoa_format.h"

#include <QDir>

#include <pwd.h>

namespace quirepad {

QString get_env(const QString& name)
{
    const QVariantMap& table = GlobalEnv::instance();
    const auto it = table.constFind(name);
    if (it != table.cend())
        return objectDescription(it.value());
    const QByteArray key = name.toUtf8();
    if (qEnvironmentVariableIsSet(key.constData()))
        return QString::fromUtf8(qgetenv(key.constData()));
    return {};
}

QString expandStr(const QString& text, const QVariantMap* variables)
{
    static const QString opening = QStringLiteral("${");
    QString out;
    qsizetype resume = 0;

    for (;;) {
        const qsizetype start = text.indexOf(opening, resume);
        if (start < 0)
            break;
        const bool escaped = start > 0 && text.at(start - 1) == u'\\';
        const qsizetype close = text.indexOf(u'}', start);
        if (close < 0) {
            // Nothing can close this placeholder: say so once and let the
            // rest of the text through as it stands.
            qCWarning(lcFoundation).noquote()
                << QStringLiteral("%1 has no closing brace. Opening brace at position %2").arg(text).arg(start);
            if (escaped) {
                out += QStringView(text).mid(resume, start - 1 - resume);
                resume = start;
            }
            break;
        }
        if (escaped) {
            out += QStringView(text).mid(resume, start - 1 - resume);
            out += QStringView(text).mid(start, close - start + 1);
        } else {
            out += QStringView(text).mid(resume, start - resume);
            const QString name = text.mid(start + 2, close - start - 2);
            if (variables && variables->contains(name))
                out += objectDescription(variables->value(name));
            else
                out += get_env(name); // a null string for an unknown name
        }
        resume = close + 1;
    }

    if (resume == 0)
        return text;
    out += QStringView(text).mid(resume);
    return out;
}

QString expandStr(const QString& text, const QVariantMap& variables)
{
    return expandStr(text, &variables);
}

QString expandTilde(const QString& path)
{
    if (!path.startsWith(u'~'))
        return path;
    const qsizetype slash = path.indexOf(u'/');
    const QString user = path.mid(1, slash < 0 ? -1 : slash - 1);
    const QString rest = slash < 0 ? QString() : path.mid(slash);
    if (user.isEmpty())
        return QDir::homePath() + rest;
    const QByteArray userName = user.toLocal8Bit();
    if (const passwd* entry = getpwnam(userName.constData()))
        return QString::fromLocal8Bit(entry->pw_dir) + rest;
    return path; // unknown user: left as written, like the shell does
}

namespace {

bool isUrl(const QVariant& value)
{
    return value.typeId() == QMetaType::QUrl;
}

bool isNull(const QVariant& value)
{
    return !value.isValid() || value.isNull();
}

QString formatted(const QString& text, const QVariantList& arguments)
{
    if (arguments.isEmpty() || !arguments.first().isValid())
        return text;
    return cocoaFormat(text, arguments);
}

} // namespace

QString f(const QVariant& value)
{
    return f(value, QVariantList());
}

QString f(const QVariant& value, const QVariantList& formatArguments)
{
    if (isNull(value))
        return {};
    if (isUrl(value))
        return value.toUrl().path(QUrl::FullyDecoded);
    const QString text = objectDescription(value);
    if (text.isEmpty())
        return {};
    if (text.startsWith(QLatin1String("file://localhost/")) || text.startsWith(QLatin1String("file:///")))
        return QUrl(text).path(QUrl::FullyDecoded);
    return expandTilde(expandStr(formatted(text, formatArguments), GlobalEnv::instance()));
}

QUrl u(const QVariant& value)
{
    return u(value, QVariantList());
}

QUrl u(const QVariant& value, const QVariantList& formatArguments)
{
    if (isUrl(value))
        return value.toUrl();
    if (isNull(value))
        return {};
    const QString text = objectDescription(value);
    if (text.isEmpty())
        return {};
    const QString expanded = expandStr(formatted(text, formatArguments), GlobalEnv::instance());

    const QUrl parsed(expanded, QUrl::StrictMode);
    if (parsed.isValid() && parsed.toString().contains(u':'))
        return parsed;
    if (!expanded.contains(u':')) {
        const QString path = f(expanded);
        return path.isEmpty() ? QUrl() : QUrl::fromLocalFile(path);
    }
    const QUrl again(expanded, QUrl::StrictMode);
    return again.isValid() ? again : QUrl();
}

namespace {
QVariantMap& globalEnvironment()
{
    static QVariantMap values;
    return values;
}
QVariantMap& globalCache()
{
    static QVariantMap values;
    return values;
}
void store(QVariantMap& map, const QString& key, const QVariant& value)
{
    if (value.isValid())
        map.insert(key, value);
    else
        map.remove(key);
}
} // namespace

void set_global_env(const QString& key, const QVariant& value)
{
    store(globalEnvironment(), key, value);
}

QVariant get_global_env(const QString& key)
{
    return globalEnvironment().value(key);
}

void set_global_cache(const QString& key, const QVariant& value)
{
    store(globalCache(), key, value);
}

QVariant get_global_cache(const QString& key)
{
    return globalCache().value(key);
}

} // namespace quirepad
