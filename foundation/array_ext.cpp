#include "foundation/array_ext.h"

#include <algorithm>

namespace quirepad {

namespace {

// A strict weak order over arbitrary values: missing values first, then
// QVariant's own ordering; kinds it cannot order against each other (a
// number and a text, say) fall back to ordering by type.
bool variantLess(const QVariant& a, const QVariant& b)
{
    if (!a.isValid() || !b.isValid())
        return !a.isValid() && b.isValid();
    const QPartialOrdering order = QVariant::compare(a, b);
    if (order == QPartialOrdering::Unordered)
        return a.typeId() < b.typeId();
    return order == QPartialOrdering::Less;
}

} // namespace

QList<QVariantMap> arrayWithUniqueValuesForKey(const QList<QVariantMap>& list, const QString& key)
{
    QList<QVariantMap> unique;
    QVariantList seen;
    for (const QVariantMap& map : list) {
        const QVariant value = map.value(key);
        if (seen.contains(value))
            continue;
        seen.append(value);
        unique.append(map);
    }
    return unique;
}

QList<QVariantMap> sortedArrayUsingKey(const QList<QVariantMap>& list, const QString& key, bool ascending)
{
    QList<QVariantMap> sorted = list;
    std::stable_sort(sorted.begin(), sorted.end(), [&](const QVariantMap& a, const QVariantMap& b) {
        return ascending ? variantLess(a.value(key), b.value(key)) : variantLess(b.value(key), a.value(key));
    });
    return sorted;
}

QVariant valueForKeyMatching(const QList<QVariantMap>& list, const QString& key,
                             const ElementPredicate<QVariantMap>& predicate)
{
    const auto it = std::find_if(list.cbegin(), list.cend(), predicate);
    return it == list.cend() ? QVariant() : it->value(key);
}

} // namespace quirepad
