#pragma once

#include <QIcon>
#include <QList>
#include <QObject>
#include <QVariant>
#include <QVariantMap>

namespace quirepad {

class ManagedObjectContext;

// One Destination record. Owned by its ManagedObjectContext; values are
// read and written by attribute name, or by key path into the config
// dictionary ("config.output_dir").
class DestinationItem : public QObject
{
    Q_OBJECT

public:
    QVariant value(const QString& keyPath) const;
    // Sets an attribute (converted to its kind) or, with a "config." path,
    // one config key; nil removes it. False for an unknown attribute.
    bool setValue(const QString& keyPath, const QVariant& value);

    qint64 integerForKey(const QString& key) const;
    void setInteger(qint64 value, const QString& key);
    qint64 integer64ForKey(const QString& key) const;
    void setInteger64(qint64 value, const QString& key);
    bool boolForKey(const QString& key) const;
    void setBool(bool value, const QString& key);
    // Stores any value as archived bytes (QDataStream); nil stores nil.
    void archiveObject(const QVariant& object, const QString& key);
    QVariant unarchiveObjectForKey(const QString& key) const;

    // Attribute name -> value for every attribute that is set.
    QVariantMap objectAsDictionary() const { return m_values; }

    // A stable text naming this record in its store (temporary until the
    // first save).
    QString objectIDString() const;

    // The custom image, else an icon derived from the type.
    QIcon icon() const;

    // Records have no children; the recursive list numbering asks anyway.
    QList<DestinationItem*> childrenForKey(const QString&) const { return {}; }

    QString recid() const { return value(QStringLiteral("recid")).toString(); }
    QString name() const { return value(QStringLiteral("name")).toString(); }
    QString type() const { return value(QStringLiteral("type")).toString(); }
    QVariantMap config() const { return value(QStringLiteral("config")).toMap(); }

    bool isInserted() const { return m_rowId == 0; }
    bool isDeleted() const { return m_deleted; }
    bool hasChanges() const { return m_dirty; }

signals:
    void valueChanged(const QString& key);
    void iconChanged();

private:
    friend class ManagedObjectContext;
    DestinationItem(ManagedObjectContext* context, qint64 rowId, const QVariantMap& values);

    void markChanged(const QString& key);

    ManagedObjectContext* m_context;
    qint64 m_rowId = 0;
    QString m_temporaryId;
    QVariantMap m_values;
    bool m_dirty = false;
    bool m_deleted = false;
};

} // namespace quirepad
