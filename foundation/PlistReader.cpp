#include "foundation/PlistReader.h"

#include "foundation/Log.h"

#include <QDateTime>
#include <QFile>
#include <QTimeZone>
#include <QVariantList>
#include <QVariantMap>

#include <plist/plist.h>

#include <limits>
#include <memory>

namespace quirepad {

namespace {

struct PlistDeleter {
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

struct CharDeleter {
    void operator()(char* p) const { free(p); }
};

QVariant convert(plist_t node)
{
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return bool(value);
    }
    case PLIST_UINT: {
        // libplist 2.2 keeps every integer as an unsigned 64-bit value;
        // negative numbers come back in two's complement.
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return qint64(value);
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return value;
    }
    case PLIST_STRING: {
        char* raw = nullptr;
        plist_get_string_val(node, &raw);
        std::unique_ptr<char, CharDeleter> owner(raw);
        return QString::fromUtf8(raw ? raw : "");
    }
    case PLIST_KEY: {
        char* raw = nullptr;
        plist_get_key_val(node, &raw);
        std::unique_ptr<char, CharDeleter> owner(raw);
        return QString::fromUtf8(raw ? raw : "");
    }
    case PLIST_DATA: {
        char* raw = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &raw, &length);
        std::unique_ptr<char, CharDeleter> owner(raw);
        return QByteArray(raw, qsizetype(length));
    }
    case PLIST_DATE: {
        int32_t sec = 0;
        int32_t usec = 0;
        plist_get_date_val(node, &sec, &usec);
        // Property-list dates count from 2001-01-01 00:00:00 UTC.
        static const QDateTime reference(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC);
        return reference.addMSecs(qint64(sec) * 1000 + usec / 1000);
    }
    case PLIST_UID: {
        uint64_t value = 0;
        plist_get_uid_val(node, &value);
        return quint64(value);
    }
    case PLIST_ARRAY: {
        QVariantList list;
        const uint32_t count = plist_array_get_size(node);
        list.reserve(count);
        for (uint32_t i = 0; i < count; ++i)
            list.append(convert(plist_array_get_item(node, i)));
        return list;
    }
    case PLIST_DICT: {
        QVariantMap map;
        plist_dict_iter iter = nullptr;
        plist_dict_new_iter(node, &iter);
        if (!iter)
            return map;
        for (;;) {
            char* key = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, iter, &key, &value);
            if (!key)
                break;
            std::unique_ptr<char, CharDeleter> owner(key);
            map.insert(QString::fromUtf8(key), convert(value));
        }
        free(iter);
        return map;
    }
    default:
        return {};
    }
}

} // namespace

std::optional<QVariant> PlistReader::fromData(const QByteArray& data)
{
    if (data.isEmpty() || data.size() > std::numeric_limits<uint32_t>::max())
        return std::nullopt;
    plist_t root = nullptr;
    plist_from_memory(data.constData(), uint32_t(data.size()), &root);
    if (!root)
        return std::nullopt;
    PlistPtr owner(root);
    return convert(root);
}

std::optional<QVariant> PlistReader::fromFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return fromData(file.readAll());
}

QVariantMap PlistReader::dictionaryFromFile(const QString& path)
{
    const std::optional<QVariant> value = fromFile(path);
    if (!value)
        return {};
    if (value->typeId() != QMetaType::QVariantMap) {
        qCWarning(lcFoundation).noquote() << "property list" << path << "does not hold a dictionary";
        return {};
    }
    return value->toMap();
}

} // namespace quirepad
