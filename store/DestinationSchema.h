#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

#include <optional>
#include <vector>

namespace quirepad {

// The attributes of a Destination record and how each is kept.
enum class AttributeKind {
    String,     // QString
    Integer,    // qint64
    Boolean,    // bool
    Dictionary, // QVariantMap, stored as JSON
    Image,      // PNG bytes
    Opaque,     // bytes carried unchanged, never interpreted
};

struct AttributeDefinition {
    QString name;
    AttributeKind kind;
};

class DestinationSchema
{
public:
    static constexpr const char* entityName = "Destination";
    // Bumped with every change of the stored layout; see SqliteStore.
    static constexpr int version = 1;

    static const std::vector<AttributeDefinition>& attributes();
    static std::optional<AttributeKind> kindOf(const QString& attribute);
    // The attributes that travel through export and import, in copy order.
    static const QStringList& transferredAttributes();

    // The value converted to the attribute's kind; an invalid QVariant (nil)
    // when it cannot be, or when the value itself is nil.
    static QVariant normalized(AttributeKind kind, const QVariant& value);
};

} // namespace quirepad
