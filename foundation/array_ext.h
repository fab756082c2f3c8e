#pragma once

#include "foundation/cocoa_format.h"

#include <QList>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <algorithm>
#include <functional>
#include <iterator>
#include <optional>
#include <type_traits>

namespace quirepad {

// Predicates are taken as std::function in a non-deduced context, so a
// plain lambda can be passed for any element type.
template <class T>
using ElementPredicate = std::type_identity_t<std::function<bool(const T&)>>;

// Each value once, at the place of its first occurrence.
template <class T>
QList<T> arrayWithUniqueValues(const QList<T>& list)
{
    QList<T> unique;
    for (const T& item : list) {
        if (!unique.contains(item))
            unique.append(item);
    }
    return unique;
}

// The maps whose value for key was not seen in an earlier map, in order.
// Maps without the key share one "no value" value.
QList<QVariantMap> arrayWithUniqueValuesForKey(const QList<QVariantMap>& list, const QString& key);

// A stable sort of the maps by their value for key. Numbers compare as
// numbers, texts as texts; missing values come first in ascending order,
// values of kinds that do not compare with each other are grouped by kind.
QList<QVariantMap> sortedArrayUsingKey(const QList<QVariantMap>& list, const QString& key, bool ascending = true);

template <class T>
QList<T> reversedArray(const QList<T>& list)
{
    return QList<T>(list.crbegin(), list.crend());
}

// The receiver's elements that other also holds, in the receiver's order
// (repeats included).
template <class T>
QList<T> objectsCommonToArray(const QList<T>& list, const QList<T>& other)
{
    QList<T> common;
    for (const T& item : list) {
        if (other.contains(item))
            common.append(item);
    }
    return common;
}

// The receiver's elements that other does not hold, in the receiver's order.
template <class T>
QList<T> objectsNotInCommonToArray(const QList<T>& list, const QList<T>& other)
{
    QList<T> rest;
    for (const T& item : list) {
        if (!other.contains(item))
            rest.append(item);
    }
    return rest;
}

template <class T>
qsizetype countObjectsCommonToArray(const QList<T>& list, const QList<T>& other)
{
    return std::count_if(list.cbegin(), list.cend(), [&](const T& item) { return other.contains(item); });
}

// The first count + 1 elements, or all of them when there are fewer. The
// bound is inclusive on purpose: callers pass the index of the last element
// they want, and existing callers rely on getting that many plus one.
template <class T>
QList<T> topObjects(const QList<T>& list, qsizetype count)
{
    if (count < 0)
        return {};
    return list.mid(0, count + 1);
}

// True when every element of other is in list (so for an empty other).
template <class T>
bool containsAllObjectIn(const QList<T>& list, const QList<T>& other)
{
    return std::all_of(other.cbegin(), other.cend(), [&](const T& item) { return list.contains(item); });
}

// True when some element of other is in list (never for an empty other).
template <class T>
bool containsAnyObjectIn(const QList<T>& list, const QList<T>& other)
{
    return std::any_of(other.cbegin(), other.cend(), [&](const T& item) { return list.contains(item); });
}

namespace detail {
template <class T>
QString joinedText(const T& item)
{
    if constexpr (std::is_same_v<T, QVariant>)
        return objectDescription(item);
    else if constexpr (std::is_convertible_v<const T&, QString>)
        return QString(item);
    else
        return objectDescription(QVariant::fromValue(item));
}
} // namespace detail

// The text forms of the elements (texts as they are, other values as a
// message would show them) with separator between them.
template <class T>
QString join(const QList<T>& list, const QString& separator)
{
    QString joined;
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (i > 0)
            joined += separator;
        joined += detail::joinedText(list.at(i));
    }
    return joined;
}

template <class T>
bool containsObjectMatching(const QList<T>& list, const ElementPredicate<T>& predicate)
{
    return std::any_of(list.cbegin(), list.cend(), predicate);
}

template <class T>
std::optional<T> firstObjectMatching(const QList<T>& list, const ElementPredicate<T>& predicate)
{
    const auto it = std::find_if(list.cbegin(), list.cend(), predicate);
    if (it == list.cend())
        return std::nullopt;
    return *it;
}

template <class T>
QList<T> objectsMatching(const QList<T>& list, const ElementPredicate<T>& predicate)
{
    QList<T> matching;
    std::copy_if(list.cbegin(), list.cend(), std::back_inserter(matching), predicate);
    return matching;
}

// The value for key of the first map the predicate accepts; an invalid
// QVariant when none does.
QVariant valueForKeyMatching(const QList<QVariantMap>& list, const QString& key,
                             const ElementPredicate<QVariantMap>& predicate);

} // namespace quirepad
