#pragma once

#include <QString>
#include <QUrl>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include <type_traits>

namespace quirepad {

// One path variable: the GlobalEnv table, then the process environment.
// A null string when neither has it.
QString get_env(const QString& name);

// Replaces every "${NAME}" in text. The variables dictionary (when given)
// is consulted before get_env. Unknown names expand to nothing; values are
// inserted as they are, never expanded again; "\${NAME}" stays literally,
// without its backslash. When nothing was expanded the input itself comes
// back (it shares its data with the argument).
QString expandStr(const QString& text, const QVariantMap* variables = nullptr);
QString expandStr(const QString& text, const QVariantMap& variables);

// A file path from any path-like value (string, file URL, "file:///" text),
// formatted over the further arguments when the first of them is not null,
// then expanded against GlobalEnv and tilde-expanded. A null string for a
// null or empty value.
QString f(const QVariant& value);
QString f(const QVariant& value, const QVariantList& formatArguments);

// A URL from any value: URLs pass through, texts are formatted, expanded
// and parsed; a text without a scheme becomes a file URL. An empty QUrl
// stands for no URL.
QUrl u(const QVariant& value);
QUrl u(const QVariant& value, const QVariantList& formatArguments);

namespace detail {
template <class T>
QVariant toFormatArgument(const T& value)
{
    if constexpr (std::is_convertible_v<T, QString>)
        return QString(value);
    else
        return QVariant::fromValue(value);
}
} // namespace detail

template <class... Args>
    requires(sizeof...(Args) > 0)
QString f(const QVariant& value, const Args&... args)
{
    return f(value, QVariantList{detail::toFormatArgument(args)...});
}

template <class... Args>
    requires(sizeof...(Args) > 0)
QUrl u(const QVariant& value, const Args&... args)
{
    return u(value, QVariantList{detail::toFormatArgument(args)...});
}

// Tilde expansion of a path: "~" and "~/..." against the home folder,
// "~user/..." against that user's.
QString expandTilde(const QString& path);

// Two process-wide dictionaries of named values, independent of GlobalEnv
// and not consulted by expansion. Storing an invalid value removes the key.
void set_global_env(const QString& key, const QVariant& value);
QVariant get_global_env(const QString& key);
void set_global_cache(const QString& key, const QVariant& value);
QVariant get_global_cache(const QString& key);

} // namespace quirepad
