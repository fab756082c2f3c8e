#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <optional>

namespace quirepad {

// The conditions the program fetches records by: always true, or one
// attribute equal to a value ("recid == 'copy_to_desktop'",
// "in_menu == TRUE"). Attribute paths may reach into the config
// dictionary ("config.plugin_name").
class Predicate
{
public:
    static Predicate always();
    static Predicate equals(const QString& keyPath, const QVariant& value);
    // Parses "TRUEPREDICATE" and "KEY == VALUE" where VALUE is a quoted
    // text, a number, TRUE/YES or FALSE/NO. nullopt for anything else.
    static std::optional<Predicate> fromFormat(const QString& format);

    bool matches(const QVariantMap& values) const;
    QString format() const;

private:
    Predicate() = default;

    bool m_always = true;
    QString m_keyPath;
    QVariant m_value;
};

// A value reached by a key path: "name", or "config.output_dir".
QVariant valueForKeyPath(const QVariantMap& values, const QString& keyPath);

// Orders two attribute values: numbers numerically, texts by code point,
// nil before everything. Answers <0, 0 or >0.
int compareValues(const QVariant& a, const QVariant& b);

} // namespace quirepad
