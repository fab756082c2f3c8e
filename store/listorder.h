#pragma once

#include "store/DestinationItem.h"
#include "store/Predicate.h"
#include "store/SortDescriptor.h"

#include <QList>

#include <algorithm>

namespace quirepad {

// Keeping the "order" attribute consistent when the user reorders a list.
// Templates over the record type so the tree form can number any items
// with setInteger(value, key) and childrenForKey(key).

// The list sorted by the descriptor, without the moved objects.
template <class Item>
QList<Item*> listPrepareReorder(const QList<Item*>& list, const QList<Item*>& moved, const SortDescriptor& sort)
{
    QList<Item*> sorted = list;
    std::stable_sort(sorted.begin(), sorted.end(), [&](Item* a, Item* b) {
        const int c = compareValues(a->value(sort.key), b->value(sort.key));
        return sort.ascending ? c < 0 : c > 0;
    });
    sorted.removeIf([&](Item* item) { return moved.contains(item); });
    return sorted;
}

// Inserts the objects, in their order, in front of the anchor; a nil anchor
// or one not in the list inserts at the front. An empty list is appended to.
template <class Item>
void listInsertObjectBefore(QList<Item*>& list, const QList<Item*>& objects, Item* anchor)
{
    if (objects.isEmpty())
        return;
    if (list.isEmpty()) {
        list << objects;
        return;
    }
    qsizetype index = anchor ? list.indexOf(anchor) : 0;
    if (index < 0)
        index = 0;
    for (Item* object : objects)
        list.insert(index++, object);
}

// Inserts the objects behind the anchor; a nil anchor inserts at the front,
// and an anchor that is not in the list inserts at index 1 (behind the
// first element, not at the end) — the program has always done so.
template <class Item>
void listInsertObjectAfter(QList<Item*>& list, const QList<Item*>& objects, Item* anchor)
{
    if (objects.isEmpty())
        return;
    if (list.isEmpty()) {
        list << objects;
        return;
    }
    qsizetype index = 0;
    if (anchor) {
        const qsizetype found = list.indexOf(anchor);
        index = found < 0 ? 1 : found + 1;
    }
    for (Item* object : objects)
        list.insert(index++, object);
}

// Writes 1, 2, 3 ... in list order into the key of each item.
template <class Item>
void listStoreOrder(const QList<Item*>& list, const QString& key)
{
    qint64 position = 1;
    for (Item* item : list)
        item->setInteger(position++, key);
}

// As listStoreOrder, numbering each level from 1; descends into an item's
// children only when it has more than one (a single child keeps its number).
template <class Item>
void listStoreOrderRecursive(const QList<Item*>& list, const QString& key, const QString& childrenKey)
{
    listStoreOrder(list, key);
    for (Item* item : list) {
        const QList<Item*> children = item->childrenForKey(childrenKey);
        if (children.size() > 1)
            listStoreOrderRecursive(children, key, childrenKey);
    }
}

// A drop of moved records into a list sorted by a key, behind the record in
// front of the drop point: afterwards the key counts 1 ... n in ascending
// sort order, whichever direction the list shows.
template <class Item>
QList<Item*> listDropReorder(const QList<Item*>& content, const QList<Item*>& moved, Item* inFrontOfDrop,
                             const SortDescriptor& sort)
{
    QList<Item*> list = listPrepareReorder(content, moved, sort);
    listInsertObjectAfter(list, moved, inFrontOfDrop);
    QList<Item*> numbered = list;
    if (!sort.ascending)
        std::reverse(numbered.begin(), numbered.end());
    listStoreOrder(numbered, sort.key);
    return list;
}

} // namespace quirepad
