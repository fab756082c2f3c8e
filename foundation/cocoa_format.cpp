#include "foundation/cocoa_format.h"

#include <QJsonDocument>
#include <QStringList>
#include <QUrl>

#include <cstdio>

namespace quirepad {

QString objectDescription(const QVariant& value)
{
    if (!value.isValid())
        return QStringLiteral("(null)");
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    case QMetaType::Double:
    case QMetaType::Float:
        return QString::number(value.toDouble(), 'g', 17);
    case QMetaType::QUrl:
        return value.toUrl().toString();
    case QMetaType::QByteArray:
        return QStringLiteral("<") + QString::fromLatin1(value.toByteArray().toHex()) + QStringLiteral(">");
    case QMetaType::QStringList:
    case QMetaType::QVariantList: {
        QStringList parts;
        for (const QVariant& item : value.toList())
            parts << objectDescription(item);
        return QStringLiteral("(") + parts.join(QStringLiteral(", ")) + QStringLiteral(")");
    }
    case QMetaType::QVariantMap: {
        QStringList parts;
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            parts << it.key() + QStringLiteral(" = ") + objectDescription(it.value()) + QLatin1Char(';');
        return QStringLiteral("{") + parts.join(QLatin1Char(' ')) + QStringLiteral("}");
    }
    default:
        break;
    }
    if (value.canConvert<QString>())
        return value.toString();
    return QString::fromUtf8(value.metaType().name());
}

namespace {

QString formatNumber(const QByteArray& flags, char conversion, const QVariant& arg)
{
    // flags holds flags, width and precision only; the length is chosen here.
    char buffer[512];
    QByteArray fmt = "%" + flags;
    int written = 0;
    switch (conversion) {
    case 'd':
    case 'i':
        fmt += "lld";
        written = std::snprintf(buffer, sizeof buffer, fmt.constData(), static_cast<long long>(arg.toLongLong()));
        break;
    case 'u':
    case 'x':
    case 'X':
    case 'o':
        fmt += "ll";
        fmt += conversion;
        written = std::snprintf(buffer, sizeof buffer, fmt.constData(),
                                static_cast<unsigned long long>(arg.toULongLong()));
        break;
    case 'f':
    case 'F':
    case 'e':
    case 'E':
    case 'g':
    case 'G':
        fmt += conversion;
        written = std::snprintf(buffer, sizeof buffer, fmt.constData(), arg.toDouble());
        break;
    default:
        return {};
    }
    if (written < 0)
        return {};
    return QString::fromLatin1(buffer, qMin<int>(written, int(sizeof buffer) - 1));
}

} // namespace

QString cocoaFormat(const QString& format, const QVariantList& args)
{
    QString out;
    out.reserve(format.size() + 32);
    qsizetype argIndex = 0;
    auto nextArg = [&]() -> QVariant { return argIndex < args.size() ? args.at(argIndex++) : QVariant(); };

    for (qsizetype i = 0; i < format.size(); ++i) {
        const QChar c = format.at(i);
        if (c != u'%') {
            out += c;
            continue;
        }
        qsizetype j = i + 1;
        QByteArray flags;
        while (j < format.size() && QByteArrayView("-+ #0").contains(char(format.at(j).unicode())))
            flags += char(format.at(j++).unicode());
        while (j < format.size() && (format.at(j).isDigit() || format.at(j) == u'.'))
            flags += char(format.at(j++).unicode());
        while (j < format.size() && QByteArrayView("hlqzjtL").contains(char(format.at(j).unicode())))
            ++j; // the length is taken from the argument, not the format
        if (j >= format.size()) {
            out += format.mid(i); // a dangling '%' stays as written
            break;
        }
        const char16_t conversion = format.at(j).unicode();
        switch (conversion) {
        case u'%':
            out += u'%';
            break;
        case u'@':
        case u's': {
            const QVariant arg = nextArg();
            out += objectDescription(arg);
            break;
        }
        case u'c': {
            const QVariant arg = nextArg();
            out += QChar(char16_t(arg.toUInt()));
            break;
        }
        case u'd': case u'i': case u'u': case u'x': case u'X': case u'o':
        case u'f': case u'F': case u'e': case u'E': case u'g': case u'G':
            out += formatNumber(flags, char(conversion), nextArg());
            break;
        default:
            out += format.mid(i, j - i + 1); // unknown conversion: keep it literally
            break;
        }
        i = j;
    }
    return out;
}

} // namespace quirepad
