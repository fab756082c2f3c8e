#include "store/Predicate.h"

#include <QRegularExpression>

namespace quirepad {

Predicate Predicate::always()
{
    return Predicate();
}

Predicate Predicate::equals(const QString& keyPath, const QVariant& value)
{
    Predicate p;
    p.m_always = false;
    p.m_keyPath = keyPath;
    p.m_value = value;
    return p;
}

std::optional<Predicate> Predicate::fromFormat(const QString& format)
{
    const QString text = format.trimmed();
    if (text == QLatin1String("TRUEPREDICATE"))
        return always();
    static const QRegularExpression pattern(QStringLiteral("^([A-Za-z_][A-Za-z0-9_.]*)\\s*==?\\s*(.+)$"));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    const QString key = match.captured(1);
    const QString literal = match.captured(2).trimmed();
    if (literal.size() >= 2
        && ((literal.startsWith(u'\'') && literal.endsWith(u'\'')) || (literal.startsWith(u'"') && literal.endsWith(u'"'))))
        return equals(key, literal.mid(1, literal.size() - 2));
    const QString upper = literal.toUpper();
    if (upper == QLatin1String("TRUE") || upper == QLatin1String("YES"))
        return equals(key, true);
    if (upper == QLatin1String("FALSE") || upper == QLatin1String("NO"))
        return equals(key, false);
    if (upper == QLatin1String("NIL") || upper == QLatin1String("NULL"))
        return equals(key, QVariant());
    bool ok = false;
    const qint64 number = literal.toLongLong(&ok);
    if (ok)
        return equals(key, number);
    const double real = literal.toDouble(&ok);
    if (ok)
        return equals(key, real);
    return std::nullopt;
}

QVariant valueForKeyPath(const QVariantMap& values, const QString& keyPath)
{
    const qsizetype dot = keyPath.indexOf(u'.');
    if (dot < 0)
        return values.value(keyPath);
    return valueForKeyPath(values.value(keyPath.left(dot)).toMap(), keyPath.mid(dot + 1));
}

namespace {
bool isNumeric(const QVariant& v)
{
    switch (v.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
        return true;
    default:
        return false;
    }
}
} // namespace

int compareValues(const QVariant& a, const QVariant& b)
{
    const bool aNil = !a.isValid() || a.isNull();
    const bool bNil = !b.isValid() || b.isNull();
    if (aNil || bNil)
        return aNil == bNil ? 0 : (aNil ? -1 : 1);
    if (isNumeric(a) && isNumeric(b)) {
        const double x = a.toDouble(), y = b.toDouble();
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    if (a.typeId() == QMetaType::QByteArray && b.typeId() == QMetaType::QByteArray)
        return a.toByteArray().compare(b.toByteArray());
    return a.toString().compare(b.toString());
}

bool Predicate::matches(const QVariantMap& values) const
{
    if (m_always)
        return true;
    const QVariant actual = valueForKeyPath(values, m_keyPath);
    if (!m_value.isValid())
        return !actual.isValid() || actual.isNull();
    if (!actual.isValid() || actual.isNull())
        return false;
    if (m_value.typeId() == QMetaType::Bool)
        return actual.toBool() == m_value.toBool();
    return compareValues(actual, m_value) == 0;
}

QString Predicate::format() const
{
    if (m_always)
        return QStringLiteral("TRUEPREDICATE");
    if (m_value.typeId() == QMetaType::Bool)
        return m_keyPath + (m_value.toBool() ? QStringLiteral(" == TRUE") : QStringLiteral(" == FALSE"));
    if (m_value.typeId() == QMetaType::QString)
        return m_keyPath + QStringLiteral(" == '") + m_value.toString() + QLatin1Char('\'');
    return m_keyPath + QStringLiteral(" == ") + m_value.toString();
}

} // namespace quirepad
