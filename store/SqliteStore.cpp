#include "store/SqliteStore.h"

#include "store/DestinationSchema.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QUuid>

namespace quirepad {

namespace {

QString column(const QString& attribute)
{
    return QLatin1Char('"') + attribute + QLatin1Char('"');
}

QVariant toColumnValue(AttributeKind kind, const QVariant& value)
{
    if (!value.isValid())
        return QVariant(QMetaType::fromType<QString>()); // SQL NULL
    switch (kind) {
    case AttributeKind::Dictionary:
        return QString::fromUtf8(QJsonDocument(QJsonObject::fromVariantMap(value.toMap())).toJson(QJsonDocument::Compact));
    case AttributeKind::Boolean:
        return value.toBool() ? 1 : 0;
    default:
        return value;
    }
}

QVariant fromColumnValue(AttributeKind kind, const QVariant& value)
{
    if (value.isNull())
        return {};
    switch (kind) {
    case AttributeKind::String:
        return value.toString();
    case AttributeKind::Integer:
        return value.toLongLong();
    case AttributeKind::Boolean:
        return value.toLongLong() != 0;
    case AttributeKind::Dictionary: {
        const QJsonDocument doc = QJsonDocument::fromJson(value.toString().toUtf8());
        return doc.isObject() ? QVariant(doc.object().toVariantMap()) : QVariant();
    }
    case AttributeKind::Image:
    case AttributeKind::Opaque:
        return value.toByteArray();
    }
    return {};
}

// Each step brings the file from version N to N + 1.
const QStringList& migrationSteps()
{
    static const QStringList steps = [] {
        QStringList columns;
        for (const AttributeDefinition& attribute : DestinationSchema::attributes()) {
            QString type;
            switch (attribute.kind) {
            case AttributeKind::Integer:
            case AttributeKind::Boolean:
                type = QStringLiteral("INTEGER");
                break;
            case AttributeKind::Image:
            case AttributeKind::Opaque:
                type = QStringLiteral("BLOB");
                break;
            default:
                type = QStringLiteral("TEXT");
            }
            columns << column(attribute.name) + QLatin1Char(' ') + type;
        }
        return QStringList{
            QStringLiteral("CREATE TABLE destination (id INTEGER PRIMARY KEY AUTOINCREMENT, %1)")
                .arg(columns.join(QStringLiteral(", "))),
        };
    }();
    return steps;
}

} // namespace

SqliteStore::SqliteStore(const QString& path, const QString& connectionName)
    : m_path(path)
    , m_connectionName(connectionName)
{
}

SqliteStore::~SqliteStore()
{
    {
        QSqlDatabase db = QSqlDatabase::database(m_connectionName, false);
        if (db.isOpen())
            db.close();
    }
    QSqlDatabase::removeDatabase(m_connectionName);
}

std::unique_ptr<SqliteStore> SqliteStore::open(const QString& path, OpenError* errorKind, QString* error)
{
    auto fail = [&](OpenError kind, const QString& message) -> std::unique_ptr<SqliteStore> {
        if (errorKind)
            *errorKind = kind;
        if (error)
            *error = message;
        return nullptr;
    };
    const QString connection = QStringLiteral("quirepad-store-") + QUuid::createUuid().toString(QUuid::WithoutBraces);
    std::unique_ptr<SqliteStore> store(new SqliteStore(path, connection));
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
        db.setDatabaseName(path);
        if (!db.open())
            return fail(OpenError::Io, db.lastError().text());
        QSqlQuery check(db);
        // A damaged or foreign file opens fine and fails on first read.
        if (!check.exec(QStringLiteral("PRAGMA quick_check")) || !check.next()
            || check.value(0).toString() != QLatin1String("ok"))
            return fail(OpenError::Unreadable, check.lastError().isValid() ? check.lastError().text()
                                                                            : QStringLiteral("integrity check failed"));
        const int version = store->schemaVersion();
        if (version > DestinationSchema::version)
            return fail(OpenError::Unreadable,
                        QStringLiteral("the file was written by a newer version (layout %1)").arg(version));
        if (version > 0) {
            QSqlQuery probe(db);
            if (!probe.exec(QStringLiteral("SELECT id FROM destination LIMIT 1")))
                return fail(OpenError::Unreadable, probe.lastError().text());
        } else {
            QSqlQuery tables(db);
            if (tables.exec(QStringLiteral("SELECT count(*) FROM sqlite_master")) && tables.next()
                && tables.value(0).toInt() > 0)
                return fail(OpenError::Unreadable, QStringLiteral("the file holds a database of another program"));
        }
    }
    QString migrationError;
    if (!store->migrate(&migrationError))
        return fail(OpenError::Io, migrationError);
    if (errorKind)
        *errorKind = OpenError::None;
    return store;
}

int SqliteStore::schemaVersion() const
{
    QSqlQuery query(QSqlDatabase::database(m_connectionName));
    if (query.exec(QStringLiteral("PRAGMA user_version")) && query.next())
        return query.value(0).toInt();
    return -1;
}

bool SqliteStore::migrate(QString* error)
{
    QSqlDatabase db = QSqlDatabase::database(m_connectionName);
    int version = schemaVersion();
    const QStringList& steps = migrationSteps();
    while (version < int(steps.size())) {
        if (!db.transaction()) {
            *error = db.lastError().text();
            return false;
        }
        QSqlQuery query(db);
        if (!query.exec(steps.at(version))
            || !query.exec(QStringLiteral("PRAGMA user_version = %1").arg(version + 1))) {
            *error = query.lastError().text();
            db.rollback();
            return false;
        }
        if (!db.commit()) {
            *error = db.lastError().text();
            return false;
        }
        ++version;
    }
    return true;
}

std::optional<QList<StoredRecord>> SqliteStore::loadAll(QString* error)
{
    QSqlQuery query(QSqlDatabase::database(m_connectionName));
    query.setForwardOnly(true);
    if (!query.exec(QStringLiteral("SELECT * FROM destination ORDER BY id"))) {
        if (error)
            *error = query.lastError().text();
        return std::nullopt;
    }
    QList<StoredRecord> records;
    while (query.next()) {
        StoredRecord record;
        record.rowId = query.value(QStringLiteral("id")).toLongLong();
        for (const AttributeDefinition& attribute : DestinationSchema::attributes()) {
            const QVariant value = fromColumnValue(attribute.kind, query.value(attribute.name));
            if (value.isValid())
                record.values.insert(attribute.name, value);
        }
        records << record;
    }
    return records;
}

bool SqliteStore::save(const SaveRequest& request, QList<qint64>* insertedRowIds, QString* error)
{
    QSqlDatabase db = QSqlDatabase::database(m_connectionName);
    if (!db.transaction()) {
        *error = db.lastError().text();
        return false;
    }
    auto fail = [&](const QSqlQuery& query) {
        *error = query.lastError().text();
        db.rollback();
        return false;
    };

    QStringList names, placeholders, assignments;
    for (const AttributeDefinition& attribute : DestinationSchema::attributes()) {
        names << column(attribute.name);
        placeholders << QStringLiteral("?");
        assignments << column(attribute.name) + QStringLiteral(" = ?");
    }
    auto bindAll = [](QSqlQuery& query, const QVariantMap& values) {
        for (const AttributeDefinition& attribute : DestinationSchema::attributes())
            query.addBindValue(toColumnValue(attribute.kind, values.value(attribute.name)));
    };

    QList<qint64> ids;
    QSqlQuery insert(db);
    insert.prepare(QStringLiteral("INSERT INTO destination (%1) VALUES (%2)")
                       .arg(names.join(QStringLiteral(", ")), placeholders.join(QStringLiteral(", "))));
    for (const QVariantMap& values : request.inserted) {
        bindAll(insert, values);
        if (!insert.exec())
            return fail(insert);
        ids << insert.lastInsertId().toLongLong();
    }
    QSqlQuery update(db);
    update.prepare(QStringLiteral("UPDATE destination SET %1 WHERE id = ?").arg(assignments.join(QStringLiteral(", "))));
    for (const StoredRecord& record : request.updated) {
        bindAll(update, record.values);
        update.addBindValue(record.rowId);
        if (!update.exec())
            return fail(update);
    }
    QSqlQuery remove(db);
    remove.prepare(QStringLiteral("DELETE FROM destination WHERE id = ?"));
    for (qint64 id : request.deleted) {
        remove.addBindValue(id);
        if (!remove.exec())
            return fail(remove);
    }
    if (!db.commit()) {
        *error = db.lastError().text();
        db.rollback();
        return false;
    }
    if (insertedRowIds)
        *insertedRowIds = ids;
    return true;
}

} // namespace quirepad
